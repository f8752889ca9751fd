// The side-window guided filter against the definition computed in doubles, its identities, its
// borders, its statuses and its scratch under failing allocations.
#include "nr/guided_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "enhance/image_rows.h"
#include "tests/engine/run_fixtures.h"
#include "tests/enhance/image_test_util.h"

namespace {

using Plane = std::vector<int32_t>;

// The definition, straight from its formulas, in doubles. map: one value per block of the
// rectangle, or empty for the plain variant.
Plane reference(const Plane& img, int32_t w, int32_t h, int32_t window, double eps, bool sixteen,
                const Plane& map) {
    const int32_t W = w & ~3, H = h & ~3, gw = ((w >> 2) + 1) & ~1, gh = ((h >> 2) + 1) & ~1;
    const int32_t r = (window >> 2) | 1, L = (r >> 1) | 1, n = r >> 2, s = L >> 1;
    const double one = sixteen ? 512 : 128, limit = sixteen ? 65535 : 255;
    if (sixteen) eps *= 16;
    std::vector<double> sum(gw * gh), sq(gw * gh);
    for (int32_t j = 0; j < gh; ++j)
        for (int32_t i = 0; i < gw; ++i)
            for (int32_t k = 0; k < 16; ++k) {
                const double v =
                    img[std::min(4 * j + k / 4, h - 1) * w + std::min(4 * i + k % 4, w - 1)];
                sum[j * gw + i] += v;
                sq[j * gw + i] += v * v;
            }
    const int32_t dx[4] = {1, 0, 1, 1}, dy[4] = {0, 1, 1, -1};
    std::vector<int64_t> a_dir(4 * gw * gh), b_dir(4 * gw * gh);
    auto inside = [&](int32_t i, int32_t j) { return i >= 0 && i < gw && j >= 0 && j < gh; };
    for (int32_t d = 0; d < 4; ++d)
        for (int32_t j = 0; j < gh; ++j)
            for (int32_t i = 0; i < gw; ++i) {
                int32_t lo = 0, hi = 0;  // how far the line stays in the grid
                while (lo > -n && inside(i + (lo - 1) * dx[d], j + (lo - 1) * dy[d]))
                    --lo;
                while (hi < n && inside(i + (hi + 1) * dx[d], j + (hi + 1) * dy[d]))
                    ++hi;
                double s1 = 0, s2 = 0;
                for (int32_t k = -n; k <= n; ++k) {
                    const int32_t t = std::clamp(k, lo, hi);
                    s1 += sum[(j + t * dy[d]) * gw + i + t * dx[d]];
                    s2 += sq[(j + t * dy[d]) * gw + i + t * dx[d]];
                }
                const double mean = s1 / (16 * L);
                double e = eps, var = s2 / (16 * L) - mean * mean;
                if (map.empty()) {
                    var = std::max(var, 0.0);
                } else {
                    e = eps * map[std::min(j, H / 4 - 1) * (W / 4) + std::min(i, W / 4 - 1)] / 32;
                    var = std::max(var, 1e-12);
                }
                const double a = var / (var + e);
                a_dir[(d * gh + j) * gw + i] = int64_t(a * one + 0.5);
                b_dir[(d * gh + j) * gw + i] = int64_t(std::min(mean * (1 - a) + 0.5, limit));
            }
    std::vector<int64_t> fa(gw * gh), fb(gw * gh);
    for (int32_t j = 0; j < gh; ++j)
        for (int32_t i = 0; i < gw; ++i) {
            int64_t ws = 0, wa = 0, wb = 0;
            // A grid smaller than s leaves some blocks no candidate: they take offset 0.
            const bool none = !inside(i - s, j) && !inside(i + s, j) && !inside(i, j - s) &&
                              !inside(i, j + s) && !inside(i - s, j - s) && !inside(i + s, j + s) &&
                              !inside(i + s, j - s) && !inside(i - s, j + s);
            for (int32_t d = 0; d < 4; ++d)
                for (int32_t k : {-1, 1}) {
                    const int32_t x = i + k * (none ? 0 : s) * dx[d],
                                  y = j + k * (none ? 0 : s) * dy[d];
                    if (!inside(x, y)) continue;
                    const int64_t a = a_dir[(d * gh + y) * gw + x], dd = (int64_t(one) - a);
                    const int64_t wt = dd * (dd + 1) + 1;
                    ws += wt, wa += wt * a, wb += wt * b_dir[(d * gh + y) * gw + x];
                }
            fa[j * gw + i] = std::min<int64_t>((wa + ws / 2) / ws, sixteen ? 1023 : 255);
            fb[j * gw + i] = std::min<int64_t>((wb + ws / 2) / ws, int64_t(limit));
        }
    // Apply: between block centres 2-D weights 7 5 3 1 / 1 3 5 7; one-dimensional on the two
    // first and last rows and columns; the grid value itself at the corners.
    Plane out = img;
    auto at = [&](const std::vector<int64_t>& g, int32_t x, int32_t y) {
        const bool ex = x < 2 || x >= W - 2, ey = y < 2 || y >= H - 2;
        const int32_t ix = x < 2 ? 0 : x >= W - 2 ? W / 4 - 1 : (x - 2) / 4;
        const int32_t iy = y < 2 ? 0 : y >= H - 2 ? H / 4 - 1 : (y - 2) / 4;
        const int64_t qx = (x - 2) & 3, qy = (y - 2) & 3;
        auto v = [&](int32_t di, int32_t dj) { return g[(iy + dj) * gw + ix + di]; };
        if (ex && ey) return v(0, 0);
        if (ey) return ((7 - 2 * qx) * v(0, 0) + (1 + 2 * qx) * v(1, 0) + 4) >> 3;
        if (ex) return ((7 - 2 * qy) * v(0, 0) + (1 + 2 * qy) * v(0, 1) + 4) >> 3;
        return ((7 - 2 * qy) * ((7 - 2 * qx) * v(0, 0) + (1 + 2 * qx) * v(1, 0)) +
                (1 + 2 * qy) * ((7 - 2 * qx) * v(0, 1) + (1 + 2 * qx) * v(1, 1)) + 32) >>
               6;
    };
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x) {
            const int64_t shift = sixteen ? 9 : 7;
            const int64_t v =
                at(fb, x, y) + (((1 << (shift - 1)) + at(fa, x, y) * img[y * w + x]) >> shift);
            out[y * w + x] = int32_t(std::min<int64_t>(v, int64_t(limit)));
        }
    return out;
}

struct Rig {
    tav_test::Heap heap{64u << 20};
    tav_sr2_GuidedFilter f;
    Rig(int32_t w, int32_t h, int32_t format, tav_sr2_TaskSys* ts = nullptr) {
        tav_sr2_GuidedFilter_init(&f, &heap.pool);
        tav_sr2_GuidedFilter_setThreads(&f, ts);
        EXPECT_EQ(tav_sr2_GuidedFilter_setup(&f, w, h, format, nullptr), TAV_OK);
    }
    ~Rig() { tav_sr2_GuidedFilter_finish(&f); }
};

// A plane of the class's samples: value noise with Gaussian noise, or a scaled copy for 10 bits.
Plane scenePlane(int32_t w, int32_t h, bool ten_bit, double sigma, uint32_t seed) {
    const tav_run::Scene s = tav_run::valueNoiseScene(w, h, seed);
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, sigma);
    Plane p(size_t(w) * h);
    for (size_t k = 0; k < p.size(); ++k) {
        const double v = s.luma[k] * (ten_bit ? 4 : 1) + noise(rng);
        p[k] = int32_t(std::clamp(std::lround(v), 0l, ten_bit ? 1023l : 255l));
    }
    return p;
}

void put(tav_sr2_Image* img, const Plane& p) {
    for (int32_t y = 0; y < img->height; ++y)
        for (int32_t x = 0; x < img->width; ++x) {
            const int32_t v = p[size_t(y) * img->width + x];
            if (img->format == TAV_SR2_FMT_UINT8) {
                img->plane[0][y * img->pitch[0] + x] = uint8_t(v);
            } else {
                reinterpret_cast<uint16_t*>(img->plane[0] + y * img->pitch[0])[x] = uint16_t(v);
            }
        }
}

Plane get(const tav_sr2_Image& img) {
    Plane p(size_t(img.width) * img.height);
    for (int32_t y = 0; y < img.height; ++y)
        for (int32_t x = 0; x < img.width; ++x)
            p[size_t(y) * img.width + x] = int32_t(tav_test::sample(img, x, y));
    return p;
}

// Filters `in` with the rig's filter; an empty map gives the plain variant.
Plane filtered(Rig* rig, int32_t format, const Plane& in, int32_t w, int32_t h, int32_t window,
               float eps, const Plane& map = {}) {
    tav_test::TestImage img(&rig->heap.pool, w, h, format);
    put(&img.img, in);
    uint32_t status;
    if (map.empty()) {
        status = tav_sr2_GuidedFilter_process(&rig->f, nullptr, &img.img, window, eps);
    } else {
        tav_test::TestImage m(&rig->heap.pool, (w & ~3) / 4, (h & ~3) / 4, TAV_SR2_FMT_UINT8);
        put(&m.img, map);
        status = tav_sr2_GuidedFilter_processMap(&rig->f, nullptr, &img.img, &m.img, window, eps);
    }
    EXPECT_EQ(status, TAV_OK);
    return get(img.img);
}

TEST(GuidedFilterTest, AgreesWithTheDefinitionInDoubles) {
    // The model runs in f32 and is quantised; the doubles cross a rounding edge of a or b
    // differently on a few blocks, which moves those pixels by one code.
    struct Case {
        int32_t w, h, window;
        float eps;
        bool ten_bit, with_map;
    } cases[] = {
        {203, 157, 41, 100.0f, false, false}, {203, 157, 21, 25.0f, false, true},
        {96, 64, 101, 400.0f, false, false},  {131, 90, 9, 16.0f, true, false},
        {131, 90, 41, 64.0f, true, true},     {8, 8, 21, 50.0f, false, false},
        {24, 12, 101, 50.0f, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << "x" << c.h << " window " << c.window
                     << (c.ten_bit ? " 10-bit" : " 8-bit") << (c.with_map ? " map" : ""));
        const int32_t format = c.ten_bit ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8;
        const Plane in = scenePlane(c.w, c.h, c.ten_bit, c.ten_bit ? 12.0 : 3.0, 7);
        Plane map;
        if (c.with_map) {
            std::mt19937 rng(3);
            map.resize(size_t(c.w / 4) * (c.h / 4));
            for (int32_t& v : map)
                v = 8 + int32_t(rng() % 120);
        }
        Rig rig(c.w, c.h, format);
        const Plane got = filtered(&rig, format, in, c.w, c.h, c.window, c.eps, map);
        const Plane want = reference(in, c.w, c.h, c.window, c.eps, c.ten_bit, map);
        int32_t worst = 0, off = 0;
        for (size_t k = 0; k < got.size(); ++k) {
            worst = std::max(worst, std::abs(got[k] - want[k]));
            off += got[k] != want[k];
        }
        EXPECT_LE(worst, 1);
        EXPECT_LE(off, int32_t(got.size() / 200));
    }
}

TEST(GuidedFilterTest, KeepsStepEdgesAndFlatFields) {
    const int32_t w = 120, h = 64;
    Plane step(w * h), flat(w * h, 77);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            step[y * w + x] = x < 61 ? 40 : 210;
    Rig rig(w, h, TAV_SR2_FMT_UINT8);
    // The step stays a step: no row has more than one pixel between a quarter and three quarters
    // of the way up, nothing leaves the two levels by more than a code, and past the reach of the
    // window (4, 12, 20 pixels) every pixel keeps its level. Within the reach the half-lines that
    // cross the edge still weigh a little: a window-41 row reads 40 40 44 51 58 | 183 205 207 207
    // 209 210 .. across the edge at 61.
    const int32_t reach[] = {4, 12, 20};
    const int32_t windows[] = {9, 21, 41};
    for (int32_t k = 0; k < 3; ++k) {
        const Plane out = filtered(&rig, TAV_SR2_FMT_UINT8, step, w, h, windows[k], 400.0f);
        for (int32_t y = 0; y < h; ++y) {
            int32_t between = 0;
            for (int32_t x = 0; x < w; ++x) {
                const int32_t v = out[y * w + x];
                SCOPED_TRACE(testing::Message()
                             << "window " << windows[k] << " at " << x << "," << y);
                ASSERT_TRUE(v >= 39 && v <= 211);
                const int32_t moved = std::abs(v - step[y * w + x]);
                ASSERT_TRUE(std::abs(x - 61) <= reach[k] || moved <= 1);
                between += v > 82 && v < 168;
            }
            ASSERT_LE(between, 1) << "window " << windows[k] << " row " << y;
        }
        EXPECT_EQ(filtered(&rig, TAV_SR2_FMT_UINT8, flat, w, h, windows[k], 400.0f), flat);
    }
    // Windows 3 and 9 both use one-block lines.
    const Plane noisy = scenePlane(w, h, false, 6.0, 5);
    EXPECT_EQ(filtered(&rig, TAV_SR2_FMT_UINT8, noisy, w, h, 3, 50.0f),
              filtered(&rig, TAV_SR2_FMT_UINT8, noisy, w, h, 9, 50.0f));
}

TEST(GuidedFilterTest, IdentityAndTheStripPastTheBlocks) {
    const int32_t w = 61, h = 43;  // 3 columns and 3 rows past the blocks
    tav_test::Heap heap;
    std::mt19937 rng(9);
    Rig rig(w, h, TAV_SR2_FMT_UINT8);
    tav_test::TestImage src(&rig.heap.pool, w, h, TAV_SR2_FMT_UINT8);
    tav_test::TestImage dst(&rig.heap.pool, w, h, TAV_SR2_FMT_UINT8);
    src.randomize(rng);
    dst.randomize(rng);
    const Plane in = get(src.img);
    // eps 0 or a window below 2 copies, and in place leaves the image alone.
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&rig.f, &src.img, &dst.img, 21, 0.0f), TAV_OK);
    EXPECT_EQ(get(dst.img), in);
    dst.randomize(rng);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&rig.f, &src.img, &dst.img, 1, 50.0f), TAV_OK);
    EXPECT_EQ(get(dst.img), in);
    // Filtering into another image copies the strip; in place leaves it as it was.
    dst.randomize(rng);
    ASSERT_EQ(tav_sr2_GuidedFilter_process(&rig.f, &src.img, &dst.img, 21, 900.0f), TAV_OK);
    const Plane out = get(dst.img);
    ASSERT_EQ(tav_sr2_GuidedFilter_process(&rig.f, nullptr, &src.img, 21, 900.0f), TAV_OK);
    const Plane in_place = get(src.img);
    EXPECT_EQ(in_place, out);
    int32_t changed = 0;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            if (x >= 60 || y >= 40) {
                ASSERT_EQ(out[y * w + x], in[y * w + x]) << x << "," << y;
            }
            changed += out[y * w + x] != in[y * w + x];
        }
    EXPECT_GT(changed, w * h / 2);
}

TEST(GuidedFilterTest, VectorRowsAndWorkersGiveTheScalarBytes) {
    tav_test::Heap heap{64u << 20};
    tav_test::Workers two(&heap.pool, 2);
    const int32_t sizes[][2] = {{4, 4}, {7, 9}, {13, 61}, {37, 5}, {203, 46}, {518, 33}};
    for (const bool ten_bit : {false, true})
        for (const auto& size : sizes)
            for (const int32_t window : {5, 21, 101}) {
                const int32_t w = size[0], h = size[1];
                const int32_t format = ten_bit ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8;
                const Plane in = scenePlane(w, h, ten_bit, 20.0, uint32_t(w * h));
                const Plane map((w / 4) * (h / 4), 40);
                Rig scalar(w, h, format), vector(w, h, format, two.ts);
                scalar.f.rows = &tav_sr2_guidedRowsScalar;
                SCOPED_TRACE(testing::Message() << w << "x" << h << " window " << window);
                EXPECT_EQ(filtered(&scalar, format, in, w, h, window, 30.0f),
                          filtered(&vector, format, in, w, h, window, 30.0f));
                EXPECT_EQ(filtered(&scalar, format, in, w, h, window, 30.0f, map),
                          filtered(&vector, format, in, w, h, window, 30.0f, map));
            }
}

TEST(GuidedFilterTest, Statuses) {
    tav_test::Heap heap;
    tav_sr2_GuidedFilter f;
    tav_sr2_GuidedFilter_init(&f, &heap.pool);
    tav_sr2_GuidedFilterConfig config;
    tav_sr2_GuidedFilter_defaults(&config);
    tav_test::TestImage y8(&heap.pool, 40, 24, TAV_SR2_FMT_UINT8);
    tav_test::TestImage y16(&heap.pool, 40, 24, TAV_SR2_FMT_UINT16);
    tav_test::TestImage small(&heap.pool, 36, 24, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &y8.img, 21, 9.0f), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_GuidedFilter_setup(&f, 40, 24, TAV_SR2_FMT_UINT88, &config),
              TAV_ERROR_UNSUPPORTED);
    config.level_shift = 3;
    EXPECT_EQ(tav_sr2_GuidedFilter_setup(&f, 40, 24, TAV_SR2_FMT_UINT8, &config), TAV_ERROR_PARAM);
    config.level_shift = 2;
    ASSERT_EQ(tav_sr2_GuidedFilter_setup(&f, 40, 24, TAV_SR2_FMT_YUV420_SEMIPLANAR, &config),
              TAV_OK);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(nullptr, nullptr, &y8.img, 21, 9.0f), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, nullptr, 21, 9.0f), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_GuidedFilter_processMap(&f, nullptr, &y8.img, nullptr, 21, 9.0f),
              TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, &y16.img, &y8.img, 21, 9.0f), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &y8.img, 102, 9.0f), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &small.img, 21, 9.0f), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &y8.img, 101, 9.0f), TAV_OK);
    EXPECT_EQ(tav_sr2_GuidedFilter_setup(&f, 3, 24, TAV_SR2_FMT_UINT8, &config), TAV_OK);
    tav_test::TestImage narrow(&heap.pool, 3, 24, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &narrow.img, 21, 9.0f), TAV_ERROR_PARAM);
    // The float class keeps a flat field flat.
    tav_test::TestImage flat(&heap.pool, 40, 24, TAV_SR2_FMT_FLOAT);
    for (int32_t y = 0; y < 24; ++y)
        for (int32_t x = 0; x < 40; ++x)
            tav_sr2_rowOf<float>(&flat.img, 0, y)[x] = 77.25f;
    ASSERT_EQ(tav_sr2_GuidedFilter_setup(&f, 40, 24, TAV_SR2_FMT_FLOAT, &config), TAV_OK);
    ASSERT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &flat.img, 21, 9.0f), TAV_OK);
    for (int32_t y = 0; y < 24; ++y)
        for (int32_t x = 0; x < 40; ++x)
            ASSERT_NEAR(tav_sr2_rowOf<float>(&flat.img, 0, y)[x], 77.25f, 1e-3f);
    EXPECT_EQ(tav_sr2_GuidedFilter_finish(&f), TAV_OK);
}

// The buffer budget's figure holds a filter and the scratch of either variant: a pool of exactly
// that much (and the end tag) sets up and filters a 10-bit frame of an odd size.
TEST(GuidedFilterTest, RequiredSizeHoldsSetupAndProcess) {
    const int32_t w = 333, h = 219;
    const uint32_t need = tav_sr2_GuidedFilter_requiredSize(w, h, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::Heap images;
    tav_test::TestImage frame(&images.pool, w, h, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::TestImage map(&images.pool, w, h, TAV_SR2_FMT_UINT8);
    std::mt19937 rng(2);
    frame.randomize(rng);
    map.randomize(rng);
    tav_test::Heap exact(need + 64);
    tav_sr2_GuidedFilter f;
    tav_sr2_GuidedFilter_init(&f, &exact.pool);
    ASSERT_EQ(tav_sr2_GuidedFilter_setup(&f, w, h, TAV_SR2_FMT_YUV10B420_SEMIPLANAR, nullptr),
              TAV_OK);
    EXPECT_EQ(tav_sr2_GuidedFilter_processMap(&f, nullptr, &frame.img, &map.img, 41, 9.0f), TAV_OK);
    EXPECT_EQ(tav_sr2_GuidedFilter_process(&f, nullptr, &frame.img, 41, 9.0f), TAV_OK);
    tav_sr2_GuidedFilter_finish(&f);
}

#if TAVRIN_FAULT_INJECTION
TEST(GuidedFilterTest, EveryFailingAllocationIsReportedAndReleased) {
    for (const bool with_map : {false, true}) {
        tav_test::Heap heap;
        tav_test::TestImage img(&heap.pool, 64, 48, TAV_SR2_FMT_UINT16);
        tav_test::TestImage map(&heap.pool, 16, 12, TAV_SR2_FMT_UINT8);
        std::mt19937 rng(1);
        img.randomize(rng);
        const std::vector<uint8_t> before = img.snapshot();
        const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
        for (uint32_t nth = 1;; ++nth) {
            tav_sr2_GuidedFilter f;
            tav_sr2_GuidedFilter_init(&f, &heap.pool);
            tav_sr2_MemPool_injectFailure(nth, false);
            uint32_t status = tav_sr2_GuidedFilter_setup(&f, 64, 48, TAV_SR2_FMT_UINT16, nullptr);
            if (status == TAV_OK) {
                status = with_map ? tav_sr2_GuidedFilter_processMap(&f, nullptr, &img.img, &map.img,
                                                                    21, 9.0f)
                                  : tav_sr2_GuidedFilter_process(&f, nullptr, &img.img, 21, 9.0f);
            }
            const uint32_t attempts = tav_sr2_MemPool_allocCount();
            tav_sr2_MemPool_injectFailure(0, false);
            tav_sr2_GuidedFilter_finish(&f);
            EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "failure " << nth;
            if (attempts < nth) {
                EXPECT_EQ(status, TAV_OK);
                break;
            }
            EXPECT_TRUE(tav_sr2_failed(status)) << "failure " << nth;
            EXPECT_EQ(img.snapshot(), before) << "failure " << nth;
        }
    }
}
#endif

}  // namespace

// The pattern upscaler and the resampler: the phase tables, the bank blend, the classification,
// the 2x filter's edge and size cases, the resampler's positions and depths, the vector rows
// against the scalar ones, every allocation failing, and the shipped banks against bicubic on a
// validation photograph.
#include "merge/upscaler.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "enhance/image_ops.h"
#include "merge/pattern_banks.h"
#include "tests/common/png_rgb.h"
#include "tests/enhance/image_test_util.h"
#include "tools/toolkit/upscale_pairs.h"

namespace {

using tav_test::Heap;
using tav_test::TestImage;

struct Upscaler {
    tav_sr2_Upscaler u;
    explicit Upscaler(tav_sr2_MemPool* pool, const tav_sr2_UpscaleRowOps* rows = nullptr) {
        tav_sr2_Upscaler_init(&u, pool);
        EXPECT_EQ(tav_sr2_Upscaler_reset(&u), TAV_OK);
        if (rows != nullptr) u.rows = rows;
    }
    ~Upscaler() { EXPECT_EQ(tav_sr2_Upscaler_finish(&u), TAV_OK); }
};

void fill(TestImage* t, std::mt19937& rng, int32_t smooth) {
    tav_sr2_Image& img = t->img;
    const int32_t bytes = img.format == TAV_SR2_FMT_UINT16 ? 2 : 1;
    for (int32_t y = 0; y < img.height; ++y) {
        uint8_t* row = img.plane[0] + (int64_t)y * img.pitch[0];
        for (int32_t x = 0; x < img.width * tav_test::channels(img.format); ++x) {
            // A ramp with noise: classes of every kind, and values that overshoot.
            const int32_t v = (x * 7 + y * 5) / (smooth + 1) + (int32_t)(rng() % 64);
            if (bytes == 2) {
                const uint16_t w = (uint16_t)((v * 4) & 1023);
                memcpy(row + 2 * x, &w, 2);
            } else {
                row[x] = (uint8_t)v;
            }
        }
    }
}

int32_t maxDifference(const tav_sr2_Image& a, const tav_sr2_Image& b) {
    int32_t most = 0;
    for (int32_t y = 0; y < a.height; ++y)
        for (int32_t x = 0; x < a.width * tav_test::channels(a.format); ++x)
            most = std::max(
                most, (int32_t)std::abs(tav_test::sample(a, x, y) - tav_test::sample(b, x, y)));
    return most;
}

TEST(Upscaler, PhaseTables) {
    const struct {
        tav_sr2_UpscaleKernel kernel;
        int32_t zero_phase_centre;  // tap of offset 0 at phase 0
    } cases[] = {{{0, 0.0, 1.0}, 16384},
                 {{0, 0.2, 0.4}, 16384 * 14 / 15},
                 {{2, 0, 0}, 16384},
                 {{3, 0, 0}, 16384}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kernel.mode);
        int16_t table[256 * 8];
        ASSERT_TRUE(tav_sr2_Upscaler_fillPhases(&c.kernel, table));
        EXPECT_NEAR(table[3], c.zero_phase_centre, 1);
        for (int32_t i = 0; i < 256; ++i) {
            int32_t sum = 0;
            for (int32_t k = 0; k < 8; ++k)
                sum += table[i * 8 + k];
            EXPECT_NEAR(sum, 16384, 4) << "phase " << i;
            if (c.kernel.mode == 0) {
                EXPECT_EQ(table[i * 8] | table[i * 8 + 1] | table[i * 8 + 6] | table[i * 8 + 7], 0);
            } else {
                EXPECT_EQ(table[i * 8 + 7], 0);
            }
            // Mirror symmetry: distance k - 3 - f at phase i is minus that of tap 7 - k at
            // phase 256 - i.
            if (i == 0) continue;
            for (int32_t k = 0; k < 8; ++k)
                EXPECT_NEAR(table[i * 8 + k], table[(256 - i) * 8 + 7 - k], 1) << i << " " << k;
        }
    }
    const tav_sr2_UpscaleKernel unknown = {1, 0, 0};
    int16_t table[256 * 8];
    EXPECT_FALSE(tav_sr2_Upscaler_fillPhases(&unknown, table));
    Heap heap;
    Upscaler up(&heap.pool);
    const std::vector<int16_t> before(up.u.kernel_table, up.u.kernel_table + 256 * 8);
    EXPECT_EQ(tav_sr2_Upscaler_setKernel(&up.u, &unknown), TAV_ERROR_PARAM);
    EXPECT_EQ(std::vector<int16_t>(up.u.kernel_table, up.u.kernel_table + 256 * 8), before);
    EXPECT_EQ(tav_sr2_Upscaler_setThreshold(&up.u, -1), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Upscaler_setThreshold(&up.u, 0), TAV_OK);
}

TEST(Upscaler, BlendBanksAgainstDirectSums) {
    Heap heap;
    const uint32_t before = tav_sr2_MemPool_inUse(&heap.pool);
    {
        Upscaler up(&heap.pool);
        for (double t : {0.0, 0.3, 0.5}) {
            ASSERT_EQ(tav_sr2_Upscaler_blendBanks(&up.u, t), TAV_OK);
            EXPECT_EQ(up.u.owned, 1);
            const int32_t n = (int32_t)(512 * t);
            for (int32_t c : {0, 1, 1215, 6560}) {
                for (int32_t e = 0; e < 100; ++e) {
                    const int32_t a = tav_sr2_pattern_bank_0[c * 100 + e];
                    const int32_t b = tav_sr2_pattern_bank_1[c * 100 + e];
                    const int32_t want = (int32_t)std::floor(((256 - n) * a + n * b) / 256.0);
                    ASSERT_EQ(up.u.patterns[c][e], want) << t << " " << c << " " << e;
                }
            }
        }
        EXPECT_EQ(tav_sr2_Upscaler_blendBanks(&up.u, 0.51), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_Upscaler_blendBanks(&up.u, -0.01), TAV_ERROR_PARAM);
    }
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), before);
}

TEST(Upscaler, ClassifyDigitsAndOrder) {
    // Centre 100 at t = 8: 120 brighter (1), 80 darker (2), 108 and 92 exactly at the threshold
    // count as similar; the first neighbour is the most significant digit.
    const uint8_t r0[] = {100, 100, 100, 120, 80, 80, 80};
    const uint8_t r1[] = {100, 100, 100, 100, 100, 100, 100};
    const uint8_t r2[] = {95, 95, 95, 108, 92, 92, 92};
    const uint8_t* rows[3] = {r0, r1, r2};
    const int32_t want = 0 * 2187 + 1 * 729 + 2 * 243;  // pixel 1: 100, 120, 80 above
    for (const tav_sr2_UpscaleRowOps* ops :
         {&tav_sr2_upscaleRowsScalar, &tav_sr2_upscaleRowsVector}) {
        uint16_t index[3];
        ops->classify(rows, 3, 8, index);
        EXPECT_EQ(index[1], want);
        ops->classify(rows, 3, 255, index);
        EXPECT_EQ(index[1], 0);
    }
}

TEST(Upscaler, VectorRowsMatchScalarOnAwkwardSizes) {
    std::mt19937 rng(5);
    for (int32_t n : {1, 2, 3, 5, 6, 7, 8, 9, 13, 31, 33, 67}) {
        SCOPED_TRACE(n);
        std::vector<uint8_t> padded[5];
        const uint8_t* rows[5];
        for (int32_t r = 0; r < 5; ++r) {
            padded[r].resize(n + 20);
            for (uint8_t& v : padded[r])
                v = (uint8_t)(rng() % 256);
            rows[r] = padded[r].data();
        }
        std::vector<uint16_t> si(n), vi(n);
        tav_sr2_upscaleRowsScalar.classify(rows + 1, n, 8, si.data());
        tav_sr2_upscaleRowsVector.classify(rows + 1, n, 8, vi.data());
        EXPECT_EQ(si, vi);
        const int16_t* patterns[TAV_SR2_PATTERN_COUNT];
        for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i)
            patterns[i] = tav_sr2_pattern_bank_0 + i * 100;
        std::vector<uint8_t> s0(2 * n), s1(2 * n), v0(2 * n), v1(2 * n);
        tav_sr2_upscaleRowsScalar.filter2x(rows, si.data(), patterns, n, s0.data(), s1.data());
        tav_sr2_upscaleRowsVector.filter2x(rows, si.data(), patterns, n, v0.data(), v1.data());
        for (int32_t x = 0; x < 2 * n; ++x) {
            EXPECT_LE(std::abs(s0[x] - v0[x]), 1) << x;
            EXPECT_LE(std::abs(s1[x] - v1[x]), 1) << x;
        }
        // The resampler's rows are exact twins.
        const int16_t taps[8] = {-300, 1200, -2500, 9000, 9500, -1600, 900, 184};
        std::vector<uint16_t> deep[8];
        const uint16_t* deep_rows[8];
        for (int32_t k = 0; k < 8; ++k) {
            deep[k].resize(n);
            for (uint16_t& v : deep[k])
                v = (uint16_t)(rng() % 1024);
            deep_rows[k] = deep[k].data();
        }
        const uint8_t* byte_rows[8] = {rows[0], rows[1], rows[2], rows[3],
                                       rows[4], rows[0], rows[1], rows[2]};
        std::vector<int16_t> sv(n + 32), vv(n + 32);
        tav_sr2_upscaleRowsScalar.vertical8(byte_rows, taps, n, 8, sv.data());
        tav_sr2_upscaleRowsVector.vertical8(byte_rows, taps, n, 8, vv.data());
        EXPECT_EQ(sv, vv);
        tav_sr2_upscaleRowsScalar.vertical16(deep_rows, taps, n, 10, sv.data());
        tav_sr2_upscaleRowsVector.vertical16(deep_rows, taps, n, 10, vv.data());
        EXPECT_EQ(sv, vv);
        std::vector<int32_t> base(n);
        std::vector<int16_t> col_taps(8 * n);
        for (int32_t i = 0; i < n; ++i) {
            base[i] = (int32_t)(rng() % (n + 16)) - 8;
            for (int32_t k = 0; k < 8; ++k)
                col_taps[8 * i + k] = taps[(k + i) % 8];
        }
        std::vector<int16_t> row(n + 64);
        for (int16_t& v : row)
            v = (int16_t)(rng() % 20000) - 2000;
        std::vector<uint8_t> sh(n), vh(n);
        tav_sr2_upscaleRowsScalar.horizontal8(row.data() + 8, base.data(), col_taps.data(), n, 20,
                                              sh.data());
        tav_sr2_upscaleRowsVector.horizontal8(row.data() + 8, base.data(), col_taps.data(), n, 20,
                                              vh.data());
        EXPECT_EQ(sh, vh);
        std::vector<uint16_t> sd(n), vd(n);
        tav_sr2_upscaleRowsScalar.horizontal16(row.data() + 8, base.data(), col_taps.data(), n, 18,
                                               1023, sd.data());
        tav_sr2_upscaleRowsVector.horizontal16(row.data() + 8, base.data(), col_taps.data(), n, 18,
                                               1023, vd.data());
        EXPECT_EQ(sd, vd);
    }
}

TEST(Upscaler, Upscale2xEdgeCases) {
    Heap heap(64u << 20);
    std::mt19937 rng(9);
    for (int32_t workers : {1, 3}) {
        tav_test::Workers w(&heap.pool, workers);
        Upscaler up(&heap.pool);
        up.u.resize = w.ctx;
        // Flat: every pixel in pattern 0, whose outputs sum to one; it stays flat.
        for (int32_t level : {0, 37, 255}) {
            TestImage src(&heap.pool, 21, 9, TAV_SR2_FMT_UINT8);
            TestImage dst(&heap.pool, 42, 18, TAV_SR2_FMT_UINT8);
            tav_sr2_Image_fillValue(&w.ctx, &src.img, level);
            ASSERT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &dst.img, &src.img), TAV_OK);
            for (int32_t y = 0; y < 18; ++y)
                for (int32_t x = 0; x < 42; ++x)
                    ASSERT_NEAR(tav_test::sample(dst.img, x, y), level, 1);
        }
        // A large threshold puts every pixel in pattern 0: the same as pattern 0 everywhere.
        TestImage src(&heap.pool, 37, 11, TAV_SR2_FMT_UINT8);
        fill(&src, rng, 0);
        TestImage big_t(&heap.pool, 74, 22, TAV_SR2_FMT_UINT8);
        TestImage only0(&heap.pool, 74, 22, TAV_SR2_FMT_UINT8);
        tav_sr2_Upscaler_setThreshold(&up.u, 1000);
        ASSERT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &big_t.img, &src.img), TAV_OK);
        tav_sr2_Upscaler_setThreshold(&up.u, 0);
        for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i)
            up.u.patterns[i] = tav_sr2_pattern_bank_0;
        ASSERT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &only0.img, &src.img), TAV_OK);
        EXPECT_EQ(big_t.snapshot(), only0.snapshot());
        tav_sr2_Upscaler_reset(&up.u);
        // Width 1: all five columns are the same pixel, so each output is that column's filter.
        TestImage column(&heap.pool, 1, 5, TAV_SR2_FMT_UINT8);
        fill(&column, rng, 0);
        TestImage wide(&heap.pool, 2, 10, TAV_SR2_FMT_UINT8);
        ASSERT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &wide.img, &column.img), TAV_OK);
        for (int32_t y = 0; y < 5; ++y) {
            uint8_t win[5][5];
            for (int32_t r = 0; r < 5; ++r)
                for (int32_t c = 0; c < 5; ++c)
                    win[r][c] = (uint8_t)tav_test::sample(column.img, 0,
                                                          tav_test::clampIndex(y - 2 + r, 5));
            // The window's rows are the padded rows of a one-pixel picture.
            const uint8_t* rows3[3] = {win[1], win[2], win[3]};
            uint16_t index;
            tav_sr2_upscaleRowsScalar.classify(rows3, 1, 0, &index);
            uint8_t out[4];
            tav_sr2_upscalePixel(up.u.patterns[index], win, out);
            EXPECT_EQ(tav_test::sample(wide.img, 0, 2 * y), out[0]);
            EXPECT_EQ(tav_test::sample(wide.img, 1, 2 * y), out[1]);
            EXPECT_EQ(tav_test::sample(wide.img, 0, 2 * y + 1), out[2]);
            EXPECT_EQ(tav_test::sample(wide.img, 1, 2 * y + 1), out[3]);
        }
        TestImage odd(&heap.pool, 3, 10, TAV_SR2_FMT_UINT8);
        EXPECT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &odd.img, &column.img), TAV_ERROR_PARAM);
        TestImage deep(&heap.pool, 2, 10, TAV_SR2_FMT_UINT16);
        EXPECT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &deep.img, &column.img), TAV_ERROR_UNSUPPORTED);
    }
}

TEST(Upscaler, ResamplePositionsDepthsAndChroma) {
    Heap heap(64u << 20);
    std::mt19937 rng(3);
    Upscaler up(&heap.pool);
    const tav_sr2_UpscaleKernel lanczos = {2, 0, 0};
    ASSERT_EQ(tav_sr2_Upscaler_setKernel(&up.u, &lanczos), TAV_OK);
    // Equal sizes sit on phase 0, whose only tap is 1: an exact copy, at both depths.
    for (int32_t code : {TAV_SR2_FMT_UINT8, TAV_SR2_FMT_UINT16}) {
        TestImage src(&heap.pool, 29, 13, code);
        TestImage dst(&heap.pool, 29, 13, code);
        fill(&src, rng, 0);
        ASSERT_EQ(tav_sr2_Upscaler_resample(&up.u, &dst.img, &src.img), TAV_OK);
        EXPECT_EQ(maxDifference(dst.img, src.img), 0);
    }
    // A gentle ramp enlarged by 3 stays the ramp sampled at the aligned centres.
    TestImage ramp(&heap.pool, 40, 4, TAV_SR2_FMT_UINT8);
    for (int32_t y = 0; y < 4; ++y)
        for (int32_t x = 0; x < 40; ++x)
            ramp.img.plane[0][y * ramp.img.pitch[0] + x] = (uint8_t)(50 + 3 * x);
    TestImage big(&heap.pool, 120, 12, TAV_SR2_FMT_UINT8);
    ASSERT_EQ(tav_sr2_Upscaler_resample(&up.u, &big.img, &ramp.img), TAV_OK);
    for (int32_t x = 6; x < 114; ++x)
        EXPECT_NEAR(tav_test::sample(big.img, x, 5), 50 + 3 * ((x + 0.5) / 3 - 0.5), 1) << x;
    // Chroma: each channel alone (U flat, V a ramp); 10-bit samples clamp at 1023.
    TestImage uv(&heap.pool, 16, 6, TAV_SR2_FMT_UINT88);
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 16; ++x) {
            uv.img.plane[0][y * uv.img.pitch[0] + 2 * x] = 77;
            uv.img.plane[0][y * uv.img.pitch[0] + 2 * x + 1] = (uint8_t)(10 * x);
        }
    TestImage uv2(&heap.pool, 32, 12, TAV_SR2_FMT_UINT88);
    ASSERT_EQ(tav_sr2_Upscaler_resampleChroma(&up.u, &uv2.img, &uv.img), TAV_OK);
    for (int32_t x = 0; x < 32; ++x) {
        EXPECT_EQ(tav_test::sample(uv2.img, x, 3, 0), 77);
        EXPECT_NEAR(tav_test::sample(uv2.img, x, 3, 1), tav_test::sample(uv.img, x / 2, 1, 1), 6);
    }
    TestImage peak(&heap.pool, 9, 9, TAV_SR2_FMT_UINT16);
    for (int32_t y = 0; y < 9; ++y)
        for (int32_t x = 0; x < 9; ++x) {
            const uint16_t v = (x == 4) ? 1023 : 0;
            memcpy(peak.img.plane[0] + y * peak.img.pitch[0] + 2 * x, &v, 2);
        }
    TestImage peak2(&heap.pool, 17, 17, TAV_SR2_FMT_UINT16);
    ASSERT_EQ(tav_sr2_Upscaler_resample(&up.u, &peak2.img, &peak.img), TAV_OK);
    for (int32_t x = 0; x < 17; ++x)
        EXPECT_LE(tav_test::sample(peak2.img, x, 8), 1023);
    TestImage bytes(&heap.pool, 17, 17, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_Upscaler_resample(&up.u, &bytes.img, &peak.img), TAV_ERROR_UNSUPPORTED);
}

TEST(Upscaler, ScaleLumaChoosesItsPath) {
    Heap heap(64u << 20);
    std::mt19937 rng(11);
    Upscaler up(&heap.pool);
    TestImage src(&heap.pool, 20, 15, TAV_SR2_FMT_UINT8);
    fill(&src, rng, 1);
    TestImage twice(&heap.pool, 40, 30, TAV_SR2_FMT_UINT8);
    ASSERT_EQ(tav_sr2_Upscaler_upscale2x(&up.u, &twice.img, &src.img), TAV_OK);
    const struct {
        int32_t w, h;
        int32_t path;  // 0 copy, 1 upscale2x, 2 upscale2x then resample, 3 resample
    } cases[] = {{20, 15, 0}, {40, 30, 1}, {32, 24, 2}, {33, 30, 2},
                 {31, 24, 3}, {32, 23, 3}, {10, 8, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.w);
        TestImage got(&heap.pool, c.w, c.h, TAV_SR2_FMT_UINT8);
        TestImage want(&heap.pool, c.w, c.h, TAV_SR2_FMT_UINT8);
        ASSERT_EQ(tav_sr2_Upscaler_scaleLuma(&up.u, &got.img, &src.img), TAV_OK);
        const tav_sr2_Image* from = c.path == 2 ? &twice.img : &src.img;
        if (c.path == 0) {
            tav_sr2_Image_copy(&want.img, &src.img);
        } else if (c.path == 1) {
            tav_sr2_Image_copy(&want.img, &twice.img);
        } else {
            ASSERT_EQ(tav_sr2_Upscaler_resample(&up.u, &want.img, from), TAV_OK);
        }
        EXPECT_EQ(got.snapshot(), want.snapshot());
    }
}

#if TAVRIN_FAULT_INJECTION
TEST(Upscaler, EveryAllocationMayFail) {
    Heap heap(64u << 20);
    std::mt19937 rng(2);
    TestImage src(&heap.pool, 21, 14, TAV_SR2_FMT_UINT8);
    fill(&src, rng, 0);
    TestImage dst(&heap.pool, 34, 23, TAV_SR2_FMT_UINT8);
    const uint32_t before = tav_sr2_MemPool_inUse(&heap.pool);
    for (uint32_t nth = 1;; ++nth) {
        tav_sr2_Upscaler u;
        tav_sr2_Upscaler_init(&u, &heap.pool);
        const uint32_t start = tav_sr2_MemPool_allocCount();
        tav_sr2_MemPool_injectFailure(nth, false);
        uint32_t status = tav_sr2_Upscaler_reset(&u);
        if (status == TAV_OK) status = tav_sr2_Upscaler_blendBanks(&u, 0.25);
        if (status == TAV_OK) status = tav_sr2_Upscaler_scaleLuma(&u, &dst.img, &src.img);
        if (status == TAV_OK) status = tav_sr2_Upscaler_resample(&u, &src.img, &dst.img);
        const bool reached = tav_sr2_MemPool_allocCount() - start >= nth;
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_Upscaler_finish(&u), TAV_OK);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), before) << nth;
        if (!reached) {
            EXPECT_EQ(status, TAV_OK);
            break;
        }
        EXPECT_EQ(status, TAV_ERROR_MALLOC) << nth;
        if (nth > 40) nth += 997;  // the blend's 6561 blocks fail alike: sample them
    }
}
#endif

// The shipped banks keep their edge over bicubic on a photograph nobody trained on.
TEST(Upscaler, ShippedBankBeatsBicubicOnAValidationPhotograph) {
    tavtool::Luma hr;
    std::string why;
    if (tav_png::sharedData().empty() ||
        !tavtool::loadLuma(tav_png::sharedData() + "/photos/kodak/kodim05.png", &hr, &why))
        GTEST_SKIP() << "no validation photograph: " << why;
    tavtool::UpscalerRig rig;
    ASSERT_TRUE(tavtool::rigOpen(&rig, 8));
    ASSERT_TRUE(tavtool::rigUseBlend(&rig, 0.0));
    const tavtool::Bytes truth = tavtool::toBytes(hr);
    const tavtool::Bytes lr = tavtool::sensorFrame(hr, 0, 0, 0.0, nullptr);
    const double bank = tavtool::psnrBytes(tavtool::rigUpscale2x(&rig, lr), truth, 8);
    const double cubic = tavtool::psnrBytes(tavtool::bicubic2x(lr), truth, 8);
    EXPECT_GT(bank - cubic, 0.8) << bank << " against " << cubic;
    tavtool::rigClose(&rig);
}

}  // namespace

// The resize operators against references written out here from their mappings: the Q15
// bilinear (with both row tables and 1, 2 and 3 workers), the 2x/4x shortcuts, the box
// reductions and the area-exact bilinear; and their statuses.
#include "enhance/resize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tests/enhance/image_test_util.h"

namespace {

using namespace tav_test;

int64_t mixQ15(int64_t a, int64_t b, int64_t f) {
    return (f * b + (32768 - f) * a + 16384) >> 15;
}

// Destination sample (x, y, c) of the bilinear resize of src to dw x dh, written out from the
// mapping: step (s << 15) / d, first ((s - d) << 15) / (2 d), horizontal then vertical mix.
double bilinearAt(const tav_sr2_Image& src, int32_t dw, int32_t dh, int32_t x, int32_t y,
                  int32_t c) {
    const int64_t sw = src.width, sh = src.height;
    const int64_t px = ((sw - dw) * 32768) / (2 * dw) + x * ((sw * 32768) / dw);
    const int64_t py = ((sh - dh) * 32768) / (2 * dh) + y * ((sh * 32768) / dh);
    const int32_t x0 = clampIndex((int32_t)(px >> 15), (int32_t)sw);
    const int32_t x1 = clampIndex((int32_t)(px >> 15) + 1, (int32_t)sw);
    const int32_t y0 = clampIndex((int32_t)(py >> 15), (int32_t)sh);
    const int32_t y1 = clampIndex((int32_t)(py >> 15) + 1, (int32_t)sh);
    const int64_t fx = px & 0x7fff, fy = py & 0x7fff;
    if (src.format == TAV_SR2_FMT_FLOAT) {
        auto h = [&](int32_t row) {
            return sample(src, x0, row, c) * (32768 - fx) / 32768.0 +
                   sample(src, x1, row, c) * fx / 32768.0;
        };
        return h(y0) * (32768 - fy) / 32768.0 + h(y1) * fy / 32768.0;
    }
    auto h = [&](int32_t row) {
        return mixQ15((int64_t)sample(src, x0, row, c), (int64_t)sample(src, x1, row, c), fx);
    };
    return (double)mixQ15(h(y0), h(y1), fy);
}

// Compares every sample of dst with expect(x, y, c); floats to 4 units in the last place of the
// largest test input (2^14), as float weights may cancel.
void expectImage(const tav_sr2_Image& dst, const std::function<double(int, int, int)>& expect,
                 const char* what) {
    for (int32_t y = 0; y < dst.height; ++y) {
        for (int32_t x = 0; x < dst.width; ++x) {
            for (int32_t c = 0; c < channels(dst.format); ++c) {
                const double want = expect(x, y, c), got = sample(dst, x, y, c);
                if (dst.format == TAV_SR2_FMT_FLOAT) {
                    ASSERT_NEAR(got, want, 4.0 / 1024) << what;
                } else {
                    ASSERT_EQ(got, want) << what << " at " << x << "," << y << "," << c;
                }
            }
        }
    }
}

struct SizePair {
    int32_t sw, sh, dw, dh;
};
// Odd sizes, one-pixel images, widths below a vector, heights below the band count, and both
// directions per axis.
const SizePair kSizes[] = {{1, 1, 3, 2},     {5, 4, 1, 1},   {4, 6, 1, 3},    {7, 3, 17, 9},
                           {17, 9, 7, 3},    {33, 2, 16, 5}, {2, 33, 5, 16},  {64, 48, 31, 23},
                           {31, 23, 64, 48}, {3, 3, 2, 2},   {100, 1, 37, 1}, {9, 7, 9, 3}};

TEST(ResizeTest, BilinearMatchesMappingForAllFormatsRowTablesAndWorkerCounts) {
    Heap heap;
    std::mt19937 rng(5);
    for (int32_t n : {1, 2, 3}) {
        Workers workers(&heap.pool, n);
        for (int32_t format : {1, 3, 4, 5, 6, 7}) {
            for (const SizePair& s : kSizes) {
                TestImage src(&heap.pool, s.sw, s.sh, format);
                src.randomize(rng);
                for (const tav_sr2_ResizeRowOps* rows :
                     {&tav_sr2_resizeRowsScalar, &tav_sr2_resizeRowsVector}) {
                    TestImage dst(&heap.pool, s.dw, s.dh, format);
                    ASSERT_EQ(tav_sr2_Image_resizeWithRows(&workers.ctx, &dst.img, &src.img, rows),
                              TAV_OK);
                    char what[96];
                    snprintf(what, sizeof(what), "format %d %dx%d -> %dx%d workers %d %s", format,
                             s.sw, s.sh, s.dw, s.dh, n,
                             rows == &tav_sr2_resizeRowsScalar ? "scalar" : "vector");
                    expectImage(
                        dst.img,
                        [&](int x, int y, int c) {
                            return bilinearAt(src.img, s.dw, s.dh, x, y, c);
                        },
                        what);
                }
            }
        }
    }
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
}

TEST(ResizeTest, Statuses) {
    Heap heap;
    Workers one(&heap.pool, 1);
    TestImage a(&heap.pool, 8, 8, TAV_SR2_FMT_UINT8), b(&heap.pool, 4, 4, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_Image_resize(nullptr, &b.img, &a.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, nullptr, &a.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, &b.img, nullptr), TAV_ERROR_PARAM);
    tav_sr2_Image empty = {};
    ASSERT_EQ(tav_sr2_Image_crop(&empty, &a.img, 0, 0, 0, 4), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, &empty, &a.img), 0x80000000u);
    EXPECT_EQ(tav_sr2_Image_resize_fast(&heap.pool, nullptr, nullptr, &b.img, &empty), 0x80000000u);
    TestImage rgb(&heap.pool, 8, 8, TAV_SR2_FMT_RGB888), rgb2(&heap.pool, 4, 4, TAV_SR2_FMT_RGB888);
    EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, &rgb2.img, &rgb.img), 0x80000010u);
    TestImage wide(&heap.pool, 4, 4, TAV_SR2_FMT_UINT16);
    EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, &wide.img, &a.img), 0x80000010u);
    EXPECT_EQ(tav_sr2_Image_warpResize(&one.ctx, &rgb2.img, &rgb.img), 0x80000010u);
}

#ifdef TAVRIN_FAULT_INJECTION
// Kept behaviour: without row buffers the resize reports success and writes nothing.
TEST(ResizeTest, MissingRowBuffersReturnZeroAndLeaveTheDestination) {
    Heap heap;
    std::mt19937 rng(17);
    for (int32_t n : {1, 3}) {
        Workers workers(&heap.pool, n);
        TestImage src(&heap.pool, 20, 10, TAV_SR2_FMT_UINT8), dst(&heap.pool, 7, 5, 1);
        src.randomize(rng);
        dst.randomize(rng);
        const std::vector<uint8_t> before = dst.snapshot();
        tav_sr2_MemPool_injectFailure(1, true);
        const uint32_t status = tav_sr2_Image_resize(&workers.ctx, &dst.img, &src.img);
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(status, 0u);
        EXPECT_EQ(dst.snapshot(), before);
    }
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    // The planes of a frame share their row buffers: whichever allocation fails, neither the
    // luma nor the chroma changes.
    Workers one(&heap.pool, 1);
    TestImage frame(&heap.pool, 20, 10, 48), small(&heap.pool, 7, 5, 48);
    frame.randomize(rng);
    small.randomize(rng);
    const std::vector<uint8_t> before = small.snapshot();
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    tav_sr2_MemPool_injectFailure(0, false);
    ASSERT_EQ(tav_sr2_Image_resize(&one.ctx, &small.img, &frame.img), TAV_OK);
    const uint32_t allocations = tav_sr2_MemPool_allocCount();
    for (uint32_t nth = 1; nth <= allocations; ++nth) {
        memcpy(small.img.plane[0], before.data(), before.size());
        tav_sr2_MemPool_injectFailure(nth, false);
        EXPECT_EQ(tav_sr2_Image_resize(&one.ctx, &small.img, &frame.img), 0u) << nth;
        EXPECT_EQ(small.snapshot(), before) << "allocation " << nth;
    }
    tav_sr2_MemPool_injectFailure(0, false);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use);
}
#endif

// The 2x and 4x weights derived from pixel centres: output x sits at (x + 0.5) / F - 0.5 in the
// source; the fraction in units of 1/(2F) is the later neighbour's weight.
double upsampleAt(const tav_sr2_Image& src, int32_t f, int32_t x, int32_t y, int32_t c) {
    const int32_t total = 2 * f, shift = f == 2 ? 2 : 3;
    auto split = [&](int32_t o, int32_t* i, int32_t* w) {
        const int32_t num = 2 * o + 1 - f;  // position * 2F
        *i = (int32_t)std::floor(num / (double)total);
        *w = num - *i * total;
    };
    int32_t ix, wx, iy, wy;
    split(x, &ix, &wx);
    split(y, &iy, &wy);
    auto h = [&](int32_t row) {
        row = clampIndex(row, src.height);
        const int32_t a = (int32_t)sample(src, clampIndex(ix, src.width), row, c);
        const int32_t b = (int32_t)sample(src, clampIndex(ix + 1, src.width), row, c);
        return ((total - wx) * a + wx * b + total / 2) >> shift;
    };
    return ((total - wy) * h(iy) + wy * h(iy + 1) + total / 2) >> shift;
}

TEST(ResizeTest, FastShortcutsUseTheirPhaseWeights) {
    Heap heap;
    std::mt19937 rng(21);
    for (int32_t n : {1, 3}) {
        Workers w(&heap.pool, n);
        for (int32_t f : {2, 4}) {
            for (int32_t format : {1, 6}) {
                for (const SizePair& s :
                     {SizePair{1, 1, 0, 0}, SizePair{5, 3, 0, 0}, SizePair{16, 7, 0, 0}}) {
                    TestImage src(&heap.pool, s.sw, s.sh, format);
                    src.randomize(rng);
                    TestImage dst(&heap.pool, f * s.sw, f * s.sh, format);
                    ASSERT_EQ(tav_sr2_Image_resize_fast(&heap.pool, w.ctx.threads, w.ctx.tasks,
                                                        &dst.img, &src.img),
                              TAV_OK);
                    expectImage(
                        dst.img,
                        [&](int x, int y, int c) { return upsampleAt(src.img, f, x, y, c); },
                        f == 2 ? "2x" : "4x");
                }
            }
        }
        // A frame splits into luma and chroma pairs, each with the shortcut; other factors take
        // the bilinear resize.
        TestImage frame(&heap.pool, 10, 6, 48), big(&heap.pool, 20, 12, 48);
        frame.randomize(rng);
        ASSERT_EQ(
            tav_sr2_Image_resize_fast(&heap.pool, w.ctx.threads, w.ctx.tasks, &big.img, &frame.img),
            TAV_OK);
        for (auto view : {tav_sr2_Image_viewPlane0, tav_sr2_Image_viewChroma}) {
            tav_sr2_Image d = {}, s = {};
            ASSERT_EQ(view(&d, &big.img, 0, 0, 20, 12), TAV_OK);
            ASSERT_EQ(view(&s, &frame.img, 0, 0, 10, 6), TAV_OK);
            expectImage(
                d, [&](int x, int y, int c) { return upsampleAt(s, 2, x, y, c); }, "48");
        }
        TestImage odd(&heap.pool, 7, 5, 1), third(&heap.pool, 21, 15, 1);
        odd.randomize(rng);
        ASSERT_EQ(
            tav_sr2_Image_resize_fast(&heap.pool, w.ctx.threads, w.ctx.tasks, &third.img, &odd.img),
            TAV_OK);
        expectImage(
            third.img, [&](int x, int y, int c) { return bilinearAt(odd.img, 21, 15, x, y, c); },
            "3x");
    }
}

double boxAt(const tav_sr2_Image& src, int32_t f, int32_t x, int32_t y, int32_t c) {
    int64_t sum = 0;
    for (int32_t j = 0; j < f; ++j) {
        for (int32_t i = 0; i < f; ++i)
            sum += (int64_t)sample(src, f * x + i, f * y + j, c);
    }
    return (double)((sum + f * f / 2) / (f * f));
}

TEST(ResizeTest, CellReducesByBoxMeans) {
    Heap heap;
    std::mt19937 rng(25);
    Workers w(&heap.pool, 2);
    for (int32_t format : {1, 3, 6, 7}) {
        for (int32_t f : {2, 4}) {
            TestImage src(&heap.pool, 7 * f, 3 * f, format), dst(&heap.pool, 7, 3, format);
            src.randomize(rng);
            ASSERT_EQ(tav_sr2_Image_resize_cell(&heap.pool, w.ctx.threads, w.ctx.tasks, &dst.img,
                                                &src.img),
                      TAV_OK);
            expectImage(
                dst.img, [&](int x, int y, int c) { return boxAt(src.img, f, x, y, c); }, "box");
        }
    }
    // At 5x and more: a 4x box into ((w / 4) & ~1) x ((h / 4) & ~1) first, then the rest; the
    // intermediate image goes back to the pool.
    TestImage src(&heap.pool, 61, 47, 1), dst(&heap.pool, 9, 7, 1);
    src.randomize(rng);
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    ASSERT_EQ(tav_sr2_Image_resize_cell(&heap.pool, w.ctx.threads, w.ctx.tasks, &dst.img, &src.img),
              TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use);
    TestImage small(&heap.pool, 14, 10, 1);
    for (int32_t y = 0; y < 10; ++y) {
        for (int32_t x = 0; x < 14; ++x) {
            small.img.plane[0][y * small.img.pitch[0] + x] = (uint8_t)boxAt(src.img, 4, x, y, 0);
        }
    }
    expectImage(
        dst.img, [&](int x, int y, int c) { return bilinearAt(small.img, 9, 7, x, y, c); },
        "pre-reduced");
    // Below 5x: the bilinear resize directly.
    TestImage near(&heap.pool, 11, 8, 1);
    ASSERT_EQ(tav_sr2_Image_resize_cell(&heap.pool, nullptr, nullptr, &near.img, &dst.img), TAV_OK);
    expectImage(
        near.img, [&](int x, int y, int c) { return bilinearAt(dst.img, 11, 8, x, y, c); },
        "bilinear");
}

TEST(ResizeTest, WarpResizeUsesExactCentres) {
    Heap heap;
    std::mt19937 rng(29);
    for (int32_t n : {1, 3}) {
        Workers w(&heap.pool, n);
        for (int32_t format : {1, 3, 6, 7}) {
            for (const SizePair& s : kSizes) {
                TestImage src(&heap.pool, s.sw, s.sh, format), dst(&heap.pool, s.dw, s.dh, format);
                src.randomize(rng);
                ASSERT_EQ(tav_sr2_Image_warpResize(&w.ctx, &dst.img, &src.img), TAV_OK);
                expectImage(
                    dst.img,
                    [&](int x, int y, int c) {
                        auto position = [](int32_t o, int32_t from, int32_t to) {
                            return (int64_t)std::floor(((2.0 * o + 1) * from - to) * 32768 /
                                                       (2.0 * to));
                        };
                        const int64_t px = position(x, s.sw, s.dw), py = position(y, s.sh, s.dh);
                        auto h = [&](int32_t row) {
                            row = clampIndex(row, s.sh);
                            const int64_t a =
                                (int64_t)sample(src.img, clampIndex(px >> 15, s.sw), row, c);
                            const int64_t b =
                                (int64_t)sample(src.img, clampIndex((px >> 15) + 1, s.sw), row, c);
                            return mixQ15(a, b, px & 0x7fff);
                        };
                        return (double)mixQ15(h(py >> 15), h((py >> 15) + 1), py & 0x7fff);
                    },
                    "warp");
            }
        }
    }
}

}  // namespace

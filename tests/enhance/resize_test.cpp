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

}  // namespace

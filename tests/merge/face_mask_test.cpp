// The face mask on a face-coloured ellipse, overlapping faces, the mask filters against a plain
// window reference, the merge coefficient against a straightforward computation, and the
// allocation failures of the mask builder.
#include "merge/face_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "merge/merge_coeff.h"
#include "merge/morph_filter.h"
#include "tests/enhance/image_test_util.h"

namespace {

using tav_test::Heap;
using tav_test::TestImage;
using tav_test::Workers;

constexpr int32_t kW = 200, kH = 150;

uint8_t& at(tav_sr2_Image* im, int32_t x, int32_t y) {
    return im->plane[0][size_t(y) * im->pitch[0] + x];
}

// Grey-green background with an ellipse of skin colour (Y 150, U 110, V 160) at (cx, cy).
void paintScene(tav_sr2_Image* frame, int32_t cx, int32_t cy, int32_t rx, int32_t ry) {
    for (int32_t y = 0; y < frame->height; ++y) {
        for (int32_t x = 0; x < frame->width; ++x) {
            const double u = double(x - cx) / rx, v = double(y - cy) / ry;
            const bool skin = u * u + v * v <= 1.0;
            at(frame, x, y) = skin ? 150 : 90;
            uint8_t* pair = frame->plane[1] + size_t(y / 2) * frame->pitch[1] + (x & ~1);
            pair[0] = skin ? 110 : 100;  // U
            pair[1] = skin ? 160 : 90;   // V
        }
    }
}

TEST(FaceMask, PaintsTheSkinInsideTheRectangleOnly) {
    Heap heap;
    for (int32_t workers : {1, 3}) {
        Workers w(&heap.pool, workers);
        TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        TestImage mask(&heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
        paintScene(&frame.img, 100, 70, 30, 40);
        const tav_sr2_Rect face = {60, 20, 140, 120};
        ASSERT_EQ(tav_sr2_FaceMask_build(&w.ctx, &mask.img, &frame.img, &face, 1), TAV_OK);
        EXPECT_GT(at(&mask.img, 100, 70), 200) << workers;
        // Background inside the rectangle, and everything a few pixels beyond the painted
        // square (the centre +/- 60 here) stay 0.
        EXPECT_EQ(at(&mask.img, 65, 25), 0);
        for (int32_t y = 0; y < kH; ++y) {
            for (int32_t x = 0; x < kW; ++x) {
                if (x < 36 || x > 164 || y < 6 || y > 134) {
                    ASSERT_EQ(at(&mask.img, x, y), 0) << x << "," << y;
                }
            }
        }
    }
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
}

TEST(FaceMask, OverlappingFacesAddUpAndSaturate) {
    Heap heap;
    Workers w(&heap.pool, 1);
    TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YVU420_SEMIPLANAR);
    paintScene(&frame.img, 100, 75, 90, 70);  // skin everywhere the faces reach
    // Swap the pairs into V, U order: the same colours must give the same mask.
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW; x += 2)
            std::swap(frame.img.plane[1][size_t(y) * frame.img.pitch[1] + x],
                      frame.img.plane[1][size_t(y) * frame.img.pitch[1] + x + 1]);
    const tav_sr2_Rect faces[] = {{40, 40, 100, 100}, {100, 40, 160, 100}};
    TestImage left(&heap.pool, kW, kH, TAV_SR2_FMT_UINT8), right(&heap.pool, kW, kH, 1),
        both(&heap.pool, kW, kH, 1);
    ASSERT_EQ(tav_sr2_FaceMask_build(&w.ctx, &left.img, &frame.img, &faces[0], 1), TAV_OK);
    ASSERT_EQ(tav_sr2_FaceMask_build(&w.ctx, &right.img, &frame.img, &faces[1], 1), TAV_OK);
    ASSERT_EQ(tav_sr2_FaceMask_build(&w.ctx, &both.img, &frame.img, faces, 2), TAV_OK);
    const uint8_t a = at(&left.img, 100, 70), b = at(&right.img, 100, 70);
    ASSERT_LT(a, 250);
    ASSERT_GT(a + b, 270);
    EXPECT_EQ(at(&both.img, 100, 70), 255);
    EXPECT_EQ(at(&both.img, 70, 70), 255);
    // Wrong picture format, or a mask of another size.
    EXPECT_EQ(tav_sr2_FaceMask_build(&w.ctx, &both.img, &left.img, faces, 1),
              TAV_ERROR_UNSUPPORTED);
    TestImage small(&heap.pool, kW / 2, kH, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_FaceMask_build(&w.ctx, &small.img, &frame.img, faces, 1), TAV_ERROR_PARAM);
}

#ifdef TAVRIN_FAULT_INJECTION
TEST(FaceMask, EveryAllocationMayFail) {
    Heap heap;
    Workers w(&heap.pool, 2);
    TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    TestImage mask(&heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    paintScene(&frame.img, 100, 70, 30, 40);
    const tav_sr2_Rect face = {60, 20, 140, 120};
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    tav_sr2_MemPool_injectFailure(0, false);
    ASSERT_EQ(tav_sr2_FaceMask_build(&w.ctx, &mask.img, &frame.img, &face, 1), TAV_OK);
    const uint32_t allocations = tav_sr2_MemPool_allocCount();
    ASSERT_GE(allocations, 1u);
    uint32_t failures = 0;
    for (uint32_t nth = 1; nth <= allocations; ++nth) {
        tav_sr2_MemPool_injectFailure(nth, false);
        const uint32_t status = tav_sr2_FaceMask_build(&w.ctx, &mask.img, &frame.img, &face, 1);
        tav_sr2_MemPool_injectFailure(0, false);
        // The final blur reports success without its row buffers and leaves the mask as it is.
        EXPECT_TRUE(status == TAV_OK || (status & TAV_ERROR_MALLOC) == TAV_ERROR_MALLOC) << nth;
        failures += status != TAV_OK;
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << nth;
    }
    EXPECT_GE(failures, 1u);  // the histogram at least
}
#endif

TEST(MorphFilter, WindowsAreCutAtTheEdges) {
    Heap heap;
    std::mt19937 rng(3);
    for (int32_t size : {1, 2, 7}) {
        for (int32_t kind : {TAV_SR2_MORPH_MIN, TAV_SR2_MORPH_MAX, TAV_SR2_MORPH_MEAN}) {
            Workers w(&heap.pool, 2);
            TestImage im(&heap.pool, size + 3, size, TAV_SR2_FMT_UINT8);
            im.randomize(rng);
            const TestImage copy(&heap.pool, size + 3, size, TAV_SR2_FMT_UINT8);
            ASSERT_EQ(tav_sr2_Image_copy(const_cast<tav_sr2_Image*>(&copy.img), &im.img), TAV_OK);
            ASSERT_EQ(tav_sr2_Morph_filter(&w.ctx, &im.img, kind), TAV_OK);
            tav_sr2_Image* src = const_cast<tav_sr2_Image*>(&copy.img);
            for (int32_t y = 0; y < size; ++y) {
                for (int32_t x = 0; x < size + 3; ++x) {
                    int32_t lo = 255, hi = 0, sum = 0, n = 0;
                    for (int32_t yy = std::max(y - 1, 0); yy <= std::min(y + 1, size - 1); ++yy)
                        for (int32_t xx = std::max(x - 1, 0); xx <= std::min(x + 1, size + 2);
                             ++xx) {
                            const int32_t v = at(src, xx, yy);
                            lo = std::min(lo, v);
                            hi = std::max(hi, v);
                            sum += v;
                            ++n;
                        }
                    const int32_t want = kind == TAV_SR2_MORPH_MIN   ? lo
                                         : kind == TAV_SR2_MORPH_MAX ? hi
                                                                     : (sum + n / 2) / n;
                    ASSERT_EQ(at(&im.img, x, y), want) << kind << " " << x << "," << y;
                }
            }
        }
    }
}

TEST(MergeCoeff, MixesTheFaceTableAndKeepsTheRunningSum) {
    Heap heap;
    Workers w(&heap.pool, 3);
    uint8_t table[256], face_table[256];
    for (int32_t j = 0; j < 256; ++j) {
        table[j] = uint8_t(j < 128 ? 128 - j / 2 : j % 129);
        face_table[j] = uint8_t((j * 37) % 129);
    }
    TestImage ghost(&heap.pool, 256, 5, TAV_SR2_FMT_UINT8), mask(&heap.pool, 256, 5, 1);
    TestImage coef(&heap.pool, 256, 5, 1), sum(&heap.pool, 256, 5, TAV_SR2_FMT_UINT16);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 256; ++x) {
            at(&ghost.img, x, y) = uint8_t(x);
            at(&mask.img, x, y) = uint8_t(y == 2 ? 0 : 1);  // row 2 lies outside the face
        }
    const auto sumAt = [&](int32_t x, int32_t y) {
        return reinterpret_cast<uint16_t*>(sum.img.plane[0] + size_t(y) * sum.img.pitch[0])[x];
    };
    const auto setSums = [&](uint16_t s) {
        for (int32_t y = 0; y < 5; ++y)
            for (int32_t x = 0; x < 256; ++x)
                reinterpret_cast<uint16_t*>(sum.img.plane[0] + size_t(y) * sum.img.pitch[0])[x] =
                    uint16_t(y == 4 ? 0 : s);
    };
    for (int32_t m = 0; m < 256; ++m) {
        setSums(uint16_t(128 + m));
        const tav_sr2_MergeWeights weights = {table, face_table, &mask.img, m};
        ASSERT_EQ(tav_sr2_MergeCoeff_make(&w.ctx, &coef.img, &sum.img, &ghost.img, &weights),
                  TAV_OK);
        for (int32_t y = 0; y < 5; ++y) {
            for (int32_t g = 0; g < 256; ++g) {
                const int32_t face = y == 2 ? 0 : m;
                const int32_t mix = (255 - face) * table[g] + face * face_table[g];
                const int32_t wgt = (2 * mix + 255) / 510;  // mix / 255, rounded
                const int32_t s = y == 4 ? 0 : 128 + m;
                ASSERT_EQ(sumAt(g, y), s + wgt) << m << " " << g;
                ASSERT_EQ(at(&coef.img, g, y), s + wgt == 0 ? 0 : (s * 128) / (s + wgt));
            }
        }
    }
    // Without faces, and with face weight 0, the plain table alone.
    TestImage coef0(&heap.pool, 256, 5, 1);
    setSums(300);
    const tav_sr2_MergeWeights none = {table, face_table, nullptr, 0};
    ASSERT_EQ(tav_sr2_MergeCoeff_make(&w.ctx, &coef0.img, &sum.img, &ghost.img, &none), TAV_OK);
    setSums(300);
    const tav_sr2_MergeWeights zero = {table, face_table, &mask.img, 0};
    ASSERT_EQ(tav_sr2_MergeCoeff_make(&w.ctx, &coef.img, &sum.img, &ghost.img, &zero), TAV_OK);
    EXPECT_EQ(coef.snapshot(), coef0.snapshot());
    EXPECT_EQ(at(&coef0.img, 0, 0), 300 * 128 / 428);
    EXPECT_EQ(tav_sr2_MergeCoeff_make(&w.ctx, &sum.img, &sum.img, &ghost.img, &none),
              TAV_ERROR_PARAM);
}

}  // namespace

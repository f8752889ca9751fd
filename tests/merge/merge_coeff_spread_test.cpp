// The quarter-size coefficient brought to the picture: resized into its rectangle, the edges
// repeated outwards in the stated order, and rectangles that leave the picture.
#include <gtest/gtest.h>

#include "enhance/resize.h"
#include "merge/merge_coeff.h"
#include "tests/enhance/image_test_util.h"

namespace {

using tav_test::Heap;
using tav_test::TestImage;

int32_t at(const tav_sr2_Image& img, int32_t x, int32_t y) {
    return img.plane[0][(size_t)y * img.pitch[0] + x];
}

TEST(MergeCoeffSpread, FillsTheRectangleAndRepeatsItsEdges) {
    Heap heap;
    const tav_sr2_ImageCtx ctx = {&heap.pool, nullptr, nullptr};
    TestImage quarter(&heap.pool, 3, 2, TAV_SR2_FMT_UINT8);
    const uint8_t values[6] = {10, 20, 30, 40, 50, 60};
    for (int32_t i = 0; i < 6; ++i)
        quarter.img.plane[0][(i / 3) * quarter.img.pitch[0] + i % 3] = values[i];
    const struct {
        tav_sr2_Rect rect;
        tav_sr2_Rect used;  // the rectangle as limited to the picture
    } cases[] = {
        {{3, 2, 9, 6}, {3, 2, 9, 6}},
        {{-4, 1, 30, 7}, {0, 1, 17, 7}},
        {{5, 5, 5, 9}, {0, 0, 17, 9}},  // empty: the whole picture
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rect.left);
        TestImage out(&heap.pool, 17, 9, TAV_SR2_FMT_UINT8);
        ASSERT_EQ(tav_sr2_MergeCoeff_spread(&ctx, &out.img, &quarter.img, &c.rect), TAV_OK);
        const tav_sr2_Rect& r = c.used;
        TestImage inside(&heap.pool, r.right - r.left, r.bottom - r.top, TAV_SR2_FMT_UINT8);
        ASSERT_EQ(tav_sr2_Image_resize(&ctx, &inside.img, &quarter.img), TAV_OK);
        for (int32_t y = 0; y < 9; ++y) {
            const int32_t sy = y < r.top ? r.top : (y >= r.bottom ? r.bottom - 1 : y);
            for (int32_t x = 0; x < 17; ++x) {
                const int32_t sx = x < r.left ? r.left : (x >= r.right ? r.right - 1 : x);
                ASSERT_EQ(at(out.img, x, y), at(inside.img, sx - r.left, sy - r.top))
                    << x << "," << y;
            }
        }
    }
    TestImage wide(&heap.pool, 17, 9, TAV_SR2_FMT_UINT16);
    const tav_sr2_Rect all = {0, 0, 17, 9};
    EXPECT_EQ(tav_sr2_MergeCoeff_spread(&ctx, &wide.img, &quarter.img, &all), TAV_ERROR_PARAM);
}

}  // namespace

// Template making: the gradient values and sums, the refusal rules, the pixel mean, and the
// building of a set from a corner list.
#include "alignment/templates.h"

#include <gtest/gtest.h>

#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fill;
using tav_align_test::pixelOf;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;

void fillTexture(tav_sr2_Image* img, uint32_t seed) {
    const tav_align_test::Texture texture(seed);
    tav_align_test::fillShifted(img, texture, 0.0, 0.0);
}

TEST(Templates, BuildSkipsBordersAndRefusalsWithoutGaps) {
    Heap heap(1 << 20);
    TestImage img(&heap.pool, 60, 50, TAV_SR2_FMT_UINT8);
    fillTexture(&img.img, 8);
    // Flat band at the left: a corner there is refused by the gradient rules.
    for (int32_t y = 0; y < 50; ++y)
        memset(tav_align_test::rowOf(&img.img, y), 100, 15);
    tav_sr2_CornerList list;
    ASSERT_EQ(tav_sr2_CornerList_init(&list, &heap.pool, 8), TAV_OK);
    // {x, y, strength, kept}
    const int32_t corners[][4] = {{30, 45, 90, 1},  // y = height - 5: last row accepted
                                  {30, 46, 90, 0},  // one row too low
                                  {7, 20, 90, 0},   // flat: gradient refused
                                  {7, 21, 50, 1},   // flat but weak: a pixel template is made
                                  {3, 20, 90, 0},   // left margin
                                  {55, 10, 51, 1}};
    for (const auto& c : corners) {
        tav_sr2_Corner& k = list.corners[list.count++];
        memset(&k, 0, sizeof k);
        k.x = c[0];
        k.y = c[1];
        k.strength = c[2];
    }
    tav_sr2_TemplateSet set;
    tav_sr2_TemplateSet_init(&set, &heap.pool);
    ASSERT_EQ(tav_sr2_TemplateSet_build(&set, &list, &img.img, 4), TAV_OK);
    int32_t at = 0;
    for (const auto& c : corners) {
        if (!c[3]) continue;
        ASSERT_LT(at, set.count);
        EXPECT_EQ(set.ref_x[at], c[0]);
        EXPECT_EQ(set.ref_y[at], c[1]);
        EXPECT_EQ(set.score[at], c[2]);
        EXPECT_EQ(set.match_x[at], TAV_TRACK_LOST);
        EXPECT_EQ(set.cells[at].kind,
                  c[2] > 50 ? TAV_SR2_TEMPLATE_GRADIENT : TAV_SR2_TEMPLATE_PIXEL);
        ++at;
    }
    EXPECT_EQ(set.count, at);
    EXPECT_EQ(tav_sr2_TemplateSet_build(&set, &list, &img.img, 9), TAV_ERROR_PARAM);
#ifdef TAVRIN_FAULT_INJECTION
    // Out of memory: the arrays are released and the set is empty.
    const uint32_t before = tav_sr2_MemPool_inUse(&heap.pool);
    tav_sr2_MemPool_injectFailure(1, false);
    EXPECT_EQ(tav_sr2_TemplateSet_build(&set, &list, &img.img, 4), TAV_ERROR_MALLOC);
    tav_sr2_MemPool_injectFailure(0, false);
    EXPECT_EQ(set.count, 0);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), before);
#endif
    tav_sr2_TemplateSet_finish(&set);
    tav_sr2_CornerList_finish(&list);
}

}  // namespace

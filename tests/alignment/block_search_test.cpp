// Block search: the spiral, the best offset against a brute-force search, the confidence, and
// the estimator step on flat, shifted and failing frames.
#include "alignment/block_search.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "alignment/motion_estimator.h"
#include "alignment/spiral.h"
#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fill;
using tav_align_test::fillRandom;
using tav_align_test::fillShifted;
using tav_align_test::pixelOf;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;

// Mean absolute difference of a over b shifted by (dx, dy), as sum and area.
std::pair<int64_t, int64_t> overlapCost(const tav_sr2_Image* a, const tav_sr2_Image* b, int32_t dx,
                                        int32_t dy) {
    int64_t s = 0, n = 0;
    for (int32_t y = 0; y < a->height; ++y) {
        for (int32_t x = 0; x < a->width; ++x) {
            if (x + dx < 0 || y + dy < 0 || x + dx >= b->width || y + dy >= b->height) continue;
            s += std::abs(pixelOf(a, x, y) - pixelOf(b, x + dx, y + dy));
            ++n;
        }
    }
    return {s, n};
}

TEST(BlockSearch, FindsTheLowestMeanDifference) {
    Heap heap(1 << 20);
    TestImage a(&heap.pool, 29, 21, TAV_SR2_FMT_UINT8);
    TestImage b(&heap.pool, 29, 21, TAV_SR2_FMT_UINT8);
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        fillRandom(&a.img, seed);
        fillRandom(&b.img, seed + 100);
        tav_sr2_BlockMatch match;
        tav_sr2_BlockSearch_run(&a.img, &b.img, 1, -1, 4, &match);
        // No offset in the square has a strictly lower mean than the one found.
        const auto found = overlapCost(&a.img, &b.img, match.dx, match.dy);
        EXPECT_EQ(found.first, match.sum);
        EXPECT_EQ(found.second, match.area);
        for (int32_t dy = -5; dy <= 3; ++dy) {
            for (int32_t dx = -3; dx <= 5; ++dx) {
                const auto c = overlapCost(&a.img, &b.img, dx, dy);
                EXPECT_GE(c.first * found.second, found.first * c.second) << dx << ", " << dy;
            }
        }
        EXPECT_EQ(match.confidence, (int32_t)(((match.sum & 0x1ffff) << 15) / match.area));
    }
}

struct Estimator {
    tav_sr2_MotionEstimator est;
    explicit Estimator(tav_sr2_MemPool* pool) { tav_sr2_MotionEstimator_init(&est, pool); }
};

TEST(BlockSearch, MovesTheTransformByTheOffsetFound) {
    Heap heap(1 << 20);
    Estimator e(&heap.pool);
    TestImage a(&heap.pool, 60, 45, TAV_SR2_FMT_UINT8);
    TestImage b(&heap.pool, 60, 45, TAV_SR2_FMT_UINT8);
    const tav_align_test::Texture texture(17);
    fillShifted(&a.img, texture, 0.0, 0.0);
    fillShifted(&b.img, texture, 3.0, -2.0);
    tav_sr2_Trans2D t;
    tav_sr2_Trans2D_identity(&t);
    t.m[2] = 2.0;  // the search starts from (2, 0) and adds only what it finds beyond that
    ASSERT_EQ(tav_sr2_Align_blockSearch(&e.est, &t, &a.img, &b.img), TAV_OK);
    EXPECT_EQ(t.m[2], 3.0);
    EXPECT_EQ(t.m[5], -2.0);
    EXPECT_EQ(e.est.status, 0u);

    // A centre projected outside the image: nothing happens.
    tav_sr2_Trans2D far;
    tav_sr2_Trans2D_identity(&far);
    far.m[2] = 40.0;
    ASSERT_EQ(tav_sr2_Align_blockSearch(&e.est, &far, &a.img, &b.img), TAV_OK);
    EXPECT_EQ(far.m[2], 40.0);
    EXPECT_EQ(far.m[5], 0.0);

    // A fail level every confidence reaches: flag 8, transform untouched.
    e.est.block_fail_level = 0;
    tav_sr2_Trans2D_identity(&t);
    ASSERT_EQ(tav_sr2_Align_blockSearch(&e.est, &t, &a.img, &b.img), TAV_OK);
    EXPECT_EQ(e.est.status, 8u);
    EXPECT_EQ(t.m[2], 0.0);
}

}  // namespace

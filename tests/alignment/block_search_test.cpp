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

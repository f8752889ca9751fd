// The estimator object: defaults, the configuration rules, the state machine, out-of-memory
// walks over configure and setReference, and whole estimates of known shifts.
#include "alignment/motion_estimator.h"

#include <gtest/gtest.h>

#include "alignment/motion_model.h"
#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fill;
using tav_align_test::fillShifted;
using tav_align_test::pixelOf;
using tav_align_test::pixels;
using tav_align_test::Texture;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

// The configuration the alignment driver forces.
void forceEngineConfig(tav_sr2_MotionEstimator* e, int32_t w, int32_t h, tav_sr2_ThreadPool* tp) {
    e->fit_method = 3;
    e->max_pixels = w * h;
    e->feature_count = 256;
    e->motion_model = 3;
    e->normalize_level0 = 0;
    e->inlier_ratio = 0.5;
    e->thread_pool = tp;
}

#ifdef TAVRIN_FAULT_INJECTION
TEST(MotionEstimator, OutOfMemoryAnywhereLeavesNothingBehind) {
    Heap heap(8 << 20);
    const Texture texture(2);
    TestImage img(&heap.pool, 160, 120, TAV_SR2_FMT_UINT8);
    fillShifted(&img.img, texture, 0.0, 0.0);
    const uint32_t base = tav_sr2_MemPool_inUse(&heap.pool);
    tav_sr2_MotionEstimator e;
    for (int32_t stage = 0; stage < 2; ++stage) {
        // Count the allocations of the stage, then fail each one in turn.
        tav_sr2_MotionEstimator_init(&e, &heap.pool);
        forceEngineConfig(&e, 160, 120, nullptr);
        if (stage == 1) {
            ASSERT_EQ(tav_sr2_MotionEstimator_configure(&e, 160, 120), TAV_OK);
        }
        tav_sr2_MemPool_injectFailure(0, false);
        const uint32_t status = stage == 0 ? tav_sr2_MotionEstimator_configure(&e, 160, 120)
                                           : tav_sr2_MotionEstimator_setReference(&e, &img.img);
        ASSERT_EQ(status, TAV_OK);
        const uint32_t count = tav_sr2_MemPool_allocCount();
        ASSERT_GT(count, 2u);
        tav_sr2_MotionEstimator_finish(&e);
        for (uint32_t nth = 1; nth <= count; ++nth) {
            tav_sr2_MotionEstimator_init(&e, &heap.pool);
            forceEngineConfig(&e, 160, 120, nullptr);
            if (stage == 1) {
                ASSERT_EQ(tav_sr2_MotionEstimator_configure(&e, 160, 120), TAV_OK);
            }
            tav_sr2_MemPool_injectFailure(nth, false);
            const uint32_t r = stage == 0 ? tav_sr2_MotionEstimator_configure(&e, 160, 120)
                                          : tav_sr2_MotionEstimator_setReference(&e, &img.img);
            tav_sr2_MemPool_injectFailure(0, false);
            EXPECT_EQ(r & TAV_ERROR_MALLOC, TAV_ERROR_MALLOC)
                << "stage " << stage << " nth " << nth;
            EXPECT_NE(e.state, 2);
            EXPECT_EQ(tav_sr2_MotionEstimator_finish(&e), TAV_OK);
            EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), base)
                << "stage " << stage << " nth " << nth;
        }
    }
}
#endif

TEST(MotionEstimator, ImagesWithoutCornersFlagTheFrame) {
    Heap heap(8 << 20);
    // A work image 23 pixels high: no level has corners. A flat one: no responses anywhere.
    const int32_t sizes[][2] = {{400, 23}, {160, 120}};
    for (const auto& size : sizes) {
        TestImage img(&heap.pool, size[0], size[1], TAV_SR2_FMT_UINT8);
        if (size[1] == 23) {
            fillShifted(&img.img, Texture(3), 0.0, 0.0);
        } else {
            fill(&img.img, [](int32_t, int32_t) { return (uint8_t)99; });
        }
        tav_sr2_MotionEstimator e;
        tav_sr2_MotionEstimator_init(&e, &heap.pool);
        forceEngineConfig(&e, size[0], size[1], nullptr);
        ASSERT_EQ(tav_sr2_MotionEstimator_configure(&e, size[0], size[1]), TAV_OK);
        ASSERT_EQ(tav_sr2_MotionEstimator_setReference(&e, &img.img), TAV_OK);
        for (int32_t k = 0; k < e.level_count; ++k)
            EXPECT_EQ(e.templates[k].count, 0);
        ASSERT_EQ(tav_sr2_MotionEstimator_estimate(&e, &img.img), TAV_OK);
        EXPECT_EQ(e.status & TAV_ALIGN_WEAK_MATCHES, TAV_ALIGN_WEAK_MATCHES);
        tav_sr2_Trans2D t;
        ASSERT_EQ(tav_sr2_MotionEstimator_getResult(&e, &t), TAV_OK);
        EXPECT_NEAR(t.m[2] / t.m[8], 0.0, 1e-9);
        tav_sr2_MotionEstimator_finish(&e);
    }
}

}  // namespace

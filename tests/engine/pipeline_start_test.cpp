// The start of a run in the pipeline: geometry, reset, the quarter-size maps, and the settings
// handed to the upscale and GPU contexts.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "engine/buffer_budget.h"
#include "engine/pipeline.h"

namespace {

class PipelineStartTest : public ::testing::Test {
protected:
    static constexpr size_t kRegion = 4 << 20;
    void SetUp() override {
        region_.reset(new max_align_t[kRegion / sizeof(max_align_t)]);
        ASSERT_EQ(tav_sr2_MemPool_init(&pool_, region_.get(), kRegion), TAV_OK);
        self_ = static_cast<tav_sr2_Pipeline*>(calloc(1, sizeof(tav_sr2_Pipeline)));
        ASSERT_EQ(tav_sr2_Pipeline_init(self_, &pool_, nullptr, nullptr), TAV_OK);
        tav_sr2_setRunTuning(&tuning_, 4000, 3000, 4000, 3000, 4.0f);
    }
    void TearDown() override {
        EXPECT_EQ(tav_sr2_Pipeline_finish(self_), TAV_OK);
        EXPECT_EQ(tav_sr2_MemPool_finish(&pool_), TAV_OK);  // nothing leaked
        free(self_);
    }
    std::unique_ptr<max_align_t[]> region_;
    tav_sr2_MemPool pool_ = {};
    tav_sr2_Pipeline* self_ = nullptr;
    sr_tunning_param tuning_ = {};
};

TEST_F(PipelineStartTest, RefusesWhatCannotRun) {
    EXPECT_EQ(tav_sr2_Pipeline_start(nullptr, 1400, 1048, 8, 8, 700, 524, &tuning_),
              TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 8, 8, 700, 524, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 0, 1048, 8, 8, 700, 524, &tuning_), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 13, 8, 700, 524, &tuning_),
              TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 8, 0, 700, 524, &tuning_), TAV_ERROR_PARAM);
    // A 12 x 12 crop: the area of interest ends at 12 & ~7 = 8, its quarter is 2, and the
    // quarter maps (quarter - 2) would have no pixel.
    tuning_.output_width = 12;
    tuning_.output_height = 12;
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 12, 12, 8, 8, 6, 6, &tuning_), TAV_ERROR_PARAM);
}

TEST_F(PipelineStartTest, ShortPoolIsOutOfMemory) {
    // Exhaust the pool but for a sliver; both quarter maps then cannot be had.
    void* hog = tav_sr2_MemPool_alloc(&pool_, tav_sr2_MemPool_largestFree(&pool_) - 1024);
    ASSERT_NE(hog, nullptr);
    EXPECT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 8, 8, 700, 524, &tuning_),
              TAV_ERROR_MALLOC);
    tav_sr2_MemPool_free(&pool_, hog);
}

}  // namespace

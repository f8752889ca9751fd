// The start of a run in the pipeline: geometry, reset, the quarter-size maps, and the settings
// handed to the upscale and GPU contexts.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "engine/buffer_budget.h"
#include "engine/pipeline.h"
#include "merge/pattern_banks.h"

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

// Start sets up the upscaler in its order: the phase table of the merge path, the bank blend and
// the pattern threshold; a second start replaces the first set-up without a leak.
TEST_F(PipelineStartTest, SetsUpTheUpscaler) {
    const struct {
        int32_t use_16bit, fast_merge_mode;
        double noise_level, mix;
        tav_sr2_UpscaleKernel kernel;
        int32_t threshold;
    } cases[] = {
        {1, 0, 0.0, 0.0, {0, 0.2, 0.4}, 8},
        {0, 0, 12.7, 0.25, {2, 0, 0}, 12},
        {1, 3, 3.0, 0.5, {2, 0, 0}, 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fast_merge_mode);
        tuning_.use_16bit = c.use_16bit;
        tuning_.fast_merge_mode = c.fast_merge_mode;
        tuning_.noise_level = c.noise_level;
        tuning_.upscale_bank_mix = c.mix;
        ASSERT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 8, 8, 700, 524, &tuning_), TAV_OK);
        const tav_sr2_Upscaler& u = self_->upscaler;
        int16_t table[TAV_SR2_PHASES * TAV_SR2_PHASE_TAPS];
        ASSERT_TRUE(tav_sr2_Upscaler_fillPhases(&c.kernel, table));
        EXPECT_EQ(memcmp(u.kernel_table, table, sizeof(table)), 0);
        EXPECT_EQ(u.pattern_threshold, c.threshold);
        EXPECT_EQ(u.owned, 1);
        const int32_t n = (int32_t)(512 * c.mix);
        const int32_t e = 4321 * TAV_SR2_PATTERN_TAPS + 48;
        EXPECT_EQ(u.patterns[4321][48],
                  ((256 - n) * tav_sr2_pattern_bank_0[e] + n * tav_sr2_pattern_bank_1[e]) >> 8);
    }
}

}  // namespace

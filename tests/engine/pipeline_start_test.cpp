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

void expectRect(const tav_sr2_Rect& r, int32_t l, int32_t t, int32_t rt, int32_t b) {
    EXPECT_EQ(r.left, l);
    EXPECT_EQ(r.top, t);
    EXPECT_EQ(r.right, rt);
    EXPECT_EQ(r.bottom, b);
}

TEST_F(PipelineStartTest, OffCentreGeometryAndQuarterMaps) {
    // 4000 x 3000 at zoom 4 with the centre at (600, 400): the crop is (0, 0)-(1400, 1048) and
    // the centre stays (600, 400) in it.
    ASSERT_EQ(tav_sr2_Pipeline_start(self_, 1400, 1048, 8, 6, 600, 400, &tuning_), TAV_OK);
    // Window 1000 x 750: x from 600 - 500, y from 400 - 375.
    expectRect(self_->zoom_rect_in_clip, 100, 25, 1100, 775);
    // x0 = (84 + 7) & ~7 = 88, x1 = 1116 & ~7 = 1112; y0 = (9 + 7) & ~7 = 16, y1 = 791 & ~7 = 784.
    expectRect(self_->clip_rect, 88, 16, 1112, 784);
    EXPECT_EQ(self_->aligned_width, 1024);
    EXPECT_EQ(self_->aligned_height, 768);
    EXPECT_EQ(self_->quarter_width, 256);
    EXPECT_EQ(self_->quarter_height, 192);
    EXPECT_EQ(self_->weight_sum.width, 254);
    EXPECT_EQ(self_->weight_sum.height, 190);
    EXPECT_EQ(self_->weight_sum.format, TAV_SR2_FMT_UINT16);
    EXPECT_EQ(self_->face_mask.width, 254);
    EXPECT_EQ(self_->face_mask.height, 190);
    EXPECT_EQ(self_->face_mask.format, TAV_SR2_FMT_UINT8);
    EXPECT_NE(self_->weight_sum.plane[0], nullptr);
    EXPECT_NE(self_->face_mask.plane[0], nullptr);
    EXPECT_EQ(self_->max_image_num, 8);
    EXPECT_EQ(self_->merge_cap, 6);
    EXPECT_EQ(self_->output_width, 4000);
    EXPECT_EQ(self_->output_height, 3000);
}

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

TEST(PipelinePresetTest, UpscalePresetFollowsTheMergePath) {
    sr_tunning_param t = {};
    tav_sr2_SrParams_setDefault(&t);
    tav_sr2_UpscalePreset p;
    tav_sr2_Pipeline_upscalePreset(&t, &p);  // GPU merge, fast mode 0: the cubic
    EXPECT_EQ(p.kernel_mode, 0);
    EXPECT_EQ(p.kernel_b, 0.2);
    EXPECT_EQ(p.kernel_c, 0.4);
    EXPECT_EQ(p.bank_weight, 0);
    EXPECT_EQ(p.threshold, 8);  // noise level 0 is below the floor of 8
    t.fast_merge_mode = 1;
    tav_sr2_Pipeline_upscalePreset(&t, &p);
    EXPECT_EQ(p.kernel_mode, 2);
    EXPECT_EQ(p.kernel_c, 0.2);
    t.fast_merge_mode = 0;
    t.use_16bit = 0;
    t.upscale_bank_mix = 0.3;  // trunc(153.6)
    t.noise_level = 12.9;      // trunc to 12
    tav_sr2_Pipeline_upscalePreset(&t, &p);
    EXPECT_EQ(p.kernel_mode, 2);
    EXPECT_EQ(p.bank_weight, 153);
    EXPECT_EQ(p.bank_mix, 0.3);
    EXPECT_EQ(p.threshold, 12);
}

TEST(PipelinePresetTest, DeblurWeightOnlyAboveTheThreshold) {
    sr_tunning_param t = {};
    t.deblur_psf = 1.0f;
    EXPECT_FLOAT_EQ(tav_sr2_Pipeline_deblurWeight(&t), 2.78f);
    t.deblur_psf = 1e-6f;  // not above 1e-6 in float: 9.9999997e-7
    EXPECT_EQ(tav_sr2_Pipeline_deblurWeight(&t), 0.0f);
    t.deblur_psf = 2e-6f;
    EXPECT_FLOAT_EQ(tav_sr2_Pipeline_deblurWeight(&t), 2e-6f * 2.78f);
    t.deblur_psf = 0.0f;
    EXPECT_EQ(tav_sr2_Pipeline_deblurWeight(&t), 0.0f);
}

}  // namespace

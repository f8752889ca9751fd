// The noise map: its shift and table against the merged weight, the ISO rows of a run that kept
// only the base frame, and the dark-area boost at both depths.
#include "engine/nr_map.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "engine/buffer_budget.h"
#include "enhance/image_ops.h"
#include "tests/engine/log_capture.h"
#include "tests/enhance/image_test_util.h"

namespace {

struct PipelineRig {
    tav_test::Heap heap;
    tav_sr2_Pipeline* self;
    PipelineRig() : heap(8u << 20) {
        self = static_cast<tav_sr2_Pipeline*>(calloc(1, sizeof(tav_sr2_Pipeline)));
        EXPECT_EQ(tav_sr2_Pipeline_init(self, &heap.pool, nullptr, nullptr), TAV_OK);
        tav_sr2_setRunTuning(&self->tuning, 4000, 3000, 4000, 3000, 2.0f);
        EXPECT_EQ(tav_sr2_Image_alloc(&self->weight_sum, 4, 2, nullptr, TAV_SR2_FMT_UINT16),
                  TAV_OK);
    }
    ~PipelineRig() {
        EXPECT_EQ(tav_sr2_Pipeline_finish(self), TAV_OK);
        EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
        free(self);
    }
    void weights(std::initializer_list<uint16_t> values) {
        int32_t i = 0;
        for (uint16_t v : values) {
            uint8_t* row = self->weight_sum.plane[0] + (i / 4) * self->weight_sum.pitch[0];
            memcpy(row + 2 * (i % 4), &v, 2);
            ++i;
        }
    }
    int32_t map(int32_t i) const {
        return self->nr_map.plane[0][(i / 4) * self->nr_map.pitch[0] + i % 4];
    }
};

TEST(NrMap, ShiftAndTableFollowTheMergedWeight) {
    const struct {
        int32_t n;
        double ghost_nr_level;
        uint16_t weight;
        int32_t want;
    } cases[] = {
        {1, 1.5, 128, 16},    // s = 2: 128 >> 2 = 32, a full frame
        {10, 1.5, 1280, 16},  // s = 3: every frame merged
        {10, 1.5, 320, 40},   // a quarter of the weight: 16 (1 + 1.5)
        {10, 1.5, 128, 67},   // 1280 / 128 = 10: 16 (1.5 (sqrt 10 - 1) + 1) = 67.9
        {10, 1.5, 0, 255},    // nothing merged: t[0]
        {10, 0.0, 128, 16},   // no ghost boost: 16 everywhere but t[0]
        {8, 1.5, 1024, 16},   // 8 * 128 >> 2 = 256: s = 3
        {8, 1.5, 4, 255},     // 4 >> 3 = 0: t[0]
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.n << " " << c.weight);
        PipelineRig rig;
        rig.self->accum_num = c.n;
        rig.self->max_image_num = 1;
        rig.self->tuning.ghost_nr_level = c.ghost_nr_level;
        rig.self->tuning.noise_level = 5.0;  // a single slot keeps the settings
        rig.weights(
            {c.weight, c.weight, c.weight, c.weight, c.weight, c.weight, c.weight, c.weight});
        ASSERT_EQ(tav_sr2_Pipeline_makeNrMap(rig.self), TAV_OK);
        EXPECT_EQ(rig.map(0), c.want);
        EXPECT_EQ(rig.map(7), c.want);
        EXPECT_EQ(rig.self->tuning.noise_level, 5.0);
    }
}

TEST(NrMap, LoneBaseRaisesNoiseByIsoClass) {
    const struct {
        int32_t iso;
        double noise_level;
        int32_t range;
        double want_noise;
        int32_t want_range;
    } cases[] = {
        {1000, 0.0, 1, 2 * 3.0, 1}, {1000, 5.0, 1, 2 * 5.0, 1},   {1001, 0.0, 1, 2 * 8.0, 5},
        {6000, 0.0, 3, 2 * 8.0, 6}, {6001, 0.0, 3, 2 * 13.0, 15}, {0, 0.0, 5, 2 * 13.0, 15},
        {0, 4.0, 4, 2 * 4.0, 15},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.iso);
        PipelineRig rig;
        sr_tunning_param* t = &rig.self->tuning;
        rig.self->accum_num = 1;
        rig.self->max_image_num = 8;
        t->iso = c.iso;
        t->noise_level = c.noise_level;
        t->nr_y_range[0] = c.range;
        t->noise_level_4ghost_ratio_scale = 2.0;
        t->dirnr = 3.0;
        t->noise_level_uv = 4.0;
        rig.weights({128, 128, 128, 128, 128, 128, 128, 128});
        EngineLogCapture log;
        ASSERT_EQ(tav_sr2_Pipeline_makeNrMap(rig.self), TAV_OK);
        // The second value is k times noise_level_4ghost_ratio (6.0 by default), never stored.
        char settings[256];
        snprintf(settings, sizeof settings,
                 "self->accum_num = 1, noise_level_4ghost_ratio = 12.000000,  noise_level = %f,  "
                 "dirnr=  6.000000, noise_level_uv = 8.000000  nr_y_range[0] = %d\n",
                 c.want_noise, c.want_range);
        EXPECT_EQ(EngineLogCapture::starting("self->params->iso = "),
                  std::vector<std::string>{"self->params->iso = " + std::to_string(c.iso) + " \n"});
        EXPECT_EQ(EngineLogCapture::starting("self->accum_num"),
                  std::vector<std::string>{settings});
        EXPECT_DOUBLE_EQ(t->noise_level, c.want_noise);
        EXPECT_EQ(t->nr_y_range[0], c.want_range);
        EXPECT_DOUBLE_EQ(t->dirnr, 6.0);
        EXPECT_DOUBLE_EQ(t->noise_level_uv, 8.0);
    }
}

TEST(NrMap, DarkAreasRaiseTheMapAtBothDepths) {
    const struct {
        int32_t format;
        int32_t luma;
        double r;
        int32_t want;  // from a map of 32
    } cases[] = {
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 0, 2.0, 64},    // factor r at black
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 64, 2.0, 48},   // (1 - 2) 0.5 + 2 = 1.5
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 128, 2.0, 32},  // factor 1
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 129, 2.0, 32},  // bright: untouched
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 10, 0.5, 16},   // r below 1: simply r
        {TAV_SR2_FMT_YUV420_SEMIPLANAR, 0, 10.0, 255},  // limited to a byte
        {TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 256, 2.0, 48},
        {TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 513, 2.0, 32},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.format << " " << c.luma << " " << c.r);
        PipelineRig rig;
        rig.self->accum_num = 1;
        rig.self->tuning.ghost_nr_level = 0.0;
        rig.weights({64, 64, 64, 64, 64, 64, 64, 64});
        ASSERT_EQ(tav_sr2_Pipeline_makeNrMap(rig.self), TAV_OK);
        for (int32_t i = 0; i < 8; ++i)
            rig.self->nr_map.plane[0][(i / 4) * rig.self->nr_map.pitch[0] + i % 4] = 32;
        rig.self->tuning.dark_area_nr_level = c.r;
        tav_test::TestImage picture(&rig.heap.pool, 16, 8, c.format);
        const tav_sr2_ImageCtx ctx = {&rig.heap.pool, nullptr, nullptr};
        tav_sr2_Image luma;
        tav_sr2_Image_viewPlane0(&luma, &picture.img, 0, 0, 16, 8);
        ASSERT_EQ(tav_sr2_Image_fillValue(&ctx, &luma, c.luma), TAV_OK);
        ASSERT_EQ(tav_sr2_Pipeline_boostDarkArea(rig.self, &picture.img), TAV_OK);
        EXPECT_EQ(rig.map(0), c.want);
        EXPECT_EQ(rig.map(7), c.want);
    }
}

}  // namespace

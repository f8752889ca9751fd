#include "src/ev_params.h"

#include <gtest/gtest.h>
#include <string.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "foundation/status.h"
#include "tests/src/ev_params_keys.h"

namespace {

using namespace ev_keys;

// The record's fields in their order, as the parameter file's table lists them.
const char* const kRecordOrder =
    "light_enable fast_enable cross_enable hfe_level hfe_black_level hfe_white_level hfe_thr "
    "c_hf_nr_enable deghost_level deghost_level_face deghost_sigma deghost_sigma_face "
    "deghost_weight_face deghost_nr_level deghost_nr_level_face ghost_ratio_thres "
    "ghost_ratio_thres_face ghost_sigle_nr_level ghost_nr_level y_nr_level y_nr_mode y_nr_times "
    "y_lf_nr_level y_hf_nr_level y_edge_nr_level y_edge_ghost_nr_level y_edge_nr_radius "
    "dark_nr_level y_input_nr_level c_nr_level c_nr_times c_nr_mode c_lf_nr_level unsharp_level "
    "unsharp_range_low unsharp_range_high unsharp_nr_level unsharp_mode structure_level "
    "structure_sigma deblur_level deblur_scale lce_level lce_lf lce_hf white_edge_level "
    "black_edge_level grain_adder grain_adder_thr p_grain_adder c_grain_adder select_frame "
    "base_index";

TEST(EvParams, DeghostChoice) {
    struct Case {
        int32_t face_num, face_enable, mode;
        const char* log;
    };
    const Case cases[] = {
        {0, 0, TAVRIN_KELD_DEGHOST_PLAIN, ""},
        {2, 0, TAVRIN_KELD_DEGHOST_FACE, "D/TAVRIN: use face deghost params\n"},
        {0, 1, TAVRIN_KELD_DEGHOST_FACE, "D/TAVRIN: use face deghost params\n"},
        {0, 5, TAVRIN_KELD_DEGHOST_FACE, "D/TAVRIN: use face deghost params\n"},
        {0, -1, TAVRIN_KELD_DEGHOST_NO_FACE, "D/TAVRIN: disable face deghost params\n"},
        {1, -1, TAVRIN_KELD_DEGHOST_NO_FACE,
         "D/TAVRIN: use face deghost params\nD/TAVRIN: disable face deghost params\n"},
        {0, -2, TAVRIN_KELD_DEGHOST_PLAIN, ""},
    };
    for (const Case& c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(TavrinKELD_internal_chooseDeghost(c.face_num, c.face_enable, 2), c.mode)
            << c.face_num << " " << c.face_enable;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.log);
        testing::internal::CaptureStderr();
        TavrinKELD_internal_chooseDeghost(c.face_num, c.face_enable, 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST(EvParams, HandOverCopiesEveryKeyAndKeepsTheOtherRows) {
    const Ev ev = distinctRecord(0);
    for (int32_t mode :
         {TAVRIN_KELD_DEGHOST_PLAIN, TAVRIN_KELD_DEGHOST_FACE, TAVRIN_KELD_DEGHOST_NO_FACE}) {
        Sr sr;
        memset(&sr, 0x5A, sizeof sr);
        const Sr before = sr;
        TavrinKELD_internal_toSrParams(&ev, mode, &sr);
        for (const IntKey& key : kIntKeys)
            if (key.sr) {
                EXPECT_EQ(sr.*key.sr, ev.*key.ev) << key.name;
            }
        for (const DoubleKey& key : kDoubleKeys)
            if (key.sr) {
                EXPECT_EQ(sr.*key.sr, ev.*key.ev) << key.name;
            }
        EXPECT_EQ(sr.select_frame, ev.select_frame);
        EXPECT_EQ(sr.base_index, ev.base_index);

        const bool face = mode == TAVRIN_KELD_DEGHOST_FACE;
        EXPECT_EQ(sr.deghost_level, face ? ev.deghost_level_face : ev.deghost_level);
        EXPECT_EQ(sr.deghost_sigma, face ? ev.deghost_sigma_face : ev.deghost_sigma);
        EXPECT_EQ(sr.deghost_nr_level, face ? ev.deghost_nr_level_face : ev.deghost_nr_level);
        EXPECT_EQ(sr.ghost_ratio_thres, face ? ev.ghost_ratio_thres_face : ev.ghost_ratio_thres);
        EXPECT_EQ(sr.deghost_weight_face,
                  mode == TAVRIN_KELD_DEGHOST_NO_FACE ? 0 : ev.deghost_weight_face);

        // Rows without a key stay as the engine gave them.
        EXPECT_EQ(memcmp(&sr.keld_mode, &before.keld_mode, sizeof sr.keld_mode), 0);
        EXPECT_EQ(memcmp(&sr.removebrightnessdiff_image_enable,
                         &before.removebrightnessdiff_image_enable, sizeof(int32_t)),
                  0);
        EXPECT_EQ(
            memcmp(&sr.do_unsharp_rate_for_skin, &before.do_unsharp_rate_for_skin, sizeof(double)),
            0);
        EXPECT_EQ(memcmp(&sr.sharpness_skip_ratio, &before.sharpness_skip_ratio, sizeof(double)),
                  0);
    }
}

}  // namespace

#include "src/ev_params.h"

#include <gtest/gtest.h>
#include <string.h>

#include <sstream>
#include <string>
#include <vector>

#include "foundation/status.h"
#include "tests/src/ev_params_keys.h"

namespace {

using namespace ev_keys;

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

TEST(EvParams, DefaultsFillTheGroupsAndClearTheRest) {
    tavrin_KELD_EvParamsBlock block;
    memset(&block, 0xAB, sizeof block);
    ASSERT_EQ(TavrinKELD_internal_getDefaultParams(2, &block), TAV_OK);
    for (int g = 0; g < 2; g++) {
        const Ev& ev = block.ev[g];
        EXPECT_TRUE(sameRecord(ev, tavrin_KELD_evParamsDefault));
        EXPECT_EQ(ev.hfe_black_level, -64);
        EXPECT_EQ(ev.hfe_white_level, 64);
        EXPECT_EQ(ev.y_edge_nr_radius, 3);
        EXPECT_EQ(ev.unsharp_mode, 3);
        EXPECT_EQ(ev.grain_adder_thr, 512);
        EXPECT_EQ(ev.select_frame, 1);
        EXPECT_EQ(ev.base_index, -1);
        EXPECT_EQ(ev.ghost_sigle_nr_level, 4.0);
        EXPECT_EQ(ev.deghost_sigma_face, 1.8);
        EXPECT_EQ(ev.lce_lf, 500.0);
    }
    // Groups past num_evs and the reserved tail are cleared, padding included.
    const uint8_t* tail = reinterpret_cast<const uint8_t*>(&block.ev[2]);
    size_t tail_size = sizeof block - 2 * sizeof(Ev);
    for (size_t i = 0; i < tail_size; i++)
        ASSERT_EQ(tail[i], 0) << i;

    testing::internal::CaptureStderr();
    EXPECT_EQ(TavrinKELD_internal_getDefaultParams(0, &block), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_internal_getDefaultParams(6, &block), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_internal_getDefaultParams(1, nullptr), TAV_ERROR_PARAM);
    std::vector<std::string> lines = splitLines(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string& line : lines) {
        EXPECT_EQ(line.rfind("E/TAVRIN: ", 0), 0u) << line;
        EXPECT_NE(line.find("src/ev_params.cpp:"), std::string::npos) << line;
        EXPECT_NE(line.find(":TavrinKELD_internal_getDefaultParams(): Error params"),
                  std::string::npos)
            << line;
    }
}

TEST(EvParams, SetParamsCopiesAndPrintsUnderBitTwo) {
    tavrin_KELD_EvParamsBlock source;
    ASSERT_EQ(TavrinKELD_internal_getDefaultParams(2, &source), TAV_OK);
    source.ev[1] = distinctRecord(3);
    source.reserved[5] = 9;
    tavrin_KELD_EvParamsBlock instance = {};

    for (int32_t level : {0, 1, 4, 5}) {
        testing::internal::CaptureStderr();
        ASSERT_EQ(TavrinKELD_internal_setParams(&instance, &source, 2, level), TAV_OK);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << level;
    }
    EXPECT_EQ(memcmp(&instance, &source, sizeof instance), 0);

    testing::internal::CaptureStderr();
    ASSERT_EQ(TavrinKELD_internal_setParams(&instance, &source, 2, 2), TAV_OK);
    std::vector<std::string> lines = splitLines(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 2u * (1 + 53));
    EXPECT_EQ(lines[0], "D/TAVRIN: EV[0] SuperResolution Params:");
    EXPECT_EQ(lines[1], "D/TAVRIN: light_enable           = 0");
    // hfe_white_level is printed before hfe_black_level, unlike the record's order.
    EXPECT_EQ(lines[5], "D/TAVRIN: hfe_white_level        = 64");
    EXPECT_EQ(lines[6], "D/TAVRIN: hfe_black_level        = -64");
    EXPECT_EQ(lines[12], "D/TAVRIN: deghost_sigma_face     = 1.800000");
    EXPECT_EQ(lines[17], "D/TAVRIN: ghost_ratio_thres_face = 18.000000");
    EXPECT_EQ(lines[53], "D/TAVRIN: base_index             = -1");
    EXPECT_EQ(lines[54], "D/TAVRIN: EV[1] SuperResolution Params:");
    EXPECT_EQ(lines[54 + 1],
              "D/TAVRIN: light_enable           = " + std::to_string(source.ev[1].light_enable));
    EXPECT_EQ(lines[54 + 53], "D/TAVRIN: base_index             = 8003");

    testing::internal::CaptureStderr();
    EXPECT_EQ(TavrinKELD_internal_setParams(nullptr, &source, 1, 0), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_internal_setParams(&instance, nullptr, 1, 0), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_internal_setParams(&instance, &source, 6, 0), TAV_ERROR_PARAM);
    EXPECT_EQ(splitLines(testing::internal::GetCapturedStderr()).size(), 3u);
}

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

// Defaults handed over and limited by the engine land where the stages read them.
TEST(EvParams, DefaultsReachTheEngineRecord) {
    Ev ev = tavrin_KELD_evParamsDefault;
    ev.y_nr_mode = 2;
    ev.c_nr_mode = 7;
    ev.deghost_level_face = 0.0;
    ev.light_enable = 1;
    Sr sr = {};
    sr.do_unsharp_rate_for_skin = 0.75;
    TavrinKELD_internal_toSrParams(&ev, TAVRIN_KELD_DEGHOST_FACE, &sr);
    sr_tunning_param tuning = {};
    double y_input_nr_level = -1;
    tav_sr2_SrParams_apply(&sr, 0, &tuning, &y_input_nr_level);
    EXPECT_EQ(tuning.dark_light_nr_enable, 1);
    EXPECT_EQ(tuning.gf_window2, 21);
    EXPECT_EQ(tuning.nr_uv_window, 41);
    EXPECT_EQ(tuning.deghost_deg, 0.05);                    // the face level, raised to its floor
    EXPECT_EQ(tuning.deghost_gauss_sigma0, 1.8);            // deghost_sigma_face
    EXPECT_EQ(tuning.noise_level_4ghost_ratio_scale, 4.0);  // ghost_sigle_nr_level
    EXPECT_EQ(tuning.hfe_level, 128);
    EXPECT_EQ(tuning.hfe_black_level, -64);
    EXPECT_EQ(tuning.dither_thr, 512);
    EXPECT_EQ(tuning.unsharp_sigma2, 0.1);  // unsharp_range_low
    EXPECT_EQ(tuning.unsharp_sigma, 1.0);   // unsharp_range_high
    EXPECT_EQ(tuning.base_id, -1);
    EXPECT_EQ(tuning.do_unsharp_rate_for_skin, 0.75);
    EXPECT_EQ(y_input_nr_level, 0.0);
}

}  // namespace

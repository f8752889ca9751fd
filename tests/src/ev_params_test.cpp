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

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

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

// The field table lists the record in order (white level before black level, as printed), and
// the record's members lie in that order.
TEST(EvParams, FieldTableFollowsTheRecordOrder) {
    std::istringstream names(kRecordOrder);
    std::vector<std::string> order;
    for (std::string name; names >> name;)
        order.push_back(name);
    ASSERT_EQ(order.size(), static_cast<size_t>(TAVRIN_KELD_EV_PARAM_FIELDS));
    std::swap(order[4], order[5]);
    for (int k = 0; k < TAVRIN_KELD_EV_PARAM_FIELDS; k++) {
        const tavrin_KELD_EvParamField& f = tavrin_KELD_evParamFields[k];
        EXPECT_EQ(f.name, order[k]) << k;
        EXPECT_EQ(f.in_file, k < TAVRIN_KELD_EV_PARAM_FIELDS - 2) << f.name;
        if (k > 0 && k != 4 && k != 5) {
            EXPECT_GT(f.offset, tavrin_KELD_evParamFields[k - 1].offset) << f.name;
        }
    }
    EXPECT_LT(tavrin_KELD_evParamFields[5].offset, tavrin_KELD_evParamFields[4].offset);
}

TEST(EvParams, DefaultsFillTheGroupsAndClearTheRest) {
    tavrin_KELD_EvParamsBlock block;
    memset(&block, 0xAB, sizeof block);
    ASSERT_EQ(TavrinKELD_internal_getDefaultParams(2, &block), TAV_OK);
    for (int g = 0; g < 2; g++) {
        const Ev& ev = block.ev[g];
        for (const IntKey& key : kIntKeys)
            EXPECT_EQ(ev.*key.ev, key.def) << key.name;
        for (const DoubleKey& key : kDoubleKeys)
            EXPECT_EQ(ev.*key.ev, key.def) << key.name;
        EXPECT_EQ(ev.select_frame, 1);
        EXPECT_EQ(ev.base_index, -1);
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

}  // namespace

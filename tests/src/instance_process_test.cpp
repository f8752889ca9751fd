// The process driver on real frames: the group loop's hand-over to the engine, as its log lines
// show it, and the time-out that still counts as a success.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/run_limit.h"
#include "foundation/status.h"
#include "src/tavrin_internal_keld.h"
#include "tests/common/property_store.h"
#include "tests/common/scene_frame.h"

namespace {

constexpr int32_t kWidth = 320;
constexpr int32_t kHeight = 240;

using keld_test::Frame;

// Mean absolute luma difference of two frames of the test's size.
double lumaDistance(const Frame& a, const Frame& b) {
    return keld_test::meanAbsDiff(a.pixels, b.pixels, size_t(kWidth) * kHeight);
}

// Shortens the engine's run limit for the life of the guard.
struct RunLimit {
    explicit RunLimit(uint32_t us) : saved(tav_sr2_run_limit_us) { tav_sr2_run_limit_us = us; }
    ~RunLimit() { tav_sr2_run_limit_us = saved; }
    uint32_t saved;
};

class InstanceProcess : public ::testing::Test {
protected:
    void SetUp() override {
        keld_test_clearProperties();
        saved_path_ = tavrin_KELD_property_file_path;
        tavrin_KELD_property_file_path = "/nonexistent/keld/tavrin_keld_property.xml";
        for (int i = 0; i < 3; i++)
            frames_.push_back(Frame::scene(kWidth, kHeight, i % 2, i / 2));
    }
    void TearDown() override {
        if (obj_) TavrinKELD_internal_uninit(&obj_);
        tavrin_KELD_property_file_path = saved_path_;
        keld_test_clearProperties();
    }

    void initAtLevel(const char* level, const int32_t zoom_rect[4] = nullptr) {
        keld_test_setProperty("debug.tavrin.keld.enable", "1");
        keld_test_setProperty("debug.tavrin.keld.log_level", level);
        tavrin_KELD_InitParams p = {};
        p.width = kWidth;
        p.height = kHeight;
        p.stride = kWidth;
        p.output_width = kWidth;
        p.output_height = kHeight;
        p.num_evs = 1;
        p.num_max_ev = 4;
        p.format = 48;
        p.num_cores = 2;
        p.affinity_mask = 240;
        p.merge_num = 4;
        if (zoom_rect) memcpy(p.zoom_rect, zoom_rect, sizeof p.zoom_rect);
        ASSERT_EQ(TavrinKELD_internal_init(&obj_, &p), TAV_OK);
    }

    void addFrames(int32_t base_frame) {
        for (int32_t i = 0; i < int32_t(frames_.size()); i++) {
            tavrin_KELD_MetaData m = {};
            m.iso = 100 * (i + 1);
            m.exposure_time = 20000;
            m.is_base_img = i == base_frame;
            const tavrin_KELD_Image image = frames_[i].image();
            ASSERT_EQ(TavrinKELD_internal_addImage(&obj_, &image, &m), TAV_OK);
        }
    }

    tavrin_KELD_Obj* obj_ = nullptr;
    std::vector<Frame> frames_;
    const char* saved_path_ = nullptr;
};

// Positions of the lines in the log, in the order given; npos for a missing one or one out of
// order.
std::vector<size_t> linesInOrder(const std::string& log, const std::vector<std::string>& lines) {
    std::vector<size_t> at;
    size_t from = 0;
    for (const std::string& line : lines) {
        const size_t found = log.find(line, from);
        at.push_back(found);
        if (found != std::string::npos) from = found + line.size();
    }
    return at;
}

TEST_F(InstanceProcess, GroupLoopHandsTheBurstToTheEngine) {
    // With a base frame the engine's ISO is the base frame's; without, the first frame's.
    for (int32_t base_frame : {1, -1}) {
        SCOPED_TRACE(base_frame);
        initAtLevel("2");
        const tavrin_KELD_Rect face = {100, 80, 160, 140};
        ASSERT_EQ(TavrinKELD_internal_addFaceRect(&obj_, &face), TAV_OK);
        addFrames(base_frame);
        Frame out(kWidth, kHeight, 0);
        const tavrin_KELD_Image output = out.image();
        tavrin_KELD_ProcessResult result = {-1, -1};
        testing::internal::CaptureStderr();
        EXPECT_EQ(TavrinKELD_internal_process(&obj_, &output, &result), TAV_OK);
        const std::string log = testing::internal::GetCapturedStderr();

        const int32_t condition_iso = base_frame >= 0 ? 100 * (base_frame + 1) : 100;
        char frame_line[160];
        snprintf(frame_line, sizeof frame_line,
                 "D/TAVRIN: input_image[0][2] = {buffer = %p, size = 320 x 240, iso = 300, "
                 "et = 20000}\n",
                 static_cast<void*>(frames_[2].pixels.data()));
        char merge_line[64];
        snprintf(merge_line, sizeof merge_line, "D/TAVRIN: SR MergeNum %d\n", result.merge_num);
        const std::vector<std::string> expected = {
            "D/TAVRIN: output_image: 320, 240, 320\nD/TAVRIN: output_w_h: 320, 240\n",
            "D/TAVRIN: use face deghost params\n",
            "D/TAVRIN: open brightnessdiff : 1\n",
            "D/TAVRIN: [set_super_resolution_params] #Time Spending: ",
            "D/TAVRIN: face_info[0] = {100, 80, 160, 140}\n",
            "D/TAVRIN: Base image iso : " + std::to_string(condition_iso) + "\n",
            frame_line,
            "D/TAVRIN: EV[0]. base_id = " + std::to_string(result.base_id) + "\n",
            "D/TAVRIN: process_super_resolution SR Process ....\n",
            "D/TAVRIN: process_super_resolution SR Process Finish\n"
            "D/TAVRIN: output_image: 320, 240\n",
            merge_line,
            "D/TAVRIN: [process_super_resolution] #Time Spending: ",
            "D/TAVRIN: [TavrinKELD_internal_process] #Time Spending: ",
            "D/TAVRIN: TavrinKELD_internal_process X\n",
        };
        const std::vector<size_t> at = linesInOrder(log, expected);
        for (size_t i = 0; i < expected.size(); i++)
            EXPECT_NE(at[i], std::string::npos) << expected[i] << "\nin\n" << log;
        EXPECT_EQ(log.find("E/TAVRIN"), std::string::npos) << log;

        EXPECT_GE(result.base_id, 0);
        EXPECT_LT(result.base_id, 3);
        EXPECT_GE(result.merge_num, 1);
        EXPECT_LE(result.merge_num, 3);
        EXPECT_EQ(obj_->merge_num, result.merge_num);  // the engine's count, read at level 2
        EXPECT_LT(lumaDistance(out, frames_[size_t(std::clamp(result.base_id, 0, 2))]), 20.0);
        EXPECT_EQ(obj_->sr_engine, nullptr);
        EXPECT_EQ(TavrinKELD_internal_uninit(&obj_), TAV_OK);
    }
}

TEST_F(InstanceProcess, TimeOutStillWritesTheOutputAndReportsSuccess) {
    initAtLevel("1");
    addFrames(0);
    Frame out(kWidth, kHeight, 0);
    const tavrin_KELD_Image output = out.image();
    tavrin_KELD_ProcessResult result = {-1, -1};
    uint64_t status;
    std::string log;
    {
        // Every stage check of the run finds the limit passed.
        const RunLimit limit(0);
        testing::internal::CaptureStderr();
        status = TavrinKELD_internal_process(&obj_, &output, &result);
        log = testing::internal::GetCapturedStderr();
    }
    EXPECT_EQ(status, TAV_OK);
    // Both time-out lines: the run's failure and the loop's note with its source line.
    const std::string run_failed =
        "E/TAVRIN: Failed to get sr output image, errno = 80000080\n"
        "E/TAVRIN: process_super_resolution TIMEOUT EROOR (";
    const size_t at = log.find(run_failed);
    ASSERT_NE(at, std::string::npos) << log;
    const size_t number = at + run_failed.size();
    const size_t close = log.find(")\n", number);
    ASSERT_NE(close, std::string::npos) << log;
    ASSERT_GT(close, number) << log;
    EXPECT_EQ(log.find_first_not_of("0123456789", number), close) << log;
    // The teardown succeeded: no failure of the call itself.
    EXPECT_EQ(log.find("Failed to process tavrin super resolution"), std::string::npos) << log;

    // The final scaling still ran: the output is the scene, not the zeros it started with.
    EXPECT_LT(lumaDistance(out, frames_[0]), 20.0);
    EXPECT_GT(lumaDistance(out, Frame(kWidth, kHeight, 0)), 60.0);
    EXPECT_GE(result.base_id, 0);
    // The burst is consumed as after any run.
    EXPECT_EQ(obj_->input_num, 0);
    EXPECT_EQ(TavrinKELD_internal_process(&obj_, &output, &result), TAV_ERROR_PARAM);
}

}  // namespace

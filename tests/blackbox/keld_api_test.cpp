// The library as a host sees it: the public header, the shared library, and a property store
// exported by this program. Log lines are read back from standard error.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../common/property_store.h"
#include "../common/scene_frame.h"
#include "tavrin_keld.h"

namespace {

using keld_test::Frame;
using keld_test::meanAbsDiff;

class KeldApi : public ::testing::Test {
protected:
    void SetUp() override {
        keld_test_clearProperties();
        char pattern[] = "/tmp/keld_blackbox_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (handle_) TavrinKELD_uninit(&handle_);
        for (const std::string& f : files_)
            unlink(f.c_str());
        rmdir(dir_.c_str());
        keld_test_clearProperties();
    }

    static void setLogLevel(const char* level) {
        keld_test_setProperty("debug.tavrin.keld.enable", "1");
        keld_test_setProperty("debug.tavrin.keld.log_level", level);
    }

    static tavrin_KELD_PublicInitParams params(int32_t w = 320, int32_t h = 240) {
        tavrin_KELD_PublicInitParams p = {};
        p.width = w;
        p.height = h;
        p.stride = w;
        p.output_width = w;
        p.output_height = h;
        p.num_max_ev = 5;
        p.format = 48;
        p.affinity_mask = 240;
        return p;
    }

    // A parameter file with a zoom row up to 30 for both zoom kinds, at ISO up to 6400.
    std::string writeParamsFile() {
        std::string rows;
        for (const char* zoom : {"zoom_ratio", "super_zoom_ratio"}) {
            rows += std::string("<") + zoom +
                    " value=\"30\"><iso value=\"6400\"><super_resolution id=\"0\">"
                    "<unsharp_level>3</unsharp_level></super_resolution></iso></" +
                    zoom + ">\n";
        }
        const std::string path = dir_ + "/tuning.xml";
        FILE* f = fopen(path.c_str(), "w");
        EXPECT_NE(f, nullptr);
        if (!f) return path;
        fprintf(f,
                "<?xml version=\"1.0\"?>\n<root><version>bb</version>\n"
                "<camera_id length=\"1\">0</camera_id>\n<params id=\"0\">\n%s</params></root>\n",
                rows.c_str());
        fclose(f);
        files_.push_back(path);
        return path;
    }

    uint64_t addFrame(Frame* frame, int32_t iso, int32_t et, int32_t base = 0) {
        const tavrin_KELD_Image image = frame->image();
        const tavrin_KELD_PublicMetaData meta = {iso, et, base};
        return TavrinKELD_addImage(&handle_, &image, &meta);
    }

    tavrin_KELD_Obj* handle_ = nullptr;
    std::string dir_;
    std::vector<std::string> files_;
};

tavrin_KELD_Obj* const kUnset = reinterpret_cast<tavrin_KELD_Obj*>(0x5150);

// ---------------------------------------------------------------------------------------------

TEST_F(KeldApi, InitChecksItsArgumentsSilently) {
    // The shared debug block at level 2 first, so that a debug line of the public layer shows.
    setLogLevel("2");
    const tavrin_KELD_PublicInitParams good = params();
    ASSERT_EQ(TavrinKELD_init(&handle_, &good), TAV_OK);
    ASSERT_EQ(TavrinKELD_uninit(&handle_), TAV_OK);
    struct Bad {
        const char* what;
        void (*spoil)(tavrin_KELD_PublicInitParams*);
    };
    const Bad bad[] = {
        {"width 0", [](tavrin_KELD_PublicInitParams* p) { p->width = 0; }},
        {"height -1", [](tavrin_KELD_PublicInitParams* p) { p->height = -1; }},
        {"stride 0", [](tavrin_KELD_PublicInitParams* p) { p->stride = 0; }},
        {"output width 0", [](tavrin_KELD_PublicInitParams* p) { p->output_width = 0; }},
        {"output height 0", [](tavrin_KELD_PublicInitParams* p) { p->output_height = 0; }},
        {"format 0", [](tavrin_KELD_PublicInitParams* p) { p->format = 0; }},
        {"format 100", [](tavrin_KELD_PublicInitParams* p) { p->format = 100; }},
        {"num_max_ev 0", [](tavrin_KELD_PublicInitParams* p) { p->num_max_ev = 0; }},
        {"num_max_ev 21", [](tavrin_KELD_PublicInitParams* p) { p->num_max_ev = 21; }},
    };
    for (const Bad& b : bad) {
        tavrin_KELD_PublicInitParams p = params();
        b.spoil(&p);
        tavrin_KELD_Obj* handle = kUnset;
        testing::internal::CaptureStderr();
        EXPECT_EQ(TavrinKELD_init(&handle, &p), TAV_ERROR_PARAM) << b.what;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << b.what;
        EXPECT_EQ(handle, kUnset) << b.what;
    }
    const tavrin_KELD_PublicInitParams p = params();
    EXPECT_EQ(TavrinKELD_init(nullptr, &p), TAV_ERROR_PARAM);
    tavrin_KELD_Obj* handle = kUnset;
    EXPECT_EQ(TavrinKELD_init(&handle, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(handle, kUnset);
    EXPECT_EQ(TavrinKELD_uninit(nullptr), TAV_ERROR_PARAM);
    tavrin_KELD_Obj* none = nullptr;
    EXPECT_EQ(TavrinKELD_uninit(&none), TAV_ERROR_PARAM);
}

TEST_F(KeldApi, AddImageAndProcessCheckTheirArguments) {
    const tavrin_KELD_PublicInitParams p = params();
    ASSERT_EQ(TavrinKELD_init(&handle_, &p), TAV_OK);
    Frame frame(320, 240, 0);
    tavrin_KELD_Image image = frame.image();
    const tavrin_KELD_PublicMetaData meta = {100, 10, 0};
    EXPECT_EQ(TavrinKELD_addImage(&handle_, nullptr, &meta), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_addImage(&handle_, &image, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_addImage(nullptr, &image, &meta), TAV_ERROR_PARAM);
    EXPECT_EQ(addFrame(&frame, 0, 10), TAV_ERROR_PARAM);
    EXPECT_EQ(TavrinKELD_process(&handle_, &image, nullptr), TAV_ERROR_PARAM);  // no frames
    EXPECT_EQ(TavrinKELD_process(&handle_, nullptr, nullptr), TAV_ERROR_PARAM);
}

// ---------------------------------------------------------------------------------------------
// Whole runs through the engine.

TEST_F(KeldApi, WholeRunWritesTheOutput) {
    setLogLevel("1");
    const std::string cfg = writeParamsFile();
    tavrin_KELD_PublicInitParams p = params(640, 480);
    p.num_max_ev = 4;
    p.params_cfg_file = cfg.c_str();
    ASSERT_EQ(TavrinKELD_init(&handle_, &p), TAV_OK);
    const tavrin_KELD_PublicMetaData meta = {400, 20000, 0};
    ASSERT_EQ(TavrinKELD_setParamsByCfgFile(&handle_, &meta), TAV_OK);
    std::vector<Frame> frames;
    for (int i = 0; i < 4; i++)
        frames.push_back(Frame::scene(640, 480, i % 2, i / 2));
    for (int i = 0; i < 4; i++)
        ASSERT_EQ(addFrame(&frames[i], 400, 20000, i == 0), TAV_OK);
    Frame out(640, 480, 0);
    const tavrin_KELD_Image output = out.image();
    tavrin_KELD_ProcessResult result = {-1, -1};
    testing::internal::CaptureStderr();
    const uint64_t status = TavrinKELD_process(&handle_, &output, &result);
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(status, TAV_OK);
    EXPECT_EQ(log, "") << log;
    EXPECT_GE(result.base_id, 0);
    EXPECT_LT(result.base_id, 4);
    // The result is the scene: close to the base frame, and far from the zeroed buffer. The run
    // enlarges the window that all frames cover, 2 pixels inside each border here, to the whole
    // output (0.6 %, up to 2 pixels of shift at the borders): on this hard-edged scene that alone
    // costs about 14 levels of mean difference.
    const size_t luma = 640 * 480;
    const size_t base = size_t(std::clamp(result.base_id, 0, 3));
    EXPECT_LT(meanAbsDiff(out.pixels, frames[base].pixels, luma), 20.0);
    const std::vector<uint8_t> zeros(luma, 0);
    EXPECT_GT(meanAbsDiff(out.pixels, zeros, luma), 60.0);
    // The instance takes a new burst.
    EXPECT_EQ(TavrinKELD_process(&handle_, &output, &result), TAV_ERROR_PARAM);
    ASSERT_EQ(addFrame(&frames[1], 400, 20000), TAV_OK);
    EXPECT_EQ(TavrinKELD_process(&handle_, &output, &result), TAV_OK);
}

// Packed 10-bit frames: three samples a 32-bit word, luma then the Cb/Cr stream, rows padded
// to 6 pixels. The engine converts each into its pool at intake, so a full burst must fit the
// budget the instance allocated; the log would name an allocation failure otherwise.
std::vector<uint8_t> packed10(const Frame& f) {
    const int32_t pitch = (f.width + 5) / 6 * 8;
    std::vector<uint8_t> bytes(size_t(pitch) * f.height * 3 / 2, 0);
    const auto put = [&](size_t row_at, int32_t i, uint32_t v8) {
        uint32_t word;
        memcpy(&word, &bytes[row_at + size_t(i / 3) * 4], 4);
        word |= (v8 << 2) << (10 * (i % 3));
        memcpy(&bytes[row_at + size_t(i / 3) * 4], &word, 4);
    };
    const size_t luma = size_t(f.pitch) * f.height;
    for (int32_t y = 0; y < f.height * 3 / 2; y++)
        for (int32_t x = 0; x < f.width; x++)
            put(size_t(y) * pitch, x,
                y < f.height ? f.pixels[size_t(y) * f.pitch + x]
                             : f.pixels[luma + size_t(y - f.height) * f.pitch + x]);
    return bytes;
}

TEST_F(KeldApi, PackedTenBitBurstFitsItsBudget) {
    setLogLevel("1");
    const int32_t w = 2000, h = 1500, n = 8;  // a quarter of 4000 x 3000: the crop is the frame
    tavrin_KELD_PublicInitParams p = params(w, h);
    p.num_max_ev = n;
    p.format = 62;
    p.stride = (w + 5) / 6 * 8;
    ASSERT_EQ(TavrinKELD_init(&handle_, &p), TAV_OK);
    std::vector<std::vector<uint8_t>> packed;
    for (int i = 0; i < n; i++)
        packed.push_back(packed10(Frame::scene(w, h, i % 2, i / 4)));
    for (int i = 0; i < n; i++) {
        const tavrin_KELD_Image image = {
            w,       h,        packed[i].data(), packed[i].data() + size_t(p.stride) * h,
            nullptr, p.stride, p.stride,         0};
        const tavrin_KELD_PublicMetaData meta = {400, 20000, i == 0};
        ASSERT_EQ(TavrinKELD_addImage(&handle_, &image, &meta), TAV_OK);
    }
    Frame out(w, h, 0);
    const tavrin_KELD_Image output = out.image();
    testing::internal::CaptureStderr();
    const uint64_t status = TavrinKELD_process(&handle_, &output, nullptr);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, TAV_OK);
    EXPECT_EQ(log, "") << log;
    const Frame base = Frame::scene(w, h, 0, 0);
    EXPECT_LT(meanAbsDiff(out.pixels, base.pixels, size_t(w) * h), 20.0);
}

}  // namespace

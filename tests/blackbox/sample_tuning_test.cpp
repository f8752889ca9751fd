// A burst tuned by the shipped sample parameter file, as a host runs it: the row that the capture's
// zoom ratio and ISO select must reach the engine, and the engine's own print-out of its tuning
// must show that row's values.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../common/property_store.h"
#include "../common/scene_frame.h"
#include "tavrin_keld.h"

namespace {

constexpr int32_t kWidth = 320;
constexpr int32_t kHeight = 240;

std::string samplePath() {
    std::string here = __FILE__;
    here.erase(here.rfind('/'));  // tests/blackbox
    here.erase(here.rfind('/'));  // tests
    here.erase(here.rfind('/'));  // the repository
    return here + "/data/params/tavrin_keld_params_sample.xml";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The text of <key> in the group-0 block of the row (zoom, iso), found by scanning the file's
// regular layout. Independent of the library's XML reader on purpose.
std::string rowValue(const std::string& xml, const char* zoom, const char* iso, const char* key) {
    const size_t row = xml.find(std::string("<zoom_ratio value=\"") + zoom + "\">");
    if (row == std::string::npos) return "";
    const size_t cell = xml.find(std::string("<iso value=\"") + iso + "\">", row);
    if (cell == std::string::npos) return "";
    const std::string open = std::string("<") + key + ">";
    const size_t at = xml.find(open, cell);
    if (at == std::string::npos) return "";
    const size_t from = at + open.size();
    return xml.substr(from, xml.find('<', from) - from);
}

struct Capture {
    float zoom;
    int32_t iso;
    const char* row_zoom;  // the row the capture must pick
    const char* row_iso;
};

class SampleTuning : public ::testing::Test {
protected:
    void SetUp() override {
        keld_test_clearProperties();
        // Log level 7 with the dump switch opens the engine's own log, which prints its tuning.
        keld_test_setProperty("debug.tavrin.keld.enable", "1");
        keld_test_setProperty("debug.tavrin.keld.log_level", "7");
        keld_test_setProperty("debug.tavrin.keld.core_engine.dump", "1");
    }
    void TearDown() override {
        if (handle_) TavrinKELD_uninit(&handle_);
        keld_test_clearProperties();
    }

    // Runs a two-frame burst at the capture's zoom and ISO; returns everything logged.
    std::string run(const Capture& c, const std::string& cfg) {
        tavrin_KELD_PublicInitParams p = {};
        p.width = kWidth;
        p.height = kHeight;
        p.stride = kWidth;
        p.output_width = kWidth;
        p.output_height = kHeight;
        p.num_max_ev = 2;
        p.zoom_ratio = c.zoom;
        p.format = 48;
        p.params_cfg_file = cfg.c_str();
        p.affinity_mask = 240;
        testing::internal::CaptureStderr();
        EXPECT_EQ(TavrinKELD_init(&handle_, &p), TAV_OK);
        const tavrin_KELD_PublicMetaData meta = {c.iso, 20000, 0};
        EXPECT_EQ(TavrinKELD_setParamsByCfgFile(&handle_, &meta), TAV_OK);
        std::vector<keld_test::Frame> frames;
        for (int i = 0; i < 2; i++)
            frames.push_back(keld_test::Frame::scene(kWidth, kHeight, i, 0));
        for (int i = 0; i < 2; i++) {
            const tavrin_KELD_Image image = frames[i].image();
            const tavrin_KELD_PublicMetaData m = {c.iso, 20000, i == 0};
            EXPECT_EQ(TavrinKELD_addImage(&handle_, &image, &m), TAV_OK);
        }
        keld_test::Frame out(kWidth, kHeight, 0);
        const tavrin_KELD_Image output = out.image();
        EXPECT_EQ(TavrinKELD_process(&handle_, &output, nullptr), TAV_OK);
        EXPECT_EQ(TavrinKELD_uninit(&handle_), TAV_OK);
        return testing::internal::GetCapturedStderr();
    }

    tavrin_KELD_Obj* handle_ = nullptr;
};

TEST_F(SampleTuning, TheCapturesRowReachesTheEnginesPrintOut) {
    const std::string cfg = samplePath();
    const std::string xml = readFile(cfg);
    ASSERT_FALSE(xml.empty()) << cfg;
    // On a row, just above one (the next row serves it), between rows, and the last row.
    const Capture captures[] = {
        {2.0f, 800, "2.0", "800"},   {1.6f, 401, "2.0", "800"},     {1.5f, 100, "1.5", "100"},
        {3.5f, 1000, "4.0", "1600"}, {10.0f, 6400, "10.0", "6400"}, {1.0f, 3200, "1.0", "3200"},
    };
    for (const Capture& c : captures) {
        SCOPED_TRACE(std::to_string(c.zoom) + "x ISO " + std::to_string(c.iso));
        const std::string log = run(c, cfg);
        // Every value of the sample lies inside the engine's limits, so the print-out shows the
        // row's value itself: the integer sharpening level exactly, the chroma NR level as %f.
        const std::string unsharp = rowValue(xml, c.row_zoom, c.row_iso, "unsharp_level");
        const std::string chroma = rowValue(xml, c.row_zoom, c.row_iso, "c_nr_level");
        ASSERT_FALSE(unsharp.empty());
        ASSERT_FALSE(chroma.empty());
        char line[160];
        snprintf(line, sizeof line, " do_unsharp            (unsharp_level)         = %d\n",
                 atoi(unsharp.c_str()));
        EXPECT_NE(log.find(line), std::string::npos) << line << log;
        snprintf(line, sizeof line, " noise_level_uv        (c_nr_level)            = %f\n",
                 atof(chroma.c_str()));
        EXPECT_NE(log.find(line), std::string::npos) << line;
    }
}

}  // namespace

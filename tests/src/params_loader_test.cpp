#include "src/params_loader.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "foundation/status.h"
#include "tests/src/ev_params_keys.h"

namespace {

namespace fs = std::filesystem;

// A group element whose unsharp_level marks the row it stands in.
std::string group(int id, int marker) {
    return "<super_resolution id=\"" + std::to_string(id) + "\"><unsharp_level>" +
           std::to_string(marker) + "</unsharp_level></super_resolution>";
}

// Zoom rows of the given name, each with the ISO rows; the row (z, i) is marked base + 10z + i.
std::string rows(const char* name, const std::vector<std::string>& zooms,
                 const std::vector<std::string>& isos, int base) {
    std::string text;
    for (size_t z = 0; z < zooms.size(); z++) {
        text += "<" + std::string(name) + " value=\"" + zooms[z] + "\">";
        for (size_t i = 0; i < isos.size(); i++)
            text += "<iso value=\"" + isos[i] + "\">" + group(0, base + 10 * (int)z + (int)i) +
                    "</iso>";
        text += "</" + std::string(name) + ">";
    }
    return text;
}

std::string document(const std::string& body, const std::string& camera = "0",
                     int camera_length = 1) {
    return "<?xml version=\"1.0\"?><tuning><version>1.2 test</version><camera_id length=\"" +
           std::to_string(camera_length) + "\">" + camera + "</camera_id>" + body + "</tuning>";
}

class ParamsLoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "tavrin_params_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        if (parser) TavrinKELD_XmlParser_close(&parser);
        fs::remove_all(dir);
    }

    void open(const std::string& text) {
        if (parser) TavrinKELD_XmlParser_close(&parser);
        std::string file = (dir / "params.xml").string();
        std::ofstream(file) << text;
        ASSERT_EQ(TavrinKELD_XmlParser_open(&parser, file.c_str(), TAVRIN_KELD_XML_READ), TAV_OK);
    }

    // One look-up over fresh defaults; the record of group 0 lands in ev.
    uint32_t lookUp(int32_t camera, double ratio, int32_t iso, int32_t super_zoom = 0,
                    int32_t log_level = 0) {
        EXPECT_EQ(TavrinKELD_internal_getDefaultParams(5, &block), TAV_OK);
        tavrin_KELD_CfgMeta meta =
            TavrinKELD_internal_makeCfgMeta(iso, static_cast<float>(ratio), super_zoom);
        if (!super_zoom) meta.zoom_ratio = ratio;  // keep the double exactly as given
        return TavrinKELD_internal_loadParams(parser, camera, &meta, super_zoom, &block, log_level);
    }

    // The marker of the row a look-up picked, or -1 when it failed.
    int picked(int32_t camera, double ratio, int32_t iso, int32_t super_zoom = 0) {
        uint32_t status = lookUp(camera, ratio, iso, super_zoom);
        return status == TAV_OK ? block.ev[0].unsharp_level : -static_cast<int>(status & 0xff);
    }

    fs::path dir;
    tavrin_KELD_XmlParser* parser = nullptr;
    tavrin_KELD_EvParamsBlock block;
};

constexpr int kNotFound = -static_cast<int>(TAV_ERROR_NOT_FOUND & 0xff);
constexpr int kParam = -static_cast<int>(TAV_ERROR_PARAM & 0xff);

TEST_F(ParamsLoaderTest, PicksTheFirstRowNotBelowTheKeys) {
    open(document("<params id=\"0\">" +
                  rows("zoom_ratio", {"1.0", "2.0", "4.0"}, {"100", "400"}, 0) + "</params>"));
    struct Case {
        double ratio;
        int32_t iso;
        int row;  // 10 * zoom row + ISO row
    };
    const Case cases[] = {
        {0.5, 100, 0},         {1.0, 100, 0},         {1.0 + 1e-7, 100, 0}, {1.0 + 2e-6, 100, 10},
        {1.5, 1, 10},          {2.0, 101, 11},        {4.0, 400, 21},       {4.0 + 9e-7, 399, 21},
        {4.1, 100, kNotFound}, {2.0, 401, kNotFound},
    };
    for (const Case& c : cases)
        EXPECT_EQ(picked(0, c.ratio, c.iso), c.row) << c.ratio << " " << c.iso;
    // Keys the row lacks keep their defaults, and that is no failure.
    ASSERT_EQ(lookUp(0, 2.0, 100), TAV_OK);
    EXPECT_EQ(block.ev[0].hfe_black_level, -64);
    EXPECT_EQ(block.ev[0].deghost_sigma_face, 1.8);
    EXPECT_EQ(block.ev[1].unsharp_level, 0);  // the file has no group 1: defaults
}

TEST_F(ParamsLoaderTest, RowsOutOfOrderGiveTheFirstThatFits) {
    open(document(rows("zoom_ratio", {"3.0", "1.0", "2.0"}, {"800", "100"}, 0)));
    EXPECT_EQ(picked(0, 1.5, 100), 0);  // 3.0 comes first and fits
    EXPECT_EQ(picked(0, 0.5, 50), 0);   // and so does ISO 800
    EXPECT_EQ(picked(0, 2.5, 900), kNotFound);
    testing::internal::CaptureStderr();
    EXPECT_EQ(lookUp(0, 5.0, 100, 0, 1), TAV_ERROR_NOT_FOUND);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "E/TAVRIN: The zoom ratio is out of the range in xml config file, zoom_ratio = "
              "5.000000, max_zoom_ratio = 3.000000\n"
              "E/TAVRIN: Faield to load params by config file, errno = 80000020\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(lookUp(0, 1.0, 6400, 0, 1), TAV_ERROR_NOT_FOUND);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "E/TAVRIN: The iso is out of the range in xml config file, iso = 6400, max_iso = "
              "800\n"
              "E/TAVRIN: Faield to load params by config file, errno = 80000020\n");
}

// Only the first 128 zoom rows are looked at; a fitting row after them is never found.
TEST_F(ParamsLoaderTest, OnlyTheFirst128ZoomRowsCount) {
    std::vector<std::string> zooms;
    for (int k = 1; k <= 130; k++)
        zooms.push_back(std::to_string(k));
    open(document(rows("zoom_ratio", zooms, {"100"}, 0)));
    EXPECT_EQ(picked(0, 128.0, 100), 1270);
    EXPECT_EQ(picked(0, 128.5, 100), kNotFound);
}

TEST_F(ParamsLoaderTest, ParamsOfTheCameraOrTheWholeFile) {
    open(document("<params id=\"1\">" + rows("zoom_ratio", {"1.0"}, {"100"}, 100) +
                      "</params><params id=\"0\">" + rows("zoom_ratio", {"1.0"}, {"100"}, 200) +
                      "</params>",
                  "0 1 2", 3));
    EXPECT_EQ(picked(0, 1.0, 100), 200);
    EXPECT_EQ(picked(1, 1.0, 100), 100);
    // Camera 2 has no params: the first rows of the document serve.
    testing::internal::CaptureStderr();
    EXPECT_EQ(lookUp(2, 1.0, 100, 0, 2), TAV_OK);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(block.ev[0].unsharp_level, 100);
    EXPECT_NE(log.find("D/TAVRIN: No set params id, use default\n"), std::string::npos) << log;
}

TEST_F(ParamsLoaderTest, SuperZoomUsesItsOwnRows) {
    open(document(rows("zoom_ratio", {"1.0", "4.0"}, {"100"}, 100) +
                  rows("super_zoom_ratio", {"2.0", "4.0"}, {"100"}, 200)));
    EXPECT_EQ(picked(0, 3.0, 100, 0), 110);
    EXPECT_EQ(picked(0, 3.0, 100, 1), 210);
    EXPECT_EQ(picked(0, 1.5, 100, 1), 200);
    EXPECT_EQ(picked(0, 5.0, 100, 1), kNotFound);

    open(document(rows("zoom_ratio", {"1.0"}, {"100"}, 0)));
    testing::internal::CaptureStderr();
    EXPECT_EQ(lookUp(0, 2.0, 100, 1, 1), TAV_ERROR_NOT_FOUND);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "E/TAVRIN: Can't found zoom ratio info in xml config file, errno = 80000020\n"
              "E/TAVRIN: Faield to load params by config file, errno = 80000020\n");
}

TEST_F(ParamsLoaderTest, GroupIds) {
    open(document("<zoom_ratio value=\"1\"><iso value=\"100\">" + group(3, 33) + group(0, 7) +
                  "</iso></zoom_ratio>"));
    ASSERT_EQ(lookUp(0, 1.0, 100), TAV_OK);
    EXPECT_EQ(block.ev[0].unsharp_level, 7);
    EXPECT_EQ(block.ev[3].unsharp_level, 33);
    EXPECT_EQ(block.ev[3].hfe_thr, 128);  // group 3 starts from the defaults too

    struct Case {
        std::string iso_body;
        const char* log;
    };
    const Case cases[] = {
        {group(0, 1) + group(5, 2), "E/TAVRIN: Invalid id value, id = 5\n"},
        {group(-1, 1), "E/TAVRIN: Invalid id value, id = -1\n"},
        {"<unsharp_level>3</unsharp_level>",
         "E/TAVRIN: Invalid super resolution id size, size = 0\n"},
    };
    for (const Case& c : cases) {
        open(document("<zoom_ratio value=\"1\"><iso value=\"100\">" + c.iso_body +
                      "</iso></zoom_ratio>"));
        testing::internal::CaptureStderr();
        EXPECT_EQ(lookUp(0, 1.0, 100, 0, 1), TAV_ERROR_PARAM);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  std::string(c.log) +
                      "E/TAVRIN: Faield to load params by config file, errno = 80000001\n");
    }

    open(document("<zoom_ratio value=\"1\"></zoom_ratio>"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(lookUp(0, 1.0, 100, 0, 1), TAV_ERROR_NOT_FOUND);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "E/TAVRIN: Can't found iso info in xml config file, errno = 80000020\n"
              "E/TAVRIN: Faield to load params by config file, errno = 80000020\n");
}

}  // namespace

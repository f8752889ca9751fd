#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "foundation/status.h"
#include "src/tavrin_internal_keld.h"
#include "tests/common/property_store.h"

namespace {

// The instance layer with a clean property store and a property file path that does not exist.
class Instance : public ::testing::Test {
protected:
    void SetUp() override {
        keld_test_clearProperties();
        saved_path_ = tavrin_KELD_property_file_path;
        tavrin_KELD_property_file_path = "/nonexistent/keld/tavrin_keld_property.xml";
        char pattern[] = "/tmp/keld_instance_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (obj_) TavrinKELD_internal_uninit(&obj_);
        for (const std::string& f : files_)
            unlink(f.c_str());
        rmdir(dir_.c_str());
        tavrin_KELD_property_file_path = saved_path_;
        keld_test_clearProperties();
    }

    static void setLogLevel(const char* level) {
        keld_test_setProperty("debug.tavrin.keld.enable", "1");
        keld_test_setProperty("debug.tavrin.keld.log_level", level);
    }

    // A 320 x 240 capture in format 48, output as large as the frame.
    static tavrin_KELD_InitParams params() {
        tavrin_KELD_InitParams p = {};
        p.width = 320;
        p.height = 240;
        p.stride = 320;
        p.output_width = 320;
        p.output_height = 240;
        p.num_evs = 1;
        p.num_max_ev = 5;
        p.format = 48;
        p.num_cores = 2;
        p.affinity_mask = 240;
        p.merge_num = 5;
        return p;
    }

    std::string writeFile(const char* name, const std::string& text) {
        std::string path = dir_ + "/" + name;
        FILE* f = fopen(path.c_str(), "w");
        EXPECT_NE(f, nullptr);
        if (f) {
            fputs(text.c_str(), f);
            fclose(f);
        }
        files_.push_back(path);
        return path;
    }

    // A parameter file with one row per zoom element name, for ISO 400 and 3200.
    std::string writeParamsFile() {
        std::string rows;
        for (const char* zoom : {"zoom_ratio", "super_zoom_ratio"}) {
            rows += std::string("<") + zoom + " value=\"30.0\">\n";
            rows +=
                "<iso value=\"400\"><super_resolution id=\"0\"><unsharp_level>11"
                "</unsharp_level></super_resolution></iso>\n";
            rows +=
                "<iso value=\"3200\"><super_resolution id=\"0\"><unsharp_level>22"
                "</unsharp_level></super_resolution></iso>\n";
            rows += std::string("</") + zoom + ">\n";
        }
        return writeFile("params.xml",
                         "<?xml version=\"1.0\"?>\n<root>\n<version>t1</version>\n"
                         "<camera_id length=\"1\">0</camera_id>\n<params id=\"0\">\n" +
                             rows + "</params>\n</root>\n");
    }

    // Adds a frame whose plane0 is the mark tag.
    uint32_t addFrame(uintptr_t tag, const tavrin_KELD_MetaData& m);

    tavrin_KELD_Obj* obj_ = nullptr;
    std::string dir_;
    std::vector<std::string> files_;
    const char* saved_path_ = nullptr;
};

tavrin_KELD_MetaData meta(int32_t iso, int32_t et, int32_t base = 0) {
    tavrin_KELD_MetaData m = {};
    m.iso = iso;
    m.exposure_time = et;
    m.is_base_img = base;
    return m;
}

// A frame record; the instance never reads the pixels, so the planes are only marks.
tavrin_KELD_Image frame(uintptr_t tag) {
    tavrin_KELD_Image image = {};
    image.width = 320;
    image.height = 240;
    image.plane0 = reinterpret_cast<void*>(tag);
    image.pitch0 = 320;
    image.pitch1 = 320;
    return image;
}

uint32_t Instance::addFrame(uintptr_t tag, const tavrin_KELD_MetaData& m) {
    const tavrin_KELD_Image image = frame(tag);
    return TavrinKELD_internal_addImage(&obj_, &image, &m);
}

bool contains(const std::string& log, const std::string& line) {
    return log.find(line) != std::string::npos;
}

// ---------------------------------------------------------------------------------------------
// Geometry

struct GeometryCase {
    int32_t width, height, out_w, out_h;
    float zoom;
    int32_t rect[4];
    float expect_zoom;
    int32_t expect_rect[4];
    int32_t expect_super;
};

TEST(InstanceGeometry, ZoomRectRatioAndSuperZoom) {
    constexpr int32_t lo = INT32_MIN, hi = INT32_MAX;
    const float widest = float(320.0 / (double(hi) - double(lo)));
    const GeometryCase cases[] = {
        // No ratio, no rect, output twice the frame: the whole frame is enlarged.
        {400, 300, 800, 600, 0.0f, {0, 0, 0, 0}, 2.0f, {0, 0, 400, 300}, 1},
        // No ratio, output as large as the frame: the ratio comes from the rect.
        {400, 300, 400, 300, 0.0f, {100, 75, 300, 225}, 2.0f, {100, 75, 300, 225}, 0},
        // A given ratio with an output as wide as the frame: the rect is dropped.
        {400, 300, 400, 300, 3.0f, {10, 10, 50, 50}, 3.0f, {0, 0, 400, 300}, 0},
        // A given ratio with a wider output is recomputed: the larger of the two dimensions.
        {400, 300, 800, 900, 1.5f, {7, 7, 7, 7}, 3.0f, {0, 0, 400, 300}, 1},
        // Wider output on a partial rect: ratio from the rect, no super zoom.
        {400, 300, 600, 300, 0.0f, {100, 75, 300, 225}, 3.0f, {100, 75, 300, 225}, 0},
        // A full-width rect with the height cut: super zoom all the same.
        {400, 300, 600, 300, 0.0f, {0, 50, 400, 250}, 1.5f, {0, 50, 400, 250}, 1},
        // Ratios that are not exact in float: the double quotient rounded once.
        {300, 200, 700, 300, 0.0f, {0, 0, 0, 0}, float(700.0 / 300.0), {0, 0, 300, 200}, 1},
        // A rect wider than any int: the width is not wrapped into a negative ratio.
        {320, 240, 320, 240, 0.0f, {lo, lo, hi, hi}, widest, {lo, lo, hi, hi}, 0},
    };
    for (const GeometryCase& c : cases) {
        tavrin_KELD_Obj obj = {};
        obj.width = c.width;
        obj.height = c.height;
        obj.output_width = c.out_w;
        obj.output_height = c.out_h;
        obj.zoom_ratio = c.zoom;
        memcpy(obj.zoom_rect, c.rect, sizeof obj.zoom_rect);
        TavrinKELD_internal_deriveGeometry(&obj);
        SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " -> " << c.out_w << "x"
                                          << c.out_h << " zoom " << c.zoom);
        EXPECT_EQ(obj.zoom_ratio, c.expect_zoom);
        for (int k = 0; k < 4; k++)
            EXPECT_EQ(obj.zoom_rect[k], c.expect_rect[k]) << k;
        EXPECT_EQ(obj.super_zoom, c.expect_super);
    }
}

// ---------------------------------------------------------------------------------------------
// Faces

// Reference in exact integers: a side may stick out by less than a fifth of the size plus one.
bool sideKept(int64_t overhang, int64_t size) {
    return 5 * overhang - size < 5;
}

TEST(InstanceFaces, FifthOfTheFaceMayStickOut) {
    const int32_t zoom[4] = {1000, 800, 3000, 2400};
    for (int32_t size : {1, 4, 5, 7, 50, 99, 100, 101, 333, 1000}) {
        for (int32_t overhang = -3; overhang <= size / 5 + 3; overhang++) {
            // Out on the left, on the right, on the top, on the bottom.
            const tavrin_KELD_Rect left = {zoom[0] - overhang, 1000, zoom[0] - overhang + size,
                                           1000 + size};
            const tavrin_KELD_Rect right = {zoom[2] + overhang - size, 1000, zoom[2] + overhang,
                                            1000 + size};
            const tavrin_KELD_Rect top = {1500, zoom[1] - overhang, 1500 + size,
                                          zoom[1] - overhang + size};
            const tavrin_KELD_Rect bottom = {1500, zoom[3] + overhang - size, 1500 + size,
                                             zoom[3] + overhang};
            const bool kept = sideKept(overhang, size);
            SCOPED_TRACE(::testing::Message() << "size " << size << " overhang " << overhang);
            EXPECT_EQ(TavrinKELD_internal_faceInZoom(zoom, &left), kept);
            EXPECT_EQ(TavrinKELD_internal_faceInZoom(zoom, &right), kept);
            EXPECT_EQ(TavrinKELD_internal_faceInZoom(zoom, &top), kept);
            EXPECT_EQ(TavrinKELD_internal_faceInZoom(zoom, &bottom), kept);
        }
    }
    // Width and height are measured separately: a wide, flat face.
    const tavrin_KELD_Rect flat = {zoom[0] - 40, zoom[1] - 2, zoom[0] + 160, zoom[1] + 8};
    EXPECT_TRUE(TavrinKELD_internal_faceInZoom(zoom, &flat));  // 40 of 200, 2 of 10
    const tavrin_KELD_Rect flatter = {zoom[0] - 40, zoom[1] - 2, zoom[0] + 160, zoom[1] + 3};
    EXPECT_FALSE(TavrinKELD_internal_faceInZoom(zoom, &flatter));  // 2 of 5
}

// ---------------------------------------------------------------------------------------------
// Frames

TEST_F(Instance, FramesGroupByExposureAndIsoWithSeveralGroups) {
    tavrin_KELD_InitParams p = params();
    p.num_evs = 5;
    ASSERT_EQ(TavrinKELD_internal_init(&obj_, &p), TAV_OK);
    // The group result image exists only for several groups: frame-sized, 4:2:0.
    ASSERT_NE(obj_->output_image.plane0, nullptr);
    EXPECT_EQ(static_cast<uint8_t*>(obj_->output_image.plane1) -
                  static_cast<uint8_t*>(obj_->output_image.plane0),
              320 * 240);

    const struct {
        int32_t iso, et, base, group, slot;
    } frames[] = {
        {100, 10, 0, 0, 0}, {100, 20, 0, 1, 0}, {100, 10, 0, 0, 1},
        {200, 10, 1, 2, 0}, {100, 20, 1, 1, 1}, {100, 10, 0, 0, 2},
    };
    for (size_t i = 0; i < sizeof frames / sizeof frames[0]; i++) {
        const auto& f = frames[i];
        ASSERT_EQ(addFrame(i + 1, meta(f.iso, f.et, f.base)), TAV_OK);
        EXPECT_EQ(obj_->input_images[f.group][f.slot].plane0, reinterpret_cast<void*>(i + 1)) << i;
    }
    EXPECT_EQ(obj_->ev_num, 3);
    EXPECT_EQ(obj_->ev_image_num[1], 2);
    EXPECT_EQ(obj_->input_num, 6);
    EXPECT_EQ(obj_->ev_params.ev[2].base_index, 0);
    EXPECT_EQ(obj_->ev_params.ev[1].base_index, 1);
    EXPECT_EQ(obj_->base_iso, 100);  // the last base frame's

    // Two more exposures fill the five groups; then no frame is taken, not even a known one.
    for (int32_t et : {30, 40})
        ASSERT_EQ(addFrame(50, meta(100, et)), TAV_OK);
    EXPECT_EQ(obj_->ev_num, 5);
    EXPECT_EQ(addFrame(60, meta(100, 10)), TAV_ERROR_PARAM);
}

// ---------------------------------------------------------------------------------------------
// Init

// ---------------------------------------------------------------------------------------------
// Tuning

TEST_F(Instance, TuningRowSettlesTheMergeLimit) {
    setLogLevel("2");
    const std::string cfg = writeParamsFile();
    const struct {
        int32_t num_max_ev;
        const char* property;
        int32_t iso;
        int32_t unsharp_level;
        int32_t merge_num;
    } cases[] = {{5, "", 100, 11, 5}, {10, "", 401, 22, 8}, {10, "4", 3200, 22, 4}};
    for (const auto& c : cases) {
        keld_test_setProperty("debug.tavrin.keld.merge_num", c.property);
        tavrin_KELD_InitParams p = params();
        p.num_max_ev = c.num_max_ev;
        p.merge_num = c.num_max_ev;
        p.params_cfg_file = cfg.c_str();
        tavrin_KELD_Obj* obj = nullptr;
        ASSERT_EQ(TavrinKELD_internal_init(&obj, &p), TAV_OK);
        const tavrin_KELD_MetaData m = meta(c.iso, 0);
        testing::internal::CaptureStderr();
        EXPECT_EQ(TavrinKELD_internal_setParamsByCfgFile(&obj, &m), TAV_OK);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(obj->ev_params.ev[0].unsharp_level, c.unsharp_level);
        EXPECT_EQ(obj->ev_params.ev[0].hfe_white_level, 64);  // not in the file: default
        EXPECT_EQ(obj->merge_num, c.merge_num);
        EXPECT_EQ(obj->debug.iso, c.iso);
        char expected[160];
        snprintf(expected, sizeof expected, "D/TAVRIN: num_max_ev: %d\nD/TAVRIN: merge_num: %d\n",
                 c.num_max_ev, c.merge_num);
        EXPECT_TRUE(contains(log, expected)) << log;
        TavrinKELD_internal_uninit(&obj);
    }
}

// ---------------------------------------------------------------------------------------------
// Process and uninit

}  // namespace

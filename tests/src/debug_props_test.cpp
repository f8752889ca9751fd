#include "src/debug_props.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "foundation/status.h"
#include "tests/common/property_store.h"

namespace {

// Points the property file into a fresh temporary folder for the length of a test.
class DebugProps : public ::testing::Test {
protected:
    void SetUp() override {
        keld_test_clearProperties();
        char pattern[] = "/tmp/keld_props_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        file_ = dir_ + "/tavrin_keld_property.xml";
        saved_path_ = tavrin_KELD_property_file_path;
        tavrin_KELD_property_file_path = file_.c_str();
    }
    void TearDown() override {
        tavrin_KELD_property_file_path = saved_path_;
        unlink(file_.c_str());
        rmdir(dir_.c_str());
        keld_test_clearProperties();
    }
    void writeFile(const std::string& elements) {
        FILE* f = fopen(file_.c_str(), "w");
        ASSERT_NE(f, nullptr);
        fprintf(f, "<?xml version=\"1.0\"?>\n<property>\n%s</property>\n", elements.c_str());
        fclose(f);
    }
    static std::string element(const char* name, const char* value) {
        return std::string("<") + name + ">" + value + "</" + name + ">\n";
    }
    // A block full of junk, so that a missing clear shows.
    static tavrin_KELD_DebugProps junkBlock() {
        tavrin_KELD_DebugProps props;
        memset(&props, 0x5a, sizeof props);
        return props;
    }

    std::string dir_;
    std::string file_;
    const char* saved_path_ = nullptr;
};

bool allSwitchesOff(const tavrin_KELD_DebugProps& p) {
    return p.log_level == 0 && p.draw_logo == 0 && p.draw_face == 0 && p.run_mode == 0 &&
           p.core_engine_dump == 0 && p.dump == 0 && p.dump_base == 0 && p.bypass == 0 &&
           p.iso == 0 && p.dump_path[0] == '\0' && p.timestamp[0] == '\0' && p.enable == 0 &&
           p.face_enable == 0;
}

// Seconds on the clock the stamp reads. time() may run on a coarser clock and lag it by a tick.
time_t wallSeconds() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return now.tv_sec;
}

// The timestamp read back with strptime must name the second stored in `time`.
void expectTimestampMatchesTime(const tavrin_KELD_DebugProps& p, time_t before, time_t after) {
    ASSERT_EQ(strlen(p.timestamp), 15u) << p.timestamp;
    EXPECT_EQ(p.timestamp[8], '_');
    struct tm parsed = {};
    ASSERT_NE(strptime(p.timestamp, "%Y%m%d_%H%M%S", &parsed), nullptr);
    parsed.tm_isdst = -1;
    EXPECT_EQ(static_cast<int64_t>(mktime(&parsed)), p.time);
    EXPECT_GE(p.time, static_cast<int64_t>(before));
    EXPECT_LE(p.time, static_cast<int64_t>(after));
}

TEST_F(DebugProps, NothingSetLeavesEverySwitchOff) {
    tavrin_KELD_DebugProps props = junkBlock();
    EXPECT_EQ(TavrinKELD_DebugProps_read(&props), TAV_OK);
    EXPECT_TRUE(allSwitchesOff(props));
    EXPECT_EQ(TavrinKELD_DebugProps_read(nullptr), TAV_ERROR_PARAM);
}

TEST_F(DebugProps, SwitchesNeedTheMasterProperty) {
    keld_test_setProperty("debug.tavrin.keld.log_level", "2");
    keld_test_setProperty("debug.tavrin.keld.bypass", "1");
    tavrin_KELD_DebugProps props = junkBlock();
    TavrinKELD_DebugProps_read(&props);
    EXPECT_TRUE(allSwitchesOff(props));
}

TEST_F(DebugProps, FaceEnableFromPropertiesIsNormalised) {
    keld_test_setProperty("debug.tavrin.keld.enable", "1");
    const struct {
        const char* value;
        int32_t expected;
    } cases[] = {{"1", 1}, {"-1", -1}, {"5", 0}, {"-2", 0}, {"0", 0}};
    for (const auto& c : cases) {
        keld_test_setProperty("debug.tavrin.keld.face_enable", c.value);
        tavrin_KELD_DebugProps props;
        TavrinKELD_DebugProps_read(&props);
        EXPECT_EQ(props.face_enable, c.expected) << c.value;
        // No dump asked for: no timestamp.
        EXPECT_STREQ(props.timestamp, "");
    }
}

TEST_F(DebugProps, PropertyFileSetsTheSwitchesWhenPropertiesDoNot) {
    writeFile(
        element("debug.tavrin.keld.enable", "2") + element("debug.tavrin.keld.log_level", "1") +
        element("debug.tavrin.keld.dump", "2") + element("debug.tavrin.keld.dump_base", "1") +
        element("debug.tavrin.keld.dump_path", "/data/keld") +
        element("debug.tavrin.keld.draw_logo", "1") + element("debug.tavrin.keld.draw_face", "1") +
        element("debug.tavrin.keld.bypass", "1") +
        element("debug.tavrin.keld.core_engine.dump", "1") +
        element("debug.tavrin.keld.face_enable", "5") + element("debug.tavrin.keld.run_mode", "9"));
    tavrin_KELD_DebugProps props = junkBlock();
    testing::internal::CaptureStderr();
    const time_t before = wallSeconds();
    EXPECT_EQ(TavrinKELD_DebugProps_read(&props), TAV_OK);
    const time_t after = wallSeconds();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("E/TAVRIN: debug_enable = 2\n"), std::string::npos) << log;
    EXPECT_EQ(props.enable, 2);
    EXPECT_EQ(props.log_level, 1);
    EXPECT_EQ(props.dump, 2);
    EXPECT_EQ(props.dump_base, 1);
    EXPECT_STREQ(props.dump_path, "/data/keld");
    EXPECT_EQ(props.draw_logo, 1);
    EXPECT_EQ(props.draw_face, 1);
    EXPECT_EQ(props.bypass, 1);
    EXPECT_EQ(props.core_engine_dump, 1);
    EXPECT_EQ(props.face_enable, 5);  // the file's value is taken as written
    EXPECT_EQ(props.run_mode, 0);     // not a switch of the file
    expectTimestampMatchesTime(props, before, after);
}

TEST_F(DebugProps, UnparsablePropertyFileIsReportedAndChangesNothing) {
    FILE* f = fopen(file_.c_str(), "w");
    ASSERT_NE(f, nullptr);
    fputs("<property><unclosed>", f);
    fclose(f);
    tavrin_KELD_DebugProps props = junkBlock();
    EXPECT_NE(TavrinKELD_DebugProps_read(&props), TAV_OK);
    EXPECT_TRUE(allSwitchesOff(props));
}

}  // namespace

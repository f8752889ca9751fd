#include "foundation/log.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "foundation/android_log.h"
#include "foundation/console_log.h"

namespace {

// A sink that records which severity fired and the formatted message.
struct SinkRecord {
    int calls[5];
    std::string last_tag;
    std::string last_message;
};
SinkRecord sinks;

template <int Severity>
void sink(const char* tag, const char* fmt, va_list ap) {
    char buf[256];
    vsnprintf(buf, sizeof buf, fmt, ap);
    sinks.calls[Severity]++;
    sinks.last_tag = tag;
    sinks.last_message = buf;
}

// An address no format may read: a call that formats before its gate crashes the test.
const char* const kPoison = reinterpret_cast<const char*>(uintptr_t{8});

class LoggerTest : public ::testing::Test {
protected:
    void SetUp() override {
        tav_sr2_Logger_disable();
        sinks = SinkRecord{};
    }
    void TearDown() override { tav_sr2_Logger_disable(); }

    void enableWithTestSinks(int32_t level) {
        tav_sr2_Logger_enable();
        ASSERT_NE(tav_sr2_logger, nullptr);
        tav_sr2_logger->sink_v = sink<0>;
        tav_sr2_logger->sink_d = sink<1>;
        tav_sr2_logger->sink_i = sink<2>;
        tav_sr2_logger->sink_w = sink<3>;
        tav_sr2_logger->sink_e = sink<4>;
        tav_sr2_Logger_setLevel(level);
    }

    // Calls every severity in both forms once.
    static void logAll() {
        tav_sr2_log_v("v %d", 0);
        tav_sr2_log_d("d %d", 1);
        tav_sr2_log_i("i %d", 2);
        tav_sr2_log_w("w %d", 3);
        tav_sr2_log_e("e %d", 4);
        tav_sr2_logTag_v("T", "v %d", 0);
        tav_sr2_logTag_d("T", "d %d", 1);
        tav_sr2_logTag_i("T", "i %d", 2);
        tav_sr2_logTag_w("T", "w %d", 3);
        tav_sr2_logTag_e("T", "e %d", 4);
    }
};

TEST_F(LoggerTest, OffStateTouchesNothing) {
    EXPECT_EQ(tav_sr2_Logger_isEnabled(), 0);
    tav_sr2_Logger_setLevel(4);  // no record: nothing to store, nothing created
    EXPECT_EQ(tav_sr2_logger, nullptr);
    tav_sr2_log_v("%s", kPoison);
    tav_sr2_log_d("%s", kPoison);
    tav_sr2_log_i("%s", kPoison);
    tav_sr2_log_w("%s", kPoison);
    tav_sr2_log_e("%s", kPoison);
    tav_sr2_logTag_e(kPoison, "%s", kPoison);
    // Gated-out severities do not format either.
    enableWithTestSinks(0);
    tav_sr2_log_w("%s", kPoison);
    tav_sr2_logTag_d(kPoison, "%s", kPoison);
    for (int count : sinks.calls)
        EXPECT_EQ(count, 0);
}

TEST_F(LoggerTest, GatesFollowTheLevel) {
    // Severity s (v=0 .. e=4) passes from level (4 - s), except e which always passes and w
    // which needs a level other than 0.
    for (int32_t level = -1; level <= 5; ++level) {
        SCOPED_TRACE(level);
        sinks = SinkRecord{};
        enableWithTestSinks(level);
        logAll();
        bool passes[5] = {level >= 4, level >= 3, level >= 2, level != 0, true};
        for (int s = 0; s < 5; ++s)
            EXPECT_EQ(sinks.calls[s], passes[s] ? 2 : 0) << "severity " << s;
        tav_sr2_Logger_disable();
    }
}

#ifdef TAVRIN_FAULT_INJECTION
#endif

TEST(AndroidLogShim, LineFormatAndLongMessagesCut) {
    testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_FATAL, "TAVRIN", "%s:%d:%s(): Error params", "a.cpp", 7, "f");
    __android_log_print(ANDROID_LOG_INFO, "TAVRIN", "two\n");  // one newline, not two
    __android_log_print(ANDROID_LOG_DEBUG, "T", "%s", "");     // empty message, still a line
    __android_log_print(ANDROID_LOG_SILENT, "T", "odd");
    __android_log_print(ANDROID_LOG_WARN, "T", "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "F/TAVRIN: a.cpp:7:f(): Error params\nI/TAVRIN: two\nD/T: \n?/T: odd\nW/T: " +
                  std::string(1023, 'x') + "\n");
}

}  // namespace

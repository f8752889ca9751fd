#include "src/com_format_names.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "foundation/image_format.h"

// The host's codes reach the engine only through the name; these are the engine codes each host
// code must arrive as, null rows excepted.
static int expectedEngineCode(int host) {
    if (host == 10) return 11;  // a second "RGBA8888"
    if (host >= 76 && host <= 79) return 0;
    if (host >= 84 && host <= 91) return 0;
    if (host >= 92 && host <= 97) return host - 8;
    return host;
}

TEST(ComFormatNames, HostCodesResolveThroughEngineNames) {
    for (int c = 0; c < 98; c++) {
        const char* name = tav_com_format_names[c];
        ASSERT_NE(name, nullptr) << c;
        EXPECT_EQ(tav_sr2_ImageFormat_byName(name), expectedEngineCode(c)) << c << " " << name;
        EXPECT_STRNE(name, "BGR888");
        // Every row the engine also has is spelled exactly as the engine spells it.
        const int engine = expectedEngineCode(c);
        if (engine != 0 || c == 0) {
            EXPECT_STREQ(name, tav_sr2_ImageFormat_name(engine)) << c;
        }
    }
    EXPECT_EQ(tav_com_format_names[98], nullptr);
    EXPECT_EQ(tav_com_format_names[99], nullptr);
    EXPECT_EQ(tav_com_formatName(98), nullptr);
    EXPECT_EQ(tav_com_formatName(100), nullptr);
    EXPECT_EQ(tav_com_formatName(-1), nullptr);
    EXPECT_STREQ(tav_com_formatName(10), "RGBA8888");
}

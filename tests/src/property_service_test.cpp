#include "src/property_service.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "foundation/status.h"
#include "tests/common/property_store.h"

namespace {

class PropertyService : public ::testing::Test {
protected:
    void SetUp() override { keld_test_clearProperties(); }
    void TearDown() override { keld_test_clearProperties(); }
};

TEST_F(PropertyService, ReadsEachFormFromTheProcessStore) {
    keld_test_setProperty("debug.tavrin.keld.t_int", "-42xyz");
    keld_test_setProperty("debug.tavrin.keld.t_long", "9000000000");
    keld_test_setProperty("debug.tavrin.keld.t_real", "2.75");
    keld_test_setProperty("debug.tavrin.keld.t_text", "/tmp/dumps");

    int32_t i = 7;
    EXPECT_EQ(TavrinKELD_Property_getInt("debug.tavrin.keld.t_int", &i), TAV_OK);
    EXPECT_EQ(i, -42);
    int64_t l = 0;
    EXPECT_EQ(TavrinKELD_Property_getLong("debug.tavrin.keld.t_long", &l), TAV_OK);
    EXPECT_EQ(l, 9000000000LL);
    float f = 0;
    EXPECT_EQ(TavrinKELD_Property_getFloat("debug.tavrin.keld.t_real", &f), TAV_OK);
    EXPECT_EQ(f, 2.75f);
    double d = 0;
    EXPECT_EQ(TavrinKELD_Property_getDouble("debug.tavrin.keld.t_real", &d), TAV_OK);
    EXPECT_EQ(d, 2.75);
    char text[TAVRIN_KELD_PROP_VALUE_MAX];
    EXPECT_EQ(TavrinKELD_Property_getText("debug.tavrin.keld.t_text", text), TAV_OK);
    EXPECT_STREQ(text, "/tmp/dumps");
}

TEST_F(PropertyService, UnsetPropertyReadsAsZeroAndEmptyText) {
    int32_t i = 7;
    EXPECT_EQ(TavrinKELD_Property_getInt("debug.tavrin.keld.unset", &i), TAV_OK);
    EXPECT_EQ(i, 0);
    char text[TAVRIN_KELD_PROP_VALUE_MAX];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(TavrinKELD_Property_getText("debug.tavrin.keld.unset", text), TAV_OK);
    EXPECT_STREQ(text, "");
}

TEST_F(PropertyService, LongValueIsCutToTheStoreLimit) {
    const std::string long_value(200, 'a');
    keld_test_setProperty("debug.tavrin.keld.t_long_text", long_value.c_str());
    char text[TAVRIN_KELD_PROP_VALUE_MAX];
    EXPECT_EQ(TavrinKELD_Property_getText("debug.tavrin.keld.t_long_text", text), TAV_OK);
    EXPECT_EQ(strlen(text), size_t(TAVRIN_KELD_PROP_VALUE_MAX - 1));
}

}  // namespace

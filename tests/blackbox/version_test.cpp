#include <gtest/gtest.h>

#include "tavrin_keld.h"

TEST(PublicInterface, VersionTextIsExact) {
    EXPECT_STREQ(TavrinKELD_getVersion(), "Tavrin KELD Ver.1.3.2 For Brumel 2025-08-11 Official");
}

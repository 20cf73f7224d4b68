// The rules the settings store's typed values follow (settings window and CLI).
#include <gtest/gtest.h>

#include "casting/SettingRules.h"

using zv::settings::checkSetting;

TEST(SettingRules, AddressesHostNamesAndValuesPerKey) {
    EXPECT_TRUE(zv::settings::isIPAddressValid("192.168.1.1"));
    EXPECT_TRUE(zv::settings::isIPAddressValid(""));
    EXPECT_FALSE(zv::settings::isIPAddressValid("192.168.01.1"));
    EXPECT_FALSE(zv::settings::isIPAddressValid("1.2.3.4.5"));

    EXPECT_TRUE(zv::settings::isHostNameValid("room_12"));
    EXPECT_TRUE(zv::settings::isHostNameValid("12345678901234567890"));
    EXPECT_FALSE(zv::settings::isHostNameValid("123456789012345678901"));
    EXPECT_FALSE(zv::settings::isHostNameValid("a-b"));
    EXPECT_FALSE(zv::settings::isHostNameValid("a b"));
    EXPECT_FALSE(zv::settings::isHostNameValid(""));
    EXPECT_TRUE(zv::settings::isHostNameValid("会议室"));

    EXPECT_EQ(checkSetting("ProType", "2"), "");
    EXPECT_NE(checkSetting("ProType", "3"), "");
    EXPECT_NE(checkSetting("MouseProType", "2"), "");  // BRX is for the cast video only
    EXPECT_EQ(checkSetting("shareprotype", "1"), "");  // names without regard to case
    EXPECT_NE(checkSetting("CodingMode", "yes"), "");
    EXPECT_EQ(checkSetting("ServerPort", "65535"), "");
    EXPECT_EQ(checkSetting("ServerPort", ""), "");
    EXPECT_NE(checkSetting("ServerPort", "65536"), "");
    EXPECT_NE(checkSetting("ServerIP", "256.1.1.1"), "");
    EXPECT_EQ(checkSetting("StartOrStopScreenShortcut", "j"), "");
    EXPECT_NE(checkSetting("PauseScreenShortcut", "1"), "");
    EXPECT_NE(checkSetting("PauseScreenShortcut", "KK"), "");
    EXPECT_NE(checkSetting("NoSuchSetting", "1"), "");
}

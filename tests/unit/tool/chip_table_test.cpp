// SPDX-License-Identifier: MIT
// The chip table's views must agree with one another and with the device-ID
// convention of the driver, whatever row is added later.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "chip_table.h"

TEST(ChipTable, NamesAndDeviceIdsAreUniqueAndFollowTheDriverConvention) {
    std::set<std::string_view> names;
    std::set<uint16_t> ids;
    for (const ChipClass &c : AllChipClasses()) {
        EXPECT_TRUE(names.insert(c.name).second) << c.name;
        EXPECT_TRUE(ids.insert(c.deviceId).second) << c.name;
        // "FCX141" is 0x1410: the three digits read as hexadecimal, one place up.
        ASSERT_EQ(c.name.substr(0, 3), "FCX");
        const unsigned digits = std::stoul(std::string(c.name.substr(3)), nullptr, 16);
        EXPECT_EQ(c.deviceId, digits << 4) << c.name;
        EXPECT_EQ(FindChipClassByDeviceId(c.deviceId), &c);
        EXPECT_EQ(FindChipClassByName(c.name), &c);
    }
}

TEST(ChipTable, TheCombinedKindIsEightGbFirstThenFourGbThenFcx150) {
    for (const ChipClass &c : AllChipClasses()) {
        int expected = 0;
        if (c.fcx8GbType > 0)
            expected = 4;
        else if (c.fcx4GbType > 0)
            expected = c.fcx4GbType;
        else if (c.name == "FCX150")
            expected = 3;
        EXPECT_EQ(ChipFcx4And8GbType(c.deviceId), expected) << c.name;
        // Only the older chips have a 2 Gb kind; only FCX18x chips an 18y kind.
        if (c.fcx2GType >= 0) {
            EXPECT_LT(c.fcxType, 8) << c.name;
        }
        if (c.fcx18yType > 0) {
            EXPECT_EQ(c.name.substr(0, 5), "FCX18") << c.name;
        }
    }
}

TEST(ChipTable, AnUnknownDeviceIdIsClass100) {
    EXPECT_EQ(FindChipClassByDeviceId(0x1410 + 1), nullptr);
    EXPECT_EQ(ChipFcxType(0xBEEF), kFcxTypeUnknown);
    EXPECT_EQ(ChipFcx4And8GbType(0xBEEF), 0);
    EXPECT_EQ(ChipFcx2GType(0xBEEF), -1);
    EXPECT_EQ(ChipFcx18yType(0xBEEF), 0);
    EXPECT_EQ(FindChipClassByName("fcx141"), nullptr);  // names are exact
}

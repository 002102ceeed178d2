// SPDX-License-Identifier: MIT
// Flash layouts: the fixed tables per chip, the tables the FCX160/FCX180
// adapters report, and the wire form of the layout request.
#include <gtest/gtest.h>

#include "chipdata.h"
#include "flash_layout.h"

using namespace vxemu;

struct FixedCase {
    const char *chip;
    uint16_t ssvid, ssdid;
    size_t rows;
    uint32_t whole;   // size of the 0xFF row
    uint32_t code;    // a characteristic region ...
    uint32_t beg, size;  // ... and its place
};

class FixedTables : public ::testing::TestWithParam<FixedCase> {};

TEST_P(FixedTables, ChipSelectsItsTable) {
    const FixedCase c = GetParam();
    const FlashLayout l = fixed_layout(c.chip, c.ssvid, c.ssdid);
    EXPECT_EQ(l.regions.size(), c.rows);
    EXPECT_EQ(l.size, c.whole);
    ASSERT_EQ(l.regions.front().code(), 0xFFu);
    auto r = l.find(c.code);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->beg, c.beg);
    EXPECT_EQ(r->size, c.size);
    EXPECT_EQ(r->end, c.beg + c.size - 1);
    EXPECT_FALSE(l.reported_by_adapter);
    const ChipInfo *chip = find_chip(c.chip);
    for (const auto &reg : l.regions) EXPECT_LE(reg.end, chip ? chip->flash_size - 1 : 0x1FFFFu) << reg.code();
}

INSTANTIATE_TEST_SUITE_P(
    Chips, FixedTables,
    ::testing::Values(FixedCase{"FCX160", 0x1DE5, 0x1600, 12, 0x100000, 0x2A, 0x174000, 0x4000},
                      FixedCase{"FCX160", 0x1DE5, 0x1600, 12, 0x100000, 0x17, 0x120600, 0x200},
                      FixedCase{"FCX141", 0x1DE5, 0x1410, 5, 0x100000, 0x07, 0, 0x40000},
                      FixedCase{"FCX150", 0x1DE5, 0x1500, 5, 0x100000, 0x01, 0x80000, 0x80000},
                      FixedCase{"FCX127", 0x1DE5, 0x1270, 2, 0x100000, 0x06, 0, 0x100000},
                      FixedCase{"FCX126", 0x1DE5, 0x1260, 2, 0x20000, 0x04, 0, 0x20000},
                      FixedCase{"FCX123", 0x1DE5, 0x1230, 2, 0x100000, 0x05, 0, 0x100000},
                      FixedCase{"FCX122", 0x1DE5, 0x1220, 2, 0x20000, 0x02, 0, 0x20000},
                      FixedCase{"FCX122", 0x1E0F, 0x12C7, 2, 0x20000, 0x03, 0, 0x20000},
                      FixedCase{"FCX110", 0x1DE5, 0x0131, 2, 0x20000, 0x03, 0, 0x20000},
                      FixedCase{"FCX110", 0x1E0F, 0x0131, 2, 0x20000, 0x02, 0, 0x20000},
                      FixedCase{"FCX180", 0x1DE5, 0x1800, 2, 0x20000, 0x02, 0, 0x20000}));

TEST(AdapterLayouts, Fcx160ReportsTableOneWithSectors) {
    auto own = adapter_layout("FCX160");
    ASSERT_TRUE(own);
    EXPECT_TRUE(own->reported_by_adapter);
    EXPECT_EQ(own->sector_size, 0x10000u);
    FlashLayout fixed = fixed_layout("FCX160", 0x1DE5, 0x1600);
    EXPECT_EQ(own->regions, fixed.regions);
    EXPECT_FALSE(adapter_layout("FCX141"));
}

TEST(AdapterLayouts, Fcx180MarksActivationAndReadOnlyRegions) {
    auto l = adapter_layout("FCX180");
    ASSERT_TRUE(l);
    EXPECT_EQ(l->sector_size, 0x10000u);
    for (uint32_t code : {0x01u, 0x07u, 0x14u, 0x15u, 0x16u, 0x17u, 0x40u, 0x41u, 0x45u, 0x46u, 0x47u, 0xFFu})
        EXPECT_TRUE(l->find(code)) << std::hex << code;
    EXPECT_TRUE(l->find(0x01)->needs_activation());
    for (uint32_t code : {0x40u, 0x41u, 0x45u}) EXPECT_TRUE(l->find(code)->needs_activation()) << code;
    EXPECT_FALSE(l->find(0x07)->needs_activation());
    EXPECT_TRUE(l->find(0x46)->read_only());
    EXPECT_FALSE(l->find(0x01)->read_only());
    // Regions other than the whole-flash row never overlap and stay inside 2 MiB.
    for (size_t i = 1; i < l->regions.size(); ++i) {
        const auto &a = l->regions[i];
        EXPECT_LT(a.end, 0x200000u);
        EXPECT_EQ(a.beg % 0x200, 0u);
        for (size_t k = i + 1; k < l->regions.size(); ++k) {
            const auto &b = l->regions[k];
            EXPECT_TRUE(a.end < b.beg || b.end < a.beg) << std::hex << a.code() << " overlaps " << b.code();
        }
    }
}

TEST(LayoutWire, RoundTripsAndCutsToWholeEntries) {
    const FlashLayout l = *adapter_layout("FCX180");
    auto bytes = encode_layout(l);
    ASSERT_EQ(bytes.size(), 8 + 16 * l.regions.size());
    EXPECT_EQ(bytes[0] | bytes[1] << 8 | bytes[2] << 16 | bytes[3] << 24, 0x200000);
    auto back = decode_layout(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->size, l.size);
    EXPECT_EQ(back->regions, l.regions);

    auto cut = encode_layout(l, 8 + 16 * 3 + 15);
    EXPECT_EQ(cut.size(), 8u + 16 * 3);
    EXPECT_EQ(cut[4], 3);
    EXPECT_TRUE(encode_layout(l, 7).empty());

    bytes.resize(bytes.size() - 1);
    EXPECT_FALSE(decode_layout(bytes));  // count promises more than the buffer holds
    auto bad = encode_layout(l);
    bad[8 + 12] ^= 1;  // End no longer matches Beg + Size
    EXPECT_FALSE(decode_layout(bad));
}

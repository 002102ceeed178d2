// SPDX-License-Identifier: MIT
#include "vx_layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace vxhmx;

namespace {

struct Row {
    uint32_t code, size, beg, end;
};

struct FixedCase {
    const char *what;
    uint16_t device, ssvid, ssdid;
    uint32_t min_size;
    uint32_t flash_size;
    std::vector<Row> rows;
};

std::vector<FixedCase> fixed_cases() {
    const std::vector<Row> fcx14x{{0xFF, 0x100000, 0, 0xFFFFF}, {0x07, 0x40000, 0, 0x3FFFF},
                                  {0x29, 0x4000, 0x58000, 0x5BFFF}, {0x2A, 0x4000, 0x5C000, 0x5FFFF},
                                  {0x01, 0x80000, 0x80000, 0xFFFFF}};
    const std::vector<Row> other{{0xFF, 0x20000, 0, 0x1FFFF}, {0x02, 0x20000, 0, 0x1FFFF}};
    const std::vector<Row> oem{{0xFF, 0x20000, 0, 0x1FFFF}, {0x03, 0x20000, 0, 0x1FFFF}};
    return {
        {"FCX160", 0x1600, 0x1E0F, 0x12BA, 208, 0x100000,
         {{0xFF, 0x100000, 0, 0xFFFFF}, {0x07, 0x80000, 0, 0x7FFFF}, {0x01, 0x80000, 0x80000, 0xFFFFF},
          {0x08, 0x10000, 0x120000, 0x12FFFF}, {0x13, 0x20000, 0x100000, 0x11FFFF},
          {0x14, 0x200, 0x120000, 0x1201FF}, {0x15, 0x200, 0x120200, 0x1203FF}, {0x16, 0x200, 0x120400, 0x1205FF},
          {0x17, 0x200, 0x120600, 0x1207FF}, {0x2B, 0x8000, 0x148000, 0x14FFFF}, {0x29, 0x4000, 0x170000, 0x173FFF},
          {0x2A, 0x4000, 0x174000, 0x177FFF}}},
        {"FCX140", 0x1400, 0, 0, 96, 0x100000, fcx14x},
        {"FCX141", 0x1410, 0, 0, 96, 0x100000, fcx14x},
        {"FCX144", 0x1440, 0, 0, 96, 0x100000, fcx14x},
        {"FCX145", 0x1450, 0, 0, 96, 0x100000, fcx14x},
        {"FCX150", 0x1500, 0x1DE5, 0x0131, 96, 0x100000, fcx14x},
        {"FCX127", 0x1270, 0, 0, 48, 0x100000, {{0xFF, 0x100000, 0, 0xFFFFF}, {0x06, 0x100000, 0, 0xFFFFF}}},
        {"FCX126", 0x1260, 0, 0, 48, 0x20000, {{0xFF, 0x20000, 0, 0x1FFFF}, {0x04, 0x20000, 0, 0x1FFFF}}},
        {"FCX123", 0x1230, 0, 0, 48, 0x100000, {{0xFF, 0x100000, 0, 0xFFFFF}, {0x05, 0x100000, 0, 0xFFFFF}}},
        {"FCX120", 0x1200, 0x1DE5, 0x0100, 48, 0x20000, other},
        {"FCX180 (no table of its own)", 0x1800, 0, 0, 48, 0x20000, other},
        {"OEM 12BA", 0x1210, 0x1E0F, 0x12BA, 48, 0x20000, oem},
        {"OEM 12C2", 0x1220, 0x1E0F, 0x12C2, 48, 0x20000, oem},
        {"OEM 12C7", 0x0100, 0x1E0F, 0x12C7, 48, 0x20000, oem},
        {"OEM 12C9", 0x0110, 0x1E0F, 0x12C9, 48, 0x20000, oem},
        {"maker 0131", 0x1200, 0x1DE5, 0x0131, 48, 0x20000, oem},
        {"OEM vendor, maker's model", 0x1200, 0x1E0F, 0x0131, 48, 0x20000, other},
        {"maker vendor, OEM model", 0x1200, 0x1DE5, 0x12BA, 48, 0x20000, other},
    };
}

INT_OPT_ROM_LAYOUT layout_of(uint16_t device, uint16_t ssvid = 0, uint16_t ssdid = 0) {
    INT_OPT_ROM_LAYOUT l{};
    EXPECT_EQ(vxlayout_fill_fixed(device, ssvid, ssdid, l, sizeof l), 0u);
    return l;
}

}  // namespace

TEST(FixedLayouts, EveryTable) {
    for (const auto &c : fixed_cases()) {
        SCOPED_TRACE(c.what);
        INT_OPT_ROM_LAYOUT l;
        std::memset(&l, 0xEE, sizeof l);
        EXPECT_EQ(vxlayout_fill_fixed(c.device, c.ssvid, c.ssdid, l, c.min_size - 1), 16u);
        EXPECT_EQ(l.Size, 0xEEEEEEEEu);  // untouched when refused

        ASSERT_EQ(vxlayout_fill_fixed(c.device, c.ssvid, c.ssdid, l, c.min_size), 0u);
        EXPECT_EQ(l.Size, c.flash_size);
        ASSERT_EQ(l.NoOfRegions, c.rows.size());
        for (std::size_t i = 0; i < c.rows.size(); ++i) {
            EXPECT_EQ(l.Region[i].Region, c.rows[i].code) << i;
            EXPECT_EQ(l.Region[i].Size, c.rows[i].size) << i;
            EXPECT_EQ(l.Region[i].Beg, c.rows[i].beg) << i;
            EXPECT_EQ(l.Region[i].End, c.rows[i].end) << i;
        }
        EXPECT_EQ(l.Region[c.rows.size()].Size, 0u);  // the list's end
        EXPECT_EQ(vxlayout_entry_count(l), c.rows.size());
    }
}

TEST(LayoutReply, ReadsLittleEndianAndCutsToWhatIsThere) {
    std::vector<uint8_t> reply{0x00, 0x00, 0x10, 0x00, 3, 0, 0, 0};
    const uint8_t entry[16] = {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x08, 0x00,
                               0x00, 0x00, 0x08, 0x00, 0xFF, 0xFF, 0x0F, 0x00};
    for (int i = 0; i < 2; ++i) reply.insert(reply.end(), entry, entry + 16);
    INT_OPT_ROM_LAYOUT l{};
    ASSERT_TRUE(vxlayout_parse_reply(reply, l));
    EXPECT_EQ(l.Size, 0x100000u);
    EXPECT_EQ(l.NoOfRegions, 2u);  // claims 3, carries 2
    EXPECT_EQ(l.Region[1].Region, 0x20001u);
    EXPECT_EQ(l.Region[1].End, 0xFFFFFu);
    EXPECT_FALSE(vxlayout_parse_reply(std::vector<uint8_t>(7), l));

    std::vector<uint8_t> huge(8 + 300 * 16, 0x01);
    huge[4] = 0x2C;  // 300 claimed
    huge[5] = 0x01;
    huge[6] = huge[7] = 0;
    ASSERT_TRUE(vxlayout_parse_reply(huge, l));
    EXPECT_EQ(l.NoOfRegions, 255u);
}

TEST(RegionMap, MapsByLowByteKeepsRawAndZeroesUnknown) {
    INT_OPT_ROM_LAYOUT l = layout_of(0x1410);
    l.Region[1].Region |= 0x10000;  // attributes do not hide the code
    uint32_t off = 7, size = 9;
    vxlayout_map_region(l, 0x07, off, size);
    EXPECT_EQ(off, 0u);
    EXPECT_EQ(size, 0x40000u);
    vxlayout_map_region(l, 0x2A, off, size);
    EXPECT_EQ(off, 0x5C000u);
    EXPECT_EQ(size, 0x4000u);
    off = 0x1234;
    size = 0x10;
    vxlayout_map_region(l, 0xFFFF, off, size);
    EXPECT_EQ(off, 0x1234u);
    EXPECT_EQ(size, 0x10u);
    for (uint32_t unknown : {0x08u, 0x107u, 0x00u}) {
        vxlayout_map_region(l, unknown, off, size);
        EXPECT_EQ(size, 0u) << unknown;
    }
    // A table with every slot used has no terminating entry to fall on.
    INT_OPT_ROM_LAYOUT full{};
    for (auto &r : full.Region) r = {0x29, 0x10, 0x100, 0x10F};
    vxlayout_map_region(full, 0x08, off, size);
    EXPECT_EQ(size, 0u);
}

TEST(RegionWrite, PathChoice) {
    const std::pair<uint32_t, OptRomWritePath> cases[] = {
        {0x00, OptRomWritePath::Refused},    {0x01, OptRomWritePath::Preserving}, {0x05, OptRomWritePath::Preserving},
        {0x07, OptRomWritePath::Preserving}, {0xFF, OptRomWritePath::Preserving}, {0x08, OptRomWritePath::Refused},
        {0x13, OptRomWritePath::Plain},      {0x14, OptRomWritePath::Refused},    {0x17, OptRomWritePath::Refused},
        {0x28, OptRomWritePath::Refused},    {0x29, OptRomWritePath::Plain},      {0x2E, OptRomWritePath::Plain},
        {0x2F, OptRomWritePath::Refused},    {0x40, OptRomWritePath::Plain},      {0x41, OptRomWritePath::Plain},
        {0x42, OptRomWritePath::Refused},    {0x44, OptRomWritePath::Refused},    {0x45, OptRomWritePath::Plain},
        {0x47, OptRomWritePath::Plain},      {0x48, OptRomWritePath::Refused},    {0x1FF, OptRomWritePath::Refused},
    };
    for (auto [region, path] : cases) EXPECT_EQ(vxlayout_write_path(region), path) << std::hex << region;
}

TEST(RegionWrite, ChecksInOrder) {
    INT_OPT_ROM_LAYOUT fcx141 = layout_of(0x1410);
    const INT_OPT_ROM_REGION *entry = nullptr;
    EXPECT_EQ(vxlayout_check_region_write(fcx141, 0x29, 0x4000, &entry), 0u);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->Beg, 0x58000u);
    EXPECT_EQ(vxlayout_check_region_write(fcx141, 0x08, 0x10000, nullptr), 0x20000064u);
    EXPECT_EQ(vxlayout_check_region_write(fcx141, 0x01, 0x7FFFF, nullptr), 0x20000084u);
    EXPECT_EQ(vxlayout_check_region_write(fcx141, 0x00, 0, nullptr), 0x20000089u);
    fcx141.Region[2].Region |= 0x10000;
    EXPECT_EQ(vxlayout_check_region_write(fcx141, 0x29, 0, nullptr), 0x20000066u);  // read-only before size

    // Region 0x08 exists on an FCX160, passes the checks, and is then refused
    // by the path choice.
    INT_OPT_ROM_LAYOUT fcx160 = layout_of(0x1600);
    EXPECT_EQ(vxlayout_check_region_write(fcx160, 0x08, 0x10000, nullptr), 0u);
    EXPECT_EQ(vxlayout_write_path(0x08), OptRomWritePath::Refused);
}

TEST(RegionWrite, ActivationOnlyOnFcx180WithAttribute) {
    struct Case {
        uint16_t device;
        uint32_t region;
        uint32_t code;
    };
    const Case cases[] = {
        {0x1800, 0x20001, 0x2025C}, {0x1800, 0x40001, 0x2025C}, {0x1800, 0x00001, 0},
        {0x1800, 0x20040, 0x2025D}, {0x1800, 0x40041, 0x2025D}, {0x1800, 0x20045, 0x2025D},
        {0x1800, 0x20046, 0},       {0x1800, 0x20007, 0},       {0x1600, 0x20001, 0},
    };
    for (const Case &c : cases) EXPECT_EQ(vxlayout_activation_code(c.device, c.region), c.code) << std::hex << c.region;
}

TEST(LayoutCopyOut, CountFirstThenRegions) {
    struct PublicRegion {
        uint32_t Region, Size;
    };
    INT_OPT_ROM_LAYOUT l = layout_of(0x1410);
    l.Region[4].Region |= 0x20000;
    uint32_t size = 0, count = 0;
    EXPECT_EQ(vxlayout_copy_out(l, size, count, static_cast<PublicRegion *>(nullptr)), 0x20000072u);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(size, 0u);

    std::vector<PublicRegion> regions(8, PublicRegion{0xAA, 0xAA});
    count = 4;
    EXPECT_EQ(vxlayout_copy_out(l, size, count, regions.data()), 0x20000072u);
    EXPECT_EQ(regions[0].Region, 0xAAu);
    count = 8;
    EXPECT_EQ(vxlayout_copy_out(l, size, count, regions.data()), 0u);
    EXPECT_EQ(size, 0x100000u);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(regions[4].Region, 0x01u);  // attribute bits stripped
    EXPECT_EQ(regions[4].Size, 0x80000u);
    EXPECT_EQ(regions[5].Region, 0xAAu);  // nothing beyond the count
}

namespace {

// A flash that fails the test on any read outside it.
struct FakeFlash {
    std::vector<uint8_t> bytes;
    std::vector<std::pair<uint32_t, std::size_t>> reads;
    uint32_t fail_with = 0;
    FlashReader reader() {
        return [this](uint32_t off, std::span<uint8_t> out) -> uint32_t {
            reads.emplace_back(off, out.size());
            EXPECT_LE(uint64_t{off} + out.size(), bytes.size());
            if (fail_with != 0) return fail_with;
            std::memcpy(out.data(), bytes.data() + off, out.size());
            return 0;
        };
    }
};

FakeFlash flash_of(std::size_t size) {
    FakeFlash f;
    f.bytes.resize(size);
    for (std::size_t i = 0; i < size; ++i) f.bytes[i] = static_cast<uint8_t>(i * 7);
    return f;
}

}  // namespace

TEST(SectorAlign, AlignedRequestNeedsNoRead) {
    FakeFlash f = flash_of(0x10000);
    const std::vector<uint8_t> data(0x1000, 0xAB);
    const auto r = vxlayout_sector_align(0x2000, data, 0x1000, 0x10000, f.reader());
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.offset, 0x2000u);
    EXPECT_EQ(r.size, 0x1000u);
    EXPECT_TRUE(r.buffer.empty());
    EXPECT_TRUE(f.reads.empty());
}

TEST(SectorAlign, MergesHeadAndTailOfTheWindow) {
    FakeFlash f = flash_of(0x10000);
    const std::vector<uint8_t> data(0x1000, 0xAB);
    const auto r = vxlayout_sector_align(0x1800, data, 0x1000, 0x10000, f.reader());
    ASSERT_EQ(r.status, 0u);
    EXPECT_EQ(r.offset, 0x1000u);
    EXPECT_EQ(r.size, 0x2000u);
    ASSERT_EQ(r.buffer.size(), 0x2000u);
    std::vector<uint8_t> expect(f.bytes.begin() + 0x1000, f.bytes.begin() + 0x3000);
    std::fill(expect.begin() + 0x800, expect.begin() + 0x1800, 0xAB);
    EXPECT_EQ(r.buffer, expect);
    // The window is read in one piece, as the driver's windowed forms move it.
    const std::vector<std::pair<uint32_t, std::size_t>> one_read{{0x1000, 0x2000}};
    EXPECT_EQ(f.reads, one_read);
}

TEST(SectorAlign, ShortLastSectorEndsWithTheFlash) {
    FakeFlash f = flash_of(0x2800);
    const std::vector<uint8_t> data(0x300, 0xCD);
    const auto r = vxlayout_sector_align(0x2100, data, 0x1000, 0x2800, f.reader());
    ASSERT_EQ(r.status, 0u);
    EXPECT_EQ(r.offset, 0x2000u);
    EXPECT_EQ(r.size, 0x800u);
    EXPECT_EQ(r.buffer[0x100], 0xCD);
    EXPECT_EQ(r.buffer[0x7FF], f.bytes[0x27FF]);
}

TEST(SectorAlign, Refusals) {
    FakeFlash f = flash_of(0x4000);
    const std::vector<uint8_t> data(0x100, 1);
    EXPECT_EQ(vxlayout_sector_align(0x100, data, 0, 0x4000, f.reader()).status, 1u);
    EXPECT_EQ(vxlayout_sector_align(0x3F80, data, 0x1000, 0x4000, f.reader()).status, 1u);  // past the flash
    EXPECT_EQ(vxlayout_sector_align(0xFFFFFFF0u, data, 0x1000, 0x4000, f.reader()).status, 1u);
    EXPECT_EQ(vxlayout_sector_align(0x100, {}, 0x1000, 0x4000, f.reader()).status, 1u);
    EXPECT_EQ(vxlayout_sector_align(0x100, data, 0x1000, 0x4000, FlashReader{}).status, 1u);
    EXPECT_TRUE(f.reads.empty());
    f.fail_with = 9;
    const auto r = vxlayout_sector_align(0x100, data, 0x1000, 0x4000, f.reader());
    EXPECT_EQ(r.status, 9u);
    EXPECT_TRUE(r.buffer.empty());
}

TEST(SectorAlign, FlashEndCoversAreasListedPastTheWholeFlashRow) {
    // The FCX160 table lists small areas above its 1 MiB row: the last one
    // (0x2A at 0x174000, 16 KiB) ends in the flash's last listed sector.
    EXPECT_EQ(vxlayout_flash_end(layout_of(0x1600), 0), 0x178000u);
    EXPECT_EQ(vxlayout_flash_end(layout_of(0x1600), 0x1000), 0x178000u);
    EXPECT_EQ(vxlayout_flash_end(layout_of(0x1600), 0x10000), 0x180000u);
    EXPECT_EQ(vxlayout_flash_end(layout_of(0x1410), 0x10000), 0x100000u);
    INT_OPT_ROM_LAYOUT huge{};
    huge.Size = 0x1000;
    huge.NoOfRegions = 1;
    huge.Region[0] = {0x01, 0x10, 0xFFFFFFF8u, 0xFFFFFFFFu};  // a reply claiming an area past 4 GiB
    EXPECT_EQ(vxlayout_flash_end(huge, 0x10000), 0xFFFFFFFFu);
    EXPECT_EQ(vxlayout_flash_end(INT_OPT_ROM_LAYOUT{}, 0x10000), 0u);
}

// SPDX-License-Identifier: MIT
// Image kit: images built by the kit must read back the way the tool and the
// library read them (field places, checksum rules, walks).
#include <gtest/gtest.h>

#include <cstring>

#include "flash_layout.h"
#include "imagekit.h"

using namespace vxemu;

namespace {

std::vector<RomImageSpec> three_images() {
    RomImageSpec bios;
    bios.type = CodeType::bios;
    bios.major = 1, bios.minor = 10;
    bios.common = true;
    bios.model = "VX2162";
    bios.ssvid = 0x1E0F;
    RomImageSpec fcode = bios;
    fcode.type = CodeType::fcode;
    fcode.major = 2, fcode.minor = 5;
    RomImageSpec efi = bios;
    efi.type = CodeType::efi;
    efi.major = 1, efi.minor = 7;
    return {bios, fcode, efi};
}

uint16_t le16(const std::vector<uint8_t> &b, size_t off) { return static_cast<uint16_t>(b[off] | (b[off + 1] << 8)); }

}  // namespace

TEST(OptionRom, ChainWalksBackWithItsFields) {
    auto rom = build_option_rom(three_images());
    ASSERT_TRUE(rom) << rom.error().message;
    const auto &b = rom.value();
    auto imgs = walk_option_rom(b);
    ASSERT_EQ(imgs.size(), 3u);
    const uint8_t types[] = {0, 1, 3};
    const uint8_t majors[] = {1, 2, 1}, minors[] = {10, 5, 7};
    size_t expect_off = 0;
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(imgs[i].offset, expect_off);
        EXPECT_EQ(imgs[i].raw_type, types[i]);
        EXPECT_EQ(imgs[i].major, majors[i]);
        EXPECT_EQ(imgs[i].minor, minors[i]);
        EXPECT_EQ(imgs[i].vendor_id, 0x1DE5);
        EXPECT_EQ(imgs[i].device_id, 0x1600);
        EXPECT_TRUE(imgs[i].checksum_ok);
        EXPECT_EQ(imgs[i].last, i == 2);
        // The whole-image sum is zero too, so readers of either rule agree.
        uint8_t sum = 0;
        for (size_t k = 0; k < imgs[i].length; ++k) sum = static_cast<uint8_t>(sum + b[imgs[i].offset + k]);
        EXPECT_EQ(sum, 0);
        expect_off += imgs[i].length;
    }
    EXPECT_EQ(expect_off, b.size());

    // The fields the tool's BIOS patch and the library's preservation use.
    EXPECT_EQ(std::string(b.begin() + kBiosHwType, b.begin() + kBiosHwType + 4), std::string("160\0", 4));
    EXPECT_EQ(b[kBiosChipCode], 0x2F);
    EXPECT_EQ(std::memcmp(b.data() + 28, "SVID", 4), 0);
    EXPECT_EQ(le16(b, kBiosSsvid), 0x1E0F);
    EXPECT_EQ(le16(b, kBiosDeviceId), 0x1600);
    EXPECT_EQ(std::memcmp(b.data() + kBiosCommonMarker, "MODL", 4), 0);
    EXPECT_EQ(std::string(b.begin() + kBiosModel, b.begin() + kBiosModel + 7), "VX2162 ");
    EXPECT_EQ(find_text(b, "MEFCX ", 0, 0x1FFFA), kBiosParamMarker);
    EXPECT_EQ(le16(b, imgs[1].offset + kEfiFcodeDeviceId), 0x1600);
    EXPECT_EQ(le16(b, imgs[2].offset + kEfiFcodeDeviceId), 0x1600);
    EXPECT_FALSE(imgs[1].common);
}

TEST(OptionRom, ChecksumRuleLeavesOutTheSecondToLastByte) {
    auto rom = build_option_rom(three_images());
    ASSERT_TRUE(rom);
    auto b = rom.value();
    const size_t len = size_t{b[2]} * 512;
    b[len - 2] ^= 0x5A;  // not part of the sum
    EXPECT_TRUE(rom_checksum_ok(b, 0));
    b[0x44] ^= 0x01;  // part of the sum
    EXPECT_FALSE(rom_checksum_ok(b, 0));
    ASSERT_TRUE(seal_rom_image(b, 0));
    EXPECT_TRUE(rom_checksum_ok(b, 0));
}

TEST(OptionRom, BrokenChecksumIsBrokenOnlyWhereAsked) {
    auto specs = three_images();
    specs[1].bad_checksum = true;
    auto rom = build_option_rom(specs);
    ASSERT_TRUE(rom);
    auto imgs = walk_option_rom(rom.value());
    ASSERT_EQ(imgs.size(), 3u);
    EXPECT_TRUE(imgs[0].checksum_ok);
    EXPECT_FALSE(imgs[1].checksum_ok);
    EXPECT_TRUE(imgs[2].checksum_ok);
}

TEST(OptionRom, WalkStopsAtDamageWithoutReadingPastTheBuffer) {
    auto rom = build_option_rom(three_images());
    ASSERT_TRUE(rom);
    const auto full = rom.value();
    const size_t second = walk_option_rom(full)[1].offset;

    auto cut = std::vector<uint8_t>(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(second + 0x20));
    EXPECT_EQ(walk_option_rom(cut).size(), 1u);  // second header present, its PCIR is not

    auto no_sig = full;
    no_sig[second] = 0;
    EXPECT_EQ(walk_option_rom(no_sig).size(), 1u);

    auto no_pcir = full;
    no_pcir[second + kRomPcirOffset] = 'X';
    EXPECT_EQ(walk_option_rom(no_pcir).size(), 1u);

    auto wild_pointer = full;
    put_le16(wild_pointer, kRomPcirPointer, 0xFFF0);
    EXPECT_TRUE(walk_option_rom(wild_pointer).empty());

    EXPECT_TRUE(walk_option_rom({}).empty());
}

TEST(OptionRom, RefusesImagesThatCannotCarryTheirFields) {
    RomImageSpec s;
    s.blocks = 128;  // the size byte would read negative
    EXPECT_FALSE(build_rom_image(s, true));
    s.blocks = 1;  // no room for the parameter block
    EXPECT_FALSE(build_rom_image(s, true));
    s.blocks = 2;
    s.model = std::string(19, 'M');
    EXPECT_FALSE(build_rom_image(s, true));
}

// Older chips keep a 256-byte parameter block, FCX14x-class chips 512 bytes;
// the block starts 2 bytes into the "MEFCX " marker and carries the seed's
// pattern, the bytes after it are code.
TEST(OptionRom, ParameterBlockFollowsTheChip) {
    for (const char *name : {"FCX123", "FCX120", "FCX141", "FCX160"}) {
        SCOPED_TRACE(name);
        const ChipInfo &chip = *find_chip(name);
        const size_t bytes = chip.fcx14x_class ? 512 : 256;
        EXPECT_EQ(param_block_bytes(chip), bytes);
        BootChainSpec bc;
        bc.bios = std::pair<uint8_t, uint8_t>(1, 2);
        bc.fcode.reset();
        bc.efi.reset();
        const auto rom = build_boot_chain(chip, bc);
        ASSERT_TRUE(rom);
        const auto &b = rom.value();
        ASSERT_EQ(std::memcmp(b.data() + kBiosParamMarker, "MEFCX ", 6), 0);
        const size_t start = kBiosParamMarker + 2, end = start + bytes;
        auto pattern = [&](size_t at) { return b[at] == static_cast<uint8_t>(0x80 | ((at - kBiosParamMarker) & 0x3F)); };
        for (size_t at = kBiosParamMarker + 6; at < end; ++at) ASSERT_TRUE(pattern(at)) << at;
        // The code after the block is the filler, not more of the block.
        size_t differ = 0;
        for (size_t at = end; at < end + 64; ++at) differ += pattern(at) ? 0 : 1;
        EXPECT_GT(differ, 32u);
    }
}

TEST(Firmware, SegmentsSumToZeroAndCarryFamilyAndVersion) {
    FirmwareSpec s;
    s.family = "FCX14";
    s.major = 5, s.minor = 2, s.sub = 9;
    auto fw = build_firmware(s);
    ASSERT_TRUE(fw) << fw.error().message;
    auto info = inspect_firmware(fw.value());
    ASSERT_TRUE(info);
    EXPECT_TRUE(info->valid());
    EXPECT_EQ(info->l1, s.seg1_words);
    EXPECT_EQ(info->l2, s.seg2_words);
    EXPECT_EQ(info->family_text, "FCX14xx Firmware");
    EXPECT_EQ(info->major, 5);
    EXPECT_EQ(info->minor, 2);
    EXPECT_EQ(info->sub, 9);
    EXPECT_EQ(fw.value().size(), (s.seg1_words + s.seg2_words) * 4u);
}

TEST(Firmware, BadChecksumBreaksOnlyTheSecondSegment) {
    FirmwareSpec s;
    s.bad_checksum = true;
    auto info = inspect_firmware(build_firmware(s).value());
    ASSERT_TRUE(info);
    EXPECT_TRUE(info->seg1_ok);
    EXPECT_FALSE(info->seg2_ok);
}

TEST(Firmware, TamarMarkerAndVersionWord) {
    FirmwareSpec s;
    s.tamar = true;
    s.major = 1, s.minor = 0x12, s.sub = 3;
    auto fw = build_firmware(s).value();
    EXPECT_EQ(std::string(fw.begin() + 82, fw.begin() + 87), "Tamar");
    EXPECT_EQ(*ByteView(fw).le32(8), 0x011203u);
    EXPECT_TRUE(inspect_firmware(fw)->valid());
}

TEST(Firmware, LengthsBeyondTheBufferAreRejected) {
    auto fw = build_firmware(FirmwareSpec{}).value();
    fw.resize(fw.size() - 4);  // second segment cut short
    EXPECT_FALSE(inspect_firmware(fw));
    std::vector<uint8_t> tiny(12, 0);
    EXPECT_FALSE(inspect_firmware(tiny));
    FirmwareSpec bad;
    bad.family = "FC16";
    EXPECT_FALSE(build_firmware(bad));
}

struct NvramPlace {
    NvramFormat format;
    size_t size, ssvid_at, ssdid_at, wwpn_at, wwnn_at;
};

class NvramPlaces : public ::testing::TestWithParam<NvramPlace> {};

TEST_P(NvramPlaces, SubsystemIdsAndNamesSitWhereTheLibraryReadsThem) {
    const NvramPlace p = GetParam();
    NvramSpec s;
    s.format = p.format;
    s.ss_vendor = 0x1E0F;
    s.ss_device = 0x12C7;
    s.wwpn = {0x21, 0, 0, 0x1D, 0xE5, 1, 2, 3};
    s.wwnn = {0x20, 0, 0, 0x1D, 0xE5, 1, 2, 3};
    auto nv = build_nvram(s);
    ASSERT_TRUE(nv);
    const auto &b = nv.value();
    ASSERT_EQ(b.size(), p.size);
    EXPECT_EQ(le16(b, p.ssvid_at), 0x1E0F);
    EXPECT_EQ(le16(b, p.ssdid_at), 0x12C7);
    EXPECT_TRUE(std::equal(s.wwpn.begin(), s.wwpn.end(), b.begin() + static_cast<std::ptrdiff_t>(p.wwpn_at)));
    EXPECT_TRUE(std::equal(s.wwnn.begin(), s.wwnn.end(), b.begin() + static_cast<std::ptrdiff_t>(p.wwnn_at)));
    EXPECT_EQ(nvram_get(b, p.format, kNvVarSsVendor), 0x1E0Fu);
    EXPECT_EQ(nvram_get(b, p.format, kNvVarSsDevice), 0x12C7u);
    EXPECT_TRUE(nvram_checksum_ok(b, p.format));
    auto broken = b;
    broken[p.ssdid_at] ^= 1;
    EXPECT_FALSE(nvram_checksum_ok(broken, p.format));
}

INSTANTIATE_TEST_SUITE_P(BothFormats, NvramPlaces,
                         ::testing::Values(NvramPlace{NvramFormat::basic, 256, 250, 252, 18, 30},
                                           NvramPlace{NvramFormat::extended, 512, 0x1F8, 0x1FA, 0x14, 0x1C}));

TEST(Nvram, VariablesChangeOnlyTheirOwnBits) {
    std::vector<uint8_t> basic(256, 0);
    ASSERT_TRUE(nvram_set(basic, NvramFormat::basic, kNvVarPortName0 + 3, 0xAB));
    for (size_t i = 0; i < basic.size(); ++i) EXPECT_EQ(basic[i], i == 21 ? 0xAB : 0) << i;  // high byte of word 10
    ASSERT_TRUE(nvram_set(basic, NvramFormat::basic, kNvVarNodeNameOption, 1));
    EXPECT_EQ(le16(basic, 8), 0x4000);

    std::vector<uint8_t> ext(512, 0);
    EXPECT_FALSE(nvram_set(ext, NvramFormat::extended, 63, 1));  // no place in this format
    EXPECT_EQ(std::count(ext.begin(), ext.end(), 0), 512);
    EXPECT_EQ(nvram_get(ext, NvramFormat::extended, 130), 0u);
    NvramSpec s;
    s.variables = {{63, 1}};
    EXPECT_FALSE(build_nvram(s));
}

namespace {

// The tool's VPD walk: steps over resource headers and compares only the
// first keyword letter. Built VPD must be walkable this way.
std::string tool_vpd_lookup(const std::vector<uint8_t> &b, char first) {
    size_t pos = 0, len = 0;
    for (int step = 0; step < 512 && pos + 2 < b.size(); ++step) {
        const uint8_t t = b[pos];
        if (t == 0x78) return {};
        if (t == 0x90 || t == 0x91) {
            pos += 3;
        } else if (t == 0x82) {
            len = le16(b, pos + 1);
            pos += len + 3;
        } else if (t == 0) {
            pos += len + 3;
        } else {
            len = b[pos + 2];
            if (t == static_cast<uint8_t>(first)) return std::string(b.begin() + static_cast<std::ptrdiff_t>(pos + 3), b.begin() + static_cast<std::ptrdiff_t>(pos + 3 + len));
            pos += len + 3;
        }
    }
    return {};
}

}  // namespace

TEST(Vpd, BuildsAWalkableImageWithAValidRvChecksum) {
    VpdSpec s;
    s.identifier = "Varnix VX2162 Fibre Channel Adapter";
    s.read_only = {{"PN", "VX2162"}, {"EC", "A01"}, {"SN", "VXA4200160"}, {"V0", "boot 1.10"}};
    s.read_write = {{"YA", "asset"}};
    auto v = build_vpd(s);
    ASSERT_TRUE(v) << v.error().message;
    const auto &b = v.value();
    EXPECT_EQ(b.size(), 512u);
    EXPECT_EQ(b[0], 0x82);
    EXPECT_TRUE(vpd_checksum_ok(b));
    EXPECT_EQ(vpd_field(b, "ID"), s.identifier);
    EXPECT_EQ(vpd_field(b, "SN"), "VXA4200160");
    EXPECT_EQ(vpd_field(b, "YA"), "asset");
    EXPECT_FALSE(vpd_field(b, "MN"));
    EXPECT_EQ(tool_vpd_lookup(b, 'S'), "VXA4200160");
    EXPECT_EQ(tool_vpd_lookup(b, 'P'), "VX2162");
    EXPECT_EQ(tool_vpd_lookup(b, 'V'), "boot 1.10");
}

TEST(Vpd, BadChecksumAndImpossibleContentsAreReported) {
    VpdSpec s;
    s.read_only = {{"SN", "X"}};
    s.bad_checksum = true;
    EXPECT_FALSE(vpd_checksum_ok(build_vpd(s).value()));
    s.bad_checksum = false;
    s.read_only = {{"SN", std::string(256, 'x')}};
    EXPECT_FALSE(build_vpd(s));
    s.read_only = {{"SN", std::string(250, 'x')}, {"PN", std::string(250, 'y')}};
    EXPECT_FALSE(build_vpd(s));  // does not fit in 512 bytes
    s.read_only = {{"SNX", "1"}};
    EXPECT_FALSE(build_vpd(s));
    std::vector<uint8_t> blank(512, 0xFF);
    EXPECT_FALSE(vpd_checksum_ok(blank));
    EXPECT_FALSE(vpd_field(blank, "SN"));
}

TEST(Multiboot, BootAtZeroFirmwareAtHalfAMegabyte) {
    std::vector<uint8_t> boot(0x300, 0x11), fw(0x100, 0x22);
    auto mb = build_multiboot(boot, fw);
    ASSERT_TRUE(mb);
    const auto &b = mb.value();
    ASSERT_EQ(b.size(), kMultibootSize);
    EXPECT_EQ(b[0x2FF], 0x11);
    EXPECT_EQ(b[0x300], 0xFF);
    EXPECT_EQ(b[0x80000], 0x22);
    EXPECT_EQ(b[0x80100], 0xFF);
    EXPECT_FALSE(build_multiboot(std::vector<uint8_t>(0x80001, 0), fw));
    EXPECT_FALSE(build_multiboot(boot, std::vector<uint8_t>(0x80001, 0)));
}

TEST(Parsing, NumbersNamesAndVersions) {
    EXPECT_EQ(parse_number("0x1DE5"), 0x1DE5u);
    EXPECT_EQ(parse_number("42"), 42u);
    EXPECT_FALSE(parse_number("0x"));
    EXPECT_FALSE(parse_number("12a"));
    EXPECT_FALSE(parse_number("-1"));
    const std::array<uint8_t, 8> w{0x21, 0, 0, 0x24, 0xFF, 0, 0, 1};
    EXPECT_EQ(parse_wwn("21:00:00:24:ff:00:00:01"), w);
    EXPECT_EQ(parse_wwn("21000024FF000001"), w);
    EXPECT_FALSE(parse_wwn("21:00:00:24:ff:00:00"));
    EXPECT_FALSE(parse_wwn("21:00:00:24:ff:00:00:0g"));
    EXPECT_EQ(parse_version("8.2.1", 3), (std::vector<uint8_t>{8, 2, 1}));
    EXPECT_EQ(parse_version("1.10", 2), (std::vector<uint8_t>{1, 10}));
    EXPECT_FALSE(parse_version("1.10", 3));
    EXPECT_FALSE(parse_version("1.256", 2));
    EXPECT_FALSE(parse_version("1..2", 3));
}

TEST(Readers, TruncatedAndGarbageInputsNeverReadOutOfBounds) {
    // Every prefix of valid images, and seeded garbage: the readers may
    // answer anything but must stay inside the buffer (ASan checks this).
    VpdSpec vs;
    vs.read_only = {{"PN", "P"}, {"SN", "S"}};
    const std::vector<std::vector<uint8_t>> goods = {build_option_rom(three_images()).value(), build_firmware(FirmwareSpec{}).value(),
                                                     build_vpd(vs).value()};
    auto poke = [](const std::vector<uint8_t> &b) {
        (void)walk_option_rom(b);
        (void)rom_checksum_ok(b, 0);
        (void)inspect_firmware(b);
        (void)vpd_field(b, "SN");
        (void)vpd_checksum_ok(b);
        (void)nvram_get(b, NvramFormat::extended, kNvVarSsDevice);
        (void)nvram_get(b, NvramFormat::basic, kNvVarSsDevice);
        (void)find_text(b, "MEFCX ", 0, 0x1FFFA);
        (void)decode_layout(b);
    };
    for (const auto &g : goods)
        for (size_t n = 0; n <= g.size(); n += (n < 1024 ? 1 : 509)) poke(std::vector<uint8_t>(g.begin(), g.begin() + static_cast<std::ptrdiff_t>(n)));
    uint32_t x = 7;
    for (int round = 0; round < 200; ++round) {
        std::vector<uint8_t> b(static_cast<size_t>(round * 37 % 2048));
        for (auto &c : b) c = static_cast<uint8_t>((x = x * 1664525u + 1013904223u) >> 24);
        if (b.size() > 2 && round % 2) b[0] = 0x55, b[1] = 0xAA;  // get past the signature test
        if (b.size() > 0 && round % 3 == 0) b[0] = 0x82;          // and the VPD start tag
        poke(b);
    }
}

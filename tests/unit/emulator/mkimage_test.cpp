// SPDX-License-Identifier: MIT
// `vxemu mkimage`: the files it writes read back with the kit's readers, and
// bad command lines give a message and status 2 without writing anything.
#include <gtest/gtest.h>

#include "imagekit.h"
#include "process.h"

int vxemu_mkimage_main(int argc, char **argv);

using namespace vxemu;

namespace {

struct Run {
    int status;
    std::string err;
    std::string out;
};

Run mkimage(std::vector<std::string> args) {
    args.insert(args.begin(), "mkimage");
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const int st = vxemu_mkimage_main(static_cast<int>(args.size()), argv.data());
    std::string out = testing::internal::GetCapturedStdout();
    return Run{st, testing::internal::GetCapturedStderr(), out};
}

std::vector<uint8_t> bytes_of(const std::string &path) {
    const std::string s = fwtest::read_file(path);
    return {s.begin(), s.end()};
}

}  // namespace

TEST(Mkimage, OptromChainWithOneBrokenChecksumAndPadding) {
    fwtest::TempDir dir("vxemu-mk");
    const std::string out = dir / "rom.bin";
    auto r = mkimage({"optrom", "--out", out, "--chip", "FCX141", "--image", "bios:1.10:common", "--image", "fcode:2.05",
                      "--image", "efi:1.07:blocks=8", "--bad-checksum", "1", "--size", "0x20000"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const auto b = bytes_of(out);
    ASSERT_EQ(b.size(), 0x20000u);
    auto imgs = walk_option_rom(b);
    ASSERT_EQ(imgs.size(), 3u);
    EXPECT_TRUE(imgs[0].common);
    EXPECT_EQ(imgs[0].device_id, 0x1410);
    EXPECT_EQ(b[kBiosChipCode], 0x25);
    EXPECT_TRUE(imgs[0].checksum_ok);
    EXPECT_FALSE(imgs[1].checksum_ok);
    EXPECT_EQ(imgs[2].length, 8u * 512);
    EXPECT_TRUE(imgs[2].last);
    EXPECT_EQ(b.back(), 0xFF);

    // Deliberately damaged chains for the tool's signature checks.
    ASSERT_EQ(mkimage({"optrom", "--out", out, "--image", "bios:1.0:common", "--image", "efi:1.0:no-sig"}).status, 0);
    EXPECT_EQ(walk_option_rom(bytes_of(out)).size(), 1u);
    ASSERT_EQ(mkimage({"optrom", "--out", out, "--image", "bios:1.0:no-pcir"}).status, 0);
    const auto nopcir = bytes_of(out);
    EXPECT_TRUE(walk_option_rom(nopcir).empty());
    EXPECT_TRUE(rom_checksum_ok(nopcir, 0));
}

TEST(Mkimage, MultibootFirmwareNvramAndVpdFiles) {
    fwtest::TempDir dir("vxemu-mk");
    ASSERT_EQ(mkimage({"multiboot", "--out", dir / "mb.bin", "--chip", "FCX160", "--bios", "1.12", "--firmware", "8.3.0"}).status, 0);
    const auto mb = bytes_of(dir / "mb.bin");
    ASSERT_EQ(mb.size(), kMultibootSize);
    auto imgs = walk_option_rom(mb);
    ASSERT_EQ(imgs.size(), 1u);
    EXPECT_EQ(imgs[0].major, 1);
    EXPECT_EQ(imgs[0].minor, 12);
    auto fw = inspect_firmware(std::span<const uint8_t>(mb).subspan(kMultibootFirmwareOffset));
    ASSERT_TRUE(fw);
    EXPECT_TRUE(fw->valid());
    EXPECT_EQ(fw->family_text, "FCX16xx Firmware");

    ASSERT_EQ(mkimage({"firmware", "--out", dir / "fw.bin", "--family", "FCX14", "--version", "5.2.0", "--bad-checksum"}).status, 0);
    EXPECT_FALSE(inspect_firmware(bytes_of(dir / "fw.bin"))->seg2_ok);

    ASSERT_EQ(mkimage({"nvram", "--out", dir / "nv.bin", "--format", "basic", "--ssvid", "0x1E0F", "--ssdid", "0x12C7", "--wwpn",
                       "21:00:00:1d:e5:00:00:01", "--var", "58=1"})
                  .status,
              0);
    const auto nv = bytes_of(dir / "nv.bin");
    ASSERT_EQ(nv.size(), 256u);
    EXPECT_EQ(nvram_get(nv, NvramFormat::basic, kNvVarSsDevice), 0x12C7u);
    EXPECT_EQ(nvram_get(nv, NvramFormat::basic, 58), 1u);
    EXPECT_EQ(nv[25], 0x01);  // last byte of the port name
    EXPECT_TRUE(nvram_checksum_ok(nv, NvramFormat::basic));

    ASSERT_EQ(mkimage({"vpd", "--out", dir / "vpd.bin", "--pn", "VX2162", "--sn", "S123", "--field", "V0=x", "--rw", "YA=asset"}).status, 0);
    const auto vpd = bytes_of(dir / "vpd.bin");
    EXPECT_TRUE(vpd_checksum_ok(vpd));
    EXPECT_EQ(vpd_field(vpd, "SN"), "S123");
}

TEST(Mkimage, BadCommandLinesAreRefusedWithoutWriting) {
    fwtest::TempDir dir("vxemu-mk");
    const std::string out = dir / "x.bin";
    const std::vector<std::vector<std::string>> bad = {
        {},
        {"toaster", "--out", out},
        {"optrom", "--out", out},
        {"optrom", "--image", "bios:1.0"},
        {"optrom", "--out", out, "--image", "bios"},
        {"optrom", "--out", out, "--image", "vga:1.0"},
        {"optrom", "--out", out, "--image", "bios:1.0:shiny"},
        {"optrom", "--out", out, "--image", "bios:1.0:blocks=200"},
        {"optrom", "--out", out, "--image", "bios:1.0", "--bad-checksum", "1"},
        {"optrom", "--out", out, "--image", "bios:1.0", "--chip", "FCX999"},
        {"firmware", "--out", out},
        {"firmware", "--out", out, "--version", "1.2"},
        {"multiboot", "--out", out, "--bios", "1.0"},
        {"nvram", "--out", out, "--format", "wide"},
        {"nvram", "--out", out, "--var", "58"},
        {"vpd", "--out", out, "--field", "SERIAL=1"},
        {"vpd", "--out", out, "--colour"},
        {"optrom", "--out"},
    };
    for (const auto &args : bad) {
        auto r = mkimage(args);
        std::string joined;
        for (const auto &a : args) joined += a + " ";
        EXPECT_EQ(r.status, 2) << joined;
        EXPECT_TRUE(r.err.starts_with("vxemu mkimage: ")) << joined << r.err;
        EXPECT_FALSE(fwtest::file_exists(out)) << joined;
    }
    // Well-formed but impossible: status 1, still nothing written.
    auto r = mkimage({"vpd", "--out", out, "--sn", std::string(300, 'x')});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fwtest::file_exists(out));
    r = mkimage({"optrom", "--out", dir / "no/such/dir/x.bin", "--image", "bios:1.0"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot open for writing"), std::string::npos);

    r = mkimage({"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.starts_with("Usage: vxemu mkimage KIND --out FILE [OPTIONS]\n"));
}

// Every chip whose BIOS the tool patches gets a common multiboot file: a
// BIOS with the marker, the model field and the hardware type as the tool
// writes it (zero after the text), FCode and EFI with the chip's device ID,
// and, where the flash carries one, firmware at 0x80000 with the family text.
TEST(Mkimage, CommonMultibootForEveryChipFamily) {
    fwtest::TempDir dir("fwunit");
    for (const ChipInfo &chip : all_chips()) {
        if (chip.bios_chip_code == 0) continue;
        SCOPED_TRACE(std::string(chip.name));
        const std::string out = dir / (std::string(chip.name) + ".bin");
        std::vector<std::string> args = {"multiboot", "--out", out, "--chip", std::string(chip.name), "--bios", "2.01",
                                         "--fcode", "3.02", "--efi", "4.03", "--model", "VX-TEST"};
        if (chip.has_firmware) args.insert(args.end(), {"--firmware", "7.1.2"});
        ASSERT_EQ(mkimage(args).status, 0);
        const auto b = bytes_of(out);
        ASSERT_EQ(b.size(), kMultibootSize);
        const auto images = walk_option_rom(b);
        ASSERT_EQ(images.size(), 3u);
        EXPECT_TRUE(images[0].common && images[0].checksum_ok);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[kBiosHwType]), 4),
                  std::string(chip.name.substr(3)) + std::string(4 - chip.name.substr(3).size(), '\0'));
        EXPECT_EQ(b[kBiosChipCode], chip.bios_chip_code);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[kBiosModel]), 8), "VX-TEST ");
        for (size_t i = 1; i < 3; ++i)
            EXPECT_EQ(b[images[i].offset + kEfiFcodeDeviceId] | (b[images[i].offset + kEfiFcodeDeviceId + 1] << 8),
                      chip.device_id);
        if (chip.has_firmware) {
            const auto fw = inspect_firmware(std::span<const uint8_t>(b).subspan(kMultibootFirmwareOffset));
            ASSERT_TRUE(fw.has_value());
            EXPECT_TRUE(fw->valid());
            EXPECT_EQ(fw->family_text, std::string(chip.family) + "xx Firmware");
        }
    }
}

// The FCX123S variant has no chip row of its own: its hardware type and chip
// code are given; the standard 128 KiB image of an older chip has no marker.
TEST(Mkimage, VariantAndStandardBiosImages) {
    fwtest::TempDir dir("fwunit");
    ASSERT_EQ(mkimage({"multiboot", "--out", dir / "s.bin", "--chip", "FCX123", "--bios", "1.70", "--efi", "1.10",
                       "--hw-type", "123S", "--chip-code", "0x21", "--firmware", "3.4.0"})
                  .status,
              0);
    const auto s = bytes_of(dir / "s.bin");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&s[kBiosHwType]), 4), "123S");
    EXPECT_EQ(s[kBiosChipCode], 0x21);
    EXPECT_TRUE(walk_option_rom(s)[0].checksum_ok);

    ASSERT_EQ(mkimage({"multiboot", "--out", dir / "std.bin", "--chip", "FCX120", "--bios", "1.30", "--no-common",
                       "--size", "0x20000"})
                  .status,
              0);
    const auto std120 = bytes_of(dir / "std.bin");
    ASSERT_EQ(std120.size(), 0x20000u);
    const auto images = walk_option_rom(std120);
    ASSERT_EQ(images.size(), 1u);
    EXPECT_FALSE(images[0].common);
    EXPECT_EQ(images[0].major, 1);
    EXPECT_EQ(images[0].minor, 30);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&std120[kBiosHwType]), 4), std::string("120\0", 4));
    EXPECT_NE(mkimage({"multiboot", "--out", dir / "bad.bin", "--chip", "FCX120", "--bios", "1.0", "--hw-type", "12345"})
                  .status,
              0);
}

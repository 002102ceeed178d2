// SPDX-License-Identifier: MIT
// The update engine's pure parts: the update decision, the multiboot checks
// and patches, the standard BIOS flow's walk, the default area carried into
// a new image and the plan of region writes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "chip_table.h"
#include "flash_defaults.h"
#include "multiboot.h"
#include "option_rom.h"
#include "optrom_request.h"
#include "oss.h"
#include "process.h"
#include "region_plan.h"
#include "update_decision.h"

namespace {

using Bytes = std::vector<uint8_t>;

// ------------------------------------------------------------- decision

VersionCtrEntry entry(std::initializer_list<uint8_t> bios, std::initializer_list<uint8_t> efi,
                      std::initializer_list<uint8_t> fcode, std::initializer_list<uint8_t> fw) {
    VersionCtrEntry e{};
    std::copy(bios.begin(), bios.end(), e.biosVersion);
    std::copy(efi.begin(), efi.end(), e.efiVersion);
    std::copy(fcode.begin(), fcode.end(), e.fcodeVersion);
    std::copy(fw.begin(), fw.end(), e.fwVersion);
    return e;
}

constexpr UpdateChipKinds k4Gb{1, 1};
constexpr UpdateChipKinds k8Gb{0, 4};
constexpr UpdateChipKinds kOlder{0, 0};

TEST(UpdateDecision, StandardModeFirmwareRuleComparesMinorsAcrossMajors) {
    const VersionCtrEntry row = entry({1, 5}, {1, 2}, {1, 20}, {4, 3, 0});
    // 5.02.00 against 4.03.00: the majors are not compared, the minor is below.
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, entry({1, 5}, {1, 2}, {1, 20}, {5, 2, 0}), row), 1);
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, entry({1, 5}, {1, 2}, {1, 20}, {4, 2, 0}),
                                entry({1, 5}, {1, 2}, {1, 20}, {5, 2, 0})),
              0);
    // Equal majors: minor, then sub.
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, entry({1, 5}, {1, 2}, {1, 20}, {4, 3, 0}), entry({1, 5}, {1, 2}, {1, 20}, {4, 3, 1})), 1);
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, entry({1, 5}, {1, 2}, {1, 20}, {4, 3, 1}), entry({1, 5}, {1, 2}, {1, 20}, {4, 3, 1})), 0);
}

TEST(UpdateDecision, ComponentsCountByModeAndChipKind) {
    // BIOS newer, EFI older: the EFI decides on a 4 Gb chip.
    const VersionCtrEntry a = entry({1, 10}, {1, 5}, {1, 0}, {5, 0, 0});
    const VersionCtrEntry r = entry({1, 9}, {1, 6}, {1, 0}, {5, 0, 0});
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, a, r), 1);
    // Mode 0 judges an 8 Gb chip on its BIOS alone; modes 2 and 3 on everything.
    const VersionCtrEntry cur8 = entry({1, 10}, {1, 7}, {2, 5}, {8, 2, 1});
    const VersionCtrEntry row8 = entry({1, 10}, {1, 7}, {2, 5}, {8, 3, 0});
    EXPECT_EQ(DecideFlashUpdate(0, k8Gb, cur8, row8), 0);
    EXPECT_EQ(DecideFlashUpdate(3, k8Gb, cur8, row8), 1);
    EXPECT_EQ(DecideFlashUpdate(3, kOlder, cur8, row8), 0);
    // Mode 2 rewrites what is at revision; mode 3 leaves it.
    EXPECT_EQ(DecideFlashUpdate(2, k8Gb, row8, row8), 1);
    EXPECT_EQ(DecideFlashUpdate(3, k8Gb, row8, row8), 0);
    EXPECT_EQ(DecideFlashUpdate(2, k8Gb, entry({1, 11}, {1, 8}, {2, 6}, {8, 3, 1}), row8), 0);
    EXPECT_EQ(DecideFlashUpdate(3, k8Gb, entry({1, 10}, {1, 7}, {2, 5}, {8, 3, 1}), row8), 1);
    // Mode 1 writes whatever the versions; an empty row never updates under mode 0.
    EXPECT_EQ(DecideFlashUpdate(1, kOlder, entry({9, 9}, {}, {}, {}), entry({}, {}, {}, {})), 1);
    EXPECT_EQ(DecideFlashUpdate(0, k4Gb, entry({1, 0}, {1, 0}, {1, 0}, {1, 0, 0}), entry({}, {}, {}, {})), 0);
}

TEST(UpdateDecision, UnknownModeReportsAndLeavesTheAdapter) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(DecideFlashUpdate(7, k4Gb, entry({1, 0}, {}, {}, {}), entry({2, 0}, {}, {}, {})), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Unknown command line option!\r\n");
}

// ------------------------------------------------------------- images

void put16(Bytes &b, size_t at, uint16_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}

constexpr size_t kPcir = 0x60;

struct Image {
    uint8_t type = kCodeX86;
    uint16_t deviceId = 0x1410;
    bool common = true;
    const char *hw = "141";
    uint8_t chipCode = 0x25;
    uint8_t blocks = 8;
    bool paramBlock = true;
    uint8_t seed = 0;
};

Bytes build(const Image &s, bool last) {
    Bytes b(static_cast<size_t>(s.blocks) * 512);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(0x80 | ((i * 5 + s.seed) & 0x3F));
    std::fill(b.begin() + 2, b.begin() + kPcir + 0x20, 0);
    b[0] = 0x55;
    b[1] = 0xAA;
    b[2] = s.blocks;
    put16(b, 0x18, kPcir);
    if (s.type == kCodeX86) {
        std::memcpy(&b[0x09], s.hw, std::strlen(s.hw));
        b[0x14] = s.chipCode;
        std::memcpy(&b[0x1B], "SSVID", 5);
        put16(b, 0x20, 0x1DE5);
        put16(b, 0x2A, s.deviceId);
        if (s.common) std::memcpy(&b[0x40], "MODL", 4);
        std::memcpy(&b[0x44], "GENERIC ", 8);
        if (s.paramBlock) std::memcpy(&b[0x100], "MEFCX ", 6);
    } else {
        put16(b, 0x22, s.deviceId);
    }
    std::memcpy(&b[kPcir], "PCIR", 4);
    put16(b, kPcir + 4, 0x1DE5);
    put16(b, kPcir + 6, s.deviceId);
    put16(b, kPcir + 0x10, s.blocks);
    b[kPcir + 0x12] = 2;
    b[kPcir + 0x13] = 1;
    b[kPcir + 0x14] = s.type;
    b[kPcir + 0x15] = last ? 0x80 : 0;
    if (s.type == kCodeX86) ComputeChecksum(1, b, 0);
    return b;
}

// BIOS, FCode and EFI images at 0 of a 1 MiB buffer filled with 0xFF.
Bytes multiboot(std::vector<Image> images, size_t size = 0x100000) {
    Bytes all;
    for (size_t i = 0; i < images.size(); ++i) {
        const Bytes one = build(images[i], i + 1 == images.size());
        all.insert(all.end(), one.begin(), one.end());
    }
    all.resize(size, 0xFF);
    return all;
}

Image bios141() { return Image{}; }
Image fcode(uint16_t id = 0x1410) { return Image{kCodeFcode, id, false, "", 0, 2}; }
Image efi(uint16_t id = 0x1410) { return Image{kCodeEfi, id, false, "", 0, 2}; }

int validate(const char *chip, Bytes &buffer, const char *model = "VX2141", uint32_t region = 0) {
    return ValidateMultibootForChip(chip, 0x1E0F, buffer, static_cast<int32_t>(buffer.size()), model, 0, &region);
}

TEST(Multiboot, CommonImagesArePatchedForTheAdapter) {
    Bytes buffer = multiboot({bios141(), fcode(0x1400), efi(0x1400)});
    uint32_t region = 0;
    ASSERT_EQ(ValidateMultibootForChip("FCX141", 0x1E0F, buffer, 0x100000, "A-MODEL-NAME-LONGER-THAN-18", 0, &region), 0);
    EXPECT_EQ(region, 0xFFu) << "the request is turned into a whole option ROM write";
    // Model cut to 18 characters and ended by a blank at 0x56.
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&buffer[0x44]), 19), "A-MODEL-NAME-LONGE ");
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&buffer[0x09]), 4), std::string("141\0", 4));
    EXPECT_EQ(buffer[0x14], 0x25);
    EXPECT_EQ(buffer[0x20], 0x0F);
    EXPECT_EQ(buffer[0x21], 0x1E);
    EXPECT_EQ(buffer[0x2A], 0x10);
    EXPECT_EQ(buffer[0x2B], 0x14);
    EXPECT_EQ(ComputeChecksum(0, buffer, 0), 1);
    // FCode and EFI carry the chip's device ID.
    EXPECT_EQ(buffer[4096 + 0x22], 0x10);
    EXPECT_EQ(buffer[4096 + 1024 + 0x22], 0x10);
    EXPECT_EQ(buffer[4096 + 1024 + 0x23], 0x14);

    // A short model: zero-filled field, blank after the text.
    Bytes shortModel = multiboot({bios141()});
    ASSERT_EQ(validate("FCX141", shortModel, "VX"), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&shortModel[0x44]), 19), std::string("VX \0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 19));
}

TEST(Multiboot, RejectedImagesGiveTheirCodes) {
    // Wrong size, before anything else.
    Bytes small = multiboot({bios141()}, 0x80000);
    EXPECT_EQ(validate("FCX141", small), kBootWrongSize);

    // No common image at all: 10, buffer untouched.
    Bytes plain = multiboot({Image{kCodeX86, 0x1410, false}});
    const Bytes before = plain;
    EXPECT_EQ(validate("FCX141", plain), kBootNotForAdapter);
    EXPECT_EQ(plain, before);

    // FCX123S takes only chip code 0x21.
    Image s123{kCodeX86, 0x1230, true, "123S", 0x1D};
    Bytes b123 = multiboot({s123});
    EXPECT_EQ(validate("FCX123S", b123), kBootNotForAdapter);
    s123.chipCode = 0x21;
    Bytes ok123 = multiboot({s123});
    EXPECT_EQ(validate("FCX123S", ok123), 0);
    EXPECT_EQ(ok123[0x2A] | (ok123[0x2B] << 8), 0x1230) << "FCX123S gets the FCX123 device ID";

    // A family the image's chip code is refused for.
    Bytes for126 = multiboot({bios141()});
    EXPECT_EQ(validate("FCX126", for126), kBootNotForAdapter);

    // Chip known to the checks but not to the patch table.
    Bytes for121 = multiboot({Image{kCodeX86, 0x1210, true, "121", 0x15}});
    EXPECT_EQ(validate("FCX121", for121), kBootUnknownHardware);

    // EFI and FCode of another family.
    Bytes efi160 = multiboot({bios141(), efi(0x1600)});
    EXPECT_EQ(validate("FCX141", efi160), kBootIdMismatch);
    Bytes fcode160 = multiboot({bios141(), fcode(0x1600)});
    EXPECT_EQ(validate("FCX141", fcode160), kBootIdMismatch);

    // The second image lacks its signature after the first one was patched.
    Bytes noSig = multiboot({bios141(), fcode()});
    noSig[4096] = 0;
    EXPECT_EQ(validate("FCX141", noSig), kBootNoSignature);
    EXPECT_EQ(noSig[0x14], 0x25);
    Bytes noPcir = multiboot({bios141(), efi()});
    noPcir[4096 + kPcir] = 'X';
    EXPECT_EQ(validate("FCX141", noPcir), kBootNoPcir);
}

TEST(Multiboot, ChecksumAndEfiToleranceAsDesigned) {
    // A common BIOS with a wrong checksum is accepted, patched and sealed.
    Bytes bad = multiboot({bios141()});
    bad[8 * 512 - 1] ^= 0x5A;
    EXPECT_EQ(validate("FCX141", bad), 0);
    EXPECT_EQ(ComputeChecksum(0, bad, 0), 1);

    // An EFI image whose device ID high byte is 0x25 passes for any adapter.
    Bytes any = Bytes(64, 0);
    any[0x23] = 0x25;
    EXPECT_EQ(ValidateEFI(any, "160", 0), 0);
    EXPECT_EQ(ValidateEFI(any, "123", 0), 0);
    any[0x23] = 0x24;
    EXPECT_EQ(ValidateEFI(any, "160", 0), kBootIdMismatch);

    // A standard BIOS is not checksummed, only matched by hardware type.
    Bytes standard = build(Image{kCodeX86, 0x1200, false, "120", 0}, true);
    standard[standard.size() - 1] ^= 1;
    EXPECT_EQ(Validate(standard, "120", 0), 0);
    EXPECT_EQ(Validate(standard, "122", 0), kBootNotForAdapter);
}

TEST(Multiboot, FcodeForms) {
    Bytes b(0x18040, 0);
    b[0] = 0x55;
    b[0x22] = 0x10;
    b[0x23] = 0x12;
    EXPECT_EQ(validateFCode(b, "120", 0, 0), kBootIdMismatch) << "all four characters of 1210 against 120";
    b[0x22] = 0x00;
    EXPECT_EQ(validateFCode(b, "120", 0, 0), kBootIdMismatch) << "\"1200\" is four characters, \"120\" three";
    b[0x23] = 0x12;
    b[0x22] = 0x10;
    EXPECT_EQ(validateFCode(b, "121", 0, 0), kBootIdMismatch) << "an FCX121 never passes";
    EXPECT_EQ(validateFCode(b, "127", 0, 0), 0);
    b[0] = 0;
    EXPECT_EQ(validateFCode(b, "127", 0, 0), kBootNoPcir);
    b[1] = 0x55;
    EXPECT_EQ(validateFCode(b, "127", 0, 0), 0);

    // SBus form: fixed offsets of the whole buffer and a first byte of 0xF1.
    b[0x18038] = '1';
    b[0x18039] = '2';
    EXPECT_EQ(validateFCode(b, "120", 1, 0), kBootNoPcir);
    b[0] = 0xF1;
    EXPECT_EQ(validateFCode(b, "120", 1, 0), 0);
    b[0x18038] = 'x';
    EXPECT_EQ(validateFCode(b, "120", 1, 0), kBootIdMismatch);
    EXPECT_EQ(validateFCode(b, "127", 1, 0), 0) << "only the second character for other chips";
    EXPECT_EQ(validateFCode(Bytes(16, 0xF1), "127", 1, 0), kBootIdMismatch) << "short buffer";

    EXPECT_TRUE(isCommonFCodeImage({}, "123S"));
    EXPECT_TRUE(isCommonEFIImage({}, "150"));
    EXPECT_FALSE(isCommonEFIImage({}, "120"));
    EXPECT_FALSE(isCommonEFIImage({}, "1234"));
    EXPECT_EQ(updateImageFCode(0, b, "FCX122", 0), kBootUnknownHardware);
    EXPECT_EQ(UpdateImageEFI(0, b, "FCX126", 0), kBootUnknownHardware);
}

TEST(Multiboot, OlderEntryChecksSizesByRegion) {
    Bytes mb = multiboot({bios141()});
    EXPECT_EQ(ValidateMultibootForChip_1("FCX141", 0x1E0F, mb, 0x100000, "M", 0, 0xFF), 0);
    EXPECT_EQ(ValidateMultibootForChip_1("FCX141", 0x1E0F, mb, 0x40000, "M", 0, 7), kBootRegionWrongSize);
    EXPECT_EQ(ValidateMultibootForChip_1("FCX120", 0x1E0F, mb, 0x100000, "M", 0, 7), kBootCodeWrongSize);
    EXPECT_EQ(ValidateMultibootForChip_1("FCX120", 0x1E0F, mb, 0x20000, "M", 0, 2), kBootRegionWrongSize);
    EXPECT_EQ(ValidateMultibootForChip_1("FCX160", 0x1E0F, mb, 0x40001, "M", 0, 1), kBootFirmwareTooLarge);
    EXPECT_EQ(ValidateMultibootForChip_1("FCX160", 0x1E0F, mb, 0x40000, "M", 0, 1), 27);
    EXPECT_EQ(isBIOSImage(mb, 0x20000, 0), true);
    EXPECT_EQ(isBIOSImage(mb, 0x100000, 0), false);
}

// The standard flow reads the chain from the file and patches the buffer.
struct StandardFile {
    fwtest::TempDir dir{"fwunit"};
    FILE *file = nullptr;
    Bytes buffer;
    explicit StandardFile(const Bytes &content) : buffer(content) {
        fwtest::write_file(dir / "std.bin", std::string(content.begin(), content.end()));
        file = std::fopen((dir / "std.bin").c_str(), "rb");
    }
    ~StandardFile() {
        if (file != nullptr) std::fclose(file);
    }
    int run(const char *chip, uint32_t region = 0) {
        return ValidateStandardForChip(file, chip, 0x1DE5, buffer, static_cast<int32_t>(buffer.size()), "VX2127", 0,
                                       region);
    }
};

TEST(StandardBios, PlainImagesAreOnlyMatched) {
    Bytes img = build(Image{kCodeX86, 0x1200, false, "120", 0x15, 64}, true);
    img.resize(0x20000, 0xFF);
    StandardFile ok(img);
    EXPECT_EQ(ok.run("FCX120"), 0);
    EXPECT_EQ(ok.buffer, img) << "a standard image is written as it is";
    StandardFile other(img);
    EXPECT_EQ(other.run("FCX122"), kBootNotForAdapter);
    StandardFile empty(Bytes(0x20000, 0xFF));
    EXPECT_EQ(empty.run("FCX120"), kBootNoHeader);
}

TEST(StandardBios, FurtherImagesArePatchedAtOffsetZero) {
    Bytes chain = multiboot({Image{kCodeX86, 0x1270, true, "127", 0x20}, fcode(0x1270), efi(0x1270)}, 0x20000);
    StandardFile f(chain);
    EXPECT_EQ(f.run("FCX127"), 0);
    // The FCode and EFI patches land in the BIOS image at 0x22, not in their own images.
    EXPECT_EQ(f.buffer[0x22], 0x70);
    EXPECT_EQ(f.buffer[0x23], 0x12);
    EXPECT_EQ(f.buffer[4096 + 0x22], chain[4096 + 0x22]);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&f.buffer[0x44]), 7), "VX2127 ");
}

// ------------------------------------------------------------- default area

TEST(DefaultArea, OnlyThe8GbChipAndWithBlockShift) {
    Bytes current = multiboot({Image{kCodeX86, 0x1600, true, "160", 0x2F, 8, true, 17}}, 0x40000);
    put16(current, 0x20, 0x1E0F);
    Bytes image = multiboot({Image{kCodeX86, 0x1600, true, "160", 0x2F, 8, true, 3}, fcode(0x1600),
                             Image{kCodeX86, 0x1600, true, "160", 0x2F, 4, true, 9}, efi(0x1600)});
    const Bytes original = image;

    Bytes untouched = image;
    EXPECT_EQ(PreserveFlashDefaultsForChip(0, current, untouched), -1);
    EXPECT_EQ(untouched, original);

    ASSERT_EQ(PreserveFlashDefaultsForChip(1, current, image), 0);
    EXPECT_EQ(image[0x20], 0x0F);
    EXPECT_EQ(image[0x21], 0x1E);
    // 512 bytes from two bytes into the marker: "FCX " stays, the block follows.
    EXPECT_TRUE(std::equal(current.begin() + 0x102, current.begin() + 0x302, image.begin() + 0x102));
    EXPECT_NE(image[0x302], current[0x302]);
    EXPECT_EQ(ComputeChecksum(0, image, 0), 1);
    // The second x86 image (after the FCode) receives the same block.
    const size_t second = 8 * 512 + 1024;
    EXPECT_EQ(image[second + 0x21], 0x1E);
    EXPECT_TRUE(std::equal(current.begin() + 0x102, current.begin() + 0x302, image.begin() + second + 0x102));
    EXPECT_EQ(ComputeChecksum(0, image, second), 1);
    // The EFI image after it is not touched.
    EXPECT_TRUE(std::equal(original.begin() + second + 2048, original.begin() + second + 3072,
                           image.begin() + second + 2048));

    // Nothing to carry from a blank region buffer (what the region update
    // hands over): only the checksums are sealed again.
    Bytes fresh = original;
    ASSERT_EQ(PreserveFlashDefaultsForChip(1, Bytes(0x100000, 0), fresh), 0);
    EXPECT_EQ(fresh, original);
}

// ------------------------------------------------------------- region plan

TEST(RegionPlan, WholeOptionRomWritesBootCodeAndFirmware) {
    const LayoutRegion fcx141[] = {{0xFF, 0x100000}, {0x07, 0x40000}, {0x29, 0x4000}, {0x2A, 0x4000}, {0x01, 0x80000}};
    EXPECT_EQ(FindRequestRegion(fcx141, 0xFF), 0);
    EXPECT_EQ(FindRequestRegion(fcx141, 0x05), -1);
    const auto steps = PlanRegionWrites(fcx141, 0xFF, 0x100000);
    ASSERT_EQ(steps.size(), 5u);
    EXPECT_FALSE(steps[0].write);
    EXPECT_TRUE(steps[1].write && steps[1].traced && steps[1].from == 0 && steps[1].length == 0x40000);
    EXPECT_FALSE(steps[2].write || steps[3].write);
    EXPECT_TRUE(steps[4].write && steps[4].from == 0x80000 && steps[4].length == 0x80000 && steps[4].fits);

    const LayoutRegion fcx123[] = {{0xFF, 0x100000}, {0x05, 0x100000}};
    const auto both = PlanRegionWrites(fcx123, 0xFF, 0x100000);
    EXPECT_TRUE(both[1].write && !both[1].traced && both[1].length == 0x100000);

    // A firmware entry that would read past the region buffer is never planned as fitting.
    const LayoutRegion odd[] = {{0xFF, 0x80000}, {0x01, 0x80000}};
    EXPECT_FALSE(PlanRegionWrites(odd, 0xFF, 0x80000)[1].fits);
    // Another request region writes its own entry with the whole buffer.
    const auto own = PlanRegionWrites(fcx141, 0x07, 0x40000);
    EXPECT_TRUE(own[1].write && own[1].length == 0x40000);
    EXPECT_FALSE(own[4].write);
}

TEST(OptionRomRequest, RegionNames) {
    ASSERT_EQ(addUserOptionROMRequest("all", "image.bin"), 0);
    EXPECT_EQ(g_ptrOptionROMRequest->Region, 0xFFu);
    EXPECT_STREQ(g_ptrOptionROMRequest->FileName, "image.bin");
    ASSERT_EQ(addUserOptionROMRequest(nullptr, "std.bin"), 0);
    EXPECT_EQ(g_ptrOptionROMRequest->Region, 0u);
    EXPECT_EQ(addUserOptionROMRequest("boot", "x"), -1);
    freeUserOptionROMReq();
    EXPECT_EQ(g_ptrOptionROMRequest, nullptr);
}

}  // namespace

// SPDX-License-Identifier: MIT
// Option ROM chains, checksums and firmware images: built images, a corpus
// of damaged files and a seeded loop over random buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cmdline.h"
#include "firmware_image.h"
#include "messages.h"
#include "option_rom.h"
#include "process.h"

namespace {

using Bytes = std::vector<uint8_t>;

void put_le16(Bytes &b, size_t at, uint16_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
void put_be32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
uint32_t get_be32(const Bytes &b, size_t at) {
    return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) | b[at + 3];
}

// One image of `blocks` 512-byte units with its data structure at 0x1C.
Bytes make_image(uint8_t blocks, uint8_t codeType, bool last, uint16_t deviceId = 0x2422) {
    Bytes b(static_cast<size_t>(blocks) * 512);
    for (size_t i = 0x40; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i * 7);
    b[0] = 0x55;
    b[1] = 0xAA;
    b[2] = blocks;
    put_le16(b, 0x18, 0x1C);
    std::memcpy(&b[0x1C], "PCIR", 4);
    put_le16(b, 0x1C + 0x04, kVarnixPciVendorId);
    put_le16(b, 0x1C + 0x06, deviceId);
    put_le16(b, 0x1C + 0x0A, 0x18);
    put_le16(b, 0x1C + 0x10, blocks);
    b[0x1C + 0x12] = 2;
    b[0x1C + 0x13] = 1;
    b[0x1C + 0x14] = codeType;
    b[0x1C + 0x15] = last ? 0x80 : 0x00;
    return b;
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

std::vector<uint64_t> chain_offsets(const Bytes &buffer) {
    std::vector<uint64_t> offsets;
    WalkOptionROMChain(buffer, [&](int, uint64_t offset, const uint8_t *, const uint8_t *) { offsets.push_back(offset); });
    return offsets;
}

Bytes read_corpus(const std::string &name) {
    const std::string text = fwtest::read_file(std::string(FW_CORPUS_DIR) + "/" + name);
    return Bytes(text.begin(), text.end());
}

// A firmware image of two segments, each summing to zero, with the family
// text of `family` (for example "FCX14") in the first segment.
Bytes make_firmware(const char *family, uint32_t l1 = 16, uint32_t l2 = 16) {
    Bytes b(static_cast<size_t>(l1 + l2) * 4);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i * 13 + 1);
    put_be32(b, 3 * 4, l1);
    put_be32(b, (l1 + 3) * 4, l2);
    std::memcpy(&b[16], family, 5);
    std::memcpy(&b[21], "xx Firmware", 11);
    auto fix = [&](uint32_t from, uint32_t count) {
        uint32_t sum = 0;
        for (uint32_t w = from; w + 1 < from + count; ++w) sum += get_be32(b, w * 4);
        put_be32(b, (from + count - 1) * 4, 0u - sum);
    };
    fix(0, l1);
    fix(l1, l2);
    return b;
}

TEST(OptionRom, ChainWalkFollowsLengthsAndStopsSafely) {
    const Bytes chain = concat({make_image(2, kCodeX86, false), make_image(1, kCodeFcode, false),
                                make_image(3, kCodeEfi, true)});
    EXPECT_EQ(chain_offsets(chain), (std::vector<uint64_t>{0, 1024, 1536}));

    // First image marked last: exactly one.
    EXPECT_EQ(chain_offsets(concat({make_image(1, kCodeX86, true), make_image(1, kCodeEfi, true)})).size(), 1u);
    // The next image would start past the end: the walk ends quietly.
    EXPECT_EQ(chain_offsets(make_image(1, kCodeX86, false)).size(), 1u);
    // The size byte at 0x02 does not steer the walk; the length field does.
    Bytes odd = chain;
    odd[2] = 7;
    EXPECT_EQ(chain_offsets(odd).size(), 3u);
}

TEST(OptionRom, AccessorsAndLabels) {
    Bytes img = make_image(1, kCodeFcode, true, 2);
    const uint8_t *data = &img[0x1C];
    EXPECT_TRUE(IsFcodeImage(data));
    EXPECT_FALSE(IsBiosImage(data));
    EXPECT_TRUE(IsLastImage(data));
    EXPECT_TRUE(IsVendorImage(data));
    EXPECT_EQ(GetImageLength(data), 512u);
    EXPECT_EQ(GetDataLength(data), 0x18);
    EXPECT_EQ(GetDataOffset(img.data()), 0x1C);
    img[0x1C + 0x15] = 0x7F;
    EXPECT_FALSE(IsLastImage(data));

    // Device IDs 1 to 3 are the data images of the chain.
    const struct {
        uint16_t id;
        bool driver;
    } ids[] = {{0, true}, {1, false}, {2, false}, {3, false}, {4, true}, {0xFFFF, true}};
    for (const auto &c : ids) {
        put_le16(img, 0x1C + 0x06, c.id);
        EXPECT_EQ(IsDriverImage(data), c.driver) << c.id;
    }
    EXPECT_STREQ(DeviceIdLabel(2), "(FCX110 firmware)");
    EXPECT_STREQ(DeviceIdLabel(7), "");
    EXPECT_STREQ(DeviceIdLabel(0), "");
    EXPECT_STREQ(CodeTypeLabel(3), "(EFI driver)");
    EXPECT_STREQ(CodeTypeLabel(4), "");
    EXPECT_TRUE(CompareSignature(img.data(), ""));

    Bytes bytes = {1, 2, 3, 4};
    EXPECT_EQ(vxpci_chg_endian(bytes), 0x0403);
    EXPECT_EQ(bytes, (Bytes{4, 3, 2, 1}));
}

TEST(OptionRom, ChecksumRules) {
    Bytes img = make_image(1, kCodeX86, true);
    ASSERT_EQ(ComputeChecksum(1, img, 0), 1);
    EXPECT_EQ(ComputeChecksum(0, img, 0), 1);
    uint8_t sum = 0;
    for (size_t i = 0; i < 510; ++i) sum = static_cast<uint8_t>(sum + img[i]);
    EXPECT_EQ(static_cast<uint8_t>(sum + img[511]), 0);

    img[510] ^= 0x5A;  // left out of the sum on purpose
    EXPECT_EQ(ComputeChecksum(0, img, 0), 1);
    img[509] ^= 0x01;
    EXPECT_EQ(ComputeChecksum(0, img, 0), 0);

    // A second image in the same buffer is checked at its own offset.
    Bytes two = concat({make_image(1, kCodeX86, false), make_image(2, kCodeEfi, true)});
    ASSERT_EQ(ComputeChecksum(1, two, 512), 1);
    EXPECT_EQ(ComputeChecksum(0, two, 512), 1);

    // 128 blocks or more read as a negative size: nothing is summed, the
    // checksum is 0 and its byte lies before the image (offset + size - 1).
    Bytes big(0x20000, 0x11);
    const uint64_t at = 0x18000;
    big[at + 2] = 0x80;  // -128 blocks: the byte at 0x18000 - 0x10000 - 1
    EXPECT_EQ(ComputeChecksum(0, big, at), 0);
    ASSERT_EQ(ComputeChecksum(1, big, at), 1);
    EXPECT_EQ(big[at - 0x10001], 0);
    EXPECT_EQ(ComputeChecksum(0, big, at), 1);
    big[at + 2] = 0xFF;  // -1 block: the byte 513 before the image
    EXPECT_EQ(ComputeChecksum(0, big, at), 0);
    ASSERT_EQ(ComputeChecksum(1, big, at), 1);
    EXPECT_EQ(big[at - 513], 0);
    // A size byte of 0: the byte just before the image.
    big[at + 2] = 0;
    EXPECT_EQ(ComputeChecksum(0, big, at), 0);
    ASSERT_EQ(ComputeChecksum(1, big, at), 1);
    EXPECT_EQ(big[at - 1], 0);
    // ... and where that byte would lie before the buffer, nothing is touched.
    Bytes low = make_image(2, kCodeX86, true);
    low[2] = 0x80;
    const Bytes before = low;
    EXPECT_EQ(ComputeChecksum(1, low, 0), 0);
    EXPECT_EQ(ComputeChecksum(0, low, 0), 0);
    low[2] = 0;
    EXPECT_EQ(ComputeChecksum(1, low, 0), 0);
    low[2] = 0x80;
    EXPECT_EQ(low, before);
    // An image that runs past the buffer, or an offset past it.
    Bytes cut = make_image(2, kCodeX86, true);
    cut.resize(700);
    EXPECT_EQ(ComputeChecksum(1, cut, 0), 0);
    EXPECT_EQ(ComputeChecksum(0, cut, 5000), 0);
}

TEST(OptionRom, CommonBiosMarker) {
    Bytes img = make_image(1, kCodeX86, true);
    std::memcpy(&img[0x40], "MODL", 4);
    EXPECT_TRUE(isCommonBIOSImage(img, 0));
    img[0x43] = 'X';
    EXPECT_FALSE(isCommonBIOSImage(img, 0));
    EXPECT_FALSE(isCommonBIOSImage(img, img.size() - 0x41));
    EXPECT_FALSE(isCommonBIOSImage(img, 1u << 30));
}

TEST(OptionRom, FileLoadingBoundsAndRoundTrip) {
    fwtest::TempDir dir("fwunit");
    Bytes buffer(0x20000);
    const std::string exact = dir / "exact.bin";
    std::string content(0x18000, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31);
    fwtest::write_file(exact, content);

    int32_t max = 0x18000;
    EXPECT_EQ(validateOptionROMFile(exact.c_str(), buffer, &max), 0);
    EXPECT_EQ(max, 0x18000);
    EXPECT_EQ(std::memcmp(buffer.data(), content.data(), content.size()), 0);

    max = 0x17FFF;
    EXPECT_EQ(validateOptionROMFile(exact.c_str(), buffer, &max), 4);
    // Larger than the buffer that would have to hold it.
    Bytes small(0x10000);
    max = 0x20000;
    EXPECT_EQ(validateOptionROMFile(exact.c_str(), small, &max), 4);
    // The limit is compared signed: a negative one refuses even an empty file.
    const std::string empty = dir / "empty.bin";
    fwtest::write_file(empty, "");
    max = -1;
    EXPECT_EQ(validateOptionROMFile(empty.c_str(), buffer, &max), 4);
    max = 100;
    EXPECT_EQ(validateOptionROMFile((dir / "absent.bin").c_str(), buffer, &max), 1);
    EXPECT_EQ(max, 0);

    EXPECT_EQ(scanOptionROMFile(nullptr, (dir / "absent.bin").c_str()), 1);
    const Bytes chain = concat({make_image(1, kCodeX86, false), make_image(1, kCodeEfi, true)});
    const std::string romPath = dir / "rom.bin";
    fwtest::write_file(romPath, std::string(chain.begin(), chain.end()));
    EXPECT_EQ(scanOptionROMFile(nullptr, romPath.c_str()), 0);

    // Saving writes, reads back and leaves the data in the buffer.
    Bytes save = chain;
    const std::string saved = dir / "saved.bin";
    EXPECT_EQ(dumpFlashBufferToFile(nullptr, save, static_cast<int32_t>(save.size()), saved.c_str()), 0);
    EXPECT_EQ(save, chain);
    EXPECT_EQ(fwtest::read_file(saved), std::string(chain.begin(), chain.end()));

    g_bSilentMode = 0;
    testing::internal::CaptureStderr();
    const std::string bad = dir / "no/such/dir/x.bin";
    EXPECT_EQ(dumpFlashBufferToFile(nullptr, save, 16, bad.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Cannot open file " + bad + " for saving !\r\n");
}

TEST(Firmware, SegmentsAndMarker) {
    const Bytes good = make_firmware("FCX14");
    const auto size = static_cast<int32_t>(good.size());
    EXPECT_EQ(validateFirmware(good, "FCX141", size, 1), kFirmwareValid);
    EXPECT_EQ(validateFirmware(good, "fcx140", size, 1), kFirmwareValid);
    EXPECT_EQ(validateFirmware(make_firmware("FCX16"), "fcx160", size, 1), kFirmwareValid);

    // Not this chip's business, or not its image.
    EXPECT_EQ(validateFirmware(good, "FCX141", size, 0), kFirmwareNotForChip);
    EXPECT_EQ(validateFirmware(good, "FCX150", size, 1), kFirmwareNotForChip);
    EXPECT_EQ(validateFirmware(good, "FCX160", size, 1), kFirmwareNotForChip);
    EXPECT_EQ(validateFirmware(good, "FCX141", 0, 1), kFirmwareNotForChip);
    EXPECT_EQ(isCorrectFirmwareImage(good, "FCX141", size), kFirmwareValid);

    for (size_t word : {size_t{9}, size_t{20}}) {
        Bytes flipped = good;
        flipped[word * 4 + 2] ^= 0x10;
        EXPECT_EQ(validateFirmware(flipped, "FCX141", size, 1), kFirmwareBadChecksum) << word;
    }

    // Lengths: too short for the first segment, a zero second length, a
    // second segment running past the buffer, a size smaller than the buffer.
    Bytes longFirst = good;
    put_be32(longFirst, 12, 40);
    EXPECT_EQ(validateFirmware(longFirst, "FCX141", size, 1), kFirmwareTooShort);
    Bytes zeroSecond = good;
    put_be32(zeroSecond, (16 + 3) * 4, 0);
    EXPECT_EQ(validateFirmware(zeroSecond, "FCX141", size, 1), kFirmwareBadChecksum);
    Bytes longSecond = good;
    put_be32(longSecond, (16 + 3) * 4, 1000);
    EXPECT_EQ(validateFirmware(longSecond, "FCX141", size, 1), kFirmwareBadChecksum);
    EXPECT_EQ(validateFirmware(good, "FCX141", 64, 1), kFirmwareTooShort);
}

TEST(Firmware, BridgeChipImage) {
    Bytes img(200, 0);
    std::memcpy(&img[82], "Tamar", 5);
    std::memcpy(&img[20], "Firmware", 8);
    const uint32_t version = 0x00040A1F;
    std::memcpy(&img[8], &version, sizeof version);
    EXPECT_EQ(isTamarFirmwareImage(img, nullptr, 200), kFirmwareRecognised);
    EXPECT_EQ(validateTamarFirmware(img, "fcx150", 200, 1), kFirmwareRecognised);
    EXPECT_EQ(validateTamarFirmware(img, "FCX150", 200, 0), kFirmwareNotForChip);
    EXPECT_EQ(validateTamarFirmware(img, "FCX160", 200, 1), kFirmwareNotForChip);
    EXPECT_EQ(isTamarFirmwareImage(img, nullptr, 86), kFirmwareNotForChip);
    EXPECT_EQ(isTamarFirmwareImage(img, nullptr, 0), kFirmwareNotForChip);
    char text[16];
    EXPECT_EQ(GetTamarFirmwareVersionFromImage(img, nullptr, text, sizeof text), 0);
    EXPECT_STREQ(text, "4.a.1f");

    Bytes atZero(200, 0);
    std::memcpy(&atZero[82], "Tamar", 5);
    std::memcpy(&atZero[0], "Firmware", 8);  // must start at 1 or later
    EXPECT_EQ(isTamarFirmwareImage(atZero, nullptr, 200), kFirmwareNotForChip);
}

TEST(ImageCorpus, DamagedFilesGiveTheirCodes) {
    const struct {
        const char *file;
        size_t images;  // images the chain walk reads
        int checksum;   // ComputeChecksum check mode at offset 0
        int firmware;   // validateFirmware for FCX141
    } cases[] = {
        {"rom_header_only.bin", 0, 0, kFirmwareNotForChip},
        {"rom_no_pcir.bin", 0, 0, kFirmwareNotForChip},
        {"rom_truncated_chain.bin", 1, 0, kFirmwareNotForChip},
        {"rom_zero_length.bin", 1, 0, kFirmwareNotForChip},
        {"rom_data_offset_wrap.bin", 0, 0, kFirmwareNotForChip},
        {"rom_negative_size.bin", 1, 0, kFirmwareNotForChip},
        {"garbage_random.bin", 0, 0, kFirmwareNotForChip},
        {"fw_short_first_segment.bin", 0, 0, kFirmwareTooShort},
        {"fw_truncated_second_segment.bin", 0, 0, kFirmwareBadChecksum},
        {"fw_garbage.bin", 0, 0, kFirmwareNotForChip},
    };
    for (const auto &c : cases) {
        Bytes data = read_corpus(c.file);
        ASSERT_FALSE(data.empty()) << c.file;
        EXPECT_EQ(chain_offsets(data).size(), c.images) << c.file;
        EXPECT_EQ(ComputeChecksum(0, data, 0), c.checksum) << c.file;
        EXPECT_EQ(validateFirmware(data, "FCX141", static_cast<int32_t>(data.size()), 1), c.firmware) << c.file;
    }
}

TEST(ImageCorpus, RandomBuffersNeverEscapeTheirBounds) {
    std::mt19937 rng(20261121);
    const Bytes seed = concat({make_image(1, kCodeX86, false), make_image(1, kCodeFcode, false),
                               make_image(1, kCodeEfi, true)});
    const Bytes fwSeed = make_firmware("FCX16");
    for (int round = 0; round < 3000; ++round) {
        Bytes b;
        switch (round % 3) {
            case 0: b.resize(rng() % 2048); for (auto &x : b) x = static_cast<uint8_t>(rng()); break;
            case 1: b = seed; break;
            case 2: b = fwSeed; break;
        }
        // Mutate a few bytes and cut the buffer somewhere.
        if (!b.empty()) {
            for (int m = 0; m < 4; ++m) b[rng() % b.size()] = static_cast<uint8_t>(rng());
            b.resize(rng() % (b.size() + 1));
        }
        const size_t images = chain_offsets(b).size();
        EXPECT_LE(images, b.size() / 512 + 1);
        for (uint64_t off : {uint64_t{0}, uint64_t{512}, uint64_t{1024}}) {
            const int check = ComputeChecksum(0, b, off);
            EXPECT_TRUE(check == 0 || check == 1);
            ComputeChecksum(1, b, off);
            isCommonBIOSImage(b, off);
        }
        const int fw = validateFirmware(b, "FCX160", static_cast<int32_t>(b.size()), 1);
        EXPECT_TRUE(fw == 25 || fw == 27 || fw == 28 || fw == 29) << fw;
        const int tamar = isTamarFirmwareImage(b, nullptr, static_cast<int32_t>(b.size()));
        EXPECT_TRUE(tamar == 0 || tamar == 27);
    }
}

}  // namespace

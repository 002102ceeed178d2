// SPDX-License-Identifier: MIT
// Boot code files for the update: the BIOS, EFI and FCode checks and the
// patches that fit an image to its adapter (patching twice gives the bytes of
// patching once), and the multiboot and standard file checks per chip.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <vector>

#include "messages.h"
#include "multiboot.h"
#include "option_rom.h"

namespace {
constexpr const char *kChips[] = {"FCX100", "FCX121", "FCX123", "FCX123S", "FCX140", "FCX141", "FCX144",
                                  "FCX150", "FCX160", "FCX180", "FCX185", "FCX1",   ""};
constexpr const char *kModels[] = {"VX2162", "", "A MODEL NAME TOO LONG FOR THE FIELD"};
}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const char *chip = in.PickValueInArray(kChips);
    const char *model = in.PickValueInArray(kModels);
    const uint16_t ssvid = in.ConsumeIntegral<uint16_t>();
    const int busFlag = in.ConsumeIntegralInRange(0, 1);
    const uint32_t region = in.PickValueInArray({0x01u, 0x07u, 0xFFu, 0x14u});
    const bool wholeFile = in.ConsumeBool();
    std::vector<uint8_t> image = in.ConsumeRemainingBytes<uint8_t>();

    std::vector<uint64_t> offsets{0};
    WalkOptionROMChain(image, [&](int, uint64_t offset, const uint8_t *, const uint8_t *) {
        offsets.push_back(offset);
    });
    for (const uint64_t o : offsets) {
        (void)Validate(image, chip, o);
        (void)ValidateEFI(image, chip, o);
        (void)validateFCode(image, chip, busFlag, o);
        (void)isBIOSImage(image, static_cast<int32_t>(image.size()), o);

        std::vector<uint8_t> once = image;
        if (UpdateImage(0, ssvid, once, model, chip, o) == kBootOk) {
            std::vector<uint8_t> twice = once;
            if (UpdateImage(0, ssvid, twice, model, chip, o) != kBootOk || twice != once) std::abort();
        }
        once = image;
        if (UpdateImageEFI(0, once, chip, o) == kBootOk) {
            std::vector<uint8_t> twice = once;
            if (UpdateImageEFI(0, twice, chip, o) != kBootOk || twice != once) std::abort();
        }
        once = image;
        if (updateImageFCode(0, once, chip, o) == kBootOk) {
            std::vector<uint8_t> twice = once;
            if (updateImageFCode(0, twice, chip, o) != kBootOk || twice != once) std::abort();
        }
    }
    (void)isCommonEFIImage(image, chip);
    (void)isCommonFCodeImage(image, chip);

    std::vector<uint8_t> file = image;
    (void)ValidateMultibootForChip_1(chip, ssvid, file, static_cast<int32_t>(file.size()), model, busFlag, region);
    if (wholeFile) {
        // A multiboot file is a whole megabyte; the input is its start.
        file = image;
        file.resize(kMultibootImageSize, 0xFF);
        uint32_t requested = region;
        (void)ValidateMultibootForChip(chip, ssvid, file, kMultibootImageSize, model, busFlag, &requested);
    }
    return 0;
}

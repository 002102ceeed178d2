// SPDX-License-Identifier: MIT
// Firmware files: the family marker, the two segment checksums and the
// bridge-chip image, for every chip that takes firmware and a declared size
// that may disagree with the buffer.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "firmware_image.h"
#include "messages.h"

namespace {
constexpr const char *kChips[] = {"FCX140", "FCX141", "FCX160", "FCX150", "FCX180", "FCX123S", "FCX1", ""};
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const char *chip = in.PickValueInArray(kChips);
    const int flag = in.ConsumeIntegralInRange(0, 2);
    const bool own_size = in.ConsumeBool();
    const int32_t declared = in.ConsumeIntegral<int32_t>();
    // An exact-size heap copy, so a read past the image is caught.
    const std::vector<uint8_t> image = in.ConsumeRemainingBytes<uint8_t>();
    const int32_t length = own_size ? declared : static_cast<int32_t>(image.size());

    const int status = validateFirmware(image, chip, length, flag);
    if (status == kFirmwareValid && isCorrectFirmwareImage(image, chip, length) != kFirmwareValid) std::abort();
    (void)validateTamarFirmware(image, chip, length, flag);
    (void)isTamarFirmwareImage(image, chip, length);
    char text[16];
    GetTamarFirmwareVersionFromImage(image, chip, text, sizeof text);
    if (std::memchr(text, '\0', sizeof text) == nullptr) std::abort();
    return 0;
}

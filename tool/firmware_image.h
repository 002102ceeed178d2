// SPDX-License-Identifier: MIT
// Firmware images: the two checksummed segments and the family marker of
// the 4 Gb and 8 Gb chips' firmware, and the bridge chip's image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum FirmwareCheck : int {
    kFirmwareRecognised = 0,    // bridge chip routines
    kFirmwareBadChecksum = 25,  // a segment length of zero, or a sum that is not zero
    kFirmwareNotForChip = 27,
    kFirmwareValid = 28,
    kFirmwareTooShort = 29,
};

// `size` is the number of valid bytes; it is bounded by the buffer too.
int validateFirmware(std::span<const uint8_t> buffer, const char *chipType, int32_t size, int firmwareFlag);
int isCorrectFirmwareImage(std::span<const uint8_t> buffer, const char *chipType, int32_t size);
int validateTamarFirmware(std::span<const uint8_t> buffer, const char *chipType, int32_t size, int firmwareFlag);
int isTamarFirmwareImage(std::span<const uint8_t> buffer, const char *ignored, int32_t size);
int GetTamarFirmwareVersionFromImage(std::span<const uint8_t> buffer, const char *ignored, char *text,
                                     size_t textSize);

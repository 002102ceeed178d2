// SPDX-License-Identifier: MIT
#include "firmware_image.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "byte_view.h"
#include "fw_strings.h"
#include "messages.h"

namespace {

constexpr size_t kMarkerSize = 16;  // "FCX" + 2 family characters + "xx" + 1 + "Firmware"
constexpr size_t kTamarNameAt = 82;
constexpr size_t kTamarVersionAt = 8;
constexpr size_t kTamarFirmwareWordLast = 128;

std::span<const uint8_t> bounded(std::span<const uint8_t> buffer, int32_t size) {
    if (size < 0) return {};
    const size_t n = static_cast<size_t>(size);
    return buffer.first(n < buffer.size() ? n : buffer.size());
}

bool matches_marker(const uint8_t *at, char family4, char family5) {
    return at[0] == 'F' && at[1] == 'C' && at[2] == 'X' && at[3] == static_cast<uint8_t>(family4) &&
           at[4] == static_cast<uint8_t>(family5) && at[5] == 'x' && at[6] == 'x' &&
           std::memcmp(at + 8, "Firmware", 8) == 0;
}

bool find_text(std::span<const uint8_t> image, std::string_view text, size_t from, size_t lastStart) {
    for (size_t at = from; at <= lastStart && at + text.size() <= image.size(); ++at) {
        if (std::memcmp(image.data() + at, text.data(), text.size()) == 0) return true;
    }
    return false;
}

}  // namespace

int isCorrectFirmwareImage(std::span<const uint8_t> buffer, const char *chipType, int32_t size) {
    FwTrace("isCorrectFirmwareImage enters.");
    const std::span<const uint8_t> image = bounded(buffer, size);
    if (size < 1 || chipType == nullptr || std::strlen(chipType) < 5) return kFirmwareNotForChip;
    for (size_t at = 0; at + kMarkerSize <= image.size(); ++at) {
        if (matches_marker(image.data() + at, chipType[3], chipType[4])) return kFirmwareValid;
    }
    return kFirmwareNotForChip;
}

int validateFirmware(std::span<const uint8_t> buffer, const char *chipType, int32_t size, int firmwareFlag) {
    const bool chipTakesFirmware =
        striscmp(chipType, "FCX140") == 0 || striscmp(chipType, "FCX141") == 0 || striscmp(chipType, "FCX160") == 0;
    if (!chipTakesFirmware || firmwareFlag != 1) return kFirmwareNotForChip;
    if (isCorrectFirmwareImage(buffer, chipType, size) != kFirmwareValid) return kFirmwareNotForChip;

    const std::span<const uint8_t> image = bounded(buffer, size);
    const ByteView view(image);
    const uint64_t l1 = *view.be32(3 * 4);  // the marker guarantees 16 bytes
    // The first segment and the word after it, which holds L2, must be there.
    if ((l1 + 3) * 4 > image.size()) return kFirmwareTooShort;
    const auto l2word = view.be32((l1 + 3) * 4);
    if (!l2word) return kFirmwareTooShort;
    const uint64_t l2 = *l2word;
    if (l1 == 0 || l2 == 0) return kFirmwareBadChecksum;

    uint32_t sum = 0;
    for (uint64_t w = 0; w < l1; ++w) sum += *view.be32(w * 4);
    if (sum != 0) return kFirmwareBadChecksum;
    // A second segment that runs past the image cannot be summed: the image
    // is damaged.
    if (!view.has(l1 * 4, l2 * 4)) return kFirmwareBadChecksum;
    for (uint64_t w = l1; w < l1 + l2; ++w) sum += *view.be32(w * 4);
    return sum == 0 ? kFirmwareValid : kFirmwareBadChecksum;
}

int isTamarFirmwareImage(std::span<const uint8_t> buffer, const char *, int32_t size) {
    FwTrace("isTamarFirmwareImage: bufSize=%d (%x)", size, static_cast<unsigned>(size));
    const std::span<const uint8_t> image = bounded(buffer, size);
    if (size < 1) return kFirmwareNotForChip;
    const bool named = find_text(image, "Tamar", kTamarNameAt, kTamarNameAt);
    const bool firmware = find_text(image, "Firmware", 1, kTamarFirmwareWordLast);
    return named && firmware ? kFirmwareRecognised : kFirmwareNotForChip;
}

int validateTamarFirmware(std::span<const uint8_t> buffer, const char *chipType, int32_t size, int firmwareFlag) {
    if (striscmp(chipType, "FCX150") != 0 || firmwareFlag != 1) return kFirmwareNotForChip;
    return isTamarFirmwareImage(buffer, chipType, size);
}

int GetTamarFirmwareVersionFromImage(std::span<const uint8_t> buffer, const char *, char *text, size_t textSize) {
    if (text == nullptr || textSize == 0) return 0;
    uint32_t word = 0;
    // Host order, as the bridge chip's tools write it.
    if (buffer.size() >= kTamarVersionAt + sizeof word) std::memcpy(&word, buffer.data() + kTamarVersionAt, sizeof word);
    std::snprintf(text, textSize, "%x.%x.%x", (word >> 16) & 0xFFu, (word >> 8) & 0xFFu, word & 0xFFu);
    return 0;
}

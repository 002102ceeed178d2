// SPDX-License-Identifier: MIT
#include "flash_defaults.h"

#include <cstring>
#include <optional>

#include "byte_view.h"
#include "messages.h"
#include "option_rom.h"

namespace {

constexpr uint64_t kSvidLabel = 28;  // "SVID", the end of the "SSVID" label
constexpr uint64_t kSvid = 32;
constexpr size_t kMarkerPositions = 0x1FFFA;  // start positions 0 to 0x1FFF9
constexpr uint64_t kBlockShift = 2;           // the block begins inside its marker
constexpr size_t kBlockSize = 512;

std::optional<uint64_t> find_marker(std::span<const uint8_t> bytes, uint64_t from) {
    static constexpr char kMarker[] = "MEFCX ";
    constexpr size_t kLength = sizeof kMarker - 1;
    for (uint64_t i = 0; i < kMarkerPositions; ++i) {
        const uint64_t at = from + i;
        if (at > bytes.size() || bytes.size() - at < kLength) return std::nullopt;
        if (std::memcmp(bytes.data() + at, kMarker, kLength) == 0) return at;
    }
    return std::nullopt;
}

bool has_svid_label(std::span<const uint8_t> bytes, uint64_t at) {
    const ByteView view(bytes);
    return at <= bytes.size() && view.has(at + kSvidLabel, 4) && std::memcmp(bytes.data() + at + kSvidLabel, "SVID", 4) == 0;
}

// Subsystem vendor ID and parameter block of the current contents into the
// BIOS image at `target`.
void carry_defaults(std::span<const uint8_t> current, std::span<uint8_t> image, uint64_t target) {
    if (has_svid_label(current, 0) && has_svid_label(image, target) && ByteView(current).has(kSvid, 2) &&
        ByteView(image).has(target + kSvid, 2)) {
        for (uint64_t i = 0; i < 2; ++i)
            if (image[target + kSvid + i] != current[kSvid + i]) image[target + kSvid + i] = current[kSvid + i];
    }
    const auto from = find_marker(current, 0);
    const auto to = find_marker(image, target);
    if (!from || !to) return;
    const uint64_t src = *from + kBlockShift;
    const uint64_t dst = *to + kBlockShift;
    // Both ends of the copy must lie inside their buffers.
    if (!ByteView(current).has(src, kBlockSize) || !ByteView(image).has(dst, kBlockSize)) return;
    std::memmove(image.data() + dst, current.data() + src, kBlockSize);
}

// The checksum of the BIOS image at `at`: the bytes before the last two are
// summed, the one before the checksum byte stays out on purpose.
void reseal(std::span<uint8_t> image, uint64_t at, bool second) {
    const auto blocks = ByteView(image).u8(at + 2);
    if (!blocks) return;
    const uint64_t size = static_cast<uint64_t>(*blocks) * 512;
    FwTrace(second ? "PreserveFCX8GbDefaults: biosSize(*)=%d (0x%x)" : "PreserveFCX8GbDefaults: biosSize=%d (0x%x)",
            static_cast<int>(size), static_cast<unsigned>(size));
    if (size < 2 || !ByteView(image).has(at, size)) return;
    uint8_t sum = 0;
    for (uint64_t i = 0; i + 2 < size; ++i) sum = static_cast<uint8_t>(sum + image[at + i]);
    const uint8_t checksum = static_cast<uint8_t>(0x100 - sum);
    image[at + size - 1] = checksum;
    FwTrace(second ? "PreserveFCX8GbDefaults: checksum(*)=%d (0x%x)" : "PreserveFCX8GbDefaults: checksum=%d (0x%x)",
            sum, sum);
    FwTrace(second ? "PreserveFCX8GbDefaults: checksum(*~)=%d (0x%x)" : "PreserveFCX8GbDefaults: checksum(~)=%d (0x%x)",
            checksum, checksum);
    FwTrace(second ? "PreserveFCX8GbDefaults: (biosSize - 1*)=%d (0x%x)"
                   : "PreserveFCX8GbDefaults: (biosSize - 1)=%d (0x%x)",
            static_cast<int>(size - 1), static_cast<unsigned>(size - 1));
}

// The first x86 image after the first one, or nothing when the chain ends
// before it.
std::optional<uint64_t> second_bios(std::span<const uint8_t> image) {
    ImageHeader header = {};
    PciData data = {};
    uint64_t offset = 0;
    if (GetBufferImageHeader(image, header, data, offset) == 0) return std::nullopt;
    for (size_t step = 0; step <= image.size() / 512; ++step) {
        if (IsLastImage(data)) return std::nullopt;
        const uint32_t length = GetImageLength(data);
        if (length == 0) return std::nullopt;
        offset += length;
        if (GetBufferImageHeader(image, header, data, offset) == 0) return std::nullopt;
        if (IsBiosImage(data)) return offset;
    }
    return std::nullopt;
}

}  // namespace

int PreserveFlashDefaultsForChip(int fcx8GbType, std::span<const uint8_t> current, std::span<uint8_t> image) {
    if (fcx8GbType != 1) return -1;
    carry_defaults(current, image, 0);
    reseal(image, 0, false);
    const auto second = second_bios(image);
    if (!second) return 0;
    carry_defaults(current, image, *second);
    reseal(image, *second, true);
    return 0;
}

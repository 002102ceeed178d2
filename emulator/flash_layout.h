// SPDX-License-Identifier: MIT
// Flash layouts of the emulated adapters: the regions a chip's flash is cut
// into, the attribute bits an adapter reports with them, and the wire form of
// the layout table the driver returns (Size, NoOfRegions, then {Region, Size,
// Beg, End} as little-endian uint32).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vxemu {

// Region codes the driver and the tool agree on.
inline constexpr uint32_t kRegionAll = 0xFF;
inline constexpr uint32_t kRegionFirmware = 0x01;
inline constexpr uint32_t kRegionBootCode = 0x07;
inline constexpr uint32_t kRegionVpd0 = 0x14;
inline constexpr uint32_t kRegionNvram0 = 0x15;
inline constexpr uint32_t kRegionVpd1 = 0x16;
inline constexpr uint32_t kRegionNvram1 = 0x17;
// Raw flash access: offset and size come with the request.
inline constexpr uint32_t kRegionRaw = 0xFFFF;
// The whole option ROM of a flash request, from the first flash byte.
inline constexpr uint32_t kRegionWholeOptionRom = 0x00;

// Attribute bits above the 8-bit code in a region word.
inline constexpr uint32_t kRegionReadOnly = 0x10000;
inline constexpr uint32_t kRegionActivateA = 0x20000;
inline constexpr uint32_t kRegionActivateB = 0x40000;
inline constexpr uint32_t kRegionCodeMask = 0xFF;

struct FlashRegion {
    uint32_t region = 0;  // code in the low 8 bits, attributes above
    uint32_t size = 0;
    uint32_t beg = 0;  // first flash byte
    uint32_t end = 0;  // last flash byte (beg + size - 1)

    [[nodiscard]] uint32_t code() const { return region & kRegionCodeMask; }
    [[nodiscard]] bool read_only() const { return (region & kRegionReadOnly) != 0; }
    [[nodiscard]] bool needs_activation() const {
        return (region & (kRegionActivateA | kRegionActivateB)) != 0;
    }
    bool operator==(const FlashRegion &) const = default;
};

struct FlashLayout {
    uint32_t size = 0;                 // total flash bytes (the 0xFF row)
    uint32_t sector_size = 0;          // erase unit the chip reports; 0 when it reports none
    bool reported_by_adapter = false;  // FCX160/FCX180 answer the layout request with it
    std::vector<FlashRegion> regions;  // in the order the table lists them

    // First region whose code equals `code` (attributes ignored).
    [[nodiscard]] std::optional<FlashRegion> find(uint32_t code) const;
    bool operator==(const FlashLayout &) const = default;
};

// The fixed table the library uses for a chip (by chip name, e.g. "FCX141"),
// including the OEM table for the subsystem IDs that select it. Unknown chips
// get the generic 128 KiB table.
[[nodiscard]] FlashLayout fixed_layout(std::string_view chip, uint16_t ss_vendor, uint16_t ss_device);

// The table the adapter itself reports on chips that have one (FCX160, FCX180):
// 64 KiB sectors; FCX180 marks its firmware and 0x40/0x41/0x45 regions for
// activation and its 0x46/0x47 regions read-only. Other chips: nullopt.
[[nodiscard]] std::optional<FlashLayout> adapter_layout(std::string_view chip);

// The layout an adapter with this chip carries by default: its own table where
// it has one, otherwise the fixed table.
[[nodiscard]] FlashLayout default_layout(std::string_view chip, uint16_t ss_vendor, uint16_t ss_device);

// Wire form of the table as the layout request returns it: 8-byte header and
// 16 bytes per region. `capacity` caps the output (bytes); the result is the
// table cut to whole entries that fit, or empty if not even the header fits.
[[nodiscard]] std::vector<uint8_t> encode_layout(const FlashLayout &layout, size_t capacity = SIZE_MAX);

// Parses the wire form back (stops at the first entry of size 0 or at
// NoOfRegions). nullopt on a short buffer or an entry whose end does not
// match its begin and size. (Regions may lie beyond `size`: the FCX160 table
// lists areas past the 1 MiB of its 0xFF row.)
[[nodiscard]] std::optional<FlashLayout> decode_layout(const std::vector<uint8_t> &bytes);

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// Product data of the emulated adapters: chips, their PCI device IDs, families
// and the facts about each chip that decide its flash, NVRAM and image forms.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vxemu {

inline constexpr uint16_t kMakerVendorId = 0x1DE5;
inline constexpr uint16_t kOemVendorId = 0x1E0F;

struct ChipInfo {
    std::string_view name;    // "FCX160"
    uint16_t device_id;       // PCI device ID
    std::string_view family;  // "FCX16": first five characters, used in the firmware family text
    bool fcx14x_class;        // extended NVRAM, 512-byte blocks, VPD serial number
    bool own_layout;          // answers the layout request with its own table
    uint8_t bios_chip_code;   // chip code at 0x14 of a BIOS image built for it (0: none)
    uint32_t flash_size;      // bytes of flash on the adapter
    bool has_firmware;        // the multiboot flash carries a firmware image at 0x80000
};

[[nodiscard]] std::span<const ChipInfo> all_chips();
// Exact, case-sensitive name lookup; nullptr if unknown.
[[nodiscard]] const ChipInfo *find_chip(std::string_view name);
[[nodiscard]] const ChipInfo *find_chip_by_device_id(uint16_t device_id);

}  // namespace vxemu

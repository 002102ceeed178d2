// SPDX-License-Identifier: MIT
// Product data of the adapters the library knows: chip names and PCI device
// IDs, and the subsystem IDs whose serial number the driver reports itself.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vxhmx {

inline constexpr uint16_t kMakerVendorId = 0x1DE5;
inline constexpr uint16_t kOemVendorId = 0x1E0F;

struct ChipData {
    std::string_view name;  // "FCX160"
    uint16_t device_id;     // PCI device ID of the port
    bool fcx12x;            // FCX12x generation (features bit 0x4)
    bool vpd_serial;        // serial number kept in the VPD "SN" field
};

std::span<const ChipData> all_chips();
const ChipData *find_chip_by_device_id(uint16_t device_id);
const ChipData *find_chip_by_name(std::string_view name);
uint16_t chip_device_id(std::string_view name);  // 0 when unknown

// True when the adapter-node reply carries the serial number text (OEM
// models and the maker's one listed model).
bool serial_from_node_record(uint16_t ssvendor_id, uint16_t ssdevice_id);

}  // namespace vxhmx

// SPDX-License-Identifier: MIT
// Product data of the adapters the library knows: chip names and PCI device
// IDs, the chip families whose flash handling differs, and the subsystem IDs
// whose serial number the driver reports itself. Every other file takes its
// IDs from here.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vxhmx {

// PCI IDs of the chips and vendors. The chip's middle digit sits in the high
// byte of its device ID.
namespace chipid {
inline constexpr uint16_t FCX100 = 0x1000;
inline constexpr uint16_t FCX110 = 0x1100;
inline constexpr uint16_t FCX120 = 0x1200;
inline constexpr uint16_t FCX121 = 0x1210;
inline constexpr uint16_t FCX122 = 0x1220;
inline constexpr uint16_t FCX123 = 0x1230;
inline constexpr uint16_t FCX126 = 0x1260;
inline constexpr uint16_t FCX127 = 0x1270;
inline constexpr uint16_t FCX140 = 0x1400;
inline constexpr uint16_t FCX141 = 0x1410;
inline constexpr uint16_t FCX144 = 0x1440;
inline constexpr uint16_t FCX145 = 0x1450;
inline constexpr uint16_t FCX150 = 0x1500;
inline constexpr uint16_t FCX160 = 0x1600;
inline constexpr uint16_t FCX180 = 0x1800;
inline constexpr uint16_t FCX181 = 0x1810;
inline constexpr uint16_t FCX182 = 0x1820;
inline constexpr uint16_t FCX183 = 0x1830;
inline constexpr uint16_t FCX184 = 0x1840;
inline constexpr uint16_t FCX185 = 0x1850;
inline constexpr uint16_t MakerVendor = 0x1DE5;
inline constexpr uint16_t OemSubsysVendor = 0x1E0F;
}  // namespace chipid

// ---- Chip families ----------------------------------------------------------

// FCX12x generation: the older flash handling (features bit 0x4).
constexpr bool is_fcx12x(uint16_t id) {
    using namespace chipid;
    return id == FCX120 || id == FCX121 || id == FCX122 || id == FCX123 || id == FCX126 || id == FCX127;
}

// FCX120-FCX123: the VPD travels in the flash inside the boot code chain.
constexpr bool is_vpd_image_chip(uint16_t id) {
    using namespace chipid;
    return id == FCX120 || id == FCX121 || id == FCX122 || id == FCX123;
}

// FCX14x class (FCX140/141/144/145/150/160/180): extended NVRAM format,
// 512-byte parameter blocks, serial number and versions in the VPD.
constexpr bool is_fcx14x_class(uint16_t id) {
    using namespace chipid;
    return id == FCX140 || id == FCX141 || id == FCX144 || id == FCX145 || id == FCX150 || id == FCX160 ||
           id == FCX180;
}

// FCX160 and FCX180 report their own flash layout and take raw flash access.
constexpr bool has_adapter_layout(uint16_t id) { return id == chipid::FCX160 || id == chipid::FCX180; }

// ---- Product table ----------------------------------------------------------

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

// The OEM's four listed adapter models and the maker's one: the driver
// reports their serial number in the adapter-node reply, and adapters
// without a table of their own get the OEM flash layout.
bool is_listed_oem_model(uint16_t ssvendor_id, uint16_t ssdevice_id);

}  // namespace vxhmx

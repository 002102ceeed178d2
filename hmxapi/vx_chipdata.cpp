// SPDX-License-Identifier: MIT
// Product data: chips and subsystem IDs. The emulator serves the same IDs;
// a new adapter model is added here and nowhere else.
#include "vx_chipdata.h"

#include <array>

namespace vxhmx {
namespace {

// Chip generations: FCX12x ports need the older flash handling (bit 0x4);
// the FCX14x class and later keep their serial number in the VPD.
constexpr std::array<ChipData, 20> kChips{{
    {"FCX100", 0x1000, false, false}, {"FCX110", 0x1100, false, false}, {"FCX120", 0x1200, true, false},
    {"FCX121", 0x1210, true, false},  {"FCX122", 0x1220, true, false},  {"FCX123", 0x1230, true, false},
    {"FCX126", 0x1260, true, false},  {"FCX127", 0x1270, true, false},  {"FCX140", 0x1400, false, true},
    {"FCX141", 0x1410, false, true},  {"FCX144", 0x1440, false, true},  {"FCX145", 0x1450, false, true},
    {"FCX150", 0x1500, false, true},  {"FCX160", 0x1600, false, true},  {"FCX180", 0x1800, false, true},
    {"FCX181", 0x1810, false, false}, {"FCX182", 0x1820, false, false}, {"FCX183", 0x1830, false, false},
    {"FCX184", 0x1840, false, false}, {"FCX185", 0x1850, false, false},
}};

// Adapter models whose driver reports the serial number in the node record:
// the OEM's four models and the maker's one listed model.
constexpr std::array<uint16_t, 4> kOemSerialModels{0x12BA, 0x12C2, 0x12C7, 0x12C9};
constexpr uint16_t kMakerSerialModel = 0x0131;

}  // namespace

std::span<const ChipData> all_chips() { return kChips; }

const ChipData *find_chip_by_device_id(uint16_t device_id) {
    for (const auto &c : kChips)
        if (c.device_id == device_id) return &c;
    return nullptr;
}

const ChipData *find_chip_by_name(std::string_view name) {
    for (const auto &c : kChips)
        if (c.name == name) return &c;
    return nullptr;
}

uint16_t chip_device_id(std::string_view name) {
    const ChipData *c = find_chip_by_name(name);
    return c != nullptr ? c->device_id : 0;
}

bool serial_from_node_record(uint16_t ssvendor_id, uint16_t ssdevice_id) {
    if (ssvendor_id == kOemVendorId) {
        for (uint16_t m : kOemSerialModels)
            if (m == ssdevice_id) return true;
        return false;
    }
    return ssvendor_id == kMakerVendorId && ssdevice_id == kMakerSerialModel;
}

}  // namespace vxhmx

// SPDX-License-Identifier: MIT
#include "chipdata.h"

#include <array>

namespace vxemu {
namespace {

constexpr uint32_t k128K = 0x20000;
constexpr uint32_t k1M = 0x100000;
constexpr uint32_t k2M = 0x200000;

// The chip codes are the ones the BIOS patch tables use; chips without an
// entry there get 0, which the tool rejects as an unknown hardware type.
constexpr std::array kChips{
    ChipInfo{"FCX100", 0x1000, "FCX10", false, false, 0x00, k128K, false},
    ChipInfo{"FCX110", 0x1100, "FCX11", false, false, 0x00, k128K, false},
    ChipInfo{"FCX120", 0x1200, "FCX12", false, false, 0x15, k128K, false},
    ChipInfo{"FCX121", 0x1210, "FCX12", false, false, 0x00, k128K, false},
    ChipInfo{"FCX122", 0x1220, "FCX12", false, false, 0x1A, k128K, false},
    ChipInfo{"FCX123", 0x1230, "FCX12", false, false, 0x1D, k1M, true},
    ChipInfo{"FCX126", 0x1260, "FCX12", false, false, 0x1F, k128K, false},
    ChipInfo{"FCX127", 0x1270, "FCX12", false, false, 0x20, k1M, true},
    ChipInfo{"FCX140", 0x1400, "FCX14", true, false, 0x22, k1M, true},
    ChipInfo{"FCX141", 0x1410, "FCX14", true, false, 0x25, k1M, true},
    ChipInfo{"FCX144", 0x1440, "FCX14", true, false, 0x29, k1M, true},
    ChipInfo{"FCX145", 0x1450, "FCX14", true, false, 0x28, k1M, true},
    ChipInfo{"FCX150", 0x1500, "FCX15", true, false, 0x31, k1M, true},
    ChipInfo{"FCX160", 0x1600, "FCX16", true, true, 0x2F, k2M, true},
    ChipInfo{"FCX180", 0x1800, "FCX18", true, true, 0x00, k2M, true},
    ChipInfo{"FCX181", 0x1810, "FCX18", false, false, 0x00, k128K, false},
    ChipInfo{"FCX182", 0x1820, "FCX18", false, false, 0x00, k128K, false},
    ChipInfo{"FCX183", 0x1830, "FCX18", false, false, 0x00, k128K, false},
    ChipInfo{"FCX184", 0x1840, "FCX18", false, false, 0x00, k128K, false},
    ChipInfo{"FCX185", 0x1850, "FCX18", false, false, 0x00, k128K, false},
};

}  // namespace

std::span<const ChipInfo> all_chips() { return kChips; }

const ChipInfo *find_chip(std::string_view name) {
    for (const auto &c : kChips)
        if (c.name == name) return &c;
    return nullptr;
}

const ChipInfo *find_chip_by_device_id(uint16_t device_id) {
    for (const auto &c : kChips)
        if (c.device_id == device_id) return &c;
    return nullptr;
}

}  // namespace vxemu

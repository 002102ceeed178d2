// SPDX-License-Identifier: MIT
#include "chip_table.h"

#include <array>
#include <cstring>

namespace {

// The chip's middle digit sits in the high byte of its device ID, as the
// library and the driver report it.
constexpr std::array<ChipClass, 20> kChips{{
    // name      device  type 4Gb 8Gb 4&8 2G  18y
    {"FCX100", 0x1000, 0, 0, 0, 0, -1, 0},
    {"FCX110", 0x1100, 1, 0, 0, 0, 0, 0},
    {"FCX120", 0x1200, 2, 0, 0, 0, 1, 0},
    {"FCX121", 0x1210, 3, 0, 0, 0, 1, 0},
    {"FCX122", 0x1220, 4, 0, 0, 0, 1, 0},
    {"FCX123", 0x1230, 5, 0, 0, 0, 3, 0},
    {"FCX126", 0x1260, 6, 0, 0, 0, 2, 0},
    {"FCX127", 0x1270, 7, 0, 0, 0, 4, 0},
    {"FCX144", 0x1440, 8, 2, 0, 2, -1, 0},
    {"FCX145", 0x1450, 9, 2, 0, 2, -1, 0},
    {"FCX140", 0x1400, 10, 1, 0, 1, -1, 0},
    {"FCX141", 0x1410, 11, 1, 0, 1, -1, 0},
    {"FCX160", 0x1600, 12, 0, 1, 4, -1, 0},
    {"FCX150", 0x1500, 13, 0, 0, 3, -1, 0},
    {"FCX182", 0x1820, 14, 0, 0, 0, -1, 1},
    {"FCX180", 0x1800, 15, 0, 0, 0, -1, 2},
    {"FCX183", 0x1830, 16, 0, 0, 0, -1, 3},
    {"FCX181", 0x1810, 17, 0, 0, 0, -1, 4},
    {"FCX184", 0x1840, 18, 0, 0, 0, -1, 5},
    {"FCX185", 0x1850, 19, 0, 0, 0, -1, 6},
}};

// What the views answer for a device ID the table does not hold.
constexpr ChipClass kUnknownChip{"", 0, kFcxTypeUnknown, 0, 0, 0, -1, 0};

const ChipClass &row_or_unknown(uint16_t deviceId) {
    const ChipClass *row = FindChipClassByDeviceId(deviceId);
    return row != nullptr ? *row : kUnknownChip;
}

}  // namespace

std::span<const ChipClass> AllChipClasses() { return kChips; }

const ChipClass *FindChipClassByDeviceId(uint16_t deviceId) {
    for (const ChipClass &c : kChips)
        if (c.deviceId == deviceId) return &c;
    return nullptr;
}

const ChipClass *FindChipClassByName(std::string_view name) {
    for (const ChipClass &c : kChips)
        if (c.name == name) return &c;
    return nullptr;
}

int ChipFcxType(uint16_t deviceId) { return row_or_unknown(deviceId).fcxType; }
int ChipFcx4GbType(uint16_t deviceId) { return row_or_unknown(deviceId).fcx4GbType; }
int ChipFcx8GbType(uint16_t deviceId) { return row_or_unknown(deviceId).fcx8GbType; }
int ChipFcx4And8GbType(uint16_t deviceId) { return row_or_unknown(deviceId).fcx4And8GbType; }
int ChipFcx2GType(uint16_t deviceId) { return row_or_unknown(deviceId).fcx2GType; }
int ChipFcx18yType(uint16_t deviceId) { return row_or_unknown(deviceId).fcx18yType; }

namespace {

constexpr uint16_t device_id_of(std::string_view name) {
    for (const ChipClass &c : kChips)
        if (c.name == name) return c.deviceId;
    return 0;
}

constexpr std::array<BootPatchChip, 12> kBootPatchChips{{
    {"FCX120", 0x15, device_id_of("FCX120"), false},
    {"FCX122", 0x1A, device_id_of("FCX122"), false},
    {"FCX123", 0x1D, device_id_of("FCX123"), true},
    {"FCX123S", 0x21, device_id_of("FCX123"), true},
    {"FCX126", 0x1F, device_id_of("FCX126"), false},
    {"FCX127", 0x20, device_id_of("FCX127"), true},
    {"FCX140", 0x22, device_id_of("FCX140"), true},
    {"FCX141", 0x25, device_id_of("FCX141"), true},
    {"FCX144", 0x29, device_id_of("FCX144"), true},
    {"FCX145", 0x28, device_id_of("FCX145"), true},
    {"FCX160", 0x2F, device_id_of("FCX160"), true},
    {"FCX150", 0x31, device_id_of("FCX150"), true},
}};

}  // namespace

const BootPatchChip *FindBootPatchChip(std::string_view chipType) {
    for (const BootPatchChip &c : kBootPatchChips)
        if (c.chipType == chipType) return &c;
    return nullptr;
}

bool IsCommonBootHardware(const char *hardwareType) {
    if (hardwareType == nullptr) return false;
    // The first four characters, up to the terminator: "123" and "123S" differ.
    std::string_view hw(hardwareType, ::strnlen(hardwareType, 4));
    for (const BootPatchChip &c : kBootPatchChips)
        if (c.commonBootCode && c.chipType.substr(3) == hw) return true;
    return false;
}

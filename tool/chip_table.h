// SPDX-License-Identifier: MIT
// The adapter chip table of the front end: one row per controller chip the
// tool knows, keyed by the PCI device ID the library reports for a port.
// Every chip classification of the inventory and of the update engine is a
// view of these rows, so the class codes, the family kinds and the IDs the
// image patches write cannot drift apart.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

// PCI vendor ID of the adapter maker (option ROM images, VPD).
inline constexpr uint16_t kMakerPciVendorId = 0x1DE5;

struct ChipClass {
    std::string_view name;  // "FCX160": "FCX" and the chip's decimal model number
    uint16_t deviceId;      // PCI device ID of a port with this chip
    int fcxType;            // CoreGetFCXType
    int fcx4GbType;         // CoreGetFCX4GbType: 1 FCX140/141, 2 FCX144/145
    int fcx8GbType;         // CoreGetFCX8GbType: 1 FCX160
    int fcx4And8GbType;     // Get4GbAnd8GbFCXType: 4 (8 Gb), the 4 Gb kind, 3 (FCX150)
    int fcx2GType;          // FindWhichFCX2GType: kind of the older chips, -1 for the others
    int fcx18yType;         // CoreGetFCX18yType: 1..6 for the FCX18x chips
};

// Class code of a chip the table does not know.
inline constexpr int kFcxTypeUnknown = 100;

std::span<const ChipClass> AllChipClasses();
// The row of a PCI device ID, or nullptr.
const ChipClass *FindChipClassByDeviceId(uint16_t deviceId);
// The row of an exact chip name ("FCX141"), or nullptr.
const ChipClass *FindChipClassByName(std::string_view name);

// The views for a known device ID; an unknown ID answers like "any other"
// chip of the class table (class 100, kinds 0 and -1).
int ChipFcxType(uint16_t deviceId);
int ChipFcx4GbType(uint16_t deviceId);
int ChipFcx8GbType(uint16_t deviceId);
int ChipFcx4And8GbType(uint16_t deviceId);
int ChipFcx2GType(uint16_t deviceId);
int ChipFcx18yType(uint16_t deviceId);

// What the boot image patches write for a chip of the supported-adapter list,
// keyed by its chip-type text ("FCX141", "FCX123S"; exact match). FCX123S is
// the FCX123 sold under another BIOS chip code; it has no class row of its own.
struct BootPatchChip {
    std::string_view chipType;
    uint8_t biosChipCode;  // byte 0x14 of a patched BIOS image
    uint16_t deviceId;     // written at 0x2A (BIOS) and 0x22 (EFI, FCode)
    bool commonBootCode;   // its EFI and FCode images are patched too
};

// The row of a chip-type text, or nullptr for a chip the patches do not know.
const BootPatchChip *FindBootPatchChip(std::string_view chipType);
// True when the EFI and FCode images of a multiboot file count as common for
// this hardware type (the chip-type text without "FCX"); only its first four
// characters are looked at.
bool IsCommonBootHardware(const char *hardwareType);

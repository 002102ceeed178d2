// SPDX-License-Identifier: MIT
// Adapters whose two ports share one BIOS chip: which boards they are, the
// model names they are shown under, and the version alignment of their
// ports. The boards are recognised by the subsystem IDs in the port's NVRAM
// image; the board data lives in one table (oem_rules.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

#include "core.h"

inline constexpr int kSingleBIOSChipOEM = 12;

// Subsystem device and vendor ID of the port, from its NVRAM image (area 1).
struct SubsystemPair {
    uint16_t deviceId;
    uint16_t vendorId;
    bool operator==(const SubsystemPair &) const = default;
};
SubsystemPair GetSubsystemPair(const HMXDevice *device);

// 12 for another OEM's blade or mezzanine board with one BIOS chip, else 0;
// -1 for no device.
int isSingleBIOSChipOEM(const HMXDevice *device);
// 1, 2 or 3 for the three families of single-BIOS-chip boards, else 0; -1
// for no device.
int hasSingleBIOSChip(const HMXDevice *device);
// Gives the one renamed board its model name; 1 for the boards of family 1,
// else 0 (-1 for no device).
int updateModelStrForSingleBIOSHBA(HMXDevice *device);
// Appends the blade suffix to a model of size `size` that carries a blade
// marker and not yet the suffix (never past the buffer); 1 when appended.
int UpdateModelStringForBladeServer(char *model, size_t size);
// Copies the boot code versions of function 1 to function 0 of the board
// whose ports share the BIOS chip, within the tool's device list.
int UpdateHBAVersionForOEM(HMXDevice *device);

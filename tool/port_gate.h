// SPDX-License-Identifier: MIT
// Which update path an adapter port takes, and which port of a multi-port
// adapter carries the write (its ports share one flash).
#pragma once

#include "core.h"

// Adapter classes of the update.
enum AdapterUpdateClass : int {
    kClassRegionUpdate = 1,   // 4 Gb or 8 Gb chip
    kClassStdBiosKind1 = 2,   // older chips: standard BIOS update
    kClassStdBiosKind2 = 3,
    kClassStdBiosKind0 = 4,
    kClassBiosDisabled = 5,   // Itanium host, or a board whose BIOS must not be written
    kClassNotSupported = 6,   // not approved in the supported-adapter list
    kClassUnknown = 7,        // a chip no update path knows
    kClassRecheck = 8,        // older chip of kind 3, or no adapter
};

// Flash statuses of the port gate.
enum AdapterFlashStatus : int {
    kFlashFirstPort = 1,
    kFlashSecondPort = 2,
    kFlashThirdPort = 3,
    kFlashFourthPort = 4,
    kFlashWrongOs = 5,
};

int doFCXCheckForOptionROM(const HMXDevice *device);
int CheckAdapterFlashUpdateStatus(const HMXDevice *device);
// 0, 1, 0, 1 ... over the ports of one board model in the tool's device
// list; -1 for an empty list.
int GetPortIndexOEM(const HMXDevice *device);
// 1 when the port's supported-adapter row approves it; its chip type number
// goes to `chip`.
int isAdapterSupported(const HMXDevice *device, uint32_t *chip);
// True for an adapter that reports more than one port.
bool QueryHBAType(const HMXDevice *device);

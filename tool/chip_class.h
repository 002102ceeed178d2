// SPDX-License-Identifier: MIT
// Chip classes of an opened port: the views of the chip table for the PCI
// device ID the port's chip property reports.
#pragma once

#include "core.h"

// Class code of the port's chip (0..19, 100 for a chip the table does not
// know); 0 for no device.
int CoreGetFCXType(const HMXDevice *device);
// 1 for FCX140/FCX141, 2 for FCX144/FCX145, else 0 (also for no device).
int CoreGetFCX4GbType(const HMXDevice *device);
// 1 for FCX160, else 0 (also for no device).
int CoreGetFCX8GbType(const HMXDevice *device);
// 4 for 8 Gb chips, the 4 Gb kind, 3 for FCX150, else 0; -1 for no device.
int Get4GbAnd8GbFCXType(const HMXDevice *device);
// Kind of the older chips (0..4), -1 for the others and for no device.
int FindWhichFCX2GType(const HMXDevice *device);
// 1..6 for the FCX18x chips, else 0 (also for no device).
int CoreGetFCX18yType(const HMXDevice *device);

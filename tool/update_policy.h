// SPDX-License-Identifier: MIT
// The update pass over every adapter port and the decision per port.
#pragma once

#include "core.h"
#include "version_control.h"

// 1 to write the port's image, 0 to leave it, under g_iFlashMode.
int GetFlashUpdatePolicy(const HMXDevice *device, const VersionCtrEntry *current, const VersionCtrEntry *target);

// Result of the pass: 1 nothing needed, 0 all needed updated, 3 some not,
// 8 no adapter, -1 out of memory.
int updateOptionROMAllHBAs();

// SPDX-License-Identifier: MIT
// The two adapter listings: the summary of "/l" and the details of "/i".
#pragma once

#include <cstddef>
#include <cstdint>

#include "core.h"

// The word of a port status value, by exact value ("Unknown" for any value
// that is not one of the known ones).
const char *GetAdapterStatusText(uint32_t status);
// The port's status word: the first field of its device record, adjusted by
// the port state (1 clears bit 0, and bit 12 with it; 3 sets bit 0). The
// record itself is left as it is.
uint32_t GetAdapterStatusWord(const HMXDevice *device);
// Reads the port record of the port again; on failure the old one stays.
void RefreshPortState(HMXDevice *device);

int DisplayAllHBAs();
int DisplayAllHBAInformation();
int PrintHBAGenInfos(HMXDevice *device);

// SPDX-License-Identifier: MIT
// Failover configuration interface.
#include "vxhmx.h"

#include <cstdio>

extern "C" uint32_t IHmFoGetApiVersion(char *buffer, uint32_t size) {
    constexpr long kMajor = 3, kMinor = 0, kPatch = 1, kBuild = 6;
    if (buffer != nullptr && size > 0)
        std::snprintf(buffer, size, "%ld.%ld.%ld build%ld", kMajor, kMinor, kPatch, kBuild);
    return (kMajor << 24) | (kMinor << 16) | (kPatch << 8) | kBuild;
}

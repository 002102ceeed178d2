// SPDX-License-Identifier: MIT
// The pending option ROM request: what is being written to the current
// adapter (its region code and the image file's size).
#pragma once

#include <cstdint>

struct OptionROMRequest {
    uint32_t Region;    // 0xFF the whole option ROM, 0 no region named
    int32_t FileSize;   // bytes of the image file, once measured
    char FileName[771];
};

extern OptionROMRequest *g_ptrOptionROMRequest;

// Replaces the pending request by one for `regionName` ("all" selects 0xFF;
// none selects 0) and `file`. 0, or 10 when no memory is left, or -1 for a
// region name the tool does not know.
int addUserOptionROMRequest(const char *regionName, const char *file);
void freeUserOptionROMReq();

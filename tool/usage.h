// SPDX-License-Identifier: MIT
// Usage, version and host information, and the host-type tests.
#pragma once

#include <cstdint>

#include "vxhmx.h"

constexpr int kHostInfoTextSize = 128;

struct HostInformation {
    char hostName[kHostInfoTextSize];
    char osType[kHostInfoTextSize];
    char osVersion[kHostInfoTextSize];
    char agentVersion[kHostInfoTextSize];
    int32_t valid;
    char hmxApiVersion[kHostInfoTextSize];
    uint32_t foCapability;
    char foApiVersion[kHostInfoTextSize];
    HMFO_DRIVER_VERSION foDriverVersion;
};

extern const char *const kProductTitle;
extern const char *const kProductVersion;

void ShowUsage();
void ShowVersion();
void DisplayVersion();
void ShowHostInfo();

HostInformation *CreateNewHostInformation();
void DeleteHostInformation(HostInformation *info);
int GetHostInformation(HostInformation *info);
int OSSGetHostInformation(HostInformation *info);
int isHostSystemType(const char *text);
int isSUNi86PC();

// SPDX-License-Identifier: MIT
// Agent core: zero-filled heap records, the agent device list and the
// start-up and shut-down of the core.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fw_list.h"

void *CoreZMalloc(size_t size);
void CoreFree(void *block);

// One opened adapter port as the agent core knows it. The property records
// read at discovery join it when the open loop is built.
struct HMXDevice {
    uint32_t instance;   // library instance number
    int32_t handle;      // library handle
    uint32_t portIndex;  // set when the tool orders its device list
    uint32_t chipType;   // chip type number of the supported-adapter row
    HMXDevice *next;
    HMXDevice *prev;
};

using DeviceList = FwList<HMXDevice>;

extern DeviceList g_DeviceList;

void InitDeviceList();
DeviceList *GetDeviceList();
void DeleteDevice(HMXDevice *device);
void RemoveAllDevicesFromDeviceList();

int CoreInitialize();
int CoreInitializeDevices();
void CoreUninitialize();

const char *CoreGetConfigFileName();

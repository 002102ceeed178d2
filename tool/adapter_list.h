// SPDX-License-Identifier: MIT
// The tool's own views of the opened ports: one adapter record per port and
// the ordered device list in which the ports of one adapter stand together.
#pragma once

#include <cstdint>

#include "core.h"
#include "fw_list.h"

struct Adapter {
    uint32_t instance;
    uint32_t portIndex;
    int32_t handle;
    uint32_t reserved;
    uint32_t beaconState;
    uint32_t supported;
    uint32_t newChipGeneration;
    uint16_t subsystemVendorId;
    uint16_t subsystemDeviceId;
    uint16_t chipType;
    uint16_t numberOfPorts;
    uint8_t nodeWWN[8];
    uint8_t portWWN[8];
    char model[32];
    char serialNumber[32];
    char portWWNText[24];
    char nodeWWNText[24];
    char description[80];
    uint8_t portId[3];
    Adapter *next;
    Adapter *prev;
};

using AdapterList = FwList<Adapter>;

extern AdapterList g_AdapterList;
extern DeviceList g_UTILDeviceList;
extern DeviceList g_MyDeviceList;

Adapter *CreateNewAdapter();
int AddAdapterToAdapterList(Adapter *adapter);
Adapter *FindAdapterInAdapterList(const Adapter *adapter);
void InitAdapterList();
AdapterList *GetAdapterList();
int RemoveAllAdaptersFromAdapterList();

void InitMyDeviceList();
DeviceList *GetMyDeviceList();
void RemoveAllDevicesFromMyDeviceList();
void CloneFreeUTILDeviceList(DeviceList *list);

uint32_t GetPortIndex(const HMXDevice *device);
HMXDevice *FindAdapterByInstanceNumber(uint32_t instance);
int GetStringWWN(const uint8_t *bytes, char *text, int textSize);

int BuildHBADevices();

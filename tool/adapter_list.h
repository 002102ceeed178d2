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
// Appends at the tail; -1 (and not added) when the port is listed already.
int AddAdapterToAdapterList(Adapter *adapter);
// The first adapter record of the same port (node WWN, port WWN, port ID).
Adapter *FindAdapterInAdapterList(const Adapter *adapter);
Adapter *FindAdapterInAdapterListByHMXDevice(const HMXDevice *device);
// The serial number of the port's adapter record, "N/A" when it has none.
const char *GetAdapterSerial(const HMXDevice *device);
void InitAdapterList();
AdapterList *GetAdapterList();
int RemoveAllAdaptersFromAdapterList();

void InitMyDeviceList();
DeviceList *GetMyDeviceList();
void RemoveAllDevicesFromMyDeviceList();
void CloneFreeUTILDeviceList(DeviceList *list);

uint32_t GetPortIndex(const HMXDevice *device);
// Look-ups in the tool's device list.
HMXDevice *FindAdapterByInstanceNumber(uint32_t instance);
HMXDevice *FindAdapterByWWPN(const uint8_t *wwpn);
// The 8 bytes as 16 lower-case hexadecimal digits; the length, or -1.
int GetStringWWN(const uint8_t *bytes, char *text, int textSize);

// Builds the adapter records (into g_AdapterList) and returns a new list of
// device copies ordered by port WWN text; nullptr on allocation failure.
DeviceList *SortAdapterList(const DeviceList *agentDevices);
// A new list of copies of `list` ordered by adapter serial number (stable:
// within one serial the order of `list` stays); nullptr on allocation failure.
DeviceList *BuildUTILDeviceList(const DeviceList *list);
// Frees a list made by the two routines above, nodes and head.
void FreeDeviceListCopy(DeviceList *list);

// Inserts `node` in front of the first node of `list` whose key compares
// greater; equal keys keep their arrival order.
void InsertDeviceOrdered(DeviceList *list, HMXDevice *node, int (*compare)(const HMXDevice *, const HMXDevice *));
int CompareByPortWWNText(const HMXDevice *a, const HMXDevice *b);
int CompareBySerial(const HMXDevice *a, const HMXDevice *b);
// Numbers the ports of each serial number 1, 2, ... in list order; ports
// without a serial share the one count of "N/A".
void NumberPorts(DeviceList *list);

int BuildHBADevices();

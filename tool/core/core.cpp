// SPDX-License-Identifier: MIT
#include "core.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "fw_strings.h"
#include "messages.h"
#include "oss.h"
#include "preferences.h"

DeviceList g_DeviceList;

namespace {
char g_configurationFileName[kConfigPathSize + 32];
int32_t g_bSingleRefresh;
}  // namespace

void *CoreZMalloc(size_t size) { return std::calloc(1, size == 0 ? 1 : size); }
void CoreFree(void *block) { std::free(block); }

void InitDeviceList() { g_DeviceList.reset(); }
DeviceList *GetDeviceList() { return &g_DeviceList; }

void DeleteDevice(HMXDevice *device) {
    if (device == nullptr) return;
    device->targets.remove_all([](HMXTarget *t) {
        t->luns.remove_all([](HMXLun *l) { CoreFree(l); });
        CoreFree(t);
    });
    CoreFree(device);
}

void RemoveAllDevicesFromDeviceList() { g_DeviceList.remove_all(DeleteDevice); }

HMXDevice *CloneDevice(const HMXDevice *device) {
    if (device == nullptr) return nullptr;
    auto *copy = static_cast<HMXDevice *>(CoreZMalloc(sizeof(HMXDevice)));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, device, sizeof(HMXDevice));
    copy->targets.reset();
    copy->next = nullptr;
    copy->prev = nullptr;
    return copy;
}

bool IsSamePort(const HMXDevice *a, const HMXDevice *b) {
    return std::memcmp(a->nodeProperty.WWN, b->nodeProperty.WWN, sizeof a->nodeProperty.WWN) == 0 &&
           std::memcmp(a->portProperty.WWN, b->portProperty.WWN, sizeof a->portProperty.WWN) == 0 &&
           std::memcmp(a->portProperty.PortID, b->portProperty.PortID, sizeof a->portProperty.PortID) == 0;
}

const char *CoreGetConfigFileName() { return g_configurationFileName; }

int CoreInitialize() {
    // agent.properties stays bound to the directory known now (the working
    // directory), whatever the later search for adapters.properties finds.
    const std::string name = std::string(OSSGetConfigPath()) + "agent.properties";
    CopyText(g_configurationFileName, name);
    g_bSingleRefresh = 0;
    CoreLoadPollingInterval();
    CoreLoadFabricScanning();
    CoreLoadQuietMode();
    InitDeviceList();
    return 0;
}

void CoreUninitialize() {
    FwTrace("Deallocating Core resources...");
    RemoveAllDevicesFromDeviceList();
}

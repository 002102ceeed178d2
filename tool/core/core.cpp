// SPDX-License-Identifier: MIT
#include "core.h"

#include <cstdlib>
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
void DeleteDevice(HMXDevice *device) { CoreFree(device); }
void RemoveAllDevicesFromDeviceList() { g_DeviceList.remove_all(DeleteDevice); }

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

int CoreInitializeDevices() {
    // Adapters are opened through the library's instance table; the open
    // loop joins here together with the device records it fills. Until then
    // the agent device list stays empty and every mode runs on no adapter.
    return 0;
}

void CoreUninitialize() {
    FwTrace("Deallocating Core resources...");
    RemoveAllDevicesFromDeviceList();
}

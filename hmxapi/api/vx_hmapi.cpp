// SPDX-License-Identifier: MIT
// Public calls of the library frame: version, open and close.
#include <unistd.h>

#include <cstring>
#include <new>
#include <string>

#include "vx_instances.h"
#include "vx_load.h"
#include "vx_database.h"
#include "vx_hmdbg.h"
#include "vx_public.h"
#include "vxhmx.h"

namespace {

pid_t g_loaded_by = 0;  // the process that loaded the library
constexpr char kVersionText[] = "v5.00 build7Pre1";
constexpr uint32_t kVersionNumber = 0x05000700;

std::string instance_prefix(const char *call, uint32_t instance) {
    return std::string(call) + "(" + std::to_string(instance) + ")";
}

uint32_t open_device(uint32_t Instance, int *pDeviceHandle) {
    vxapi_set_debug_level();
    const std::string who = instance_prefix("HmOpenDevice", Instance);
    VXDBG(VXDBG_TRACE | VXDBG_MAIN, (who + ": entered.").c_str());
    if (pDeviceHandle == nullptr || Instance >= static_cast<uint32_t>(kMaxAdapters)) {
        VXDBG(VXDBG_ERR, (who + ": invalid parameter.").c_str());
        return HMX_ERR_INVALID_PARAMETER;
    }
    if (vxapi_table_empty()) {
        const int rc = vxapi_load_lib();
        g_loaded_by = ::getpid();
        if (rc != 0) {
            // Forget a half-done load so that the next open tries again.
            vxapi_unload_lib();
            VXDBG_NUM(VXDBG_ERR, (who + ": load failed. stat=").c_str(), rc, 16);
            return HMX_ERR_UNKNOWN;
        }
    }
    if (vxapi_table_empty()) {
        VXDBG(VXDBG_ERR, (who + ": no adptrs found.").c_str());
        return HMX_ERR_DEVICE_NOT_FOUND;
    }
    if (!api_use_database) {
        VXDBG(VXDBG_ERR, "HmOpenDevice: shm not used.");
        return HMX_ERR_NOT_SUPPORTED;
    }
    if (!vxapi_database_ready()) {
        VXDBG(VXDBG_ERR, (who + ": Shared mem setup error.").c_str());
        return HMX_ERR_OUT_OF_MEMORY;
    }
    const int idx = static_cast<int>(Instance);
    if (api_priv_data[idx].phys_path[0] == '\0') {
        VXDBG(VXDBG_ERR, (who + ": hba node not found.").c_str());
        return HMX_ERR_DEVICE_NOT_FOUND;
    }
    if (vx_debug != 0 && idx < 4) {
        const std::string line = "HmOpenDevice: hba " + std::to_string(idx) + " driver name=" + api_priv_data[idx].model;
        VXDBG(VXDBG_TRACE, line.c_str());
    }
    uint32_t handle = 0;
    int os_error = 0;
    if (vxapi_open_adapter(idx, &handle, &os_error) != 0) {
        VXDBG(VXDBG_ERR, (who + ": open failed.").c_str());
        return os_error != 0 ? static_cast<uint32_t>(os_error) : HMX_ERR_UNKNOWN;
    }
    *pDeviceHandle = static_cast<int>(handle);
    VXDBG_NUM(VXDBG_TRACE | VXDBG_MAIN, (who + ": exiting. Return Handle =").c_str(), handle, 10);
    return HMX_STATUS_OK;
}

uint32_t close_device(int DeviceHandle) {
    const std::string who = "HmCloseDevice(" + std::to_string(DeviceHandle) + ")";
    const std::string open_paren = "HmCloseDevice(" + std::to_string(DeviceHandle);
    VXDBG(VXDBG_TRACE | VXDBG_MAIN, (who + ": entered.").c_str());
    if (!api_use_database) {
        VXDBG(VXDBG_ERR, "HmCloseDevice: shm not used.");
        return HMX_ERR_NOT_SUPPORTED;
    }
    int fd = -1;
    if (vxapi_open_database(&fd) != 0) {
        VXDBG(VXDBG_ERR, "vxapi_open_database failed ");
        return HMX_ERR_INVALID_HANDLE;
    }
    if (!vxapi_database_ready()) {
        VXDBG(VXDBG_ERR, (open_paren + "): database error.").c_str());
        return HMX_ERR_INVALID_HANDLE;
    }
    uint32_t status = 0;
    const auto handle = static_cast<uint32_t>(DeviceHandle);
    for (int i = 0; i < kMaxAdapters; ++i) {
        if (handle == 0 || api_priv_data[i].apihandle != handle) continue;
        int os_error = 0;
        if (vxapi_close_adapter(i, &os_error) != 0)
            status = os_error != 0 ? static_cast<uint32_t>(os_error) : HMX_ERR_UNKNOWN;
        break;
    }
    bool any_open = false;
    for (const auto &rec : api_priv_data) any_open = any_open || rec.apihandle != 0;
    if (!any_open) {
        VXDBG(VXDBG_TRACE | VXDBG_MAIN, (open_paren + "): no other hbas opened. unload lib.").c_str());
        vxapi_unload_lib();
    }
    VXDBG_NUM(VXDBG_TRACE | VXDBG_MAIN, (who + ": exiting. status=").c_str(), status, 16);
    return status;
}

// A process that exits with adapters open (or after a failed open) gives
// its instance slot and open counts back, so the shared state does not
// carry a dead user. Only the process that loaded the library does this: a
// forked child shares the mapping but not the ownership.
__attribute__((destructor)) void vxapi_library_exit() {
    if (vxapi_table_empty() || g_loaded_by != ::getpid()) return;
    try {
        for (const auto &rec : api_priv_data)
            if (rec.apihandle != 0) close_device(static_cast<int>(rec.apihandle));
        if (!vxapi_table_empty()) vxapi_unload_lib();
    } catch (...) {
        // Nothing more can be done on the way out.
    }
}

}  // namespace

extern "C" uint32_t HmGetVersion(int8_t *pVersion, uint32_t /*VersionSize*/) {
    // The size is not consulted on purpose: callers pass at least 17 bytes.
    if (pVersion != nullptr) std::memcpy(pVersion, kVersionText, sizeof kVersionText);
    return kVersionNumber;
}

extern "C" uint32_t HmOpenDevice(uint32_t Instance, int *pDeviceHandle) {
    return guarded([&] { return open_device(Instance, pDeviceHandle); });
}

extern "C" uint32_t HmCloseDevice(int DeviceHandle) {
    return guarded([&] { return close_device(DeviceHandle); });
}

// SPDX-License-Identifier: MIT
// Failover configuration interface: the request gate and the IHmFo* calls.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "vx_core.h"
#include "vx_failover.h"
#include "vx_hmdbg.h"
#include "vx_ioctl.h"
#include "vx_public.h"
#include "vxhmx.h"

uint32_t vxapi_fo_status_to_error(uint32_t status, uint32_t detail) {
    // Failover replies have a map of their own: 1 means "not supported"
    // here, and codes the gate does not know count as success.
    switch (status) {
    case 0: return HMX_STATUS_OK;
    case 1: return HMX_ERR_NOT_SUPPORTED;
    case 2: return HMX_ERR_DEVICE_BUSY;
    case 3: return HMX_ERR_REQUEST_PENDING;
    case 4: return HMX_ERR_REQUEST_SUSPENDED;
    case 5: return HMX_ERR_REQUEST_RETRY_PENDING;
    case 6: return HMX_ERR_INVALID_PARAMETER;
    case 7: return HMX_ERR_DATA_OVERRUN;
    case 8: return HMX_ERR_DATA_UNDERRUN;
    case 9: return HMX_ERR_DEVICE_NOT_FOUND;
    case 10: return HMX_ERR_COPY_MEMORY_FAILED;
    case 11: return HMX_ERR_MAILBOX_FAILED;
    case 12: return HMX_ERR_INVALID_SUBCODE;
    case 13: return HMX_ERR_UNSUPPORTED_VERSION;
    case 14: return HMX_ERR_NO_MS_RESPONSE;
    case 15: return detail;
    case 16: return HMX_ERR_BUFFER_TOO_SMALL;
    case 20: return HMX_ERR_INVALID_REQUEST;
    default: return HMX_STATUS_OK;
    }
}

uint32_t VxFailOverDeviceIoControl(uint32_t handle, uint32_t ioctl_number, uint16_t subcode, const void *request,
                                   uint32_t request_len, void *response, uint32_t response_len) {
    uint16_t idx = 0;
    if (check_handle(handle, &idx) != 0) return HMX_ERR_DEVICE_NOT_FOUND;
    const vxapi_priv_db_t &rec = api_priv_data[idx];
    if (rec.features & VXF_SYSFS) return HMX_ERR_NOT_SUPPORTED;
    auto *req = new (std::nothrow) VxRequest;
    if (req == nullptr) return HMX_ERR_OUT_OF_MEMORY;
    std::unique_ptr<VxRequest> owner(req);
    if (req->init(idx, subcode, 0, request, request_len, response, response_len) != 0) return HMX_ERR_INVALID_PARAMETER;
    if (hmx_ioctl(rec.oshandle, ioctl_number, req->header(), idx) != 0) {
        // A failing request reports the system error itself, not a library code.
        return static_cast<uint32_t>(errno);
    }
    return vxapi_fo_status_to_error(req->status(), req->detail_status());
}

extern "C" uint32_t IHmFoGetApiVersion(char *buffer, uint32_t size) {
    constexpr long kMajor = 3, kMinor = 0, kPatch = 1, kBuild = 6;
    if (buffer != nullptr && size > 0)
        std::snprintf(buffer, size, "%ld.%ld.%ld build%ld", kMajor, kMinor, kPatch, kBuild);
    return (kMajor << 24) | (kMinor << 16) | (kPatch << 8) | kBuild;
}

extern "C" uint32_t IHmFoGetFoCapability(int Device, uint32_t *pCapability) {
    if (pCapability == nullptr) return HMX_ERR_INVALID_PARAMETER;
    *pCapability = HMFO_CAPABILITY_BASIC;
    uint16_t idx = 0;
    if (check_handle(static_cast<uint32_t>(Device), &idx) != 0) return HMX_ERR_INVALID_HANDLE;
    if (api_priv_data[idx].drvr_attr & 0x1) *pCapability = HMFO_CAPABILITY_FAILOVER;
    return HMX_STATUS_OK;
}

extern "C" uint32_t IHmFoGetFoDriverVersion(int Device, HMFO_DRIVER_VERSION *pVersion) {
    try {
        if (pVersion == nullptr) return HMX_ERR_INVALID_PARAMETER;
        return VxFailOverDeviceIoControl(static_cast<uint32_t>(Device), vxapi_ioctl_number(EXT_CC_FO_GET_DRIVER_VERSION), 0,
                                         nullptr, 0, pVersion, sizeof *pVersion);
    } catch (...) {
        return HMX_ERR_OUT_OF_MEMORY;
    }
}

int vxapi_hba_support_new_cfg_store(uint32_t /*handle*/, int api_idx) {
    if (!vxapi_valid_index(api_idx)) return 0;
    vxapi_priv_db_t &rec = api_priv_data[api_idx];
    if (rec.features & VXF_NEW_CFG_STORE) return 1;  // asked before
    EXT_LN_DRIVER_DATA data{};
    uint32_t status = 0;
    if (vxapi_get_driver_specifics(rec.oshandle, api_idx, &data, &status) != 0 || status != 0) return 0;
    if (!vxapi_driver_new_cfg_store({data.Major, data.Minor, data.Patch, data.Beta})) return 0;
    rec.features |= VXF_NEW_CFG_STORE;
    return 1;
}

namespace {

// A 32-byte selector as the driver takes it: the caller's bytes with the
// adapter's driver instance in front.
uint32_t with_selector(int Device, const HMFO_SELECTOR *pSelect, uint8_t (&request)[sizeof(HMFO_SELECTOR)]) {
    std::memcpy(request, pSelect->Data, sizeof request);
    uint16_t idx = 0;
    if (check_handle(static_cast<uint32_t>(Device), &idx) != 0) return HMX_ERR_DEVICE_NOT_FOUND;
    const uint16_t inst = api_priv_data[idx].drvr_inst;
    request[0] = static_cast<uint8_t>(inst & 0xFF);
    request[1] = static_cast<uint8_t>(inst >> 8);
    return HMX_STATUS_OK;
}

uint32_t fo_request(int Device, uint8_t command, const void *request, uint32_t request_len, void *response,
                    uint32_t response_len) {
    return VxFailOverDeviceIoControl(static_cast<uint32_t>(Device), vxapi_ioctl_number(command), 0, request,
                                     request_len, response, response_len);
}

}  // namespace

extern "C" uint32_t IHmFoGetSysParams(int Device, HMFO_SYS_PARAMS *pParams) {
    return guarded([&] {
        if (pParams == nullptr) return HMX_ERR_INVALID_PARAMETER;
        return fo_request(Device, EXT_CC_FO_GET_SYS_PARAMS, nullptr, 0, pParams, sizeof *pParams);
    });
}

extern "C" uint32_t IHmFoSetSysParams(int Device, const HMFO_SYS_PARAMS *pParams) {
    return guarded([&] {
        if (pParams == nullptr) return HMX_ERR_INVALID_PARAMETER;
        return fo_request(Device, EXT_CC_FO_SET_SYS_PARAMS, pParams, sizeof *pParams, nullptr, 0);
    });
}

extern "C" uint32_t IHmFoGetPaths(int Device, const HMFO_PATH_REQUEST *pRequest, void *pPaths, uint32_t PathsSize) {
    return guarded([&] {
        if (pRequest == nullptr || pPaths == nullptr || PathsSize == 0) return HMX_ERR_INVALID_PARAMETER;
        return fo_request(Device, EXT_CC_FO_GET_PATHS, pRequest, sizeof *pRequest, pPaths, PathsSize);
    });
}

extern "C" uint32_t IHmFoSetCurrentPath(int Device, const HMFO_SELECTOR *pPath) {
    return guarded([&] {
        if (pPath == nullptr) return HMX_ERR_INVALID_PARAMETER;
        uint8_t request[sizeof(HMFO_SELECTOR)];
        const uint32_t rc = with_selector(Device, pPath, request);
        if (rc != HMX_STATUS_OK) return rc;
        return fo_request(Device, EXT_CC_FO_SET_CURRENT_PATH, request, sizeof request, nullptr, 0);
    });
}

extern "C" uint32_t IHmFoGetStatistics(int Device, const HMFO_SELECTOR *pSelect, HMFO_STATISTICS *pStats) {
    return guarded([&] {
        if (pSelect == nullptr || pStats == nullptr) return HMX_ERR_INVALID_PARAMETER;
        uint8_t request[sizeof(HMFO_SELECTOR)];
        const uint32_t rc = with_selector(Device, pSelect, request);
        if (rc != HMX_STATUS_OK) return rc;
        return fo_request(Device, EXT_CC_FO_GET_STATISTICS, request, sizeof request, pStats, sizeof *pStats);
    });
}

extern "C" uint32_t IHmFoResetStatistics(int Device, const HMFO_SELECTOR *pSelect) {
    return guarded([&] {
        if (pSelect == nullptr) return HMX_ERR_INVALID_PARAMETER;
        uint8_t request[sizeof(HMFO_SELECTOR)];
        const uint32_t rc = with_selector(Device, pSelect, request);
        if (rc != HMX_STATUS_OK) return rc;
        return fo_request(Device, EXT_CC_FO_RESET_STATISTICS, request, sizeof request, nullptr, 0);
    });
}

int vxapi_drvr_support_new_cfg_store(const char *driver_name, int *found) {
    if (found != nullptr) *found = 0;
    if (driver_name == nullptr) return 0;
    for (int i = 0; i < kMaxAdapters - 1; ++i) {
        const vxapi_priv_db_t &rec = api_priv_data[i];
        if (rec.phys_path[0] == '\0' || std::strncmp(rec.model, driver_name, sizeof rec.model) != 0) continue;
        if (found != nullptr) *found = 1;
        if (rec.apihandle != 0) return vxapi_hba_support_new_cfg_store(rec.apihandle, i);
        // Opened just for the question, and closed again.
        int handle = 0;
        if (HmOpenDevice(static_cast<uint32_t>(i), &handle) != HMX_STATUS_OK) return 0;
        const int answer = vxapi_hba_support_new_cfg_store(static_cast<uint32_t>(handle), i);
        HmCloseDevice(handle);
        return answer;
    }
    return 0;
}

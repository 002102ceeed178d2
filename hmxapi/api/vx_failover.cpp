// SPDX-License-Identifier: MIT
// Failover configuration interface: the request gate and the IHmFo* calls.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include "vx_discovery_rules.h"
#include "vx_dispatch.h"
#include "vx_instances.h"
#include "vx_database.h"
#include "vx_failover.h"
#include "vx_hmdbg.h"
#include "vx_ioctl.h"
#include "vx_load.h"
#include "vx_public.h"
#include "vx_wire.h"
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
    // The event thread reads the features words under this lock.
    DbLock lock;
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

// ---- LUN and target data ------------------------------------------------------------

static_assert(sizeof(HMFO_DATA_REQUEST) == 32 && offsetof(HMFO_DATA_REQUEST, FromStore) == 2);
static_assert(offsetof(HMFO_DATA_REQUEST, Reserved1) == 3 && offsetof(HMFO_DATA_REQUEST, TargetId) == 4);
static_assert(offsetof(HMFO_DATA_REQUEST, Lun) == 6 && offsetof(HMFO_DATA_REQUEST, Reserved2) == 8);
static_assert(sizeof(HMFO_DATA_LIST_HEADER) == 32 && offsetof(HMFO_DATA_LIST_HEADER, Reserved) == 4);
static_assert(sizeof(HMFO_LUN_ENTRY) == 32 && offsetof(HMFO_LUN_ENTRY, Lun) == 2);
static_assert(offsetof(HMFO_LUN_ENTRY, PortName) == 4 && offsetof(HMFO_LUN_ENTRY, NodeName) == 12);
static_assert(offsetof(HMFO_LUN_ENTRY, Flags) == 20 && offsetof(HMFO_LUN_ENTRY, PathCount) == 24);
static_assert(offsetof(HMFO_LUN_ENTRY, Reserved) == 26);
static_assert(sizeof(HMFO_LUN_DATA) == 8 + HMFO_MAX_ENTRIES * 32 && offsetof(HMFO_LUN_DATA, Entry) == 8);
static_assert(sizeof(HMFO_TARGET_DATA) == sizeof(HMFO_LUN_DATA) && offsetof(HMFO_TARGET_DATA, Entry) == 8);

namespace {

constexpr std::size_t kFoRequestSize = sizeof(HMFO_DATA_REQUEST);
constexpr std::size_t kFoListHeaderSize = sizeof(HMFO_DATA_LIST_HEADER);
constexpr std::size_t kFoEntrySize = sizeof(HMFO_LUN_ENTRY);

// The driver may report every LUN it manages in one reply, so the reply
// buffer is sized for the driver's LUN limit, not for what the caller keeps.
uint32_t fo_list_buffer_size() {
    const uint32_t luns = (api_priv_data[0].features & VXF_DRV_FLAG4) ? 4096 : 2048;
    return ((luns + 32) * 8 + 1) * static_cast<uint32_t>(kFoEntrySize);
}

void put_le16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void put_le32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

void fo_encode_request(std::span<uint8_t> out, uint16_t drvr_inst, uint8_t from_store, HMFO_LUN_SELECT sel) {
    std::memset(out.data(), 0, kFoRequestSize);
    put_le16(&out[offsetof(HMFO_DATA_REQUEST, drvr_inst)], drvr_inst);
    out[offsetof(HMFO_DATA_REQUEST, FromStore)] = from_store;
    put_le16(&out[offsetof(HMFO_DATA_REQUEST, TargetId)], sel.TargetId);
    put_le16(&out[offsetof(HMFO_DATA_REQUEST, Lun)], sel.Lun);
}

void fo_encode_entry(uint8_t *p, const HMFO_LUN_ENTRY &e) {
    std::memset(p, 0, kFoEntrySize);
    put_le16(p + offsetof(HMFO_LUN_ENTRY, TargetId), e.TargetId);
    put_le16(p + offsetof(HMFO_LUN_ENTRY, Lun), e.Lun);
    std::memcpy(p + offsetof(HMFO_LUN_ENTRY, PortName), e.PortName, sizeof e.PortName);
    std::memcpy(p + offsetof(HMFO_LUN_ENTRY, NodeName), e.NodeName, sizeof e.NodeName);
    put_le32(p + offsetof(HMFO_LUN_ENTRY, Flags), e.Flags);
    put_le16(p + offsetof(HMFO_LUN_ENTRY, PathCount), e.PathCount);
}

bool fo_decode_entry(const ByteReader &r, std::size_t off, HMFO_LUN_ENTRY &e) {
    const auto target = r.le16(off + offsetof(HMFO_LUN_ENTRY, TargetId));
    const auto lun = r.le16(off + offsetof(HMFO_LUN_ENTRY, Lun));
    const auto flags = r.le32(off + offsetof(HMFO_LUN_ENTRY, Flags));
    const auto paths = r.le16(off + offsetof(HMFO_LUN_ENTRY, PathCount));
    if (!target || !lun || !flags || !paths) return false;
    e = HMFO_LUN_ENTRY{};
    e.TargetId = *target;
    e.Lun = *lun;
    for (std::size_t i = 0; i < sizeof e.PortName; ++i) {
        e.PortName[i] = *r.u8(off + offsetof(HMFO_LUN_ENTRY, PortName) + i);
        e.NodeName[i] = *r.u8(off + offsetof(HMFO_LUN_ENTRY, NodeName) + i);
    }
    e.Flags = *flags;
    e.PathCount = *paths;
    return true;
}

// Resolves the handle and holds the caller to the instance it was opened for.
uint32_t fo_resolve(int Device, int ApiIndex, uint16_t *idx) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_DEVICE_NOT_FOUND;
    if (ApiIndex != port.idx) return HMX_ERR_INVALID_PARAMETER;
    *idx = static_cast<uint16_t>(port.idx);
    return HMX_STATUS_OK;
}

// One list read (0xCE or 0xD0) from the driver's live view or its saved
// configuration; the caller's record is written only when the driver agreed.
template <class Data>
uint32_t fo_read_list(int Device, uint16_t idx, uint8_t command, uint8_t from_store, HMFO_LUN_SELECT sel,
                      Data *pData) {
    uint8_t request[kFoRequestSize];
    fo_encode_request(request, api_priv_data[idx].drvr_inst, from_store, sel);
    std::vector<uint8_t> reply(fo_list_buffer_size(), 0);
    const uint32_t rc = fo_request(Device, command, request, sizeof request, reply.data(),
                                   static_cast<uint32_t>(reply.size()));
    if (rc != HMX_STATUS_OK) return rc;
    const ByteReader r(reply);
    // More than the caller's record holds is dropped, and never more than the reply carries.
    const std::size_t room = (reply.size() - kFoListHeaderSize) / kFoEntrySize;
    const std::size_t count =
        std::min({static_cast<std::size_t>(r.le32(0).value_or(0)), std::size_t{HMFO_MAX_ENTRIES}, room});
    Data out{};
    out.EntryCount = static_cast<uint32_t>(count);
    for (std::size_t i = 0; i < count; ++i)
        if (!fo_decode_entry(r, kFoListHeaderSize + i * kFoEntrySize, out.Entry[i])) return HMX_ERR_DATA_UNDERRUN;
    *pData = out;
    return HMX_STATUS_OK;
}

// Asks the driver for its live list (command 0xCE, or 0xD0 for targets).
template <class Data>
uint32_t vxapi_get_lun_data_list(int Device, uint16_t idx, uint8_t command, HMFO_LUN_SELECT sel, Data *pData) {
    return fo_read_list(Device, idx, command, 0, sel, pData);
}

// The driver's own configuration store: the same list read with FromStore set.
template <class Data>
uint32_t FoGetDataFromPersistentStorage(int Device, uint16_t idx, uint8_t command, HMFO_LUN_SELECT sel,
                                        Data *pData) {
    return fo_read_list(Device, idx, command, 1, sel, pData);
}

template <class Data>
uint32_t FoSetDataToPersistentStorage(int Device, uint16_t idx, uint8_t command, HMFO_LUN_SELECT sel,
                                      const Data &data) {
    const std::size_t count = std::min<std::size_t>(data.EntryCount, HMFO_MAX_ENTRIES);
    std::vector<uint8_t> request(kFoRequestSize + count * kFoEntrySize, 0);
    fo_encode_request(request, api_priv_data[idx].drvr_inst, 0, sel);
    for (std::size_t i = 0; i < count; ++i) fo_encode_entry(&request[kFoRequestSize + i * kFoEntrySize], data.Entry[i]);
    return fo_request(Device, command, request.data(), static_cast<uint32_t>(request.size()), nullptr, 0);
}

// Drivers before the configuration store keep failover settings in their
// configuration file under /etc, whose format belongs to the driver's
// configuration tools. This library does not read or write that file, so
// both directions say so and leave everything as it was.
uint32_t vxapi_get_data_from_old_persist_store() { return HMX_ERR_NOT_SUPPORTED; }
uint32_t vxapi_set_data_to_old_persist_store() { return HMX_ERR_NOT_SUPPORTED; }

template <class Data>
uint32_t fo_get_data(int Device, int ApiIndex, uint8_t command, HMFO_LUN_SELECT sel, Data *pData, int FromStore) {
    if (pData == nullptr) return HMX_ERR_INVALID_PARAMETER;
    uint16_t idx = 0;
    const uint32_t rc = fo_resolve(Device, ApiIndex, &idx);
    if (rc != HMX_STATUS_OK) return rc;
    if (FromStore == 0) return vxapi_get_lun_data_list(Device, idx, command, sel, pData);
    if (vxapi_hba_support_new_cfg_store(static_cast<uint32_t>(Device), idx) == 1)
        return FoGetDataFromPersistentStorage(Device, idx, command, sel, pData);
    return vxapi_get_data_from_old_persist_store();
}

template <class Data>
uint32_t fo_set_data(int Device, int ApiIndex, uint8_t command, HMFO_LUN_SELECT sel, const Data *pData) {
    if (pData == nullptr) return HMX_ERR_INVALID_PARAMETER;
    uint16_t idx = 0;
    const uint32_t rc = fo_resolve(Device, ApiIndex, &idx);
    if (rc != HMX_STATUS_OK) return rc;
    if (vxapi_hba_support_new_cfg_store(static_cast<uint32_t>(Device), idx) == 1)
        return FoSetDataToPersistentStorage(Device, idx, command, sel, *pData);
    return vxapi_set_data_to_old_persist_store();
}

}  // namespace

extern "C" uint32_t IHmFoGetLunData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, HMFO_LUN_DATA *pData,
                                    int FromStore) {
    return guarded([&] { return fo_get_data(Device, ApiIndex, EXT_CC_FO_GET_LUN_DATA, Select, pData, FromStore); });
}

extern "C" uint32_t IHmFoGetTargetData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, HMFO_TARGET_DATA *pData,
                                       int FromStore) {
    return guarded(
        [&] { return fo_get_data(Device, ApiIndex, EXT_CC_FO_GET_TARGET_DATA, Select, pData, FromStore); });
}

extern "C" uint32_t IHmFoSetLunData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, const HMFO_LUN_DATA *pData) {
    return guarded([&] { return fo_set_data(Device, ApiIndex, EXT_CC_FO_SET_LUN_DATA, Select, pData); });
}

extern "C" uint32_t IHmFoSetTargetData(int Device, int ApiIndex, HMFO_LUN_SELECT Select,
                                       const HMFO_TARGET_DATA *pData) {
    return guarded([&] { return fo_set_data(Device, ApiIndex, EXT_CC_FO_SET_TARGET_DATA, Select, pData); });
}

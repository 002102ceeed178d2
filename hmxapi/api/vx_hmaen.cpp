// SPDX-License-Identifier: MIT
// Public event calls: switching the driver's event reporting for a port and
// taking the events the event thread queued for this process.
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "vx_dispatch.h"
#include "vx_event_ring.h"
#include "vx_instances.h"
#include "vx_database.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_public.h"
#include "vxhmx.h"

namespace {

constexpr std::size_t kWorkRecords = 64;  // one whole ring

uint32_t register_events(int Device, bool enable) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    EXT_REG_AEN reg{};
    reg.Enable = enable ? 1 : 0;
    reg.BufLength = static_cast<uint16_t>(kWorkRecords * sizeof(EXT_ASYNC_EVENT));
    uint32_t st = 0;
    const int rc = vxapi_async_event_reg(port.fd, port.idx, &reg, &st);
    if (rc < 0) return errno != 0 ? static_cast<uint32_t>(errno) : HMX_ERR_UNKNOWN;
    if (rc != 0) return HMX_ERR_UNKNOWN;
    const uint32_t status = HmXlateHMXErr(st, 0);
    if (status == HMX_STATUS_OK) {
        uint32_t &features = api_priv_data[port.idx].features;
        features = enable ? (features | VXF_AEN) : (features & ~VXF_AEN);
    }
    return status;
}

uint32_t get_events(int Device, ASYNCEVENT *pAEvents, uint32_t AEventBufSize, uint32_t *pAEventCount) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    const uint32_t room = AEventBufSize / static_cast<uint32_t>(sizeof(ASYNCEVENT));
    if (pAEventCount == nullptr || (pAEvents == nullptr && room > 0)) return HMX_ERR_INVALID_PARAMETER;
    std::size_t n = 0;
    std::unique_ptr<uint8_t[]> work;
    {
        DbLock lock;
        const int slot = vxapi_db_find_entry(port.idx);
        if (slot < 0) return HMX_ERR_UNKNOWN;
        work.reset(new (std::nothrow) uint8_t[kWorkRecords * sizeof(EXT_ASYNC_EVENT)]);
        if (!work) return HMX_ERR_OUT_OF_MEMORY;
        n = vxapi_event_take(api_shared_data, api_library_instance, slot, work.get(), kWorkRecords);
    }
    // A short buffer keeps the newest events.
    const std::size_t reported = room < n ? room : n;
    const std::size_t first = n - reported;
    for (std::size_t i = first, out = 0; i < n && i < kWorkRecords; ++i, ++out) {
        uint32_t code = 0;
        std::memcpy(&code, work.get() + i * sizeof(EXT_ASYNC_EVENT), sizeof code);
        const uint32_t public_code = vxhmx::aen_public_code(code);
        if (public_code != 0) pAEvents[out].EventCode = public_code;
    }
    *pAEventCount = static_cast<uint32_t>(reported);
    return HMX_STATUS_OK;
}

}  // namespace

extern "C" uint32_t HmEnableAen(int Device) {
    return guarded([&] { return register_events(Device, true); });
}

extern "C" uint32_t HmDisableAen(int Device) {
    return guarded([&] { return register_events(Device, false); });
}

extern "C" uint32_t HmGetAen(int Device, ASYNCEVENT *pAEvents, uint32_t AEventBufSize, uint32_t *pAEventCount) {
    return guarded([&] { return get_events(Device, pAEvents, AEventBufSize, pAEventCount); });
}

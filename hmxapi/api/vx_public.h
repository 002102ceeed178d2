// SPDX-License-Identifier: MIT
// Helpers of the exported C shell: resolving a public handle to its port
// and running a call body so that nothing thrown crosses the C ABI.
#pragma once

#include <cstdint>
#include <new>

#include "vx_instances.h"
#include "vxhmx.h"

// A resolved handle.
struct Port {
    int idx = -1;
    int fd = -1;
    uint16_t device_id = 0;
    bool sysfs = false;  // served by the sysfs transport
};

// False for a handle the library does not know.
inline bool resolve(int Device, Port &port) {
    uint16_t idx = 0;
    if (check_handle(static_cast<uint32_t>(Device), &idx) != 0) return false;
    port.idx = idx;
    port.fd = api_priv_data[idx].oshandle;
    port.device_id = api_priv_data[idx].device_id;
    port.sysfs = (api_priv_data[idx].features & VXF_SYSFS) != 0;
    return true;
}

// Runs a public call body, mapping anything thrown to its status.
template <class F>
uint32_t guarded(F &&body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return HMX_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return HMX_ERR_UNKNOWN;
    }
}

// SPDX-License-Identifier: MIT
// The adapter's own layout table made the library-wide layout, and the
// public status of a transport's result.
#include "vx_flash_layout.h"

#include <cerrno>
#include <vector>

#include "vx_dispatch.h"
#include "vx_global_layout.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_layout.h"
#include "vxhmx.h"

namespace {
constexpr uint32_t kLayoutBufferSize = sizeof(vxhmx::INT_OPT_ROM_LAYOUT);  // 4088
}  // namespace

uint32_t vxflash_status(int rc, uint32_t ext_stat, uint32_t detail) {
    if (rc < 0) return errno != 0 ? static_cast<uint32_t>(errno) : HMX_ERR_UNKNOWN;
    if (rc != 0) return HMX_ERR_UNKNOWN;
    return HmXlateHMXErr(ext_stat, detail);
}

uint32_t vxflash_load_adapter_layout(int fd, int api_idx) {
    std::vector<uint8_t> reply(kLayoutBufferSize, 0);
    uint32_t st = 0, detail = 0;
    const int rc = vxapi_get_optrom_layout(fd, api_idx, reply.data(), kLayoutBufferSize, &st, &detail);
    // The driver's completion code speaks for itself; a request that never
    // completed (a failed ioctl, no header) has none and is an unknown error.
    // A completion the map calls good (a SCSI status of GOOD) carries the
    // reply like an OK one: success only ever means a layout was stored.
    if (st != EXT_STATUS_OK && HmXlateHMXErr(st, detail) != HMX_STATUS_OK) return HmXlateHMXErr(st, detail);
    if (rc != 0) return HMX_ERR_UNKNOWN;
    vxhmx::INT_OPT_ROM_LAYOUT layout{};
    if (!vxhmx::vxlayout_parse_reply(reply, layout) || vxhmx::vxlayout_entry_count(layout) == 0)
        return HMX_ERR_UNKNOWN;
    vxapi_set_global_layout(layout);
    return HMX_STATUS_OK;
}

void vxapi_set_global_option_rom_layout(int fd, int api_idx) {
    try {
        if (vxflash_load_adapter_layout(fd, api_idx) != 0)
            VXDBG(VXDBG_ERR, "vxapi_set_global_option_rom_layout: adapter layout not available.");
    } catch (...) {
        // Without a layout the region map answers size 0 and transfers fail cleanly.
    }
}

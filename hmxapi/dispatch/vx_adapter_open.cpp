// SPDX-License-Identifier: MIT
// Opening and closing an adapter for a caller, under the shared-state
// semaphore: the shared open count, the descriptor, the flash layout of the
// chips reached raw, and event deregistration on the last close.
#include "vx_load.h"

#include <fcntl.h>

#include <cerrno>

#include "vx_database.h"
#include "vx_dispatch.h"
#include "vx_flash_layout.h"
#include "vx_instances.h"
#include "vx_os.h"

int vxapi_open_adapter(int api_idx, uint32_t *handle, int *os_error) {
    if (!vxapi_valid_index(api_idx) || handle == nullptr) return 1;
    if (!api_use_database) return 2;
    DbLock lock;
    const int entry = vxapi_db_find_entry(api_idx);
    if (entry < 0) return 1;
    vxapi_priv_db_t &rec = api_priv_data[api_idx];
    if (!(rec.features & VXF_SYSFS) && rec.open_cnt == 0) {
        const int fd = vxos::open(rec.phys_path, O_RDWR | O_NOFOLLOW);
        if (fd < 0) {
            if (os_error != nullptr) *os_error = errno;
            return 1;
        }
        rec.oshandle = fd;
    }
    rec.apihandle = vxapi_create_apihandle(api_idx);
    ++rec.open_cnt;
    vxapi_db_set_open_count(entry, static_cast<uint8_t>(vxapi_db_open_count(entry) + 1));
    *handle = rec.apihandle;
    if (vxapi_raw_flash_chip(api_idx)) vxapi_set_global_option_rom_layout(rec.oshandle, api_idx);
    return 0;
}

int vxapi_close_adapter(int api_idx, int *os_error) {
    if (!vxapi_valid_index(api_idx)) return 1;
    DbLock lock;
    vxapi_priv_db_t &rec = api_priv_data[api_idx];
    const int entry = vxapi_db_find_entry(api_idx);
    if (entry >= 0) {
        const uint8_t count = vxapi_db_open_count(entry);
        const uint8_t left = count > 0 ? static_cast<uint8_t>(count - 1) : 0;
        vxapi_db_set_open_count(entry, left);
        if (left == 0 && (rec.features & VXF_AEN)) {
            // Nobody on the host has the adapter open: stop event delivery.
            EXT_REG_AEN reg{};
            uint32_t status = 0;
            vxapi_async_event_reg(rec.oshandle, api_idx, &reg, &status);
            rec.features &= ~VXF_AEN;
        }
    }
    int rc = 0;
    if (rec.open_cnt == 1) {
        if (rec.oshandle >= 0 && vxos::close(rec.oshandle) != 0) {
            if (os_error != nullptr) *os_error = errno;
            rc = 1;
        }
        rec.oshandle = -1;
        rec.apihandle = 0;
    }
    if (rec.open_cnt > 0) --rec.open_cnt;
    return rc;
}

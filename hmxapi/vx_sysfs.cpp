// SPDX-License-Identifier: MIT
// The sysfs transport's entry points. Discovery of sysfs adapters and their
// attribute protocols are not served yet: discovery finds nothing, and the
// routines below (unreachable while no record carries features bit 0x20)
// fail with ENOSYS.
#include "vx_sysfs.h"

#include <cerrno>

namespace {
int not_served(uint32_t *status) {
    if (status != nullptr) *status = 1;
    errno = ENOSYS;
    return -1;
}
}  // namespace

int vxsysfs_init() { return 0; }
int vxsysfs_supported_driver_exist(const char *, int *) { return 0; }

void vxsysfs_map_region(int, uint32_t region, uint32_t *offset, uint32_t *size) {
    // Without a layout only raw flash access (0xFFFF) maps.
    if (region == 0xFFFF) return;
    if (offset != nullptr) *offset = 0;
    if (size != nullptr) *size = 0;
}

int vxsysfs_query_hbanode(int, int, EXT_HBA_NODE *, uint32_t *s) { return not_served(s); }
int vxsysfs_query_hbaport(int, int, EXT_HBA_PORT *, uint32_t *s) { return not_served(s); }
int vxsysfs_query_chip(int, int, EXT_CHIP *, uint32_t *s) { return not_served(s); }
int vxsysfs_query_driver(int, int, EXT_DRIVER *, uint32_t *s) { return not_served(s); }
int vxsysfs_query_fw(int, int, EXT_FW *, uint32_t *s) { return not_served(s); }
int vxsysfs_get_driver_specifics(int, int, EXT_LN_DRIVER_DATA *, uint32_t *s) { return not_served(s); }
int vxsysfs_read_optrom(int, int, uint8_t *, uint32_t, uint32_t, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_update_optrom(int, int, const uint8_t *, uint32_t, uint32_t, uint32_t, uint32_t *s) {
    return not_served(s);
}
int vxsysfs_get_nvram(int, int, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_set_nvram(int, int, const uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_get_vpd(int, int, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_set_vpd(int, int, const uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_get_optrom_layout(int, int, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_activate_region(int, int, uint16_t, uint32_t *s) { return not_served(s); }
int vxsysfs_get_statistics(int, int, EXT_STATISTICS *, uint32_t *s) { return not_served(s); }
int vxsysfs_get_beacon(int, int, EXT_BEACON_CONTROL *, uint32_t *s) { return not_served(s); }
int vxsysfs_set_beacon(int, int, const EXT_BEACON_CONTROL *, uint32_t *s) { return not_served(s); }
int vxsysfs_async_event_reg(int, int, const EXT_REG_AEN *, uint32_t *s) { return not_served(s); }
int vxsysfs_async_event_get(int, int, EXT_ASYNC_EVENT *, uint32_t, uint32_t *s, uint32_t *) { return not_served(s); }

void vxapi_set_global_option_rom_layout(int, int) {}

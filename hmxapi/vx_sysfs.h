// SPDX-License-Identifier: MIT
// The sysfs transport, as the driver-request wrappers and the load sequence
// see it: every wrapper hands an adapter with features bit 0x20 to the
// routine of the same name here.
#pragma once

#include <cstdint>

#include "vx_wire.h"

// Looks for the driver's sysfs adapters and appends them to the adapter
// table from *index upward; 0 when nothing went wrong.
int vxsysfs_supported_driver_exist(const char *drvname, int *index);
// Prepares the transport before discovery.
int vxsysfs_init();
// Region code to flash (offset, size) by the library-wide layout; the code
// 0xFFFF keeps the caller's values. Size 0: unknown region.
void vxsysfs_map_region(int api_idx, uint32_t region, uint32_t *offset, uint32_t *size);

int vxsysfs_query_hbanode(int fd, int api_idx, EXT_HBA_NODE *node, uint32_t *status);
int vxsysfs_query_hbaport(int fd, int api_idx, EXT_HBA_PORT *port, uint32_t *status);
int vxsysfs_query_chip(int fd, int api_idx, EXT_CHIP *chip, uint32_t *status);
int vxsysfs_query_driver(int fd, int api_idx, EXT_DRIVER *drv, uint32_t *status);
int vxsysfs_query_fw(int fd, int api_idx, EXT_FW *fw, uint32_t *status);
int vxsysfs_get_driver_specifics(int fd, int api_idx, EXT_LN_DRIVER_DATA *data, uint32_t *status);
int vxsysfs_read_optrom(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                        uint32_t *status);
int vxsysfs_update_optrom(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                          uint32_t *status);
int vxsysfs_get_nvram(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_set_nvram(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_get_vpd(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_set_vpd(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_get_optrom_layout(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_activate_region(int fd, int api_idx, uint16_t region, uint32_t *status);
int vxsysfs_get_statistics(int fd, int api_idx, EXT_STATISTICS *stats, uint32_t *status);
int vxsysfs_get_beacon(int fd, int api_idx, EXT_BEACON_CONTROL *beacon, uint32_t *status);
int vxsysfs_set_beacon(int fd, int api_idx, const EXT_BEACON_CONTROL *beacon, uint32_t *status);
int vxsysfs_async_event_reg(int fd, int api_idx, const EXT_REG_AEN *reg, uint32_t *status);
int vxsysfs_async_event_get(int fd, int api_idx, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                            uint32_t *returned_len);

// Loads the adapter's flash layout into the library-wide layout that
// vxsysfs_map_region consults (after the open of an FCX160 or FCX180 port).
void vxapi_set_global_option_rom_layout(int fd, int api_idx);

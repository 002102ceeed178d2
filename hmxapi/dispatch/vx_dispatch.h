// SPDX-License-Identifier: MIT
// The vxapi_* request wrappers: each picks the transport of the adapter by
// its features word (sysfs attributes, netlink for the few operations sysfs
// cannot carry, or one driver request) and reports alike.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_hmerr.h"
#include "vx_ioctl_wire.h"
#include "vx_layout.h"
#include "vx_wire.h"

// The raw flash request carries the raw pseudo region's code as its subcode.
static_assert(EXT_SC_RAW_FLASH == vxhmx::kRegionRawFlash);

// Each returns the transport's result (0, or -1 with errno set), or 1 when
// no request could be built; the completion code goes to *status and, where
// asked, the detail (the SCSI status of code 15) to *detail. A flash, NVRAM
// or VPD read whose reply carries fewer bytes than asked completes with 8
// (data underrun). Adapters served by sysfs are handed to the sysfs routine
// of the same name.
int vxapi_query_hbanode(int fd, int api_idx, EXT_HBA_NODE *node, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_hbaport(int fd, int api_idx, EXT_HBA_PORT *port, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_discport(int fd, int api_idx, uint16_t port_index, EXT_DISC_PORT *port, uint32_t *status,
                         uint32_t *detail = nullptr);
int vxapi_query_disctgt(int fd, int api_idx, uint16_t target_index, EXT_DISC_PORT *target, uint32_t *status,
                        uint32_t *detail = nullptr);
int vxapi_query_chip(int fd, int api_idx, EXT_CHIP *chip, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_cnaport(int fd, int api_idx, uint8_t *buf128, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_adapter_versions(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxapi_async_event_reg(int fd, int api_idx, const EXT_REG_AEN *reg, uint32_t *status);
int vxapi_async_event_get(int fd, int api_idx, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                          uint32_t *returned_len);
int vxapi_query_driver(int fd, int api_idx, EXT_DRIVER *drv, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_fw(int fd, int api_idx, EXT_FW *fw, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_statistics(int fd, int api_idx, EXT_STATISTICS *stats, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_port_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                              uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_fc4_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                             uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_beacon(int fd, int api_idx, EXT_BEACON_CONTROL *beacon, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_beacon(int fd, int api_idx, const EXT_BEACON_CONTROL *beacon, uint32_t *status,
                     uint32_t *detail = nullptr);
int vxapi_read_optrom(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                      uint32_t *status, uint32_t *detail = nullptr);
int vxapi_update_optrom(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                        uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_nvram(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_nvram(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status,
                    uint32_t *detail = nullptr);
int vxapi_get_vpd(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_vpd(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_optrom_layout(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status,
                            uint32_t *detail = nullptr);
int vxapi_activate_region(int fd, int api_idx, uint16_t region, uint32_t *status);
int vxapi_get_driver_specifics(int fd, int api_idx, EXT_LN_DRIVER_DATA *data, uint32_t *status);
// Port parameters (INT_PORT_PARAM, speed in Gbit/s), the loopback test and
// the FCX15x bridge operations (1 reset, 2 firmware update, 3 management).
// Sysfs adapters take them over netlink while the driver socket is open.
int vxapi_port_param(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxapi_loopback_test(int fd, int api_idx, const uint8_t *req, uint32_t req_len, uint8_t *resp, uint32_t resp_len,
                        uint32_t *status);
int vxapi_tamar_mgmt(int fd, int api_idx, uint16_t operation, uint8_t *buf, uint32_t len, uint32_t *status);
// SCSI pass-through addressed by port name (command 0x05, sub-code 1): the
// descriptor in, sense back in it; `data` is read into or written from by
// the direction the descriptor gives. The SCSI status comes back in
// *scsi_status and the bytes moved in *xferred.
int vxapi_send_fc_scsipt(int fd, int api_idx, EXT_SCSI_PASSTHRU *pt, uint8_t *data, uint32_t len, uint32_t *status,
                         uint32_t *scsi_status, uint32_t *xferred);
int vxapi_wwpn_to_scsiaddr(int fd, int api_idx, const uint8_t wwpn[8], EXT_SCSI_ADDR *addr, uint32_t *status);
int vxapi_set_instance(int fd, uint16_t drvr_inst, int api_idx, uint32_t *status, uint16_t *host_no);
// Request 0xFF: the number of driver instances, from the reply's Instance.
int vxapi_get_instance_count(int fd, int api_idx, uint32_t *status, uint32_t *count);

// Flash sector size of the adapter (chip query); 0 when unknown.
uint32_t vxapi_get_flash_sector_size(int fd, int api_idx);
// Widens [offset, offset + len) to whole sectors within the flash the
// library's layout knows, reading the surrounding bytes from the flash; on
// success *out holds the window and, unless the write was whole sectors
// already, the merged data. Returns 1 with *status set on failure: 6 for
// bad arguments or a write past the flash end, 10 when out of memory, the
// read's status when a surrounding read fails.
int vxapi_sector_align(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t offset, uint32_t sector,
                       vxhmx::SectorAligned *out, uint32_t *status);
// True for chips whose flash is reached raw (FCX160, FCX180).
bool vxapi_raw_flash_chip(int api_idx);

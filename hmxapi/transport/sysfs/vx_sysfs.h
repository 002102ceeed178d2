// SPDX-License-Identifier: MIT
// The sysfs transport, as the driver-request wrappers and the load sequence
// see it: every wrapper hands an adapter with features bit 0x20 to the
// routine of the same name here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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
// Without netlink, sysfs cannot carry these.
int vxsysfs_port_param(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxsysfs_loopback_test(int fd, int api_idx, const uint8_t *req, uint32_t req_len, uint8_t *resp, uint32_t resp_len,
                          uint32_t *status);
int vxsysfs_tamar_mgmt(int fd, int api_idx, uint16_t operation, uint8_t *buf, uint32_t len, uint32_t *status);
// SCSI pass-through on a sysfs port, through the SCSI generic node of the
// target's LUN.
int vxsysfs_send_fc_scsipt(int fd, int api_idx, EXT_SCSI_PASSTHRU *pt, uint8_t *data, uint32_t len, uint32_t *status,
                           uint32_t *scsi_status, uint32_t *xferred);

// ---- pieces of the sysfs transport the public calls and tests use ----------

struct VxPciAddress {
    uint16_t domain, bus, device, function;
};
// "dddd:bb:dd.f" (hexadecimal, the function decimal); false when it does not parse.
bool vxsysfs_parse_pci_address(const char *bus_id, VxPciAddress *addr);
// Smallest N of the "hostN" entries of a PCI device directory (the port's
// SCSI host); -1 when there is none.
int vxsysfs_smallest_host(const char *device_path);
// Hexadecimal text ("0x" optional) to at most n bytes, two digits per byte
// from the left; bytes the text does not reach are left as they are.
std::size_t vxsysfs_hex_to_bytes(std::string_view text, uint8_t *dst, std::size_t n);
// Position of a link state text among the driver's words (0 "Link Down" ...
// 5 "Unknown Link State", also for any text not in the list) and the speed
// of a speed text in Gbit/s (0 when unknown).
uint16_t vxsysfs_link_state_index(std::string_view text);
uint32_t vxsysfs_speed_gbit(std::string_view text);
// Moves a file in pieces of one page; returns the bytes not moved (the whole
// size when the file does not open).
std::size_t vxsysfs_read_file(const std::string &path, uint8_t *buf, std::size_t size);
std::size_t vxsysfs_write_file(const std::string &path, const uint8_t *buf, std::size_t size);
// NVRAM (or VPD) block read that copies the whole attribute when it is at
// least `want` bytes long; an attribute longer than `cap`, the caller's
// buffer, gives code 16 instead of an overrun.
int vxsysfs_get_block_capped(int api_idx, bool nvram, uint8_t *buf, uint32_t want, uint32_t cap, uint32_t *status);
// VPD write with the size by pointer: on success the size becomes the
// block's length.
int vxsysfs_set_vpd_size(int api_idx, const uint8_t *buf, uint32_t *size, uint32_t *status);

// SPDX-License-Identifier: MIT
// Netlink sockets for adapters served by the sysfs transport: the driver's
// management socket (protocol 20) and the SCSI transport event socket
// (protocol 18). Requests on the first are one message each way; bulk data
// travels in chunks of 64 KiB, one exchange per chunk.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_netlink_wire.h"
#include "vx_wire.h"

extern int gnl_fd;          // driver management socket, -1 when closed
extern int gnl_scsi_fc_fd;  // SCSI transport socket, -1 when closed


// Opens the sockets not yet open and records them in record 0's features
// (0x200 driver socket, 0x400 transport socket).
int vxapi_open_netlink_socket();
void vxapi_close_netlink_socket();
int vxapi_nl_open();
int vxapi_nl_scsi_fc_open();
// Fills the netlink and SCSI netlink headers of a request of `length` bytes.
void vxapi_cmn_nl_hdr(uint8_t *msg, uint32_t length);
// One non-blocking receive of at most `length` bytes into buf, which must
// hold (length + 19) & ~3 bytes; -1 (EINVAL) for a length above 131,072
// without reading, -1 with errno when nothing is queued.
long vxapi_rcv_msg(int fd, std::size_t length, uint8_t *buf);

// The operations. Each returns 0 on success, otherwise non-zero with the
// driver's error, or 6 for a bad parameter, in *status.
// Port parameters: param is an INT_PORT_PARAM (EXT_DEST_ADDR, Mode, Speed);
// the speed is in Gbit/s on both sides of the call.
int vxapi_nl_port_param(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status);
// Loopback: the driver compares the pattern; an error means it came back changed.
int vxapi_nl_loopback_test(int fd, uint16_t host_no, const uint8_t *data, uint32_t len, uint32_t *status);
int vxapi_nl_FCX15x_reset(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status);
int vxapi_nl_FCX15x_updatefw(int fd, uint16_t host_no, const uint8_t *image, uint32_t len, uint32_t *status);
int vxapi_nl_FCX15x_mgmt(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status);
// Events of the port: whole records into `events` (room for len bytes).
int vxapi_nl_get_aen(int fd, uint16_t host_no, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                     uint32_t *returned_len);

// SPDX-License-Identifier: MIT
// Netlink sockets for adapters served by the sysfs transport: the driver's
// management socket (protocol 20) and the SCSI transport event socket
// (protocol 18). Requests on the first are one message each way; bulk data
// travels in chunks of 64 KiB, one exchange per chunk.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_wire.h"

extern int gnl_fd;          // driver management socket, -1 when closed
extern int gnl_scsi_fc_fd;  // SCSI transport socket, -1 when closed

namespace vxnl {
// Netlink message of a request: the netlink header (16), the SCSI netlink
// header (8) and the 2072-byte vxa_fc_msg, then the bulk data.
inline constexpr std::size_t kNlHdr = 16;
inline constexpr std::size_t kScsiHdr = 8;
inline constexpr std::size_t kFcMsg = 2072;
inline constexpr std::size_t kRequestHdr = kNlHdr + kScsiHdr + kFcMsg;  // 2096
inline constexpr std::size_t kReplyHdr = kNlHdr + kFcMsg;               // 2088
// Offsets inside vxa_fc_msg.
inline constexpr std::size_t kMagic = 0;
inline constexpr std::size_t kHostNo = 8;
inline constexpr std::size_t kDataLen = 10;
inline constexpr std::size_t kCmd = 12;
inline constexpr std::size_t kError = 16;
inline constexpr std::size_t kParams = 20;
inline constexpr std::size_t kParamsSize = kFcMsg - kParams;  // 2052
static_assert(kRequestHdr == 2096 && kParamsSize == 2052);

inline constexpr int kProtocolDriver = 20;
inline constexpr int kProtocolScsiTransport = 18;  // NETLINK_SCSITRANSPORT
inline constexpr uint32_t kFcTransportGroup = 4;
inline constexpr uint16_t kMsgType = 17;
inline constexpr uint16_t kScsiMagic = 0xA1B2;
inline constexpr uint16_t kScsiMsgType = 0x8000;
inline constexpr uint32_t kFcMagicLow = 0xFCAB1FC1;
inline constexpr std::size_t kSocketBuffer = 133168;
inline constexpr std::size_t kMaxReceive = 131072;
inline constexpr std::size_t kMaxChunk = 65536;

enum Command : uint32_t {
    kBridgeReset = 1,
    kBridgeUpdateFw = 2,
    kBridgeMgmt = 3,
    kGetAen = 4,
    kLoopbackFirst = 5,
    kLoopbackSecond = 6,
    kPortParam = 7,
};

// The 64-bit vxa_fc_msg magic: the maker's PCI vendor ID and 0x84DD above
// the fixed low word.
uint64_t fc_magic();
// Bytes of a request message carrying n bytes of bulk data.
std::size_t request_length(std::size_t n);
// Driver speed code of a speed in Gbit/s and back; false for any other.
bool speed_to_code(uint16_t gbit, uint16_t *code);
bool code_to_speed(uint16_t code, uint16_t *gbit);
}  // namespace vxnl

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

// Port-parameter record of the driver (20 bytes).
struct INT_PORT_PARAM {
    EXT_DEST_ADDR FCScsiAddr;
    uint16_t Mode;   // 0 get, otherwise set
    uint16_t Speed;  // Gbit/s to the caller, a speed code to the driver
};
static_assert(sizeof(INT_PORT_PARAM) == 20 && offsetof(INT_PORT_PARAM, Mode) == 16);
static_assert(offsetof(INT_PORT_PARAM, Speed) == 18);

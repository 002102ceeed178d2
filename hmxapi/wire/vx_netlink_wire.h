// SPDX-License-Identifier: MIT
// The driver's netlink messages: sizes, offsets, protocol numbers, commands,
// the 64-bit magic, the port-parameter record and the speed codes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_wire.h"

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

// Port-parameter record of the driver (20 bytes).
struct INT_PORT_PARAM {
    EXT_DEST_ADDR FCScsiAddr;
    uint16_t Mode;   // 0 get, otherwise set
    uint16_t Speed;  // Gbit/s to the caller, a speed code to the driver
};
static_assert(sizeof(INT_PORT_PARAM) == 20 && offsetof(INT_PORT_PARAM, Mode) == 16);
static_assert(offsetof(INT_PORT_PARAM, Speed) == 18);

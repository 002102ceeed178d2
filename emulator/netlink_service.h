// SPDX-License-Identifier: MIT
// The driver's management netlink protocol (number 20) as the emulated driver
// answers it over the socket injected in place of the real one. Messages are
// checked field by field; anything malformed is a violation in the traffic log.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <span>
#include <vector>

#include "host_model.h"
#include "traffic_log.h"

namespace vxemu {

namespace nl {
inline constexpr size_t kNlHdr = 16;        // struct nlmsghdr
inline constexpr size_t kScsiNlHdr = 8;     // struct scsi_nl_hdr
inline constexpr size_t kFcMsg = 2072;      // vxa_fc_msg
inline constexpr size_t kRequestHdr = kNlHdr + kScsiNlHdr + kFcMsg;  // 2096
static_assert(kRequestHdr == 2096);
// Offsets inside vxa_fc_msg.
inline constexpr size_t kMagic = 0;        // uint64
inline constexpr size_t kHostNo = 8;       // uint16
inline constexpr size_t kDataLen = 10;     // uint16
inline constexpr size_t kCmd = 12;         // uint32
inline constexpr size_t kError = 16;       // uint32
inline constexpr size_t kParams = 20;      // 2052 bytes
inline constexpr uint16_t kMsgType = 17;
inline constexpr uint16_t kScsiMagic = 0xA1B2;
inline constexpr uint16_t kScsiMsgType = 0x8000;
inline constexpr uint32_t kFcMagicLow = 0xFCAB1FC1;
inline constexpr size_t kMaxChunk = 65536;  // bulk data bytes one message may carry
}  // namespace nl

class NetlinkService {
public:
    NetlinkService(Host &host, TrafficLog &log) : host_(host), log_(log) {}
    // One request on protocol 20; returns the reply (empty: no reply is sent).
    [[nodiscard]] std::vector<uint8_t> handle(std::span<const uint8_t> msg, unsigned pid);

private:
    Host &host_;
    TrafficLog &log_;
    std::map<std::string, size_t> bulk_next_;
    std::map<std::string, std::vector<uint8_t>> loop_data_;  // adapter/function: the pattern of the first phase  // adapter/function/command: offset of the next chunk
};

}  // namespace vxemu

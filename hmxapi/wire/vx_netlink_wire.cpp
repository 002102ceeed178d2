// SPDX-License-Identifier: MIT
#include "vx_netlink_wire.h"

#include "vx_chipdata.h"

namespace vxnl {

uint64_t fc_magic() {
    const uint32_t high = (static_cast<uint32_t>(vxhmx::chipid::MakerVendor) << 16) | 0x84DD;
    return (static_cast<uint64_t>(high) << 32) | kFcMagicLow;
}

std::size_t request_length(std::size_t n) { return n == 0 ? kRequestHdr : (n + kRequestHdr + 3) & ~std::size_t{3}; }

namespace {
constexpr struct {
    uint16_t gbit, code;
} kSpeeds[] = {{1, 0}, {2, 1}, {4, 3}, {8, 4}, {16, 19}};
}  // namespace

bool speed_to_code(uint16_t gbit, uint16_t *code) {
    for (const auto &s : kSpeeds)
        if (s.gbit == gbit) return (*code = s.code), true;
    return false;
}

bool code_to_speed(uint16_t code, uint16_t *gbit) {
    for (const auto &s : kSpeeds)
        if (s.code == code) return (*gbit = s.gbit), true;
    return false;
}

}  // namespace vxnl

// SPDX-License-Identifier: MIT
// Layout of the shared state file /tmp/vxhmx.dat (native byte order, packed).
// Every process that uses the library maps the same bytes, so the offsets
// are fixed here once and proved at compile time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_wire.h"

inline constexpr int kSharedAdapters = 32;
inline constexpr int kSharedInstances = 8;

struct __attribute__((packed)) vxapi_hbainfo_t {
    char phys_path[240];  // empty: free entry
    uint8_t rsvd1[14];
    uint8_t inuse1;
    uint8_t host_no[2];  // unaligned native uint16
    uint8_t open_cnt;    // opens across all processes
};
static_assert(sizeof(vxapi_hbainfo_t) == 258);
static_assert(offsetof(vxapi_hbainfo_t, rsvd1) == 240);
static_assert(offsetof(vxapi_hbainfo_t, inuse1) == 254);
static_assert(offsetof(vxapi_hbainfo_t, host_no) == 255);
static_assert(offsetof(vxapi_hbainfo_t, open_cnt) == 257);

struct vxapi_hbaptevq_t {
    EXT_ASYNC_EVENT eventbuf[64];
    uint8_t q_head;
    uint8_t q_tail;
    uint8_t rsvd[6];
};
static_assert(sizeof(vxapi_hbaptevq_t) == 1032);
static_assert(offsetof(vxapi_hbaptevq_t, q_head) == 1024 && offsetof(vxapi_hbaptevq_t, q_tail) == 1025);

struct __attribute__((packed)) vxapi_shared_t {
    vxapi_hbainfo_t hbainfo[kSharedAdapters];
    uint32_t libinst_flags[kSharedInstances];
    uint32_t libinst_hbaflags[kSharedInstances][kSharedAdapters];
    vxapi_hbaptevq_t hbaptevq[kSharedInstances][kSharedAdapters];
    uint8_t inuse1[kSharedInstances][kSharedAdapters][18440];
    uint8_t rsvd1[kSharedInstances][kSharedAdapters][8208];
};
static_assert(sizeof(vxapi_shared_t) == 7095392);
static_assert(offsetof(vxapi_shared_t, hbainfo) == 0);
static_assert(offsetof(vxapi_shared_t, libinst_flags) == 8256);
static_assert(offsetof(vxapi_shared_t, libinst_hbaflags) == 8288);
static_assert(offsetof(vxapi_shared_t, hbaptevq) == 9312);
static_assert(offsetof(vxapi_shared_t, inuse1) == 273504);
static_assert(offsetof(vxapi_shared_t, rsvd1) == 4994144);

inline constexpr std::size_t kSharedFileSize = sizeof(vxapi_shared_t);
inline constexpr std::size_t kFirstVersionFileSize = 7998;
inline constexpr std::size_t kHbaInfoSize = sizeof(vxapi_hbainfo_t);
inline constexpr std::size_t kHbaFlagsRowSize = sizeof(uint32_t) * kSharedAdapters;      // 128
inline constexpr std::size_t kEventQueuesRowSize = sizeof(vxapi_hbaptevq_t) * kSharedAdapters;  // 33,024

// libinst_flags bits.
inline constexpr uint32_t kInstAlive = 0x1;
inline constexpr uint32_t kInstTaken = 0x4;
inline constexpr uint32_t kInstUpgraded = 0x8;
inline constexpr uint32_t kInstPresentMask = kInstAlive | kInstTaken | kInstUpgraded;

// Byte offsets of the fields of entry / instance i.
constexpr std::size_t hbainfo_offset(int i) { return offsetof(vxapi_shared_t, hbainfo) + kHbaInfoSize * i; }
constexpr std::size_t libinst_flags_offset(int i) { return offsetof(vxapi_shared_t, libinst_flags) + 4 * i; }
constexpr std::size_t libinst_hbaflags_offset(int i) {
    return offsetof(vxapi_shared_t, libinst_hbaflags) + kHbaFlagsRowSize * i;
}
constexpr std::size_t hbaptevq_offset(int i) { return offsetof(vxapi_shared_t, hbaptevq) + kEventQueuesRowSize * i; }

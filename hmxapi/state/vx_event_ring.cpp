// SPDX-License-Identifier: MIT
// The event queues of the shared state: one ring of 64 records per library
// instance and adapter slot, filled for every live instance and emptied by
// the instance that reads it; and the callback registry beside them.
#include "vx_event_ring.h"

#include <cstring>

#include "vx_shared_layout.h"
#include "vx_wire.h"

namespace {

constexpr std::size_t kRingEntries = 64;
constexpr std::size_t kEventSize = sizeof(EXT_ASYNC_EVENT);
constexpr std::size_t kHeadAt = offsetof(vxapi_hbaptevq_t, q_head);
constexpr std::size_t kTailAt = offsetof(vxapi_hbaptevq_t, q_tail);
constexpr uint32_t kCallbackWanted = 0x1;

uint8_t *ring_of(uint8_t *shared, int instance, int slot) {
    return shared + hbaptevq_offset(instance) + sizeof(vxapi_hbaptevq_t) * static_cast<std::size_t>(slot);
}

uint32_t entry_code(const uint8_t *ring, std::size_t i) {
    uint32_t code = 0;
    std::memcpy(&code, ring + i * kEventSize, sizeof code);
    return code;
}

uint32_t read_u32(const uint8_t *p) {
    uint32_t v = 0;
    std::memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

void vxapi_event_queue(uint8_t *shared, int slot, const uint8_t record[16]) {
    if (shared == nullptr || slot < 0 || slot >= kSharedAdapters) return;
    for (int inst = 0; inst < kSharedInstances; ++inst) {
        if ((read_u32(shared + libinst_flags_offset(inst)) & kInstAlive) == 0) continue;
        uint8_t *ring = ring_of(shared, inst, slot);
        uint8_t &head = ring[kHeadAt];
        uint8_t &tail = ring[kTailAt];
        // The file is shared with other processes: never trust an index.
        head %= kRingEntries;
        tail %= kRingEntries;
        if (entry_code(ring, tail) != 0) {
            tail = static_cast<uint8_t>((tail + 1) % kRingEntries);
            if (tail == head) head = static_cast<uint8_t>((head + 1) % kRingEntries);
        }
        std::memcpy(ring + tail * kEventSize, record, kEventSize);
    }
}

std::size_t vxapi_event_take(uint8_t *shared, int instance, int slot, uint8_t *out, std::size_t out_records) {
    if (shared == nullptr || slot < 0 || slot >= kSharedAdapters || instance < 0 || instance >= kSharedInstances)
        return 0;
    uint8_t *ring = ring_of(shared, instance, slot);
    const std::size_t head = ring[kHeadAt] % kRingEntries;
    const std::size_t tail = ring[kTailAt] % kRingEntries;
    std::size_t n = 0;
    for (std::size_t step = 0; step < kRingEntries; ++step) {
        const std::size_t i = (head + step) % kRingEntries;
        uint8_t *entry = ring + i * kEventSize;
        if (entry_code(ring, i) != 0) {
            if (n < out_records) std::memcpy(out + n * kEventSize, entry, kEventSize);
            ++n;
        }
        std::memset(entry, 0, kEventSize);
        if (i == tail) break;
    }
    ring[kHeadAt] = 0;
    ring[kTailAt] = 0;
    return n < out_records ? n : out_records;
}

bool vxapi_event_callbacks_wanted(const uint8_t *shared, int instance, int slot) {
    if (shared == nullptr || slot < 0 || slot >= kSharedAdapters || instance < 0 || instance >= kSharedInstances)
        return false;
    const uint8_t *word = shared + libinst_hbaflags_offset(instance) + sizeof(uint32_t) * static_cast<std::size_t>(slot);
    return (read_u32(word) & kCallbackWanted) != 0;
}

namespace vxhmx {

uint32_t aen_public_code(uint32_t driver_code) {
    // 0x8014 and 0x8015 report as 6 and 5: exchanged on purpose, callers
    // depend on these numbers.
    switch (driver_code) {
    case 0x8010: return 1;
    case 0x8011: return 2;
    case 0x8012: return 3;
    case 0x8013: return 4;
    case 0x8014: return 6;
    case 0x8015: return 5;
    case 0x8060: return 7;
    default: return 0;
    }
}

}  // namespace vxhmx

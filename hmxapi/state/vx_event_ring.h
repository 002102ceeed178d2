// SPDX-License-Identifier: MIT
// The event queues of the shared state and the callback registry. Each
// works on the mapped file given to it, with the shared-state semaphore
// held by the caller.
#pragma once

#include <cstddef>
#include <cstdint>

// Adds one 16-byte driver event record to the ring of adapter slot `slot`
// of every live library instance of the shared state; a full ring drops its
// oldest entry. Runs with the shared-state semaphore held.
void vxapi_event_queue(uint8_t *shared, int slot, const uint8_t record[16]);
// Empties this instance's ring of `slot`, oldest first, into `out` (room for
// `out_records` records of 16 bytes); returns the number of records copied.
std::size_t vxapi_event_take(uint8_t *shared, int instance, int slot, uint8_t *out, std::size_t out_records);

// The callback registry of the shared state: bit 0 of library instance
// `instance`'s flags word for adapter slot `slot`, set while that process
// wants the slot's events delivered by callback. False out of range.
bool vxapi_event_callbacks_wanted(const uint8_t *shared, int instance, int slot);

namespace vxhmx {
// The public event code of a driver event code; 0 for codes not reported.
uint32_t aen_public_code(uint32_t driver_code);
}  // namespace vxhmx

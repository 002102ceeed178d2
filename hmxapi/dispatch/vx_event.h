// SPDX-License-Identifier: MIT
// The per-process event thread.
#pragma once

#include <cstddef>
#include <cstdint>

// Starts the thread (once per attach of the shared state); 0 on success.
int vxapi_event_start();
// Sets the stop flag and joins the thread.
void vxapi_event_stop();
void vxapi_event_clear_stop();
// One polling pass over the adapters with event delivery registered; runs
// with the shared-state semaphore held.
void vxapi_event_poll_adapters();

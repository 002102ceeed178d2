// SPDX-License-Identifier: MIT
// The adapter's own layout table made the library-wide layout (owned by
// vx_global_layout), and the public status of a transport's result.
#pragma once

#include <cstdint>

// Asks the adapter for its own layout table (the layout request) and makes
// it the global layout. Returns 0, or the public status of the failure.
uint32_t vxflash_load_adapter_layout(int fd, int api_idx);

// Public status of a transport result: a negative return gives errno, any
// other non-zero return 0x20000075, else the completion code converted
// with its detail (the SCSI status of code 15).
uint32_t vxflash_status(int rc, uint32_t ext_stat, uint32_t detail);

// Loads the adapter's flash layout into the library-wide layout (after the
// open of an FCX160 or FCX180 port); a failure is traced and leaves it.
void vxapi_set_global_option_rom_layout(int fd, int api_idx);

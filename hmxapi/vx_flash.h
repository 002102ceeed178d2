// SPDX-License-Identifier: MIT
// The library-wide flash layout and the helpers the public flash calls and
// both transports share.
#pragma once

#include <cstdint>

#include "vx_layout.h"

// The layout of the last layout query (one per process), reached through
// pGlobalOptRomLayout, which stays null until the first query succeeded.
extern vxhmx::INT_OPT_ROM_LAYOUT gOptRomLayout;
extern vxhmx::INT_OPT_ROM_LAYOUT *pGlobalOptRomLayout;

// Asks the adapter for its own layout table (the layout request) and makes
// it the global layout. Returns 0, or the public status of the failure.
uint32_t vxflash_load_adapter_layout(int fd, int api_idx);

// Public status of a transport result: a negative return gives errno, any
// other non-zero return 0x20000075, else the completion code converted
// with its detail (the SCSI status of code 15).
uint32_t vxflash_status(int rc, uint32_t ext_stat, uint32_t detail);

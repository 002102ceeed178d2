// SPDX-License-Identifier: MIT
// The library-wide flash layout: the layout of the last successful layout
// query of this process. Its one owner; everyone else reads it here.
#pragma once

#include <cstdint>

#include "vx_layout.h"

// The layout, or null until a query succeeded.
const vxhmx::INT_OPT_ROM_LAYOUT *vxapi_global_layout();
void vxapi_set_global_layout(const vxhmx::INT_OPT_ROM_LAYOUT &layout);
// Where the flash ends in whole sectors by that layout; without one the
// end is unknown (UINT32_MAX) and the driver bounds requests itself.
uint32_t vxapi_global_flash_end(uint32_t sector_size);

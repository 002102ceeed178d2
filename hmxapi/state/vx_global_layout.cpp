// SPDX-License-Identifier: MIT
#include "vx_global_layout.h"

namespace {
vxhmx::INT_OPT_ROM_LAYOUT gOptRomLayout;
vxhmx::INT_OPT_ROM_LAYOUT *pGlobalOptRomLayout = nullptr;
}  // namespace

const vxhmx::INT_OPT_ROM_LAYOUT *vxapi_global_layout() { return pGlobalOptRomLayout; }

void vxapi_set_global_layout(const vxhmx::INT_OPT_ROM_LAYOUT &layout) {
    gOptRomLayout = layout;
    pGlobalOptRomLayout = &gOptRomLayout;
}

uint32_t vxapi_global_flash_end(uint32_t sector_size) {
    return pGlobalOptRomLayout != nullptr ? vxhmx::vxlayout_flash_end(*pGlobalOptRomLayout, sector_size) : UINT32_MAX;
}

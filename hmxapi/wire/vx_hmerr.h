// SPDX-License-Identifier: MIT
// Status texts and the driver completion-code map.
#pragma once

#include <cstdint>
#include <span>

#include "vxhmx.h"

// Driver completion codes the library sets or tests itself; the others
// only pass through HmXlateHMXErr.
inline constexpr uint32_t EXT_STATUS_OK = 0;
inline constexpr uint32_t EXT_STATUS_ERR = 1;
inline constexpr uint32_t EXT_STATUS_INVALID_PARAM = 6;
inline constexpr uint32_t EXT_STATUS_DATA_OVERRUN = 7;
inline constexpr uint32_t EXT_STATUS_DATA_UNDERRUN = 8;
inline constexpr uint32_t EXT_STATUS_DEV_NOT_FOUND = 9;
inline constexpr uint32_t EXT_STATUS_COPY_ERR = 10;
inline constexpr uint32_t EXT_STATUS_SCSI_STATUS = 15;  // the device status decides
inline constexpr uint32_t EXT_STATUS_BUFFER_TOO_SMALL = 16;

// Stores a completion code where the caller asked for one.
inline void vxapi_set_status(uint32_t *status, uint32_t code) {
    if (status != nullptr) *status = code;
}

// Completion codes that still carry usable data.
inline bool vxapi_status_usable(uint32_t s) {
    return s == EXT_STATUS_OK || s == EXT_STATUS_DATA_OVERRUN || s == EXT_STATUS_DATA_UNDERRUN;
}

// Library statuses without a constant in the public header: they print as
// "Unknown Error %xh.".
inline constexpr uint32_t HMX_ERR_BUFFER_SMALLER_THAN_REGION = 0x20000084u;
inline constexpr uint32_t HMX_ERR_REGION_ZERO = 0x20000089u;
inline constexpr uint32_t HMX_ERR_ACTIVATION_FAILED = 0x20000090u;
inline constexpr uint32_t HMX_ERR_VPD_NOT_UPDATED = 0x20000091u;

namespace vxhmx {

struct ErrorText {
    uint32_t code;
    const char *text;
};

// Every status code with a text of its own, in code order.
std::span<const ErrorText> error_texts();

}  // namespace vxhmx

// HmXlateHMXErr, the completion-code map, is public (vxhmx.h).

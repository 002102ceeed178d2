// SPDX-License-Identifier: MIT
// Status texts and the driver completion-code map.
#pragma once

#include <cstdint>
#include <span>

namespace vxhmx {

struct ErrorText {
    uint32_t code;
    const char *text;
};

// Every status code with a text of its own, in code order.
std::span<const ErrorText> error_texts();

}  // namespace vxhmx

// Driver completion code (and, for SCSI completions, the device status) to
// a public status code.
uint32_t HmXlateHMXErr(uint32_t ext_stat, uint32_t ext_dstat);

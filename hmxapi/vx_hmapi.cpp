// SPDX-License-Identifier: MIT
// Public calls of the library frame.
#include "vxhmx.h"

#include <cstring>

namespace {
constexpr char kVersionText[] = "v5.00 build7Pre1";
constexpr uint32_t kVersionNumber = 0x05000700;
}  // namespace

extern "C" uint32_t HmGetVersion(int8_t *pVersion, uint32_t /*VersionSize*/) {
    // The size is not consulted on purpose: callers pass at least 17 bytes.
    if (pVersion != nullptr) std::memcpy(pVersion, kVersionText, sizeof kVersionText);
    return kVersionNumber;
}

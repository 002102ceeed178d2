// SPDX-License-Identifier: MIT
// Reading a VPD field from an adapter: the library call, apart from the pure
// field walk so that the walk can be exercised on any buffer.
#include <array>

#include "adapter_list.h"
#include "vpd_fields.h"
#include "vxhmx.h"

uint32_t RetrieveSpecificVPDField(const Adapter *adapter, const char *keyword, std::span<char> output,
                                  VpdTraceSink trace) {
    if (adapter == nullptr) return kVpdReadError;
    std::array<uint8_t, kVpdBufferSize> buffer{};
    uint32_t size = kVpdBufferSize;
    if (HmGetVpd(adapter->handle, 0, buffer.data(), &size) != 0) return kVpdReadError;
    return RetrieveVPDFieldFromBuffer(buffer, keyword, output, trace);
}

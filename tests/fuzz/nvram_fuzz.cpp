// SPDX-License-Identifier: MIT
// NVRAM variables on an image of any size, in both formats: reading every
// variable, and a write that reads back and can be undone byte for byte.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <vector>

#include "vx_hmnvr.h"

using namespace vxhmx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const NvramFormat format = in.ConsumeBool() ? NvramFormat::Extended : NvramFormat::Basic;
    const uint32_t var = in.ConsumeIntegralInRange<uint32_t>(0, NVRAMVarEnd + 1);
    const uint32_t value = in.ConsumeIntegral<uint32_t>();
    const std::vector<uint8_t> original = in.ConsumeRemainingBytes<uint8_t>();

    for (uint32_t v = 0; v <= NVRAMVarEnd; ++v) {
        (void)VXHMNVR_GetVariableValue(original, format, v);
        (void)VXHMNVR_IsVariableReadOnly(original, format, v);
        (void)VXHMNVR_IsVariableVisible(original, format, v);
    }

    std::vector<uint8_t> image = original;
    const uint32_t before = VXHMNVR_GetVariableValue(image, format, var);
    if (VXHMNVR_SetVariableValue(image, format, var, value) != HMX_STATUS_OK) {
        if (image != original) std::abort();  // a refused write changes nothing
        return 0;
    }
    const NvramPlace place = vxhmnvr_place(format, var);
    if (place.pos == kNvramNotPresent) {
        if (image != original) std::abort();
        return 0;
    }
    if (var == NVRAMVarId) return 0;  // text: a zero byte clears the rest
    if (VXHMNVR_GetVariableValue(image, format, var) != (value & vxhmnvr_mask(place.len))) std::abort();
    if (VXHMNVR_SetVariableValue(image, format, var, before) != HMX_STATUS_OK || image != original) std::abort();
    return 0;
}

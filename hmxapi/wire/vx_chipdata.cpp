// SPDX-License-Identifier: MIT
// Product data: chips and subsystem IDs. The emulator serves the same IDs;
// a new adapter model is added here and nowhere else.
#include "vx_chipdata.h"

#include <array>

namespace vxhmx {
namespace {

using namespace chipid;

// The generation flags follow from the family predicates so the table
// cannot drift from them: the FCX14x class keeps its serial in the VPD.
constexpr ChipData chip(std::string_view name, uint16_t id) { return {name, id, is_fcx12x(id), is_fcx14x_class(id)}; }

constexpr std::array<ChipData, 20> kChips{{
    chip("FCX100", FCX100), chip("FCX110", FCX110), chip("FCX120", FCX120), chip("FCX121", FCX121),
    chip("FCX122", FCX122), chip("FCX123", FCX123), chip("FCX126", FCX126), chip("FCX127", FCX127),
    chip("FCX140", FCX140), chip("FCX141", FCX141), chip("FCX144", FCX144), chip("FCX145", FCX145),
    chip("FCX150", FCX150), chip("FCX160", FCX160), chip("FCX180", FCX180), chip("FCX181", FCX181),
    chip("FCX182", FCX182), chip("FCX183", FCX183), chip("FCX184", FCX184), chip("FCX185", FCX185),
}};

// The OEM's four listed models and the maker's one listed model.
constexpr std::array<uint16_t, 4> kOemListedModels{0x12BA, 0x12C2, 0x12C7, 0x12C9};
constexpr uint16_t kMakerListedModel = 0x0131;

}  // namespace

std::span<const ChipData> all_chips() { return kChips; }

const ChipData *find_chip_by_device_id(uint16_t device_id) {
    for (const auto &c : kChips)
        if (c.device_id == device_id) return &c;
    return nullptr;
}

const ChipData *find_chip_by_name(std::string_view name) {
    for (const auto &c : kChips)
        if (c.name == name) return &c;
    return nullptr;
}

uint16_t chip_device_id(std::string_view name) {
    const ChipData *c = find_chip_by_name(name);
    return c != nullptr ? c->device_id : 0;
}

bool is_listed_oem_model(uint16_t ssvendor_id, uint16_t ssdevice_id) {
    if (ssvendor_id == OemSubsysVendor) {
        for (uint16_t m : kOemListedModels)
            if (m == ssdevice_id) return true;
        return false;
    }
    return ssvendor_id == MakerVendor && ssdevice_id == kMakerListedModel;
}

}  // namespace vxhmx

// SPDX-License-Identifier: MIT
#include "region_plan.h"

int FindRequestRegion(std::span<const LayoutRegion> layout, uint32_t requestRegion) {
    for (size_t i = 0; i < layout.size(); ++i)
        if (layout[i].region == requestRegion) return static_cast<int>(i);
    return -1;
}

std::vector<RegionStep> PlanRegionWrites(std::span<const LayoutRegion> layout, uint32_t requestRegion,
                                         uint32_t regionBufferSize) {
    std::vector<RegionStep> steps;
    steps.reserve(layout.size());
    for (const LayoutRegion &entry : layout) {
        RegionStep step{entry.region, entry.size, false, false, 0, 0, true};
        if (requestRegion == kRegionAll) {
            if (entry.region == kRegionBootCode || entry.region == kRegionBootCodeAndFirmware) {
                step.write = true;
                step.traced = entry.region == kRegionBootCode;
                step.length = entry.size;
            } else if (entry.region == kRegionFirmware) {
                step.write = true;
                step.traced = true;
                step.from = kFirmwareImageOffset;
                step.length = entry.size;
            }
        } else if (entry.region == requestRegion) {
            step.write = true;
            step.traced = true;
            step.length = regionBufferSize;
        }
        if (step.write)
            step.fits = step.from <= regionBufferSize && step.length <= regionBufferSize - step.from;
        steps.push_back(step);
    }
    return steps;
}

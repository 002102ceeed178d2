// SPDX-License-Identifier: MIT
// Which regions of an adapter's flash layout a multiboot image is written
// to, and from where in the region buffer: the plan of the region update.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

constexpr uint32_t kRegionAll = 0xFF;
constexpr uint32_t kRegionBootCode = 0x07;
constexpr uint32_t kRegionBootCodeAndFirmware = 0x05;
constexpr uint32_t kRegionFirmware = 0x01;
// The firmware sits here in a multiboot image.
constexpr uint32_t kFirmwareImageOffset = 0x80000;

struct LayoutRegion {
    uint32_t region;  // region code
    uint32_t size;    // bytes
};

// One entry of the layout as the update walks it.
struct RegionStep {
    uint32_t region;
    uint32_t size;
    bool write;           // this entry is written
    bool traced;          // the "Updating Region" trace comes first
    uint32_t from;        // offset in the region buffer
    uint32_t length;      // bytes written
    bool fits;            // from + length lies inside the region buffer
};

// Index of the first entry of the request's region code, or -1.
int FindRequestRegion(std::span<const LayoutRegion> layout, uint32_t requestRegion);

// The walk over every layout entry, in order. For the whole option ROM the
// boot code (7) and boot code with firmware (5) entries are written from
// the start of the buffer and the firmware entry (1) from the firmware's
// place; any other request writes its own entries with the maximum size.
std::vector<RegionStep> PlanRegionWrites(std::span<const LayoutRegion> layout, uint32_t requestRegion,
                                         uint32_t regionBufferSize);

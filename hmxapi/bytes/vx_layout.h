// SPDX-License-Identifier: MIT
// Flash layouts: the library's internal layout record, the fixed tables for
// adapters whose layout is not read from the adapter, the region map shared
// by both transports, the write-path and activation choices of a region
// write, the copy into the caller's layout record, and the widening of a
// flash write to whole sectors. All pure; the transports do the I/O.
#ifndef VX_LAYOUT_H
#define VX_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "vxhmx.h"

namespace vxhmx {

struct INT_OPT_ROM_REGION {
    uint32_t Region;  // low 8 bits region code, higher bits attributes
    uint32_t Size;    // bytes; 0 ends the list
    uint32_t Beg;     // first flash byte
    uint32_t End;     // last flash byte
};
static_assert(sizeof(INT_OPT_ROM_REGION) == 16);

inline constexpr std::size_t kMaxOptRomRegions = 255;

struct INT_OPT_ROM_LAYOUT {
    uint32_t Size;         // whole flash, from the 0xFF row
    uint32_t NoOfRegions;
    INT_OPT_ROM_REGION Region[kMaxOptRomRegions];
};
static_assert(sizeof(INT_OPT_ROM_LAYOUT) == 4088);
static_assert(offsetof(INT_OPT_ROM_LAYOUT, NoOfRegions) == 4);
static_assert(offsetof(INT_OPT_ROM_LAYOUT, Region) == 8);
static_assert(offsetof(INT_OPT_ROM_REGION, Size) == 4 && offsetof(INT_OPT_ROM_REGION, Beg) == 8 &&
              offsetof(INT_OPT_ROM_REGION, End) == 12);

// Region codes (low 8 bits of Region) are the public HMX_OPT_ROM_REGION_*.
// Pseudo region of the raw flash: the caller's offset and size stand.
inline constexpr uint32_t kRegionRawFlash = 0xFFFF;

// Region attribute bits.
inline constexpr uint32_t kRegionCodeMask = 0xFF;
inline constexpr uint32_t kRegionReadOnly = 0x10000;
inline constexpr uint32_t kRegionActivate = 0x20000;
inline constexpr uint32_t kRegionActivateAlt = 0x40000;

// ---- Fixed layouts --------------------------------------------------------

// The rows of the fixed table for an adapter (device ID and subsystem IDs of
// its PCI function). The list is never empty; its 0xFF row gives Size.
std::span<const INT_OPT_ROM_REGION> vxlayout_fixed_rows(uint16_t device_id, uint16_t subsys_vendor,
                                                            uint16_t subsys_device);
// The smallest caller buffer the table needs: 208, 96 or 48 bytes.
uint32_t vxlayout_fixed_min_size(uint16_t device_id, uint16_t subsys_vendor, uint16_t subsys_device);

// Fills `layout` (zeroed first) with the fixed table when `buffer_size`, the
// size the caller declared for it, is large enough: completion code 0, else
// 16 (buffer too small) and the layout untouched.
uint32_t vxlayout_fill_fixed(uint16_t device_id, uint16_t subsys_vendor, uint16_t subsys_device,
                                 INT_OPT_ROM_LAYOUT &layout, uint32_t buffer_size);

// Reads a layout reply of the driver (Size, NoOfRegions, then NoOfRegions x
// {Region, Size, Beg, End}, little-endian uint32) into `layout`. Entries
// beyond the reply's bytes or beyond 255 are not taken; the count is cut to
// the entries read. False when the reply is shorter than its 8-byte header.
bool vxlayout_parse_reply(std::span<const uint8_t> reply, INT_OPT_ROM_LAYOUT &layout);

// ---- Region map and write checks -----------------------------------------

// Number of entries before the terminating one (Size 0), at most 255.
std::size_t vxlayout_entry_count(const INT_OPT_ROM_LAYOUT &layout);

// Maps a region to (offset, size) like the transports do: the first entry
// whose code equals `region` gives Beg and Size; kRegionRawFlash keeps the
// caller's values; an unknown code gives size 0 (the terminating entry).
void vxlayout_map_region(const INT_OPT_ROM_LAYOUT &layout, uint32_t region, uint32_t &offset,
                        uint32_t &size);

// First of entries 0..254 whose low 8 bits equal `region`, or null. The
// terminating entry counts: region 0 finds it.
const INT_OPT_ROM_REGION *vxlayout_find_region(const INT_OPT_ROM_LAYOUT &layout, uint32_t region);

enum class OptRomWritePath { Preserving, Plain, Refused };
// 0x01-0x07 and 0xFF keep adapter data; 0x13, 0x29-0x2E, 0x40, 0x41 and
// 0x45-0x47 are written as they are; every other code is refused.
OptRomWritePath vxlayout_write_path(uint32_t region);

// Checks of a region write before any transfer, in the order the update
// call makes them: 0x20000064 region not in the layout, 0x20000066
// read-only, 0x20000084 buffer smaller than the region, 0x20000089 region 0.
// On 0 `*entry` (when given) points at the region's entry.
uint32_t vxlayout_check_region_write(const INT_OPT_ROM_LAYOUT &layout, uint32_t region, uint32_t buffer_size,
                                  const INT_OPT_ROM_REGION **entry);

// Activation after writing a region: non-zero only on an FCX180 for a
// region carrying 0x20000 or 0x40000: 0x2025C for 0x01, 0x2025D for 0x40,
// 0x41 and 0x45; 0 means nothing to activate.
uint32_t vxlayout_activation_code(uint16_t device_id, uint32_t region_with_attributes);

// ---- Copy-out to the caller's record -------------------------------------

// Count-first copy of the layout into the caller's record, whose region type
// has `Region` and `Size` members. `NoOfRegions` carries the capacity of
// `regions` in and the count out. Capacity below the count: only the count is
// stored and 0x20000072 returned; the caller asks again with room.
template <class PublicRegion>
uint32_t vxlayout_copy_out(const INT_OPT_ROM_LAYOUT &layout, uint32_t &Size, uint32_t &NoOfRegions,
                               PublicRegion *regions) {
    const uint32_t count = layout.NoOfRegions > kMaxOptRomRegions
                               ? static_cast<uint32_t>(kMaxOptRomRegions)
                               : layout.NoOfRegions;
    if (NoOfRegions < count || (count > 0 && regions == nullptr)) {
        NoOfRegions = count;
        return HMX_ERR_BUFFER_TOO_SMALL;
    }
    Size = layout.Size;
    NoOfRegions = count;
    for (uint32_t i = 0; i < count; ++i) {
        regions[i].Region = layout.Region[i].Region & kRegionCodeMask;
        regions[i].Size = layout.Region[i].Size;
    }
    return 0;
}

// ---- Sector alignment ----------------------------------------------------

// The end of the flash as the layout knows it: the 0xFF row's size, or the
// end of an area listed beyond it (the FCX160 table keeps small areas above
// its first MiB), rounded up to whole sectors of `sector_size` (the sector
// holding a listed byte lies wholly in the flash), capped at 4 GiB - 1.
uint32_t vxlayout_flash_end(const INT_OPT_ROM_LAYOUT &layout, uint32_t sector_size);

// Reads `out.size()` flash bytes at `offset`; returns a completion code.
using FlashReader = std::function<uint32_t(uint32_t offset, std::span<uint8_t> out)>;

struct SectorAligned {
    uint32_t status = 1;  // completion code, 0 = aligned
    uint32_t offset = 0;                 // aligned window
    uint32_t size = 0;
    // Merged contents of the window; empty when the request was aligned
    // already and the caller's data can be sent as it is.
    std::vector<uint8_t> buffer;
};

// Widens a write of `data` at `offset` to whole sectors of `sector_size`
// bytes within a flash of `flash_size` bytes: the window is read through
// `read` in one piece and the data merged in. Fails
// (status 1, or the reader's code) on a zero sector size, empty data, a
// write reaching past the flash or a failed read; never reads past the
// flash (a last partial sector is cut at its end).
SectorAligned vxlayout_sector_align(uint32_t offset, std::span<const uint8_t> data, uint32_t sector_size,
                                 uint32_t flash_size, const FlashReader &read);
// The same for a write about to go out, its outcome as a completion code:
// 0 aligned, 6 for bad arguments or a write past the flash end, 10 when out
// of memory, the failing read's own code when a surrounding read fails.
uint32_t vxlayout_align_write(uint32_t offset, std::span<const uint8_t> data, uint32_t sector_size,
                              uint32_t flash_size, const FlashReader &read, SectorAligned &out);

}  // namespace vxhmx

#endif  // VX_LAYOUT_H

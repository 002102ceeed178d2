// SPDX-License-Identifier: MIT
// Flash layouts, region map, write-path choice and sector alignment.
#include "vx_layout.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "vx_chipdata.h"
#include "vx_hmerr.h"
#include "vx_wire.h"

namespace vxhmx {
namespace {

using namespace chipid;

constexpr INT_OPT_ROM_REGION row(uint32_t code, uint32_t size, uint32_t beg) {
    return {code, size, beg, beg + size - 1};
}

// FCX160: boot code and firmware share the first MiB; the small areas,
// the per-function VPD and NVRAM blocks live above it.
constexpr std::array kLayoutFCX160{
    row(0xFF, 0x100000, 0),        row(0x07, 0x80000, 0),        row(0x01, 0x80000, 0x80000),
    row(0x08, 0x10000, 0x120000),  row(0x13, 0x20000, 0x100000), row(0x14, 0x200, 0x120000),
    row(0x15, 0x200, 0x120200),    row(0x16, 0x200, 0x120400),   row(0x17, 0x200, 0x120600),
    row(0x2B, 0x8000, 0x148000),   row(0x29, 0x4000, 0x170000),  row(0x2A, 0x4000, 0x174000),
};
constexpr std::array kLayoutFCX14x{
    row(0xFF, 0x100000, 0), row(0x07, 0x40000, 0),       row(0x29, 0x4000, 0x58000),
    row(0x2A, 0x4000, 0x5C000), row(0x01, 0x80000, 0x80000),
};
constexpr std::array kLayoutFCX127{row(0xFF, 0x100000, 0), row(0x06, 0x100000, 0)};
constexpr std::array kLayoutFCX126{row(0xFF, 0x20000, 0), row(0x04, 0x20000, 0)};
constexpr std::array kLayoutFCX123{row(0xFF, 0x100000, 0), row(0x05, 0x100000, 0)};
constexpr std::array kLayoutOther{row(0xFF, 0x20000, 0), row(0x02, 0x20000, 0)};
constexpr std::array kLayoutOem{row(0xFF, 0x20000, 0), row(0x03, 0x20000, 0)};

static_assert(kLayoutFCX160[1].End == 0x7FFFF && kLayoutFCX160[11].End == 0x177FFF);
static_assert(kLayoutFCX14x[3].End == 0x5FFFF);

}  // namespace

std::span<const INT_OPT_ROM_REGION> vxlayout_fixed_rows(uint16_t device_id, uint16_t subsys_vendor,
                                                            uint16_t subsys_device) {
    switch (device_id) {
    case FCX160:
        return kLayoutFCX160;
    case FCX140: case FCX141: case FCX144: case FCX145: case FCX150:
        return kLayoutFCX14x;
    case FCX127:
        return kLayoutFCX127;
    case FCX126:
        return kLayoutFCX126;
    case FCX123:
        return kLayoutFCX123;
    default:
        return is_listed_oem_model(subsys_vendor, subsys_device) ? std::span<const INT_OPT_ROM_REGION>(kLayoutOem)
                                                                  : std::span<const INT_OPT_ROM_REGION>(kLayoutOther);
    }
}

uint32_t vxlayout_fixed_min_size(uint16_t device_id, uint16_t subsys_vendor, uint16_t subsys_device) {
    const auto rows = vxlayout_fixed_rows(device_id, subsys_vendor, subsys_device);
    if (rows.data() == kLayoutFCX160.data()) return 208;
    if (rows.data() == kLayoutFCX14x.data()) return 96;
    return 48;
}

uint32_t vxlayout_fill_fixed(uint16_t device_id, uint16_t subsys_vendor, uint16_t subsys_device,
                                 INT_OPT_ROM_LAYOUT &layout, uint32_t buffer_size) {
    if (buffer_size < vxlayout_fixed_min_size(device_id, subsys_vendor, subsys_device))
        return EXT_STATUS_BUFFER_TOO_SMALL;
    const auto rows = vxlayout_fixed_rows(device_id, subsys_vendor, subsys_device);
    layout = INT_OPT_ROM_LAYOUT{};
    layout.NoOfRegions = static_cast<uint32_t>(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        layout.Region[i] = rows[i];
        if ((rows[i].Region & kRegionCodeMask) == HMX_OPT_ROM_REGION_ALL) layout.Size = rows[i].Size;
    }
    return EXT_STATUS_OK;
}

bool vxlayout_parse_reply(std::span<const uint8_t> reply, INT_OPT_ROM_LAYOUT &layout) {
    if (reply.size() < 8) return false;
    // Every word read below lies inside the reply: the entry count is cut to
    // the whole entries present.
    const ByteReader rd(reply);
    const auto le32 = [&rd](std::size_t off) { return rd.le32(off).value_or(0); };
    layout = INT_OPT_ROM_LAYOUT{};
    layout.Size = le32(0);
    const uint32_t claimed = le32(4);
    const std::size_t present = std::min<std::size_t>((reply.size() - 8) / sizeof(INT_OPT_ROM_REGION),
                                                      kMaxOptRomRegions);
    const std::size_t count = std::min<std::size_t>(claimed, present);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t off = 8 + i * sizeof(INT_OPT_ROM_REGION);
        layout.Region[i] = {le32(off), le32(off + 4), le32(off + 8), le32(off + 12)};
    }
    layout.NoOfRegions = static_cast<uint32_t>(count);
    return true;
}

std::size_t vxlayout_entry_count(const INT_OPT_ROM_LAYOUT &layout) {
    std::size_t n = 0;
    while (n < kMaxOptRomRegions && layout.Region[n].Size != 0) ++n;
    return n;
}

void vxlayout_map_region(const INT_OPT_ROM_LAYOUT &layout, uint32_t region, uint32_t &offset, uint32_t &size) {
    if (region == kRegionRawFlash) return;
    const std::size_t n = vxlayout_entry_count(layout);
    for (std::size_t i = 0; i < n; ++i) {
        if ((layout.Region[i].Region & kRegionCodeMask) == region) {
            offset = layout.Region[i].Beg;
            size = layout.Region[i].Size;
            return;
        }
    }
    // The terminating entry: all zero in a full table, absent when all 255
    // slots are used.
    offset = n < kMaxOptRomRegions ? layout.Region[n].Beg : 0;
    size = 0;
}

const INT_OPT_ROM_REGION *vxlayout_find_region(const INT_OPT_ROM_LAYOUT &layout, uint32_t region) {
    for (std::size_t i = 0; i < kMaxOptRomRegions; ++i)
        if ((layout.Region[i].Region & kRegionCodeMask) == region) return &layout.Region[i];
    return nullptr;
}

OptRomWritePath vxlayout_write_path(uint32_t region) {
    if ((region >= 0x01 && region <= 0x07) || region == 0xFF) return OptRomWritePath::Preserving;
    if (region == 0x13 || (region >= 0x29 && region <= 0x2E) || region == 0x40 || region == 0x41 ||
        (region >= 0x45 && region <= 0x47))
        return OptRomWritePath::Plain;
    return OptRomWritePath::Refused;
}

uint32_t vxlayout_check_region_write(const INT_OPT_ROM_LAYOUT &layout, uint32_t region, uint32_t buffer_size,
                                  const INT_OPT_ROM_REGION **entry) {
    const INT_OPT_ROM_REGION *found = vxlayout_find_region(layout, region);
    if (found == nullptr) return HMX_ERR_INVALID_PARAMETER;
    if ((found->Region & kRegionReadOnly) != 0) return HMX_ERR_NOT_SUPPORTED;
    if (buffer_size < found->Size) return HMX_ERR_BUFFER_SMALLER_THAN_REGION;
    if (region == 0) return HMX_ERR_REGION_ZERO;
    if (entry != nullptr) *entry = found;
    return HMX_STATUS_OK;
}

uint32_t vxlayout_activation_code(uint16_t device_id, uint32_t region_with_attributes) {
    if (device_id != FCX180) return 0;
    if ((region_with_attributes & (kRegionActivate | kRegionActivateAlt)) == 0) return 0;
    switch (region_with_attributes & kRegionCodeMask) {
    case 0x01:
        return 0x2025C;
    case 0x40: case 0x41: case 0x45:
        return 0x2025D;
    default:
        return 0;
    }
}

uint32_t vxlayout_flash_end(const INT_OPT_ROM_LAYOUT &layout, uint32_t sector_size) {
    uint64_t end = layout.Size;
    const std::size_t n = vxlayout_entry_count(layout);
    for (std::size_t i = 0; i < n; ++i)
        end = std::max(end, uint64_t{layout.Region[i].Beg} + layout.Region[i].Size);
    if (sector_size != 0) end = (end + sector_size - 1) / sector_size * sector_size;
    return static_cast<uint32_t>(std::min<uint64_t>(end, UINT32_MAX));
}

SectorAligned vxlayout_sector_align(uint32_t offset, std::span<const uint8_t> data, uint32_t sector_size,
                                 uint32_t flash_size, const FlashReader &read) {
    SectorAligned out;
    const uint64_t end = uint64_t{offset} + data.size();
    if (!read || sector_size == 0 || data.empty() || end > flash_size) return out;

    const uint64_t win_beg = offset - offset % sector_size;
    uint64_t win_end = (end + sector_size - 1) / sector_size * sector_size;
    if (win_end > flash_size) win_end = flash_size;  // a short last sector ends with the flash

    out.offset = static_cast<uint32_t>(win_beg);
    out.size = static_cast<uint32_t>(win_end - win_beg);
    if (win_beg == offset && win_end == end) {
        out.status = EXT_STATUS_OK;
        return out;
    }
    // One read of the whole window: a driver that moves the flash in windows
    // then sees the same window read and written.
    out.buffer.assign(out.size, 0);
    const uint32_t st = read(out.offset, out.buffer);
    if (st != EXT_STATUS_OK) return SectorAligned{st, 0, 0, {}};
    std::memcpy(out.buffer.data() + (offset - win_beg), data.data(), data.size());
    out.status = EXT_STATUS_OK;
    return out;
}

uint32_t vxlayout_align_write(uint32_t offset, std::span<const uint8_t> data, uint32_t sector_size,
                              uint32_t flash_size, const FlashReader &read, SectorAligned &out) {
    bool read_failed = false;
    const FlashReader counted = [&](uint32_t at, std::span<uint8_t> into) -> uint32_t {
        const uint32_t st = read ? read(at, into) : EXT_STATUS_ERR;
        if (st != EXT_STATUS_OK) read_failed = true;
        return st;
    };
    try {
        out = vxlayout_sector_align(offset, data, sector_size, flash_size, counted);
    } catch (const std::bad_alloc &) {
        return EXT_STATUS_COPY_ERR;
    }
    if (out.status == EXT_STATUS_OK) return EXT_STATUS_OK;
    return read_failed ? out.status : EXT_STATUS_INVALID_PARAM;
}

}  // namespace vxhmx

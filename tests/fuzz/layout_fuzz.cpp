// SPDX-License-Identifier: MIT
// Flash layout tables: the driver's layout reply (written back, it gives the
// same bytes), the look-ups on it, the fixed tables, and widening a write to
// whole sectors.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "vx_hmerr.h"
#include "vx_layout.h"

using namespace vxhmx;

namespace {

void put_le32(std::vector<uint8_t> &out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint8_t flash_byte(uint64_t at) { return static_cast<uint8_t>(at * 131 + 7); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const uint16_t device = in.ConsumeIntegral<uint16_t>();
    const uint16_t ssvid = in.ConsumeIntegral<uint16_t>();
    const uint16_t ssdid = in.ConsumeIntegral<uint16_t>();
    const uint32_t region = in.ConsumeIntegral<uint32_t>();
    const uint32_t sector = in.ConsumeIntegralInRange<uint32_t>(0, 0x10000);
    const uint32_t offset = in.ConsumeIntegralInRange<uint32_t>(0, 0x100000);
    const size_t length = in.ConsumeIntegralInRange<size_t>(0, 0x1000);
    const std::vector<uint8_t> write = in.ConsumeBytes<uint8_t>(length);
    const std::vector<uint8_t> reply = in.ConsumeRemainingBytes<uint8_t>();

    static INT_OPT_ROM_LAYOUT layout;
    if (vxlayout_parse_reply(reply, layout)) {
        if (layout.NoOfRegions > kMaxOptRomRegions) std::abort();
        std::vector<uint8_t> again;
        put_le32(again, layout.Size);
        put_le32(again, layout.NoOfRegions);
        for (uint32_t i = 0; i < layout.NoOfRegions; ++i) {
            const INT_OPT_ROM_REGION &r = layout.Region[i];
            for (uint32_t w : {r.Region, r.Size, r.Beg, r.End}) put_le32(again, w);
        }
        // Every entry the reply counts comes back as it was.
        if (std::memcmp(again.data(), reply.data(), 4) != 0 ||
            std::memcmp(again.data() + 8, reply.data() + 8, again.size() - 8) != 0)
            std::abort();

        (void)vxlayout_entry_count(layout);
        uint32_t at = 0, span = 0;
        vxlayout_map_region(layout, region, at, span);
        (void)vxlayout_find_region(layout, region);
        const INT_OPT_ROM_REGION *entry = nullptr;
        (void)vxlayout_check_region_write(layout, region, static_cast<uint32_t>(write.size()), &entry);
        (void)vxlayout_activation_code(device, region);
        const uint32_t end = vxlayout_flash_end(layout, sector);
        if (sector != 0 && end != UINT32_MAX && end % sector != 0) std::abort();
    }

    static INT_OPT_ROM_LAYOUT fixed;
    fixed = INT_OPT_ROM_LAYOUT{};
    (void)vxlayout_fill_fixed(device, ssvid, ssdid, fixed, static_cast<uint32_t>(reply.size()));
    (void)vxlayout_fixed_min_size(device, ssvid, ssdid);

    // The widened window covers the write, whole sectors (or up to the end of
    // the flash), the write's bytes inside and the flash's around them.
    const uint32_t flash = offset + static_cast<uint32_t>(write.size()) + (region & 0xFFFF);
    const SectorAligned a = vxlayout_sector_align(
        offset, write, sector, flash, [](uint32_t from, std::span<uint8_t> out) {
            for (size_t i = 0; i < out.size(); ++i) out[i] = flash_byte(uint64_t{from} + i);
            return uint32_t{EXT_STATUS_OK};
        });
    if (a.status == EXT_STATUS_OK && !a.buffer.empty()) {
        if (a.offset > offset || uint64_t{a.offset} + a.size < uint64_t{offset} + write.size() ||
            a.buffer.size() != a.size || a.offset % sector != 0)
            std::abort();
        for (uint32_t i = 0; i < a.size; ++i) {
            const uint64_t at = uint64_t{a.offset} + i;
            const bool inside = at >= offset && at < uint64_t{offset} + write.size();
            if (a.buffer[i] != (inside ? write[at - offset] : flash_byte(at))) std::abort();
        }
    }
    return 0;
}

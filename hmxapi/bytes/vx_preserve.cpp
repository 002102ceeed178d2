// SPDX-License-Identifier: MIT
// Adapter data preservation for boot code writes.
#include "vx_preserve.h"

#include "vx_chipdata.h"
#include "vx_hmnvr.h"
#include "vx_layout.h"
#include "vx_wire.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vxhmx {
namespace {

constexpr std::string_view kMarker = "MEFCX ";
constexpr std::size_t kCurrentMarkerWindow = 0x1FFFA;
constexpr std::size_t kMaxNewImages = 10;
constexpr std::size_t kPcirFieldsEnd = 0x18;  // through the indicator byte and its reserved word
constexpr std::size_t kSsvidTag = 28;
constexpr std::size_t kSsvidValue = 32;
constexpr std::size_t kMarkerToBlock = 2;

bool bytes_equal(std::span<const uint8_t> b, std::size_t off, std::string_view text) {
    if (off > b.size() || b.size() - off < text.size()) return false;
    return std::memcmp(b.data() + off, text.data(), text.size()) == 0;
}

// The subsystem vendor label: "SSVID" written so that it ends at byte 31
// (28..31 read "SVID"); images that carry its first four letters at 28..31
// are recognised too.
bool has_ssvid_label(std::span<const uint8_t> b, std::size_t image_off) {
    return bytes_equal(b, image_off + kSsvidTag, "SVID") || bytes_equal(b, image_off + kSsvidTag, "SSVI");
}

// [begin, begin + len) ends at or before `limit` (no overflow).
bool range_inside(std::size_t begin, std::size_t len, std::size_t limit) {
    return begin <= limit && len <= limit - begin;
}

}  // namespace

std::optional<RomImage> vxrom_image_at(std::span<const uint8_t> buf, std::size_t offset) {
    if (!range_inside(offset, 26, buf.size())) return std::nullopt;
    if (buf[offset] != 0x55 || buf[offset + 1] != 0xAA) return std::nullopt;
    const ByteReader rd(buf);
    const std::size_t pcir = offset + *rd.le16(offset + 24);
    if (!range_inside(pcir, kPcirFieldsEnd, buf.size()) || !bytes_equal(buf, pcir, "PCIR"))
        return std::nullopt;
    RomImage img{};
    img.offset = offset;
    img.pcir = pcir;
    img.device_id = *rd.le16(pcir + 0x06);
    img.length = std::size_t{*rd.le16(pcir + 0x10)} * 512u;
    img.revision = *rd.le16(pcir + 0x12);
    img.code_type = buf[pcir + 0x14];
    img.indicator = buf[pcir + 0x15];
    return img;
}

std::vector<RomImage> vxrom_walk_chain(std::span<const uint8_t> buf, std::size_t max_images) {
    std::vector<RomImage> chain;
    std::size_t off = 0;
    while (chain.size() < max_images) {
        const auto img = vxrom_image_at(buf, off);
        if (!img) break;
        chain.push_back(*img);
        if (img->last() || img->length == 0) break;
        off += img->length;
    }
    return chain;
}

bool vxrom_reseal_checksum(std::span<uint8_t> buf, std::size_t offset) {
    if (!range_inside(offset, 3, buf.size())) return false;
    const std::size_t len = std::size_t{buf[offset + 2]} * 512u;
    if (len == 0 || !range_inside(offset, len, buf.size())) return false;
    uint8_t sum = 0;
    for (std::size_t i = 0; i + 2 < len; ++i) sum = static_cast<uint8_t>(sum + buf[offset + i]);
    buf[offset + len - 1] = static_cast<uint8_t>(0x100 - sum);
    return true;
}

std::optional<std::size_t> vxrom_find_marker(std::span<const uint8_t> buf, std::size_t begin, std::size_t end) {
    if (buf.size() < kMarker.size()) return std::nullopt;
    end = std::min(end, buf.size() - kMarker.size() + 1);
    for (std::size_t p = begin; p < end; ++p)
        if (bytes_equal(buf, p, kMarker)) return p;
    return std::nullopt;
}

PreserveReport vxpreserve_adapter_data(std::span<const uint8_t> current, std::span<uint8_t> image,
                                           std::size_t block_size) {
    PreserveReport rep;
    const auto first = vxrom_image_at(current, 0);
    if (!first || first->code_type != 0) return rep;
    rep.current_is_x86 = true;

    const auto cur_marker = vxrom_find_marker(current, 0, kCurrentMarkerWindow);
    rep.current_marker = cur_marker.has_value();
    const bool cur_ssvid = has_ssvid_label(current, 0) && range_inside(kSsvidValue, 2, current.size());
    const bool cur_block_ok =
        cur_marker && range_inside(*cur_marker + kMarkerToBlock, block_size, current.size());

    std::size_t off = 0;
    for (std::size_t n = 0; n < kMaxNewImages; ++n) {
        const auto img = vxrom_image_at(image, off);
        if (!img) break;
        ++rep.images_walked;
        if (img->code_type == 0) {
            // The image's own extent bounds what is searched and written, so
            // nothing spills into the next image of the chain.
            const std::size_t extent_end =
                img->length != 0 && range_inside(off, img->length, image.size()) ? off + img->length : image.size();
            bool changed = false;

            if (cur_ssvid && has_ssvid_label(image, off) &&
                range_inside(off + kSsvidValue, 2, extent_end) &&
                std::memcmp(image.data() + off + kSsvidValue, current.data() + kSsvidValue, 2) != 0) {
                std::memcpy(image.data() + off + kSsvidValue, current.data() + kSsvidValue, 2);
                ++rep.ssvid_copied;
                changed = true;
            }

            const auto new_marker = vxrom_find_marker(image, off, std::min(extent_end, off + kCurrentMarkerWindow));
            if (cur_block_ok && new_marker && range_inside(*new_marker + kMarkerToBlock, block_size, extent_end)) {
                std::memcpy(image.data() + *new_marker + kMarkerToBlock, current.data() + *cur_marker + kMarkerToBlock,
                            block_size);
                ++rep.blocks_copied;
                changed = true;
            }

            if (changed && vxrom_reseal_checksum(image, off)) ++rep.resealed;
        }
        if (img->last() || img->length == 0) break;
        off += img->length;
    }
    return rep;
}

bool vxpreserve_needs_boot_copy(uint16_t device_id, uint32_t region) {
    return has_adapter_layout(device_id) &&
           (region == HMX_OPT_ROM_REGION_ALL || region == HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI);
}

std::vector<uint8_t> vxpreserve_double_boot_image(std::span<const uint8_t> image) {
    std::vector<uint8_t> out(std::max(image.size(), kDoubledBootSize), 0);
    std::copy(image.begin(), image.end(), out.begin());
    const std::size_t copy_len = std::min(image.size(), kBootCopyOffset);
    std::copy_n(image.begin(), copy_len, out.begin() + kBootCopyOffset);
    return out;
}

}  // namespace vxhmx

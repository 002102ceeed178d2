// SPDX-License-Identifier: MIT
// VPD keyword lookup, version update and VPD image merge.
#include "vx_vpdimage.h"

#include "vx_preserve.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace vxhmx {
namespace {

constexpr uint8_t kTagIdString = 0x82;
constexpr uint8_t kTagReadOnly = 0x90;
constexpr uint8_t kTagReadWrite = 0x91;
constexpr uint8_t kTagEnd = 0x78;
constexpr uint16_t kVpdImageDeviceId = 1;
constexpr std::size_t kMaxChainImages = 32;

bool range_inside(std::size_t begin, std::size_t len, std::size_t limit) {
    return begin <= limit && len <= limit - begin;
}

struct VpdField {
    char keyword[2];
    std::size_t data;  // offset of the data in the block
    uint8_t len;
    bool read_only;
};

struct VpdParse {
    std::vector<VpdField> fields;
    bool header = false;     // identifier string present and inside the block
    bool complete = false;   // reached the end tag with everything inside
    std::optional<std::size_t> rv;  // offset of the "RV" field's first data byte
};

// Walks the block; stops at the first thing that does not fit, keeping what
// was read so far.
VpdParse parse_vpd(std::span<const uint8_t> vpd) {
    VpdParse p;
    if (!range_inside(0, 3, vpd.size()) || vpd[0] != kTagIdString) return p;
    std::size_t pos = 3 + (std::size_t{vpd[1]} | std::size_t{vpd[2]} << 8);
    if (pos > vpd.size()) return p;
    p.header = true;
    while (pos < vpd.size()) {
        const uint8_t tag = vpd[pos];
        if (tag == kTagEnd) {
            p.complete = true;
            return p;
        }
        if ((tag != kTagReadOnly && tag != kTagReadWrite) || !range_inside(pos, 3, vpd.size())) return p;
        const std::size_t len = std::size_t{vpd[pos + 1]} | std::size_t{vpd[pos + 2]} << 8;
        const std::size_t begin = pos + 3;
        if (!range_inside(begin, len, vpd.size())) return p;
        const std::size_t end = begin + len;
        std::size_t q = begin;
        bool seen_rv = false;
        while (q < end && !seen_rv) {
            if (!range_inside(q, 3, end)) return p;
            const uint8_t flen = vpd[q + 2];
            if (!range_inside(q + 3, flen, end)) return p;
            VpdField f{{static_cast<char>(vpd[q]), static_cast<char>(vpd[q + 1])}, q + 3, flen,
                       tag == kTagReadOnly};
            p.fields.push_back(f);
            // "RV" closes the read-only resource: what follows is reserved.
            if (f.read_only && f.keyword[0] == 'R' && f.keyword[1] == 'V') {
                seen_rv = true;
                if (flen >= 1 && !p.rv) p.rv = f.data;
            }
            q += 3 + flen;
        }
        pos = end;
    }
    return p;
}

const VpdField *find_field(const VpdParse &p, std::string_view keyword, bool read_only) {
    if (keyword.size() != 2) return nullptr;
    for (const auto &f : p.fields)
        if (f.read_only == read_only && f.keyword[0] == keyword[0] && f.keyword[1] == keyword[1]) return &f;
    return nullptr;
}

uint8_t sum_through(std::span<const uint8_t> b, std::size_t last) {
    uint8_t s = 0;
    for (std::size_t i = 0; i <= last; ++i) s = static_cast<uint8_t>(s + b[i]);
    return s;
}

}  // namespace

std::optional<std::span<const uint8_t>> vxvpd_find_keyword(std::span<const uint8_t> vpd,
                                                           std::string_view keyword) {
    const VpdParse p = parse_vpd(vpd);
    if (keyword.size() != 2) return std::nullopt;
    for (const auto &f : p.fields)
        if (f.keyword[0] == keyword[0] && f.keyword[1] == keyword[1]) return vpd.subspan(f.data, f.len);
    return std::nullopt;
}

bool vxvpd_serial_number(std::span<const uint8_t> vpd, char *out, std::size_t cap) {
    const auto sn = vxvpd_find_keyword(vpd, "SN");
    if (!sn || out == nullptr || cap == 0) return false;
    std::size_t n = sn->size();
    while (n > 0 && ((*sn)[n - 1] == ' ' || (*sn)[n - 1] == 0)) --n;
    n = std::min(n, cap - 1);
    std::memcpy(out, sn->data(), n);
    out[n] = '\0';
    return true;
}

std::size_t vxvpd_boot_versions(std::span<const uint8_t> image, std::span<VpdVersionText> out) {
    struct Slot {
        uint8_t code_type;
        char keyword[2];
    };
    constexpr Slot kSlots[] = {{0, {'V', '3'}}, {1, {'V', '4'}}, {3, {'V', '5'}}};
    const auto chain = vxrom_walk_chain(image, kMaxChainImages);
    std::size_t n = 0;
    for (const Slot &slot : kSlots) {
        if (n >= out.size()) break;
        const auto it = std::find_if(chain.begin(), chain.end(), [&](const RomImage &r) {
            return r.code_type == slot.code_type && r.device_id != kVpdImageDeviceId;
        });
        if (it == chain.end()) continue;
        VpdVersionText &v = out[n++];
        v = VpdVersionText{};
        std::memcpy(v.keyword, slot.keyword, 2);
        const int w = std::snprintf(v.text, sizeof v.text, "%02d.%02d", it->revision >> 8, it->revision & 0xFF);
        v.len = static_cast<uint8_t>(std::clamp(w, 0, static_cast<int>(sizeof v.text) - 1));
    }
    return n;
}

VpdUpdateStatus vxvpd_update_versions(std::span<uint8_t> vpd, std::span<const VpdVersionText> versions) {
    const VpdParse p = parse_vpd(vpd);
    if (!p.header || !p.complete) return VpdUpdateStatus::Malformed;
    if (!p.rv) return VpdUpdateStatus::NoChecksum;
    if (sum_through(vpd, *p.rv) != 0) return VpdUpdateStatus::BadChecksum;

    bool changed = false;
    bool read_only_changed = false;
    for (const VpdVersionText &v : versions) {
        const std::string_view kw(v.keyword, 2);
        const std::size_t len = std::min<std::size_t>(v.len, sizeof v.text);
        const VpdField *f = find_field(p, kw, true);
        if (f == nullptr) f = find_field(p, kw, false);
        if (f == nullptr || len == 0 || f->len < len) continue;
        std::vector<uint8_t> want(f->len, ' ');
        std::memcpy(want.data(), v.text, len);
        if (std::equal(want.begin(), want.end(), vpd.begin() + static_cast<std::ptrdiff_t>(f->data))) continue;
        std::copy(want.begin(), want.end(), vpd.begin() + static_cast<std::ptrdiff_t>(f->data));
        changed = true;
        read_only_changed = read_only_changed || f->read_only;
    }
    if (read_only_changed) {
        vpd[*p.rv] = 0;
        vpd[*p.rv] = static_cast<uint8_t>(0x100 - sum_through(vpd, *p.rv));
    }
    return changed ? VpdUpdateStatus::Updated : VpdUpdateStatus::Unchanged;
}

VpdUpdateStatus vxvpd_update_versions_from_image(std::span<uint8_t> vpd, std::span<const uint8_t> new_image) {
    VpdVersionText versions[3];
    const std::size_t n = vxvpd_boot_versions(new_image, versions);
    return vxvpd_update_versions(vpd, std::span<const VpdVersionText>(versions, n));
}

VpdMergeStatus vxvpd_merge_vpd_image(std::span<const uint8_t> current, std::span<uint8_t> image) {
    const auto cur_chain = vxrom_walk_chain(current, kMaxChainImages);
    const auto cur_vpd = std::find_if(cur_chain.begin(), cur_chain.end(),
                                      [](const RomImage &r) { return r.device_id == kVpdImageDeviceId; });
    if (cur_vpd == cur_chain.end()) return VpdMergeStatus::NothingToMerge;
    const std::size_t vpd_len = cur_vpd->length;
    if (vpd_len == 0 || !range_inside(cur_vpd->offset, vpd_len, current.size()))
        return VpdMergeStatus::CurrentUnreadable;
    const auto vpd_bytes = current.subspan(cur_vpd->offset, vpd_len);
    // The last-image bit is set per place; it must lie inside the copied bytes.
    const std::size_t indicator_at = cur_vpd->pcir - cur_vpd->offset + 0x15;
    if (indicator_at >= vpd_len) return VpdMergeStatus::CurrentUnreadable;

    const auto new_chain = vxrom_walk_chain(image, kMaxChainImages);
    if (new_chain.empty()) return VpdMergeStatus::NewImageInvalid;

    // Puts the VPD image at `dest` with the given last-image bit.
    auto place = [&](std::size_t dest, bool last) {
        std::copy(vpd_bytes.begin(), vpd_bytes.end(), image.begin() + static_cast<std::ptrdiff_t>(dest));
        uint8_t &ind = image[dest + indicator_at];
        const uint8_t want = static_cast<uint8_t>(last ? (ind | 0x80) : (ind & 0x7F));
        if (want != ind) {
            ind = want;
            (void)vxrom_reseal_checksum(image, dest);
        }
    };

    const auto new_vpd = std::find_if(new_chain.begin(), new_chain.end(),
                                      [](const RomImage &r) { return r.device_id == kVpdImageDeviceId; });
    if (new_vpd != new_chain.end()) {
        if (new_vpd->length != vpd_len || !range_inside(new_vpd->offset, vpd_len, image.size()))
            return VpdMergeStatus::SizeMismatch;
        place(new_vpd->offset, new_vpd->last());
        return VpdMergeStatus::Merged;
    }

    // Append after the chain's last image, into blank room only.
    const RomImage &last = new_chain.back();
    if (!last.last() || last.length == 0) return VpdMergeStatus::NewImageInvalid;
    const std::size_t dest = last.offset + last.length;
    if (!range_inside(dest, vpd_len, image.size())) return VpdMergeStatus::NoRoom;
    const auto room = image.subspan(dest, vpd_len);
    const bool blank = std::all_of(room.begin(), room.end(), [](uint8_t b) { return b == 0xFF; }) ||
                       std::all_of(room.begin(), room.end(), [](uint8_t b) { return b == 0x00; });
    if (!blank) return VpdMergeStatus::NoRoom;
    // The former last image must be sealable after losing its last-image bit.
    const std::size_t seal_len = last.offset + 2 < image.size() ? std::size_t{image[last.offset + 2]} * 512u : 0;
    if (seal_len == 0 || !range_inside(last.offset, seal_len, image.size()) || last.offset + seal_len > dest)
        return VpdMergeStatus::NewImageInvalid;

    image[last.pcir + 0x15] = static_cast<uint8_t>(image[last.pcir + 0x15] & 0x7F);
    (void)vxrom_reseal_checksum(image, last.offset);
    place(dest, true);
    return VpdMergeStatus::Merged;
}

}  // namespace vxhmx

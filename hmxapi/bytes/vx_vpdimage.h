// SPDX-License-Identifier: MIT
// The adapter's vital product data across a flash update.
//
// VPD block (FCX14x-class chips, 512 bytes): an identifier string (tag 0x82,
// 16-bit little-endian length), a read-only resource (0x90) and usually a
// read-write resource (0x91), each a list of keyword fields (two characters,
// one length byte, data), and the end tag 0x78. The read-only resource holds
// the serial number ("SN") and ends with the checksum field "RV", whose first
// data byte makes the bytes from the start of the block through it sum to 0
// modulo 256.
//
// Version update (after boot code was written to an FCX14x-class chip):
//   the versions of the new chain's boot images go into vendor fields: "V3"
//   the x86 BIOS, "V4" the FCode, "V5" the EFI driver, each as the image's
//   code revision "MM.mm" (two decimal digits each, major from the high byte).
//   A version is written into the first field with its keyword, read-only
//   resource first, then read-write: left-aligned, the rest of the field
//   filled with blanks; the field's length never changes. A field too short
//   for the text, and a keyword the block does not carry, are left alone.
//   When a read-only field changed, the "RV" byte is computed again; nothing
//   else is touched, so the identifier, every other field (the serial number
//   among them) and the rest of "RV" stay as they were.
//   The block must parse completely (header, resources and fields inside the
//   block, an "RV" field in the read-only resource, the end tag) and its
//   checksum must hold before anything is changed; otherwise the call refuses
//   with a status and leaves the block untouched, so a damaged block is never
//   made to look sound.
//
// VPD image merge (FCX120-FCX123): there the VPD travels in the flash as an
// image of the boot code chain whose PCI data structure carries device ID 1.
//   The current contents' chain (at most 32 images) is searched for it. When
//   the new chain has a VPD image of the same length, the current one replaces
//   it; when the new chain has none, the current one is appended after the
//   new chain's last image, provided that area lies inside the new buffer and
//   is blank (all 0x00 or all 0xFF), and the former last image hands on its
//   last-image bit (and is sealed again). The copied image keeps the
//   last-image bit of the place it takes and is sealed again if that bit
//   changed. Every check is made before the first byte is written: a refusal
//   leaves the new image untouched, and the caller must then not write it, or
//   the adapter's VPD would be lost.
#ifndef VX_VPDIMAGE_H
#define VX_VPDIMAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace vxhmx {

inline constexpr std::size_t kVpdBlockSize = 512;

// ---- Keyword lookup -------------------------------------------------------

// Data of the first field named `keyword` (two characters) in the read-only
// or read-write resource, or nullopt. Walks the block as far as it is sound:
// header first, then resources until the end tag; a field or resource that
// runs past its end stops the walk.
std::optional<std::span<const uint8_t>> vxvpd_find_keyword(std::span<const uint8_t> vpd,
                                                           std::string_view keyword);

// Copies the "SN" text into `out` (capacity `cap`, always terminated when
// cap > 0), without trailing blanks or zero bytes. False without an "SN" field
// or with cap 0; `out` is then untouched.
bool vxvpd_serial_number(std::span<const uint8_t> vpd, char *out, std::size_t cap);

// ---- Version update -------------------------------------------------------

struct VpdVersionText {
    char keyword[2];
    uint8_t len;
    char text[14];
};

// Versions of the boot images of a new chain ("V3", "V4", "V5"), first
// image of each code type; returns how many were stored into `out`.
std::size_t vxvpd_boot_versions(std::span<const uint8_t> image, std::span<VpdVersionText> out);

enum class VpdUpdateStatus {
    Updated,      // fields changed (and "RV" sealed again when needed)
    Unchanged,    // nothing to change: no field with room, or the same text
    Malformed,    // the block does not parse completely
    NoChecksum,   // no "RV" field in the read-only resource
    BadChecksum,  // the block's checksum does not hold now
};

inline bool vxvpd_update_ok(VpdUpdateStatus s) {
    return s == VpdUpdateStatus::Updated || s == VpdUpdateStatus::Unchanged;
}

VpdUpdateStatus vxvpd_update_versions(std::span<uint8_t> vpd, std::span<const VpdVersionText> versions);

// Both steps at once: the versions of `new_image` into `vpd`.
VpdUpdateStatus vxvpd_update_versions_from_image(std::span<uint8_t> vpd, std::span<const uint8_t> new_image);

// ---- VPD image merge ------------------------------------------------------

enum class VpdMergeStatus {
    Merged,              // the current VPD image stands in the new image
    NothingToMerge,      // the current contents carry no VPD image
    CurrentUnreadable,   // the current VPD image has no length or runs past its buffer
    NewImageInvalid,     // the new buffer has no sound chain to merge into
    SizeMismatch,        // the new chain's VPD image has another length
    NoRoom,              // no blank room after the new chain
};

// True when the write may go on (merged, or no VPD image to keep).
inline bool vxvpd_merge_ok(VpdMergeStatus s) {
    return s == VpdMergeStatus::Merged || s == VpdMergeStatus::NothingToMerge;
}

VpdMergeStatus vxvpd_merge_vpd_image(std::span<const uint8_t> current, std::span<uint8_t> image);

}  // namespace vxhmx

#endif  // VX_VPDIMAGE_H

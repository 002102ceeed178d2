// SPDX-License-Identifier: MIT
// Keeping the adapter's own data when boot code is rewritten: the parameter
// block and the subsystem vendor bytes of the x86 image are carried from the
// current flash contents into the new image, whose checksum is then sealed
// again; on FCX160/FCX180 the boot code is stored twice. Pure functions over
// the two buffers; every access is checked against both buffer ends.
#ifndef VX_PRESERVE_H
#define VX_PRESERVE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vxhmx {

// ---- PCI expansion ROM chain --------------------------------------------

// One image of a chain, as far as its header and PCI data structure lie
// inside the buffer.
struct RomImage {
    std::size_t offset;      // image start in the buffer
    std::size_t pcir;        // PCI data structure, absolute offset
    uint16_t device_id;      // 1 = VPD data
    uint8_t code_type;       // 0 x86, 1 FCode, 3 EFI
    uint8_t indicator;       // bit 0x80: last image of the chain
    std::size_t length;      // PCI data structure length field x 512 (the step to the next image)
    uint16_t revision;       // code revision, major in the high byte
    bool last() const { return (indicator & 0x80) != 0; }
};

// The image at `offset`: signature 0x55 0xAA, the pointer at byte 24, and
// "PCIR" with its fields inside the buffer. nullopt otherwise.
std::optional<RomImage> vxrom_image_at(std::span<const uint8_t> buf, std::size_t offset);

// Walks the chain from offset 0: at most `max_images`, stopping after the
// last image, at a missing signature or "PCIR", or at a zero length.
std::vector<RomImage> vxrom_walk_chain(std::span<const uint8_t> buf, std::size_t max_images);

// Seals the image at `offset` again: with L = byte 2 x 512, the bytes 0 to
// L-3 are summed (byte L-2 is left out on purpose: the ROM tooling writes it
// after the seal) and the two's complement of the 8-bit sum stored at L-1.
// False, and nothing written, when L is 0 or the image runs past the buffer.
bool vxrom_reseal_checksum(std::span<uint8_t> buf, std::size_t offset);

// First "MEFCX " starting at or after `begin` and before `end` (the whole
// six bytes inside the buffer), or nullopt.
std::optional<std::size_t> vxrom_find_marker(std::span<const uint8_t> buf, std::size_t begin, std::size_t end);

// ---- Preserving the adapter's data ----------------------------------------

// The parameter block kept across a boot code write is the chip's NVRAM
// block (vxhmnvr_block_size).

struct PreserveReport {
    bool current_is_x86 = false;        // current flash starts with an x86 image
    bool current_marker = false;        // "MEFCX " found in its first 0x1FFFA bytes
    unsigned images_walked = 0;         // images of the new chain looked at
    unsigned ssvid_copied = 0;          // images whose bytes 32/33 were taken over
    unsigned blocks_copied = 0;         // images that received the parameter block
    unsigned resealed = 0;              // images whose checksum was sealed again
};

// Carries the adapter data from `current` (the region's present contents)
// into `image` (the new image, changed in place). Only x86 images of the new
// chain (at most 10) are touched: bytes 32/33 when both sides carry the
// "SSVID" label at 28..31 (as "SVID", the label ending at byte 31, or as its
// first four letters), and the parameter block of `block_size` bytes that
// starts 2 bytes after the "MEFCX " marker when both sides have one. A block
// that would run past either buffer, or past the new image, is skipped; an
// image that cannot be sealed again is left as it was.
PreserveReport vxpreserve_adapter_data(std::span<const uint8_t> current, std::span<uint8_t> image,
                                           std::size_t block_size);

// ---- Double boot code on FCX160/FCX180 -----------------------------------

inline constexpr std::size_t kDoubledBootSize = 0x80000;
inline constexpr std::size_t kBootCopyOffset = 0x40000;

// True for FCX160 and FCX180 writing region 0xFF or 0x07.
bool vxpreserve_needs_boot_copy(uint16_t device_id, uint32_t region);

// The buffer to write: the image, zero-padded to 0x80000 bytes when shorter,
// with the image's first 0x40000 bytes (or all of it when shorter) copied
// again to offset 0x40000.
std::vector<uint8_t> vxpreserve_double_boot_image(std::span<const uint8_t> image);

}  // namespace vxhmx

#endif  // VX_PRESERVE_H

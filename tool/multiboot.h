// SPDX-License-Identifier: MIT
// Multiboot images: the checks and patches that bind a common boot image
// (x86 BIOS, FCode, EFI) to one adapter before it is written. Every routine
// works on a caller's buffer and never reads or writes outside it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

enum BootImageStatus : int {
    kBootOk = 0,
    kBootWrongSize = 4,
    kBootUnknownHardware = 9,
    kBootNotForAdapter = 10,
    kBootIdMismatch = 11,
    kBootBadChecksum = 12,
    kBootNoHeader = 16,
    kBootNoSignature = 21,
    kBootNoPcir = 22,
    kBootFirmwareTooLarge = 30,
    kBootCodeWrongSize = 31,
    kBootRegionWrongSize = 32,
};

constexpr int32_t kMultibootImageSize = 0x100000;

// Checks and patches a whole multiboot image for the adapter whose row in the
// supported-adapter list has these subsystem IDs. Resets the pending
// request's region to the whole option ROM. 0 when every common image
// checked out; the codes of BootImageStatus otherwise.
int validateUpdateMultibootOptionROM(uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                                     const char *model, int busFlag);
// The older entry for the same job: keeps the request's region and checks
// the buffer size against it. No flow uses it.
int validateUpdateMultibootOptionROM_1(uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                                       const char *model, int busFlag);
// The standard BIOS flow: walks the chain in `file` while patching `buffer`,
// always at offset 0 of the buffer.
int validateUpdateOptionROM(FILE *file, uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                            const char *model, int busFlag);

// The same three with the adapter's chip-type text already looked up (the
// row's chip field, "FCX141"); `region` is the pending request's region.
int ValidateMultibootForChip(const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                             const char *model, int busFlag, uint32_t *region);
int ValidateMultibootForChip_1(const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                               const char *model, int busFlag, uint32_t region);
int ValidateStandardForChip(FILE *file, const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer,
                            int32_t size, const char *model, int busFlag, uint32_t region);

// BIOS image at offset `o`: patch for the adapter, and check.
int UpdateImage(uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, const char *model, const char *chipType,
                uint64_t o);
int Validate(std::span<uint8_t> buffer, const char *hardwareType, uint64_t o);
// EFI and FCode images at offset `o`.
int UpdateImageEFI(uint16_t ssdid, std::span<uint8_t> buffer, const char *chipType, uint64_t o);
int ValidateEFI(std::span<const uint8_t> buffer, const char *hardwareType, uint64_t o);
int updateImageFCode(uint16_t ssdid, std::span<uint8_t> buffer, const char *chipType, uint64_t o);
// busFlag 0: PCI form; otherwise the SBus form, which looks at fixed offsets
// of the whole buffer.
int validateFCode(std::span<const uint8_t> buffer, const char *hardwareType, int busFlag, uint64_t o);
bool isCommonEFIImage(std::span<const uint8_t> buffer, const char *hardwareType);
bool isCommonFCodeImage(std::span<const uint8_t> buffer, const char *hardwareType);
// A BIOS image with a correct checksum in a buffer of exactly 128 KiB.
bool isBIOSImage(std::span<uint8_t> buffer, int32_t size, uint64_t o);

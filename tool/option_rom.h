// SPDX-License-Identifier: MIT
// Option ROM images: a chain of PCI expansion ROM images (x86 BIOS, FCode,
// EFI) in one buffer or file. Every read is bounded by the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>

constexpr size_t kImageHeaderSize = 32;
constexpr size_t kPciDataSize = 32;
constexpr uint16_t kVarnixPciVendorId = 0x1DE5;

// Offsets inside the image header and the PCI data structure.
namespace rom {
constexpr size_t kSignature = 0x00;      // 0x55 0xAA
constexpr size_t kSizeBlocks = 0x02;     // image size in 512-byte units (signed)
constexpr size_t kDataOffset = 0x18;     // offset of the PCI data structure
constexpr size_t kCommonMarker = 0x40;   // "MODL" in a common BIOS image
constexpr size_t kPcirSignature = 0x00;  // "PCIR"
constexpr size_t kVendorId = 0x04;
constexpr size_t kDeviceId = 0x06;
constexpr size_t kDataLength = 0x0A;
constexpr size_t kImageLength = 0x10;    // in 512-byte units
constexpr size_t kRevision = 0x12;
constexpr size_t kCodeType = 0x14;
constexpr size_t kIndicator = 0x15;
}  // namespace rom

enum CodeType : uint8_t { kCodeX86 = 0, kCodeFcode = 1, kCodePaRisc = 2, kCodeEfi = 3 };

using ImageHeader = uint8_t[kImageHeaderSize];
using PciData = uint8_t[kPciDataSize];

// Accessors on a 32-byte PCI data structure.
bool IsBiosImage(const uint8_t *data);
bool IsFcodeImage(const uint8_t *data);
bool IsEfiImage(const uint8_t *data);
bool IsLastImage(const uint8_t *data);
bool IsVendorImage(const uint8_t *data);
bool IsDriverImage(const uint8_t *data);
uint16_t GetDataLength(const uint8_t *data);
uint32_t GetImageLength(const uint8_t *data);
// On the 32-byte image header.
uint16_t GetDataOffset(const uint8_t *header);

bool CompareSignature(const uint8_t *bytes, const char *text);
const char *CodeTypeLabel(unsigned codeType);
const char *DeviceIdLabel(unsigned deviceId);

// Reads the header and the data structure of the image at `offset`; 1 on
// success, 0 on any failure (traced).
int GetFileImageHeader(FILE *stream, uint8_t *header, uint8_t *data, long offset);
int GetBufferImageHeader(std::span<const uint8_t> buffer, uint8_t *header, uint8_t *data, uint64_t offset);

void PrintDataStructure(const uint8_t *header, const uint8_t *data, int index);

// Visits every image of the chain from offset 0: index, offset, header,
// data. Returns the number of images read.
using ImageVisitor = std::function<void(int, uint64_t, const uint8_t *, const uint8_t *)>;
using HeaderReader = std::function<int(uint8_t *, uint8_t *, uint64_t)>;
int WalkImageChain(const HeaderReader &read, const ImageVisitor &visit);
int WalkOptionROMChain(std::span<const uint8_t> buffer, const ImageVisitor &visit);

int scanOptionROMFile(void *ignored, const char *path);
// Loads a whole file; *maxSize is the limit in and the loaded size out.
// 0 loaded, 1 cannot open (*maxSize = 0), 3 read error, 4 too large.
int validateOptionROMFile(const char *path, std::span<uint8_t> buffer, int32_t *maxSize);
int dumpFlashBufferToFile(void *ignored, std::span<uint8_t> buffer, int32_t length, const char *path);

bool isCommonBIOSImage(std::span<const uint8_t> buffer, uint64_t offset);
// Checks (update = 0) or sets the checksum byte of the image at `offset`;
// 1 when it matches or was set, 0 otherwise.
int ComputeChecksum(int update, std::span<uint8_t> buffer, uint64_t offset);

uint16_t vxpci_chg_endian(std::span<uint8_t> bytes);

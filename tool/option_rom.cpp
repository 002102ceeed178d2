// SPDX-License-Identifier: MIT
#include "option_rom.h"

#include <cstring>
#include <climits>
#include <iterator>
#include <utility>

#include "byte_view.h"
#include "messages.h"
#include "oss_files.h"

namespace {

constexpr const char *kCodeTypeLabels[] = {
    "(Intel X86 PC compatible)",
    "(PCI Open firmware)",
    "(Dorvel PA RISC)",
    "(EFI driver)",
};

constexpr const char *kDeviceIdLabels[] = {
    "",
    "(VPD data)",
    "(FCX110 firmware)",
    "(FCX120 firmware)",
};

constexpr size_t kMeasureChunk = 0x10000;

uint16_t le16_at(const uint8_t *p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

bool check_header_signature(const uint8_t *header) { return header[0] == 0x55 && header[1] == 0xAA; }

// Closes the stream whatever path the caller leaves by.
struct FileCloser {
    FILE *file;
    ~FileCloser() {
        if (file != nullptr) std::fclose(file);
    }
};

}  // namespace

bool IsBiosImage(const uint8_t *data) { return data[rom::kCodeType] == kCodeX86; }
bool IsFcodeImage(const uint8_t *data) { return data[rom::kCodeType] == kCodeFcode; }
bool IsEfiImage(const uint8_t *data) { return data[rom::kCodeType] == kCodeEfi; }
bool IsLastImage(const uint8_t *data) { return static_cast<int8_t>(data[rom::kIndicator]) < 0; }
bool IsVendorImage(const uint8_t *data) { return le16_at(data + rom::kVendorId) == kVarnixPciVendorId; }
bool IsDriverImage(const uint8_t *data) {
    // Device IDs 1 to 3 mark the data images (VPD, firmware) of the chain.
    return static_cast<uint16_t>(le16_at(data + rom::kDeviceId) - 1) > 2;
}
uint16_t GetDataLength(const uint8_t *data) { return le16_at(data + rom::kDataLength); }
uint32_t GetImageLength(const uint8_t *data) { return static_cast<uint32_t>(le16_at(data + rom::kImageLength)) << 9; }
uint16_t GetDataOffset(const uint8_t *header) { return le16_at(header + rom::kDataOffset); }

bool CompareSignature(const uint8_t *bytes, const char *text) {
    return std::memcmp(bytes, text, std::strlen(text)) == 0;
}

const char *CodeTypeLabel(unsigned codeType) {
    return codeType < std::size(kCodeTypeLabels) ? kCodeTypeLabels[codeType] : "";
}

const char *DeviceIdLabel(unsigned deviceId) {
    return deviceId < std::size(kDeviceIdLabels) ? kDeviceIdLabels[deviceId] : "";
}

int GetFileImageHeader(FILE *stream, uint8_t *header, uint8_t *data, long offset) {
    if (stream == nullptr || offset < 0 || std::fseek(stream, offset, SEEK_SET) != 0) {
        FwTrace("Failed to wind file to header!");
        return 0;
    }
    if (std::fread(header, 1, kImageHeaderSize, stream) != kImageHeaderSize) {
        FwTrace("Failed to read header from file!");
        return 0;
    }
    if (!check_header_signature(header)) {
        FwTrace("Failed to recognize header signature!");
        return 0;
    }
    if (std::fseek(stream, offset + GetDataOffset(header), SEEK_SET) != 0) {
        FwTrace("Failed to wind file to data!");
        return 0;
    }
    if (std::fread(data, 1, kPciDataSize, stream) != kPciDataSize) {
        FwTrace("Failed to read data from file!");
        return 0;
    }
    if (!CompareSignature(data, "PCIR")) {
        FwTrace("Failed to recognize data signature!");
        return 0;
    }
    return 1;
}

int GetBufferImageHeader(std::span<const uint8_t> buffer, uint8_t *header, uint8_t *data, uint64_t offset) {
    const ByteView view(buffer);
    if (offset > buffer.size()) {
        FwTrace("Failed to wind file to header!");
        return 0;
    }
    if (!view.has(offset, kImageHeaderSize)) {
        FwTrace("Failed to read header from file!");
        return 0;
    }
    std::memcpy(header, buffer.data() + offset, kImageHeaderSize);
    if (!check_header_signature(header)) {
        FwTrace("Failed to recognize header signature!");
        return 0;
    }
    const uint64_t dataAt = offset + GetDataOffset(header);
    if (dataAt > buffer.size()) {
        FwTrace("Failed to wind file to data!");
        return 0;
    }
    if (!view.has(dataAt, kPciDataSize)) {
        FwTrace("Failed to read data from file!");
        return 0;
    }
    std::memcpy(data, buffer.data() + dataAt, kPciDataSize);
    if (!CompareSignature(data, "PCIR")) {
        FwTrace("Failed to recognize data signature!");
        return 0;
    }
    return 1;
}

void PrintDataStructure(const uint8_t *header, const uint8_t *data, int index) {
    (void)header;
    const uint16_t deviceId = le16_at(data + rom::kDeviceId);
    FwTrace("Image %d  %s\n", index, IsLastImage(data) ? "(Last)" : "(More)");
    FwTrace("Signature %.4s\n", reinterpret_cast<const char *>(data));
    FwTrace("Vendor Id %04X\n", le16_at(data + rom::kVendorId));
    FwTrace("Device Id %04X %s\n", deviceId, DeviceIdLabel(deviceId));
    FwTrace("Revision  %02d.%02d\n", data[rom::kRevision + 1], data[rom::kRevision]);
    FwTrace("Length    %ld bytes\n", static_cast<long>(GetImageLength(data)));
    FwTrace("Code Type %02X  %s\n", data[rom::kCodeType], CodeTypeLabel(data[rom::kCodeType]));
}

int WalkImageChain(const HeaderReader &read, const ImageVisitor &visit) {
    ImageHeader header = {};
    PciData data = {};
    uint64_t offset = 0;
    if (read(header, data, offset) == 0) return 0;
    int index = 0;
    if (visit) visit(index, offset, header, data);
    int images = 1;
    while (!IsLastImage(data)) {
        FwTrace("The PCI size is:  %d.", static_cast<int>(kPciDataSize));
        const uint32_t length = GetImageLength(data);
        // A zero length would read the same image for ever.
        if (length == 0) break;
        offset += length;
        FwTrace("The image size is:  %d.", static_cast<int>(length));
        FwTrace("The new start address is:  %d.", static_cast<int>(offset));
        if (read(header, data, offset) == 0) break;
        ++index;
        ++images;
        if (visit) visit(index, offset, header, data);
    }
    return images;
}

int WalkOptionROMChain(std::span<const uint8_t> buffer, const ImageVisitor &visit) {
    return WalkImageChain(
        [buffer](uint8_t *header, uint8_t *data, uint64_t offset) {
            return GetBufferImageHeader(buffer, header, data, offset);
        },
        visit);
}

int scanOptionROMFile(void *, const char *path) {
    FILE *stream = path != nullptr ? OSSOpenImageFile(path) : nullptr;
    if (stream == nullptr) return 1;
    FileCloser closer{stream};
    WalkImageChain(
        [stream](uint8_t *header, uint8_t *data, uint64_t offset) {
            if (offset > static_cast<uint64_t>(LONG_MAX)) return 0;
            return GetFileImageHeader(stream, header, data, static_cast<long>(offset));
        },
        [](int index, uint64_t, const uint8_t *header, const uint8_t *data) {
            PrintDataStructure(header, data, index);
        });
    return 0;
}

int validateOptionROMFile(const char *path, std::span<uint8_t> buffer, int32_t *maxSize) {
    if (maxSize == nullptr) return 1;
    FILE *stream = path != nullptr ? OSSOpenImageFile(path) : nullptr;
    if (stream == nullptr) {
        *maxSize = 0;
        return 1;
    }
    FileCloser closer{stream};

    // Measure by reading to the end; the chunks land in the caller's buffer.
    const size_t chunk = buffer.size() < kMeasureChunk ? buffer.size() : kMeasureChunk;
    uint64_t fileSize = 0;
    if (chunk == 0) return 3;
    for (;;) {
        const size_t got = std::fread(buffer.data(), 1, chunk, stream);
        fileSize += got;
        FwTrace("ValidateOptionROMFile: chunkSize=%d", static_cast<int>(got));
        if (got < chunk) break;
    }
    if (std::ferror(stream) != 0) return 3;
    std::rewind(stream);
    FwTrace("ValidateOptionROMFile: OptionROM file size=%ld - Max size=%d", static_cast<long>(fileSize), *maxSize);

    // Larger than allowed, or than the buffer that has to hold it.
    if (static_cast<int64_t>(fileSize) > static_cast<int64_t>(*maxSize) || fileSize > buffer.size()) return 4;
    if (std::fread(buffer.data(), 1, fileSize, stream) != fileSize) return 3;
    *maxSize = static_cast<int32_t>(fileSize);
    return 0;
}

int dumpFlashBufferToFile(void *, std::span<uint8_t> buffer, int32_t length, const char *path) {
    const size_t count = length < 0 ? 0 : (static_cast<size_t>(length) < buffer.size() ? static_cast<size_t>(length)
                                                                                         : buffer.size());
    FILE *stream = path != nullptr ? std::fopen(path, "wb+") : nullptr;
    if (stream == nullptr) {
        PrintLogMessage(kMsgError, "Cannot open file %s for saving !", path != nullptr ? path : "");
        return -1;
    }
    const size_t written = std::fwrite(buffer.data(), 1, count, stream);
    const bool closed = std::fclose(stream) == 0;
    if (written == 0 || written != count || !closed) {
        PrintLogMessage(kMsgError,
                        "Not enought space on disk.\nYou need at least %d bytes available for the save operation !",
                        length);
        return -1;
    }
    FwTrace("Number of bytes written %d", static_cast<int>(written));

    std::memset(buffer.data(), 0, count);
    stream = std::fopen(path, "rb+");
    if (stream == nullptr) {
        PrintLogMessage(kMsgError, "Cannot open file %s for reading !", path);
        return -1;
    }
    FileCloser closer{stream};
    if (std::fread(buffer.data(), 1, count, stream) == 0) {
        PrintLogMessage(kMsgError, "File %s appears to be corrupted !", path);
        return -1;
    }
    FwTrace("Number of bytes read %d\n", static_cast<int>(written));
    return 0;
}

bool isCommonBIOSImage(std::span<const uint8_t> buffer, uint64_t offset) {
    const ByteView view(buffer);
    if (offset > buffer.size() || !view.has(offset + rom::kCommonMarker, 4)) return false;
    const uint8_t *marker = buffer.data() + offset + rom::kCommonMarker;
    FwTrace("isCommonBIOSImage: Offset=%d %c%c%c%c", static_cast<int>(offset), marker[0], marker[1], marker[2],
            marker[3]);
    return marker[0] == 'M' && marker[1] == 'O' && marker[2] == 'D' && marker[3] == 'L';
}

int ComputeChecksum(int update, std::span<uint8_t> buffer, uint64_t offset) {
    FwTrace("ComputeChecksum: iOffset=%d", static_cast<int>(offset));
    const ByteView view(buffer);
    const auto sizeByte = view.u8(offset + rom::kSizeBlocks);
    if (offset > buffer.size() || !sizeByte) return 0;
    // The size byte is read signed: 128 blocks or more give a negative size.
    const int64_t size = static_cast<int64_t>(static_cast<int8_t>(*sizeByte)) * 512;
    FwTrace("ComputeChecksum: iOffset=%d (0x%x) iSize=%d", static_cast<int>(offset), static_cast<unsigned>(offset),
            static_cast<int>(size));

    // The checksum byte is the image's last byte; the one before it is left
    // out of the sum on purpose. A size of 0 or below (128 blocks or more)
    // sums nothing and puts that byte before the image; it is checked or set
    // there as long as it lies inside the buffer.
    const int64_t at = static_cast<int64_t>(offset) + size - 1;
    if (at < 0 || static_cast<uint64_t>(at) >= buffer.size()) return 0;
    uint8_t sum = 0;
    for (int64_t i = 0; i < size - 2; ++i) sum = static_cast<uint8_t>(sum + buffer[offset + static_cast<uint64_t>(i)]);
    const uint8_t checksum = static_cast<uint8_t>(256 - sum);
    FwTrace("ComputeChecksum: check sum (*)=%d (0x%x)", static_cast<int8_t>(sum), sum);
    FwTrace("ComputeChecksum: check sum(~)=%d (0x%x)", static_cast<int8_t>(checksum), checksum);
    const auto pos = static_cast<size_t>(at);
    if (update == 0) return buffer[pos] == checksum ? 1 : 0;
    FwTrace("ComputeChecksum: Updating check sum 0x%x at offset 0x%x", checksum, static_cast<unsigned>(pos));
    buffer[pos] = checksum;
    return 1;
}

uint16_t vxpci_chg_endian(std::span<uint8_t> bytes) {
    for (size_t i = 0, j = bytes.size(); i + 1 < j; ++i, --j) std::swap(bytes[i], bytes[j - 1]);
    if (bytes.size() < 2) return bytes.empty() ? 0 : bytes[0];
    return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
}

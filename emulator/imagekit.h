// SPDX-License-Identifier: MIT
// Image kit: builds and reads the byte images an adapter's flash is made of
// (option ROM chains, firmware images, NVRAM blocks, VPD blocks, the 1 MiB
// multiboot file) and the small result types the model shares.
// Every read goes through a bounds-checked view; nothing here trusts a length
// field without checking it against the buffer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "chipdata.h"

namespace vxemu {

// ---------------------------------------------------------------- results

struct Error {
    int status = 0;  // non-zero on failure
    std::string message;
};

// Success or an Error; never throws.
class [[nodiscard]] Status {
public:
    Status() = default;
    static Status fail(std::string message, int status = 1) { return Status(Error{status == 0 ? 1 : status, std::move(message)}); }
    [[nodiscard]] bool ok() const { return err_.status == 0; }
    explicit operator bool() const { return ok(); }
    [[nodiscard]] const Error &error() const { return err_; }

private:
    explicit Status(Error e) : err_(std::move(e)) {}
    Error err_;
};

template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}  // NOLINT: implicit on purpose
    Result(const Status &failed) : err_(failed.error()) {  // NOLINT
        if (err_.status == 0) err_ = Error{1, "unspecified failure"};
    }
    static Result fail(std::string message, int status = 1) { return Result(Status::fail(std::move(message), status)); }
    [[nodiscard]] bool ok() const { return value_.has_value(); }
    explicit operator bool() const { return ok(); }
    [[nodiscard]] T &value() & { return *value_; }
    [[nodiscard]] const T &value() const & { return *value_; }
    [[nodiscard]] T &&value() && { return std::move(*value_); }
    [[nodiscard]] const Error &error() const { return err_; }

private:
    std::optional<T> value_;
    Error err_;
};

// ---------------------------------------------------------------- bytes

// Bounds-checked reader over a byte buffer: every accessor fails (nullopt)
// instead of reading past the end.
class ByteView {
public:
    explicit ByteView(std::span<const uint8_t> bytes) : b_(bytes) {}
    [[nodiscard]] size_t size() const { return b_.size(); }
    [[nodiscard]] bool has(size_t off, size_t n) const { return off <= b_.size() && n <= b_.size() - off; }
    [[nodiscard]] std::optional<uint8_t> u8(size_t off) const;
    [[nodiscard]] std::optional<uint16_t> le16(size_t off) const;
    [[nodiscard]] std::optional<uint32_t> le32(size_t off) const;
    [[nodiscard]] std::optional<uint32_t> be32(size_t off) const;
    [[nodiscard]] bool matches(size_t off, std::string_view text) const;

private:
    std::span<const uint8_t> b_;
};

void put_le16(std::span<uint8_t> b, size_t off, uint16_t v);
void put_le32(std::span<uint8_t> b, size_t off, uint32_t v);
void put_be32(std::span<uint8_t> b, size_t off, uint32_t v);

// First offset in [from, from+positions) where `text` starts, within the buffer.
[[nodiscard]] std::optional<size_t> find_text(std::span<const uint8_t> b, std::string_view text, size_t from = 0,
                                              size_t positions = SIZE_MAX);

// Parses "0x1DE5", "1DE5h"-free plain forms: hex with 0x prefix, else decimal.
[[nodiscard]] std::optional<uint64_t> parse_number(std::string_view text);
// "21:00:00:24:ff:00:00:01", "21-00-..." or "21000024ff000001".
[[nodiscard]] std::optional<std::array<uint8_t, 8>> parse_wwn(std::string_view text);
// "1.10" -> {1, 10}; "8.2.1" -> {8, 2, 1}. Each part 0..255, `parts` parts exactly.
[[nodiscard]] std::optional<std::vector<uint8_t>> parse_version(std::string_view text, size_t parts);

// ---------------------------------------------------------------- option ROM

enum class CodeType : uint8_t { bios = 0, fcode = 1, efi = 3 };
[[nodiscard]] std::optional<CodeType> code_type_from_name(std::string_view name);  // bios|fcode|efi

// Offsets inside one image of the chain (relative to the image start).
inline constexpr size_t kRomPcirPointer = 0x18;
inline constexpr size_t kRomPcirOffset = 0x60;       // where the kit places "PCIR"
inline constexpr size_t kBiosHwType = 0x09;          // 4 characters
inline constexpr size_t kBiosChipCode = 0x14;
inline constexpr size_t kBiosSsvidLabel = 0x1B;      // "SSVID", the label's last four at 28..31
inline constexpr size_t kBiosSsvid = 0x20;
inline constexpr size_t kBiosDeviceId = 0x2A;
inline constexpr size_t kBiosCommonMarker = 0x40;    // "MODL"
inline constexpr size_t kBiosModel = 0x44;           // 19 bytes
inline constexpr size_t kBiosParamMarker = 0x100;    // "MEFCX " parameter block
inline constexpr size_t kParamBlockBytes = 512;      // block starts 2 bytes into the marker (FCX14x class)
inline constexpr size_t kParamBlockBytesOld = 256;   // older chips keep a shorter block
inline constexpr size_t kEfiFcodeDeviceId = 0x22;

struct RomImageSpec {
    CodeType type = CodeType::bios;
    uint8_t major = 1;
    uint8_t minor = 0;
    uint16_t vendor_id = kMakerVendorId;
    uint16_t device_id = 0x1600;   // PCIR device ID and the patched ID field
    // x86 BIOS only:
    bool common = true;            // "MODL" marker of a common image
    std::string hw_type = "160";   // at most 4 characters at 0x09, zero padded
    uint8_t chip_code = 0x2F;
    uint16_t ssvid = kMakerVendorId;
    bool ssvid_label = true;       // "SSVID" label before the SSVID bytes
    std::string model = "VX2160";  // at most 18 characters, blank terminated
    bool param_block = true;       // carries the "MEFCX " parameter block
    size_t param_bytes = kParamBlockBytes;  // its length: param_block_bytes() of the chip
    uint8_t param_seed = 0;        // pattern of the block, so tests can tell blocks apart
    // all:
    size_t blocks = 0;             // image length in 512-byte units (0 = kit default, max 127)
    bool bad_checksum = false;     // store a checksum that does not match
    bool bad_signature = false;    // 0x55 0xAA replaced by zeros (checksum still sealed)
    bool bad_pcir = false;         // "PCIR" replaced by "XCIR" (checksum still sealed)
};

// One image; `last` sets bit 7 of the indicator.
[[nodiscard]] Result<std::vector<uint8_t>> build_rom_image(const RomImageSpec &spec, bool last);
// A chain of images in the given order, the last one flagged.
[[nodiscard]] Result<std::vector<uint8_t>> build_option_rom(std::span<const RomImageSpec> specs);

struct RomImageInfo {
    size_t offset = 0;
    CodeType type = CodeType::bios;
    uint8_t raw_type = 0;
    uint16_t vendor_id = 0;
    uint16_t device_id = 0;
    uint8_t major = 0;   // byte 0x13 of the PCI data structure
    uint8_t minor = 0;   // byte 0x12
    size_t length = 0;   // bytes (PCIR length field * 512)
    bool last = false;
    bool checksum_ok = false;
    bool common = false; // "MODL" at 0x40
};

// Walks the chain from `start`: stops after the image flagged last, at the
// first image without 0x55 0xAA or "PCIR", at a zero length, at the end of
// the buffer, or after `max_images`.
[[nodiscard]] std::vector<RomImageInfo> walk_option_rom(std::span<const uint8_t> b, size_t start = 0,
                                                        size_t max_images = 16);

// The image checksum rule of the system: size = byte 2 (signed) * 512; the
// bytes 0..size-3 are summed, byte size-2 is left out on purpose, and byte
// size-1 holds the two's complement of the sum. The kit keeps byte size-2 at
// zero, so the plain whole-image sum is zero too.
[[nodiscard]] bool rom_checksum_ok(std::span<const uint8_t> b, size_t offset);
// Stores the checksum; false if the image does not fit in the buffer.
bool seal_rom_image(std::span<uint8_t> b, size_t offset);

// ---------------------------------------------------------------- firmware

struct FirmwareSpec {
    std::string family = "FCX16";   // "FCX" and two characters
    char separator = ' ';           // the character between "xx" and "Firmware"
    uint8_t major = 8, minor = 0, sub = 0;
    uint32_t seg1_words = 0x1000;   // L1
    uint32_t seg2_words = 0x800;    // L2
    bool tamar = false;             // bridge-chip marker and version word
    bool bad_checksum = false;      // second segment does not sum to zero
    uint32_t seed = 1;              // filler pattern
};

// Word positions inside the firmware image (32-bit big-endian words).
inline constexpr size_t kFwWordL1 = 3;
inline constexpr size_t kFwWordMajor = 4;  // version: words 4, 5, 6
inline constexpr size_t kFwFamilyOffset = 0x20;
inline constexpr size_t kFwTamarOffset = 82;
inline constexpr size_t kFwTamarVersionOffset = 8;

[[nodiscard]] Result<std::vector<uint8_t>> build_firmware(const FirmwareSpec &spec);

struct FirmwareInfo {
    uint32_t l1 = 0, l2 = 0;
    bool seg1_ok = false, seg2_ok = false;
    std::string family_text;  // the 16-byte family text, if found at its place
    uint8_t major = 0, minor = 0, sub = 0;
    [[nodiscard]] bool valid() const { return seg1_ok && seg2_ok && !family_text.empty(); }
};
// Reads a firmware image at the start of `b`; nullopt if the segment lengths
// do not fit in the buffer or are zero.
[[nodiscard]] std::optional<FirmwareInfo> inspect_firmware(std::span<const uint8_t> b);

// ---------------------------------------------------------------- NVRAM

enum class NvramFormat : uint8_t { basic, extended };
[[nodiscard]] size_t nvram_size(NvramFormat f);  // 256 or 512

inline constexpr unsigned kNvVarId = 0;
inline constexpr unsigned kNvVarNodeNameOption = 17;
inline constexpr unsigned kNvVarPortName0 = 24;
inline constexpr unsigned kNvVarNodeName0 = 35;
inline constexpr unsigned kNvVarSsVendor = 127;
inline constexpr unsigned kNvVarSsDevice = 128;
inline constexpr unsigned kNvVarLast = 129;

// Reads a variable the way the management library does (0 for unknown or
// absent variables or a short image).
[[nodiscard]] uint32_t nvram_get(std::span<const uint8_t> image, NvramFormat f, unsigned var);
// Writes a variable; false if the variable has no place in this format.
bool nvram_set(std::span<uint8_t> image, NvramFormat f, unsigned var, uint32_t value);
// Checksum: basic = byte 255 makes the byte sum zero; extended = word at 0x1FE
// makes the sum of little-endian 16-bit words zero.
void nvram_seal(std::span<uint8_t> image, NvramFormat f);
[[nodiscard]] bool nvram_checksum_ok(std::span<const uint8_t> image, NvramFormat f);

struct NvramSpec {
    NvramFormat format = NvramFormat::extended;
    uint16_t ss_vendor = kMakerVendorId;
    uint16_t ss_device = 0;
    std::array<uint8_t, 8> wwnn{};
    std::array<uint8_t, 8> wwpn{};
    std::vector<std::pair<unsigned, uint32_t>> variables;  // extra settings, applied last
};
[[nodiscard]] Result<std::vector<uint8_t>> build_nvram(const NvramSpec &spec);

// ---------------------------------------------------------------- VPD

struct VpdSpec {
    std::string identifier = "Varnix Fibre Channel Adapter";
    std::vector<std::pair<std::string, std::string>> read_only;   // PN, EC, SN, V0 ... (RV is added)
    std::vector<std::pair<std::string, std::string>> read_write;  // V1.., YA ...
    size_t size = 512;
    bool bad_checksum = false;
};
// Identifier string (0x82), read-only resource (0x90) ending in "RV", read-write
// resource (0x91), end tag 0x78; the rest of `size` is zero.
[[nodiscard]] Result<std::vector<uint8_t>> build_vpd(const VpdSpec &spec);
// Data of keyword `kw` (exact two characters) in either resource; the
// identifier string for kw "ID".
[[nodiscard]] std::optional<std::string> vpd_field(std::span<const uint8_t> vpd, std::string_view kw);
// Every field in block order ("ID" first when the identifier is there), up
// to the end tag or the first field that does not fit.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> vpd_fields(std::span<const uint8_t> vpd);
// Bytes from the start through the "RV" checksum byte sum to zero mod 256.
[[nodiscard]] bool vpd_checksum_ok(std::span<const uint8_t> vpd);

// ---------------------------------------------------------------- multiboot

inline constexpr size_t kMultibootSize = 0x100000;
inline constexpr size_t kMultibootFirmwareOffset = 0x80000;

// Lays boot code at 0 and firmware at `fw_offset` into a `size`-byte buffer
// (unused bytes 0xFF, as erased flash reads). Fails if a part does not fit.
[[nodiscard]] Result<std::vector<uint8_t>> build_multiboot(std::span<const uint8_t> boot, std::span<const uint8_t> firmware,
                                                           size_t size = kMultibootSize,
                                                           size_t fw_offset = kMultibootFirmwareOffset);

// Boot images for a chip at the given versions (absent = not carried), in
// the order BIOS, FCode, EFI, with IDs, codes and markers of that chip.
// The parameter block a chip's BIOS image carries: 512 bytes on FCX14x-class
// chips, 256 on older ones.
[[nodiscard]] inline size_t param_block_bytes(const ChipInfo &chip) {
    return chip.fcx14x_class ? kParamBlockBytes : kParamBlockBytesOld;
}

struct BootChainSpec {
    std::optional<std::pair<uint8_t, uint8_t>> bios, fcode, efi;
    bool common_bios = true;
    std::string model = "VX2160";
    uint16_t ssvid = kMakerVendorId;
    // Variants without a chip row of their own (FCX123S): BIOS hardware type and chip code.
    std::optional<std::string> hw_type;
    std::optional<uint8_t> chip_code;
};
[[nodiscard]] Result<std::vector<uint8_t>> build_boot_chain(const ChipInfo &chip, const BootChainSpec &spec);

}  // namespace vxemu

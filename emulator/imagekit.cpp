// SPDX-License-Identifier: MIT
#include "imagekit.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vxemu {

// ---------------------------------------------------------------- bytes

std::optional<uint8_t> ByteView::u8(size_t off) const {
    if (!has(off, 1)) return std::nullopt;
    return b_[off];
}

std::optional<uint16_t> ByteView::le16(size_t off) const {
    if (!has(off, 2)) return std::nullopt;
    return static_cast<uint16_t>(b_[off] | (b_[off + 1] << 8));
}

std::optional<uint32_t> ByteView::le32(size_t off) const {
    if (!has(off, 4)) return std::nullopt;
    return uint32_t{b_[off]} | (uint32_t{b_[off + 1]} << 8) | (uint32_t{b_[off + 2]} << 16) | (uint32_t{b_[off + 3]} << 24);
}

std::optional<uint32_t> ByteView::be32(size_t off) const {
    if (!has(off, 4)) return std::nullopt;
    return (uint32_t{b_[off]} << 24) | (uint32_t{b_[off + 1]} << 16) | (uint32_t{b_[off + 2]} << 8) | uint32_t{b_[off + 3]};
}

bool ByteView::matches(size_t off, std::string_view text) const {
    if (!has(off, text.size())) return false;
    return std::memcmp(b_.data() + off, text.data(), text.size()) == 0;
}

void put_le16(std::span<uint8_t> b, size_t off, uint16_t v) {
    b[off] = static_cast<uint8_t>(v);
    b[off + 1] = static_cast<uint8_t>(v >> 8);
}

void put_le32(std::span<uint8_t> b, size_t off, uint32_t v) {
    for (size_t i = 0; i < 4; ++i) b[off + i] = static_cast<uint8_t>(v >> (8 * i));
}

void put_be32(std::span<uint8_t> b, size_t off, uint32_t v) {
    for (size_t i = 0; i < 4; ++i) b[off + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

std::optional<size_t> find_text(std::span<const uint8_t> b, std::string_view text, size_t from, size_t positions) {
    if (text.empty() || positions == 0 || from >= b.size() || text.size() > b.size() - from) return std::nullopt;
    size_t last = b.size() - text.size();
    if (positions - 1 < last - from) last = from + positions - 1;
    for (size_t i = from; i <= last; ++i)
        if (std::memcmp(b.data() + i, text.data(), text.size()) == 0) return i;
    return std::nullopt;
}

std::optional<uint64_t> parse_number(std::string_view t) {
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        base = 16;
        t.remove_prefix(2);
    }
    if (t.empty() || t.size() > 16) return std::nullopt;
    uint64_t v = 0;
    for (char c : t) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;
        const uint64_t next = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
        if (next / static_cast<uint64_t>(base) != v && v != 0) return std::nullopt;
        v = next;
    }
    return v;
}

std::optional<std::array<uint8_t, 8>> parse_wwn(std::string_view t) {
    std::string hex;
    for (char c : t) {
        if (c == ':' || c == '-') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
        hex += c;
    }
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) return std::nullopt;
    if (hex.size() != 16) return std::nullopt;
    std::array<uint8_t, 8> w{};
    for (size_t i = 0; i < 8; ++i) {
        auto byte = parse_number("0x" + hex.substr(i * 2, 2));
        if (!byte) return std::nullopt;
        w[i] = static_cast<uint8_t>(*byte);
    }
    return w;
}

std::optional<std::vector<uint8_t>> parse_version(std::string_view t, size_t parts) {
    std::vector<uint8_t> out;
    size_t pos = 0;
    while (true) {
        const size_t dot = t.find('.', pos);
        const std::string_view part = t.substr(pos, dot == std::string_view::npos ? std::string_view::npos : dot - pos);
        if (part.empty() || part.size() > 3) return std::nullopt;
        auto v = parse_number(part);
        if (!v || *v > 255 || part.starts_with("0x")) return std::nullopt;
        out.push_back(static_cast<uint8_t>(*v));
        if (dot == std::string_view::npos) break;
        pos = dot + 1;
    }
    if (out.size() != parts) return std::nullopt;
    return out;
}

// ---------------------------------------------------------------- option ROM

std::optional<CodeType> code_type_from_name(std::string_view name) {
    if (name == "bios") return CodeType::bios;
    if (name == "fcode") return CodeType::fcode;
    if (name == "efi") return CodeType::efi;
    return std::nullopt;
}

namespace {

size_t default_blocks(CodeType t) {
    switch (t) {
    case CodeType::bios: return 64;   // 32 KiB
    case CodeType::fcode: return 32;  // 16 KiB
    case CodeType::efi: return 64;
    }
    return 64;
}

// Sum of bytes offset..offset+size-3 (the byte at size-2 stays out on purpose).
std::optional<uint8_t> rom_sum(std::span<const uint8_t> b, size_t offset) {
    ByteView v(b);
    auto size_byte = v.u8(offset + 2);
    if (!size_byte) return std::nullopt;
    const int size = static_cast<int8_t>(*size_byte) * 512;
    // A size of 128 blocks or more reads negative in the system's rule; such
    // an image cannot be checked, and an image under 2 bytes has no checksum byte.
    if (size < 2 || !v.has(offset, static_cast<size_t>(size))) return std::nullopt;
    uint8_t sum = 0;
    for (size_t i = 0; i + 2 < static_cast<size_t>(size); ++i) sum = static_cast<uint8_t>(sum + b[offset + i]);
    return sum;
}

}  // namespace

bool rom_checksum_ok(std::span<const uint8_t> b, size_t offset) {
    auto sum = rom_sum(b, offset);
    if (!sum) return false;
    const size_t size = size_t{b[offset + 2]} * 512;
    return b[offset + size - 1] == static_cast<uint8_t>(0x100 - *sum);
}

bool seal_rom_image(std::span<uint8_t> b, size_t offset) {
    auto sum = rom_sum(b, offset);
    if (!sum) return false;
    const size_t size = size_t{b[offset + 2]} * 512;
    b[offset + size - 1] = static_cast<uint8_t>(0x100 - *sum);
    return true;
}

Result<std::vector<uint8_t>> build_rom_image(const RomImageSpec &s, bool last) {
    const size_t blocks = s.blocks ? s.blocks : default_blocks(s.type);
    if (blocks > 127) return Result<std::vector<uint8_t>>::fail("image length above 127 blocks (64 KiB) cannot carry a checksum");
    const size_t len = blocks * 512;
    if (s.param_block && s.param_bytes != kParamBlockBytes && s.param_bytes != kParamBlockBytesOld)
        return Result<std::vector<uint8_t>>::fail("a parameter block is 256 or 512 bytes long");
    const size_t needed = s.type == CodeType::bios && s.param_block ? kBiosParamMarker + 2 + s.param_bytes + 2 : kRomPcirOffset + 0x20 + 2;
    if (len < needed) return Result<std::vector<uint8_t>>::fail("image length of " + std::to_string(blocks) + " blocks is too small");
    if (s.model.size() > 18) return Result<std::vector<uint8_t>>::fail("model text longer than 18 characters");
    if (s.hw_type.size() > 4) return Result<std::vector<uint8_t>>::fail("hardware type longer than 4 characters");

    std::vector<uint8_t> img(len);
    // Code filler: a pattern of non-ASCII bytes, so no marker text can appear by chance.
    for (size_t i = 0; i < len; ++i) img[i] = static_cast<uint8_t>(0x80 | ((i * 7 + static_cast<size_t>(s.type)) & 0x3F));
    img[0] = 0x55;
    img[1] = 0xAA;
    img[2] = static_cast<uint8_t>(blocks);
    std::fill(img.begin() + 3, img.begin() + kRomPcirOffset, 0);
    put_le16(img, kRomPcirPointer, kRomPcirOffset);

    switch (s.type) {
    case CodeType::bios: {
        img[3] = 0xEB;  // short jump over the header, as a real entry point would
        img[4] = 0x4B;
        // Zero after the text, as the flash tool's patch writes the field.
        std::string hw = s.hw_type;
        hw.resize(4, '\0');
        std::memcpy(img.data() + kBiosHwType, hw.data(), 4);
        img[kBiosChipCode] = s.chip_code;
        if (s.ssvid_label) std::memcpy(img.data() + kBiosSsvidLabel, "SSVID", 5);
        put_le16(img, kBiosSsvid, s.ssvid);
        put_le16(img, kBiosDeviceId, s.device_id);
        if (s.common) std::memcpy(img.data() + kBiosCommonMarker, "MODL", 4);
        std::memcpy(img.data() + kBiosModel, s.model.data(), s.model.size());
        img[kBiosModel + s.model.size()] = ' ';
        if (s.param_block) {
            std::fill(img.begin() + kBiosParamMarker, img.begin() + static_cast<std::ptrdiff_t>(kBiosParamMarker + 2 + s.param_bytes), 0);
            std::memcpy(img.data() + kBiosParamMarker, "MEFCX ", 6);
            // The block begins inside the marker (2 bytes in); its payload is a
            // seed-dependent pattern so a copied block can be recognised.
            for (size_t i = 6; i < 2 + s.param_bytes; ++i)
                img[kBiosParamMarker + i] = static_cast<uint8_t>(0x80 | ((s.param_seed + i) & 0x3F));
        }
        break;
    }
    case CodeType::fcode:
        img[3] = 0xF1;  // FCode start token
        put_le16(img, kEfiFcodeDeviceId, s.device_id);
        break;
    case CodeType::efi:
        put_le16(img, 0x04, 0x0EF1);  // EFI signature
        put_le16(img, 0x06, 0x000B);  // boot service driver
        put_le16(img, 0x08, 0x8664);  // x64
        put_le16(img, 0x16, 0x0080);  // EFI image offset
        put_le16(img, kEfiFcodeDeviceId, s.device_id);
        break;
    }

    const size_t p = kRomPcirOffset;
    std::fill(img.begin() + p, img.begin() + p + 0x20, 0);
    std::memcpy(img.data() + p, "PCIR", 4);
    put_le16(img, p + 0x04, s.vendor_id);
    put_le16(img, p + 0x06, s.device_id);
    put_le16(img, p + 0x0A, 0x18);
    img[p + 0x0D] = 0x00;  // class code: Fibre Channel controller
    img[p + 0x0E] = 0x04;
    img[p + 0x0F] = 0x0C;
    put_le16(img, p + 0x10, static_cast<uint16_t>(blocks));
    img[p + 0x12] = s.minor;
    img[p + 0x13] = s.major;
    img[p + 0x14] = static_cast<uint8_t>(s.type);
    img[p + 0x15] = last ? 0x80 : 0x00;

    if (s.bad_pcir) img[p] = 'X';
    img[len - 2] = 0;
    if (!seal_rom_image(img, 0)) return Result<std::vector<uint8_t>>::fail("cannot seal the image");
    if (s.bad_checksum) img[len - 1] = static_cast<uint8_t>(img[len - 1] + 1);
    if (s.bad_signature) img[0] = img[1] = 0;
    return img;
}

Result<std::vector<uint8_t>> build_option_rom(std::span<const RomImageSpec> specs) {
    if (specs.empty()) return Result<std::vector<uint8_t>>::fail("an option ROM needs at least one image");
    std::vector<uint8_t> out;
    for (size_t i = 0; i < specs.size(); ++i) {
        auto img = build_rom_image(specs[i], i + 1 == specs.size());
        if (!img) return Result<std::vector<uint8_t>>::fail("image " + std::to_string(i) + ": " + img.error().message);
        out.insert(out.end(), img.value().begin(), img.value().end());
    }
    return out;
}

std::vector<RomImageInfo> walk_option_rom(std::span<const uint8_t> b, size_t start, size_t max_images) {
    std::vector<RomImageInfo> out;
    ByteView v(b);
    size_t off = start;
    while (out.size() < max_images) {
        if (v.u8(off) != 0x55 || v.u8(off + 1) != 0xAA) break;
        auto pcir_rel = v.le16(off + kRomPcirPointer);
        if (!pcir_rel) break;
        const size_t p = off + *pcir_rel;
        if (!v.matches(p, "PCIR") || !v.has(p, 0x18)) break;
        RomImageInfo info;
        info.offset = off;
        info.raw_type = *v.u8(p + 0x14);
        info.type = static_cast<CodeType>(info.raw_type);
        info.vendor_id = *v.le16(p + 0x04);
        info.device_id = *v.le16(p + 0x06);
        info.minor = *v.u8(p + 0x12);
        info.major = *v.u8(p + 0x13);
        info.length = size_t{*v.le16(p + 0x10)} * 512;
        info.last = (*v.u8(p + 0x15) & 0x80) != 0;
        info.checksum_ok = rom_checksum_ok(b, off);
        info.common = v.matches(off + kBiosCommonMarker, "MODL");
        out.push_back(info);
        if (info.last || info.length == 0) break;
        off += info.length;
    }
    return out;
}

// ---------------------------------------------------------------- firmware

Result<std::vector<uint8_t>> build_firmware(const FirmwareSpec &s) {
    using R = Result<std::vector<uint8_t>>;
    if (s.family.size() != 5 || !s.family.starts_with("FCX")) return R::fail("family must be \"FCX\" and two characters, e.g. FCX16");
    // Segment 1 holds the header words, the family text and the bridge marker.
    if (s.seg1_words < 32) return R::fail("first segment must be at least 32 words");
    if (s.seg2_words < 5) return R::fail("second segment must be at least 5 words");
    if (uint64_t{s.seg1_words} + s.seg2_words > 0x80000 / 4) return R::fail("firmware larger than 512 KiB");

    const size_t words = size_t{s.seg1_words} + s.seg2_words;
    std::vector<uint8_t> fw(words * 4);
    uint32_t x = s.seed ? s.seed : 1;
    for (size_t w = 0; w < words; ++w) {
        x = x * 1103515245u + 12345u;  // any deterministic filler will do
        put_be32(fw, w * 4, x);
    }
    put_be32(fw, 0, 0x56584657);  // "VXFW"
    put_be32(fw, 4, 0x00100000);  // load address
    put_be32(fw, 8, 0);
    put_be32(fw, kFwWordL1 * 4, s.seg1_words);
    put_be32(fw, kFwWordMajor * 4, s.major);
    put_be32(fw, (kFwWordMajor + 1) * 4, s.minor);
    put_be32(fw, (kFwWordMajor + 2) * 4, s.sub);
    put_be32(fw, 7 * 4, 0);
    const std::string family = s.family + "xx" + s.separator + "Firmware";
    std::memcpy(fw.data() + kFwFamilyOffset, family.data(), 16);
    if (s.tamar) {
        std::memcpy(fw.data() + kFwTamarOffset, "Tamar", 5);
        // the bridge image keeps its version in host order; hosts here are little-endian
        put_le32(fw, kFwTamarVersionOffset, (uint32_t{s.major} << 16) | (uint32_t{s.minor} << 8) | s.sub);
    }
    const size_t seg2 = s.seg1_words;
    put_be32(fw, seg2 * 4, 0x00200000);
    put_be32(fw, (seg2 + 3) * 4, s.seg2_words);

    auto seal = [&](size_t first, size_t count) {
        uint32_t sum = 0;
        for (size_t w = first; w + 1 < first + count; ++w) sum += *ByteView(fw).be32(w * 4);
        put_be32(fw, (first + count - 1) * 4, 0u - sum);
    };
    seal(0, s.seg1_words);
    seal(seg2, s.seg2_words);
    if (s.bad_checksum) fw[(seg2 + 4) * 4 + 3] ^= 0x01;
    return fw;
}

std::optional<FirmwareInfo> inspect_firmware(std::span<const uint8_t> b) {
    ByteView v(b);
    FirmwareInfo info;
    auto l1 = v.be32(kFwWordL1 * 4);
    if (!l1 || *l1 == 0 || *l1 > b.size() / 4) return std::nullopt;
    auto l2 = v.be32((size_t{*l1} + 3) * 4);
    if (!l2 || *l2 == 0 || *l2 > b.size() / 4 - *l1) return std::nullopt;
    info.l1 = *l1;
    info.l2 = *l2;
    auto sum = [&](size_t first, size_t count) {
        uint32_t s = 0;
        for (size_t w = first; w < first + count; ++w) s += *v.be32(w * 4);
        return s;
    };
    info.seg1_ok = sum(0, info.l1) == 0;
    info.seg2_ok = sum(info.l1, info.l2) == 0;
    if (v.has(kFwFamilyOffset, 16) && v.matches(kFwFamilyOffset, "FCX") && v.matches(kFwFamilyOffset + 8, "Firmware"))
        info.family_text.assign(reinterpret_cast<const char *>(b.data()) + kFwFamilyOffset, 16);
    if (info.l1 > kFwWordMajor + 2) {
        info.major = static_cast<uint8_t>(*v.be32(kFwWordMajor * 4));
        info.minor = static_cast<uint8_t>(*v.be32((kFwWordMajor + 1) * 4));
        info.sub = static_cast<uint8_t>(*v.be32((kFwWordMajor + 2) * 4));
    }
    return info;
}

// ---------------------------------------------------------------- NVRAM

size_t nvram_size(NvramFormat f) { return f == NvramFormat::basic ? 256 : 512; }

namespace {

struct Place {
    bool present = false;
    size_t offset = 0;  // byte offset (basic: word index * 2)
    unsigned bit = 0;
    unsigned len = 0;
};

// Places of the variables this emulator knows; the rest have none.
Place place_of(unsigned var, NvramFormat f) {
    const bool basic = f == NvramFormat::basic;
    auto word = [](unsigned w, unsigned bit, unsigned len) { return Place{true, size_t{w} * 2, bit, len}; };
    auto byte = [](unsigned off, unsigned bit, unsigned len) { return Place{true, off, bit, len}; };
    auto wwn = [&](unsigned first_var, unsigned first_word, std::optional<unsigned> ext) -> Place {
        const unsigned k = var - first_var;
        if (basic) return word(first_word + k / 2, 8 * (k % 2), 8);
        if (!ext) return Place{};
        return byte(*ext + k, 0, 8);
    };
    if (var == kNvVarId) return basic ? word(0, 0, 32) : byte(0, 0, 32);
    if (var == 17) return basic ? word(4, 14, 1) : byte(0x2C, 14, 1);
    if (var >= 24 && var <= 31) return wwn(24, 9, 0x14);
    if (var >= 35 && var <= 42) return wwn(35, 15, 0x1C);
    if (var == 58) return basic ? word(35, 1, 1) : byte(0x100, 1, 1);
    if (var == 60) return basic ? word(35, 3, 1) : byte(0x100, 3, 1);
    if (var == 63) return basic ? word(35, 6, 1) : Place{};
    if (var == 64) return basic ? word(35, 7, 1) : Place{};
    if (var >= 72 && var <= 79) return wwn(72, 36, 0x114);
    if (var == 80) return basic ? word(40, 0, 8) : byte(0x11C, 0, 16);
    if (var >= 84 && var <= 91) return wwn(84, 43, std::nullopt);
    if (var == 92) return basic ? word(55, 0, 1) : byte(0x144, 0, 1);
    if (var == 93) return basic ? word(55, 1, 1) : byte(0x144, 1, 1);
    if (var == 96) return basic ? word(55, 7, 1) : byte(0x144, 7, 1);
    if (var >= 107 && var <= 114) return wwn(107, 69, 0x12C);
    if (var == 115) return basic ? word(73, 0, 16) : byte(0x134, 0, 16);
    if (var == kNvVarSsVendor) return basic ? word(125, 0, 16) : byte(0x1F8, 0, 16);
    if (var == kNvVarSsDevice) return basic ? word(126, 0, 16) : byte(0x1FA, 0, 16);
    return Place{};
}

uint32_t mask_of(unsigned len) { return len >= 32 ? 0xFFFFFFFFu : (1u << len) - 1; }

// Little-endian value of `width` bytes at `off`; bytes past the end read as 0.
uint32_t read_le(std::span<const uint8_t> b, size_t off, size_t width) {
    uint32_t v = 0;
    for (size_t i = 0; i < width; ++i)
        if (off + i < b.size()) v |= uint32_t{b[off + i]} << (8 * i);
    return v;
}

void write_le(std::span<uint8_t> b, size_t off, size_t width, uint32_t v) {
    for (size_t i = 0; i < width; ++i)
        if (off + i < b.size()) b[off + i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

uint32_t nvram_get(std::span<const uint8_t> image, NvramFormat f, unsigned var) {
    const Place p = place_of(var, f);
    if (!p.present || p.offset >= image.size()) return 0;
    if (var == kNvVarId) return read_le(image, p.offset, 4);
    const size_t width = f == NvramFormat::basic ? 2 : 4;
    return (read_le(image, p.offset, width) >> p.bit) & mask_of(p.len);
}

bool nvram_set(std::span<uint8_t> image, NvramFormat f, unsigned var, uint32_t value) {
    const Place p = place_of(var, f);
    if (!p.present || p.offset >= image.size()) return false;
    if (var == kNvVarId) {
        write_le(image, p.offset, 4, value);
        return true;
    }
    const size_t width = f == NvramFormat::basic ? 2 : 4;
    const uint32_t m = mask_of(p.len) << p.bit;
    uint32_t w = read_le(image, p.offset, width);
    w = (w & ~m) | ((value << p.bit) & m);
    write_le(image, p.offset, width, w);
    return true;
}

void nvram_seal(std::span<uint8_t> image, NvramFormat f) {
    const size_t n = nvram_size(f);
    if (image.size() < n) return;
    if (f == NvramFormat::basic) {
        uint8_t sum = 0;
        for (size_t i = 0; i + 1 < n; ++i) sum = static_cast<uint8_t>(sum + image[i]);
        image[n - 1] = static_cast<uint8_t>(0x100 - sum);
    } else {
        uint16_t sum = 0;
        for (size_t i = 0; i + 2 < n; i += 2) sum = static_cast<uint16_t>(sum + read_le(image, i, 2));
        write_le(image, n - 2, 2, static_cast<uint16_t>(0x10000 - sum));
    }
}

bool nvram_checksum_ok(std::span<const uint8_t> image, NvramFormat f) {
    const size_t n = nvram_size(f);
    if (image.size() < n) return false;
    if (f == NvramFormat::basic) {
        uint8_t sum = 0;
        for (size_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + image[i]);
        return sum == 0;
    }
    uint16_t sum = 0;
    for (size_t i = 0; i < n; i += 2) sum = static_cast<uint16_t>(sum + read_le(image, i, 2));
    return sum == 0;
}

Result<std::vector<uint8_t>> build_nvram(const NvramSpec &s) {
    std::vector<uint8_t> img(nvram_size(s.format), 0);
    // Block identifier and a plausible set of defaults the BIOS menus would show.
    nvram_set(img, s.format, kNvVarId, 0x5256'4E56);  // "VNVR"
    for (unsigned k = 0; k < 8; ++k) {
        nvram_set(img, s.format, kNvVarPortName0 + k, s.wwpn[k]);
        nvram_set(img, s.format, kNvVarNodeName0 + k, s.wwnn[k]);
    }
    nvram_set(img, s.format, kNvVarNodeNameOption, 1);
    nvram_set(img, s.format, kNvVarSsVendor, s.ss_vendor);
    nvram_set(img, s.format, kNvVarSsDevice, s.ss_device);
    for (const auto &[var, value] : s.variables) {
        if (var > kNvVarLast) return Result<std::vector<uint8_t>>::fail("NVRAM variable " + std::to_string(var) + " is above 129");
        if (!nvram_set(img, s.format, var, value))
            return Result<std::vector<uint8_t>>::fail("NVRAM variable " + std::to_string(var) + " has no place in the " +
                                                      (s.format == NvramFormat::basic ? "basic" : "extended") + " format");
    }
    nvram_seal(img, s.format);
    return img;
}

// ---------------------------------------------------------------- VPD

namespace {

constexpr uint8_t kVpdIdTag = 0x82;
constexpr uint8_t kVpdRoTag = 0x90;
constexpr uint8_t kVpdRwTag = 0x91;
constexpr uint8_t kVpdEndTag = 0x78;

Status add_fields(std::vector<uint8_t> &out, const std::vector<std::pair<std::string, std::string>> &fields) {
    for (const auto &[kw, data] : fields) {
        if (kw.size() != 2) return Status::fail("VPD keyword \"" + kw + "\" is not two characters");
        if (kw == "RV") return Status::fail("VPD keyword RV is added by the kit");
        if (data.size() > 255) return Status::fail("VPD field " + kw + " is longer than 255 bytes");
        out.insert(out.end(), kw.begin(), kw.end());
        out.push_back(static_cast<uint8_t>(data.size()));
        out.insert(out.end(), data.begin(), data.end());
    }
    return {};
}

void put_resource_header(std::vector<uint8_t> &out, uint8_t tag, size_t len) {
    out.push_back(tag);
    out.push_back(static_cast<uint8_t>(len));
    out.push_back(static_cast<uint8_t>(len >> 8));
}

}  // namespace

Result<std::vector<uint8_t>> build_vpd(const VpdSpec &s) {
    using R = Result<std::vector<uint8_t>>;
    if (s.identifier.size() > 0xFFFF) return R::fail("VPD identifier too long");
    std::vector<uint8_t> out;
    put_resource_header(out, kVpdIdTag, s.identifier.size());
    out.insert(out.end(), s.identifier.begin(), s.identifier.end());

    std::vector<uint8_t> ro;
    if (Status st = add_fields(ro, s.read_only); !st) return st;
    // RV: checksum byte and 3 reserved bytes.
    ro.insert(ro.end(), {'R', 'V', 4, 0, 0, 0, 0});
    put_resource_header(out, kVpdRoTag, ro.size());
    const size_t rv_byte = out.size() + ro.size() - 4;
    out.insert(out.end(), ro.begin(), ro.end());

    std::vector<uint8_t> rw;
    if (Status st = add_fields(rw, s.read_write); !st) return st;
    if (rw.empty()) rw.insert(rw.end(), {'R', 'W', 4, 0, 0, 0, 0});
    put_resource_header(out, kVpdRwTag, rw.size());
    out.insert(out.end(), rw.begin(), rw.end());
    out.push_back(kVpdEndTag);
    if (out.size() > s.size) return R::fail("VPD fields need " + std::to_string(out.size()) + " bytes, more than " + std::to_string(s.size));

    uint8_t sum = 0;
    for (size_t i = 0; i < rv_byte; ++i) sum = static_cast<uint8_t>(sum + out[i]);
    out[rv_byte] = static_cast<uint8_t>(0x100 - sum + (s.bad_checksum ? 1 : 0));
    out.resize(s.size, 0);
    return out;
}

namespace {

// Calls fn(keyword, data_offset, len, rv_checksum_offset) for each keyword
// field of the read-only and read-write resources; stops at the end tag.
template <class Fn>
bool walk_vpd(std::span<const uint8_t> b, Fn &&fn) {
    ByteView v(b);
    size_t pos = 0;
    while (auto tag = v.u8(pos)) {
        if (*tag == kVpdEndTag) return true;
        if (!(*tag & 0x80)) {  // small resource: length in the low 3 bits
            pos += 1 + (*tag & 7);
            continue;
        }
        auto len = v.le16(pos + 1);
        if (!len || !v.has(pos + 3, *len)) return false;
        if (*tag == kVpdIdTag) {
            if (!fn(std::string_view("ID"), pos + 3, size_t{*len})) return true;
        } else if (*tag == kVpdRoTag || *tag == kVpdRwTag) {
            size_t f = pos + 3;
            const size_t end = pos + 3 + *len;
            while (f + 3 <= end) {
                const std::string_view kw(reinterpret_cast<const char *>(b.data()) + f, 2);
                const size_t flen = b[f + 2];
                if (f + 3 + flen > end) return false;
                if (!fn(kw, f + 3, flen)) return true;
                f += 3 + flen;
            }
        }
        pos += 3 + *len;
    }
    return false;
}

}  // namespace

std::optional<std::string> vpd_field(std::span<const uint8_t> vpd, std::string_view kw) {
    std::optional<std::string> found;
    walk_vpd(vpd, [&](std::string_view k, size_t off, size_t len) {
        if (k != kw) return true;
        found.emplace(reinterpret_cast<const char *>(vpd.data()) + off, len);
        return false;
    });
    return found;
}

std::vector<std::pair<std::string, std::string>> vpd_fields(std::span<const uint8_t> vpd) {
    std::vector<std::pair<std::string, std::string>> out;
    walk_vpd(vpd, [&](std::string_view k, size_t off, size_t len) {
        out.emplace_back(std::string(k), std::string(reinterpret_cast<const char *>(vpd.data()) + off, len));
        return true;
    });
    return out;
}

bool vpd_checksum_ok(std::span<const uint8_t> vpd) {
    std::optional<size_t> rv;
    const bool ended = walk_vpd(vpd, [&](std::string_view k, size_t off, size_t len) {
        if (k == "RV" && len >= 1) {
            rv = off;
            return false;
        }
        return true;
    });
    if (!rv) return false;
    (void)ended;
    uint8_t sum = 0;
    for (size_t i = 0; i <= *rv; ++i) sum = static_cast<uint8_t>(sum + vpd[i]);
    return sum == 0 && std::find(vpd.begin() + static_cast<std::ptrdiff_t>(*rv), vpd.end(), kVpdEndTag) != vpd.end();
}

// ---------------------------------------------------------------- multiboot

Result<std::vector<uint8_t>> build_multiboot(std::span<const uint8_t> boot, std::span<const uint8_t> firmware, size_t size,
                                             size_t fw_offset) {
    using R = Result<std::vector<uint8_t>>;
    if (boot.size() > size || (firmware.empty() ? false : boot.size() > fw_offset))
        return R::fail("boot code of " + std::to_string(boot.size()) + " bytes does not fit before the firmware");
    if (!firmware.empty() && (fw_offset > size || firmware.size() > size - fw_offset))
        return R::fail("firmware of " + std::to_string(firmware.size()) + " bytes does not fit in the image");
    std::vector<uint8_t> out(size, 0xFF);
    std::copy(boot.begin(), boot.end(), out.begin());
    std::copy(firmware.begin(), firmware.end(), out.begin() + static_cast<std::ptrdiff_t>(fw_offset));
    return out;
}

Result<std::vector<uint8_t>> build_boot_chain(const ChipInfo &chip, const BootChainSpec &s) {
    std::vector<RomImageSpec> specs;
    auto base = [&](CodeType t, std::pair<uint8_t, uint8_t> v) {
        RomImageSpec r;
        r.type = t;
        r.major = v.first;
        r.minor = v.second;
        r.device_id = chip.device_id;
        r.hw_type = s.hw_type ? *s.hw_type : std::string(chip.name.substr(3, 4));
        r.chip_code = s.chip_code ? *s.chip_code : chip.bios_chip_code;
        r.param_bytes = param_block_bytes(chip);
        r.common = s.common_bios;
        r.model = s.model;
        r.ssvid = s.ssvid;
        return r;
    };
    if (s.bios) specs.push_back(base(CodeType::bios, *s.bios));
    if (s.fcode) specs.push_back(base(CodeType::fcode, *s.fcode));
    if (s.efi) specs.push_back(base(CodeType::efi, *s.efi));
    if (specs.empty()) return std::vector<uint8_t>{};
    return build_option_rom(specs);
}

}  // namespace vxemu

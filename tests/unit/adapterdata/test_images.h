// SPDX-License-Identifier: MIT
// Builders of option ROM chains and VPD blocks for the adapter data tests.
#ifndef ADAPTERDATA_TEST_IMAGES_H
#define ADAPTERDATA_TEST_IMAGES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace testimg {

inline constexpr std::size_t kPcirAt = 0x40;

struct Rom {
    uint8_t code_type = 0;
    uint16_t device_id = 0x1600;
    uint8_t blocks = 4;  // 512-byte units
    bool last = false;
    uint16_t revision = 0x0102;
    std::optional<uint16_t> ssvid{};        // "SSVID" label ending at 31, value at 32..33
    std::optional<std::size_t> marker_at{};  // "MEFCX " and a block after it
    uint8_t fill = 0x11;                    // body bytes (and the parameter block)
};

inline uint8_t rom_sum(const std::vector<uint8_t> &b, std::size_t off, std::size_t len) {
    uint8_t s = 0;
    for (std::size_t i = 0; i + 2 < len; ++i) s = static_cast<uint8_t>(s + b[off + i]);
    return s;
}

// True when the image at `off` is sealed: bytes 0..L-3 plus byte L-1 sum to 0.
inline bool sealed(const std::vector<uint8_t> &b, std::size_t off) {
    const std::size_t len = std::size_t{b[off + 2]} * 512;
    return static_cast<uint8_t>(rom_sum(b, off, len) + b[off + len - 1]) == 0;
}

inline std::vector<uint8_t> rom(const Rom &r) {
    std::vector<uint8_t> b(std::size_t{r.blocks} * 512, r.fill);
    b[0] = 0x55;
    b[1] = 0xAA;
    b[2] = r.blocks;
    b[24] = kPcirAt;
    b[25] = 0;
    if (r.ssvid) {
        std::memcpy(&b[27], "SSVID", 5);
        b[32] = static_cast<uint8_t>(*r.ssvid);
        b[33] = static_cast<uint8_t>(*r.ssvid >> 8);
    }
    uint8_t *p = &b[kPcirAt];
    std::memset(p, 0, 0x18);
    std::memcpy(p, "PCIR", 4);
    p[4] = 0xE5;
    p[5] = 0x1D;
    p[6] = static_cast<uint8_t>(r.device_id);
    p[7] = static_cast<uint8_t>(r.device_id >> 8);
    p[0x0A] = 0x18;
    p[0x10] = r.blocks;
    p[0x12] = static_cast<uint8_t>(r.revision);
    p[0x13] = static_cast<uint8_t>(r.revision >> 8);
    p[0x14] = r.code_type;
    p[0x15] = r.last ? 0x80 : 0x00;
    if (r.marker_at) std::memcpy(&b[*r.marker_at], "MEFCX ", 6);
    b[b.size() - 1] = static_cast<uint8_t>(0x100 - rom_sum(b, 0, b.size()));
    return b;
}

inline std::vector<uint8_t> chain(std::initializer_list<Rom> roms, std::size_t pad_to = 0) {
    std::vector<uint8_t> out;
    for (const Rom &r : roms) {
        const auto one = rom(r);
        out.insert(out.end(), one.begin(), one.end());
    }
    if (out.size() < pad_to) out.resize(pad_to, 0xFF);
    return out;
}

struct Field {
    std::string keyword;
    std::string data;
};

// A 512-byte VPD block: identifier, read-only fields then "RV" (checksum byte
// and `rv_reserved` zero bytes), read-write fields, end tag, zero fill.
inline std::vector<uint8_t> vpd(const std::string &ident, const std::vector<Field> &ro, const std::vector<Field> &rw,
                                std::size_t rv_reserved = 3) {
    std::vector<uint8_t> b;
    auto put_fields = [&](const std::vector<Field> &fields) {
        for (const auto &f : fields) {
            b.push_back(static_cast<uint8_t>(f.keyword[0]));
            b.push_back(static_cast<uint8_t>(f.keyword[1]));
            b.push_back(static_cast<uint8_t>(f.data.size()));
            b.insert(b.end(), f.data.begin(), f.data.end());
        }
    };
    auto put_len = [&](std::size_t at, std::size_t len) {
        b[at] = static_cast<uint8_t>(len);
        b[at + 1] = static_cast<uint8_t>(len >> 8);
    };
    b.push_back(0x82);
    b.push_back(0);
    b.push_back(0);
    b.insert(b.end(), ident.begin(), ident.end());
    put_len(1, ident.size());
    const std::size_t ro_hdr = b.size();
    b.insert(b.end(), {0x90, 0, 0});
    put_fields(ro);
    b.insert(b.end(), {'R', 'V', static_cast<uint8_t>(1 + rv_reserved)});
    const std::size_t rv = b.size();
    b.push_back(0);
    b.insert(b.end(), rv_reserved, 0);
    put_len(ro_hdr + 1, b.size() - ro_hdr - 3);
    if (!rw.empty()) {
        const std::size_t rw_hdr = b.size();
        b.insert(b.end(), {0x91, 0, 0});
        put_fields(rw);
        put_len(rw_hdr + 1, b.size() - rw_hdr - 3);
    }
    b.push_back(0x78);
    b.resize(512, 0);
    uint8_t s = 0;
    for (std::size_t i = 0; i < rv; ++i) s = static_cast<uint8_t>(s + b[i]);
    b[rv] = static_cast<uint8_t>(0x100 - s);
    return b;
}

// Offset of the first occurrence of `text` in `b`, or npos.
inline std::size_t find(const std::vector<uint8_t> &b, const std::string &text) {
    const std::string s(b.begin(), b.end());
    return s.find(text);
}

}  // namespace testimg

#endif  // ADAPTERDATA_TEST_IMAGES_H

// SPDX-License-Identifier: MIT
#include "flash_layout.h"

#include <initializer_list>

#include "chipdata.h"

namespace vxemu {
namespace {

struct Row {
    uint32_t region;
    uint32_t size;
    uint32_t beg;
};

FlashLayout make_layout(std::initializer_list<Row> rows, uint32_t sector_size, bool reported) {
    FlashLayout l;
    l.sector_size = sector_size;
    l.reported_by_adapter = reported;
    for (const Row &r : rows) {
        l.regions.push_back(FlashRegion{r.region, r.size, r.beg, r.beg + r.size - 1});
        if ((r.region & kRegionCodeMask) == kRegionAll && l.size == 0) l.size = r.size;
    }
    return l;
}

FlashLayout fcx160_table(uint32_t sector_size, bool reported) {
    return make_layout({{0xFF, 0x100000, 0x0},
                        {0x07, 0x80000, 0x0},
                        {0x01, 0x80000, 0x80000},
                        {0x08, 0x10000, 0x120000},
                        {0x13, 0x20000, 0x100000},
                        {0x14, 0x200, 0x120000},
                        {0x15, 0x200, 0x120200},
                        {0x16, 0x200, 0x120400},
                        {0x17, 0x200, 0x120600},
                        {0x2B, 0x8000, 0x148000},
                        {0x29, 0x4000, 0x170000},
                        {0x2A, 0x4000, 0x174000}},
                       sector_size, reported);
}

// FCX180 keeps the FCX160 places for boot code, firmware and the per-function
// blocks so that both chips share one flash plan; the extra regions sit in
// the second MiB. Firmware and the 0x40/0x41/0x45 regions need activation
// after a write; 0x46/0x47 hold factory data and are read-only.
FlashLayout fcx180_table() {
    return make_layout({{0xFF, 0x200000, 0x0},
                        {0x07, 0x80000, 0x0},
                        {0x01 | kRegionActivateA, 0x80000, 0x80000},
                        {0x40 | kRegionActivateB, 0x10000, 0x100000},
                        {0x41 | kRegionActivateB, 0x10000, 0x110000},
                        {0x14, 0x200, 0x120000},
                        {0x15, 0x200, 0x120200},
                        {0x16, 0x200, 0x120400},
                        {0x17, 0x200, 0x120600},
                        {0x45 | kRegionActivateB, 0x10000, 0x130000},
                        {0x46 | kRegionReadOnly, 0x10000, 0x140000},
                        {0x47 | kRegionReadOnly, 0x10000, 0x150000}},
                       0x10000, true);
}

bool oem_table7(uint16_t ss_vendor, uint16_t ss_device) {
    if (ss_vendor == kOemVendorId)
        return ss_device == 0x12BA || ss_device == 0x12C2 || ss_device == 0x12C7 || ss_device == 0x12C9;
    return ss_vendor == kMakerVendorId && ss_device == 0x0131;
}

void put_le32(std::vector<uint8_t> &out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t get_le32(const std::vector<uint8_t> &in, size_t off) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | in[off + static_cast<size_t>(i)];
    return v;
}

}  // namespace

std::optional<FlashRegion> FlashLayout::find(uint32_t code) const {
    for (const auto &r : regions)
        if (r.code() == code) return r;
    return std::nullopt;
}

FlashLayout fixed_layout(std::string_view chip, uint16_t ss_vendor, uint16_t ss_device) {
    if (chip == "FCX160") return fcx160_table(0, false);
    if (chip == "FCX140" || chip == "FCX141" || chip == "FCX144" || chip == "FCX145" || chip == "FCX150")
        return make_layout(
            {{0xFF, 0x100000, 0}, {0x07, 0x40000, 0}, {0x29, 0x4000, 0x58000}, {0x2A, 0x4000, 0x5C000}, {0x01, 0x80000, 0x80000}},
            0, false);
    if (chip == "FCX127") return make_layout({{0xFF, 0x100000, 0}, {0x06, 0x100000, 0}}, 0, false);
    if (chip == "FCX126") return make_layout({{0xFF, 0x20000, 0}, {0x04, 0x20000, 0}}, 0, false);
    if (chip == "FCX123") return make_layout({{0xFF, 0x100000, 0}, {0x05, 0x100000, 0}}, 0, false);
    if (oem_table7(ss_vendor, ss_device)) return make_layout({{0xFF, 0x20000, 0}, {0x03, 0x20000, 0}}, 0, false);
    return make_layout({{0xFF, 0x20000, 0}, {0x02, 0x20000, 0}}, 0, false);
}

std::optional<FlashLayout> adapter_layout(std::string_view chip) {
    if (chip == "FCX160") return fcx160_table(0x10000, true);
    if (chip == "FCX180") return fcx180_table();
    return std::nullopt;
}

FlashLayout default_layout(std::string_view chip, uint16_t ss_vendor, uint16_t ss_device) {
    if (auto own = adapter_layout(chip)) return *own;
    return fixed_layout(chip, ss_vendor, ss_device);
}

std::vector<uint8_t> encode_layout(const FlashLayout &layout, size_t capacity) {
    std::vector<uint8_t> out;
    if (capacity < 8) return out;
    const size_t fit = (capacity - 8) / 16;
    const size_t n = layout.regions.size() < fit ? layout.regions.size() : fit;
    put_le32(out, layout.size);
    put_le32(out, static_cast<uint32_t>(n));
    for (size_t i = 0; i < n; ++i) {
        const auto &r = layout.regions[i];
        put_le32(out, r.region);
        put_le32(out, r.size);
        put_le32(out, r.beg);
        put_le32(out, r.end);
    }
    return out;
}

std::optional<FlashLayout> decode_layout(const std::vector<uint8_t> &bytes) {
    if (bytes.size() < 8) return std::nullopt;
    FlashLayout l;
    l.size = get_le32(bytes, 0);
    const uint32_t count = get_le32(bytes, 4);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t off = 8 + size_t{i} * 16;
        if (off + 16 > bytes.size()) return std::nullopt;
        FlashRegion r{get_le32(bytes, off), get_le32(bytes, off + 4), get_le32(bytes, off + 8), get_le32(bytes, off + 12)};
        if (r.size == 0) break;
        if (r.end < r.beg || uint64_t{r.beg} + r.size - 1 != r.end) return std::nullopt;
        l.regions.push_back(r);
    }
    return l;
}

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// Bounds-checked little- and big-endian readers over image buffers. Every
// read answers "not there" on a short buffer instead of reading past it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

class ByteView {
public:
    explicit ByteView(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t size() const { return bytes_.size(); }
    bool has(uint64_t off, uint64_t len) const { return off <= bytes_.size() && len <= bytes_.size() - off; }

    std::optional<uint8_t> u8(uint64_t off) const {
        if (!has(off, 1)) return std::nullopt;
        return bytes_[off];
    }
    std::optional<uint16_t> le16(uint64_t off) const {
        if (!has(off, 2)) return std::nullopt;
        return static_cast<uint16_t>(bytes_[off] | (bytes_[off + 1] << 8));
    }
    std::optional<uint32_t> le32(uint64_t off) const {
        if (!has(off, 4)) return std::nullopt;
        return static_cast<uint32_t>(bytes_[off]) | (static_cast<uint32_t>(bytes_[off + 1]) << 8) |
               (static_cast<uint32_t>(bytes_[off + 2]) << 16) | (static_cast<uint32_t>(bytes_[off + 3]) << 24);
    }
    std::optional<uint32_t> be32(uint64_t off) const {
        if (!has(off, 4)) return std::nullopt;
        return (static_cast<uint32_t>(bytes_[off]) << 24) | (static_cast<uint32_t>(bytes_[off + 1]) << 16) |
               (static_cast<uint32_t>(bytes_[off + 2]) << 8) | static_cast<uint32_t>(bytes_[off + 3]);
    }

private:
    std::span<const uint8_t> bytes_;
};

// SPDX-License-Identifier: MIT
#include "journal_record.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr char kMagic[8] = {'F', 'W', 'J', 'R', 'N', 'L', '0', '1'};
constexpr size_t kOffLength = 8, kOffCrc = 12, kOffWwn = 16, kOffSerial = 24, kOffImage = 56, kOffFlashSize = 312,
                 kOffVpdSize = 316;
constexpr size_t kSerialField = 32, kImageField = 256;

void put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}
uint32_t get32(std::span<const uint8_t> b, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | b[at + static_cast<size_t>(i)];
    return v;
}
void put_text(std::vector<uint8_t> &b, size_t at, size_t field, const std::string &text) {
    const size_t n = std::min(text.size(), field - 1);
    std::memcpy(b.data() + at, text.data(), n);
}
// A text field always ends within its bytes: one that does not was not
// written by this tool.
std::optional<std::string> get_text(std::span<const uint8_t> b, size_t at, size_t field) {
    size_t n = 0;
    while (n < field && b[at + n] != 0) ++n;
    if (n == field) return std::nullopt;
    return std::string(reinterpret_cast<const char *>(b.data() + at), n);
}

}  // namespace

uint32_t JournalCrc32(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFFU;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320U & (0U - (crc & 1U)));
    }
    return ~crc;
}

std::vector<uint8_t> EncodeJournalRecord(const JournalRecord &record) {
    std::vector<uint8_t> b(kJournalHeaderSize + record.flash.size() + record.vpd.size(), 0);
    std::memcpy(b.data(), kMagic, sizeof kMagic);
    put32(b, kOffLength, static_cast<uint32_t>(b.size()));
    std::memcpy(b.data() + kOffWwn, record.portWwn.data(), 8);
    put_text(b, kOffSerial, kSerialField, record.serial);
    put_text(b, kOffImage, kImageField, record.imageFile);
    put32(b, kOffFlashSize, static_cast<uint32_t>(record.flash.size()));
    put32(b, kOffVpdSize, static_cast<uint32_t>(record.vpd.size()));
    std::copy(record.flash.begin(), record.flash.end(), b.begin() + kJournalHeaderSize);
    std::copy(record.vpd.begin(), record.vpd.end(),
              b.begin() + static_cast<std::ptrdiff_t>(kJournalHeaderSize + record.flash.size()));
    put32(b, kOffCrc, JournalCrc32(std::span<const uint8_t>(b).subspan(16)));
    return b;
}

std::optional<JournalRecord> DecodeJournalRecord(std::span<const uint8_t> bytes) {
    if (bytes.size() < kJournalHeaderSize || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) return std::nullopt;
    if (get32(bytes, kOffLength) != bytes.size()) return std::nullopt;
    const uint64_t flash = get32(bytes, kOffFlashSize), vpd = get32(bytes, kOffVpdSize);
    if (flash > kJournalMaxFlash || vpd > kJournalMaxVpd || kJournalHeaderSize + flash + vpd != bytes.size())
        return std::nullopt;
    if (get32(bytes, kOffCrc) != JournalCrc32(bytes.subspan(16))) return std::nullopt;
    auto serial = get_text(bytes, kOffSerial, kSerialField), image = get_text(bytes, kOffImage, kImageField);
    if (!serial || !image) return std::nullopt;
    JournalRecord r;
    std::memcpy(r.portWwn.data(), bytes.data() + kOffWwn, 8);
    r.serial = std::move(*serial);
    r.imageFile = std::move(*image);
    r.flash.assign(bytes.begin() + kJournalHeaderSize, bytes.begin() + static_cast<std::ptrdiff_t>(kJournalHeaderSize + flash));
    r.vpd.assign(bytes.begin() + static_cast<std::ptrdiff_t>(kJournalHeaderSize + flash), bytes.end());
    return r;
}

std::string JournalFileName(const std::array<uint8_t, 8> &portWwn) {
    std::string name = "wwpn-";
    char hex[3];
    for (uint8_t b : portWwn) {
        std::snprintf(hex, sizeof hex, "%02x", b);
        name += hex;
    }
    return name;
}

// SPDX-License-Identifier: MIT
// The update journal's record: what the tool saved of one adapter before its
// first write, so that an update cut short (power lost, process killed) can be
// repeated from the adapter's own data instead of from a half-written flash.
//
// A record is keyed by the port WWN of the port the update writes through
// (the first, or on four-port boards the third, port of the adapter): it is
// printed on the board, survives a flash rewrite and names one flash.
//
// Layout (little-endian, no padding), written and read byte by byte:
//   0   magic "FWJRNL01"                      8 bytes
//   8   length of the whole record            u32
//   12  CRC-32 of bytes 16..length-1          u32
//   16  port WWN                              8 bytes
//   24  serial number, zero-terminated        32 bytes
//   56  image file the update was writing     256 bytes, zero-terminated
//   312 flash bytes saved (F)                 u32
//   316 VPD bytes saved (V)                   u32
//   320 the flash from offset 0 (region 0xFF) F bytes: boot code with the
//                                             parameter block and "SSVID"
//                                             bytes, on older chips the VPD image
//   320+F the VPD block                       V bytes
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct JournalRecord {
    std::array<uint8_t, 8> portWwn{};
    std::string serial;      // at most 31 characters kept
    std::string imageFile;   // at most 255 characters kept
    std::vector<uint8_t> flash;
    std::vector<uint8_t> vpd;
};

inline constexpr size_t kJournalHeaderSize = 320;
inline constexpr size_t kJournalMaxFlash = 0x200000;  // the largest flash of any chip
inline constexpr size_t kJournalMaxVpd = 0x1000;

[[nodiscard]] std::vector<uint8_t> EncodeJournalRecord(const JournalRecord &record);
// nullopt for anything that is not a whole, intact record.
[[nodiscard]] std::optional<JournalRecord> DecodeJournalRecord(std::span<const uint8_t> bytes);
// "wwpn-" and the port WWN in 16 lower-case hex digits.
[[nodiscard]] std::string JournalFileName(const std::array<uint8_t, 8> &portWwn);
[[nodiscard]] uint32_t JournalCrc32(std::span<const uint8_t> bytes);

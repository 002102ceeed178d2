// SPDX-License-Identifier: MIT
// Vital product data fields: the walk that finds one field of a 512-byte VPD
// buffer, the rendering of a field as text, and the checks on a VPD image.
// Pure functions over buffers; the adapter read is the caller's.
#ifndef FW_VPD_FIELDS_H
#define FW_VPD_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <span>

// Receives one trace line; null sends the traces to the agent log channel.
using VpdTraceSink = void (*)(const char *line);

inline constexpr std::size_t kVpdBufferSize = 512;
inline constexpr uint32_t kVpdReadError = 0x2000008A;

// Renders one field as text into `output` (never more than output.size()
// bytes, terminated when there is room). `field` starts at the field's tag
// or keyword; `data` holds its `length` data bytes (fewer when cut short).
//   0x82 identifier, "PN" "EC" "SN" "V0" "V2" "MN" "YA": the characters;
//   "V1" "V3" "V4" "V5": the characters without leading and trailing blanks;
//   "FC" "FN": the characters with every blank removed;
//   "RV" "RW": the first data byte as two upper-case hex digits;
//   anything else: output left as it was.
// Returns output.data().
char *GetVPDDataField(std::span<const uint8_t> field, std::span<const uint8_t> data, std::size_t length,
                      std::span<char> output);

// The field walk over a VPD buffer: 0x2000008A unless the buffer starts with
// 0x82; otherwise 0, with the first field whose keyword begins with the
// keyword's first character copied into `output` (as many characters as the
// field is long, zero-padded when the text is shorter, not terminated when it
// is as long; never more than output.size()). Not found, or a field running
// past the buffer: 0 and `output` untouched. At most 512 steps.
uint32_t RetrieveVPDFieldFromBuffer(std::span<const uint8_t> buffer, const char *keyword, std::span<char> output,
                                    VpdTraceSink trace = nullptr);

struct Adapter;

// The adapter's field by keyword: reads 512 bytes of VPD through the library
// (HmGetVpd on the adapter's handle) and walks them as
// RetrieveVPDFieldFromBuffer does. 0x2000008A when there is no adapter or the
// read fails; otherwise that walk's result.
uint32_t RetrieveSpecificVPDField(const Adapter *adapter, const char *keyword, std::span<char> output,
                                  VpdTraceSink trace = nullptr);

// 0 when a byte 0x82 occurs within the buffer, else 1.
int verifyVpdStartTag(std::span<const uint8_t> buffer);
// 0 when a byte 0x78 occurs within the buffer, else 2.
int verifyVpdEndTag(std::span<const uint8_t> buffer);
// 1 when every byte is 0xFF or every byte is 0x00, else 0.
int IsBlankVpd(std::span<const uint8_t> buffer, VpdTraceSink trace = nullptr);
// 161 without an end tag or an "RV" keyword (and its checksum byte) in the
// buffer; otherwise 0 when the bytes from the start through the "RV" checksum
// byte sum to 0 modulo 256, else 162.
int verifyVpdChecksum(std::span<const uint8_t> buffer, VpdTraceSink trace = nullptr);

#endif  // FW_VPD_FIELDS_H

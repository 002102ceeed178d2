// SPDX-License-Identifier: MIT
// The update journal's record as found on disk: a record that decodes is
// written again and decodes to the same adapter data, and its file name is
// always the 21 characters the journal directory expects. Each input is
// tried as it is and once more with its length and CRC made right, so the
// fuzzer reaches the fields behind the checksum.
#include <cstdlib>
#include <vector>

#include "journal_record.h"

namespace {

void check(std::span<const uint8_t> input) {
    const auto record = DecodeJournalRecord(input);
    if (!record) return;
    if (record->flash.size() > kJournalMaxFlash || record->vpd.size() > kJournalMaxVpd) std::abort();
    const std::vector<uint8_t> bytes = EncodeJournalRecord(*record);
    if (bytes.size() != input.size()) std::abort();
    const auto again = DecodeJournalRecord(bytes);
    if (!again || again->portWwn != record->portWwn || again->serial != record->serial ||
        again->imageFile != record->imageFile || again->flash != record->flash || again->vpd != record->vpd)
        std::abort();
    if (JournalFileName(record->portWwn).size() != 21) std::abort();
}

void put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    check(std::span<const uint8_t>(data, size));
    if (size < 16) return 0;
    std::vector<uint8_t> sealed(data, data + size);
    put32(sealed, 8, static_cast<uint32_t>(size));
    put32(sealed, 12, JournalCrc32(std::span<const uint8_t>(sealed).subspan(16)));
    check(sealed);
    return 0;
}

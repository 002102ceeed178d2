// SPDX-License-Identifier: MIT
// VPD field walk, field rendering and VPD image checks.
#include "vpd_fields.h"

#include "messages.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr uint8_t kTagIdString = 0x82;
constexpr uint8_t kTagReadOnly = 0x90;
constexpr uint8_t kTagReadWrite = 0x91;
constexpr uint8_t kTagEnd = 0x78;
constexpr std::size_t kMaxSteps = 512;

enum class Render { Text, Trimmed, NoBlanks, HexByte, Nothing };

struct KeywordRule {
    std::string_view keyword;
    Render render;
};

constexpr std::array kRules{
    KeywordRule{"PN", Render::Text},    KeywordRule{"EC", Render::Text},     KeywordRule{"SN", Render::Text},
    KeywordRule{"V0", Render::Text},    KeywordRule{"V2", Render::Text},     KeywordRule{"MN", Render::Text},
    KeywordRule{"YA", Render::Text},    KeywordRule{"V1", Render::Trimmed},  KeywordRule{"V3", Render::Trimmed},
    KeywordRule{"V4", Render::Trimmed}, KeywordRule{"V5", Render::Trimmed},  KeywordRule{"FC", Render::NoBlanks},
    KeywordRule{"FN", Render::NoBlanks}, KeywordRule{"RV", Render::HexByte}, KeywordRule{"RW", Render::HexByte},
};

Render rule_for(std::span<const uint8_t> field) {
    if (!field.empty() && field[0] == kTagIdString) return Render::Text;
    if (field.size() < 2) return Render::Nothing;
    for (const auto &r : kRules)
        if (field[0] == static_cast<uint8_t>(r.keyword[0]) && field[1] == static_cast<uint8_t>(r.keyword[1]))
            return r.render;
    return Render::Nothing;
}

// Traces go to the caller's sink when given, else to the agent channel.
[[gnu::format(printf, 2, 3)]] void trace_line(VpdTraceSink sink, const char *fmt, ...) {
    char line[256];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    if (sink != nullptr)
        sink(line);
    else
        FwTrace("%s", line);
}

// Copies the text of the data bytes (a zero byte ends it) into `out`,
// terminated; returns its length.
std::size_t copy_text(std::span<const uint8_t> data, std::size_t length, std::span<char> out) {
    const std::size_t avail = std::min(length, data.size());
    std::size_t n = 0;
    while (n < avail && n + 1 < out.size() && data[n] != 0) {
        out[n] = static_cast<char>(data[n]);
        ++n;
    }
    out[n] = '\0';
    return n;
}

}  // namespace

char *GetVPDDataField(std::span<const uint8_t> field, std::span<const uint8_t> data, std::size_t length,
                      std::span<char> output) {
    if (output.empty()) return output.data();
    switch (rule_for(field)) {
    case Render::Text:
        copy_text(data, length, output);
        break;
    case Render::Trimmed: {
        std::size_t n = copy_text(data, length, output);
        while (n > 0 && output[n - 1] == ' ') output[--n] = '\0';
        std::size_t lead = 0;
        while (lead < n && output[lead] == ' ') ++lead;
        std::memmove(output.data(), output.data() + lead, n - lead + 1);
        break;
    }
    case Render::NoBlanks: {
        const std::size_t n = copy_text(data, length, output);
        std::size_t w = 0;
        for (std::size_t r = 0; r < n; ++r)
            if (output[r] != ' ') output[w++] = output[r];
        output[w] = '\0';
        break;
    }
    case Render::HexByte:
        if (length >= 1 && !data.empty()) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02X", data[0]);
            const std::size_t n = std::min<std::size_t>(2, output.size() - 1);
            std::memcpy(output.data(), hex, n);
            output[n] = '\0';
        }
        break;
    case Render::Nothing:
        break;
    }
    return output.data();
}

uint32_t RetrieveVPDFieldFromBuffer(std::span<const uint8_t> buffer, const char *keyword, std::span<char> output,
                                    VpdTraceSink trace) {
    if (buffer.size() >= 4)
        trace_line(trace, "RetrieveSpecificVPDField: pVPDBuffer [0]=0x%x [1]=0x%x [2]=0x%x [3]=0x%x", buffer[0],
                   buffer[1], buffer[2], buffer[3]);
    if (buffer.empty() || buffer[0] != kTagIdString) return kVpdReadError;
    if (keyword == nullptr || keyword[0] == '\0') return 0;

    std::size_t pos = 0;
    std::size_t len = 0;  // length of the field before: a zero byte steps by it again
    for (std::size_t step = 0; step < kMaxSteps && pos < buffer.size(); ++step) {
        const uint8_t b = buffer[pos];
        if (b == kTagEnd) return 0;
        if (b == kTagReadOnly || b == kTagReadWrite) {
            pos += 3;
            continue;
        }
        if (b == 0) {
            pos += len + 3;
            continue;
        }
        if (pos + 2 >= buffer.size()) return 0;
        if (b == kTagIdString) {
            len = std::size_t{buffer[pos + 1]} | std::size_t{buffer[pos + 2]} << 8;
            pos += len + 3;
            continue;
        }
        len = buffer[pos + 2];
        if (b != static_cast<uint8_t>(keyword[0])) {
            pos += len + 3;
            continue;
        }
        // Found: only the first character is compared, so the first field
        // whose keyword starts with it wins.
        if (len > buffer.size() - (pos + 3)) return 0;
        trace_line(trace, "RetrieveSpecificVPDField: Len Value=%zu Opcode=%s", len, keyword);
        std::array<char, kVpdBufferSize> text{};
        GetVPDDataField(buffer.subspan(pos, 2), buffer.subspan(pos + 3, len), len, text);
        text[len] = '\0';
        // strncpy-like: the field's length in characters, zero-padded after a
        // shorter text, unterminated when the text fills it.
        const std::size_t n = std::min(len, output.size());
        const std::size_t t = std::min(std::strlen(text.data()), n);
        if (t > 0) std::memcpy(output.data(), text.data(), t);  // an empty output may have no storage at all
        std::fill(output.begin() + static_cast<std::ptrdiff_t>(t), output.begin() + static_cast<std::ptrdiff_t>(n),
                  '\0');
        return 0;
    }
    return 0;
}

int verifyVpdStartTag(std::span<const uint8_t> buffer) {
    return std::find(buffer.begin(), buffer.end(), kTagIdString) != buffer.end() ? 0 : 1;
}

int verifyVpdEndTag(std::span<const uint8_t> buffer) {
    return std::find(buffer.begin(), buffer.end(), kTagEnd) != buffer.end() ? 0 : 2;
}

int IsBlankVpd(std::span<const uint8_t> buffer, VpdTraceSink trace) {
    trace_line(trace, "IsBlankVpd: Enter");
    const bool blank = std::all_of(buffer.begin(), buffer.end(), [](uint8_t b) { return b == 0xFF; }) ||
                       std::all_of(buffer.begin(), buffer.end(), [](uint8_t b) { return b == 0x00; });
    trace_line(trace, "IsBlankVpd: Exit, bVpdIsBlank=%d", blank ? 1 : 0);
    return blank ? 1 : 0;
}

int verifyVpdChecksum(std::span<const uint8_t> buffer, VpdTraceSink trace) {
    if (verifyVpdEndTag(buffer) != 0) {
        trace_line(trace, "verifyVpdChecksum: No end tag found");
        return 161;
    }
    std::size_t rv = buffer.size();
    for (std::size_t i = 0; i + 3 < buffer.size(); ++i) {
        if (buffer[i] == 'R' && buffer[i + 1] == 'V') {
            rv = i;
            break;
        }
    }
    if (rv == buffer.size()) {
        trace_line(trace, "verifyVpdChecksum: no checksum tag found");
        return 161;
    }
    uint8_t sum = 0;
    for (std::size_t i = 0; i <= rv + 3; ++i) sum = static_cast<uint8_t>(sum + buffer[i]);
    if (sum != 0) {
        trace_line(trace, "verifyVpdChecksum: checksum verification failed, chk_sum= %d", sum);
        return 162;
    }
    return 0;
}

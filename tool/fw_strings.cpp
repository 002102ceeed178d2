// SPDX-License-Identifier: MIT
#include "fw_strings.h"

#include <cctype>
#include <cstring>

namespace {
bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
}  // namespace

int striscmp(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return -1;
    const size_t len = std::strlen(a);
    if (len == 0 || len != std::strlen(b)) return -1;
    for (size_t i = 0; i < len; ++i) {
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
            return -1;
    }
    return 0;
}

char *RightTrim(char *text) {
    if (text == nullptr) return text;
    size_t len = std::strlen(text);
    while (len > 0 && is_space(text[len - 1])) text[--len] = '\0';
    return text;
}

char *StripEndWhiteSpace(char *text) { return RightTrim(text); }

char *Trim(char *text) {
    if (text == nullptr) return text;
    size_t start = 0;
    while (text[start] != '\0' && is_space(text[start])) ++start;
    if (start > 0) std::memmove(text, text + start, std::strlen(text + start) + 1);
    return RightTrim(text);
}

char *CleanStr(char *text) {
    if (text == nullptr) return text;
    size_t out = 0;
    for (size_t in = 0; text[in] != '\0'; ++in) {
        const char c = text[in];
        if (std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.') text[out++] = c;
    }
    text[out] = '\0';
    return text;
}

std::string_view right(std::string_view text, size_t count) {
    if (count >= text.size()) return text;
    return text.substr(text.size() - count);
}

void CopyText(char *dst, size_t size, std::string_view src) {
    if (dst == nullptr || size == 0) return;
    const size_t n = src.size() < size - 1 ? src.size() : size - 1;
    if (n > 0) std::memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

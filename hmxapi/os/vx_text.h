// SPDX-License-Identifier: MIT
// Text into the fixed-size fields of the library's records.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

// Bounded copy of a text into a fixed-size field, always NUL-terminated.
inline void copy_text(char *dst, std::size_t cap, std::string_view src) {
    if (cap == 0) return;
    const std::size_t n = src.size() < cap - 1 ? src.size() : cap - 1;
    std::memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

// SPDX-License-Identifier: MIT
// Checks shared by the targets of text files: fixed-size fields stay
// terminated, and a list's count agrees with its links.
#pragma once

#include <cstdlib>
#include <cstring>

namespace fuzz {

template <size_t N>
void expect_terminated(const char (&field)[N]) {
    if (std::memchr(field, '\0', N) == nullptr) std::abort();
}

template <typename List>
void expect_consistent(const List &list) {
    uint32_t n = 0;
    const auto *last = list.first;
    for (const auto *e = list.first; e != nullptr; e = e->next, ++n) last = e;
    if (n != list.count || last != list.last) std::abort();
}

}  // namespace fuzz

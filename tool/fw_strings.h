// SPDX-License-Identifier: MIT
// Small string routines shared by the front end. They work in place on
// zero-terminated texts and never write past the terminator they find.
#pragma once

#include <cstddef>
#include <string_view>

// 0 when both texts are non-null, non-empty, of equal length and equal after
// upper-casing; -1 otherwise (two empty texts are not equal).
int striscmp(const char *a, const char *b);

// Removes leading and trailing white space in place; returns `text`.
char *Trim(char *text);
// Removes trailing white space in place; returns `text`.
char *RightTrim(char *text);
// Same as RightTrim, kept under the name the listings use.
char *StripEndWhiteSpace(char *text);
// Keeps only the digits and points of a version text, in place.
char *CleanStr(char *text);
// The last `count` characters of `text` (all of it when it is shorter).
std::string_view right(std::string_view text, size_t count);

// Copies at most size - 1 characters of `src` into `dst` and terminates it.
void CopyText(char *dst, size_t size, std::string_view src);
template <size_t N>
void CopyText(char (&dst)[N], std::string_view src) {
    CopyText(dst, N, src);
}

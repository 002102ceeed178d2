// SPDX-License-Identifier: MIT
// Files vxemu reads and writes as root: the inputs of a host description,
// read with a size bound, and the state directory, which must be ours alone
// (another user who could plant a link there would have root write through
// it), with every file replaced by a private temporary name and a rename.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "imagekit.h"

namespace vxemu {

// Reads a whole input file (a pipe or device too) of at most `max` bytes;
// the error names the file.
[[nodiscard]] Result<std::vector<uint8_t>> read_bounded(const std::filesystem::path &p, size_t max);

// The state directory and every directory above it: owned by root or by us,
// and writable by nobody else unless it is sticky like /tmp; the state
// directory itself must be ours and writable by nobody else.
[[nodiscard]] Status check_state_dir(const std::filesystem::path &dir);

// A state file: a regular file (never followed through a link) of exactly
// `size` bytes.
[[nodiscard]] Result<std::vector<uint8_t>> read_state_file(const std::filesystem::path &p, size_t size);

// Writes `bytes` to a fresh private name beside `p` (O_EXCL) and renames it
// over `p`, so nothing already at `p`, a link included, is written through.
[[nodiscard]] Status write_state_file(const std::filesystem::path &p, std::span<const uint8_t> bytes);

// Creates an empty file at `p` the same way and returns its open descriptor
// for writing (-1 and errno on failure).
[[nodiscard]] int create_state_file(const std::filesystem::path &p);

}  // namespace vxemu

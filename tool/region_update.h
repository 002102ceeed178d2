// SPDX-License-Identifier: MIT
// Writing an image file to one adapter port: the dispatch by adapter class,
// the region update of the 4/8 Gb chips and the whole-image update of the
// older ones. The adapter is reached only through the library's public calls.
#pragma once

#include <cstdint>
#include <span>

#include "core.h"

// 0 written; 2 another port of the adapter carries the write (counted as
// done); 3 not on this operating system; 4 adapter not supported; 5 unknown
// adapter class; 6 single-BIOS-chip board; -1 no adapter; or the code of the
// request, the standard BIOS update or the region update.
int updateOptionROMSingleHBA(const HMXDevice *device, const char *file);
// 0 or -1, a file-size status, or 1 when the file cannot be opened.
int OptionROMRegionUpdate(const HMXDevice *device, const char *file);
int DoStdBiosUpdate(const HMXDevice *device, const char *file);
// The adapter's defaults from `current` into `image` (8 Gb chip only: -1
// for any other).
int PreserveFlashDefaultArea(const HMXDevice *device, std::span<const uint8_t> current, std::span<uint8_t> image);
// Size of a regular file; 0 or a non-zero status (the file cannot be
// opened, is no regular file, or is larger than 2 GiB).
int getFileSize(const char *path, int32_t *size);

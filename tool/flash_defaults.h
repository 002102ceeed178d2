// SPDX-License-Identifier: MIT
// The adapter's own default area (subsystem vendor ID and the "MEFCX "
// parameter block) carried from the current flash contents into a new image
// before it is written. Only the 8 Gb chip has it in this form.
#pragma once

#include <cstdint>
#include <span>

// `fcx8GbType` is CoreGetFCX8GbType of the adapter. 0 when done, -1 for any
// chip but the 8 Gb one (nothing is changed then).
int PreserveFlashDefaultsForChip(int fcx8GbType, std::span<const uint8_t> current, std::span<uint8_t> image);

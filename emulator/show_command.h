// SPDX-License-Identifier: MIT
// `vxemu show STATE` and `vxemu diff STATE_A STATE_B`: what the adapters of a
// state directory hold, as text or JSON, and what changed between two states.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "adapter_view.h"

namespace vxemu {

// Exit statuses of diff, like diff(1) plus one for the case that matters most.
inline constexpr int kDiffSame = 0;
inline constexpr int kDiffChanged = 1;      // flash regions changed, the adapters' own data kept
inline constexpr int kDiffOwnDataLost = 3;  // some adapter's own data changed (or an adapter came or went)
inline constexpr int kShowFailed = 2;       // trouble: bad arguments or an unreadable state

// The adapters a state directory holds: its host.json with each adapter's
// files from adapters/NAME/ (every adapter must have its flash.bin).
[[nodiscard]] Result<std::vector<AdapterView>> load_state_views(const std::filesystem::path &state);

[[nodiscard]] std::string show_text(const std::vector<AdapterView> &adapters);
[[nodiscard]] std::string show_json(const std::vector<AdapterView> &adapters);
[[nodiscard]] std::string diff_text(const std::vector<AdapterDiff> &diffs);
[[nodiscard]] std::string diff_json(const std::vector<AdapterDiff> &diffs);

// The commands; argv[0] is the command's name.
int show_main(int argc, char **argv);
int diff_main(int argc, char **argv);

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// `vxemu run`: load the host, start the sandboxed command, serve the driver
// until the command's last process is gone, save the state, and decide the
// exit status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxemu {

// Exit statuses of vxemu itself (the command's own status passes through).
inline constexpr int kExitViolation = 86;  // the command ran, but a request was malformed
inline constexpr int kExitSetup = 125;     // vxemu could not build the sandbox or load the host
inline constexpr int kExitUsage = 2;

struct RunOptions {
    bool help = false;       // --help: print the usage of run, nothing else
    std::string host_file;   // empty: the built-in lab host
    std::string state_dir;   // empty: a scratch directory removed afterwards
    std::string log_file;    // empty: STATE/traffic.jsonl
    std::optional<uint64_t> seed;       // replaces the host's "seed"
    std::optional<uint64_t> power_cut;  // replaces the host's "power_cut"
    std::vector<std::string> command;
};

// Parses "run" and its arguments (argv[0] is "run"); false with a message on
// a bad command line.
[[nodiscard]] bool parse_run_args(int argc, char **argv, RunOptions &opts, std::string &error);

int run_command(const RunOptions &opts);

}  // namespace vxemu

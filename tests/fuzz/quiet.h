// SPDX-License-Identifier: MIT
// For targets whose code prints a message for every bad input: libFuzzer
// closes the program's stdout and stderr and keeps its own reports (and the
// sanitizers') on a copy of stderr, so a long run does not fill its log.
#pragma once

#include <vector>

namespace fuzz {

inline void quiet(int *argc, char ***argv) {
    static std::vector<char *> args;
    static char flag[] = "-close_fd_mask=3";
    args.assign(*argv, *argv + *argc);
    // Flags before the corpus directories, which libFuzzer takes in any order.
    args.insert(args.begin() + 1, flag);
    args.push_back(nullptr);
    *argc = static_cast<int>(args.size()) - 1;
    *argv = args.data();
}

}  // namespace fuzz

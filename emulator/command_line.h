// SPDX-License-Identifier: MIT
// The options of vxemu's commands, parsed the way every Linux tool parses
// them (getopt_long): "--opt value", "--opt=value", short forms, "--" to end
// the options. Messages name the option as the user wrote it.
#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vxemu {

struct OptionSpec {
    const char *name;  // long name, without "--"
    char short_name;   // 0: none
    bool has_value;
};

struct ParsedOptions {
    std::vector<std::pair<std::string, std::string>> options;  // long name, value ("" without one)
    std::vector<std::string> operands;                          // from the first operand or after "--"
};

// Parses argv[1..argc-1] (argv[0] names the command in messages). Options end
// at the first operand, so a command's own arguments are left alone. False
// with `error` set on an unknown option or a missing value.
[[nodiscard]] bool parse_options(int argc, char **argv, std::span<const OptionSpec> specs, ParsedOptions &out,
                                 std::string &error);

}  // namespace vxemu

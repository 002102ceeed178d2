// SPDX-License-Identifier: MIT
// The options of vxemu's commands, parsed the way every Linux tool parses
// them (getopt_long): "--opt value", "--opt=value", short forms, "--" to end
// the options. Messages name the option as the user wrote it.
#pragma once

#include <cstdint>
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

// Where the options may stand: before the first operand only (a command to
// run follows, whose own options are left alone), or anywhere among the
// operands (argv is reordered then, as getopt_long does).
enum class OptionOrder : uint8_t { options_first, anywhere };

// Parses argv[1..argc-1] (argv[0] names the command in messages). False with
// `error` set on an unknown option, a missing value or a value given to an
// option that takes none. "--" always ends the options.
[[nodiscard]] bool parse_options(int argc, char **argv, std::span<const OptionSpec> specs, ParsedOptions &out,
                                 std::string &error, OptionOrder order = OptionOrder::options_first);

}  // namespace vxemu

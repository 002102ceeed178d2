// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <getopt.h>

namespace vxemu {

bool parse_options(int argc, char **argv, std::span<const OptionSpec> specs, ParsedOptions &out, std::string &error) {
    // "+": stop at the first operand; ":": report a missing value as ':'.
    std::string shorts = "+:";
    std::vector<option> longs;
    for (const OptionSpec &s : specs) {
        const int val = s.short_name != 0 ? s.short_name : 0x100 + static_cast<int>(&s - specs.data());
        longs.push_back({s.name, s.has_value ? required_argument : no_argument, nullptr, val});
        if (s.short_name != 0) {
            shorts += s.short_name;
            if (s.has_value) shorts += ':';
        }
    }
    longs.push_back({nullptr, 0, nullptr, 0});
    auto spec_of = [&](int val) -> const OptionSpec * {
        for (const OptionSpec &s : specs)
            if ((s.short_name != 0 && s.short_name == val) || 0x100 + static_cast<int>(&s - specs.data()) == val) return &s;
        return nullptr;
    };

    optind = 0;  // a fresh scan, also when called more than once
    opterr = 0;
    for (;;) {
        const int prev = optind == 0 ? 1 : optind;
        const int c = getopt_long(argc, argv, shorts.c_str(), longs.data(), nullptr);
        if (c == -1) break;
        // The argument as written, for messages ("--host" of "--host=x" too).
        std::string written = prev < argc ? argv[prev] : "";
        if (const size_t eq = written.find('='); written.starts_with("--") && eq != std::string::npos)
            written.resize(eq);
        if (c == '?') {
            error = optopt != 0 ? std::string("unknown option -") + static_cast<char>(optopt) : "unknown option " + written;
            return false;
        }
        if (c == ':') {
            error = "option " +
                    (written.starts_with("--") || optopt == 0 || optopt >= 0x100 ? written
                                                                               : std::string("-") + static_cast<char>(optopt)) +
                    " needs a value";
            return false;
        }
        const OptionSpec *s = spec_of(c);
        if (s == nullptr) {
            error = "unknown option " + written;
            return false;
        }
        out.options.emplace_back(s->name, s->has_value && optarg != nullptr ? optarg : "");
    }
    for (int i = optind; i < argc; ++i) out.operands.emplace_back(argv[i]);
    return true;
}

}  // namespace vxemu

// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <getopt.h>

namespace vxemu {

bool parse_options(int argc, char **argv, std::span<const OptionSpec> specs, ParsedOptions &out, std::string &error,
                   OptionOrder order) {
    // "+": stop at the first operand; ":": report a missing value as ':'.
    std::string shorts = order == OptionOrder::options_first ? "+:" : ":";
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
    auto spec_named = [&](const std::string &name) -> const OptionSpec * {
        for (const OptionSpec &s : specs)
            if (name == s.name) return &s;
        return nullptr;
    };

    optind = 0;  // a fresh scan, also when called more than once
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, shorts.c_str(), longs.data(), nullptr);
        if (c == -1) break;
        // The argument as written, for messages ("--host" of "--host=x" too):
        // after an error getopt has just stepped past it.
        std::string written = optind >= 1 && optind - 1 < argc ? argv[optind - 1] : "";
        const size_t eq = written.find('=');
        const bool with_value = written.starts_with("--") && eq != std::string::npos;
        if (with_value) written.resize(eq);
        if (c == '?') {
            const OptionSpec *s = written.starts_with("--") ? spec_named(written.substr(2)) : nullptr;
            if (s != nullptr && with_value && !s->has_value) error = "option " + written + " takes no value";
            else if (written.starts_with("--") || optopt == 0 || optopt >= 0x100) error = "unknown option " + written;
            else error = std::string("unknown option -") + static_cast<char>(optopt);
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

// SPDX-License-Identifier: MIT
// `vxemu mkimage` arguments: the kind, options in both forms, numbers,
// versions, image lists and sizes, and the files it reads and writes. The
// input is the argument list, one argument per line; it runs in a scratch
// directory of its own and names no path outside it. What a run writes is
// read back with the kit's own readers: the images it asked for are there,
// and their checksums hold unless it asked for a bad one.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "imagekit.h"
#include "state_files.h"
#include "quiet.h"
#include "scratch_dir.h"

int vxemu_mkimage_main(int argc, char **argv);

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    fuzz::quiet(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    // No path leaves the scratch directory (no slash at all, so no
    // /dev/zero to read forever either).
    if (text.find('/') != text.npos || text.find('\0') != text.npos) return 0;
    std::vector<std::string> args{"mkimage"};
    for (size_t at = 0; at <= text.size() && args.size() < 64;) {
        const size_t nl = std::min(text.find('\n', at), text.size());
        args.emplace_back(text.substr(at, nl - at));
        at = nl + 1;
    }
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    const std::string &dir = fuzz::scratch_dir();
    if (::chdir(dir.c_str()) != 0) std::abort();
    const int status = vxemu_mkimage_main(static_cast<int>(args.size()), argv.data());
    if (status != 0 && status != 1 && status != 2) std::abort();
    std::error_code ec;
    if (status == 0) {
        // Asked for a bad checksum: the option, or any unambiguous
        // abbreviation of it, which getopt_long takes as well.
        bool bad = false;
        for (const std::string &a : args) {
            const std::string_view name = std::string_view(a).substr(0, a.find('='));
            bad = bad || (name.size() >= 3 && std::string_view("--bad-checksum").starts_with(name));
        }
        for (const auto &e : fs::directory_iterator(dir, ec)) {
            if (!e.is_regular_file(ec)) continue;
            auto bytes = vxemu::read_bounded(e.path(), 1u << 27);
            if (!bytes) std::abort();
            const std::vector<uint8_t> &b = bytes.value();
            if (args[1] == "optrom") {
                const auto images = vxemu::walk_option_rom(b);
                if (images.empty()) std::abort();
                for (const auto &img : images)
                    if (!bad && !img.checksum_ok) std::abort();
            } else if (args[1] == "firmware") {
                const auto fw = vxemu::inspect_firmware(b);
                if (!fw || (!bad && !fw->valid())) std::abort();
            } else if (args[1] == "vpd") {
                if (!bad && !vxemu::vpd_checksum_ok(b)) std::abort();
            }
        }
    }
    // Whatever the run wrote goes before the next input.
    for (const auto &e : fs::directory_iterator(dir, ec)) fs::remove_all(e.path(), ec);
    if (ec) std::abort();
    return 0;
}

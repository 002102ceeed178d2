// SPDX-License-Identifier: MIT
// A directory of this process's own (mode 0700) under TMPDIR, for targets
// that lay out several files; removed with everything in it at exit.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

namespace fuzz {

inline const std::string &scratch_dir() {
    static const std::string dir = [] {
        std::string d = "/tmp/fwfuzz.XXXXXX";
        if (const char *t = std::getenv("TMPDIR"); t != nullptr && *t == '/') d = std::string(t) + "/fwfuzz.XXXXXX";
        if (::mkdtemp(d.data()) == nullptr) std::abort();
        return d;
    }();
    static const bool cleanup = [] {
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(scratch_dir(), ec);
        });
        return true;
    }();
    (void)cleanup;
    return dir;
}

// Writes a file below the scratch directory (never through a link).
inline void put_file(const std::string &path, std::span<const uint8_t> bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) std::abort();
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) std::abort();
        done += static_cast<size_t>(n);
    }
    ::close(fd);
}

inline void put_file(const std::string &path, std::string_view text) {
    put_file(path, std::span(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
}

}  // namespace fuzz

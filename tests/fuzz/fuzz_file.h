// SPDX-License-Identifier: MIT
// For parsers that only take a path: the input goes to a file in a directory
// of this process's own (mode 0700), rewritten for every input.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace fuzz {

inline const std::string &input_path() {
    static const std::string path = [] {
        std::string dir = "/tmp/fwfuzz.XXXXXX";
        if (const char *t = std::getenv("TMPDIR"); t != nullptr && *t == '/') dir = std::string(t) + "/fwfuzz.XXXXXX";
        if (::mkdtemp(dir.data()) == nullptr) std::abort();
        const std::string file = dir + "/input";
        // Removed on a normal exit; a crash leaves the directory for a look.
        static const std::string cleanup_dir = dir;
        static const std::string cleanup_file = file;
        std::atexit([] {
            ::unlink(cleanup_file.c_str());
            ::rmdir(cleanup_dir.c_str());
        });
        return file;
    }();
    return path;
}

// Writes `data` to the input file and returns its path.
inline const char *write_input(const uint8_t *data, size_t size) {
    const std::string &path = input_path();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) std::abort();
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n <= 0) std::abort();
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    return path.c_str();
}

}  // namespace fuzz

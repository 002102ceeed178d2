// SPDX-License-Identifier: MIT
#include "state_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "unique_fd.h"

namespace vxemu {

namespace fs = std::filesystem;

namespace {

std::string sys_error(const fs::path &p, const char *what) { return p.string() + ": " + what + ": " + std::strerror(errno); }

Result<std::vector<uint8_t>> read_all(int fd, const fs::path &p, size_t max) {
    std::vector<uint8_t> out;
    std::vector<uint8_t> chunk(65536);
    for (;;) {
        const ssize_t n = ::read(fd, chunk.data(), chunk.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return Result<std::vector<uint8_t>>::fail(sys_error(p, "read"));
        if (n == 0) return out;
        if (static_cast<size_t>(n) > max - out.size())
            return Result<std::vector<uint8_t>>::fail(p.string() + ": larger than " + std::to_string(max) + " bytes");
        out.insert(out.end(), chunk.begin(), chunk.begin() + n);
    }
}

bool write_all(int fd, std::span<const uint8_t> bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// A private name beside `p`, created exclusively; the name is returned in `tmp`.
int create_private(const fs::path &p, std::string &tmp) {
    tmp = p.string() + ".XXXXXX";
    const int fd = ::mkostemp(tmp.data(), O_CLOEXEC);
    if (fd >= 0) ::fchmod(fd, 0644);
    return fd;
}

Status check_dir(const fs::path &dir, bool state) {
    struct stat st {};
    if (::lstat(dir.c_str(), &st) != 0) return Status::fail(sys_error(dir, "state directory"));
    const uid_t me = ::geteuid();
    if (S_ISLNK(st.st_mode)) {
        if (st.st_uid != 0 && st.st_uid != me)
            return Status::fail(dir.string() + ": refusing a state directory reached through another user's link");
        if (::stat(dir.c_str(), &st) != 0) return Status::fail(sys_error(dir, "state directory"));
    }
    if (!S_ISDIR(st.st_mode)) return Status::fail(dir.string() + ": state directory is not a directory");
    if (st.st_uid != 0 && st.st_uid != me)
        return Status::fail(dir.string() + ": refusing a state directory owned by another user (uid " +
                            std::to_string(st.st_uid) + ")");
    const bool others_write = (st.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (others_write && (state || (st.st_mode & S_ISVTX) == 0))
        return Status::fail(dir.string() + ": refusing a state directory that other users can write");
    return {};
}

}  // namespace

Result<std::vector<uint8_t>> read_bounded(const fs::path &p, size_t max) {
    UniqueFd fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!fd.valid()) return Result<std::vector<uint8_t>>::fail(sys_error(p, "cannot open for reading"));
    return read_all(fd.get(), p, max);
}

Status check_state_dir(const fs::path &dir) {
    const fs::path abs = dir.lexically_normal();
    if (Status st = check_dir(abs, true); !st) return st;
    for (fs::path up = abs.parent_path(); !up.empty(); up = up.parent_path()) {
        if (Status st = check_dir(up, false); !st) return st;
        if (up == up.root_path()) break;
    }
    return {};
}

Result<std::vector<uint8_t>> read_state_file(const fs::path &p, size_t size) {
    UniqueFd fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!fd.valid()) return Result<std::vector<uint8_t>>::fail(sys_error(p, "cannot open for reading"));
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) return Result<std::vector<uint8_t>>::fail(sys_error(p, "fstat"));
    if (!S_ISREG(st.st_mode)) return Result<std::vector<uint8_t>>::fail(p.string() + ": not a regular file");
    if (static_cast<uint64_t>(st.st_size) != size)
        return Result<std::vector<uint8_t>>::fail(p.string() + ": expected " + std::to_string(size) + " bytes, found " +
                                                  std::to_string(st.st_size));
    auto bytes = read_all(fd.get(), p, size);
    if (bytes && bytes.value().size() != size)
        return Result<std::vector<uint8_t>>::fail(p.string() + ": expected " + std::to_string(size) + " bytes, found " +
                                                  std::to_string(bytes.value().size()));
    return bytes;
}

Status write_state_file(const fs::path &p, std::span<const uint8_t> bytes) {
    std::string tmp;
    UniqueFd fd(create_private(p, tmp));
    if (!fd.valid()) return Status::fail(sys_error(p, "cannot create a temporary file beside it"));
    if (!write_all(fd.get(), bytes)) {
        const Status st = Status::fail(sys_error(p, "write"));
        ::unlink(tmp.c_str());
        return st;
    }
    fd.reset();
    if (::rename(tmp.c_str(), p.c_str()) != 0) {
        const Status st = Status::fail(sys_error(p, "cannot rename into place"));
        ::unlink(tmp.c_str());
        return st;
    }
    return {};
}

int create_state_file(const fs::path &p) {
    std::string tmp;
    const int fd = create_private(p, tmp);
    if (fd < 0) return -1;
    if (::rename(tmp.c_str(), p.c_str()) != 0) {
        const int err = errno;
        ::close(fd);
        ::unlink(tmp.c_str());
        errno = err;
        return -1;
    }
    return fd;
}

}  // namespace vxemu

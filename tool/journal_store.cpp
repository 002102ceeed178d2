// SPDX-License-Identifier: MIT
#include "journal_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

constexpr size_t kMaxJournalFile = 0x300000;

std::string failed(const char *call, const std::string &path) { return std::string(call) + "(" + path + "): " + std::strerror(errno); }

bool safe_owner_and_mode(const struct stat &st) { return st.st_uid == 0 && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0; }

struct Fd {
    int fd;
    explicit Fd(int f) : fd(f) {}
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
};

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

}  // namespace

JournalStore::~JournalStore() {
    if (fd_ >= 0) ::close(fd_);
}

bool JournalStore::open(bool create, std::string &why) {
    why.clear();
    const size_t slash = dir_.find_last_of('/');
    const std::string parent = slash == std::string::npos || slash == 0 ? "/" : dir_.substr(0, slash);
    struct stat st {};
    // Whoever could write the directory above could swap ours for a link.
    if (::stat(parent.c_str(), &st) != 0) {
        if (errno == ENOENT && !create) return true;
        why = failed("stat", parent);
        return false;
    }
    if (!safe_owner_and_mode(st) && (st.st_mode & S_ISVTX) == 0) {
        why = parent + ": not root's alone";
        return false;
    }
    if (create && ::mkdir(dir_.c_str(), 0700) != 0 && errno != EEXIST) {
        why = failed("mkdir", dir_);
        return false;
    }
    const int fd = ::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT && !create) return true;
        why = errno == ELOOP || errno == ENOTDIR ? dir_ + ": not a directory" : failed("open", dir_);
        return false;
    }
    if (::fstat(fd, &st) != 0 || !S_ISDIR(st.st_mode) || !safe_owner_and_mode(st)) {
        ::close(fd);
        why = dir_ + ": not root's alone (owner root, writable by root only)";
        return false;
    }
    fd_ = fd;
    return true;
}

std::optional<std::vector<uint8_t>> JournalStore::read(const std::string &name, std::string &why) const {
    why.clear();
    if (fd_ < 0) return std::nullopt;
    Fd f(::openat(fd_, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (f.fd < 0) {
        if (errno != ENOENT) why = failed("open", dir_ + "/" + name);
        return std::nullopt;
    }
    struct stat st {};
    if (::fstat(f.fd, &st) != 0 || !S_ISREG(st.st_mode) || !safe_owner_and_mode(st) ||
        st.st_size < 0 || static_cast<uint64_t>(st.st_size) > kMaxJournalFile) {
        why = dir_ + "/" + name + ": not a journal file of root's";
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::read(f.fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    if (done != bytes.size()) {
        why = failed("read", dir_ + "/" + name);
        return std::nullopt;
    }
    return bytes;
}

bool JournalStore::write(const std::string &name, std::span<const uint8_t> bytes, std::string &why) const {
    why.clear();
    if (fd_ < 0) {
        why = dir_ + ": not open";
        return false;
    }
    std::random_device rd;
    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, "%08x", rd());
        temp = "." + name + "." + suffix;
        fd = ::openat(fd_, temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        why = failed("open", dir_ + "/" + temp);
        return false;
    }
    Fd f(fd);
    if (!write_all(f.fd, bytes) || ::fsync(f.fd) != 0) {
        why = failed("write", dir_ + "/" + temp);
        ::unlinkat(fd_, temp.c_str(), 0);
        return false;
    }
    if (::renameat(fd_, temp.c_str(), fd_, name.c_str()) != 0) {
        why = failed("rename", dir_ + "/" + name);
        ::unlinkat(fd_, temp.c_str(), 0);
        return false;
    }
    if (::fsync(fd_) != 0) {
        why = failed("fsync", dir_);
        return false;
    }
    return true;
}

bool JournalStore::remove(const std::string &name, std::string &why) const {
    why.clear();
    if (fd_ < 0) return true;
    if (::unlinkat(fd_, name.c_str(), 0) != 0 && errno != ENOENT) {
        why = failed("unlink", dir_ + "/" + name);
        return false;
    }
    if (::fsync(fd_) != 0) {
        why = failed("fsync", dir_);
        return false;
    }
    return true;
}

// SPDX-License-Identifier: MIT
#include "oss_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

enum class Kind { config, image };

// Other users can create, rename or remove entries in it.
bool shared_directory(const struct stat &dir) { return (dir.st_mode & (S_IWGRP | S_IWOTH)) != 0; }

// A file in a shared directory that only root can have put and kept there.
bool trusted_in_shared(const struct stat &dir, const struct stat &file) {
    return dir.st_uid == 0 && (dir.st_mode & S_ISVTX) != 0 && S_ISREG(file.st_mode) && file.st_uid == 0 &&
           (file.st_mode & (S_IWGRP | S_IWOTH)) == 0 && file.st_nlink == 1;
}

// Opens `path` below its directory descriptor, so the directory checked is
// the one the file is taken from. -1 with errno (ENOENT for a file that
// does not count).
int open_checked(const char *path, int flags, Kind kind) {
    if (path == nullptr || *path == '\0') {
        errno = ENOENT;
        return -1;
    }
    const std::string full = path;
    const size_t slash = full.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : full.substr(0, slash);
    const std::string name = slash == std::string::npos ? full : full.substr(slash + 1);
    if (name.empty()) {
        errno = EISDIR;
        return -1;
    }
    const int dfd = ::open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0) return -1;
    struct stat dst {};
    if (::fstat(dfd, &dst) != 0) {
        const int err = errno;
        ::close(dfd);
        errno = err;
        return -1;
    }
    const bool shared = shared_directory(dst);
    // Never block on a FIFO or a device where a file is expected; a
    // configuration file elsewhere is opened as it always was.
    const bool careful = shared || kind == Kind::image;
    int oflags = flags | O_CLOEXEC;
    if (careful) oflags |= O_NONBLOCK | O_NOCTTY;
    if (shared) oflags |= O_NOFOLLOW;
    const int fd = ::openat(dfd, name.c_str(), oflags);
    const int openErr = errno;
    ::close(dfd);
    if (fd < 0) {
        // A link in a shared directory is not taken: it counts as absent.
        errno = shared && openErr == ELOOP ? ENOENT : openErr;
        return -1;
    }
    if (!careful) return fd;
    struct stat fst {};
    bool ok = ::fstat(fd, &fst) == 0;
    if (ok && kind == Kind::image && !S_ISREG(fst.st_mode)) ok = false;
    if (ok && shared && !trusted_in_shared(dst, fst)) ok = false;
    if (ok && (flags & O_PATH) == 0) ok = ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) == 0;
    if (!ok) {
        ::close(fd);
        errno = ENOENT;
        return -1;
    }
    return fd;
}

FILE *open_stream(const char *path, const char *mode, Kind kind) {
    if (mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const bool update = std::strchr(mode, '+') != nullptr;
    const int fd = open_checked(path, update ? O_RDWR : O_RDONLY, kind);
    if (fd < 0) return nullptr;
    FILE *file = ::fdopen(fd, mode);
    if (file == nullptr) {
        const int err = errno;
        ::close(fd);
        errno = err;
    }
    return file;
}

}  // namespace

FILE *OSSOpenConfigFile(const char *path, const char *mode) { return open_stream(path, mode, Kind::config); }

bool OSSConfigFileExists(const char *path) {
    // Outside shared directories this stays an existence test.
    const int fd = open_checked(path, O_PATH, Kind::config);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

FILE *OSSOpenImageFile(const char *path) { return open_stream(path, "rb", Kind::image); }

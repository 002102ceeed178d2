// SPDX-License-Identifier: MIT
// Every operating-system call of the library goes through these wrappers,
// so that failures are traced and errno is kept in one place.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace vxos {

int open(const char *path, int flags, mode_t mode = 0);
int close(int fd);
int ioctl(int fd, unsigned long request, void *arg);
ssize_t read(int fd, void *buf, std::size_t len);
ssize_t write(int fd, const void *buf, std::size_t len);
// Whole-buffer helpers: loop over short transfers; false on error or EOF.
bool read_full(int fd, void *buf, std::size_t len);
bool write_full(int fd, const void *buf, std::size_t len);
off_t lseek(int fd, off_t off, int whence);
int fstat(int fd, struct stat *st);
int unlink(const char *path);
int mknod(const char *path, mode_t mode, dev_t dev);
void *mmap(std::size_t len, int prot, int flags, int fd);
int munmap(void *addr, std::size_t len);
int msync(void *addr, std::size_t len);
int flock(int fd, int operation);
int semget(int key, int nsems, int flags);
int semop_one(int semid, short delta);  // one operation with SEM_UNDO
int semctl_setval(int semid, int value);
int semctl_rmid(int semid);
// Owner and creator of a set (IPC_STAT).
int semctl_owner(int semid, uid_t *uid, uid_t *cuid);
int access(const char *path, int mode);
int lstat(const char *path, struct stat *st);
// stdio stream opened read-only with close-on-exec; null on failure.
FILE *fopen_read(const char *path);

// Runs a shell command and returns everything it printed (empty on failure).
std::string run_shell(const char *command);
// Runs a shell command, its output discarded.
int run_shell_status(const char *command);

// Move-only descriptor that closes itself.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd &&o) noexcept : fd_(o.release()) {}
    Fd &operator=(Fd &&o) noexcept {
        if (this != &o) {
            reset();
            fd_ = o.release();
        }
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset() {
        if (fd_ >= 0) vxos::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

// stdio stream that closes itself.
struct FileCloser {
    void operator()(FILE *f) const;
};

}  // namespace vxos

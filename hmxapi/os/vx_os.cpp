// SPDX-License-Identifier: MIT
// Thin wrappers over the operating-system calls the library makes.
#include "vx_os.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "vx_hmdbg.h"

namespace vxos {
namespace {

// "call(path): strerror" on the error trace; errno survives the trace.
void trace_failure(const char *call, const char *what) {
    if ((vx_debug & VXDBG_ERR) == 0) return;
    const int saved = errno;
    std::string line = std::string(call) + "(" + (what != nullptr ? what : "") + "): " + std::strerror(saved);
    vxdbg_print(line.c_str(), 0, 0, 1);
    errno = saved;
}

}  // namespace

int open(const char *path, int flags, mode_t mode) {
    const int fd = ::open(path, flags | O_CLOEXEC, mode);
    if (fd < 0 && errno != ENOENT) trace_failure("open", path);  // absence is the caller's to judge
    return fd;
}

int close(int fd) {
    const int rc = ::close(fd);
    if (rc != 0) trace_failure("close", std::to_string(fd).c_str());
    return rc;
}

int ioctl(int fd, unsigned long request, void *arg) {
    const int rc = ::ioctl(fd, request, arg);
    if (rc != 0) {
        char what[32];
        std::snprintf(what, sizeof what, "0x%lX", request);
        trace_failure("ioctl", what);
    }
    return rc;
}

ssize_t read(int fd, void *buf, std::size_t len) {
    ssize_t n;
    do n = ::read(fd, buf, len);
    while (n < 0 && errno == EINTR);
    if (n < 0) trace_failure("read", std::to_string(fd).c_str());
    return n;
}

ssize_t write(int fd, const void *buf, std::size_t len) {
    ssize_t n;
    do n = ::write(fd, buf, len);
    while (n < 0 && errno == EINTR);
    if (n < 0) trace_failure("write", std::to_string(fd).c_str());
    return n;
}

bool read_full(int fd, void *buf, std::size_t len) {
    auto *p = static_cast<uint8_t *>(buf);
    while (len > 0) {
        const ssize_t n = vxos::read(fd, p, len);
        if (n <= 0) return false;
        p += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

bool write_full(int fd, const void *buf, std::size_t len) {
    const auto *p = static_cast<const uint8_t *>(buf);
    while (len > 0) {
        const ssize_t n = vxos::write(fd, p, len);
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        p += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

off_t lseek(int fd, off_t off, int whence) {
    const off_t rc = ::lseek(fd, off, whence);
    if (rc < 0) trace_failure("lseek", std::to_string(fd).c_str());
    return rc;
}

int fstat(int fd, struct stat *st) {
    const int rc = ::fstat(fd, st);
    if (rc != 0) trace_failure("fstat", std::to_string(fd).c_str());
    return rc;
}

int unlink(const char *path) {
    const int rc = ::unlink(path);
    if (rc != 0 && errno != ENOENT) trace_failure("unlink", path);
    return rc;
}

int mknod(const char *path, mode_t mode, dev_t dev) {
    const int rc = ::mknod(path, mode, dev);
    if (rc != 0) trace_failure("mknod", path);
    return rc;
}

void *mmap(std::size_t len, int prot, int flags, int fd) {
    void *p = ::mmap(nullptr, len, prot, flags, fd, 0);
    if (p == MAP_FAILED) trace_failure("mmap", std::to_string(fd).c_str());
    return p;
}

int munmap(void *addr, std::size_t len) {
    const int rc = ::munmap(addr, len);
    if (rc != 0) trace_failure("munmap", nullptr);
    return rc;
}

int msync(void *addr, std::size_t len) {
    const int rc = ::msync(addr, len, MS_SYNC);
    if (rc != 0) trace_failure("msync", nullptr);
    return rc;
}

int flock(int fd, int operation) {
    int rc;
    do rc = ::flock(fd, operation);
    while (rc != 0 && errno == EINTR);
    if (rc != 0 && errno != EWOULDBLOCK) trace_failure("flock", std::to_string(fd).c_str());
    return rc;
}

int semget(int key, int nsems, int flags) {
    const int id = ::semget(static_cast<key_t>(key), nsems, flags);
    if (id < 0 && errno != ENOENT) trace_failure("semget", std::to_string(key).c_str());
    return id;
}

int semop_one(int semid, short delta) {
    sembuf op{};
    op.sem_num = 0;
    op.sem_op = delta;
    op.sem_flg = SEM_UNDO;  // a process that dies holding it releases it
    int rc;
    do rc = ::semop(semid, &op, 1);
    while (rc != 0 && errno == EINTR);
    if (rc != 0) trace_failure("semop", std::to_string(semid).c_str());
    return rc;
}

int semctl_setval(int semid, int value) {
    const int rc = ::semctl(semid, 0, SETVAL, value);
    if (rc != 0) trace_failure("semctl(SETVAL)", std::to_string(semid).c_str());
    return rc;
}

int semctl_rmid(int semid) {
    const int rc = ::semctl(semid, 0, IPC_RMID);
    if (rc != 0) trace_failure("semctl(IPC_RMID)", std::to_string(semid).c_str());
    return rc;
}

int semctl_owner(int semid, uid_t *uid, uid_t *cuid) {
    semid_ds ds{};
    const int rc = ::semctl(semid, 0, IPC_STAT, &ds);
    if (rc != 0) {
        trace_failure("semctl(IPC_STAT)", std::to_string(semid).c_str());
        return rc;
    }
    *uid = ds.sem_perm.uid;
    *cuid = ds.sem_perm.cuid;
    return 0;
}

int access(const char *path, int mode) { return ::access(path, mode); }

int lstat(const char *path, struct stat *st) {
    const int rc = ::lstat(path, st);
    if (rc != 0 && errno != ENOENT) trace_failure("lstat", path);
    return rc;
}

FILE *fopen_read(const char *path) {
    FILE *f = std::fopen(path, "re");
    if (f == nullptr && errno != ENOENT) trace_failure("fopen", path);
    return f;
}

void FileCloser::operator()(FILE *f) const {
    if (f != nullptr) ::pclose(f);
}

std::string run_shell(const char *command) {
    std::unique_ptr<FILE, FileCloser> pipe(::popen(command, "re"));
    if (!pipe) {
        trace_failure("popen", command);
        return {};
    }
    std::string out;
    char chunk[256];
    std::size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe.get())) > 0) out.append(chunk, n);
    return out;
}

int run_shell_status(const char *command) {
    std::unique_ptr<FILE, FileCloser> pipe(::popen(command, "re"));
    if (!pipe) {
        trace_failure("popen", command);
        return -1;
    }
    char chunk[256];
    while (std::fread(chunk, 1, sizeof chunk, pipe.get()) > 0) {
    }
    return 0;
}

}  // namespace vxos

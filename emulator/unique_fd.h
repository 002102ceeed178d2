// SPDX-License-Identifier: MIT
// A move-only owner of a file descriptor, and descriptor passing over a
// SOCK_SEQPACKET pair between the sandbox and the supervisor.
#pragma once

#include <unistd.h>

#include <string>
#include <utility>

namespace vxemu {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&o) noexcept {
        if (this != &o) {
            reset();
            fd_ = std::exchange(o.fd_, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);  // never retried: the descriptor is gone either way
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Messages from the sandbox to the supervisor: a tag byte, a text, and at most one descriptor.
enum class SetupMsg : char { fuse_fd = 'F', listener_fd = 'L', error = 'E', exec_error = 'X' };

bool send_msg(int sock, SetupMsg tag, const std::string &text, int fd = -1);
// Returns false on end of stream or error; `fd` is -1 when none came.
bool recv_msg(int sock, SetupMsg &tag, std::string &text, UniqueFd &fd);

}  // namespace vxemu

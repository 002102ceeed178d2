// SPDX-License-Identifier: MIT
#include "unique_fd.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace vxemu {

bool send_msg(int sock, SetupMsg tag, const std::string &text, int fd) {
    std::vector<char> payload(1 + text.size());
    payload[0] = static_cast<char>(tag);
    std::memcpy(payload.data() + 1, text.data(), text.size());
    iovec iov{payload.data(), payload.size()};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    if (fd >= 0) {
        msg.msg_control = control;
        msg.msg_controllen = sizeof control;
        cmsghdr *c = CMSG_FIRSTHDR(&msg);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(c), &fd, sizeof fd);
    }
    ssize_t n;
    do {
        n = ::sendmsg(sock, &msg, MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    return n == static_cast<ssize_t>(payload.size());
}

bool recv_msg(int sock, SetupMsg &tag, std::string &text, UniqueFd &fd) {
    fd.reset();
    std::vector<char> payload(4096);
    iovec iov{payload.data(), payload.size()};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    ssize_t n;
    do {
        n = ::recvmsg(sock, &msg, MSG_CMSG_CLOEXEC);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_RIGHTS && c->cmsg_len >= CMSG_LEN(sizeof(int))) {
            int got = -1;
            std::memcpy(&got, CMSG_DATA(c), sizeof got);
            fd.reset(got);
        }
    }
    tag = static_cast<SetupMsg>(payload[0]);
    text.assign(payload.data() + 1, static_cast<size_t>(n) - 1);
    return true;
}

}  // namespace vxemu

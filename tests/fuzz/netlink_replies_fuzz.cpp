// SPDX-License-Identifier: MIT
// Replies on the driver's netlink socket as the library reads them: port
// parameters (speed codes), events (a record count and records), and the
// status of loopback, bridge and bulk firmware chunks. The driver is this
// target: `sendmsg` on its descriptor takes the request, `recvmsg` answers
// with bytes of the input (never more than the receive buffer holds, as the
// kernel does). Every other descriptor gets the real calls.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vx_instances.h"
#include "vx_netlink.h"

namespace {

int g_socket_fd = -1;
FuzzedDataProvider *g_in = nullptr;
size_t g_sent = 0;  // requests the library sent (each wants one reply)

}  // namespace

extern "C" ssize_t sendmsg(int fd, const struct msghdr *msg, int flags) {
    if (fd != g_socket_fd || g_in == nullptr) return ::syscall(SYS_sendmsg, fd, msg, flags);
    size_t n = 0;
    for (size_t i = 0; i < msg->msg_iovlen; ++i) n += msg->msg_iov[i].iov_len;
    // The header carries the message's length; it must match what is sent.
    if (msg->msg_iovlen == 0 || msg->msg_iov[0].iov_len < 4) std::abort();
    uint32_t length = 0;
    std::memcpy(&length, msg->msg_iov[0].iov_base, 4);
    if (length != n) std::abort();
    ++g_sent;
    if (g_in->ConsumeIntegralInRange(0, 15) == 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    return static_cast<ssize_t>(n);
}

extern "C" ssize_t recvmsg(int fd, struct msghdr *msg, int flags) {
    if (fd != g_socket_fd || g_in == nullptr) return ::syscall(SYS_recvmsg, fd, msg, flags);
    FuzzedDataProvider &in = *g_in;
    if (msg->msg_iovlen != 1) std::abort();
    if (in.ConsumeIntegralInRange(0, 15) == 0) {
        errno = EAGAIN;  // the driver did not answer
        return -1;
    }
    auto *buf = static_cast<uint8_t *>(msg->msg_iov[0].iov_base);
    const size_t room = msg->msg_iov[0].iov_len;
    // A reply's header is mostly zeros: the error word and the parameters
    // the input gives, the rest as sent.
    const size_t n = in.ConsumeIntegralInRange<size_t>(0, room);
    const std::vector<uint8_t> head = in.ConsumeBytes<uint8_t>(std::min<size_t>(n, 64));
    std::memset(buf, 0, n);
    const size_t at = std::min(n, vxnl::kNlHdr + vxnl::kError);
    if (!head.empty()) std::memcpy(buf + at, head.data(), std::min(head.size(), n - at));
    return static_cast<ssize_t>(n);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_socket_fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    return g_socket_fd < 0 ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    g_in = &in;
    g_sent = 0;
    uint32_t status = 0;
    while (in.remaining_bytes() > 0) {
        const uint16_t host = in.ConsumeIntegral<uint16_t>();
        switch (in.ConsumeIntegralInRange(0, 5)) {
        case 0: {
            INT_PORT_PARAM pp{};
            pp.FCScsiAddr.DestType = in.ConsumeBool() ? 2 : in.ConsumeIntegral<uint16_t>();
            pp.Mode = in.ConsumeIntegralInRange<uint16_t>(0, 1);
            pp.Speed = in.PickValueInArray<uint16_t>({1, 2, 4, 8, 16, 3, 0});
            // Exactly the record, so a read or write past it is caught.
            std::vector<uint8_t> param(sizeof pp + in.ConsumeIntegralInRange<size_t>(0, 1));
            std::memcpy(param.data(), &pp, sizeof pp);
            if (vxapi_nl_port_param(g_socket_fd, host, param.data(), static_cast<uint32_t>(param.size()), &status) == 0) {
                std::memcpy(&pp, param.data(), sizeof pp);
                uint16_t code = 0;
                // A reply read back gives Gbit/s, or the driver's code it
                // does not know as it came.
                if (pp.Mode == 0 && vxnl::speed_to_code(pp.Speed, &code) == false && vxnl::code_to_speed(pp.Speed, &code))
                    std::abort();
            }
            break;
        }
        case 1: {
            const uint32_t room = in.ConsumeIntegralInRange<uint32_t>(0, 200);
            std::vector<EXT_ASYNC_EVENT> events(room / sizeof(EXT_ASYNC_EVENT) + 1);
            uint32_t returned = 0xFFFFFFFF;
            const int rc = vxapi_nl_get_aen(g_socket_fd, host, events.data(), room, &status, &returned);
            if (returned > room || returned % sizeof(EXT_ASYNC_EVENT) != 0 || (rc != 0 && returned != 0)) std::abort();
            break;
        }
        case 2: {
            std::vector<uint8_t> pattern = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(1, 300));
            (void)vxapi_nl_loopback_test(g_socket_fd, host, pattern.data(), static_cast<uint32_t>(pattern.size()), &status);
            break;
        }
        case 3:
        case 4: {
            std::vector<uint8_t> param = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 2060));
            auto *p = param.empty() ? nullptr : param.data();
            const auto n = static_cast<uint32_t>(param.size());
            if (in.ConsumeBool()) (void)vxapi_nl_FCX15x_reset(g_socket_fd, host, p, n, &status);
            else (void)vxapi_nl_FCX15x_mgmt(g_socket_fd, host, p, n, &status);
            break;
        }
        default: {
            // A firmware image of more than one 64 KiB chunk.
            static std::vector<uint8_t> image(0x10000 * 2 + 17, 0xA5);
            const size_t n = in.ConsumeIntegralInRange<size_t>(1, image.size());
            (void)vxapi_nl_FCX15x_updatefw(g_socket_fd, host, image.data(), static_cast<uint32_t>(n), &status);
            break;
        }
        }
    }
    g_in = nullptr;
    return 0;
}

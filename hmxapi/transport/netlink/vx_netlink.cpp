// SPDX-License-Identifier: MIT
// Netlink transport for sysfs adapters. A request is sent and its reply read
// with one receive that never waits: the driver answers before the send
// returns, and a reply that is not there is a failure.
#include "vx_netlink.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "vx_chipdata.h"
#include "vx_instances.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"

int gnl_fd = -1;
int gnl_scsi_fc_fd = -1;

namespace {

// Buffers of the two sockets, allocated with them.
std::vector<uint8_t> *g_nl_send = nullptr;
std::vector<uint8_t> *g_nl_recv = nullptr;
std::vector<uint8_t> *g_scsi_fc_recv = nullptr;
constexpr std::size_t kScsiFcBuffer = 64;

// Buffer sizes of each operation, send and receive.
constexpr std::size_t kBufSmall = 18480;
constexpr std::size_t kBufBulk = 67632;
constexpr std::size_t kBufPortParam = 4168;

void put16(uint8_t *p, uint16_t v) { std::memcpy(p, &v, sizeof v); }
void put32(uint8_t *p, uint32_t v) { std::memcpy(p, &v, sizeof v); }
void put64(uint8_t *p, uint64_t v) { std::memcpy(p, &v, sizeof v); }
uint32_t get32(const uint8_t *p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

int fail(uint32_t *status, uint32_t code) {
    vxapi_set_status(status, code);
    return 1;
}

// One exchange: the request with `params` (at most 2052 bytes) and `data`,
// its reply into `reply` (parameters at vxnl::kNlHdr + vxnl::kParams, bulk
// data after vxnl::kReplyHdr). `send_size` and `recv_size` are the
// operation's buffer sizes.
int exchange(int fd, uint16_t host_no, uint32_t cmd, const uint8_t *params, std::size_t params_len, const uint8_t *data,
             std::size_t data_len, std::size_t send_size, std::size_t recv_size, std::vector<uint8_t> &reply,
             uint32_t *status) {
    using namespace vxnl;
    const std::size_t length = request_length(data_len);
    if (params_len > kParamsSize || length > send_size || data_len > kMaxChunk) return fail(status, EXT_STATUS_INVALID_PARAM);
    std::vector<uint8_t> msg(send_size, 0);
    vxapi_cmn_nl_hdr(msg.data(), static_cast<uint32_t>(length));
    uint8_t *fc = msg.data() + kNlHdr + kScsiHdr;
    put64(fc + kMagic, fc_magic());
    put16(fc + kHostNo, host_no);
    // A full 64 KiB chunk does not fit the 16-bit field: it wraps to 0, and
    // nlmsg_len tells the driver the size.
    put16(fc + kDataLen, static_cast<uint16_t>(data_len));
    put32(fc + kCmd, cmd);
    if (params_len > 0) std::memcpy(fc + kParams, params, params_len);
    if (data_len > 0) std::memcpy(msg.data() + kRequestHdr, data, data_len);

    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    iovec iov{msg.data(), length};
    msghdr mh{};
    mh.msg_name = &kernel;
    mh.msg_namelen = sizeof kernel;
    mh.msg_iov = &iov;
    mh.msg_iovlen = 1;
    if (::sendmsg(fd, &mh, 0) < 0) {
        VXDBG_NUM(VXDBG_ERR, "vxapi_nl: sendmsg failed. errno=", static_cast<uint64_t>(errno), 10);
        return fail(status, EXT_STATUS_ERR);
    }
    reply.assign(recv_size, 0);
    const std::size_t want = std::min(recv_size - 20, kReplyHdr + data_len);
    const long got = vxapi_rcv_msg(fd, want, reply.data());
    if (got < static_cast<long>(kReplyHdr)) {
        VXDBG(VXDBG_ERR, "vxapi_nl: no reply from the driver.");
        return fail(status, EXT_STATUS_ERR);
    }
    const uint32_t error = get32(reply.data() + kNlHdr + kError);
    vxapi_set_status(status, error);
    if (error != 0) {
        VXDBG_NUM(VXDBG_ERR, "vxapi_nl: driver error ", error, 10);
        return 1;
    }
    return 0;
}

const uint8_t *reply_params(const std::vector<uint8_t> &reply) { return reply.data() + vxnl::kNlHdr + vxnl::kParams; }

}  // namespace


void vxapi_cmn_nl_hdr(uint8_t *msg, uint32_t length) {
    put32(msg + 0, length);
    put16(msg + 4, vxnl::kMsgType);
    put16(msg + 6, 0);
    put32(msg + 8, 0);
    put32(msg + 12, static_cast<uint32_t>(::getpid()));
    msg[16] = 1;  // SCSI netlink version
    msg[17] = 0;  // transport
    put16(msg + 18, vxnl::kScsiMagic);
    put16(msg + 20, vxnl::kScsiMsgType);
    put16(msg + 22, 0);
}

long vxapi_rcv_msg(int fd, std::size_t length, uint8_t *buf) {
    if (length > vxnl::kMaxReceive) {
        errno = EINVAL;
        return -1;
    }
    std::memset(buf, 0, (length + 19) & ~std::size_t{3});
    iovec iov{buf, length};
    sockaddr_nl from{};
    msghdr mh{};
    mh.msg_name = &from;
    mh.msg_namelen = sizeof from;
    mh.msg_iov = &iov;
    mh.msg_iovlen = 1;
    return static_cast<long>(::recvmsg(fd, &mh, MSG_DONTWAIT));
}

int vxapi_nl_open() {
    const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, vxnl::kProtocolDriver);
    if (fd < 0) return -1;
    sockaddr_nl self{};
    self.nl_family = AF_NETLINK;
    self.nl_pid = static_cast<uint32_t>(::getpid());
    if (::bind(fd, reinterpret_cast<sockaddr *>(&self), sizeof self) != 0) {
        ::close(fd);
        return -1;
    }
    try {
        g_nl_send = new std::vector<uint8_t>(vxnl::kSocketBuffer, 0);
        g_nl_recv = new std::vector<uint8_t>(vxnl::kSocketBuffer, 0);
    } catch (...) {
        delete g_nl_send;
        g_nl_send = nullptr;
        ::close(fd);
        return -1;
    }
    gnl_fd = fd;
    return 0;
}

int vxapi_nl_scsi_fc_open() {
    const int fd = ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, vxnl::kProtocolScsiTransport);
    if (fd < 0) return -1;
    sockaddr_nl self{};
    self.nl_family = AF_NETLINK;
    self.nl_pid = static_cast<uint32_t>(::getpid());
    self.nl_groups = vxnl::kFcTransportGroup;
    const int group = static_cast<int>(vxnl::kFcTransportGroup);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&self), sizeof self) != 0 ||
        ::setsockopt(fd, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0) {
        ::close(fd);
        return -1;
    }
    try {
        g_scsi_fc_recv = new std::vector<uint8_t>(kScsiFcBuffer, 0);
    } catch (...) {
        ::close(fd);
        return -1;
    }
    gnl_scsi_fc_fd = fd;
    return 0;
}

int vxapi_open_netlink_socket() {
    uint32_t &features = api_priv_data[0].features;
    if ((features & (VXF_NL_MGMT | VXF_NL_SCSI_FC)) != 0) return 0;
    if (vxapi_nl_open() == 0) features |= VXF_NL_MGMT;
    else VXDBG(VXDBG_ERR, "vxapi_open_netlink_socket: driver socket not opened.");
    if (vxapi_nl_scsi_fc_open() == 0) features |= VXF_NL_SCSI_FC;
    else VXDBG(VXDBG_ERR, "vxapi_open_netlink_socket: transport socket not opened.");
    return 0;
}

void vxapi_close_netlink_socket() {
    if (gnl_fd >= 0) ::close(gnl_fd);
    if (gnl_scsi_fc_fd >= 0) ::close(gnl_scsi_fc_fd);
    gnl_fd = gnl_scsi_fc_fd = -1;
    delete g_nl_send;
    delete g_nl_recv;
    delete g_scsi_fc_recv;
    g_nl_send = g_nl_recv = g_scsi_fc_recv = nullptr;
    api_priv_data[0].features &= ~(VXF_NL_MGMT | VXF_NL_SCSI_FC);
}

int vxapi_nl_port_param(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status) {
    INT_PORT_PARAM pp{};
    if (param == nullptr || len < sizeof pp) return fail(status, EXT_STATUS_INVALID_PARAM);
    std::memcpy(&pp, param, sizeof pp);
    if (pp.FCScsiAddr.DestType != 2) return fail(status, EXT_STATUS_INVALID_PARAM);
    if (pp.Mode != 0) {
        uint16_t code = 0;
        if (!vxnl::speed_to_code(pp.Speed, &code)) return fail(status, EXT_STATUS_INVALID_PARAM);
        pp.Speed = code;
    }
    std::vector<uint8_t> reply;
    uint8_t raw[sizeof pp];
    std::memcpy(raw, &pp, sizeof pp);
    const int rc =
        exchange(fd, host_no, vxnl::kPortParam, raw, sizeof raw, nullptr, 0, kBufPortParam, kBufPortParam, reply, status);
    if (rc != 0) return rc;
    std::memcpy(&pp, reply_params(reply), sizeof pp);
    if (pp.Mode == 0) {
        uint16_t gbit = 0;
        if (vxnl::code_to_speed(pp.Speed, &gbit)) pp.Speed = gbit;
    }
    std::memcpy(param, &pp, sizeof pp);
    return 0;
}

namespace {

// A bulk transfer: one exchange per chunk of at most 64 KiB, each carrying
// where the chunk belongs and the size of the whole transfer.
int send_chunks(int fd, uint16_t host_no, uint32_t cmd, const uint8_t *data, uint32_t len, uint32_t *status) {
    if (data == nullptr || len == 0) return fail(status, EXT_STATUS_INVALID_PARAM);
    for (uint32_t at = 0; at < len; at += static_cast<uint32_t>(vxnl::kMaxChunk)) {
        const std::size_t n = std::min<std::size_t>(len - at, vxnl::kMaxChunk);
        uint8_t params[8];
        put32(params, at);
        put32(params + 4, len);
        std::vector<uint8_t> reply;
        const int rc = exchange(fd, host_no, cmd, params, sizeof params, data + at, n, kBufBulk, kBufBulk, reply, status);
        if (rc != 0) return rc;
    }
    return 0;
}

// A bridge request: the caller's parameters out and back.
int bridge_request(int fd, uint16_t host_no, uint32_t cmd, uint8_t *param, uint32_t len, uint32_t *status) {
    if (len > vxnl::kParamsSize || (param == nullptr && len > 0)) return fail(status, EXT_STATUS_INVALID_PARAM);
    std::vector<uint8_t> reply;
    const int rc = exchange(fd, host_no, cmd, param, len, nullptr, 0, kBufSmall, kBufBulk, reply, status);
    if (rc == 0 && len > 0) std::memcpy(param, reply_params(reply), len);
    return rc;
}

}  // namespace

int vxapi_nl_loopback_test(int fd, uint16_t host_no, const uint8_t *data, uint32_t len, uint32_t *status) {
    // The first phase sends the pattern round the loop, the second sends it
    // again for the driver to compare.
    const int rc = send_chunks(fd, host_no, vxnl::kLoopbackFirst, data, len, status);
    return rc != 0 ? rc : send_chunks(fd, host_no, vxnl::kLoopbackSecond, data, len, status);
}

int vxapi_nl_FCX15x_reset(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status) {
    return bridge_request(fd, host_no, vxnl::kBridgeReset, param, len, status);
}

int vxapi_nl_FCX15x_mgmt(int fd, uint16_t host_no, uint8_t *param, uint32_t len, uint32_t *status) {
    return bridge_request(fd, host_no, vxnl::kBridgeMgmt, param, len, status);
}

int vxapi_nl_FCX15x_updatefw(int fd, uint16_t host_no, const uint8_t *image, uint32_t len, uint32_t *status) {
    return send_chunks(fd, host_no, vxnl::kBridgeUpdateFw, image, len, status);
}

int vxapi_nl_get_aen(int fd, uint16_t host_no, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                     uint32_t *returned_len) {
    if (returned_len != nullptr) *returned_len = 0;
    if (events == nullptr && len > 0) return fail(status, EXT_STATUS_INVALID_PARAM);
    std::vector<uint8_t> reply;
    const int rc =
        exchange(fd, host_no, vxnl::kGetAen, nullptr, 0, nullptr, 0, vxnl::kSocketBuffer, vxnl::kSocketBuffer, reply, status);
    if (rc != 0) return rc;
    // The reply's parameters: a record count, then the 16-byte records.
    const uint8_t *p = reply_params(reply);
    const std::size_t room = std::min<std::size_t>(len / sizeof(EXT_ASYNC_EVENT), (vxnl::kParamsSize - 4) / 16);
    const std::size_t n = std::min<std::size_t>(get32(p), room);
    if (n > 0) std::memcpy(events, p + 4, n * sizeof(EXT_ASYNC_EVENT));
    if (returned_len != nullptr) *returned_len = static_cast<uint32_t>(n * sizeof(EXT_ASYNC_EVENT));
    return 0;
}

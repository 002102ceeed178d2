// SPDX-License-Identifier: MIT
#include "seccomp_supervisor.h"

#include <fcntl.h>
#include <linux/kcmp.h>
#include <linux/netlink.h>
#include <linux/seccomp.h>
#include <scsi/sg.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace vxemu {

namespace {

constexpr int kNetlinkDriverProtocol = 20;
constexpr int kNetlinkScsiTransport = 18;
constexpr int kSolNetlink = 270;

// The caller's memory, as copy_from_user/copy_to_user reach it.
class ProcessMemory final : public RemoteMemory {
public:
    explicit ProcessMemory(pid_t pid) : pid_(pid) {}
    bool read(uint64_t addr, std::span<uint8_t> out) override {
        if (out.empty()) return true;
        iovec local{out.data(), out.size()};
        iovec remote{reinterpret_cast<void *>(static_cast<uintptr_t>(addr)), out.size()};
        return check(::process_vm_readv(pid_, &local, 1, &remote, 1, 0), out.size());
    }
    bool write(uint64_t addr, std::span<const uint8_t> in) override {
        if (in.empty()) return true;
        iovec local{const_cast<uint8_t *>(in.data()), in.size()};
        iovec remote{reinterpret_cast<void *>(static_cast<uintptr_t>(addr)), in.size()};
        return check(::process_vm_writev(pid_, &local, 1, &remote, 1, 0), in.size());
    }
    bool gone() const override { return gone_; }

private:
    bool check(ssize_t n, size_t want) {
        if (n < 0 && errno == ESRCH) gone_ = true;
        return n == static_cast<ssize_t>(want);
    }
    pid_t pid_;
    bool gone_ = false;
};

// Reads a NUL-terminated path a page piece at a time (a path may end just before unmapped memory).
bool read_path(ProcessMemory &mem, uint64_t addr, std::string &out) {
    out.clear();
    while (out.size() < 4096) {
        const size_t chunk = 4096 - (addr % 4096);
        std::vector<uint8_t> buf(chunk);
        if (!mem.read(addr, buf)) return false;
        const auto nul = std::find(buf.begin(), buf.end(), uint8_t{0});
        out.append(buf.begin(), nul);
        if (nul != buf.end()) return true;
        addr += chunk;
    }
    return false;
}

// Largest message a caller may send on the driver's socket: the biggest
// request (2,096 bytes of header and a 64 KiB chunk) with room to spare.
constexpr size_t kMaxNetlinkSend = 200000;
constexpr uint64_t kMaxIov = 1024;  // UIO_MAXIOV

// Collects the bytes of an intercepted sendmsg/sendto from the caller's memory;
// 0 or the errno the call fails with.
int gather_send(ProcessMemory &mem, const seccomp_notif &req, std::vector<uint8_t> &out) {
    out.clear();
    auto take = [&](uint64_t addr, uint64_t len) {
        if (len > kMaxNetlinkSend - out.size()) return EMSGSIZE;
        const size_t at = out.size();
        out.resize(at + len);
        return mem.read(addr, std::span<uint8_t>(out).subspan(at)) ? 0 : EFAULT;
    };
    if (req.data.nr == SYS_sendto) return take(req.data.args[1], req.data.args[2]);
    std::array<uint8_t, sizeof(msghdr)> mh{};
    if (!mem.read(req.data.args[1], mh)) return EFAULT;
    msghdr h{};
    std::memcpy(&h, mh.data(), sizeof h);
    if (h.msg_iovlen > kMaxIov) return EMSGSIZE;
    std::vector<uint8_t> iovs(h.msg_iovlen * sizeof(iovec));
    if (!mem.read(reinterpret_cast<uintptr_t>(h.msg_iov), iovs)) return EFAULT;
    for (size_t i = 0; i < h.msg_iovlen; ++i) {
        iovec v{};
        std::memcpy(&v, iovs.data() + i * sizeof v, sizeof v);
        if (const int err = take(reinterpret_cast<uintptr_t>(v.iov_base), v.iov_len); err != 0) return err;
    }
    return 0;
}

}  // namespace

int load_filter(const FilterOptions &opts) {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
    scmp_filter_ctx ctx = seccomp_init(SCMP_ACT_ALLOW);
    if (ctx == nullptr) return -1;
    int rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(ioctl), 1, SCMP_A1(SCMP_CMP_MASKED_EQ, 0xFF00, 0x7900));
    // SG_IO, for the SCSI generic nodes of sysfs hosts; on any other file it goes on to the kernel.
    if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(ioctl), 1, SCMP_A1(SCMP_CMP_EQ, SG_IO));
    if (rc == 0 && opts.netlink) {
        for (const auto &[type, proto] : {std::pair{SOCK_RAW, kNetlinkDriverProtocol}, std::pair{SOCK_DGRAM, kNetlinkScsiTransport},
                                          std::pair{SOCK_RAW, kNetlinkScsiTransport}}) {
            if (rc == 0)
                rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(socket), 3, SCMP_A0(SCMP_CMP_EQ, AF_NETLINK),
                                      SCMP_A1(SCMP_CMP_MASKED_EQ, 0xF, static_cast<scmp_datum_t>(type)),
                                      SCMP_A2(SCMP_CMP_EQ, static_cast<scmp_datum_t>(proto)));
        }
        if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(bind), 0);
        // Sends come to us too: the driver answers a request before sendmsg
        // returns, and callers read the reply without waiting.
        // The sandbox's own setup socket is left alone: it hands us the listener
        // with sendmsg before anyone could answer the notification.
        for (const int nr : {SCMP_SYS(sendmsg), SCMP_SYS(sendto)}) {
            if (rc != 0) break;
            rc = opts.setup_fd >= 0
                     ? seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, nr, 1,
                                        SCMP_A0(SCMP_CMP_NE, static_cast<scmp_datum_t>(opts.setup_fd)))
                     : seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, nr, 0);
        }
        if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(getsockname), 0);
        if (rc == 0)
            rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(setsockopt), 1, SCMP_A1(SCMP_CMP_EQ, kSolNetlink));
    }
    if (opts.node_dev) {
        // mknod(path, mode, dev) and mknodat(dirfd, path, mode, dev): block
        // devices never, character devices only with the driver's number.
        const scmp_datum_t dev = *opts.node_dev;
        for (const auto &[nr, mode_arg] : {std::pair{SCMP_SYS(mknod), 1u}, std::pair{SCMP_SYS(mknodat), 2u}}) {
            const scmp_arg_cmp blk{mode_arg, SCMP_CMP_MASKED_EQ, S_IFMT, S_IFBLK};
            const scmp_arg_cmp chr{mode_arg, SCMP_CMP_MASKED_EQ, S_IFMT, S_IFCHR};
            const scmp_arg_cmp other_dev{mode_arg + 1, SCMP_CMP_NE, dev, 0};
            if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_ERRNO(EPERM), nr, 1, blk);
            if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_ERRNO(EPERM), nr, 2, chr, other_dev);
        }
    }
    if (rc == 0 && opts.node_open) {
        rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(open), 0);
        if (rc == 0) rc = seccomp_rule_add(ctx, SCMP_ACT_NOTIFY, SCMP_SYS(openat), 0);
    }
    if (rc == 0) rc = seccomp_load(ctx);
    const int fd = rc == 0 ? seccomp_notify_fd(ctx) : -1;
    // The listener stays open after the context is released: it is ours now.
    const int own = fd >= 0 ? ::fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
    seccomp_release(ctx);
    if (rc != 0) errno = -rc;
    return own;
}

SeccompSupervisor::SeccompSupervisor(Host &host, DriverService &driver, NetlinkService &netlink,
                                     ScsiGenericService &sg, TrafficLog &log)
    : host_(host), driver_(driver), netlink_(netlink), sg_(sg), log_(log) {}

SeccompSupervisor::~SeccompSupervisor() {
    if (req_ != nullptr) seccomp_notify_free(req_, resp_);
}

bool SeccompSupervisor::attach(UniqueFd listener) {
    listener_ = std::move(listener);
    seccomp_notif_sizes sizes{};
    if (::syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes) != 0) return false;
    req_size_ = sizes.seccomp_notif;
    resp_size_ = sizes.seccomp_notif_resp;
    return seccomp_notify_alloc(&req_, &resp_) == 0;
}

void SeccompSupervisor::process() {
    // libseccomp does not clear the buffer, and the kernel refuses a dirty one.
    std::memset(req_, 0, req_size_);
    if (seccomp_notify_receive(listener_.get(), req_) != 0) return;  // the caller died meanwhile
    std::memset(resp_, 0, resp_size_);
    resp_->id = req_->id;
    const int nr = req_->data.nr;
    if (nr == SYS_ioctl) {
        on_ioctl(*req_, *resp_);
    } else if (nr == SYS_socket) {
        if (on_socket(*req_, *resp_)) return;
    } else if (nr == SYS_bind || nr == SYS_getsockname || nr == SYS_setsockopt || nr == SYS_sendmsg ||
               nr == SYS_sendto) {
        on_sock_call(*req_, *resp_);
    } else if (nr == SYS_open || nr == SYS_openat) {
        on_open(*req_, *resp_);
    } else {
        resp_->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
    (void)seccomp_notify_respond(listener_.get(), resp_);  // ENOENT: the caller is gone
}

void SeccompSupervisor::on_sg_io(seccomp_notif &req, seccomp_notif_resp &resp) {
    // Ours only when the descriptor is one of the SCSI generic nodes we made.
    const std::string fd_link =
        "/proc/" + std::to_string(req.pid) + "/fd/" + std::to_string(static_cast<int>(req.data.args[0]));
    struct stat st{};
    std::array<char, 256> target{};
    const ssize_t n = ::readlink(fd_link.c_str(), target.data(), target.size() - 1);
    const std::string path = n > 0 ? std::string(target.data(), static_cast<size_t>(n)) : std::string();
    if (::stat(fd_link.c_str(), &st) != 0 || !S_ISCHR(st.st_mode) || st.st_rdev != scsi_generic_dev() ||
        !sg_.serves(path)) {
        resp.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        return;
    }
    ProcessMemory mem(static_cast<pid_t>(req.pid));
    const int err = sg_.handle_sg_io(path, req.data.args[2], mem, req.pid);
    if (err != 0) resp.error = -err;
}

void SeccompSupervisor::on_ioctl(seccomp_notif &req, seccomp_notif_resp &resp) {
    if (static_cast<unsigned>(req.data.args[1]) == SG_IO) {
        on_sg_io(req, resp);
        return;
    }
    ++ioctls_;
    // The filter stops every ioctl of type 'y', whatever it is issued on; only
    // those on the driver's node reach the driver. The rest fail the way the
    // kernel would fail them: a closed descriptor with EBADF, any other file
    // with ENOTTY (and that is the caller's mistake, so it is a violation).
    const std::string fd_path =
        "/proc/" + std::to_string(req.pid) + "/fd/" + std::to_string(static_cast<int>(req.data.args[0]));
    struct stat st{};
    const bool open_fd = ::stat(fd_path.c_str(), &st) == 0;
    if (!open_fd || !S_ISCHR(st.st_mode) || st.st_rdev != makedev(host_.node.major, host_.node.minor)) {
        TrafficEntry e;
        e.kind = "ioctl";
        e.pid = req.pid;
        e.command = static_cast<unsigned>(req.data.args[1] & 0xFF);
        const int err = open_fd ? ENOTTY : EBADF;
        e.status = -err;
        e.violation = open_fd ? "request on a descriptor that is not the driver's node" : "request on a closed descriptor";
        log_.record(e);
        resp.error = -err;
        return;
    }
    ProcessMemory mem(static_cast<pid_t>(req.pid));
    const int err = driver_.handle_ioctl(static_cast<unsigned long>(req.data.args[1]), req.data.args[2], mem, req.pid);
    if (err != 0) resp.error = -err;
}

bool SeccompSupervisor::on_socket(seccomp_notif &req, seccomp_notif_resp &resp) {
    const int type = static_cast<int>(req.data.args[1]);
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        resp.error = -errno;
        return false;
    }
    auto inj = std::make_unique<Injected>();
    inj->ours.reset(pair[0]);
    inj->theirs.reset(pair[1]);
    inj->tgid = req.pid;
    inj->protocol = static_cast<int>(req.data.args[2]);
    if ((type & SOCK_NONBLOCK) != 0) ::fcntl(pair[1], F_SETFL, O_NONBLOCK);
    seccomp_notif_addfd add{};
    add.id = req.id;
    add.flags = SECCOMP_ADDFD_FLAG_SEND;
    add.srcfd = static_cast<uint32_t>(pair[1]);
    add.newfd_flags = (type & SOCK_CLOEXEC) != 0 ? O_CLOEXEC : 0;
    // With FLAG_SEND the new descriptor is the caller's socket() result; no second answer.
    const int got = ::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ADDFD, &add);
    TrafficEntry e;
    e.kind = "netlink";
    e.pid = req.pid;
    e.op = "socket";
    e.command = static_cast<unsigned>(inj->protocol);
    e.status = got >= 0 ? 0 : -errno;
    log_.record(e);
    if (got < 0) {
        resp.error = -errno;
        return false;
    }
    injected_.push_back(std::move(inj));
    return true;
}

SeccompSupervisor::Injected *SeccompSupervisor::find_injected(unsigned pid, int fd) {
    for (auto &inj : injected_) {
        if (::syscall(SYS_kcmp, static_cast<pid_t>(pid), ::getpid(), KCMP_FILE, fd, inj->theirs.get()) == 0)
            return inj.get();
    }
    return nullptr;
}

void SeccompSupervisor::on_sock_call(seccomp_notif &req, seccomp_notif_resp &resp) {
    Injected *inj = find_injected(req.pid, static_cast<int>(req.data.args[0]));
    if (inj == nullptr) {
        resp.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;  // not ours: the kernel carries on
        return;
    }
    ProcessMemory mem(static_cast<pid_t>(req.pid));
    if (req.data.nr == SYS_sendmsg || req.data.nr == SYS_sendto) {
        // Only requests on the driver's socket are answered here; the transport
        // socket just takes what is sent, as the kernel would.
        if (inj->protocol != kNetlinkDriverProtocol) {
            resp.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
            return;
        }
        std::vector<uint8_t> msg;
        if (const int err = gather_send(mem, req, msg); err != 0) {
            resp.error = -err;
            return;
        }
        const auto reply = netlink_.handle(msg, inj->tgid);
        // Queued before the caller's send returns, so a non-blocking receive finds it.
        if (!reply.empty()) (void)::send(inj->ours.get(), reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        resp.val = static_cast<int64_t>(msg.size());
        return;
    }
    if (req.data.nr == SYS_bind) {
        std::array<uint8_t, sizeof(sockaddr_nl)> addr{};
        if (req.data.args[2] < sizeof(sockaddr_nl) || !mem.read(req.data.args[1], addr)) {
            resp.error = -EINVAL;
            return;
        }
        sockaddr_nl nl{};
        std::memcpy(&nl, addr.data(), sizeof nl);
        if (nl.nl_family != AF_NETLINK) {
            resp.error = -EINVAL;
            return;
        }
        inj->nl_pid = nl.nl_pid;
    } else if (req.data.nr == SYS_getsockname) {
        sockaddr_nl nl{};
        nl.nl_family = AF_NETLINK;
        nl.nl_pid = inj->nl_pid != 0 ? inj->nl_pid : inj->tgid;
        std::array<uint8_t, sizeof nl> out{};
        std::memcpy(out.data(), &nl, sizeof nl);
        uint32_t len = sizeof nl;
        std::array<uint8_t, 4> lenb{};
        std::memcpy(lenb.data(), &len, 4);
        if (!mem.write(req.data.args[1], out) || !mem.write(req.data.args[2], lenb)) resp.error = -EFAULT;
    }
    // setsockopt(SOL_NETLINK, ...): group membership is accepted as is.
}

void SeccompSupervisor::on_open(seccomp_notif &req, seccomp_notif_resp &resp) {
    ProcessMemory mem(static_cast<pid_t>(req.pid));
    const uint64_t path_arg = req.data.nr == SYS_openat ? req.data.args[1] : req.data.args[0];
    std::string path;
    if (!read_path(mem, path_arg, path) || path != "/dev/" + host_.driver.name) {
        resp.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        return;
    }
    resp.error = -host_.node.open_errno;
    TrafficEntry e;
    e.kind = "ioctl";
    e.op = "open";
    e.pid = req.pid;
    e.text = path;
    e.fault = "errno " + std::to_string(host_.node.open_errno);
    e.status = -static_cast<int64_t>(host_.node.open_errno);
    log_.record(e);
}

std::vector<int> SeccompSupervisor::netlink_fds() const {
    std::vector<int> fds;
    for (const auto &inj : injected_) fds.push_back(inj->ours.get());
    return fds;
}

bool SeccompSupervisor::serve_netlink(int fd) {
    auto it = std::find_if(injected_.begin(), injected_.end(), [fd](const auto &i) { return i->ours.get() == fd; });
    if (it == injected_.end()) return false;
    std::vector<uint8_t> buf(200000);
    const ssize_t n = ::recv(fd, buf.data(), buf.size(), MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (n <= 0) return false;
    if ((*it)->protocol != kNetlinkDriverProtocol) return true;  // the transport socket only listens
    const auto reply = netlink_.handle(std::span<const uint8_t>(buf.data(), static_cast<size_t>(n)), (*it)->tgid);
    if (!reply.empty()) (void)::send(fd, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return true;
}

void SeccompSupervisor::drop_netlink(int fd) {
    std::erase_if(injected_, [fd](const auto &i) { return i->ours.get() == fd; });
}

}  // namespace vxemu

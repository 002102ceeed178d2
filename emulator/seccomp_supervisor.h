// SPDX-License-Identifier: MIT
// The seccomp side of the emulated driver. In the sandbox, load_filter() makes
// the kernel hand the driver's requests to us: ioctls of type 'y' (and SG_IO
// for the SCSI generic nodes of sysfs hosts), netlink
// sockets of the driver's protocols (and the calls that configure them), and,
// when the node must not open, opens. In the supervisor, SeccompSupervisor
// answers each notification.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver_service.h"
#include "netlink_service.h"
#include "scsi_generic.h"
#include "unique_fd.h"

struct seccomp_notif;
struct seccomp_notif_resp;

namespace vxemu {

struct FilterOptions {
    bool netlink = true;
    bool node_open = false;
    int setup_fd = -1;  // descriptor whose sends are never intercepted
    // The one device node the command may create (the driver's, as its
    // library does); every other device node is refused with EPERM.
    std::optional<uint32_t> node_dev;
};

// Loads the filter into the calling process (no_new_privs is set first);
// returns the listener descriptor or -1 with errno.
int load_filter(const FilterOptions &opts);

class SeccompSupervisor {
public:
    SeccompSupervisor(Host &host, DriverService &driver, NetlinkService &netlink, ScsiGenericService &sg,
                      TrafficLog &log);
    ~SeccompSupervisor();
    SeccompSupervisor(const SeccompSupervisor &) = delete;
    SeccompSupervisor &operator=(const SeccompSupervisor &) = delete;

    [[nodiscard]] bool attach(UniqueFd listener);
    [[nodiscard]] int fd() const { return listener_.get(); }
    // Answers one notification (or none, if the caller vanished meanwhile).
    void process();
    // Drops the listener: calls still pending fail in the caller.
    void close() { listener_.reset(); }

    // Our ends of the injected netlink sockets, to be polled.
    [[nodiscard]] std::vector<int> netlink_fds() const;
    // Reads one message on our end of an injected socket and answers it; false when the peer is gone.
    bool serve_netlink(int fd);
    void drop_netlink(int fd);

    [[nodiscard]] uint64_t ioctl_count() const { return ioctls_; }

private:
    struct Injected {
        UniqueFd ours;    // our end of the pair
        UniqueFd theirs;  // a copy of the end given to the caller (to recognise it)
        unsigned tgid = 0;
        uint32_t nl_pid = 0;
        int protocol = 0;
    };
    void on_ioctl(seccomp_notif &req, seccomp_notif_resp &resp);
    void on_sg_io(seccomp_notif &req, seccomp_notif_resp &resp);
    bool on_socket(seccomp_notif &req, seccomp_notif_resp &resp);  // true when answered via ADDFD
    void on_sock_call(seccomp_notif &req, seccomp_notif_resp &resp);
    void on_open(seccomp_notif &req, seccomp_notif_resp &resp);
    Injected *find_injected(unsigned pid, int fd);

    Host &host_;
    DriverService &driver_;
    NetlinkService &netlink_;
    ScsiGenericService &sg_;
    TrafficLog &log_;
    UniqueFd listener_;
    seccomp_notif *req_ = nullptr;
    seccomp_notif_resp *resp_ = nullptr;
    size_t req_size_ = 0, resp_size_ = 0;
    std::vector<std::unique_ptr<Injected>> injected_;
    uint64_t ioctls_ = 0;
};

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// The control channel of a running emulator: a socket in the run directory
// (STATE/.run/control) through which `vxemu event` raises driver events on a
// port while the command runs, and waits until the driver has handed them on.
#pragma once

#include <string>
#include <vector>

#include "host_model.h"
#include "unique_fd.h"

namespace vxemu {

// Events a port holds at most; a new one beyond drops the oldest, as the
// driver's own ring does.
inline constexpr size_t kDriverEventQueue = 1024;

// Queues `codes` as driver events on a port. An ioctl port queues them only
// while event reporting is registered; a sysfs port always does (its events
// are fetched over netlink). Returns the number queued.
size_t raise_events(Adapter &adapter, size_t fn_index, Transport transport, const std::vector<uint32_t> &codes);

class ControlServer {
public:
    // Binds STATE/.run/control; false with errno on failure.
    bool open(const std::string &run_dir);
    // The listening socket and every connection waiting for its request.
    [[nodiscard]] std::vector<int> fds() const;
    // Serves one descriptor of fds() that is ready: accepts a connection, or
    // answers its one request ("raise ADAPTER FN CODE..." or "pending
    // ADAPTER FN") and closes it. Never waits: the emulator's loop also
    // answers the client's own system calls.
    void serve(int fd, Host &host);

private:
    UniqueFd sock_;
    std::vector<UniqueFd> conns_;
};

// `vxemu event`: argv[0] is "event".
int event_main(int argc, char **argv);

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// The sandbox a command runs in: private mount, IPC, UTS and PID namespaces
// (with a /proc of its own), a private /dev with the driver node, the SCSI
// generic nodes of sysfs hosts and no other device node creatable, the emulated /proc/devices and ostype,
// overlays on /etc and /usr/lib, a fresh /tmp, and /sys mounted from a
// /dev/fuse descriptor that is handed to the supervisor together with the
// seccomp listener. Runs in the forked child; a child of it is process 1 of
// the command's PID namespace, which starts the command, reaps the namespace
// and ends with the command's status.
#pragma once

#include <string>
#include <vector>

#include "host_model.h"

namespace vxemu {

struct SandboxConfig {
    std::vector<std::string> argv;  // the command
    std::string state_dir;          // overlay upper layers land here
    std::string run_dir;            // scratch for staging (removed by the supervisor)
    std::string cwd;                // kept visible below the fresh /tmp
    bool intercept_netlink = true;
};

// The emulated /proc/devices: the real text with every line naming the driver
// dropped and, when the driver registers its character device, "%3u <driver>"
// put into the character section in major order.
[[nodiscard]] std::string emulated_proc_devices(const std::string &real, const std::string &driver, unsigned major,
                                                bool registered = true);

// In the child: builds the sandbox, sends the descriptors over `sock`, runs
// the command in its PID namespace and exits with its status (128 + signal
// when killed). On a setup failure it reports the reason over `sock` and
// exits with kSetupFailed.
[[noreturn]] void sandbox_child(const SandboxConfig &cfg, const Host &host, int sock);

inline constexpr int kSetupFailed = 125;
inline constexpr int kExecFailed = 127;

}  // namespace vxemu

// SPDX-License-Identifier: MIT
#include "run_command.h"

#include <poll.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "command_line.h"
#include "control_channel.h"
#include "driver_service.h"
#include "fault_injector.h"
#include "fuse_server.h"
#include "host_model.h"
#include "netlink_service.h"
#include "sandbox.h"
#include "seccomp_supervisor.h"
#include "state_files.h"
#include "sysfs_tree.h"
#include "traffic_log.h"
#include "unique_fd.h"

namespace fs = std::filesystem;

namespace vxemu {

bool parse_run_args(int argc, char **argv, RunOptions &opts, std::string &error) {
    static constexpr OptionSpec kRunOptions[] = {
        {"host", 'H', true}, {"state", 's', true}, {"log", 'l', true}, {"seed", 'S', true},
        {"power-cut", 'P', true}, {"help", 'h', false}};
    ParsedOptions parsed;
    if (!parse_options(argc, argv, kRunOptions, parsed, error)) return false;
    for (const auto &[name, value] : parsed.options) {
        if (name == "host") opts.host_file = value;
        else if (name == "state") opts.state_dir = value;
        else if (name == "log") opts.log_file = value;
        else if (name == "seed" || name == "power-cut") {
            const std::optional<uint64_t> v = parse_number(value);
            if (!v || (name == "power-cut" && *v == 0)) {
                error = "--" + name + ": expected a number" + (name == "power-cut" ? " from 1" : "") + ", not \"" + value + "\"";
                return false;
            }
            (name == "seed" ? opts.seed : opts.power_cut) = *v;
        }
        else if (name == "help") opts.help = true;
    }
    opts.command = std::move(parsed.operands);
    if (opts.command.empty() && !opts.help) {
        error = "no command given after --";
        return false;
    }
    return true;
}

namespace {

void fail(const std::string &msg) { std::fprintf(stderr, "vxemu: %s\n", msg.c_str()); }

// A scratch state directory that goes away with the run.
class ScratchDir {
public:
    ScratchDir() {
        const char *base = std::getenv("TMPDIR");
        std::string tmpl = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vxemu-XXXXXX";
        if (::mkdtemp(tmpl.data()) != nullptr) path_ = tmpl;
    }
    ~ScratchDir() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_;
};

// Every process below `root` (by the parent links in /proc), root included.
std::vector<pid_t> descendants(pid_t root) {
    std::vector<std::pair<pid_t, pid_t>> all;  // pid, ppid
    if (DIR *d = ::opendir("/proc")) {
        while (dirent *e = ::readdir(d)) {
            char *end = nullptr;
            const long pid = std::strtol(e->d_name, &end, 10);
            if (end == e->d_name || *end != '\0') continue;
            std::ifstream st("/proc/" + std::string(e->d_name) + "/stat");
            std::string line;
            std::getline(st, line);
            const size_t rp = line.rfind(')');
            if (rp == std::string::npos) continue;
            long ppid = 0;
            char state = 0;
            if (std::sscanf(line.c_str() + rp + 1, " %c %ld", &state, &ppid) == 2)
                all.emplace_back(static_cast<pid_t>(pid), static_cast<pid_t>(ppid));
        }
        ::closedir(d);
    }
    std::vector<pid_t> out{root};
    for (size_t k = 0; k < out.size(); ++k)
        for (const auto &[p, pp] : all)
            if (pp == out[k] && std::find(out.begin(), out.end(), p) == out.end()) out.push_back(p);
    return out;
}

// STATE/traffic.jsonl becomes STATE/traffic.N.jsonl, N the first free number.
Status keep_previous_log(const std::string &state_dir) {
    const std::string current = state_dir + "/traffic.jsonl";
    struct stat st {};
    if (::lstat(current.c_str(), &st) != 0) return {};
    if (!S_ISREG(st.st_mode)) return {};  // replaced when the new log is created
    for (unsigned n = 1; n < 100000; ++n) {
        const std::string kept = state_dir + "/traffic." + std::to_string(n) + ".jsonl";
        if (::renameat2(AT_FDCWD, current.c_str(), AT_FDCWD, kept.c_str(), RENAME_NOREPLACE) == 0) return {};
        if (errno != EEXIST) return Status::fail(current + ": cannot keep it as " + kept + ": " + std::strerror(errno));
    }
    return Status::fail(current + ": too many kept logs");
}

int status_of(int wstatus) {
    if (WIFEXITED(wstatus)) return WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus)) return 128 + WTERMSIG(wstatus);
    return kExitSetup;
}

}  // namespace

int run_command(const RunOptions &opts) {
    if (::geteuid() != 0) {
        fail("run needs root: it builds namespaces and mounts (run it as root, for example with sudo)");
        return kExitSetup;
    }
    // ---- the host and its state
    Result<Host> loaded = opts.host_file.empty() ? builtin_host() : load_host_file(opts.host_file);
    if (!loaded.ok()) {
        fail(loaded.error().message);
        return kExitSetup;
    }
    Host host = std::move(loaded).value();
    if (opts.seed) host.seed = *opts.seed;
    if (opts.power_cut) host.power_cut = *opts.power_cut;

    std::unique_ptr<ScratchDir> scratch;
    std::string state_dir = opts.state_dir;
    if (state_dir.empty()) {
        scratch = std::make_unique<ScratchDir>();
        if (scratch->path().empty()) {
            fail(std::string("mkdtemp: ") + std::strerror(errno));
            return kExitSetup;
        }
        state_dir = scratch->path();
    }
    std::error_code ec;
    fs::create_directories(state_dir, ec);
    if (ec) {
        fail(state_dir + ": cannot create the state directory: " + ec.message());
        return kExitSetup;
    }
    state_dir = fs::absolute(state_dir, ec).lexically_normal().string();
    if (!state_dir.empty() && state_dir.back() == '/' && state_dir.size() > 1) state_dir.pop_back();
    // Root writes here: nobody else may be able to plant a link in it.
    if (const Status st = check_state_dir(state_dir); !st.ok()) {
        fail(st.error().message);
        return kExitSetup;
    }
    if (const Status st = load_state(host, state_dir); !st.ok()) {
        fail(st.error().message);
        return kExitSetup;
    }

    // The description this state runs with, for whoever reads the state later.
    if (const Status st = write_state_file(state_dir + "/host.json", std::span<const uint8_t>(
                                               reinterpret_cast<const uint8_t *>(host.description.data()),
                                               host.description.size()));
        !st.ok()) {
        fail(st.error().message);
        return kExitSetup;
    }
    // Each run keeps its own log: the one of the previous run is numbered.
    if (opts.log_file.empty()) {
        if (const Status st = keep_previous_log(state_dir); !st.ok()) {
            fail(st.error().message);
            return kExitSetup;
        }
    }

    TrafficLog log;
    const std::string log_path = opts.log_file.empty() ? state_dir + "/traffic.jsonl" : opts.log_file;
    if (!log.open(log_path, opts.log_file.empty())) {
        fail("open(" + log_path + "): " + std::strerror(errno));
        return kExitSetup;
    }

    const std::string run_dir = state_dir + "/.run";
    fs::remove_all(run_dir, ec);
    fs::create_directories(run_dir, ec);
    struct RunDirGuard {
        std::string path;
        ~RunDirGuard() {
            std::error_code e;
            fs::remove_all(path, e);
        }
    } run_guard{run_dir};

    FaultInjector faults(host);
    DriverService driver(host, log, faults);
    NetlinkService netlink(host, log);
    SysfsTree tree(host, log, faults);
    FuseServer fuse(tree);
    ScsiGenericService scsi_generic(host, log);
    SeccompSupervisor supervisor(host, driver, netlink, scsi_generic, log);
    ControlServer control;
    if (!control.open(run_dir)) {
        fail("control socket in " + run_dir + ": " + std::strerror(errno));
        return kExitSetup;
    }

    // ---- signals: handled in the loop, so the sandbox is always torn down
    sigset_t mask, old_mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGTERM);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGHUP);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, &old_mask);
    UniqueFd sigfd(::signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK));

    int sv[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) != 0) {
        fail(std::string("socketpair: ") + std::strerror(errno));
        return kExitSetup;
    }
    UniqueFd parent_sock(sv[0]), child_sock(sv[1]);

    SandboxConfig cfg;
    cfg.argv = opts.command;
    cfg.state_dir = state_dir;
    cfg.run_dir = run_dir;
    std::error_code cwd_ec;
    cfg.cwd = fs::current_path(cwd_ec).string();

    // Orphans of the command come to us, so that a killed run can find them
    // and their exit is reaped here (a zombie would keep the filter alive).
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
        fail(std::string("fork: ") + std::strerror(errno));
        return kExitSetup;
    }
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &old_mask, nullptr);
        parent_sock.reset();
        sandbox_child(cfg, host, child_sock.get());
    }
    child_sock.reset();

    // ---- setup messages until exec closes the socket
    std::string setup_error;
    for (;;) {
        SetupMsg tag{};
        std::string text;
        UniqueFd fd;
        if (!recv_msg(parent_sock.get(), tag, text, fd)) break;
        if (tag == SetupMsg::fuse_fd) {
            if (!fuse.attach(fd.release())) setup_error = "cannot serve /sys";
        } else if (tag == SetupMsg::listener_fd) {
            if (!supervisor.attach(std::move(fd))) setup_error = "cannot use the seccomp listener";
        } else if (tag == SetupMsg::error) {
            setup_error = text;
        } else if (tag == SetupMsg::exec_error) {
            fail(text);
        }
    }
    parent_sock.reset();

    bool child_done = false;
    int child_status = kExitSetup;
    auto reap = [&](int flags) {
        int ws = 0;
        if (!child_done && ::waitpid(child, &ws, flags) == child) {
            child_done = true;
            child_status = status_of(ws);
        }
    };
    auto reap_all = [&] {
        int ws = 0;
        pid_t p;
        while ((p = ::waitpid(-1, &ws, WNOHANG)) > 0)
            if (p == child && !child_done) {
                child_done = true;
                child_status = status_of(ws);
            }
    };
    auto kill_all = [] {
        for (pid_t p : descendants(::getpid()))
            if (p != ::getpid()) ::kill(p, SIGKILL);
    };

    // The power fails during a store: the command dies before it hears back,
    // and the adapters keep what they held at that moment.
    faults.on_power_cut(kill_all);

    if (!setup_error.empty() || supervisor.fd() < 0 || fuse.fd() < 0) {
        // Without both services the command would hang on /sys or its requests:
        // never let it run half served.
        fail("sandbox: " + (setup_error.empty() ? std::string("setup did not complete") : setup_error));
        kill_all();
        reap(0);
        return kExitSetup;
    }

    // ---- serve until the last filtered task is gone
    int stop_signal = 0;
    bool fuse_alive = fuse.fd() >= 0;
    while (supervisor.fd() >= 0) {
        std::vector<pollfd> pfds;
        pfds.push_back({supervisor.fd(), POLLIN, 0});
        pfds.push_back({fuse_alive ? fuse.fd() : -1, POLLIN, 0});
        pfds.push_back({sigfd.get(), POLLIN, 0});
        const std::vector<int> nl = supervisor.netlink_fds();
        const std::vector<int> ctl = control.fds();
        for (int fd : nl) pfds.push_back({fd, POLLIN, 0});
        for (int fd : ctl) pfds.push_back({fd, POLLIN, 0});
        if (::poll(pfds.data(), pfds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            fail(std::string("poll: ") + std::strerror(errno));
            break;
        }
        if (pfds[1].revents != 0 && !fuse.process()) fuse_alive = false;
        if (pfds[0].revents & POLLIN) supervisor.process();
        for (size_t k = 0; k < nl.size(); ++k)
            if (pfds[3 + k].revents != 0 && !supervisor.serve_netlink(nl[k])) supervisor.drop_netlink(nl[k]);
        for (size_t k = 0; k < ctl.size(); ++k)
            if (pfds[3 + nl.size() + k].revents != 0) control.serve(ctl[k], host);
        if (pfds[2].revents != 0) {
            signalfd_siginfo si{};
            while (::read(sigfd.get(), &si, sizeof si) == sizeof si) {
                if (si.ssi_signo == SIGCHLD) {
                    reap_all();
                } else if (stop_signal == 0) {
                    stop_signal = static_cast<int>(si.ssi_signo);
                    // Kill the whole command; the namespaces, mounts and semaphores go with it.
                    kill_all();
                }
            }
        }
        if ((pfds[0].revents & (POLLHUP | POLLERR)) != 0 && (pfds[0].revents & POLLIN) == 0) break;
    }
    supervisor.close();
    reap(0);
    reap_all();
    // A background process that left the filter's reach may still hold the mount
    // namespace; nothing more to serve, so end anyway.

    int rc = child_status;
    if (const Status st = save_state(host, state_dir); !st.ok()) {
        fail("saving state: " + st.error().message);
        rc = kExitSetup;
    }
    log.flush();
    if (log.violations() > 0) {
        fail(std::to_string(log.violations()) + " protocol violation(s); first: " + log.first_violation());
        if (rc != kExitSetup) rc = kExitViolation;
    }
    if (stop_signal != 0) rc = 128 + stop_signal;
    sigprocmask(SIG_SETMASK, &old_mask, nullptr);
    return rc;
}

}  // namespace vxemu

// SPDX-License-Identifier: MIT
#include "sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "scsi_generic.h"
#include "seccomp_supervisor.h"
#include "unique_fd.h"

namespace vxemu {

std::string emulated_proc_devices(const std::string &real, const std::string &driver, unsigned major,
                                  bool registered) {
    std::istringstream in(real);
    std::string out, line;
    bool in_char = false, placed = !registered;
    char ours[64];
    std::snprintf(ours, sizeof ours, "%3u %s", major, driver.c_str());
    while (std::getline(in, line)) {
        if (line.find(driver) != std::string::npos) continue;
        if (line == "Character devices:") {
            in_char = true;
        } else if (in_char && !placed) {
            unsigned m = 0;
            const bool numbered = std::sscanf(line.c_str(), "%u", &m) == 1;
            if (!numbered || m > major) {
                out += ours;
                out += '\n';
                placed = true;
            }
            if (!numbered) in_char = false;
        }
        out += line;
        out += '\n';
    }
    if (!placed) {
        if (!in_char) out += "Character devices:\n";
        out += ours;
        out += '\n';
    }
    return out;
}

namespace {

// Setup failures carry the failing call and path, like every other OS error we report.
struct SetupError {
    std::string what;
};

void check(bool ok, const std::string &what) {
    if (!ok) throw SetupError{what + ": " + std::strerror(errno)};
}

void mkdirs(const std::string &path, mode_t mode = 0755) {
    std::string cur;
    size_t pos = 0;
    while (pos <= path.size()) {
        size_t slash = path.find('/', pos);
        if (slash == std::string::npos) slash = path.size();
        cur = path.substr(0, slash);
        if (!cur.empty() && ::mkdir(cur.c_str(), mode) != 0 && errno != EEXIST) check(false, "mkdir(" + cur + ")");
        pos = slash + 1;
    }
}

void write_text(const std::string &path, const std::string &text, mode_t mode = 0644, int extra_flags = 0) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | extra_flags, mode));
    check(fd.valid(), "open(" + path + ")");
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd.get(), text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        check(n > 0, "write(" + path + ")");
        done += static_cast<size_t>(n);
    }
}

// Places a file of the host description below the /etc overlay. Nothing may
// lead out of the overlay: a symbolic link on the way (/etc/resolv.conf and
// /etc/mtab usually are links into /run and /proc) would hand the write to the
// real file behind it. A link at the last place is removed (a whiteout in the
// upper layer) and a plain file takes its place; a link as a directory is an error.
void write_etc_file(const std::string &path, const std::string &text) {
    if (path.rfind("/etc/", 0) != 0 || path.find("/../") != std::string::npos || path.find("/./") != std::string::npos ||
        path.back() == '/' || path.ends_with("/..") || path.ends_with("/."))
        throw SetupError{"etc file outside /etc: " + path};
    for (size_t slash = path.find('/', 5); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string dir = path.substr(0, slash);
        struct stat st{};
        if (::lstat(dir.c_str(), &st) != 0) {
            check(errno == ENOENT && ::mkdir(dir.c_str(), 0755) == 0, "mkdir(" + dir + ")");
        } else if (!S_ISDIR(st.st_mode)) {
            throw SetupError{"etc file " + path + ": " + dir + " is not a directory"};
        }
    }
    struct stat st{};
    if (::lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
        check(::unlink(path.c_str()) == 0, "unlink(" + path + ")");
    write_text(path, text, 0644, O_NOFOLLOW);
}

std::string read_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void do_mount(const char *src, const std::string &dst, const char *type, unsigned long flags, const std::string &data) {
    check(::mount(src, dst.c_str(), type, flags, data.empty() ? nullptr : data.c_str()) == 0,
          std::string("mount(") + (type != nullptr ? type : "bind") + ", " + dst + ")");
}

void overlay(const std::string &lower, const std::string &upper, const std::string &work) {
    mkdirs(upper);
    mkdirs(work);
    do_mount("overlay", lower, "overlay", 0, "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work);
}

void build_dev(const SandboxConfig &cfg, const Host &host) {
    const std::string stage = cfg.run_dir + "/dev";
    mkdirs(stage);
    do_mount("tmpfs", stage, "tmpfs", MS_NOSUID, "mode=0755,size=1m");
    for (const char *n : {"null", "zero", "full", "random", "urandom", "tty"}) {
        const std::string p = stage + "/" + n;
        write_text(p, "", 0666);
        do_mount(("/dev/" + std::string(n)).c_str(), p, nullptr, MS_BIND, "");
    }
    mkdirs(stage + "/pts");
    do_mount("devpts", stage + "/pts", "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0620");
    check(::symlink("pts/ptmx", (stage + "/ptmx").c_str()) == 0, "symlink(ptmx)");
    mkdirs(stage + "/shm");
    do_mount("tmpfs", stage + "/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    check(::symlink("/proc/self/fd", (stage + "/fd").c_str()) == 0, "symlink(fd)");
    check(::symlink("/proc/self/fd/0", (stage + "/stdin").c_str()) == 0, "symlink(stdin)");
    check(::symlink("/proc/self/fd/1", (stage + "/stdout").c_str()) == 0, "symlink(stdout)");
    check(::symlink("/proc/self/fd/2", (stage + "/stderr").c_str()) == 0, "symlink(stderr)");
    // A stale node is planted with the wrong number so the library has to replace it.
    const auto [maj, min] = host.node.stale ? *host.node.stale : std::make_pair(host.node.major, host.node.minor);
    const std::string node = stage + "/" + host.driver.name;
    check(::mknod(node.c_str(), S_IFCHR | 0600, makedev(maj, min)) == 0, "mknod(" + node + ")");
    // The SCSI generic nodes of sysfs hosts; the command itself may create none.
    for (const ScsiGenericNode &sg : scsi_generic_nodes(host)) {
        const std::string p = stage + "/" + sg.name();
        check(::mknod(p.c_str(), S_IFCHR | 0600, scsi_generic_dev()) == 0, "mknod(" + p + ")");
    }
    do_mount(stage.c_str(), "/dev", nullptr, MS_MOVE, "");
}

// Runs in the forked child, in the machine's PID namespace: the mounts that
// do not depend on the command's PID namespace, with /sys mounted from here so
// that the FUSE server sees callers' process ids as the supervisor does.
void build_outer(const SandboxConfig &cfg, const Host &host, int sock) {
    check(::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl(PDEATHSIG)");
    UniqueFd fuse(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    check(fuse.valid(), "open(/dev/fuse)");
    // The command gets a PID namespace of its own (entered by our next child),
    // so its /proc shows only its own processes, never this machine's init.
    check(::unshare(CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWPID) == 0, "unshare");
    do_mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, "");

    overlay("/etc", cfg.state_dir + "/etc-upper", cfg.run_dir + "/etc-work");
    for (const auto &[path, text] : host.etc_files) write_etc_file(path, text);
    overlay("/usr/lib", cfg.state_dir + "/usrlib-upper", cfg.run_dir + "/usrlib-work");
    // What a tool keeps across runs (flashwright's update journal) persists with the adapters' state.
    overlay("/var/lib", cfg.state_dir + "/varlib-upper", cfg.run_dir + "/varlib-work");

    build_dev(cfg, host);

    // Staged now, while the machine's /proc is still the one mounted.
    write_text(cfg.run_dir + "/proc-devices", emulated_proc_devices(read_text("/proc/devices"), host.driver.name,
                                                                    host.node.major, host.registers_char_device()));
    write_text(cfg.run_dir + "/ostype", host.ostype + "\n");

    // /sys: the FUSE tree over the real sysfs, so /proc/mounts still lists a
    // sysfs at /sys (libsysfs looks for exactly that entry).
    const std::string opts = "fd=" + std::to_string(fuse.get()) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    do_mount("vxsysfs", "/sys", "fuse.vxsysfs", MS_NOSUID | MS_NODEV, opts);
    check(send_msg(sock, SetupMsg::fuse_fd, "", fuse.get()), "sendmsg(fuse)");
    fuse.reset();
}

// Runs as process 1 of the command's PID namespace: a /proc of that
// namespace, with the emulated files bound over it, then the fresh /tmp.
void build_inner(const SandboxConfig &cfg) {
    check(::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl(PDEATHSIG)");
    do_mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, "");
    do_mount((cfg.run_dir + "/proc-devices").c_str(), "/proc/devices", nullptr, MS_BIND, "");
    do_mount((cfg.run_dir + "/ostype").c_str(), "/proc/sys/kernel/ostype", nullptr, MS_BIND, "");

    // /tmp last: the run directory may itself live below /tmp.
    // Keeping /tmp itself as the working directory would hand the real /tmp back.
    if (cfg.cwd == "/tmp")
        throw SetupError{"the working directory /tmp cannot stay visible beside a fresh /tmp; run from a directory below it"};
    UniqueFd keep(::open(cfg.cwd.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    check(keep.valid(), "open(" + cfg.cwd + ")");
    do_mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    if (cfg.cwd.rfind("/tmp/", 0) == 0) {
        mkdirs(cfg.cwd);
        do_mount(("/proc/self/fd/" + std::to_string(keep.get())).c_str(), cfg.cwd, nullptr, MS_BIND | MS_REC, "");
    }
    keep.reset();
    check(::chdir(cfg.cwd.c_str()) == 0, "chdir(" + cfg.cwd + ")");
}

// In the command's process, last before exec.
void load_command_filter(const SandboxConfig &cfg, const Host &host, int sock) {
    FilterOptions fo;
    fo.netlink = cfg.intercept_netlink;
    fo.node_open = host.node.open_fails;
    fo.setup_fd = sock;
    fo.node_dev = static_cast<uint32_t>(makedev(host.node.major, host.node.minor));
    UniqueFd listener(load_filter(fo));
    check(listener.valid(), "seccomp_load");
    check(send_msg(sock, SetupMsg::listener_fd, "", listener.get()), "sendmsg(listener)");
}

// Waits for `child` and returns the status to end with: its exit status, or
// 128 + the signal that killed it.
int wait_status(pid_t child) {
    int ws = 0;
    while (::waitpid(child, &ws, 0) < 0)
        if (errno != EINTR) return kSetupFailed;
    if (WIFEXITED(ws)) return WEXITSTATUS(ws);
    if (WIFSIGNALED(ws)) return 128 + WTERMSIG(ws);
    return kSetupFailed;
}

// Setup failures are reported over the socket; the process then ends.
template <class F>
void or_report(int sock, F &&step) {
    try {
        step();
    } catch (const SetupError &e) {
        send_msg(sock, SetupMsg::error, e.what);
        _exit(kSetupFailed);
    } catch (...) {
        send_msg(sock, SetupMsg::error, "sandbox setup failed");
        _exit(kSetupFailed);
    }
}

[[noreturn]] void exec_command(const SandboxConfig &cfg, int sock) {
    std::vector<char *> argv;
    for (const std::string &a : cfg.argv) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    const int err = errno;
    send_msg(sock, SetupMsg::exec_error, cfg.argv[0] + ": " + std::strerror(err));
    _exit(err == ENOENT ? kExecFailed : 126);
}

// Process 1 of the command's namespace: starts the command and reaps every
// process of the namespace (orphans come here) until none is left, then ends
// with the command's status. It stays outside the seccomp filter, so the
// filter's last user is the command's last process.
[[noreturn]] void namespace_init(const SandboxConfig &cfg, const Host &host, int sock) {
    or_report(sock, [&] { build_inner(cfg); });
    const pid_t command = ::fork();
    if (command < 0) {
        send_msg(sock, SetupMsg::error, std::string("fork: ") + std::strerror(errno));
        _exit(kSetupFailed);
    }
    if (command == 0) {
        or_report(sock, [&] { load_command_filter(cfg, host, sock); });
        exec_command(cfg, sock);
    }
    ::close(sock);
    int status = kSetupFailed;
    for (;;) {
        int ws = 0;
        const pid_t p = ::waitpid(-1, &ws, 0);
        if (p < 0) {
            if (errno == EINTR) continue;
            break;  // ECHILD: the namespace is empty
        }
        if (p == command) status = WIFEXITED(ws) ? WEXITSTATUS(ws) : WIFSIGNALED(ws) ? 128 + WTERMSIG(ws) : kSetupFailed;
    }
    _exit(status);
}

}  // namespace

void sandbox_child(const SandboxConfig &cfg, const Host &host, int sock) {
    // The setup socket's sends bypass the filter by descriptor number; a high
    // number keeps the command's own sockets (which reuse low numbers once it
    // is closed at exec) from sharing it.
    if (const int high = ::fcntl(sock, F_DUPFD_CLOEXEC, 900); high >= 0) {
        ::close(sock);
        sock = high;
    }
    or_report(sock, [&] { build_outer(cfg, host, sock); });
    const pid_t init = ::fork();  // process 1 of the new PID namespace
    if (init < 0) {
        send_msg(sock, SetupMsg::error, std::string("fork: ") + std::strerror(errno));
        _exit(kSetupFailed);
    }
    if (init == 0) namespace_init(cfg, host, sock);
    ::close(sock);
    _exit(wait_status(init));
}

}  // namespace vxemu

// SPDX-License-Identifier: MIT
#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace fwtest {
namespace {

std::vector<std::string> build_env(const RunOptions &opts) {
    std::vector<std::string> env;
    auto name_of = [](const std::string &kv) { return kv.substr(0, kv.find('=')); };
    for (char **e = environ; *e != nullptr; ++e) {
        std::string kv = *e;
        std::string name = name_of(kv);
        bool drop = false;
        for (const auto &u : opts.unset_env) drop |= (u == name);
        for (const auto &o : opts.env) drop |= (name_of(o) == name);
        if (!drop) env.push_back(kv);
    }
    for (const auto &o : opts.env) env.push_back(o);
    return env;
}

std::vector<char *> c_array(std::vector<std::string> &v) {
    std::vector<char *> out;
    for (auto &s : v) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

}  // namespace

RunResult run(const std::vector<std::string> &argv_in, const RunOptions &opts) {
    std::vector<std::string> argv = argv_in;
    std::vector<std::string> env = build_env(opts);
    auto cargv = c_array(argv);
    auto cenv = c_array(env);

    int out_pipe[2], err_pipe[2], in_pipe[2];
    if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0 || pipe2(in_pipe, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));

    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
        dup2(in_pipe[0], 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        if (!opts.cwd.empty() && chdir(opts.cwd.c_str()) != 0) _exit(126);
        if (opts.uid) {
            if (setgroups(0, nullptr) != 0 || setgid(*opts.uid) != 0 || setuid(*opts.uid) != 0) _exit(126);
        }
        execve(cargv[0], cargv.data(), cenv.data());
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    close(in_pipe[0]);

    RunResult r;
    size_t in_off = 0;
    int in_fd = in_pipe[1];
    if (opts.stdin_data.empty()) { close(in_fd); in_fd = -1; }
    fcntl(out_pipe[0], F_SETFL, O_NONBLOCK);
    fcntl(err_pipe[0], F_SETFL, O_NONBLOCK);
    if (in_fd >= 0) fcntl(in_fd, F_SETFL, O_NONBLOCK);

    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(opts.timeout_seconds);
    bool out_open = true, err_open = true, killed = false;
    char buf[65536];
    while (out_open || err_open) {
        pollfd fds[3];
        int n = 0;
        if (out_open) fds[n++] = {out_pipe[0], POLLIN, 0};
        if (err_open) fds[n++] = {err_pipe[0], POLLIN, 0};
        if (in_fd >= 0) fds[n++] = {in_fd, POLLOUT, 0};
        int pr = poll(fds, n, 200);
        if (pr < 0 && errno != EINTR) break;
        for (int i = 0; i < n; ++i) {
            if (fds[i].revents == 0) continue;
            if (fds[i].fd == in_fd) {
                ssize_t w = write(in_fd, opts.stdin_data.data() + in_off, opts.stdin_data.size() - in_off);
                if (w > 0) in_off += size_t(w);
                if (w < 0 || in_off == opts.stdin_data.size()) { close(in_fd); in_fd = -1; }
                continue;
            }
            ssize_t got = read(fds[i].fd, buf, sizeof buf);
            if (got > 0) {
                (fds[i].fd == out_pipe[0] ? r.out : r.err).append(buf, size_t(got));
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                if (fds[i].fd == out_pipe[0]) out_open = false; else err_open = false;
            }
        }
        if (!killed && std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            killed = true;
        }
    }
    if (in_fd >= 0) close(in_fd);
    close(out_pipe[0]);
    close(err_pipe[0]);
    int ws = 0;
    while (waitpid(pid, &ws, 0) < 0 && errno == EINTR) {}
    r.status = WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws);
    return r;
}

TempDir::TempDir(const std::string &prefix) {
    const char *base = std::getenv("FWTEST_TMPDIR");
    std::string tmpl = std::string(base ? base : "/tmp") + "/" + prefix + ".XXXXXX";
    if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    chmod(tmpl.c_str(), 0755);
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const std::string &path, const std::string &data, mode_t mode) {
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!out) throw std::runtime_error("cannot write " + path);
        out << data;
    }
    chmod(path.c_str(), mode);
}

bool file_exists(const std::string &path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

RunResult run_in_vxemu(const TempDir &dir, const std::vector<std::string> &command, int timeout_seconds) {
    std::vector<std::string> argv{bin_path("vxemu"), "run",          "--host", dir / "host.json",
                                  "--state",         dir / "state", "--"};
    argv.insert(argv.end(), command.begin(), command.end());
    RunOptions opts;
    opts.cwd = dir.path();
    opts.unset_env = {"VX_FCAPI_DEBUG"};
    opts.timeout_seconds = timeout_seconds;
    return run(argv, opts);
}

int count_of(const std::string &text, const std::string &needle) {
    int n = 0;
    for (auto pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
    return n;
}

std::string bin_path(const std::string &name) { return std::string(FW_BIN_DIR) + "/" + name; }
std::string source_path(const std::string &relative) { return std::string(FW_SOURCE_DIR) + "/" + relative; }

}  // namespace fwtest

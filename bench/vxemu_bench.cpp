// SPDX-License-Identifier: MIT
// vxemu timings (a benchmark, never a test):
//   vxemu_bench VXEMU [RUNS] [CALLS]
// measures the wall time of `vxemu run -- true` and, inside one run, the cost
// of one intercepted driver request (the instance-count request and the
// 696-byte adapter-node query).
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

int run_and_wait(const std::vector<std::string> &argv) {
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<char *> a;
        for (const auto &s : argv) a.push_back(const_cast<char *>(s.c_str()));
        a.push_back(nullptr);
        execv(a[0], a.data());
        _exit(127);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128;
}

// Current-layout request header at its documented offsets.
void header(uint8_t *h, uint16_t sub, uint64_t resp, uint32_t resplen) {
    std::memset(h, 0, 116);
    std::memcpy(h, "VARNIX", 6);
    h[8] = 2;
    h[10] = 7;
    h[12] = static_cast<uint8_t>(sub);
    std::memcpy(h + 32, &resplen, 4);
    std::memcpy(h + 44, &resp, 8);
}

int requests(long calls) {
    const int fd = open("/dev/vxa2xxx", O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        std::perror("open /dev/vxa2xxx");
        return 1;
    }
    uint8_t h[116];
    static uint8_t node[696];
    struct Kind {
        const char *name;
        unsigned long nr;
        uint16_t sub;
        uint32_t len;
    } kinds[] = {{"instance count (0xFF)", 0xC07479FF, 0, 0}, {"adapter-node query (0x00/1)", 0xC0747900, 1, 696}};
    for (const Kind &k : kinds) {
        const auto t0 = Clock::now();
        for (long i = 0; i < calls; ++i) {
            header(h, k.sub, reinterpret_cast<uint64_t>(node), k.len);
            if (ioctl(fd, k.nr, h) != 0) {
                std::perror("ioctl");
                return 1;
            }
        }
        std::printf("%-30s %8.2f us/call (%ld calls)\n", k.name, ms_since(t0) * 1000.0 / static_cast<double>(calls), calls);
    }
    close(fd);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc >= 3 && std::strcmp(argv[1], "--requests") == 0) return requests(std::atol(argv[2]));
    if (argc < 2) {
        std::fprintf(stderr, "usage: vxemu_bench VXEMU [RUNS] [CALLS]\n");
        return 2;
    }
    const std::string vxemu = argv[1];
    const int runs = argc > 2 ? std::atoi(argv[2]) : 20;
    const long calls = argc > 3 ? std::atol(argv[3]) : 20000;
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return 1;
    self[n] = '\0';

    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto t0 = Clock::now();
        if (run_and_wait({vxemu, "run", "--", "/bin/true"}) != 0) {
            std::fprintf(stderr, "vxemu run -- true failed\n");
            return 1;
        }
        times.push_back(ms_since(t0));
    }
    std::sort(times.begin(), times.end());
    std::printf("vxemu run -- true: median %.1f ms, min %.1f ms, max %.1f ms (%d runs)\n", times[times.size() / 2],
                times.front(), times.back(), runs);
    std::fflush(stdout);  // before the child's lines
    return run_and_wait({vxemu, "run", "--", self, "--requests", std::to_string(calls)});
}

// SPDX-License-Identifier: MIT
#include "control_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <sstream>
#include <thread>

#include "command_line.h"
#include "run_command.h"

namespace vxemu {

namespace {

// The socket path goes through an O_PATH descriptor of the run directory, so
// that a deep state directory never meets the 108-byte limit of sun_path.
sockaddr_un address_in(int dir_fd) {
    sockaddr_un sa{};
    sa.sun_family = AF_UNIX;
    std::snprintf(sa.sun_path, sizeof sa.sun_path, "/proc/self/fd/%d/control", dir_fd);
    return sa;
}

std::optional<uint32_t> parse_u32(const std::string &s) {
    if (s.empty()) return std::nullopt;
    errno = 0;
    char *end = nullptr;
    const unsigned long long v = std::strtoull(s.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || v > 0xFFFFFFFFull || s[0] == '-') return std::nullopt;
    return static_cast<uint32_t>(v);
}

std::string answer(Host &host, const std::string &request) {
    std::istringstream in(request);
    std::string verb, name, fn_text;
    in >> verb >> name >> fn_text;
    const auto fn = parse_u32(fn_text);
    Adapter *adapter = nullptr;
    for (Adapter &a : host.adapters)
        if (a.name == name) adapter = &a;
    if (adapter == nullptr) return "error: no adapter named '" + name + "'";
    if (!fn || *fn >= adapter->functions.size()) return "error: adapter " + name + " has no function " + fn_text;
    if (verb == "pending") return "ok " + std::to_string(adapter->functions[*fn].events.size());
    if (verb != "raise") return "error: unknown request '" + verb + "'";
    std::vector<uint32_t> codes;
    for (std::string word; in >> word;) {
        const auto code = parse_u32(word);
        if (!code) return "error: bad event code '" + word + "'";
        codes.push_back(*code);
    }
    if (codes.empty()) return "error: no event code given";
    return "ok " + std::to_string(raise_events(*adapter, *fn, adapter->transport, codes));
}

}  // namespace

size_t raise_events(Adapter &adapter, size_t fn_index, Transport transport, const std::vector<uint32_t> &codes) {
    PortFunction &fn = adapter.functions.at(fn_index);
    if (transport != Transport::sysfs && !fn.events_registered) return 0;
    for (uint32_t code : codes) {
        DriverEvent ev{};
        for (int i = 0; i < 4; ++i) ev[static_cast<size_t>(i)] = static_cast<uint8_t>(code >> (8 * i));
        // The payload carries the port's address, as a link event does.
        ev[4] = static_cast<uint8_t>(fn.port_id);
        ev[5] = static_cast<uint8_t>(fn.port_id >> 8);
        ev[6] = static_cast<uint8_t>(fn.port_id >> 16);
        if (fn.events.size() >= kDriverEventQueue) fn.events.pop_front();
        fn.events.push_back(ev);
    }
    return codes.size();
}

bool ControlServer::open(const std::string &run_dir) {
    UniqueFd dir(::open(run_dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!dir.valid()) return false;
    UniqueFd s(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!s.valid()) return false;
    const sockaddr_un sa = address_in(dir.get());
    if (::bind(s.get(), reinterpret_cast<const sockaddr *>(&sa), sizeof sa) != 0 || ::listen(s.get(), 8) != 0) return false;
    sock_ = std::move(s);
    return true;
}

std::vector<int> ControlServer::fds() const {
    std::vector<int> out{sock_.get()};
    for (const auto &c : conns_) out.push_back(c.get());
    return out;
}

void ControlServer::serve(int fd, Host &host) {
    if (fd == sock_.get()) {
        UniqueFd conn(::accept4(sock_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        // A handful of clients at most; more wait in the backlog.
        if (conn.valid() && conns_.size() < 16) conns_.push_back(std::move(conn));
        return;
    }
    for (auto it = conns_.begin(); it != conns_.end(); ++it) {
        if (it->get() != fd) continue;
        char buf[4096];
        const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (n > 0) {
            const std::string reply = answer(host, std::string(buf, static_cast<size_t>(n)));
            (void)::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        conns_.erase(it);
        return;
    }
}

namespace {

constexpr const char kEventUsage[] =
    "Usage:\n"
    "  vxemu event --state DIR ADAPTER FUNCTION CODE...   raise driver events on a port\n"
    "  vxemu event --state DIR --wait ADAPTER FUNCTION    wait until the port's events are fetched\n"
    "DIR is the state directory of a running `vxemu run`; CODE is a driver event code\n"
    "such as 0x8011. An ioctl port takes events only while its event reporting is\n"
    "registered; --wait gives up after 60 seconds (status 1).\n";

// One request over the control socket; the reply text, or "error: ..." when
// the emulator cannot be reached.
std::string ask(const std::string &state_dir, const std::string &request) {
    UniqueFd dir(::open((state_dir + "/.run").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!dir.valid()) return "error: " + state_dir + "/.run: " + std::strerror(errno) + " (no emulator running there?)";
    UniqueFd s(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un sa = address_in(dir.get());
    if (!s.valid() || ::connect(s.get(), reinterpret_cast<const sockaddr *>(&sa), sizeof sa) != 0)
        return "error: cannot reach the emulator of " + state_dir + ": " + std::strerror(errno);
    if (::send(s.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) return std::string("error: send: ") + std::strerror(errno);
    char buf[512];
    const ssize_t n = ::recv(s.get(), buf, sizeof buf, 0);
    if (n <= 0) return "error: no answer from the emulator";
    return std::string(buf, static_cast<size_t>(n));
}

}  // namespace

int event_main(int argc, char **argv) {
    static constexpr OptionSpec kOptions[] = {{"state", 's', true}, {"wait", 'w', false}, {"help", 'h', false}};
    ParsedOptions parsed;
    std::string error;
    if (!parse_options(argc, argv, kOptions, parsed, error, OptionOrder::anywhere)) {
        std::fprintf(stderr, "vxemu: %s\nTry 'vxemu event --help'.\n", error.c_str());
        return kExitUsage;
    }
    std::string state;
    bool wait = false;
    for (const auto &[name, value] : parsed.options) {
        if (name == "help") {
            std::fputs(kEventUsage, stdout);
            return 0;
        }
        if (name == "state") state = value;
        else if (name == "wait") wait = true;
    }
    const std::vector<std::string> &rest = parsed.operands;
    if (state.empty() || rest.size() < 2 || (wait ? rest.size() != 2 : rest.size() < 3)) {
        std::fputs(kEventUsage, stderr);
        return kExitUsage;
    }
    std::string request = (wait ? "pending" : "raise");
    for (const auto &w : rest) request += " " + w;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        const std::string reply = ask(state, request);
        if (reply.rfind("ok ", 0) != 0) {
            std::fprintf(stderr, "vxemu: event: %s\n", reply.rfind("error: ", 0) == 0 ? reply.c_str() + 7 : reply.c_str());
            return 1;
        }
        if (!wait || reply == "ok 0") return 0;
        if (std::chrono::steady_clock::now() > deadline) {
            std::fprintf(stderr, "vxemu: event: events still waiting after 60 seconds\n");
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace vxemu

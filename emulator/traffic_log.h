// SPDX-License-Identifier: MIT
// The traffic log: one JSON object per line for every driver request,
// attribute access and netlink message the emulated driver saw, in order.
// Violations (requests a real driver would reject as malformed) are counted
// so that `vxemu run` can end with its own status when any occurred.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace vxemu {

struct TrafficEntry {
    std::string kind;                 // "ioctl" | "attr" | "netlink"
    std::string adapter;              // adapter name, "" when none was selected
    std::optional<unsigned> function; // PCI function index
    std::optional<unsigned> command;  // ioctl command / netlink cmd
    std::optional<unsigned> subcode;
    std::string layout;               // "current" | "old" for ioctls
    std::string attribute;            // attribute name for "attr"
    std::string op;                   // "open" | "read" | "write" for "attr"
    std::optional<uint32_t> region;
    std::optional<uint64_t> offset;
    std::optional<uint64_t> length;
    std::optional<int64_t> status;    // driver Status, or -errno for a failed call
    std::string text;                 // the optrom_ctl command text
    std::string fault;                // the injected fault, if one fired
    std::string violation;            // why the request was malformed
    unsigned pid = 0;
};

class TrafficLog {
public:
    TrafficLog() = default;
    ~TrafficLog();
    TrafficLog(const TrafficLog &) = delete;
    TrafficLog &operator=(const TrafficLog &) = delete;

    // Opens the log file empty; false with errno on failure. A log in the
    // state directory is a fresh file renamed into place; elsewhere a link
    // is only followed where nobody else could have planted it.
    bool open(const std::string &path, bool in_state_dir);
    void record(const TrafficEntry &e);
    [[nodiscard]] unsigned violations() const { return violations_; }
    [[nodiscard]] const std::string &first_violation() const { return first_violation_; }
    void flush();

    // The JSON line for an entry (without the newline); used by tests too.
    [[nodiscard]] static std::string to_json(const TrafficEntry &e);

private:
    std::FILE *file_ = nullptr;
    unsigned violations_ = 0;
    std::string first_violation_;
};

}  // namespace vxemu

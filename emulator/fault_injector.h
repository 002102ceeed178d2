// SPDX-License-Identifier: MIT
// Picks the injected fault (if any) that a request or attribute access meets,
// counts down faults that fire a limited number of times, and keeps the
// adapters' power: every store into a flash, NVRAM or VPD passes through
// here, so a power cut falls on exactly one store of the run. Every random
// choice comes from the host's seed, so a run with the same seed and the
// same command meets the same faults at the same bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host_model.h"

namespace vxemu {

class FaultInjector {
public:
    explicit FaultInjector(Host &host) : host_(host), rng_(host.seed) {}

    // A driver request on (adapter, function index).
    [[nodiscard]] std::optional<Fault> on_ioctl(const std::string &adapter, int function, uint8_t command,
                                                uint16_t subcode);
    // An attribute access; `ctl` is the command text for optrom_ctl writes.
    [[nodiscard]] std::optional<Fault> on_attr(const std::string &adapter, int function, std::string_view attribute,
                                               FaultOp op, std::string_view ctl);

    // Short description for the traffic log ("status 2", "errno 5" ...).
    [[nodiscard]] static std::string describe(const Fault &f);

    // Read data about to reach the caller: a bitflip fault flips its bits.
    // Returns what was done for the traffic log ("" when nothing).
    std::string on_read(const std::optional<Fault> &f, std::span<uint8_t> data);

    // What reaches the adapter of a store of `data` (changed in place). The
    // first `kept` bytes are stored; `failed` tells the caller the write
    // failed. `note` is for the traffic log ("" when nothing was injected).
    struct Store {
        size_t kept = 0;
        bool failed = false;
        std::string note;
    };
    Store on_store(const std::optional<Fault> &f, std::span<uint8_t> data);

    // Called at the moment the power fails, before the store's caller hears
    // anything back: it kills the command where it stands.
    void on_power_cut(std::function<void()> action) { power_cut_action_ = std::move(action); }
    [[nodiscard]] bool power_lost() const { return power_lost_; }
    [[nodiscard]] uint64_t stores() const { return stores_; }

private:
    std::optional<Fault> take(Fault &f);
    uint64_t next();                       // splitmix64
    uint64_t below(uint64_t n) { return n == 0 ? 0 : next() % n; }
    Host &host_;
    uint64_t rng_;
    uint64_t stores_ = 0;
    bool power_lost_ = false;
    std::function<void()> power_cut_action_;
};

}  // namespace vxemu

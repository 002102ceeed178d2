// SPDX-License-Identifier: MIT
// Picks the injected fault (if any) that a request or attribute access meets,
// and counts down faults that fire a limited number of times.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host_model.h"

namespace vxemu {

class FaultInjector {
public:
    explicit FaultInjector(Host &host) : host_(host) {}

    // A driver request on (adapter, function index).
    [[nodiscard]] std::optional<Fault> on_ioctl(const std::string &adapter, int function, uint8_t command,
                                                uint16_t subcode);
    // An attribute access; `ctl` is the command text for optrom_ctl writes.
    [[nodiscard]] std::optional<Fault> on_attr(const std::string &adapter, int function, std::string_view attribute,
                                               FaultOp op, std::string_view ctl);

    // Short description for the traffic log ("status 2", "errno 5" ...).
    [[nodiscard]] static std::string describe(const Fault &f);

private:
    std::optional<Fault> take(Fault &f);
    Host &host_;
};

}  // namespace vxemu

// SPDX-License-Identifier: MIT
#include "fault_injector.h"

namespace vxemu {

std::optional<Fault> FaultInjector::take(Fault &f) {
    if (f.times == 0) return std::nullopt;
    if (f.times > 0) --f.times;
    return f;
}

std::optional<Fault> FaultInjector::on_ioctl(const std::string &adapter, int function, uint8_t command,
                                             uint16_t subcode) {
    for (Fault &f : host_.faults) {
        if (!f.command || !f.attribute.empty()) continue;
        if (!f.adapter.empty() && f.adapter != adapter) continue;
        if (f.function >= 0 && f.function != function) continue;
        if (*f.command != command) continue;
        if (f.subcode && *f.subcode != subcode) continue;
        if (auto hit = take(f)) return hit;
    }
    return std::nullopt;
}

std::optional<Fault> FaultInjector::on_attr(const std::string &adapter, int function, std::string_view attribute,
                                            FaultOp op, std::string_view ctl) {
    for (Fault &f : host_.faults) {
        if (f.attribute.empty() || f.attribute != attribute) continue;
        if (!f.adapter.empty() && f.adapter != adapter) continue;
        if (f.function >= 0 && f.function != function) continue;
        if (f.op != FaultOp::any && f.op != op) continue;
        if (f.ctl && *f.ctl != ctl) continue;
        if (auto hit = take(f)) return hit;
    }
    return std::nullopt;
}

std::string FaultInjector::describe(const Fault &f) {
    switch (f.kind) {
    case FaultKind::status: return "status " + std::to_string(f.status);
    case FaultKind::error: return "errno " + std::to_string(f.err);
    case FaultKind::short_xfer: return "short " + std::to_string(f.bytes);
    case FaultKind::stop_after: return "stop_after " + std::to_string(f.bytes);
    case FaultKind::busy: return "busy";
    }
    return "fault";
}

}  // namespace vxemu

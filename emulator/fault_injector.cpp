// SPDX-License-Identifier: MIT
#include "fault_injector.h"

#include <algorithm>

namespace vxemu {

uint64_t FaultInjector::next() {
    uint64_t z = (rng_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

std::optional<Fault> FaultInjector::take(Fault &f) {
    if (f.times == 0) return std::nullopt;
    // The odds are drawn only for a transfer the fault matches, so adding a
    // fault elsewhere does not move the choices of this one.
    if (f.chance < 1.0 && static_cast<double>(next() >> 11) * 0x1.0p-53 >= f.chance) return std::nullopt;
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
    case FaultKind::bitflip: return "bitflip " + std::to_string(f.bits);
    case FaultKind::lie: return f.store == LieStore::nothing ? "lie nothing" : "lie other";
    case FaultKind::partial: return "partial";
    }
    return "fault";
}

std::string FaultInjector::on_read(const std::optional<Fault> &f, std::span<uint8_t> data) {
    if (!f || f->kind != FaultKind::bitflip || data.empty()) return {};
    std::string note = "bitflip";
    for (unsigned k = 0; k < f->bits; ++k) {
        const uint64_t bit = below(data.size() * 8);
        data[bit / 8] ^= static_cast<uint8_t>(1U << (bit % 8));
        note += " " + std::to_string(bit / 8) + ":" + std::to_string(bit % 8);
    }
    return note;
}

FaultInjector::Store FaultInjector::on_store(const std::optional<Fault> &f, std::span<uint8_t> data) {
    Store s;
    s.kept = data.size();
    if (power_lost_) {
        s.kept = 0;
        s.note = "power off";
        return s;
    }
    ++stores_;
    if (host_.power_cut && stores_ == *host_.power_cut) {
        // The cut falls inside this store: what was programmed stays, the rest
        // of the range is left erased, and nothing is stored any more.
        const size_t done = static_cast<size_t>(below(data.size() + 1));
        std::fill(data.begin() + static_cast<std::ptrdiff_t>(done), data.end(), uint8_t{0xFF});
        power_lost_ = true;
        if (power_cut_action_) power_cut_action_();
        s.failed = true;
        s.note = "power cut at store " + std::to_string(stores_) + " after " + std::to_string(done) + " of " +
                 std::to_string(data.size()) + " bytes";
        return s;
    }
    if (!f) return s;
    switch (f->kind) {
    case FaultKind::stop_after:
        s.kept = std::min(s.kept, f->bytes);
        s.failed = true;
        break;
    case FaultKind::partial: {
        s.kept = f->bytes != 0 ? std::min(s.kept, f->bytes) : static_cast<size_t>(below(data.size()));
        s.failed = true;
        s.note = "kept " + std::to_string(s.kept) + " of " + std::to_string(data.size());
        break;
    }
    case FaultKind::lie:
        if (f->store == LieStore::nothing) {
            s.kept = 0;
        } else {
            for (auto &b : data) b = static_cast<uint8_t>(next());
        }
        break;
    default: break;
    }
    return s;
}

}  // namespace vxemu

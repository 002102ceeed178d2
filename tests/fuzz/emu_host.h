// SPDX-License-Identifier: MIT
// A small emulated host for the targets that drive vxemu's request
// services: parsed once, and handed to each input as a working copy reset
// from the original by assignment, so that its large flash buffers are
// reused instead of allocated again. Requests are logged as a real run
// logs them, to nowhere.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "host_model.h"
#include "traffic_log.h"

namespace fuzz {

class EmuHost {
public:
    // Aborts when the description does not parse: the target cannot run.
    void init(const char *target, const char *json) {
        auto h = vxemu::parse_host_json(json, "fuzz.json");
        if (!h) {
            std::fprintf(stderr, "%s: %s\n", target, h.error().message.c_str());
            std::abort();
        }
        prototype_ = std::move(h).value();
        log_ = new vxemu::TrafficLog;  // lives as long as the process
        if (!log_->open("/dev/null", false)) std::abort();
    }
    vxemu::Host &reset() {
        host_ = prototype_;
        return host_;
    }
    const vxemu::Host &prototype() const { return prototype_; }
    vxemu::TrafficLog &log() { return *log_; }

private:
    vxemu::Host prototype_, host_;
    vxemu::TrafficLog *log_ = nullptr;
};

}  // namespace fuzz

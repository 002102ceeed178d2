// SPDX-License-Identifier: MIT
#include "traffic_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "state_files.h"

namespace vxemu {

TrafficLog::~TrafficLog() {
    if (file_ != nullptr) std::fclose(file_);
}

bool TrafficLog::open(const std::string &path, bool in_state_dir) {
    if (file_ != nullptr) std::fclose(file_);
    file_ = nullptr;
    int fd = -1;
    if (in_state_dir) {
        fd = create_state_file(path);
    } else {
        const std::filesystem::path dir = std::filesystem::path(path).parent_path();
        struct stat st {};
        const bool shared = ::stat(dir.empty() ? "." : dir.c_str(), &st) == 0 && (st.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | (shared ? O_NOFOLLOW : 0), 0644);
    }
    if (fd < 0) return false;
    file_ = ::fdopen(fd, "w");
    if (file_ == nullptr) ::close(fd);
    return file_ != nullptr;
}

std::string TrafficLog::to_json(const TrafficEntry &e) {
    nlohmann::ordered_json j;
    j["kind"] = e.kind;
    if (e.pid != 0) j["pid"] = e.pid;
    if (!e.adapter.empty()) j["adapter"] = e.adapter;
    if (e.function) j["function"] = *e.function;
    if (e.command) j["command"] = *e.command;
    if (e.subcode) j["subcode"] = *e.subcode;
    if (!e.layout.empty()) j["layout"] = e.layout;
    if (!e.attribute.empty()) j["attribute"] = e.attribute;
    if (!e.op.empty()) j["op"] = e.op;
    if (e.region) j["region"] = *e.region;
    if (e.offset) j["offset"] = *e.offset;
    if (e.length) j["length"] = *e.length;
    if (e.status) j["status"] = *e.status;
    if (!e.text.empty()) j["text"] = e.text;
    if (!e.fault.empty()) j["fault"] = e.fault;
    if (!e.violation.empty()) j["violation"] = e.violation;
    // Texts from a caller may hold any byte; never let a stray one abort the log.
    return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void TrafficLog::record(const TrafficEntry &e) {
    if (!e.violation.empty()) {
        if (violations_ == 0) first_violation_ = e.violation;
        ++violations_;
    }
    if (file_ == nullptr) return;
    const std::string line = to_json(e);
    std::fwrite(line.data(), 1, line.size(), file_);
    std::fputc('\n', file_);
}

void TrafficLog::flush() {
    if (file_ != nullptr) std::fflush(file_);
}

}  // namespace vxemu

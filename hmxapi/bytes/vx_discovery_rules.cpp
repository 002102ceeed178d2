// SPDX-License-Identifier: MIT
// The rules discovery applies to what the driver reports: computed serial
// numbers, driver versions, the device number of the driver's node.
#include "vx_discovery_rules.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// Leading decimal number of a /proc/devices line ("254 vxa2xxx").
int leading_number(const char *line) {
    while (*line == ' ' || *line == '\t') ++line;
    return static_cast<int>(std::strtol(line, nullptr, 10));
}

}  // namespace

void vxapi_compute_serial(const uint8_t wwnn[8], uint8_t mask, char *out, std::size_t out_size) {
    const uint32_t value = wwnn[5] | (static_cast<uint32_t>(wwnn[4] & mask) << 16) | (static_cast<uint32_t>(wwnn[6]) << 8);
    std::snprintf(out, out_size, "%c%05u", static_cast<char>('A' + value / 100000), value % 100000);
}

bool vxapi_driver_new_enough(const DriverVersion &v) {
    if (v.major >= 9) return true;
    if (v.major == 8) return v.minor > 1 || (v.minor == 1 && v.patch >= 7);
    if (v.major == 7) return v.minor > 7 || (v.minor == 7 && v.patch >= 6);
    return false;
}

bool vxapi_driver_new_cfg_store(const DriverVersion &v) {
    if (v.major != 6) return v.major > 6;
    if (v.minor != 6) return v.minor > 6;
    if (v.patch > 0) return true;
    // 6.6.0 betas 1 to 8 still keep the older configuration file.
    return v.beta == 0 || v.beta > 8;
}

namespace vxhmx {

bool parse_dev_numbers(const char *text, unsigned *major_no, unsigned *minor_no) {
    return std::sscanf(text, "%u:%u", major_no, minor_no) == 2;
}

bool proc_devices_major(std::string_view text, const char *name, unsigned *major_no) {
    // Read the way a 100-byte line buffer reads it: long lines come in pieces,
    // and every piece naming the driver counts; the last one wins.
    constexpr std::size_t kPiece = 99;
    bool found = false;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        end = end == std::string_view::npos ? text.size() : end + 1;
        for (std::size_t p = pos; p < end; p += kPiece) {
            const std::string piece(text.substr(p, std::min(kPiece, end - p)));
            if (piece.find(name) == std::string::npos) continue;
            *major_no = static_cast<unsigned>(leading_number(piece.c_str()));
            found = true;
        }
        pos = end;
    }
    return found;
}

}  // namespace vxhmx

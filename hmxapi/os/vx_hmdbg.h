// SPDX-License-Identifier: MIT
// The library's debug trace: mask from VX_FCAPI_DEBUG, standard error and
// optionally the log file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Trace mask bits.
inline constexpr uint32_t VXDBG_LOGFILE = 0x01;
inline constexpr uint32_t VXDBG_ERR = 0x02;
inline constexpr uint32_t VXDBG_TRACE = 0x04;
inline constexpr uint32_t VXDBG_MAIN = 0x20;
inline constexpr uint32_t VXDBG_EVENT = 0x100;
inline constexpr uint32_t VXDBG_SYSFS = 0x200;  // the sysfs transport

inline constexpr const char *kDefaultLogPath = "/usr/lib/libvxhmx.log";
inline constexpr std::size_t kTraceLineSize = 251;

extern uint32_t vx_debug;

void vxapi_set_debug_level();
void vxdbg_print(const char *string, uint64_t number, uint8_t radix, uint8_t newline);
void vxdbg_dump(const char *string, const uint8_t *buffer, uint8_t wd_size, uint64_t count);
FILE *vxdbg_get_fptr();
// The log path is settable; empty means the default once tracing is on.
void vxdbg_set_log_path(const char *path);

namespace vxhmx {
// How a number is spelt in the trace (exposed for the tests).
std::string format_trace_number(uint64_t n, uint8_t base);
// The trace line goes through a zero-argument format: "%%" collapses to
// "%", every other directive stays as written (there is nothing to fetch).
std::string expand_trace_format(const std::string &line);
}  // namespace vxhmx

// Trace helpers: text (+ number) when any of the mask bits is on.
#define VXDBG(mask, text) \
    do { if (vx_debug & (mask)) vxdbg_print((text), 0, 0, 1); } while (0)
#define VXDBG_NUM(mask, text, num, radix) \
    do { if (vx_debug & (mask)) vxdbg_print((text), static_cast<uint64_t>(num), (radix), 1); } while (0)

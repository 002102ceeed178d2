// SPDX-License-Identifier: MIT
// The library's debug trace.
#include "vx_hmdbg.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

uint32_t vx_debug = 0;

namespace {

// The event thread traces too; never destroyed so that a trace during exit finds it.
std::recursive_mutex &g_trace_lock = *new std::recursive_mutex;
char g_line[kTraceLineSize + 1];
std::size_t g_line_fill = 0;
char g_log_path[256];  // empty until first needed
FILE *g_log = nullptr;

void close_log() {
    if (g_log != nullptr) {
        std::fclose(g_log);
        g_log = nullptr;
    }
}

// Writes the buffered line; with_time marks a line that ends a trace call.
void flush_line(bool with_time) {
    if (g_line_fill == 0) return;
    const std::string text = vxhmx::expand_trace_format(std::string(g_line, g_line_fill));
    g_line_fill = 0;
    std::fwrite(text.data(), 1, text.size(), stderr);
    if ((vx_debug & VXDBG_LOGFILE) == 0) return;
    FILE *f = vxdbg_get_fptr();
    if (f == nullptr) return;
    if (with_time) {
        char stamp[64];
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        if (localtime_r(&now, &local) != nullptr && std::strftime(stamp, sizeof stamp, "%b %d %T ", &local) > 0) {
            std::fputs(stamp, f);
            std::fputs(": ", f);
        }
    }
    std::fwrite(text.data(), 1, text.size(), f);
    std::fflush(f);
}

void append_char(char c, bool line_end_is_call_end) {
    g_line[g_line_fill++] = c;
    if (c == '\n')
        flush_line(line_end_is_call_end);
    else if (g_line_fill >= kTraceLineSize)
        flush_line(false);
}

void append_text(const char *s, bool call_end) {
    if (s == nullptr) return;
    for (; *s != '\0'; ++s) append_char(*s, call_end);
}

}  // namespace

namespace vxhmx {

std::string format_trace_number(uint64_t n, uint8_t base) {
    std::string out;
    if (base == 1) {
        const auto v = static_cast<int64_t>(n);
        if (v < 0) out += '-';
        uint64_t mag = v < 0 ? (~n + 1) : n;
        std::string digits;
        do {
            digits.insert(digits.begin(), static_cast<char>('0' + mag % 10));
            mag /= 10;
        } while (mag != 0);
        return out + digits;
    }
    if (base != 10 && base != 16) return out;
    uint64_t v = n;
    do {
        const auto d = static_cast<unsigned>(v % base);
        out.insert(out.begin(), static_cast<char>(d < 10 ? '0' + d : 'A' + d - 10));
        v /= base;
    } while (v != 0);
    if (base == 16 && n > 9) out += 'h';
    return out;
}

std::string expand_trace_format(const std::string &line) {
    std::string out;
    out.reserve(line.size());
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '%' && i + 1 < line.size() && line[i + 1] == '%') {
            out += '%';
            ++i;
        } else {
            out += line[i];
        }
    }
    return out;
}

}  // namespace vxhmx

void vxapi_set_debug_level() {
    const char *value = std::getenv("VX_FCAPI_DEBUG");
    if (value == nullptr) return;
    // Read as hexadecimal with or without "0x"; garbage gives 0 (tracing off).
    vx_debug = static_cast<uint32_t>(std::strtoul(value, nullptr, 16));
}

void vxdbg_set_log_path(const char *path) {
    std::lock_guard lock(g_trace_lock);
    close_log();
    g_log_path[0] = '\0';
    if (path != nullptr) std::snprintf(g_log_path, sizeof g_log_path, "%s", path);
}

FILE *vxdbg_get_fptr() {
    std::lock_guard lock(g_trace_lock);
    if (g_log != nullptr) return g_log;
    if (vx_debug == 0) return nullptr;
    if (g_log_path[0] == '\0') std::snprintf(g_log_path, sizeof g_log_path, "%s", kDefaultLogPath);
    // Root must never append through a planted link. The OS wrappers trace
    // their failures, so the trace itself opens its file directly.
    // Nor wait for a reader of a FIFO planted there: the open does not block,
    // and anything but a regular file is skipped.
    const int fd = ::open(g_log_path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    if (fd < 0) return nullptr;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    g_log = ::fdopen(fd, "a");
    if (g_log == nullptr) ::close(fd);
    return g_log;
}

void vxdbg_print(const char *string, uint64_t number, uint8_t radix, uint8_t newline) {
    if (vx_debug == 0) return;
    std::lock_guard lock(g_trace_lock);
    append_text(string, false);
    if (radix != 0) append_text(vxhmx::format_trace_number(number, radix).c_str(), false);
    if (newline == 1) append_char('\n', true);
    close_log();  // every trace call opens and closes the file anew
}

void vxdbg_dump(const char *string, const uint8_t *buffer, uint8_t wd_size, uint64_t count) {
    if (vx_debug == 0) return;
    std::lock_guard lock(g_trace_lock);
    if (string != nullptr && *string != '\0') {
        append_text(string, false);
        append_char('\n', true);
    }
    if (buffer == nullptr) return;
    const bool words = wd_size == 16;
    const uint64_t per_line = words ? 8 : 16;
    const std::size_t width = words ? 4 : 3;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t v = words ? (buffer[2 * i] | (buffer[2 * i + 1] << 8)) : buffer[i];
        std::string digits = vxhmx::format_trace_number(v, 16);
        if (!digits.empty() && digits.back() == 'h') digits.pop_back();
        append_text(std::string(width > digits.size() ? width - digits.size() : 1, ' ').c_str(), false);
        append_text(digits.c_str(), false);
        if ((i + 1) % per_line == 0 || i + 1 == count) append_char('\n', true);
    }
    close_log();
}

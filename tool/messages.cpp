// SPDX-License-Identifier: MIT
#include "messages.h"

#include <cstdarg>
#include <cstdio>

#include "fw_strings.h"

int32_t g_bSilentMode;
char g_statusMsg[kStatusMessageSize];

namespace {

struct LevelWord {
    int level;
    const char *word;
};

constexpr LevelWord kLevelWords[] = {
    {kMsgPlain, ""},
    {kMsgInfo, "Info"},
    {kMsgWarning, "Warning"},
    {kMsgError, "Error"},
    {kMsgDebug, "Debug"},
};

void emit_console(int level, const char *text) {
    // Errors go to standard error; everything else, traces included, to
    // standard output.
    FILE *stream = level == kMsgError ? stderr : stdout;
    if (g_bSilentMode != 0) return;
    if (level == kMsgPlain)
        std::fprintf(stream, "%s\r\n", text);
    else
        std::fprintf(stream, "%s: %s\r\n", TranslateMessageType(level), text);
}

}  // namespace

const char *TranslateMessageType(int level) {
    for (const LevelWord &entry : kLevelWords) {
        if (entry.level == level) return entry.word;
    }
    return "Unknown";
}

int PrintLogMessage(int level, const char *format, ...) {
    // Formatted even in silent mode, so a silent run takes the same path.
    char text[kMessageBufferSize] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    emit_console(level, text);
    return 0;
}

int LogMessage(int level, const char *text) {
    emit_console(level, text != nullptr ? text : "");
    return 0;
}

int OSSLogMessage(int level, const char *text) {
    // Only plain lines are shown, and silent mode does not apply to them.
    if (level == kMsgPlain) std::fprintf(stdout, "%s\n", text != nullptr ? text : "");
    return 0;
}

int CoreLogMessage(int level, const char *format, ...) {
    char text[kMessageBufferSize] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return OSSLogMessage(level, text);
}

void PrintStatusMessage(const char *text) {
    CopyText(g_statusMsg, text != nullptr ? text : "");
    PrintLogMessage(kMsgError, "%s\n", g_statusMsg);
}

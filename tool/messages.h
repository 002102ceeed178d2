// SPDX-License-Identifier: MIT
// The two message channels: the console channel for the user (level words,
// "\r\n" line ends, silenced by "/s") and the agent log channel, which shows
// only plain level-0 lines and drops every trace.
#pragma once

#include <cstddef>
#include <cstdint>

enum MessageLevel : int {
    kMsgPlain = 0,
    kMsgInfo = 1,
    kMsgWarning = 2,
    kMsgError = 3,
    kMsgDebug = 100,
};

// Set by /s on the command line; kept here, beside the output it gates, so
// modules that only report messages need nothing of the command line.
extern int32_t g_bSilentMode;

constexpr size_t kMessageBufferSize = 512;
constexpr size_t kStatusMessageSize = 256;

// A status text is composed here before it is printed with "%s\n".
extern char g_statusMsg[kStatusMessageSize];

const char *TranslateMessageType(int level);

int PrintLogMessage(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
int LogMessage(int level, const char *text);
int CoreLogMessage(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
int OSSLogMessage(int level, const char *text);

// Composes `text` in g_statusMsg and prints it at error level with "%s\n".
void PrintStatusMessage(const char *text);

// The tool's debug traces go to the agent channel, which drops them.
#define FwTrace(...) CoreLogMessage(kMsgDebug, __VA_ARGS__)

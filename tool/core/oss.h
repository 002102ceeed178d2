// SPDX-License-Identifier: MIT
// Host layer: identity of the host, the root check, the process mutex and
// the configuration directory.
#pragma once

#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

constexpr size_t kConfigPathSize = 256;
constexpr size_t kHostNameSize = 96;
constexpr size_t kHostStringSize = 128;

extern struct termios g_CurKbdMode;
extern int32_t g_bKbdModeSaved;  // 1 when fd 0 is a terminal and its mode was saved
extern volatile int32_t g_signalHandlerInProgress;
extern char g_hostSystemName[kHostNameSize];
extern char g_hostSystemType[kHostStringSize];
extern char g_hostSystemVersion[kHostStringSize];
extern char g_agentType[kHostStringSize];
extern char g_agentVersion[kHostStringSize];
extern pid_t g_parentPid;
extern int32_t g_bContinuePolling;

// Fills the host identity, refuses non-root users (status 1), sets up the
// process mutex and the configuration path; returns 0 or ends the process.
int OSSInitialize(int argc, char **argv);
void OSSUninitialize();

// Host identity from /etc release files and uname; split out so it can be
// pointed at another root directory.
void OSSFillHostIdentity(const char *etcDir);

const char *OSSGetConfigPath();
const char *OSSGetDirPath();
int OSSSetConfigPath(const char *path);

int OSSInitCriticalSection();
int OSSEnterCriticalSection();
int OSSLeaveCriticalSection();
void OSSDeleteCriticalSection();

int OSSPostInitializeDevices();
int OSSUpdateCoreDevices();
void OSSStopCorePollingLoop();

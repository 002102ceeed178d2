// SPDX-License-Identifier: MIT
// Entry point and run sequence: parse, start up, run the mode, clean up.
#include <pthread.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "adapter_list.h"
#include "cmdline.h"
#include "core.h"
#include "messages.h"
#include "optrom_request.h"
#include "oss.h"
#include "oss_files.h"
#include "run_sequence.h"
#include "usage.h"
#include "version_control.h"

namespace {

pthread_cond_t g_mainProgressWaitCondition = PTHREAD_COND_INITIALIZER;
pthread_mutex_t g_mainProgressWaitConditionMutex = PTHREAD_MUTEX_INITIALIZER;

constexpr const char *kConfigMarker = "adapters.properties";

// Blocks SIGINT while the normal path cleans up, so the handler cannot run
// the same teardown half-way through it.
class InterruptGuard {
public:
    InterruptGuard() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigprocmask(SIG_BLOCK, &set, &saved_);
    }
    ~InterruptGuard() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

private:
    sigset_t saved_;
};

}  // namespace

int getConfigPath() {
    // The working directory first, then the two system places.
    const std::string candidates[] = {OSSGetConfigPath(), "/etc/", "/tmp/"};
    for (const std::string &dir : candidates) {
        OSSSetConfigPath(dir.c_str());
        const std::string path = std::string(OSSGetConfigPath()) + kConfigMarker;
        FwTrace("getConfigPath: Adapter properties file=%s", path.c_str());
        if (OSSConfigFileExists(path.c_str())) return 0;
    }
    CoreLogMessage(kMsgError, "Configuration files not found in default or alternate paths!");
    return kExitNoConfiguration;
}

int CmdInit(int, char **) {
    FwTrace("Starting initialization...");
    FwTrace("OSSInitialize finished.");
    CoreInitialize();
    FwTrace("CoreInitialize finished.");
    CoreInitializeDevices();
    FwTrace("CoreOSSInitializeDevices finished.");
    OSSPostInitializeDevices();
    FwTrace("OSSPostInitializeDevices finished.");
    OSSUpdateCoreDevices();
    FwTrace("OSSUpdateCoreDevices finished.");
    const int status = getConfigPath();
    if (status != 0) return status;
    BuildHBADevices();
    FwTrace("BuildHBADevices finished.");
    FwTrace("CmdInit finished.");
    FwTrace("pthread broadcast starting...");
    pthread_mutex_lock(&g_mainProgressWaitConditionMutex);
    pthread_cond_broadcast(&g_mainProgressWaitCondition);
    pthread_mutex_unlock(&g_mainProgressWaitConditionMutex);
    return 0;
}

void cleanup() {
    OSSEnterCriticalSection();
    FwTrace("Shutting down...");
    OSSStopCorePollingLoop();
    FwTrace("OSSStopCorePollingLoop stopped ...");
    FwTrace("Deallocating local resources..");
    CoreUninitialize();
    OSSLeaveCriticalSection();
    FwTrace("Deallocating OSS resources...");
    OSSUninitialize();
    CloneFreeUTILDeviceList(&g_UTILDeviceList);
    FwTrace("Cleanup finished.");
    // The head is reset before the removal, so the removal finds nothing:
    // the adapter records live until the process ends.
    InitAdapterList();
    RemoveAllAdaptersFromAdapterList();
    DeleteFlashCtrVersionList();
    FwTrace("DeleteFlashCtrVersionList: OK.");
    freeUserOptionROMReq();
}

void CtrlHandler(int signalNumber) {
    if (g_bKbdModeSaved != 0) tcsetattr(STDIN_FILENO, TCSANOW, &g_CurKbdMode);
    g_signalHandlerInProgress = 1;
    FwTrace("Signal (%d) caught...", signalNumber);
    cleanup();
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    // The handler runs with its own signal blocked, so the raised signal
    // would only stay pending: unblock it to let the default action end us.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signalNumber);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(signalNumber);
    if (std::system("stty echo") == -1) FwTrace("stty echo failed");
    std::exit(kExitNotRoot);
}

int flashwright_main(int argc, char **argv) {
    signal(SIGQUIT, SIG_IGN);
    signal(SIGINT, CtrlHandler);
    // Standard input need not be a terminal (pipes, cron); then there is
    // nothing to restore.
    g_bKbdModeSaved = tcgetattr(STDIN_FILENO, &g_CurKbdMode) == 0 ? 1 : 0;

    const int parsed = ParseArg(argc, argv);
    if (parsed == kParseVersion) {
        ShowVersion();
        return kExitVersion;
    }
    if (parsed == kParseUsage) {
        ShowUsage();
        return kExitUsage;
    }

    OSSInitialize(argc, argv);
    int status = CmdInit(argc, argv);
    if (status == 0) status = ProcessArg();
    {
        InterruptGuard guard;
        cleanup();
    }
    FwTrace("Exit status %d\n", status);
    return status;
}

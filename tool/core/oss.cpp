// SPDX-License-Identifier: MIT
#include "oss.h"

#include <pthread.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "core.h"
#include "fw_strings.h"
#include "messages.h"
#include "run_sequence.h"

struct termios g_CurKbdMode;
int32_t g_bKbdModeSaved;
volatile int32_t g_signalHandlerInProgress;
char g_hostSystemName[kHostNameSize];
char g_hostSystemType[kHostStringSize];
char g_hostSystemVersion[kHostStringSize];
char g_agentType[kHostStringSize];
char g_agentVersion[kHostStringSize];
pid_t g_parentPid;
int32_t g_bContinuePolling;

namespace {

char g_configurationPath[kConfigPathSize];
pthread_mutex_t *g_ossCriticalSection;

// First line of a release file, up to the newline or "(".
bool read_release_line(const std::string &path, std::string &line) {
    FILE *file = std::fopen(path.c_str(), "rt");
    if (file == nullptr) return false;
    char buffer[128] = {};
    const bool ok = std::fgets(buffer, sizeof buffer, file) != nullptr;
    std::fclose(file);
    if (!ok) return true;  // opened but empty: the system name stays
    std::string_view text(buffer);
    const size_t cut = text.find_first_of("\n(");
    if (cut != std::string_view::npos) text = text.substr(0, cut);
    line = "Linux - ";
    line.append(text);
    return true;
}

}  // namespace

void OSSFillHostIdentity(const char *etcDir) {
    CopyText(g_hostSystemType, "Unknown OS");
    CopyText(g_hostSystemName, "<unknown>");
    CopyText(g_hostSystemVersion, "Unknown Version");

    struct utsname names {};
    if (uname(&names) != 0) return;
    CopyText(g_hostSystemName, names.nodename);
    CopyText(g_hostSystemVersion, names.release);

    std::string type = names.sysname;
    const std::string etc = etcDir;
    std::string line;
    if (read_release_line(etc + "SuSE-release", line) || read_release_line(etc + "redhat-release", line)) {
        if (!line.empty()) type = line;
    }
    type += ' ';
    type += names.machine;
    CopyText(g_hostSystemType, type);
}

int OSSInitialize(int, char **) {
    g_agentType[0] = '\0';
    g_agentVersion[0] = '\0';
    g_configurationPath[0] = '\0';
    OSSFillHostIdentity("/etc/");

    if (getuid() != 0) {
        std::fputs("Error: You must be root to use this program.\n", stderr);
        std::exit(kExitNotRoot);
    }
    if (OSSInitCriticalSection() != 0) {
        std::fputs("*** UNABLE TO INITIALIZE...TERMINATING...\n\n", stderr);
        std::exit(kExitNotRoot);
    }

    char cwd[kConfigPathSize] = {};
    // The path must still hold the "/" that ends it.
    if (getcwd(cwd, sizeof cwd) != nullptr && std::strlen(cwd) + 1 < kConfigPathSize) {
        // Always one more "/": run from "/" the path is "//".
        const std::string path = std::string(cwd) + '/';
        OSSSetConfigPath(path.c_str());
    } else {
        OSSSetConfigPath("./etc/");
    }
    g_parentPid = getpid();
    return 0;
}

void OSSUninitialize() {
    OSSDeleteCriticalSection();
    std::fflush(stdout);
}

const char *OSSGetConfigPath() { return g_configurationPath; }
const char *OSSGetDirPath() { return g_configurationPath; }

int OSSSetConfigPath(const char *path) {
    if (path == nullptr) return -1;
    CopyText(g_configurationPath, path);
    return 0;
}

int OSSInitCriticalSection() {
    auto *mutex = static_cast<pthread_mutex_t *>(CoreZMalloc(sizeof(pthread_mutex_t)));
    if (mutex == nullptr) {
        FwTrace("OSSInitCriticalSection: Unable to allocate memory for mutex");
        return -1;
    }
    // An error-checking mutex, so a second lock by the same thread (the
    // interrupt handler reaching cleanup) is reported instead of hanging.
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    const int rc = pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        CoreFree(mutex);
        return -1;
    }
    g_ossCriticalSection = mutex;
    return 0;
}

int OSSEnterCriticalSection() {
    const int rc = g_ossCriticalSection != nullptr ? pthread_mutex_lock(g_ossCriticalSection) : EINVAL;
    if (rc == 0) return 0;
    if (rc == EINVAL)
        FwTrace("OSSEnterCriticalSection: The mutex has not been properly initialized!");
    else if (rc == EDEADLK)
        FwTrace("OSSEnterCriticalSection: The mutex is already locked by the caller!");
    return -1;
}

int OSSLeaveCriticalSection() {
    const int rc = g_ossCriticalSection != nullptr ? pthread_mutex_unlock(g_ossCriticalSection) : EINVAL;
    if (rc == 0) return 0;
    if (rc == EINVAL)
        FwTrace("OSSLeaveCriticalSection: The mutex has not been properly initialized!");
    else if (rc == EPERM)
        FwTrace("OSSLeaveCriticalSection: The caller does not own the mutex!");
    return -1;
}

void OSSDeleteCriticalSection() {
    if (g_ossCriticalSection == nullptr) return;
    if (pthread_mutex_destroy(g_ossCriticalSection) == EBUSY) {
        FwTrace("OSSDeleteCriticalSection: The mutex is currently locked!");
        return;
    }
    CoreFree(g_ossCriticalSection);
    g_ossCriticalSection = nullptr;
}

int OSSPostInitializeDevices() { return 0; }
int OSSUpdateCoreDevices() { return 0; }
void OSSStopCorePollingLoop() { g_bContinuePolling = 0; }

// SPDX-License-Identifier: MIT
#include "cmdline.h"

#include <cstring>
#include <string>

#include "core.h"
#include "display.h"
#include "messages.h"
#include "optrom_request.h"
#include "oss.h"
#include "update_policy.h"
#include "usage.h"
#include "version_control.h"
#include "fw_strings.h"

int32_t g_bHelp;
int32_t g_bHostInfo;
int32_t g_bDisplayHBAInfo;
int32_t g_bUpdateFlash;
int32_t g_iFlashMode;

namespace {

char *argumentList[kArgumentSlots];
uint16_t argumentCount;

struct ModeSwitch {
    const char *dash;
    const char *slash;
    int32_t *flag;  // the flag the switch sets
    int mode;       // update mode, for the update switches
};

// Order matters: the second pass tries them in this order.
const ModeSwitch kModeSwitches[] = {
    {"-f", "/f", &g_bUpdateFlash, kFlashModeWrite},
    {"-e", "/e", &g_bUpdateFlash, kFlashModeRewrite},
    {"-g", "/g", &g_bUpdateFlash, kFlashModeDowngrade},
    {"-l", "/l", &g_bHostInfo, -1},
    {"-i", "/i", &g_bDisplayHBAInfo, -1},
};

bool is_help_switch(const char *arg) {
    return striscmp(arg, "-h") == 0 || striscmp(arg, "-?") == 0 || striscmp(arg, "/h") == 0 ||
           striscmp(arg, "/?") == 0;
}
bool is_version_switch(const char *arg) { return striscmp(arg, "-v") == 0 || striscmp(arg, "/v") == 0; }
bool is_silent_switch(const char *arg) { return striscmp(arg, "-s") == 0 || striscmp(arg, "/s") == 0; }

}  // namespace

uint16_t GetArgumentCount() { return argumentCount; }

void InitializeParameters() {
    g_bHelp = 0;
    g_bSilentMode = 0;
    g_bHostInfo = 0;
    g_bUpdateFlash = 0;
    g_iFlashMode = kFlashModeDefault;
    DeleteFlashCtrVersionList();
    freeUserOptionROMReq();
}

void CleanUpArgumentList() {
    for (char *&slot : argumentList) {
        CoreFree(slot);
        slot = nullptr;
    }
    argumentCount = 0;
}

int FirstPassParseArg(int argc, char **argv) {
    argumentCount = 0;
    if (argc <= 1) {
        g_bUpdateFlash = 1;
        g_iFlashMode = kFlashModeDefault;
        return kParseGoOn;
    }
    for (int i = 1; i < argc; ++i) {
        char *arg = argv[i];
        if (arg == nullptr) continue;
        if (is_help_switch(arg)) {
            g_bHelp = 1;
            arg[0] = '\0';
            return kParseHelp;
        }
        if (is_version_switch(arg)) return kParseVersion;
        if (is_silent_switch(arg)) {
            g_bSilentMode = 1;
            if (i + 1 < argc && (striscmp(argv[i + 1], "-h") == 0 || striscmp(argv[i + 1], "/h") == 0))
                g_bHelp = 1;
            arg[0] = '\0';
            continue;
        }
        if (arg[0] == '\0') continue;

        const size_t len = std::strlen(arg);
        char *copy = static_cast<char *>(CoreZMalloc(len + 1));
        if (copy == nullptr) {
            PrintStatusMessage("Memory allocation error !");
            return kParseNoMemory;
        }
        std::memcpy(copy, arg, len);
        argumentList[argumentCount] = copy;
        ++argumentCount;
        if (argumentCount > kMaxArguments) {
            PrintStatusMessage("Unknown option entered !");
            return kParseUsage;
        }
    }
    return kParseGoOn;
}

int SecondPassParseArg() {
    const char *first = argumentList[0];
    for (const ModeSwitch &sw : kModeSwitches) {
        if (striscmp(first, sw.dash) != 0 && striscmp(first, sw.slash) != 0) continue;
        if (g_bHelp != 0) return kParseGoOn;
        if (argumentCount < 2) {
            *sw.flag = 1;
            if (sw.mode >= 0) g_iFlashMode = sw.mode;
            return kParseGoOn;
        }
        break;
    }
    CoreLogMessage(kMsgError, "Unknown option entered !");
    return kParseUsage;
}

int ParseArg(int argc, char **argv) {
    InitializeParameters();
    int status = FirstPassParseArg(argc, argv);
    if (status == kParseGoOn && argumentCount > 0) status = SecondPassParseArg();
    CleanUpArgumentList();
    return status;
}

int ProcessArg() {
    if (g_bHelp != 0) {
        ShowUsage();
        return 0;
    }
    if (g_bHostInfo != 0) {
        ShowHostInfo();
        return DisplayAllHBAs();
    }
    if (g_bDisplayHBAInfo != 0) return DisplayAllHBAInformation();
    if (g_bUpdateFlash == 0) {
        PrintStatusMessage("Unknown option entered !");
        return -1;
    }
    const std::string path = std::string(OSSGetDirPath()) + "flashwright.properties";
    FwTrace("Version Properties File (%s)", path.c_str());
    const int status = BuildFlashCtrListFromFile(path.c_str());
    if (status != 0) return status;
    return updateOptionROMAllHBAs();
}

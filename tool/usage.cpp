// SPDX-License-Identifier: MIT
#include "usage.h"

#include <cstring>
#include <iterator>

#include "core.h"
#include "fw_strings.h"
#include "messages.h"
#include "oss.h"

const char *const kProductTitle = "Varnix Flash (Firmware Component) Update Utility";
const char *const kProductVersion = "v1.0.0 Build 9";

namespace {

constexpr const char *kProgramName = "flashwright";
constexpr const char *kOwnershipNotice =
    "Copyright (c) Varnix Corporation. All rights reserved.\n"
    "This utility is provided for use with Varnix Fibre Channel host bus adapters only.";

// One console line each; the bare "\r" and "\n" inside are part of the text.
struct UsageLine {
    const char *format;
    const char *first;
    const char *second;
};

constexpr UsageLine kUsageLines[] = {
    {"%s\n", "NAME", nullptr},
    {"%s - %s\n", kProgramName, "Varnix Flash (Firmware Component) Update Utility"},
    {"%s\n", "SYNOPSIS", nullptr},
    {"%s %s\n", kProgramName, "[OPTION]"},
    {"%s", "\r\nOPTIONS:\r\n\n", nullptr},
    {"%s", "    Default: Invoked with no parameter\r\n", nullptr},
    {"%s", "    Force to write a known firmware version to all HBAs that are currently\r", nullptr},
    {"%s", "    down revision.\r\n", nullptr},
    {"%s", " /f Write:\r\n", nullptr},
    {"%s", "    Force to write a known firmware version to all HBAs (No revision check).\r\n", nullptr},
    {"%s", " /e Rewrite:\r\n", nullptr},
    {"%s", "    Force to rewrite the firmware to all HBAs that are at revision. Only\r", nullptr},
    {"%s", "    HBAs that are down revision will be upgraded. HBAs that are up\r", nullptr},
    {"%s", "    revision will be left alone.\r\n", nullptr},
    {"%s", " /g Downgrade:\r\n", nullptr},
    {"%s", "    Force to downgrade the firmware of HBAs that are up revision to\r", nullptr},
    {"%s", "    a current known revision. HBAs that are down revision are upgraded\r", nullptr},
    {"%s", "    and HBAs that are at revision will be left alone.\r\n", nullptr},
    {"%s", " /l Host Information:\r\n", nullptr},
    {"%s", "    Display Host information.\r\n", nullptr},
    {"%s", " /i HBA Information:\r\n", nullptr},
    {"%s", "    Display general information of all HBAs.\r\n", nullptr},
    {"%s", " /v Version infomation:\r\n", nullptr},
    {"%s", "    Display application version.\r\n", nullptr},
    {"%s", " /s Silent Mode:\r\n", nullptr},
    {"%s", "    Suppress the output.\r\n", nullptr},
};
static_assert(std::size(kUsageLines) == 26);

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void ShowUsage() {
    // The formats come from the table above, never from outside input.
    for (const UsageLine &line : kUsageLines) {
        if (line.second != nullptr)
            PrintLogMessage(kMsgPlain, line.format, line.first, line.second);
        else
            PrintLogMessage(kMsgPlain, line.format, line.first);
    }
}
#pragma GCC diagnostic pop

void DisplayVersion() {
    PrintLogMessage(kMsgPlain, "%s\n%s", kProductTitle, kProductVersion);
    PrintLogMessage(kMsgPlain, "%s", kOwnershipNotice);
}

void ShowVersion() {
    DisplayVersion();
    PrintLogMessage(kMsgPlain, "Build Type: Release");
    PrintLogMessage(kMsgPlain, "Build Date: %s %s", __DATE__, __TIME__);
}

HostInformation *CreateNewHostInformation() {
    return static_cast<HostInformation *>(CoreZMalloc(sizeof(HostInformation)));
}

void DeleteHostInformation(HostInformation *info) { CoreFree(info); }

int OSSGetHostInformation(HostInformation *info) {
    CopyText(info->hostName, g_hostSystemName);
    CopyText(info->osVersion, g_hostSystemVersion);
    CopyText(info->osType, g_hostSystemType);
    CopyText(info->agentVersion, g_agentVersion);
    return 0;
}

int GetHostInformation(HostInformation *info) {
    if (info == nullptr) return -1;
    OSSGetHostInformation(info);

    // The library writes its fixed version text whatever size it is told.
    int8_t version[kHostInfoTextSize] = {};
    HmGetVersion(version, sizeof version);
    CopyText(info->hmxApiVersion, std::string_view(reinterpret_cast<const char *>(version),
                                                   strnlen(reinterpret_cast<const char *>(version), sizeof version)));

    // Unanswered queries leave their fields empty; they are not checked.
    const HMXDevice *device = GetDeviceList()->first;
    if (device != nullptr) {
        IHmFoGetFoCapability(device->handle, &info->foCapability);
        IHmFoGetApiVersion(info->foApiVersion, sizeof info->foApiVersion);
        IHmFoGetFoDriverVersion(device->handle, &info->foDriverVersion);
    } else {
        // Without an opened adapter only the interface version can be asked.
        char foVersion[254] = {};
        IHmFoGetApiVersion(foVersion, sizeof foVersion);
        CopyText(info->foApiVersion, std::string_view(foVersion, strnlen(foVersion, sizeof foVersion)));
    }

    info->valid = 1;
    return 0;
}

void ShowHostInfo() {
    HostInformation *info = CreateNewHostInformation();
    if (info == nullptr) return;
    const int status = GetHostInformation(info);
    PrintLogMessage(kMsgPlain, "Host Name\t: %s", info->hostName);
    PrintLogMessage(kMsgPlain, "OS Type\t\t: %s", info->osType);
    PrintLogMessage(kMsgPlain, "OS Version\t: %s", info->osVersion);
    PrintLogMessage(kMsgPlain, "FOAPI\t\t: %s", info->foApiVersion);
    PrintLogMessage(kMsgPlain, "HMXAPI\t\t: %s", info->hmxApiVersion);
    if (status != 0) PrintLogMessage(kMsgError, "Unable to retrievet host information!");
    DeleteHostInformation(info);
}

int isHostSystemType(const char *text) {
    if (text == nullptr) return 0;
    HostInformation *info = CreateNewHostInformation();
    if (info == nullptr) return 0;
    GetHostInformation(info);
    const int found = std::strstr(info->osType, text) != nullptr ? 1 : 0;
    DeleteHostInformation(info);
    return found;
}

int isSUNi86PC() { return isHostSystemType("i86pc"); }

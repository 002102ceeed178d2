// SPDX-License-Identifier: MIT
#include "preferences.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "core.h"
#include "fw_strings.h"
#include "messages.h"
#include "oss_files.h"

namespace {

constexpr size_t kLineSize = 512;
char g_prefValue[kLineSize];

int32_t g_corePollingInterval = kDefaultPollingInterval;
int32_t g_coreFabricScanningEnable;
int32_t g_coreQuietModeEnable;

constexpr const char *kPollingKey = "node.agent.polling.interval";
constexpr const char *kFabricKey = "node.agent.fabric.scanning.enable";
constexpr const char *kQuietKey = "node.agent.quiet.mode.enable";

// A flag preference: absent means 0; present must read as 0 or 1.
int load_flag(const char *key, int32_t &setting) {
    FILE *file = PrefOpenPreferenceFile(CoreGetConfigFileName());
    if (file == nullptr) return -1;
    const char *value = PrefGetProperty(file, key);
    int status = 0;
    if (value == nullptr) {
        setting = 0;
    } else {
        errno = 0;
        char *end = nullptr;
        const unsigned long number = std::strtoul(value, &end, 10);
        if (end != value && errno == 0 && number <= 1)
            setting = static_cast<int32_t>(number);
        else
            status = -1;
    }
    PrefClosePreferenceFile(file);
    return status;
}

}  // namespace

FILE *PrefOpenPreferenceFile(const char *path) {
    // Read-write on purpose: the agent rewrites its preferences in place, so
    // a file it cannot write counts as missing.
    FILE *file = path != nullptr ? OSSOpenConfigFile(path, "r+") : nullptr;
    if (file == nullptr)
        CoreLogMessage(kMsgWarning, "PrefOpenPreferenceFile: Failed to open preference file (%s).",
                       path != nullptr ? path : "");
    return file;
}

int PrefClosePreferenceFile(FILE *file) {
    if (file == nullptr) return -1;
    return std::fclose(file) == 0 ? 0 : -1;
}

const char *PrefGetProperty(FILE *file, const char *key) {
    if (key == nullptr) return nullptr;
    FILE *own = nullptr;
    if (file == nullptr) {
        own = PrefOpenPreferenceFile("agent.properties");
        if (own == nullptr) return nullptr;
        file = own;
    }
    std::rewind(file);
    const char *found = nullptr;
    bool matched = false;
    char line[kLineSize];
    while (!matched && std::fgets(line, sizeof line, file) != nullptr) {
        char *save = nullptr;
        // Every token of the line is compared, values included.
        for (char *token = strtok_r(line, "=\n", &save); token != nullptr && !matched;
             token = strtok_r(nullptr, "=\n", &save)) {
            if (std::strcmp(token, key) != 0) continue;
            matched = true;
            const char *value = strtok_r(nullptr, "=\n", &save);
            if (value != nullptr) {
                CopyText(g_prefValue, value);
                found = g_prefValue;
            }
        }
    }
    if (!matched && std::ferror(file) != 0) FwTrace("PrefGetProperty: Failed to read preference file.");
    if (own != nullptr) PrefClosePreferenceFile(own);
    return found;
}

int CoreLoadPollingInterval() {
    g_corePollingInterval = kDefaultPollingInterval;
    FILE *file = PrefOpenPreferenceFile(CoreGetConfigFileName());
    if (file == nullptr) return -1;
    const char *value = PrefGetProperty(file, kPollingKey);
    int status = -1;
    if (value != nullptr) {
        errno = 0;
        char *end = nullptr;
        const long number = std::strtol(value, &end, 10);
        if (end != value && errno == 0 && number > 0 && number <= INT32_MAX) {
            g_corePollingInterval = static_cast<int32_t>(number);
            status = 0;
        }
    }
    PrefClosePreferenceFile(file);
    return status;
}

int CoreLoadFabricScanning() { return load_flag(kFabricKey, g_coreFabricScanningEnable); }
int CoreLoadQuietMode() { return load_flag(kQuietKey, g_coreQuietModeEnable); }

int32_t CoreGetPollingInterval() { return g_corePollingInterval; }
int32_t CoreGetFabricScanning() { return g_coreFabricScanningEnable; }
int32_t CoreGetQuietMode() { return g_coreQuietModeEnable; }
void CoreSetQuietMode(int32_t value) { g_coreQuietModeEnable = value; }

void CoreResetPreferences() {
    g_corePollingInterval = kDefaultPollingInterval;
    g_coreFabricScanningEnable = 0;
    g_coreQuietModeEnable = 0;
}

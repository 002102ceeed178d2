// SPDX-License-Identifier: MIT
#include "subsystem_list.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "core.h"
#include "fw_strings.h"
#include "messages.h"
#include "oss_files.h"

namespace {

constexpr size_t kReadBlock = 128;
constexpr size_t kFieldCount = 5;

// A row needs more than three commas in the piece that was read.
bool is_row(const char *line) {
    int commas = 0;
    for (const char *c = line; *c != '\0'; ++c) {
        if (*c == ',') ++commas;
    }
    return commas > 3;
}

// Reads the whole file once to see that it can be read at all.
bool file_is_readable(FILE *file) {
    char block[kReadBlock];
    while (std::fread(block, 1, sizeof block, file) == sizeof block) {
    }
    return std::ferror(file) == 0;
}

}  // namespace

SubSystemIDList::~SubSystemIDList() { remove_all(); }

int AddSubSystemToSubSystemList(SubSystemIDList *list, const char *f1, const char *f2, const char *f3,
                                const char *f4, const char *f5) {
    if (list == nullptr) return -1;
    auto *entry = static_cast<SubSystemIDEntry *>(CoreZMalloc(sizeof(SubSystemIDEntry)));
    if (entry == nullptr) return -1;
    CopyText(entry->subsystemDeviceId, f1 != nullptr ? f1 : "");
    CopyText(entry->subsystemVendorId, f2 != nullptr ? f2 : "");
    CopyText(entry->chip, f3 != nullptr ? f3 : "");
    CopyText(entry->description, f4 != nullptr ? f4 : "");
    CopyText(entry->supported, f5 != nullptr ? f5 : "");
    list->append(entry);
    return 0;
}

SubSystemIDListPtr BuildSubSystemListFromFile(const char *path) {
    FILE *file = path != nullptr ? OSSOpenConfigFile(path, "r") : nullptr;
    if (file == nullptr) {
        CoreLogMessage(kMsgError, "Cannot open the adapter properties file %s !", path != nullptr ? path : "");
        return nullptr;
    }
    SubSystemIDListPtr list(new (std::nothrow) SubSystemIDList);
    if (list == nullptr || AddSubSystemToSubSystemList(list.get(), "", "", "", "", "") != 0) {
        std::fclose(file);
        return nullptr;
    }
    if (!file_is_readable(file)) {
        CoreLogMessage(kMsgError, "Failed to read the %s file!", path);
        std::fclose(file);
        return nullptr;
    }
    std::rewind(file);

    char line[kReadBlock];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (!is_row(line)) continue;
        // Runs of commas are one separator; nothing is trimmed.
        const char *fields[kFieldCount] = {};
        char *save = nullptr;
        char *token = strtok_r(line, ",", &save);
        for (size_t i = 0; i < kFieldCount && token != nullptr; ++i) {
            fields[i] = token;
            token = strtok_r(nullptr, ",", &save);
        }
        if (fields[kFieldCount - 1] == nullptr) {
            CoreLogMessage(kMsgError, "Failed to build adapter subsystem list from %s file!", path);
            std::fclose(file);
            return nullptr;
        }
        // A row whose entry cannot be allocated is skipped.
        AddSubSystemToSubSystemList(list.get(), fields[0], fields[1], fields[2], fields[3], fields[4]);
    }
    std::fclose(file);
    return list;
}

const SubSystemIDEntry *FindSubSystemInSubSystemList(const SubSystemIDList *list, uint16_t subsystemDeviceId,
                                                     uint16_t subsystemVendorId) {
    if (list == nullptr) return nullptr;
    char device[8];
    char vendor[8];
    std::snprintf(device, sizeof device, "0x%04X", subsystemDeviceId);
    std::snprintf(vendor, sizeof vendor, "0x%04X", subsystemVendorId);
    for (const SubSystemIDEntry *entry = list->first; entry != nullptr; entry = entry->next) {
        if (std::strcmp(entry->subsystemDeviceId, device) == 0 && std::strcmp(entry->subsystemVendorId, vendor) == 0) {
            CoreLogMessage(kMsgDebug, "Found adapter SSVID: %s SSDID %s.", vendor, device);
            return entry;
        }
    }
    return nullptr;
}

uint32_t CountSubSystemID(const SubSystemIDList *list) {
    uint32_t count = 0;
    if (list == nullptr) return 0;
    for (const SubSystemIDEntry *entry = list->first; entry != nullptr; entry = entry->next) ++count;
    return count;
}

void DeleteSubSystemIDList(SubSystemIDList *list) {
    if (list != nullptr) list->remove_all();
}

void PrintSubSystemIDList(const SubSystemIDList *list) {
    if (list == nullptr) return;
    int index = 0;
    for (const SubSystemIDEntry *e = list->first; e != nullptr; e = e->next, ++index)
        FwTrace("Entry %d: %s %s %s %s %s", index, e->subsystemDeviceId, e->subsystemVendorId, e->chip,
                e->description, e->supported);
}

bool IsSubSystemSupported(const SubSystemIDEntry *entry) {
    return entry != nullptr && std::strstr(entry->supported, "TRUE") != nullptr;
}

int ValidateAdapterProperties(const SubSystemIDEntry *entry) { return IsSubSystemSupported(entry) ? 0 : 6; }

// SPDX-License-Identifier: MIT
#include "version_control.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core.h"
#include "fw_strings.h"
#include "messages.h"
#include "oss_files.h"

VersionCtrList g_VersionCtrEntryList;

namespace {

constexpr size_t kLineSize = 128;        // 127 characters a read
constexpr size_t kVersionTextSize = 13;  // 12 characters kept
constexpr const char *kDelimiters = "\n\t,";

// Decimal component truncated to a byte.
uint8_t component_byte(const char *text) {
    const long value = std::strtol(text, nullptr, 10);
    return static_cast<uint8_t>(static_cast<unsigned long>(value) & 0xFFu);
}

int fill_bytes(char *text, uint8_t *bytes, size_t room) {
    int count = 0;
    char *save = nullptr;
    for (char *part = strtok_r(text, ".", &save); part != nullptr; part = strtok_r(nullptr, ".", &save)) {
        if (static_cast<size_t>(count) < room) bytes[count] = component_byte(part);
        ++count;
    }
    return count;
}

}  // namespace

int FillVersion(char *text, std::span<uint8_t> bytes) {
    if (text == nullptr) return 0;
    return fill_bytes(text, bytes.data(), bytes.size());
}

int FillEntryVersion(VersionCtrEntry *entry, size_t fieldOffset, char *text) {
    if (entry == nullptr || text == nullptr) return 0;
    // A byte view of the entry up to its link: the spill is defined and ends
    // with the image file name at the latest.
    constexpr size_t kLimit = offsetof(VersionCtrEntry, next);
    if (fieldOffset >= kLimit) return 0;
    auto *bytes = reinterpret_cast<uint8_t *>(entry);
    return fill_bytes(text, bytes + fieldOffset, kLimit - fieldOffset);
}

VersionCtrEntry *CreateNewEntry() { return static_cast<VersionCtrEntry *>(CoreZMalloc(sizeof(VersionCtrEntry))); }

VersionCtrList *InsertNewEntry(VersionCtrEntry *entry) {
    if (entry != nullptr) g_VersionCtrEntryList.append(entry);
    return &g_VersionCtrEntryList;
}

void DeleteFlashCtrVersionList() { g_VersionCtrEntryList.remove_all(CoreFree); }

void PrintFlashCtrVersionList(const VersionCtrList *head) {
    if (head == nullptr) return;
    for (const VersionCtrEntry *e = head->first; e != nullptr; e = e->next)
        FwTrace("Node %s %s %s %d.%02d %d.%02d %d.%02d %d.%02d.%02d %s", e->subsystemDeviceId, e->subsystemVendorId,
                e->model, e->biosVersion[0], e->biosVersion[1], e->efiVersion[0], e->efiVersion[1],
                e->fcodeVersion[0], e->fcodeVersion[1], e->fwVersion[0], e->fwVersion[1], e->fwVersion[2],
                e->imageFileName);
}

int BuildFlashCtrListFromFile(const char *path) {
    FILE *file = path != nullptr ? OSSOpenConfigFile(path, "r") : nullptr;
    if (file == nullptr) {
        PrintLogMessage(kMsgError, "Cannot open file %s !", path != nullptr ? path : "");
        return 4;
    }

    // Cleared once per file: a row without some version tokens reuses what
    // the previous row's split left of them (their first component).
    char bios[kVersionTextSize] = {};
    char efi[kVersionTextSize] = {};
    char fcode[kVersionTextSize] = {};
    char firmware[kVersionTextSize] = {};
    char *const versionTexts[] = {bios, efi, fcode, firmware};

    char buffer[kLineSize];
    while (std::fgets(buffer, sizeof buffer, file) != nullptr) {
        char *line = buffer;
        while (*line != '\0' && std::isspace(static_cast<unsigned char>(*line)) != 0) ++line;
        if (*line == '\0' || *line == ';' || *line == '#') continue;

        char *save = nullptr;
        char *token = strtok_r(line, kDelimiters, &save);
        // Only delimiters: nothing to read, and no row to link again.
        if (token == nullptr) continue;

        VersionCtrEntry *entry = CreateNewEntry();
        if (entry == nullptr) {
            PrintLogMessage(kMsgError, "Memory allocation error !");
            std::fclose(file);
            return 10;
        }
        for (int position = 0; token != nullptr; ++position, token = strtok_r(nullptr, kDelimiters, &save)) {
            switch (position) {
                case 0: CopyText(entry->subsystemDeviceId, token); break;
                case 1: CopyText(entry->subsystemVendorId, token); break;
                case 2: CopyText(entry->model, token); break;
                case 3:
                case 4:
                case 5:
                case 6: CopyText(versionTexts[position - 3], kVersionTextSize, token); break;
                case 7: CopyText(entry->imageFileName, Trim(token)); break;
                default: break;
            }
        }
        FillEntryVersion(entry, offsetof(VersionCtrEntry, biosVersion), bios);
        FillEntryVersion(entry, offsetof(VersionCtrEntry, efiVersion), efi);
        FillEntryVersion(entry, offsetof(VersionCtrEntry, fcodeVersion), fcode);
        FillEntryVersion(entry, offsetof(VersionCtrEntry, fwVersion), firmware);
        g_VersionCtrEntryList.append(entry);
    }
    std::fclose(file);
    PrintFlashCtrVersionList(&g_VersionCtrEntryList);
    return 0;
}

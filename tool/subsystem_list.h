// SPDX-License-Identifier: MIT
// adapters.properties: the supported-adapter list, one row per approved
// adapter model keyed by subsystem device and vendor ID.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "fw_list.h"

struct SubSystemIDEntry {
    char subsystemDeviceId[20];
    char subsystemVendorId[20];
    char chip[20];
    char description[128];
    char supported[10];
    SubSystemIDEntry *next;
};

struct SubSystemIDList : FwList<SubSystemIDEntry> {
    SubSystemIDList() = default;
    SubSystemIDList(const SubSystemIDList &) = delete;
    SubSystemIDList &operator=(const SubSystemIDList &) = delete;
    ~SubSystemIDList();
};

using SubSystemIDListPtr = std::unique_ptr<SubSystemIDList>;

// The list read from `path` (an empty entry first), or nullptr when the file
// cannot be opened or read, or a row lacks one of its five fields.
SubSystemIDListPtr BuildSubSystemListFromFile(const char *path);
const SubSystemIDEntry *FindSubSystemInSubSystemList(const SubSystemIDList *list, uint16_t subsystemDeviceId,
                                                     uint16_t subsystemVendorId);
int AddSubSystemToSubSystemList(SubSystemIDList *list, const char *f1, const char *f2, const char *f3,
                                const char *f4, const char *f5);
uint32_t CountSubSystemID(const SubSystemIDList *list);
void DeleteSubSystemIDList(SubSystemIDList *list);
void PrintSubSystemIDList(const SubSystemIDList *list);

// What the users take from a row.
bool IsSubSystemSupported(const SubSystemIDEntry *entry);
int ValidateAdapterProperties(const SubSystemIDEntry *entry);

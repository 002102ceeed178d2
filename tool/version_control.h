// SPDX-License-Identifier: MIT
// flashwright.properties: the version control file, one row per adapter
// kind with the versions its shipped image carries and the image file name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "fw_list.h"

struct VersionCtrEntry {
    char subsystemDeviceId[10];
    char subsystemVendorId[10];
    char model[32];
    uint8_t biosVersion[2];   // major, minor
    uint8_t efiVersion[2];    // major, minor
    uint8_t fcodeVersion[2];  // major, minor
    uint8_t fwVersion[3];     // major, minor, sub
    char imageFileName[771];
    VersionCtrEntry *next;
};

// The version bytes and the image name follow each other without gaps: a
// version text with more components than its field spills into the next
// field, and the file format depends on that.
static_assert(offsetof(VersionCtrEntry, subsystemVendorId) == 10);
static_assert(offsetof(VersionCtrEntry, model) == 20);
static_assert(offsetof(VersionCtrEntry, biosVersion) == 52);
static_assert(offsetof(VersionCtrEntry, efiVersion) == 54);
static_assert(offsetof(VersionCtrEntry, fcodeVersion) == 56);
static_assert(offsetof(VersionCtrEntry, fwVersion) == 58);
static_assert(offsetof(VersionCtrEntry, imageFileName) == 61);
static_assert(offsetof(VersionCtrEntry, next) == 832);

using VersionCtrList = FwList<VersionCtrEntry>;

extern VersionCtrList g_VersionCtrEntryList;

// 0 loaded (possibly no rows), 4 file cannot be opened, 10 out of memory.
int BuildFlashCtrListFromFile(const char *path);
void PrintFlashCtrVersionList(const VersionCtrList *head);
void DeleteFlashCtrVersionList();

VersionCtrEntry *CreateNewEntry();
VersionCtrList *InsertNewEntry(VersionCtrEntry *entry);
// Splits a dotted version text (changed in place) into `bytes`, one byte
// per component; components beyond the span are dropped.
int FillVersion(char *text, std::span<uint8_t> bytes);
// The same for a field of an entry: components go on into the bytes that
// follow the field, up to the end of the image file name.
int FillEntryVersion(VersionCtrEntry *entry, size_t fieldOffset, char *text);

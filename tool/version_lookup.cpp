// SPDX-License-Identifier: MIT
#include "version_lookup.h"

#include <cstdio>
#include <cstring>

#include "adapter_list.h"
#include "chip_class.h"
#include "fw_strings.h"
#include "oem_rules.h"

namespace {

void id_texts(const HMXDevice *device, char (&deviceId)[10], char (&vendorId)[10]) {
    const SubsystemPair pair = GetSubsystemPair(device);
    std::snprintf(deviceId, sizeof deviceId, "0x%04x", pair.deviceId);
    std::snprintf(vendorId, sizeof vendorId, "0x%04x", pair.vendorId);
}

// A version text of the adapter, cleaned and split like a file row.
void fill_from_text(VersionCtrEntry *entry, size_t field, const char *text, size_t size) {
    char copy[40] = {};
    std::memcpy(copy, text, size < sizeof copy - 1 ? size : sizeof copy - 1);
    FillEntryVersion(entry, field, CleanStr(copy));
}

// Version bytes printed as text first, so both sources share one parser.
void fill_from_bytes(VersionCtrEntry *entry, size_t field, const uint8_t *bytes, bool withSub) {
    char text[16];
    if (withSub)
        std::snprintf(text, sizeof text, "%d.%02d.%02d", bytes[0], bytes[1], bytes[2]);
    else
        std::snprintf(text, sizeof text, "%d.%02d", bytes[0], bytes[1]);
    FillEntryVersion(entry, field, text);
}

}  // namespace

VersionCtrEntry *GetVersionFromFlashCtrFile(const HMXDevice *device, VersionCtrEntry *entry) {
    if (device == nullptr || entry == nullptr) return nullptr;
    char deviceId[10];
    char vendorId[10];
    id_texts(device, deviceId, vendorId);
    for (const VersionCtrEntry *row = g_VersionCtrEntryList.first; row != nullptr; row = row->next) {
        if (striscmp(row->subsystemDeviceId, deviceId) == 0 && striscmp(row->subsystemVendorId, vendorId) == 0) {
            *entry = *row;
            break;
        }
    }
    return entry;
}

VersionCtrEntry *BuildFlashCtrListFromHBA(const HMXDevice *device, VersionCtrEntry *entry) {
    if (device == nullptr || entry == nullptr) return nullptr;
    id_texts(device, entry->subsystemDeviceId, entry->subsystemVendorId);
    const Adapter *adapter = FindAdapterInAdapterListByHMXDevice(device);
    CopyText(entry->model, adapter != nullptr ? adapter->model : device->nodeProperty.Model);

    const DEVICENODEPROPERTY &node = device->nodeProperty;
    fill_from_text(entry, offsetof(VersionCtrEntry, biosVersion), node.OptionRomVersion, sizeof node.OptionRomVersion);
    if (Get4GbAnd8GbFCXType(device) < 1) {
        fill_from_text(entry, offsetof(VersionCtrEntry, fwVersion), node.FirmwareVersion, sizeof node.FirmwareVersion);
        return entry;
    }
    if ((node.BIValid & 0x2) != 0) fill_from_bytes(entry, offsetof(VersionCtrEntry, efiVersion), node.BIEfiVersion, false);
    fill_from_bytes(entry, offsetof(VersionCtrEntry, fcodeVersion), node.BIFCodeVersion, false);
    if ((node.BIValid & 0x1) != 0) fill_from_bytes(entry, offsetof(VersionCtrEntry, fwVersion), node.BIFwVersion, true);
    return entry;
}

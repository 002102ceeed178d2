// SPDX-License-Identifier: MIT
#include "adapter_list.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "chip_class.h"
#include "fw_strings.h"
#include "messages.h"
#include "oem_rules.h"
#include "oss.h"
#include "subsystem_list.h"
#include "vpd_fields.h"

AdapterList g_AdapterList;
DeviceList g_UTILDeviceList;
DeviceList g_MyDeviceList;

namespace {

constexpr const char *kNoSerial = "N/A";

// Records dropped from the head by InitAdapterList stay reachable here: they
// are not freed (shut-down resets the head before removing), but they are
// not lost either.
Adapter *g_RetiredAdapters;

bool same_port(const Adapter *a, const Adapter *b) {
    return std::memcmp(a->nodeWWN, b->nodeWWN, sizeof a->nodeWWN) == 0 &&
           std::memcmp(a->portWWN, b->portWWN, sizeof a->portWWN) == 0 &&
           std::memcmp(a->portId, b->portId, sizeof a->portId) == 0;
}

DeviceList *new_list() { return static_cast<DeviceList *>(CoreZMalloc(sizeof(DeviceList))); }

// The chip type number: the row's chip without its "FCX" prefix, or the PCI
// device ID in hexadecimal, read as a decimal number up to the first
// character that is not a digit.
uint16_t chip_type_number(const char *chipText) {
    return static_cast<uint16_t>(std::strtoul(chipText, nullptr, 10));
}

void fill_serial(Adapter *adapter, const HMXDevice *device) {
    // Starts as "N/A"; a VPD field shorter than that only covers its front.
    char serial[kVpdBufferSize] = "N/A";
    if (Get4GbAnd8GbFCXType(device) > 0 && RetrieveSpecificVPDField(adapter, "SN", serial) == 0) {
        CopyText(adapter->serialNumber, std::string_view(serial, strnlen(serial, sizeof serial)));
    } else {
        const auto *node = reinterpret_cast<const char *>(device->nodeProperty.SerialNumber);
        CopyText(adapter->serialNumber,
                 std::string_view(node, strnlen(node, sizeof device->nodeProperty.SerialNumber)));
    }
}

// Builds the adapter record of one port from its device record and the
// supported-adapter list; the chip type number goes into both.
Adapter *make_adapter(HMXDevice *copy, const SubSystemIDList *supported) {
    Adapter *adapter = CreateNewAdapter();
    if (adapter == nullptr) return nullptr;
    const SubsystemPair ids = GetSubsystemPair(copy);
    adapter->instance = copy->instance;
    adapter->supported = 0;
    char chipText[20] = {};
    const SubSystemIDEntry *row = FindSubSystemInSubSystemList(supported, ids.deviceId, ids.vendorId);
    if (row != nullptr) {
        adapter->supported = IsSubSystemSupported(row) ? 1 : 0;
        CopyText(adapter->description, row->description);
        CopyText(chipText, std::strlen(row->chip) > 3 ? row->chip + 3 : "");
    } else {
        std::snprintf(chipText, sizeof chipText, "%x", copy->chipProperty.DeviceID);
    }
    adapter->chipType = chip_type_number(chipText);
    copy->chipType = adapter->chipType;
    FwTrace("SortAdapterList: HBA=%d (%s) Chip Type=%d Chip Id = 0x%x", copy->instance, chipText, adapter->chipType,
            copy->chipProperty.DeviceID);

    adapter->handle = copy->handle;
    adapter->subsystemVendorId = ids.vendorId;
    adapter->subsystemDeviceId = ids.deviceId;
    adapter->reserved = 0;
    adapter->beaconState = copy->beaconState;
    adapter->newChipGeneration = CoreGetFCXType(copy) >= 8 ? 1 : 0;
    fill_serial(adapter, copy);
    FwTrace("SortAdapterList: HBA %d %s SN=%s", copy->instance, copy->nodeProperty.Model, adapter->serialNumber);

    adapter->portIndex = copy->portIndex;
    adapter->numberOfPorts = copy->nodeProperty.NumberOfPorts;
    std::memcpy(adapter->nodeWWN, copy->nodeProperty.WWN, sizeof adapter->nodeWWN);
    std::memcpy(adapter->portWWN, copy->portProperty.WWN, sizeof adapter->portWWN);
    GetStringWWN(adapter->portWWN, adapter->portWWNText, sizeof adapter->portWWNText);
    GetStringWWN(adapter->nodeWWN, adapter->nodeWWNText, sizeof adapter->nodeWWNText);
    std::memcpy(adapter->portId, copy->portProperty.PortID, sizeof adapter->portId);
    CopyText(adapter->model, std::string_view(copy->nodeProperty.Model,
                                              strnlen(copy->nodeProperty.Model, sizeof copy->nodeProperty.Model)));
    return adapter;
}

}  // namespace

Adapter *CreateNewAdapter() { return static_cast<Adapter *>(CoreZMalloc(sizeof(Adapter))); }

Adapter *FindAdapterInAdapterList(const Adapter *adapter) {
    if (adapter == nullptr) return nullptr;
    for (Adapter *a = g_AdapterList.first; a != nullptr; a = a->next) {
        if (same_port(a, adapter)) return a;
    }
    return nullptr;
}

Adapter *FindAdapterInAdapterListByHMXDevice(const HMXDevice *device) {
    if (device == nullptr) return nullptr;
    for (Adapter *a = g_AdapterList.first; a != nullptr; a = a->next) {
        if (std::memcmp(a->nodeWWN, device->nodeProperty.WWN, sizeof a->nodeWWN) == 0 &&
            std::memcmp(a->portWWN, device->portProperty.WWN, sizeof a->portWWN) == 0 &&
            std::memcmp(a->portId, device->portProperty.PortID, sizeof a->portId) == 0)
            return a;
    }
    return nullptr;
}

const char *GetAdapterSerial(const HMXDevice *device) {
    const Adapter *adapter = FindAdapterInAdapterListByHMXDevice(device);
    if (adapter == nullptr || adapter->serialNumber[0] == '\0') return kNoSerial;
    return adapter->serialNumber;
}

int AddAdapterToAdapterList(Adapter *adapter) {
    if (adapter == nullptr || FindAdapterInAdapterList(adapter) != nullptr) return -1;
    g_AdapterList.append(adapter);
    return 0;
}

void InitAdapterList() {
    if (g_AdapterList.first != nullptr) {
        // Chain what is dropped in front of what was dropped before.
        g_AdapterList.last->next = g_RetiredAdapters;
        g_RetiredAdapters = g_AdapterList.first;
    }
    g_AdapterList.reset();
}

AdapterList *GetAdapterList() { return &g_AdapterList; }

int RemoveAllAdaptersFromAdapterList() {
    g_AdapterList.remove_all([](Adapter *a) {
        FwTrace("RemoveAllAdaptersFromAdapterList: Freeing HBA %d", a->instance);
        CoreFree(a);
    });
    return 0;
}

void InitMyDeviceList() { g_MyDeviceList.reset(); }
DeviceList *GetMyDeviceList() { return &g_MyDeviceList; }
void RemoveAllDevicesFromMyDeviceList() { g_MyDeviceList.reset(); }

void CloneFreeUTILDeviceList(DeviceList *list) {
    if (list == nullptr) return;
    // The view links the very same nodes; forget it before they go.
    if (list == &g_UTILDeviceList) g_MyDeviceList.reset();
    list->remove_all(DeleteDevice);
}

void FreeDeviceListCopy(DeviceList *list) {
    if (list == nullptr) return;
    list->remove_all(DeleteDevice);
    CoreFree(list);
}

uint32_t GetPortIndex(const HMXDevice *device) { return device != nullptr ? device->portIndex : 1; }

HMXDevice *FindAdapterByInstanceNumber(uint32_t instance) {
    for (HMXDevice *d = g_UTILDeviceList.first; d != nullptr; d = d->next) {
        if (d->instance == instance) return d;
    }
    return nullptr;
}

HMXDevice *FindAdapterByWWPN(const uint8_t *wwpn) {
    if (wwpn == nullptr) return nullptr;
    for (HMXDevice *d = g_UTILDeviceList.first; d != nullptr; d = d->next) {
        if (std::memcmp(d->portProperty.WWN, wwpn, sizeof d->portProperty.WWN) == 0) return d;
    }
    return nullptr;
}

int GetStringWWN(const uint8_t *bytes, char *text, int textSize) {
    if (bytes == nullptr || text == nullptr || textSize < 17) return -1;
    int len = 0;
    for (int i = 0; i < 8; ++i) len += std::snprintf(text + len, static_cast<size_t>(textSize - len), "%02x", bytes[i]);
    return len;
}

void InsertDeviceOrdered(DeviceList *list, HMXDevice *node, int (*compare)(const HMXDevice *, const HMXDevice *)) {
    HMXDevice *before = list->first;
    while (before != nullptr && compare(before, node) <= 0) before = before->next;
    list->insert_before(before, node);
}

int CompareByPortWWNText(const HMXDevice *a, const HMXDevice *b) {
    char ta[24];
    char tb[24];
    GetStringWWN(a->portProperty.WWN, ta, sizeof ta);
    GetStringWWN(b->portProperty.WWN, tb, sizeof tb);
    return std::strcmp(ta, tb);
}

int CompareBySerial(const HMXDevice *a, const HMXDevice *b) {
    return std::strcmp(GetAdapterSerial(a), GetAdapterSerial(b));
}

DeviceList *SortAdapterList(const DeviceList *agentDevices) {
    const std::string path = std::string(OSSGetDirPath()) + "adapters.properties";
    FwTrace("SortAdapterList: Adapter properties file=%s", path.c_str());
    SubSystemIDListPtr supported = BuildSubSystemListFromFile(path.c_str());
    PrintSubSystemIDList(supported.get());

    DeviceList *result = new_list();
    if (result == nullptr) {
        FwTrace("SortAdapterList: Unable to allocate memory!");
        return nullptr;
    }
    for (const HMXDevice *d = agentDevices->first; d != nullptr; d = d->next) {
        HMXDevice *copy = CloneDevice(d);
        if (copy == nullptr) {
            FwTrace("SortAdapterList: Unable to allocate memory!");
            FreeDeviceListCopy(result);
            return nullptr;
        }
        Adapter *adapter = make_adapter(copy, supported.get());
        if (adapter != nullptr && AddAdapterToAdapterList(adapter) != 0) CoreFree(adapter);
        InsertDeviceOrdered(result, copy, CompareByPortWWNText);
    }
    return result;
}

DeviceList *BuildUTILDeviceList(const DeviceList *list) {
    FwTrace("BuildUTILDeviceList: Enter...");
    DeviceList *result = new_list();
    if (result == nullptr) {
        FwTrace("BuildUTILDeviceList: Unable to allocate memory!");
        return nullptr;
    }
    for (const HMXDevice *d = list->first; d != nullptr; d = d->next) {
        HMXDevice *copy = CloneDevice(d);
        if (copy == nullptr) {
            FwTrace("BuildUTILDeviceList: Unable to allocate memory!");
            FreeDeviceListCopy(result);
            return nullptr;
        }
        InsertDeviceOrdered(result, copy, CompareBySerial);
    }
    FwTrace("BuildUTILDeviceList: Total added HBAs = %d", result->count);
    return result;
}

void NumberPorts(DeviceList *list) {
    for (const HMXDevice *d = list->first; d != nullptr; d = d->next) {
        const char *serial = GetAdapterSerial(d);
        uint32_t count = 0;
        for (HMXDevice *n = list->first; n != nullptr; n = n->next) {
            if (std::strcmp(GetAdapterSerial(n), serial) == 0) ++count;
            if (std::memcmp(n->nodeProperty.WWN, d->nodeProperty.WWN, sizeof n->nodeProperty.WWN) == 0 &&
                std::memcmp(n->portProperty.WWN, d->portProperty.WWN, sizeof n->portProperty.WWN) == 0) {
                n->portIndex = count;
                break;
            }
        }
    }
}

int BuildHBADevices() {
    FwTrace("BuildHBADevices: Enter...");
    DeviceList *byWWPN = SortAdapterList(GetDeviceList());
    DeviceList *bySerial = byWWPN != nullptr ? BuildUTILDeviceList(byWWPN) : nullptr;
    // The WWPN-ordered copies have served their purpose.
    FreeDeviceListCopy(byWWPN);

    g_UTILDeviceList.reset();
    if (bySerial != nullptr) {
        g_UTILDeviceList = *bySerial;
        CoreFree(bySerial);
    }
    InitMyDeviceList();
    for (HMXDevice *d = g_UTILDeviceList.first; d != nullptr; d = d->next) {
        updateModelStrForSingleBIOSHBA(d);
        const uint8_t *w = d->portProperty.WWN;
        FwTrace("BuildHBADevices: Adding (HBA %d %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X %s) to HBA list.",
                d->instance, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], d->nodeProperty.Model);
        // The view links the very same nodes in the very same order.
        if (g_MyDeviceList.first == nullptr) g_MyDeviceList.first = d;
        g_MyDeviceList.last = d;
        ++g_MyDeviceList.count;
    }
    FwTrace("BuildHBADevices: Added %d HBA(s)", g_MyDeviceList.count);

    NumberPorts(&g_MyDeviceList);
    for (HMXDevice *d = g_MyDeviceList.first; d != nullptr; d = d->next) {
        if (isSingleBIOSChipOEM(d) == kSingleBIOSChipOEM) {
            FwTrace("BuildHBADevices: Found OEM HBA with single BIOS chip.");
            UpdateHBAVersionForOEM(d);
        }
    }
    return 0;
}

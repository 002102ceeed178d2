// SPDX-License-Identifier: MIT
#include "port_gate.h"

#include <cstring>

#include "adapter_list.h"
#include "chip_class.h"
#include "fw_strings.h"
#include "messages.h"
#include "oem_rules.h"
#include "usage.h"

namespace {

// Older boards of kind 1 whose BIOS must not be written by this tool
// (another OEM's boot code owns them).
constexpr SubsystemPair kBiosLockedBoards[] = {{0x12B0, 0x1E0F}, {0x12B1, 0x1E0F}};

bool is_itanium_host() { return isHostSystemType("IA64") != 0 || isHostSystemType("ia64") != 0; }

bool same_node_and_port(const HMXDevice *a, const HMXDevice *b) {
    return std::memcmp(a->nodeProperty.WWN, b->nodeProperty.WWN, 8) == 0 &&
           std::memcmp(a->portProperty.WWN, b->portProperty.WWN, 8) == 0;
}

}  // namespace

bool QueryHBAType(const HMXDevice *device) { return device != nullptr && device->nodeProperty.NumberOfPorts > 1; }

int isAdapterSupported(const HMXDevice *device, uint32_t *chip) {
    if (device == nullptr) return 0;
    const uint8_t *n = device->nodeProperty.WWN;
    const uint8_t *p = device->portProperty.WWN;
    FwTrace("isAdapterSupported: HBA WWNN %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", n[0], n[1], n[2], n[3], n[4], n[5],
            n[6], n[7]);
    FwTrace("isAdapterSupported: HBA WWPN %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", p[0], p[1], p[2], p[3], p[4], p[5],
            p[6], p[7]);
    for (const Adapter *a = GetAdapterList()->first; a != nullptr; a = a->next) {
        if (std::memcmp(a->nodeWWN, n, 8) != 0 || std::memcmp(a->portWWN, p, 8) != 0) continue;
        FwTrace("isAdapterSupported: Found WWPN=%02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", p[0], p[1], p[2], p[3], p[4],
                p[5], p[6], p[7]);
        if (chip != nullptr) *chip = a->chipType;
        CoreLogMessage(kMsgInfo, "isAdapterSupported: FCX=%d EnableStatus=%d", a->chipType, a->supported);
        return a->supported != 0 ? 1 : 0;
    }
    return 0;
}

int doFCXCheckForOptionROM(const HMXDevice *device) {
    if (device == nullptr) {
        PrintLogMessage(kMsgDebug, "Unable to find the selected HBA !");
        return kClassRecheck;
    }
    uint32_t chip = 0;
    if (isAdapterSupported(device, &chip) == 0) return kClassNotSupported;
    if (Get4GbAnd8GbFCXType(device) > 0) return kClassRegionUpdate;
    const int kind = FindWhichFCX2GType(device);
    if ((kind == 1 || kind == 2 || kind == 4) && is_itanium_host()) return kClassBiosDisabled;
    if (kind == 1) {
        const SubsystemPair pair = GetSubsystemPair(device);
        for (const SubsystemPair &locked : kBiosLockedBoards) {
            if (pair == locked) {
                FwTrace("doFCXCheckForOptionROM: BIOS update disabled (ssdid=0x%04x ssvid=0x%04x)", pair.deviceId,
                        pair.vendorId);
                return kClassBiosDisabled;
            }
        }
        return kClassStdBiosKind1;
    }
    if (kind == 2 || kind == 4) return kClassStdBiosKind2;
    if (kind == 0) return kClassStdBiosKind0;
    if (kind == 3) return kClassRecheck;
    return kClassUnknown;
}

int GetPortIndexOEM(const HMXDevice *device) {
    if (device == nullptr) return -1;
    const SubsystemPair pair = GetSubsystemPair(device);
    const uint8_t *w = device->portProperty.WWN;
    int counter = -1;
    for (const HMXDevice *node = GetMyDeviceList()->first; node != nullptr; node = node->next) {
        if (counter == 1) counter = -1;
        if (GetSubsystemPair(node) == pair) ++counter;
        FwTrace("GetPortIndexOEM: HBA %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X (hw port=%d)", node->nodeProperty.Model,
                node->portProperty.WWN[0], node->portProperty.WWN[1], node->portProperty.WWN[2],
                node->portProperty.WWN[3], node->portProperty.WWN[4], node->portProperty.WWN[5],
                node->portProperty.WWN[6], node->portProperty.WWN[7], counter);
        if (same_node_and_port(node, device)) {
            FwTrace("GetPortIndexOEM: return HBA %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X (hw port=%d)",
                    device->nodeProperty.Model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], counter);
            return counter;
        }
    }
    return counter;
}

int CheckAdapterFlashUpdateStatus(const HMXDevice *device) {
    if (device == nullptr) return kFlashWrongOs;
    const char *serial = GetAdapterSerial(device);
    int ports = 0;
    const HMXDevice *own = nullptr;
    for (const HMXDevice *node = GetMyDeviceList()->first; node != nullptr; node = node->next) {
        if (striscmp(GetAdapterSerial(node), serial) != 0) continue;
        ++ports;
        if (own == nullptr && same_node_and_port(node, device)) own = node;
    }
    if (own == nullptr) return kFlashWrongOs;

    const uint32_t index = own->portIndex;
    const uint8_t *w = device->portProperty.WWN;
    const char *model = device->nodeProperty.Model;
    int status = kFlashFirstPort;
    if (Get4GbAnd8GbFCXType(device) < 1) {
        (void)hasSingleBIOSChip(device);
    } else if (ports != 2) {
        FwTrace("Port index = %d - HBA %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", index, w[0], w[1], w[2], w[3], w[4],
                w[5], w[6], w[7]);
        if (index == 1) {
            status = kFlashFirstPort;
            FwTrace("Enable update on the first port of a multi-port HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                    index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        } else if (index % 2 == 1) {
            status = kFlashThirdPort;
            FwTrace("Enable update on the third port of a multi-port HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                    index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        } else if (index == 2) {
            status = kFlashSecondPort;
            FwTrace("Disable update on the second port of a multi-port HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                    index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        } else {
            status = kFlashFourthPort;
            FwTrace("Disable update on the fourth port of a multi-port HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                    index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        }
    } else if (index == 1) {
        status = kFlashFirstPort;
        FwTrace("Enable update on the first port of a multi-port HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
    } else {
        status = kFlashSecondPort;
        FwTrace("Disable update on second port of multiport HBA (Port %d: %s %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)",
                index, model, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
    }

    // Boards whose two ports share one BIOS chip pick their port by board order.
    if (CoreGetFCX4GbType(device) == 0) {
        const int family = hasSingleBIOSChip(device);
        if (family == 1 || family == 2) {
            const bool even = GetPortIndexOEM(device) % 2 == 0;
            if (family == 1) status = even ? kFlashFirstPort : kFlashSecondPort;
            else status = even ? kFlashSecondPort : kFlashFirstPort;
        }
    }
    if (Get4GbAnd8GbFCXType(device) < 1 && is_itanium_host()) status = kFlashWrongOs;
    return status;
}

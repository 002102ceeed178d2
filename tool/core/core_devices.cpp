// SPDX-License-Identifier: MIT
// Adapter discovery: the open loop over the library's instances and the
// device record of each opened port.
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core.h"
#include "messages.h"

namespace {

constexpr uint32_t kFirstInstance = 0;
constexpr uint32_t kLastInstance = 30;
// Shared by all instances and renewed only by a successful open: a driver
// that is still settling gets its time once, not once per port.
constexpr int kOpenRetries = 2;
constexpr unsigned kRetrySleepSeconds = 5;

constexpr uint32_t kFoCapabilityKindA = 0x30000003;

void trace_failure(const char *call, uint32_t status) {
    FwTrace("%s failed (0x%x) (%s)", call, status, HmGetErrorString(status));
}

void read_failover_capability(HMXDevice *device) {
    uint32_t capability = 0;
    const uint32_t status = IHmFoGetFoCapability(device->handle, &capability);
    if (status != 0) {
        trace_failure("IHmFoGetFoCapability", status);
        return;
    }
    const char *kind = "no";
    if (capability == kFoCapabilityKindA) {
        device->statusFlags |= kDeviceFailoverKindA;
        kind = "basic";
    } else if (capability == HMFO_CAPABILITY_FAILOVER) {
        device->statusFlags |= kDeviceFailoverKindB;
        kind = "full";
    } else if (capability == HMFO_CAPABILITY_BASIC) {
        device->statusFlags &= ~(kDeviceFailoverKindA | kDeviceFailoverKindB);
    }
    FwTrace("HBA has %s failover capabilities...", kind);
}

void read_properties(HMXDevice *device) {
    const int h = device->handle;
    uint32_t status = HmGetHbaDeviceChipProperty(h, &device->chipProperty);
    if (status != 0) trace_failure("HmGetHbaDeviceChipProperty", status);
    status = HmGetHbaDeviceDriverProperty(h, &device->driverProperty);
    if (status != 0) trace_failure("HmGetHbaDeviceDriverProperty", status);
    status = HmGetHbaDeviceNodeProperty(h, &device->nodeProperty);
    if (status != 0) trace_failure("HmGetHbaDeviceNodeProperty", status);
    status = HmGetHbaDevicePortProperty(h, 0, &device->portProperty);
    if (status != 0) trace_failure("HmGetHbaDevicePortProperty", status);
    status = HmGetBeaconControl(h, &device->beaconState);
    if (status != 0) trace_failure("HmGetBeaconControl", status);
    status = HmGetStatistics(h, 0, &device->statistics);
    if (status != 0) trace_failure("HmGetStatistics", status);
}

void read_nvram(HMXDevice *device) {
    uint32_t status = HmGetNVRam(device->handle, 0, 2, device->nvram2, sizeof device->nvram2);
    if (status != 0) trace_failure("HmGetNVRam(2)", status);
    status = HmGetNVRam(device->handle, 0, 1, device->nvram1, sizeof device->nvram1);
    if (status != 0) trace_failure("HmGetNVRam(1)", status);
}

constexpr uint16_t kAddressByPortName = 2;
constexpr uint32_t kSenseSize = 256;
constexpr uint32_t kReportLunsEntries = 256;  // as many as the library's own probe finds
constexpr uint32_t kReportLunsSize = 8 + 8 * kReportLunsEntries;
constexpr uint32_t kReadCapacitySize = 8;

uint32_t be32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           p[3];
}

// The LUN number of a REPORT LUNS entry (peripheral or flat addressing).
uint16_t entry_lun(const uint8_t *entry) { return static_cast<uint16_t>((entry[0] & 0x3F) << 8 | entry[1]); }

void read_capacity(int handle, DESTINATIONADDRESS *address, HMXLun *lun, const TargetProbeCalls &calls) {
    uint8_t resp[kReadCapacitySize] = {};
    uint8_t sense[kSenseSize];
    address->LunNumber = lun->lun;
    const uint32_t status = calls.readCapacity(handle, address, resp, sizeof resp, sense, sizeof sense);
    if (status != 0) {
        trace_failure("HmSendScsiReadCapacityCmdFC", status);
        return;
    }
    lun->capacityValid = true;
    lun->lastBlock = be32(resp);
    lun->blockSize = be32(resp + 4);
}

// The LUNs the target reports, or those the library found by probing when
// the target does not know REPORT LUNS; none when neither answered.
void read_luns(int handle, HMXTarget *target, const TargetProbeCalls &calls) {
    DESTINATIONADDRESS address{};
    address.AddressType = kAddressByPortName;
    std::memcpy(address.AddressUsing, target->property.PortWWN, sizeof address.AddressUsing);
    uint8_t sense[kSenseSize];
    address.LunNumber = 0;
    uint32_t status = calls.inquiry(handle, &address, target->inquiry, sizeof target->inquiry, sense, sizeof sense);
    if (status == 0)
        target->inquiryValid = true;
    else
        trace_failure("HmSendScsiInquiryCmdFC", status);

    auto *list = static_cast<uint8_t *>(CoreZMalloc(kReportLunsSize));
    if (list == nullptr) return;
    status = calls.reportLuns(handle, &address, list, kReportLunsSize, sense, sizeof sense);
    if (status != 0 && status != HMX_ERR_NOT_FROM_DEVICE) {
        trace_failure("HmSendScsiReportLunsCmdFC", status);
        CoreFree(list);
        return;
    }
    // The list length counts every LUN, also those that did not fit. A list
    // the library built by probing holds only LUNs that just answered READ
    // CAPACITY: they are not asked again.
    const bool probed = status == HMX_ERR_NOT_FROM_DEVICE;
    const uint32_t entries = std::min(be32(list) / 8, kReportLunsEntries);
    for (uint32_t i = 0; i < entries; ++i) {
        auto *lun = static_cast<HMXLun *>(CoreZMalloc(sizeof(HMXLun)));
        if (lun == nullptr) break;
        lun->lun = entry_lun(list + 8 + 8 * i);
        if (!probed) read_capacity(handle, &address, lun, calls);
        target->luns.append(lun);
    }
    CoreFree(list);
}

}  // namespace

const TargetProbeCalls kLibraryTargetCalls{HmGetDiscTargetProperty, HmSendScsiInquiryCmdFC,
                                           HmSendScsiReportLunsCmdFC, HmSendScsiReadCapacityCmdFC};

// The list ends at the first target that cannot be read: the count came
// with the port record and the driver no longer agrees with it.
void CoreReadTargets(HMXDevice *device, const TargetProbeCalls &calls) {
    const uint16_t count = device->portProperty.DiscTargetCount;
    for (uint32_t i = 0; i < count; ++i) {
        auto *target = static_cast<HMXTarget *>(CoreZMalloc(sizeof(HMXTarget)));
        if (target == nullptr) return;
        const uint32_t status = calls.discTarget(device->handle, 0, i, 0, &target->property);
        if (status != 0) {
            trace_failure("HmGetDiscTargetProperty", status);
            CoreFree(target);
            return;
        }
        read_luns(device->handle, target, calls);
        device->targets.append(target);
    }
}

void CoreEnableEvents(HMXDevice *device, uint32_t (*enable)(int handle)) {
    const uint32_t status = enable(device->handle);
    if (status == 0) {
        device->statusFlags |= kDeviceAenEnabled;
    } else {
        FwTrace("HmEnableAen failed (0x%x) (%s)", status, HmGetErrorString(status));
        device->statusFlags &= ~kDeviceAenEnabled;
    }
}

namespace {

bool already_listed(const HMXDevice *device) {
    for (const HMXDevice *d = g_DeviceList.first; d != nullptr; d = d->next)
        if (IsSamePort(d, device)) return true;
    return false;
}

void found_device(int handle, uint32_t instance) { CreateNewHMXDevice(handle, instance); }

uint32_t open_device(uint32_t instance, int *handle) { return HmOpenDevice(instance, handle); }

void sleep_seconds(unsigned seconds) {
    // A signal may cut the sleep short; the retry comes all the same.
    ::sleep(seconds);
}

}  // namespace

HMXDevice *CreateNewHMXDevice(int handle, uint32_t instance) {
    auto *device = static_cast<HMXDevice *>(CoreZMalloc(sizeof(HMXDevice)));
    if (device == nullptr) {
        FwTrace("CreateNewHMXDevice: Unable to allocate memory for HBA %d", instance);
        return nullptr;
    }
    device->instance = instance;
    device->handle = handle;
    device->statusFlags &= ~(kDeviceFailoverKindA | kDeviceFailoverKindB);
    read_failover_capability(device);
    read_properties(device);
    device->portIndex = 0;
    read_nvram(device);
    CoreReadTargets(device, kLibraryTargetCalls);
    if (already_listed(device)) {
        // The port is listed under its first instance, events included.
        FwTrace("Duplicate device found: Instance = (%d)", instance);
        DeleteDevice(device);
        return nullptr;
    }
    g_DeviceList.append(device);
    CoreEnableEvents(device, HmEnableAen);
    return device;
}

void CoreRunOpenLoop(const OpenLoopCalls &calls) {
    int retriesLeft = kOpenRetries;
    for (uint32_t instance = kFirstInstance; instance <= kLastInstance;) {
        int handle = 0;
        const uint32_t status = calls.open(instance, &handle);
        if (status == 0) {
            FwTrace("Found Varnix HBA - instance (%d)", instance);
            calls.found(handle, instance);
            retriesLeft = kOpenRetries;
            ++instance;
        } else if (status == HMX_ERR_DEVICE_NOT_FOUND) {
            break;
        } else if (status == HMX_ERR_UNSUPPORTED_VERSION) {
            if (retriesLeft > 0) {
                --retriesLeft;
                FwTrace("HmOpenDevice(%d, xx) failed (0x%x) (%s), Retrying after a sleep...", instance, status,
                        HmGetErrorString(status));
                calls.sleep(kRetrySleepSeconds);
            } else {
                FwTrace("Found *UNSUPPORTED* Varnix HBA - instance (%d) -- Please check the README file for "
                        "supported adapters and driver versions.",
                        instance);
                ++instance;
            }
        } else {
            FwTrace("HmOpenDevice(%d, xx) failed (0x%x) (%s) skipping", instance, status, HmGetErrorString(status));
            ++instance;
        }
    }
}

int CoreInitializeDevices() {
    CoreRunOpenLoop(OpenLoopCalls{open_device, sleep_seconds, found_device});
    return 0;
}

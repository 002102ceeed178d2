// SPDX-License-Identifier: MIT
// Agent core: zero-filled heap records, the agent device list (one record
// per opened adapter port) and the start-up and shut-down of the core.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fw_list.h"
#include "vxhmx.h"

void *CoreZMalloc(size_t size);
void CoreFree(void *block);

inline constexpr size_t kNvramAreaSize = 512;

// Bits of HMXDevice::statusFlags.
inline constexpr uint32_t kDeviceFailoverKindA = 1u << 27;  // failover capability 0x30000003
inline constexpr uint32_t kDeviceFailoverKindB = 1u << 26;  // failover capability 0x30000004
inline constexpr uint32_t kDeviceAenEnabled = 1u << 31;

// One LUN of a discovered target, as REPORT LUNS named it, with its size
// when READ CAPACITY answered to the tool.
struct HMXLun {
    uint16_t lun;
    bool capacityValid;
    uint32_t lastBlock;
    uint32_t blockSize;
    HMXLun *next;
    HMXLun *prev;
};
using LunList = FwList<HMXLun>;

inline constexpr size_t kInquirySize = 36;  // standard INQUIRY data

// One discovered target of a port; its LUN list is kept with it.
struct HMXTarget {
    DISCPORTPROPERTY property;
    bool inquiryValid;                // LUN 0 answered INQUIRY
    uint8_t inquiry[kInquirySize];
    LunList luns;
    HMXTarget *next;
    HMXTarget *prev;
};
using TargetList = FwList<HMXTarget>;

// One opened adapter port as the agent core knows it, in the order the
// records are filled at discovery. The listings read the first field as the
// port's status word, so `instance` stays first.
struct HMXDevice {
    uint32_t instance;  // library instance number
    int32_t handle;     // library handle
    CHIPPROPERTY chipProperty;
    DRIVERPROPERTY driverProperty;
    DEVICENODEPROPERTY nodeProperty;
    DEVICEPORTPROPERTY portProperty;
    STATISTICS statistics;  // of port 0
    uint32_t portIndex;     // 0 at discovery; set when the tool orders its device list
    uint8_t nvram2[kNvramAreaSize];
    uint8_t nvram1[kNvramAreaSize];  // the NVRAM image the subsystem IDs are read from
    uint32_t statusFlags;            // kDeviceFailover*, kDeviceAenEnabled
    uint32_t beaconState;
    uint32_t chipType;  // chip type number of the supported-adapter row
    TargetList targets;
    HMXDevice *next;
    HMXDevice *prev;
};
static_assert(offsetof(HMXDevice, instance) == 0, "the status word is the first field");

using DeviceList = FwList<HMXDevice>;

extern DeviceList g_DeviceList;

void InitDeviceList();
DeviceList *GetDeviceList();
// Frees a record with its targets and their LUNs.
void DeleteDevice(HMXDevice *device);
void RemoveAllDevicesFromDeviceList();
// A zero-filled copy of the record with empty links and no targets (the
// tool's lists never read them), or nullptr.
HMXDevice *CloneDevice(const HMXDevice *device);
// Same port: node WWN, port WWN and the 24-bit port ID are equal.
bool IsSamePort(const HMXDevice *a, const HMXDevice *b);

int CoreInitialize();
int CoreInitializeDevices();
void CoreUninitialize();

// The open loop over the library instances, with the library calls passed
// in so that the retry rules can be exercised without an adapter.
struct OpenLoopCalls {
    uint32_t (*open)(uint32_t instance, int *handle);
    void (*sleep)(unsigned seconds);
    void (*found)(int handle, uint32_t instance);
};
void CoreRunOpenLoop(const OpenLoopCalls &calls);

// The calls that find a port's targets and their LUNs, passed in so that
// the rules can be exercised without a fabric. The library's own calls are
// kLibraryTargetCalls.
struct TargetProbeCalls {
    uint32_t (*discTarget)(int handle, uint16_t port, uint32_t index, uint32_t getType, DISCPORTPROPERTY *property);
    uint32_t (*inquiry)(int handle, DESTINATIONADDRESS *address, uint8_t *resp, uint32_t respSize, uint8_t *sense,
                        uint32_t senseSize);
    uint32_t (*reportLuns)(int handle, DESTINATIONADDRESS *address, uint8_t *resp, uint32_t respSize, uint8_t *sense,
                           uint32_t senseSize);
    uint32_t (*readCapacity)(int handle, DESTINATIONADDRESS *address, uint8_t *resp, uint32_t respSize,
                             uint8_t *sense, uint32_t senseSize);
};
extern const TargetProbeCalls kLibraryTargetCalls;

// Fills the record's target list: each discovered target of port 0, its
// INQUIRY data, its LUNs and their capacities. Nothing else reads the list,
// so a failing call is traced and discovery goes on.
void CoreReadTargets(HMXDevice *device, const TargetProbeCalls &calls);

// Switches the port's event reporting on and keeps the outcome in
// kDeviceAenEnabled.
void CoreEnableEvents(HMXDevice *device, uint32_t (*enable)(int handle));

// Builds the record of one opened port and appends it to the agent device
// list (unless the port is listed already); returns the record or nullptr.
HMXDevice *CreateNewHMXDevice(int handle, uint32_t instance);

const char *CoreGetConfigFileName();

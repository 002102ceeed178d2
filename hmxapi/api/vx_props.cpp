// SPDX-License-Identifier: MIT
// Public property calls (node, port, chip, driver, firmware, discovered
// ports, statistics, beacon) and the NVRAM variable calls over an image.
#include "vx_props.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <span>

#include "vx_dispatch.h"
#include "vx_flash_layout.h"
#include "vx_instances.h"
#include "vx_ioctl.h"
#include "vx_hmerr.h"
#include "vx_hmnvr.h"
#include "vx_public.h"

// ---- the public records, as a C compiler lays them out ------------------------------

static_assert(sizeof(DEVICENODEPROPERTY) == 388);
static_assert(offsetof(DEVICENODEPROPERTY, Manufacturer) == 8 && offsetof(DEVICENODEPROPERTY, Model) == 88);
static_assert(offsetof(DEVICENODEPROPERTY, SerialNumber) == 120 && offsetof(DEVICENODEPROPERTY, DriverVersion) == 152);
static_assert(offsetof(DEVICENODEPROPERTY, FirmwareVersion) == 184 &&
              offsetof(DEVICENODEPROPERTY, OptionRomVersion) == 216);
static_assert(offsetof(DEVICENODEPROPERTY, NumberOfPorts) == 248 && offsetof(DEVICENODEPROPERTY, InterfaceType) == 250);
static_assert(offsetof(DEVICENODEPROPERTY, DriverAttributes) == 252 &&
              offsetof(DEVICENODEPROPERTY, FirmwareAttributes) == 256);
static_assert(offsetof(DEVICENODEPROPERTY, BIValid) == 260 && offsetof(DEVICENODEPROPERTY, BIFwVersion) == 264);
static_assert(offsetof(DEVICENODEPROPERTY, BIEfiVersion) == 268 && offsetof(DEVICENODEPROPERTY, BIFCodeVersion) == 272);
static_assert(offsetof(DEVICENODEPROPERTY, Reserved) == 276);

static_assert(sizeof(DEVICEPORTPROPERTY) == 148);
static_assert(offsetof(DEVICEPORTPROPERTY, PortID) == 8 && offsetof(DEVICEPORTPROPERTY, PortType) == 11);
static_assert(offsetof(DEVICEPORTPROPERTY, PortState) == 12 && offsetof(DEVICEPORTPROPERTY, ConnectionMode) == 13);
static_assert(offsetof(DEVICEPORTPROPERTY, DiscPortCount) == 14 && offsetof(DEVICEPORTPROPERTY, DiscTargetCount) == 16);
static_assert(offsetof(DEVICEPORTPROPERTY, DeviceName) == 18 && offsetof(DEVICEPORTPROPERTY, PortSpeed) == 52);
static_assert(offsetof(DEVICEPORTPROPERTY, LinkState2) == 56 && offsetof(DEVICEPORTPROPERTY, LinkState3) == 58);
static_assert(offsetof(DEVICEPORTPROPERTY, Reserved) == 60);

static_assert(sizeof(CHIPPROPERTY) == 80);
static_assert(offsetof(CHIPPROPERTY, PciSlotNumber) == 10 && offsetof(CHIPPROPERTY, IoAddress) == 12);
static_assert(offsetof(CHIPPROPERTY, MemoryAddressLength) == 24 && offsetof(CHIPPROPERTY, ChipType) == 28);
static_assert(offsetof(CHIPPROPERTY, OutMbx) == 32 && offsetof(CHIPPROPERTY, DomainNr) == 48);
static_assert(offsetof(CHIPPROPERTY, PcieLinkCap) == 50 && offsetof(CHIPPROPERTY, PcieLinkStat) == 52);
static_assert(offsetof(CHIPPROPERTY, Reserved1) == 54 && offsetof(CHIPPROPERTY, Reserved) == 56);

static_assert(sizeof(DRIVERPROPERTY) == 104);
static_assert(offsetof(DRIVERPROPERTY, NumberOfBus) == 32 && offsetof(DRIVERPROPERTY, LunsPerTarget) == 36);
static_assert(offsetof(DRIVERPROPERTY, MaximumTransferLen) == 40 &&
              offsetof(DRIVERPROPERTY, MaximumDataSegments) == 44);
static_assert(offsetof(DRIVERPROPERTY, DmaBitAddresses) == 48 && offsetof(DRIVERPROPERTY, IoMapType) == 50);
static_assert(offsetof(DRIVERPROPERTY, Attributes) == 52 && offsetof(DRIVERPROPERTY, InternalFlags) == 56);
static_assert(offsetof(DRIVERPROPERTY, Reserved) == 72);

static_assert(sizeof(FIRMWAREPROPERTY) == 68 && offsetof(FIRMWAREPROPERTY, Attributes) == 32);
static_assert(sizeof(DISCPORTPROPERTY) == 56 && offsetof(DISCPORTPROPERTY, PortID) == 16);
static_assert(offsetof(DISCPORTPROPERTY, Type) == 20 && offsetof(DISCPORTPROPERTY, LoopId) == 28);
static_assert(sizeof(STATISTICS) == 176 && offsetof(STATISTICS, InvalidCRCCount) == 44);
static_assert(offsetof(STATISTICS, Reserved) == 48);
static_assert(sizeof(HMX_OPT_ROM_REGION) == 8 && sizeof(HMX_OPT_ROM_LAYOUT) == 16);
static_assert(offsetof(HMX_OPT_ROM_LAYOUT, Region) == 8);

namespace {

// A fixed-size text field of a driver record (NUL-terminated or full) into
// a public record's field.
template <std::size_t N>
void copy_field(char (&dst)[N], const char *src, std::size_t src_cap) {
    copy_text(dst, N, std::string_view(src, strnlen(src, src_cap)));
}

// The outcome of a property request: whether the record may be filled, and
// the status to return. Overrun and underrun still carry the data.
struct Outcome {
    bool fill = false;
    uint32_t status = HMX_ERR_UNKNOWN;
};

// Takes the completion code and its detail once the request has filled
// them: never evaluate them in the same call as the request itself.
Outcome outcome(int rc, uint32_t st, uint32_t detail) {
    if (rc != 0) return {false, vxflash_status(rc, st, detail)};
    const uint32_t status = HmXlateHMXErr(st, detail);
    // A SCSI completion the map calls good carries its data as well.
    return {vxapi_status_usable(st) || status == HMX_STATUS_OK, status};
}

// One query with a transport record converted into the caller's record.
template <class Record, class Query, class Convert>
uint32_t property(int Device, void *out, Query &&query, Convert &&convert) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    if (out == nullptr) return HMX_ERR_INVALID_PARAMETER;
    Record rec{};
    uint32_t st = 0, detail = 0;
    const int rc = query(port, rec, st, detail);
    const Outcome o = outcome(rc, st, detail);
    if (o.fill) convert(port, rec);
    return o.status;
}

void statistics_from_record(const EXT_STATISTICS &s, STATISTICS &out) {
    std::memset(&out, 0, sizeof out);
    uint32_t *fields[] = {&out.ControllerErrorCount,       &out.DeviceErrorCount,
                          &out.IOCount,                    &out.MegabyteCount,
                          &out.LipResetCount,              &out.InterruptCount,
                          &out.LinkFailureCount,           &out.LossOfSyncCount,
                          &out.LossOfSignalCount,          &out.PrimitiveSeqProtocolErrorCount,
                          &out.InvalidTransmissionWordCount, &out.InvalidCRCCount};
    static_assert(std::size(fields) == std::size(EXT_STATISTICS{}.Counter));
    for (std::size_t i = 0; i < std::size(fields); ++i) *fields[i] = s.Counter[i];
}

void disc_from_record(const EXT_DISC_PORT &d, DISCPORTPROPERTY &out) {
    std::memset(&out, 0, sizeof out);
    std::memcpy(out.NodeWWN, d.WWNN, sizeof out.NodeWWN);
    std::memcpy(out.PortWWN, d.WWPN, sizeof out.PortWWN);
    std::memcpy(out.PortID, d.Id + 1, sizeof out.PortID);
    out.Type = d.Type;
    out.Status = d.Status;
    out.Bus = d.Bus;
    out.TargetId = d.TargetId;
    out.LoopId = d.LoopId;
}

uint32_t not_supported_after_check(int Device) {
    Port port;
    return resolve(Device, port) ? HMX_ERR_NOT_SUPPORTED : HMX_ERR_INVALID_HANDLE;
}

uint32_t fc_statistics(int Device, const uint8_t *wwpn, STATISTICS *out, bool own_port) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    if (out == nullptr || (!own_port && wwpn == nullptr)) return HMX_ERR_INVALID_PARAMETER;
    if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
    EXT_DEST_ADDR dest{};
    std::memcpy(dest.DestAddr, own_port ? api_priv_data[port.idx].wwpn : wwpn, sizeof dest.DestAddr);
    dest.DestType = 2;  // port world-wide name
    EXT_STATISTICS rec{};
    uint32_t st = 0, detail = 0;
    const int rc = own_port ? vxapi_get_fc4_statistics(port.fd, port.idx, &dest, &rec, &st, &detail)
                            : vxapi_get_port_statistics(port.fd, port.idx, &dest, &rec, &st, &detail);
    const Outcome o = outcome(rc, st, detail);
    if (o.fill) statistics_from_record(rec, *out);
    return o.status;
}

}  // namespace

// ---- record conversions ---------------------------------------------------------------

uint8_t vxprops_port_state(uint16_t record_state) {
    if (record_state == 2) return 3;
    if (record_state == 0) return 1;
    return 2;
}

void vxprops_node_from_record(const EXT_HBA_NODE &node, const char *serial_num, DEVICENODEPROPERTY &out) {
    std::memset(&out, 0, sizeof out);
    std::memcpy(out.WWN, node.WWNN, sizeof out.WWN);
    copy_field(out.Manufacturer, node.Manufacturer, sizeof node.Manufacturer);
    // The model is formatted into 16 bytes: at most 15 characters.
    std::snprintf(out.Model, 16, "%.*s", static_cast<int>(strnlen(node.Model, sizeof node.Model)), node.Model);
    if (serial_num != nullptr) {
        const std::size_t n = std::min<std::size_t>(strnlen(serial_num, 32), sizeof out.SerialNumber - 1);
        std::memcpy(out.SerialNumber, serial_num, n);
    }
    copy_field(out.DriverVersion, node.DriverVersion, sizeof node.DriverVersion);
    copy_field(out.FirmwareVersion, node.FWVersion, sizeof node.FWVersion);
    copy_field(out.OptionRomVersion, node.OptRomVersion, sizeof node.OptRomVersion);
    out.NumberOfPorts = node.PortCount;
    out.InterfaceType = node.InterfaceType;
    out.DriverAttributes = node.DriverAttr;
    out.FirmwareAttributes = node.FWAttr;
    out.BIValid = node.BIValid;
    std::memcpy(out.BIFwVersion, node.BIFwVersion, sizeof out.BIFwVersion);
    std::memcpy(out.BIEfiVersion, node.BIEfiVersion, sizeof out.BIEfiVersion);
    std::memcpy(out.BIFCodeVersion, node.BIFCodeVersion, sizeof out.BIFCodeVersion);
}

void vxprops_port_from_record(const EXT_HBA_PORT &port, uint16_t host_no, DEVICEPORTPROPERTY &out) {
    std::memset(&out, 0, sizeof out);
    std::memcpy(out.WWN, port.WWPN, sizeof out.WWN);
    std::memcpy(out.PortID, port.Id + 1, sizeof out.PortID);  // the 24-bit address
    out.PortType = static_cast<uint8_t>(port.Type);
    out.PortState = vxprops_port_state(port.State);
    out.ConnectionMode = static_cast<uint8_t>(port.Mode);
    out.DiscPortCount = port.DiscPortCount;
    out.DiscTargetCount = port.DiscTargetCount;
    std::snprintf(out.DeviceName, sizeof out.DeviceName, "host%u", static_cast<unsigned>(host_no));
    out.PortSpeed = port.PortSpeed;
    out.LinkState2 = port.LinkState2;
    out.LinkState3 = port.LinkState3;
}

void vxprops_chip_from_record(const EXT_CHIP &chip, CHIPPROPERTY &out) {
    std::memset(&out, 0, sizeof out);
    out.VendorID = chip.VendorId;
    out.DeviceID = chip.DeviceId;
    out.SubVendorID = chip.SubVendorId;
    out.SubSystemID = chip.SubSystemId;
    out.PciBusNumber = chip.PciBusNumber;
    out.PciSlotNumber = chip.PciDevFunc;
    out.IoAddress = chip.IoAddr;
    out.IoAddressLength = chip.IoAddrLen;
    out.MemoryAddress = chip.MemAddr;
    out.MemoryAddressLength = chip.MemAddrLen;
    out.ChipType = chip.ChipType;
    out.InterruptLevel = chip.InterruptLevel;
    std::memcpy(out.OutMbx, chip.OutMbx, sizeof out.OutMbx);
    out.DomainNr = chip.DomainNr;
    out.PcieLinkCap = static_cast<uint16_t>(chip.PcieLinkCap);
    out.PcieLinkStat = chip.PcieLinkStat;
}

void vxprops_driver_from_record(const EXT_DRIVER &drv, DRIVERPROPERTY &out) {
    std::memset(&out, 0, sizeof out);
    const std::size_t n = std::min(strnlen(drv.Version, sizeof drv.Version), sizeof out.Version - 1);
    std::memcpy(out.Version, drv.Version, n);
    out.NumberOfBus = drv.NumOfBus;
    out.TargetsPerBus = drv.TargetsPerBus;
    out.LunsPerTarget = drv.LunsPerTarget;
    out.MaximumTransferLen = drv.MaxTransferLen;
    out.MaximumDataSegments = drv.MaxDataSegments;
    out.DmaBitAddresses = drv.DmaBitAddresses;
    out.IoMapType = drv.IoMapType;
    out.Attributes = drv.Attrib;
    std::memcpy(out.InternalFlags, drv.InternalFlags, sizeof out.InternalFlags);
}

// ---- public calls ------------------------------------------------------------------------

extern "C" uint32_t HmGetHbaDeviceNodeProperty(int Device, DEVICENODEPROPERTY *phba_node_user) {
    return guarded([&] {
        return property<EXT_HBA_NODE>(
            Device, phba_node_user,
            [](const Port &p, EXT_HBA_NODE &r, uint32_t &st, uint32_t &detail) {
                return vxapi_query_hbanode(p.fd, p.idx, &r, &st, &detail);
            },
            [&](const Port &p, const EXT_HBA_NODE &r) {
                vxprops_node_from_record(r, api_priv_data[p.idx].serial_num, *phba_node_user);
            });
    });
}

extern "C" uint32_t HmGetHbaDevicePortProperty(int fd, uint16_t, DEVICEPORTPROPERTY *phba_port_user) {
    return guarded([&] {
        return property<EXT_HBA_PORT>(
            fd, phba_port_user,
            [](const Port &p, EXT_HBA_PORT &r, uint32_t &st, uint32_t &detail) {
                return vxapi_query_hbaport(p.fd, p.idx, &r, &st, &detail);
            },
            [&](const Port &p, const EXT_HBA_PORT &r) {
                vxprops_port_from_record(r, api_priv_data[p.idx].host_no, *phba_port_user);
            });
    });
}

extern "C" uint32_t HmGetHbaDeviceChipProperty(int Device, CHIPPROPERTY *pChipProperty) {
    return guarded([&] {
        return property<EXT_CHIP>(
            Device, pChipProperty,
            [](const Port &p, EXT_CHIP &r, uint32_t &st, uint32_t &detail) {
                return vxapi_query_chip(p.fd, p.idx, &r, &st, &detail);
            },
            [&](const Port &, const EXT_CHIP &r) { vxprops_chip_from_record(r, *pChipProperty); });
    });
}

extern "C" uint32_t HmGetHbaDeviceDriverProperty(int Device, DRIVERPROPERTY *pDriverProperty) {
    return guarded([&] {
        return property<EXT_DRIVER>(
            Device, pDriverProperty,
            [](const Port &p, EXT_DRIVER &r, uint32_t &st, uint32_t &detail) {
                return vxapi_query_driver(p.fd, p.idx, &r, &st, &detail);
            },
            [&](const Port &, const EXT_DRIVER &r) { vxprops_driver_from_record(r, *pDriverProperty); });
    });
}

extern "C" uint32_t HmGetHbaDeviceFirmwareProperty(int Device, FIRMWAREPROPERTY *pFirmwareProperty) {
    return guarded([&] {
        return property<EXT_FW>(
            Device, pFirmwareProperty,
            [](const Port &p, EXT_FW &r, uint32_t &st, uint32_t &detail) {
                return vxapi_query_fw(p.fd, p.idx, &r, &st, &detail);
            },
            [&](const Port &, const EXT_FW &r) {
                std::memset(pFirmwareProperty, 0, sizeof *pFirmwareProperty);
                copy_field(pFirmwareProperty->Version, r.Version, sizeof r.Version);
                pFirmwareProperty->Attributes = r.Attrib;
            });
    });
}

namespace {
uint32_t disc_property(int Device, uint32_t index, bool target, DISCPORTPROPERTY *out) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    if (out == nullptr || index > 0xFFFF) return HMX_ERR_INVALID_PARAMETER;
    if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
    EXT_DISC_PORT rec{};
    uint32_t st = 0, detail = 0;
    const auto i = static_cast<uint16_t>(index);
    const int rc = target ? vxapi_query_disctgt(port.fd, port.idx, i, &rec, &st, &detail)
                          : vxapi_query_discport(port.fd, port.idx, i, &rec, &st, &detail);
    const Outcome o = outcome(rc, st, detail);
    if (o.fill) disc_from_record(rec, *out);
    return o.status;
}
}  // namespace

extern "C" uint32_t HmGetDiscTargetProperty(int Device, uint16_t, uint32_t DiscTargetNum, uint32_t GetType,
                                            DISCPORTPROPERTY *pDiscTargetProperty) {
    return guarded([&] { return disc_property(Device, DiscTargetNum, GetType == 0, pDiscTargetProperty); });
}

extern "C" uint32_t HmGetDiscPortProperty(int Device, uint16_t, uint32_t DiscPortNum,
                                          DISCPORTPROPERTY *pDiscPortProperty) {
    return guarded([&] { return disc_property(Device, DiscPortNum, false, pDiscPortProperty); });
}

extern "C" uint32_t HmGetPortDatabase(int Device, uint16_t TypeMode, void *pDeviceInfo, uint32_t DeviceInfoSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pDeviceInfo == nullptr || DeviceInfoSize == 0) return HMX_ERR_INVALID_PARAMETER;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        const uint8_t mode[4] = {static_cast<uint8_t>(TypeMode), static_cast<uint8_t>(TypeMode >> 8), 0, 0};
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_send(port.fd, port.idx,
                                  {"vxapi_get_port_summary", EXT_CC_GET_DATA, EXT_SC_GET_PORT_SUMMARY, 0, mode,
                                   sizeof mode, pDeviceInfo, DeviceInfoSize},
                                  &st, &detail);
        return outcome(rc, st, detail).status;
    });
}

extern "C" uint32_t HmGetStatistics(int fd, uint16_t, STATISTICS *pStatistics) {
    return guarded([&] {
        Port port;
        if (!resolve(fd, port)) return HMX_ERR_INVALID_HANDLE;
        if (pStatistics == nullptr) return HMX_ERR_INVALID_PARAMETER;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        EXT_STATISTICS rec{};
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_get_statistics(port.fd, port.idx, &rec, &st, &detail);
        const Outcome o = outcome(rc, st, detail);
        if (o.fill) statistics_from_record(rec, *pStatistics);
        return o.status;
    });
}

extern "C" uint32_t HmGetStatisticsFC(int Device, uint16_t, STATISTICS *pStatistics) {
    return guarded([&] { return fc_statistics(Device, nullptr, pStatistics, true); });
}

extern "C" uint32_t HmGetPortStatisticsFC(int Device, uint16_t, const uint8_t *pPortWWN, STATISTICS *pStatistics) {
    return guarded([&] { return fc_statistics(Device, pPortWWN, pStatistics, false); });
}

// The counters cannot be reset; the handle is still checked first, as in
// every call that takes one.
extern "C" uint32_t HmResetStatistics(int Device, uint16_t) {
    return guarded([&] { return not_supported_after_check(Device); });
}

extern "C" uint32_t HmGetCnaPortData(int Device, uint8_t *pBuffer, uint32_t BufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pBuffer == nullptr) return HMX_ERR_INVALID_PARAMETER;
        if (BufferSize < 128) return HMX_ERR_BUFFER_TOO_SMALL;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_query_cnaport(port.fd, port.idx, pBuffer, &st, &detail);
        return outcome(rc, st, detail).status;
    });
}

extern "C" uint32_t HmGetSFPData(int Device, uint8_t *pBuffer, uint32_t BufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pBuffer == nullptr || BufferSize == 0) return HMX_ERR_INVALID_PARAMETER;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_send(port.fd, port.idx,
                                  {"vxapi_getSFPbuffer", EXT_CC_GET_SFP_DATA, 0, 0, nullptr, 0, pBuffer, BufferSize},
                                  &st, &detail);
        return outcome(rc, st, detail).status;
    });
}

extern "C" uint32_t HmGetBeaconControl(int Device, uint32_t *pUpdateMode) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pUpdateMode == nullptr) return HMX_ERR_INVALID_PARAMETER;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        EXT_BEACON_CONTROL rec{};
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_get_beacon(port.fd, port.idx, &rec, &st, &detail);
        const Outcome o = outcome(rc, st, detail);
        if (o.fill) *pUpdateMode = rec.State;
        return o.status;
    });
}

extern "C" uint32_t HmUpdateBeaconControl(int Device, uint32_t UpdateMode) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (port.sysfs) return HMX_ERR_NOT_SUPPORTED;
        EXT_BEACON_CONTROL rec{};
        rec.State = UpdateMode;
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_set_beacon(port.fd, port.idx, &rec, &st, &detail);
        return outcome(rc, st, detail).status;
    });
}

extern "C" uint32_t HmGetDriverParameters(int Device, uint8_t *, uint32_t) {
    return guarded([&] { return not_supported_after_check(Device); });
}
extern "C" uint32_t HmGetFirmwareParameters(int Device, uint8_t *, uint32_t) {
    return guarded([&] { return not_supported_after_check(Device); });
}
extern "C" uint32_t HmVerifyHbaNVRam(int Device, uint16_t) {
    return guarded([&] { return not_supported_after_check(Device); });
}
extern "C" uint32_t HmGetTargetIDMALinkSpeed(int Device, uint16_t, const uint8_t *, uint32_t *) {
    return guarded([&] { return not_supported_after_check(Device); });
}
extern "C" uint32_t HmSetTargetIDMALinkSpeed(int Device, uint16_t, const uint8_t *, uint32_t) {
    return guarded([&] { return not_supported_after_check(Device); });
}

// ---- NVRAM variables ------------------------------------------------------------------------

namespace {
// The image the caller passes: the whole block of the handle's format.
std::span<uint8_t> nvram_image(uint8_t *p, vxhmx::NvramFormat format) {
    return {p, vxhmx::vxhmnvr_block_size(format)};
}
}  // namespace

extern "C" uint32_t HmGetVariableValue(int Device, uint8_t *pNVRam, uint32_t parmNumber) {
    uint16_t idx = 0;
    // The value is the only result: a bad handle can only show as this code.
    if (check_handle(static_cast<uint32_t>(Device), &idx) != 0 || pNVRam == nullptr) return HMX_ERR_INVALID_HANDLE;
    const auto format = vxhmx::vxhmnvr_format_for_device(api_priv_data[idx].device_id);
    return vxhmx::VXHMNVR_GetVariableValue(nvram_image(pNVRam, format), format, parmNumber);
}

extern "C" uint32_t HmSetVariableValue(int Device, uint8_t *pNVRam, uint32_t parmNumber, uint32_t dwSetValue) {
    uint16_t idx = 0;
    if (check_handle(static_cast<uint32_t>(Device), &idx) != 0) return HMX_ERR_INVALID_HANDLE;
    if (pNVRam == nullptr) return HMX_ERR_INVALID_PARAMETER;
    const auto format = vxhmx::vxhmnvr_format_for_device(api_priv_data[idx].device_id);
    return vxhmx::VXHMNVR_SetVariableValue(nvram_image(pNVRam, format), format, parmNumber, dwSetValue);
}

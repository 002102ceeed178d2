// SPDX-License-Identifier: MIT
#include "display.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "adapter_list.h"
#include "chip_class.h"
#include "fw_strings.h"
#include "messages.h"
#include "oem_rules.h"
#include "usage.h"

namespace {

constexpr const char *kNoAdapter = "Varnix HBA not found !";
constexpr const char *kSeparator = "----------------------------------------------------------------------";
static_assert(std::char_traits<char>::length(kSeparator) == 70);

constexpr uint32_t kPortStateDown = 1;
constexpr uint32_t kPortStateUp = 3;

struct StatusText {
    uint32_t value;
    const char *text;
};
constexpr StatusText kStatusTexts[] = {
    {0, "Online"},        {1, "Loop down"},          {2, "System Error"},      {4, "Lip occurred"},
    {8, "Loop up"},       {16, "Port update"},       {4096, "Send loop down update"},
    {8192, "Alt WWN active"}, {16384, "Disable"},    {32768, "Currently up"},
};

std::string bounded(const char *text, size_t size) { return std::string(text, strnlen(text, size)); }

std::string model_of(const HMXDevice *d) {
    return bounded(d->nodeProperty.Model, sizeof d->nodeProperty.Model);
}

const char *connection_mode_text(uint8_t mode) {
    if (mode == 1) return "Point to Point";
    if (mode == 2) return "Loop";
    return "Unknown";
}

const char *data_rate_text(uint32_t code) {
    switch (code) {
    case 1: return "1 Gbps";
    case 2: return "2 Gbps";
    case 3: return "Auto";
    case 4: return "4 Gbps";
    case 8: return "8 Gbps";
    case 10: return "10 Gbps";
    default: return "Unknown";
    }
}

const char *topology_text(uint8_t type) {
    if (type == 1) return "NPort";
    if (type == 2) return "NLPort";
    return "Unidentified";
}

// A version text of three pieces or more ("1.20.3") is an FCode version.
bool is_fcode_version(std::string_view text) {
    int pieces = 0;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t dot = text.find('.', start);
        const size_t end = dot == std::string_view::npos ? text.size() : dot;
        if (end > start) ++pieces;
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    return pieces >= 3;
}

std::string two_part(const uint8_t *bytes) {
    char text[16];
    std::snprintf(text, sizeof text, "%d.%02d", bytes[0], bytes[1]);
    return text;
}

std::string three_part(const uint8_t *bytes) {
    char text[16];
    std::snprintf(text, sizeof text, "%d.%02d.%02d", bytes[0], bytes[1], bytes[2]);
    return text;
}

void print_wwn_line(const char *label, const uint8_t *w) {
    PrintLogMessage(kMsgPlain, "%s\t\t: %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", label, w[0], w[1], w[2], w[3], w[4],
                    w[5], w[6], w[7]);
}

void print_boot_code_version(const HMXDevice *d) {
    const std::string romVersion = bounded(d->nodeProperty.OptionRomVersion, sizeof d->nodeProperty.OptionRomVersion);
    // The host type does not change within a run, and every test asks the
    // library and the failover interface again: ask once.
    static const bool itanium = isHostSystemType("ia64") != 0 || isHostSystemType("IA64") != 0;
    if (!itanium) {
        if (is_fcode_version(romVersion))
            PrintLogMessage(kMsgPlain, "FCode Version\t\t: %s", romVersion.c_str());
        else
            PrintLogMessage(kMsgPlain, "BIOS Version\t\t: %s", romVersion.c_str());
    } else if (Get4GbAnd8GbFCXType(d) > 0) {
        const std::string efi = (d->nodeProperty.BIValid & 0x2) ? two_part(d->nodeProperty.BIEfiVersion) : "N/A";
        PrintLogMessage(kMsgPlain, "EFI Version\t\t: %s", efi.c_str());
    } else {
        PrintLogMessage(kMsgPlain, "BIOS Version\t\t: %s", romVersion.c_str());
    }
}

// The versions the flash holds, as the node record reports them.
void print_flash_versions(const HMXDevice *d) {
    const DEVICENODEPROPERTY &node = d->nodeProperty;
    const std::string bios = bounded(node.OptionRomVersion, sizeof node.OptionRomVersion);
    PrintLogMessage(kMsgPlain, "Flash BIOS Version\t: %s", bios.empty() ? "N/A" : bios.c_str());
    const std::string fcode = (node.BIValid & 0x4) ? two_part(node.BIFCodeVersion) : "N/A";
    PrintLogMessage(kMsgPlain, "Flash FCode Version\t: %s", fcode.c_str());
    const std::string efi = (node.BIValid & 0x2) ? two_part(node.BIEfiVersion) : "N/A";
    PrintLogMessage(kMsgPlain, "Flash EFI Version\t: %s", efi.c_str());
    if (CoreGetFCXType(d) > 6) {
        const std::string fw = (node.BIValid & 0x1) ? three_part(node.BIFwVersion) : "N/A";
        PrintLogMessage(kMsgPlain, "Flash Firmware Version  : %s", fw.c_str());
    }
}

}  // namespace

const char *GetAdapterStatusText(uint32_t status) {
    for (const StatusText &s : kStatusTexts)
        if (s.value == status) return s.text;
    return "Unknown";
}

uint32_t GetAdapterStatusWord(const HMXDevice *device) {
    // The word is read from the record's first field (the instance number).
    // It is adjusted on a copy: the record keeps the instance number that
    // the listings print and the update flows look ports up by.
    uint32_t status = device->instance;
    if (device->portProperty.PortState == kPortStateDown) {
        if (status & 0x1u) {
            status &= ~0x1u;
            if (status & 0x1000u) status &= ~0x1000u;
        }
    } else if (device->portProperty.PortState == kPortStateUp) {
        status |= 0x1u;
    }
    return status;
}

void RefreshPortState(HMXDevice *device) {
    DEVICEPORTPROPERTY port{};
    const uint32_t status = HmGetHbaDevicePortProperty(device->handle, 0, &port);
    if (status != 0) {
        FwTrace("HmGetHbaDevicePortProperty on HBA %d failed (%x - %s)", device->instance, status,
                HmGetErrorString(status));
        return;
    }
    device->portProperty = port;
}

int DisplayAllHBAs() {
    const DeviceList *list = GetMyDeviceList();
    if (list->empty()) {
        // Shown through the agent channel, so silent mode does not hide it.
        CoreLogMessage(kMsgPlain, "%s", kNoAdapter);
        return -1;
    }
    const HMXDevice *first = list->first;
    if (bounded(first->nodeProperty.DriverVersion, sizeof first->nodeProperty.DriverVersion).find("ioctl") !=
        std::string::npos)
        PrintLogMessage(kMsgInfo, "IOCTL driver in use.");
    PrintLogMessage(kMsgPlain, "%s", kSeparator);

    uint32_t furtherPorts = 0;
    const char *previousSerial = nullptr;
    for (HMXDevice *d = list->first; d != nullptr; d = d->next) {
        std::string model = model_of(d);
        model.resize(std::strlen(RightTrim(model.data())));
        const char *serial = GetAdapterSerial(d);
        RefreshPortState(d);
        const char *statusText = GetAdapterStatusText(GetAdapterStatusWord(d));
        const uint8_t *w = d->portProperty.WWN;
        // The lines carry adapter data (model, serial), so they are printed
        // as text rather than used as the format.
        char portLine[kMessageBufferSize];
        std::snprintf(portLine, sizeof portLine,
                      "  Port %d WWPN %02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X SN %s (HBA %d) %s", d->portIndex, w[0],
                      w[1], w[2], w[3], w[4], w[5], w[6], w[7], serial, d->instance, statusText);
        if (previousSerial == nullptr || striscmp(serial, previousSerial) != 0) {
            PrintLogMessage(kMsgPlain, "HBA Model %s:", model.c_str());
        } else {
            ++furtherPorts;
        }
        PrintLogMessage(kMsgPlain, "%s", portLine);
        previousSerial = serial;
    }
    PrintLogMessage(kMsgPlain, "%s", kSeparator);
    PrintLogMessage(kMsgPlain, "Total Varnix HBA(s) : %d\n", list->count - furtherPorts);
    FwTrace("Total adapter with dual port : %d", furtherPorts);
    return 0;
}

int PrintHBAGenInfos(HMXDevice *d) {
    if (d == nullptr) return 0;
    RefreshPortState(d);
    const std::string model = model_of(d);
    const DEVICENODEPROPERTY &node = d->nodeProperty;
    const DEVICEPORTPROPERTY &port = d->portProperty;

    PrintLogMessage(kMsgPlain, "%s", kSeparator);
    PrintLogMessage(kMsgPlain, "HBA Model\t\t: %s", model.c_str());
    PrintLogMessage(kMsgPlain, "HBA Port\t\t: %d", d->portIndex);
    print_wwn_line("Node Name", node.WWN);
    print_wwn_line("Port Name", port.WWN);
    PrintLogMessage(kMsgPlain, "Port ID\t\t\t: %02X-%02X-%02X", port.PortID[0], port.PortID[1], port.PortID[2]);
    const Adapter *adapter = FindAdapterInAdapterListByHMXDevice(d);
    const std::string serial = adapter != nullptr && adapter->serialNumber[0] != '\0'
                                   ? bounded(adapter->serialNumber, sizeof adapter->serialNumber)
                                   : bounded(reinterpret_cast<const char *>(node.SerialNumber), sizeof node.SerialNumber);
    PrintLogMessage(kMsgPlain, "Serial Number\t\t: %s", serial.c_str());
    PrintLogMessage(kMsgPlain, "HBA Instance\t\t: %d", d->instance);
    PrintLogMessage(kMsgPlain, "HBA ID\t\t\t: %d-%s", d->instance, model.c_str());
    PrintLogMessage(kMsgPlain, "Driver Version\t\t: %s", bounded(node.DriverVersion, sizeof node.DriverVersion).c_str());
    print_boot_code_version(d);
    PrintLogMessage(kMsgPlain, "Firmware Version\t: %s",
                    bounded(node.FirmwareVersion, sizeof node.FirmwareVersion).c_str());
    PrintLogMessage(kMsgPlain, "Actual Connection Mode\t: %s", connection_mode_text(port.ConnectionMode));
    PrintLogMessage(kMsgPlain, "Actual Data Rate\t: %s", data_rate_text(port.PortSpeed));
    PrintLogMessage(kMsgPlain, "PortType (Topology)\t: %s", topology_text(port.PortType));
    const SubsystemPair ids = GetSubsystemPair(d);
    PrintLogMessage(kMsgPlain, "Subsystem Vendor ID\t: 0x%04x", ids.vendorId);
    PrintLogMessage(kMsgPlain, "Subsystem Device ID\t: 0x%04x", ids.deviceId);
    PrintLogMessage(kMsgPlain, "HBA Chip ID\t\t: %d", d->chipType);
    if (Get4GbAnd8GbFCXType(d) > 0) print_flash_versions(d);
    PrintLogMessage(kMsgPlain, "HBA Status\t\t: %s", GetAdapterStatusText(GetAdapterStatusWord(d)));
    return 0;
}

int DisplayAllHBAInformation() {
    const DeviceList *list = GetMyDeviceList();
    if (list->empty()) {
        PrintLogMessage(kMsgInfo, "%s", kNoAdapter);
        return 8;
    }
    int status = 0;
    for (HMXDevice *d = list->first; d != nullptr; d = d->next) {
        status = PrintHBAGenInfos(d);
        if (status != 0) FwTrace("Unable to get adapter information (HBA %d)", d->instance);
    }
    return status;
}

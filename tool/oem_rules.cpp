// SPDX-License-Identifier: MIT
#include "oem_rules.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "adapter_list.h"
#include "fw_strings.h"
#include "messages.h"

namespace {

// ---- Board data -----------------------------------------------------------
// Subsystem vendor IDs: the maker's own, the OEM this tool is built for, and
// the two other OEMs whose blade and mezzanine boards share one BIOS chip
// between their ports.
constexpr uint16_t kMakerVendor = 0x1DE5;
constexpr uint16_t kOemVendor = 0x1E0F;
constexpr uint16_t kBladeVendorA = 0x1E31;
constexpr uint16_t kBladeVendorB = 0x1E42;

// Other OEMs' boards with one BIOS chip for both ports (answer 12).
constexpr SubsystemPair kSingleChipOemBoards[] = {
    {0x0160, kBladeVendorA}, {0x0161, kBladeVendorA}, {0x0164, kBladeVendorA}, {0x1440, kBladeVendorB},
    {0x1441, kBladeVendorB}, {0x1450, kBladeVendorB}, {0x1600, kBladeVendorB},
};
// Family 1 and 2: the shared chip on other OEMs' boards.
constexpr SubsystemPair kSharedChipFamily1[] = {{0x0160, kBladeVendorA}, {0x0161, kBladeVendorA}};
constexpr SubsystemPair kSharedChipFamily2[] = {{0x1440, kBladeVendorB}, {0x1441, kBladeVendorB}};
// Family 3: the OEM's own boards, under the maker's or the OEM's vendor ID.
constexpr uint16_t kFamily3Vendors[] = {kMakerVendor, kOemVendor};
constexpr uint16_t kFamily3Devices[] = {0x0165, 0x0166, 0x12D0};

// The one board shown under a fixed model name.
constexpr SubsystemPair kRenamedBoard{0x0164, kBladeVendorA};
constexpr std::string_view kRenamedModel = "VX2462-BL";

// Blade models get a suffix so that they are told apart from the rack boards.
constexpr std::string_view kBladeMarkers[] = {"VX2462M", "VX2442M", "VX2160M", "VX2140M"};
constexpr std::string_view kBladeSuffix = "-BS";

// The board whose function 0 takes the boot code versions of function 1.
constexpr SubsystemPair kVersionAlignedBoard{0x0161, kBladeVendorA};
// ---------------------------------------------------------------------------

bool listed(std::span<const SubsystemPair> table, SubsystemPair pair) {
    return std::find(table.begin(), table.end(), pair) != table.end();
}

template <typename T>
bool contains(std::span<const T> values, T value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

unsigned pci_function(const HMXDevice *d) { return d->chipProperty.PciSlotNumber & 0x7u; }
unsigned pci_device(const HMXDevice *d) { return d->chipProperty.PciSlotNumber >> 3; }

}  // namespace

SubsystemPair GetSubsystemPair(const HMXDevice *device) {
    auto *nvram = const_cast<uint8_t *>(device->nvram1);  // the library only reads it
    return SubsystemPair{
        static_cast<uint16_t>(HmGetVariableValue(device->handle, nvram, NVRAMVarSubSystemDeviceID1)),
        static_cast<uint16_t>(HmGetVariableValue(device->handle, nvram, NVRAMVarSubSystemVendorID1))};
}

int isSingleBIOSChipOEM(const HMXDevice *device) {
    if (device == nullptr) return -1;
    return listed(kSingleChipOemBoards, GetSubsystemPair(device)) ? kSingleBIOSChipOEM : 0;
}

int hasSingleBIOSChip(const HMXDevice *device) {
    if (device == nullptr) return -1;
    const SubsystemPair pair = GetSubsystemPair(device);
    if (listed(kSharedChipFamily1, pair)) return 1;
    if (listed(kSharedChipFamily2, pair)) return 2;
    if (contains<uint16_t>(kFamily3Vendors, pair.vendorId) && contains<uint16_t>(kFamily3Devices, pair.deviceId))
        return 3;
    return 0;
}

int updateModelStrForSingleBIOSHBA(HMXDevice *device) {
    if (device == nullptr) return -1;
    const SubsystemPair pair = GetSubsystemPair(device);
    if (pair == kRenamedBoard) CopyText(device->nodeProperty.Model, kRenamedModel);
    return listed(kSharedChipFamily1, pair) ? 1 : 0;
}

int UpdateModelStringForBladeServer(char *model, size_t size) {
    if (model == nullptr || size == 0) return 0;
    const std::string_view text(model, strnlen(model, size));
    if (text.find(kBladeSuffix) != std::string_view::npos) return 0;
    const bool blade = std::any_of(std::begin(kBladeMarkers), std::end(kBladeMarkers),
                                   [&](std::string_view m) { return text.find(m) != std::string_view::npos; });
    if (!blade || text.size() + kBladeSuffix.size() >= size) return 0;
    std::memcpy(model + text.size(), kBladeSuffix.data(), kBladeSuffix.size());
    model[text.size() + kBladeSuffix.size()] = '\0';
    return 1;
}

int UpdateHBAVersionForOEM(HMXDevice *device) {
    if (device == nullptr) return -1;
    if (GetSubsystemPair(device) != kVersionAlignedBoard || pci_function(device) != 0) return 0;
    FwTrace("HBA port %d: bus=%d, pci slot=%d, funct=%d", device->instance, device->chipProperty.PciBusNumber,
            pci_device(device), pci_function(device));
    for (const HMXDevice *other = g_UTILDeviceList.first; other != nullptr; other = other->next) {
        FwTrace("HBA iter port %d: bus=%d, pci slot=%d, funct=%d", other->instance, other->chipProperty.PciBusNumber,
                pci_device(other), pci_function(other));
        if (other == device || other->chipProperty.PciBusNumber != device->chipProperty.PciBusNumber ||
            pci_device(other) != pci_device(device) || pci_function(other) != 1)
            continue;
        const DEVICENODEPROPERTY &from = other->nodeProperty;
        DEVICENODEPROPERTY &to = device->nodeProperty;
        std::memcpy(to.OptionRomVersion, from.OptionRomVersion, sizeof to.OptionRomVersion);
        to.BIValid = from.BIValid;
        std::memcpy(to.BIFwVersion, from.BIFwVersion, sizeof to.BIFwVersion);
        std::memcpy(to.BIEfiVersion, from.BIEfiVersion, sizeof to.BIEfiVersion);
        std::memcpy(to.BIFCodeVersion, from.BIFCodeVersion, sizeof to.BIFCodeVersion);
        if (from.BIValid != 0)
            FwTrace("UpdateHBAVersionForOEM: %d.%02d.%02d", from.BIFwVersion[0], from.BIFwVersion[1],
                    from.BIFwVersion[2]);
        return 1;
    }
    return 0;
}

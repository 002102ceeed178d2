// SPDX-License-Identifier: MIT
// The update flows on hand-built port records: the port gate of multi-port
// adapters, the board order of shared-BIOS-chip boards, and the two version
// records of a port.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "adapter_list.h"
#include "core.h"
#include "port_gate.h"
#include "version_lookup.h"

namespace {

class UpdateFlow : public testing::Test {
protected:
    void TearDown() override {
        for (HMXDevice *d : devices_) CoreFree(d);
        g_MyDeviceList.reset();
        g_AdapterList.remove_all([](Adapter *a) { CoreFree(a); });
        g_VersionCtrEntryList.remove_all(CoreFree);
    }
    // A port with this chip and serial, listed with its port index. Without a
    // library handle the subsystem IDs of every port read the same.
    HMXDevice *port(uint16_t deviceId, const char *serial, uint8_t wwpnLast, uint32_t portIndex) {
        auto *d = static_cast<HMXDevice *>(CoreZMalloc(sizeof(HMXDevice)));
        d->instance = static_cast<uint32_t>(devices_.size());
        d->chipProperty.DeviceID = deviceId;
        const uint8_t wwnn[8] = {0x20, 0, 0, 0x1d, 0xe5, static_cast<uint8_t>(deviceId >> 8), 0,
                                 static_cast<uint8_t>(serial[0])};
        std::memcpy(d->nodeProperty.WWN, wwnn, 8);
        std::memcpy(d->portProperty.WWN, wwnn, 8);
        d->portProperty.WWN[0] = 0x21;
        d->portProperty.WWN[7] = wwpnLast;
        d->portIndex = portIndex;
        Adapter *a = CreateNewAdapter();
        std::memcpy(a->nodeWWN, d->nodeProperty.WWN, 8);
        std::memcpy(a->portWWN, d->portProperty.WWN, 8);
        std::strcpy(a->serialNumber, serial);
        a->supported = 1;
        EXPECT_EQ(AddAdapterToAdapterList(a), 0);
        g_MyDeviceList.append(d);
        devices_.push_back(d);
        return d;
    }
    std::vector<HMXDevice *> devices_;
};

TEST_F(UpdateFlow, PortGateWritesEachFlashThroughOnePortOfAPair) {
    HMXDevice *a1 = port(0x1410, "A", 1, 1);
    HMXDevice *a2 = port(0x1410, "A", 2, 2);
    HMXDevice *a3 = port(0x1410, "A", 3, 3);
    HMXDevice *a4 = port(0x1410, "A", 4, 4);
    HMXDevice *b1 = port(0x1600, "B", 1, 1);
    HMXDevice *b2 = port(0x1600, "B", 2, 2);
    HMXDevice *c3 = port(0x1600, "C", 3, 3);  // a lone port numbered 3 of its serial
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(a1), kFlashFirstPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(a2), kFlashSecondPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(a3), kFlashThirdPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(a4), kFlashFourthPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(b1), kFlashFirstPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(b2), kFlashSecondPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(c3), kFlashThirdPort);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(nullptr), kFlashWrongOs);

    // Not in the tool's list: no port number, no write.
    HMXDevice *stranger = port(0x1410, "A", 9, 1);
    g_MyDeviceList.reset();
    for (HMXDevice *d : {a1, a2, a3, a4, b1, b2, c3}) g_MyDeviceList.append(d);
    EXPECT_EQ(CheckAdapterFlashUpdateStatus(stranger), kFlashWrongOs);

    // Every port of the same board model counts 0, 1, 0, 1 in list order.
    std::vector<int> order;
    for (HMXDevice *d : {a1, a2, a3, a4, b1}) order.push_back(GetPortIndexOEM(d));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 0, 1, 0}));
    EXPECT_EQ(GetPortIndexOEM(nullptr), -1);

    EXPECT_TRUE(QueryHBAType(b1) == false) << "the node reports no port count here";
    b1->nodeProperty.NumberOfPorts = 2;
    EXPECT_TRUE(QueryHBAType(b1));
}

TEST_F(UpdateFlow, AdapterClassesByChip) {
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1410, "A", 1, 1)), kClassRegionUpdate);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1500, "B", 1, 1)), kClassRegionUpdate);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1200, "C", 1, 1)), kClassStdBiosKind1);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1260, "D", 1, 1)), kClassStdBiosKind2);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1270, "E", 1, 1)), kClassStdBiosKind2);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1100, "F", 1, 1)), kClassStdBiosKind0);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1230, "G", 1, 1)), kClassRecheck);
    EXPECT_EQ(doFCXCheckForOptionROM(port(0x1800, "H", 1, 1)), kClassUnknown);
    HMXDevice *refused = port(0x1410, "I", 1, 1);
    g_AdapterList.last->supported = 0;
    uint32_t chip = 99;
    EXPECT_EQ(isAdapterSupported(refused, &chip), 0);
    EXPECT_EQ(doFCXCheckForOptionROM(refused), kClassNotSupported);
}

TEST_F(UpdateFlow, CurrentVersionsComeFromTheBootInfoOfNewChips) {
    HMXDevice *d = port(0x1410, "A", 1, 1);
    std::strcpy(d->nodeProperty.OptionRomVersion, "v1.05");
    std::strcpy(d->nodeProperty.FirmwareVersion, "9.09.09");
    d->nodeProperty.BIValid = 0x1;  // firmware only: no EFI
    const uint8_t fw[4] = {5, 1, 0, 0}, efi[4] = {1, 2, 0, 0}, fcode[4] = {1, 20, 0, 0};
    std::memcpy(d->nodeProperty.BIFwVersion, fw, 4);
    std::memcpy(d->nodeProperty.BIEfiVersion, efi, 4);
    std::memcpy(d->nodeProperty.BIFCodeVersion, fcode, 4);
    VersionCtrEntry e{};
    ASSERT_EQ(BuildFlashCtrListFromHBA(d, &e), &e);
    EXPECT_EQ(e.biosVersion[0], 1);
    EXPECT_EQ(e.biosVersion[1], 5);
    EXPECT_EQ(e.efiVersion[0], 0) << "BIValid bit 2 not set";
    EXPECT_EQ(e.fcodeVersion[1], 20) << "FCode is taken always";
    EXPECT_EQ(e.fwVersion[0], 5) << "from the boot info, not the text";
    d->nodeProperty.BIValid = 0x2;
    VersionCtrEntry f{};
    BuildFlashCtrListFromHBA(d, &f);
    EXPECT_EQ(f.efiVersion[1], 2);
    EXPECT_EQ(f.fwVersion[0], 0);

    // Older chips: the two texts, cleaned.
    HMXDevice *old = port(0x1200, "B", 1, 1);
    std::strcpy(old->nodeProperty.OptionRomVersion, "1.60");
    std::strcpy(old->nodeProperty.FirmwareVersion, "3.03.20 IPX");
    old->nodeProperty.BIValid = 0x3;
    VersionCtrEntry g{};
    BuildFlashCtrListFromHBA(old, &g);
    EXPECT_EQ(g.biosVersion[1], 60);
    EXPECT_EQ(g.efiVersion[0], 0);
    EXPECT_EQ(g.fwVersion[0], 3);
    EXPECT_EQ(g.fwVersion[2], 20);
    EXPECT_EQ(BuildFlashCtrListFromHBA(nullptr, &g), nullptr);
}

TEST_F(UpdateFlow, RowLookupIgnoresCaseAndTakesTheFirst) {
    HMXDevice *d = port(0x1410, "A", 1, 1);
    // Without a library handle both IDs of the port read 0x0065.
    for (const char *ids : {"0x65,0x0065", "0X0065,0x0065", "0x0065,0X0065"}) {
        VersionCtrEntry *row = CreateNewEntry();
        std::strcpy(row->subsystemDeviceId, std::string(ids).substr(0, std::string(ids).find(',')).c_str());
        std::strcpy(row->subsystemVendorId, std::strchr(ids, ',') + 1);
        std::strcpy(row->model, ids);
        g_VersionCtrEntryList.append(row);
    }
    VersionCtrEntry e{};
    ASSERT_EQ(GetVersionFromFlashCtrFile(d, &e), &e);
    EXPECT_STREQ(e.model, "0X0065,0x0065");
    g_VersionCtrEntryList.remove_all(CoreFree);
    VersionCtrEntry none{};
    GetVersionFromFlashCtrFile(d, &none);
    EXPECT_EQ(none.subsystemDeviceId[0], '\0');
}

}  // namespace

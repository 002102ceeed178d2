// SPDX-License-Identifier: MIT
// Attribute text readers of the sysfs transport and the conversions from the
// transports' records into the public records.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "vx_props.h"
#include "vx_sysfs.h"

namespace {

TEST(XferAttributeText, HexTextFillsBytesFromTheLeft) {
    struct Case {
        const char *text;
        std::size_t room;
        std::size_t converted;
        uint8_t bytes[4];
    };
    const Case cases[] = {
        {"0x2100001d", 4, 4, {0x21, 0x00, 0x00, 0x1d}},
        {"0X2100", 4, 2, {0x21, 0x00, 0xEE, 0xEE}},  // shorter text: the rest stays
        {"aBcDeF0102", 2, 2, {0xAB, 0xCD, 0xEE, 0xEE}},  // never past the room
        {"0x010", 4, 1, {0x01, 0xEE, 0xEE, 0xEE}},  // an odd last digit is not a byte
        {"12zz34", 4, 1, {0x12, 0xEE, 0xEE, 0xEE}},  // stops at the first non-digit
        {"", 4, 0, {0xEE, 0xEE, 0xEE, 0xEE}},
    };
    for (const auto &c : cases) {
        uint8_t out[4];
        std::memset(out, 0xEE, sizeof out);
        EXPECT_EQ(vxsysfs_hex_to_bytes(c.text, out, c.room), c.converted) << c.text;
        EXPECT_EQ(0, std::memcmp(out, c.bytes, sizeof out)) << c.text;
    }
}

TEST(XferAttributeText, PciAddressesAndLinkWords) {
    VxPciAddress a{};
    ASSERT_TRUE(vxsysfs_parse_pci_address("0000:0a:1f.7", &a));
    EXPECT_EQ(a.domain, 0);
    EXPECT_EQ(a.bus, 0x0a);
    EXPECT_EQ(a.device, 0x1f);
    EXPECT_EQ(a.function, 7);
    EXPECT_FALSE(vxsysfs_parse_pci_address("host5", &a));
    EXPECT_FALSE(vxsysfs_parse_pci_address("", &a));

    EXPECT_EQ(vxsysfs_link_state_index("Link Down"), 0);
    EXPECT_EQ(vxsysfs_link_state_index("Link Up - F_Port"), 2);
    EXPECT_EQ(vxsysfs_link_state_index("Link Up - N_Port to N_Port"), 4);
    EXPECT_EQ(vxsysfs_link_state_index("Online"), 5);  // not a word of the driver: unknown
    EXPECT_EQ(vxsysfs_speed_gbit("8 Gbit"), 8u);
    EXPECT_EQ(vxsysfs_speed_gbit("10 Gbit"), 10u);
    EXPECT_EQ(vxsysfs_speed_gbit("16 Gbit"), 0u);
    EXPECT_EQ(vxsysfs_speed_gbit("8 Gbit "), 0u);
}

TEST(XferAttributeText, SmallestHostEntryIsThePortsHost) {
    char tmpl[] = "/tmp/xfer-host.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    EXPECT_EQ(vxsysfs_smallest_host(dir.c_str()), -1);
    for (const char *d : {"host3", "host1", "hostx", "host", "power", "host12"})
        ASSERT_EQ(mkdir((dir + "/" + d).c_str(), 0755), 0);
    EXPECT_EQ(vxsysfs_smallest_host(dir.c_str()), 1);
    EXPECT_EQ(vxsysfs_smallest_host((dir + "/missing").c_str()), -1);
    std::filesystem::remove_all(dir);
}

TEST(XferRecords, PortStateRule) {
    EXPECT_EQ(vxprops_port_state(2), 3);
    EXPECT_EQ(vxprops_port_state(0), 1);
    EXPECT_EQ(vxprops_port_state(5), 2);
    EXPECT_EQ(vxprops_port_state(1), 2);
}

TEST(XferRecords, NodeModelIsCutTo15AndSerialComesFromTheTable) {
    EXT_HBA_NODE node{};
    std::memset(&node, 'X', sizeof node);  // unterminated texts everywhere
    std::memcpy(node.Model, "ABCDEFGHIJKLMNOPQRST", 20);
    node.PortCount = 2;
    node.BIValid = 5;
    DEVICENODEPROPERTY out;
    std::memset(&out, 0x55, sizeof out);
    char serial[32];  // the adapter table's field, full and unterminated
    std::memset(serial, 'S', sizeof serial);
    vxprops_node_from_record(node, serial, out);
    EXPECT_STREQ(out.Model, "ABCDEFGHIJKLMNO");
    EXPECT_EQ(std::strlen(reinterpret_cast<const char *>(out.SerialNumber)), 31u);
    EXPECT_EQ(std::strlen(out.Manufacturer), 64u);  // the record's whole field, terminated
    EXPECT_EQ(std::strlen(out.DriverVersion), 31u);
    EXPECT_EQ(out.NumberOfPorts, 2);
    EXPECT_EQ(out.BIValid, 5u);
    for (uint32_t r : out.Reserved) EXPECT_EQ(r, 0u);
}

TEST(XferRecords, PortIdIsTheLowThreeBytes) {
    EXT_HBA_PORT port{};
    const uint8_t id[4] = {0x00, 0x01, 0x02, 0x03};
    std::memcpy(port.Id, id, 4);
    port.State = 2;
    port.Mode = 4;
    port.PortSpeed = 8;
    DEVICEPORTPROPERTY out{};
    vxprops_port_from_record(port, 12, out);
    EXPECT_EQ(out.PortID[0], 0x01);
    EXPECT_EQ(out.PortID[1], 0x02);
    EXPECT_EQ(out.PortID[2], 0x03);
    EXPECT_EQ(out.PortState, 3);
    EXPECT_EQ(out.ConnectionMode, 4);
    EXPECT_STREQ(out.DeviceName, "host12");
    EXPECT_EQ(out.PortSpeed, 8u);
}

TEST(XferRecords, ChipSlotIsDeviceFunctionAndLinkCapIsCut) {
    EXT_CHIP chip{};
    chip.PciSlotNumber = 0x99;  // not what the public record reports
    chip.PciDevFunc = 3 * 8 + 1;
    chip.PcieLinkCap = 0x12345678;
    chip.DomainNr = 2;
    CHIPPROPERTY out{};
    vxprops_chip_from_record(chip, out);
    EXPECT_EQ(out.PciSlotNumber, 25);
    EXPECT_EQ(out.PciSlotNumber & 7, 1);  // the PCI function
    EXPECT_EQ(out.PcieLinkCap, 0x5678);
    EXPECT_EQ(out.DomainNr, 2);
}

TEST(XferRecords, DriverVersionStaysTerminated) {
    EXT_DRIVER drv{};
    std::memset(drv.Version, '9', sizeof drv.Version);
    drv.MaxDataSegments = 128;
    DRIVERPROPERTY out{};
    vxprops_driver_from_record(drv, out);
    EXPECT_EQ(std::strlen(reinterpret_cast<const char *>(out.Version)), 31u);
    EXPECT_EQ(out.MaximumDataSegments, 128u);
}

}  // namespace

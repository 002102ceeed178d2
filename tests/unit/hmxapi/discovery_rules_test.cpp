// SPDX-License-Identifier: MIT
// Rules applied while adapters are discovered: driver version thresholds,
// serial numbers, chip classification, handles.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vx_chipdata.h"
#include "vx_discovery_rules.h"
#include "vx_instances.h"
#include "vx_load.h"

namespace {

TEST(DriverVersion, NewEnoughForDriverWideFlags) {
    const struct {
        DriverVersion v;
        bool ok;
    } rows[] = {
        {{6, 9, 9, 0}, false}, {{7, 7, 5, 9}, false}, {{7, 7, 6, 0}, true},  {{7, 8, 0, 0}, true},
        {{7, 6, 99, 0}, false}, {{8, 0, 9, 0}, false}, {{8, 0, 99, 0}, false}, {{8, 1, 6, 0}, false},
        {{8, 1, 7, 0}, true},  {{8, 2, 0, 0}, true},  {{9, 0, 0, 0}, true},   {{10, 0, 0, 0}, true},
        {{0, 0, 0, 0}, false},
    };
    for (const auto &r : rows)
        EXPECT_EQ(vxapi_driver_new_enough(r.v), r.ok)
            << int(r.v.major) << "." << int(r.v.minor) << "." << int(r.v.patch);
}

TEST(DriverVersion, NewConfigurationStore) {
    const struct {
        DriverVersion v;
        bool ok;
    } rows[] = {
        {{6, 6, 0, 0}, true},  {{6, 6, 0, 1}, false}, {{6, 6, 0, 5}, false}, {{6, 6, 0, 8}, false},
        {{6, 6, 0, 9}, true},  {{6, 6, 1, 3}, true},  {{6, 7, 0, 0}, true},  {{6, 5, 9, 0}, false},
        {{5, 9, 9, 0}, false}, {{7, 0, 0, 0}, true},
    };
    for (const auto &r : rows)
        EXPECT_EQ(vxapi_driver_new_cfg_store(r.v), r.ok)
            << int(r.v.major) << "." << int(r.v.minor) << "." << int(r.v.patch) << " beta " << int(r.v.beta);
}

TEST(SerialNumber, ComputedFromNodeName) {
    char out[32];
    // wwnn bytes 4..6 = 0x01 0x86 0xA0: 0x0186A0 = 100000 -> "B00000".
    const uint8_t a[8] = {0x20, 0, 0, 0x24, 0x01, 0xA0, 0x86, 0};
    vxapi_compute_serial(a, 0x1F, out, sizeof out);
    EXPECT_STREQ(out, "B00000");
    // The mask keeps 5 or 6 bits of byte 4.
    const uint8_t b[8] = {0, 0, 0, 0, 0xFF, 0x39, 0x30, 0};
    vxapi_compute_serial(b, 0x1F, out, sizeof out);  // 0x1F3039 = 2043961
    EXPECT_STREQ(out, "U43961");
    vxapi_compute_serial(b, 0x3F, out, sizeof out);  // 0x3F3039 = 4141113
    EXPECT_STREQ(out, "j41113");
    const uint8_t zero[8] = {};
    vxapi_compute_serial(zero, 0x3F, out, sizeof out);
    EXPECT_STREQ(out, "A00000");
}

TEST(ChipData, FamiliesAndIds) {
    EXPECT_EQ(vxhmx::chip_device_id("FCX160"), 0x1600);
    EXPECT_EQ(vxhmx::chip_device_id("FCX999"), 0);
    for (const char *name : {"FCX120", "FCX121", "FCX122", "FCX123", "FCX126", "FCX127"})
        EXPECT_TRUE(vxhmx::find_chip_by_name(name)->fcx12x) << name;
    for (const char *name : {"FCX140", "FCX141", "FCX144", "FCX145", "FCX150", "FCX160", "FCX180"})
        EXPECT_TRUE(vxhmx::find_chip_by_name(name)->vpd_serial) << name;
    for (const char *name : {"FCX100", "FCX110", "FCX181", "FCX185"}) {
        EXPECT_FALSE(vxhmx::find_chip_by_name(name)->vpd_serial) << name;
        EXPECT_FALSE(vxhmx::find_chip_by_name(name)->fcx12x) << name;
    }
    EXPECT_EQ(vxhmx::all_chips().size(), 20u);
}

TEST(ChipData, NodeRecordSerialModels) {
    for (uint16_t m : {0x12BA, 0x12C2, 0x12C7, 0x12C9}) EXPECT_TRUE(vxhmx::is_listed_oem_model(0x1E0F, m)) << m;
    EXPECT_FALSE(vxhmx::is_listed_oem_model(0x1E0F, 0x0131));
    EXPECT_TRUE(vxhmx::is_listed_oem_model(0x1DE5, 0x0131));
    EXPECT_FALSE(vxhmx::is_listed_oem_model(0x1DE5, 0x12BA));
    EXPECT_FALSE(vxhmx::is_listed_oem_model(0x1234, 0x12BA));
}

TEST(DriverNode, ProcDevicesLastLineNamingTheDriverWins) {
    unsigned major_no = 0;
    EXPECT_TRUE(vxhmx::proc_devices_major("Character devices:\n  1 mem\n254 vxa2xxx\n 10 misc\n240 vxa2xxx\n\n"
                                          "Block devices:\n  8 sd\n",
                                          "vxa2xxx", &major_no));
    EXPECT_EQ(major_no, 240u);
    EXPECT_FALSE(vxhmx::proc_devices_major("Character devices:\n  1 mem\n", "vxa2xxx", &major_no));
    EXPECT_FALSE(vxhmx::proc_devices_major("", "vxa2xxx", &major_no));
    // A line longer than the reading buffer: the piece holding the name counts.
    const std::string long_line = "77 " + std::string(120, 'x') + " vxa2xxx\n";
    EXPECT_TRUE(vxhmx::proc_devices_major("250 vxa2xxx\n" + long_line, "vxa2xxx", &major_no));
    EXPECT_EQ(major_no, 0u);  // the second piece has no leading number
}

TEST(DriverNode, SysfsDeviceNumbers) {
    unsigned major_no = 0, minor_no = 0;
    EXPECT_TRUE(vxhmx::parse_dev_numbers("1:3\n", &major_no, &minor_no));
    EXPECT_EQ(major_no, 1u);
    EXPECT_EQ(minor_no, 3u);
    EXPECT_FALSE(vxhmx::parse_dev_numbers("254\n", &major_no, &minor_no));
    EXPECT_FALSE(vxhmx::parse_dev_numbers("", &major_no, &minor_no));
    EXPECT_FALSE(vxhmx::parse_dev_numbers("x:1", &major_no, &minor_no));
}

class Handles : public ::testing::Test {
protected:
    void SetUp() override { vxapi_clear_table(); }
    void TearDown() override { vxapi_clear_table(); }
};

TEST_F(Handles, ChecksInOrder) {
    uint16_t idx = 99;
    EXPECT_EQ(check_handle(0, &idx), 1);
    EXPECT_EQ(check_handle(5, &idx), 1);  // nobody carries it
    api_priv_data[4].apihandle = vxapi_create_apihandle(4);
    api_priv_data[4].features = VXF_NEW_LAYOUT;  // neither transport bit
    EXPECT_EQ(check_handle(5, &idx), 1);
    api_priv_data[4].features = VXF_IOCTL;
    EXPECT_EQ(check_handle(5, &idx), 0);
    EXPECT_EQ(idx, 4);
    api_priv_data[4].features = VXF_SYSFS;
    EXPECT_EQ(check_handle(5, &idx), 0);
    // A record carrying a handle that is not its own index + 1.
    api_priv_data[4].apihandle = 9;
    EXPECT_EQ(check_handle(9, &idx), 1);
    EXPECT_EQ(vxapi_get_host_no_by_handle(77), 65535);
}

TEST_F(Handles, LastDriverInstanceMatchWins) {
    for (int i : {1, 5}) {
        std::snprintf(api_priv_data[i].model, sizeof api_priv_data[i].model, "vxa2xxx");
        api_priv_data[i].drvr_inst = 3;
    }
    int idx = 0;
    vxapi_get_api_inst_by_drvr_inst(3, &idx, "vxa2xxx");
    EXPECT_EQ(idx, 5);
    vxapi_get_api_inst_by_drvr_inst(3, &idx, "vxa2x00");
    EXPECT_EQ(idx, -1);
}

TEST_F(Handles, CountIsTheLeadingRun) {
    EXPECT_EQ(vxapi_get_hba_count(), 0);
    std::snprintf(api_priv_data[0].phys_path, sizeof api_priv_data[0].phys_path, "/dev/vxa2xxx");
    std::snprintf(api_priv_data[1].phys_path, sizeof api_priv_data[1].phys_path, "/dev/vxa2xxx");
    std::snprintf(api_priv_data[3].phys_path, sizeof api_priv_data[3].phys_path, "/dev/vxa2xxx");
    EXPECT_EQ(vxapi_get_hba_count(), 2);
}

}  // namespace

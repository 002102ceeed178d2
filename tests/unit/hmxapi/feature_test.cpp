// SPDX-License-Identifier: MIT
// Feature list records and the driver option line.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "process.h"
#include "vx_feature.h"

namespace {

struct Expected {
    uint32_t id, group, min, max, initial, current, flags;
    const char *name;
};

std::vector<uint8_t> list_storage(uint32_t room) {
    std::vector<uint8_t> bytes(sizeof(uint32_t) + room * sizeof(HMX_HBA_FEATURE) + 8, 0);
    std::memcpy(bytes.data(), &room, sizeof room);
    return bytes;
}

void expect_list(const std::string &option_line, const std::vector<Expected> &want) {
    vxapi_drv_option_t opts[kDrvOptionCount];
    vxhmx::default_options(opts);
    vxhmx::parse_option_line(option_line, opts);
    auto storage = list_storage(8);
    auto *list = reinterpret_cast<HMX_HBA_FEATURE_LIST *>(storage.data());
    ASSERT_EQ(vxhmx::build_feature_list(opts, list), 0u);
    ASSERT_EQ(list->Count, want.size());
    for (std::size_t i = 0; i < want.size(); ++i) {
        const HMX_HBA_FEATURE &f = list->Feature[i];
        SCOPED_TRACE(want[i].name);
        EXPECT_EQ(f.Version, 1u);
        EXPECT_EQ(f.Size, 88u);
        EXPECT_EQ(f.FeatureId, want[i].id);
        EXPECT_EQ(f.Group, want[i].group);
        EXPECT_EQ(f.Minimum, want[i].min);
        EXPECT_EQ(f.Maximum, want[i].max);
        EXPECT_EQ(f.InitialValue, want[i].initial);
        EXPECT_EQ(f.CurrentValue, want[i].current);
        EXPECT_EQ(f.Flags, want[i].flags);
        EXPECT_EQ(f.Reserved, 0u);
        EXPECT_STREQ(f.Name, want[i].name);
    }
}

TEST(FeatureList, WithoutOptionLineTheTableStands) {
    expect_list("", {{1, 2, 0, 1, 0, 0, 0x62, "Persistent Only"},
                     {2, 2, 0, 1, 1, 1, 0x62, "Persistent+New"},
                     {16, 2, 0, 2, 2, 2, 0x62, "New Only"},
                     {4, 1, 0, 1, 1, 1, 0x62, "Bind by WWPN"},
                     {8, 1, 0, 1, 0, 0, 0x62, "Bind by PID"}});
}

TEST(FeatureList, ConfigRequiredSetsTheStoreMode) {
    expect_list("options vxa2xxx ConfigRequired=2\n", {{1, 2, 0, 1, 0, 2, 0x72, "Persistent Only"},
                                                      {2, 2, 0, 1, 1, 0, 0x72, "Persistent+New"},
                                                      {16, 2, 0, 2, 2, 1, 0x72, "New Only"},
                                                      {4, 1, 0, 1, 1, 1, 0x62, "Bind by WWPN"},
                                                      {8, 1, 0, 1, 0, 0, 0x62, "Bind by PID"}});
    expect_list("options vxa2xxx ConfigRequired=0", {{1, 2, 0, 1, 0, 0, 0x72, "Persistent Only"},
                                                    {2, 2, 0, 1, 1, 1, 0x72, "Persistent+New"},
                                                    {16, 2, 0, 2, 2, 0, 0x72, "New Only"},
                                                    {4, 1, 0, 1, 1, 1, 0x62, "Bind by WWPN"},
                                                    {8, 1, 0, 1, 0, 0, 0x62, "Bind by PID"}});
}

TEST(FeatureList, BindSelectsTheBinding) {
    expect_list("options vxa2xxx\tBind=1 ConfigRequired=1", {{1, 2, 0, 1, 0, 1, 0x72, "Persistent Only"},
                                                            {2, 2, 0, 1, 1, 0, 0x72, "Persistent+New"},
                                                            {16, 2, 0, 2, 2, 0, 0x72, "New Only"},
                                                            {4, 1, 0, 1, 1, 0, 0x72, "Bind by WWPN"},
                                                            {8, 1, 0, 1, 0, 1, 0x72, "Bind by PID"}});
    // An unknown binding value keeps the table's values but still marks them.
    expect_list("options vxa2xxx Bind=7", {{1, 2, 0, 1, 0, 0, 0x62, "Persistent Only"},
                                           {2, 2, 0, 1, 1, 1, 0x62, "Persistent+New"},
                                           {16, 2, 0, 2, 2, 2, 0x62, "New Only"},
                                           {4, 1, 0, 1, 1, 1, 0x72, "Bind by WWPN"},
                                           {8, 1, 0, 1, 0, 0, 0x72, "Bind by PID"}});
}

TEST(FeatureList, OptionTokensMustCarryADecimalValue) {
    const struct {
        const char *line;
        bool bind_found;
        int32_t bind_value;
    } rows[] = {
        {"options vxa2xxx Bind=", false, 0},     {"options vxa2xxx Bind=x1", false, 0},
        {"options vxa2xxx Bind=0", true, 0},     {"options vxa2xxx xBind=1", false, 0},
        {"options vxa2xxx Bind=-3", true, -3},   {"options vxa2xxx Bind=1 Bind=0", true, 0},
        {"options vxa2xxx Bind=12abc", false, 0},
    };
    for (const auto &r : rows) {
        vxapi_drv_option_t opts[kDrvOptionCount];
        vxhmx::default_options(opts);
        vxhmx::parse_option_line(r.line, opts);
        EXPECT_EQ(opts[0].found != 0, r.bind_found) << r.line;
        if (r.bind_found) {
            EXPECT_EQ(opts[0].value, r.bind_value) << r.line;
        }
        EXPECT_EQ(opts[1].found, 0) << r.line;
    }
}

TEST(FeatureList, ShortListGetsTheNeededCount) {
    vxapi_drv_option_t opts[kDrvOptionCount];
    vxhmx::default_options(opts);
    auto storage = list_storage(3);
    auto *list = reinterpret_cast<HMX_HBA_FEATURE_LIST *>(storage.data());
    EXPECT_EQ(vxhmx::build_feature_list(opts, list), 0x20000072u);
    EXPECT_EQ(list->Count, 5u);
    EXPECT_EQ(vxhmx::build_feature_list(opts, nullptr), 0x20000064u);
    EXPECT_EQ(HmGetHbaSupportedFeatureList(1, nullptr), 0x20000064u);
    EXPECT_EQ(HmGetHbaSupportedFeatureList(1, list), 0x20000064u);  // unknown handle
}

TEST(OptionLine, OnlyTheFirstExistingFileIsSearched) {
    fwtest::TempDir dir("hmxopt");
    const std::string missing = dir / "conf.modules";
    const std::string local = dir / "modprobe.conf.local";
    const std::string main = dir / "modprobe.conf";
    fwtest::write_file(local, "# options vxa2xxx Bind=1\n  #options vxa2xxx Bind=1\nalias scsi vxa2xxx\n");
    fwtest::write_file(main, "options vxa2xxx Bind=0\n");
    const char *files[] = {missing.c_str(), local.c_str(), main.c_str()};
    std::string line = "untouched";
    EXPECT_EQ(vxhmx::find_option_line(files, "vxa2xxx", &line), 0x20000078u);
    EXPECT_EQ(line, "untouched");

    fwtest::write_file(local, "#options vxa2xxx Bind=1\noptions vxa2xxx Bind=1 ConfigRequired=0\noptions vxa2xxx Bind=0\n");
    EXPECT_EQ(vxhmx::find_option_line(files, "vxa2xxx", &line), 0u);
    EXPECT_EQ(line, "options vxa2xxx Bind=1 ConfigRequired=0\n");
    EXPECT_EQ(vxhmx::find_option_line(files, "vxa2xxx", nullptr), 0x20000064u);

    const char *none[] = {missing.c_str()};
    EXPECT_EQ(vxhmx::find_option_line(none, "vxa2xxx", &line), 0x20000078u);
    EXPECT_EQ(vxhmx::module_config_files().size(), 4u);
    EXPECT_STREQ(vxhmx::module_config_files()[0], "/etc/conf.modules");
    EXPECT_STREQ(vxhmx::module_config_files()[3], "/etc/modules.conf");
}

}  // namespace

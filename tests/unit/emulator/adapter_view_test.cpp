// SPDX-License-Identifier: MIT
// What vxemu show and diff read from an adapter's bytes: region contents,
// the BIOS identity, the parameter block bounds, and the comparison of two
// states; descriptions read from a state without their image files.
#include <gtest/gtest.h>

#include <cstring>

#include "adapter_view.h"
#include "host_model.h"

using namespace vxemu;

namespace {

Adapter adapter_of(const std::string &json) {
    auto h = parse_host_json(json, "test.json");
    EXPECT_TRUE(h) << h.error().message;
    return h && !h.value().adapters.empty() ? h.value().adapters[0] : Adapter{};
}

void put_text(Adapter &a, size_t off, const char *text) {
    ASSERT_TRUE(a.write_flash(off, std::span(reinterpret_cast<const uint8_t *>(text), std::strlen(text))));
}

const RegionView *region(const AdapterView &v, uint32_t code) {
    for (const RegionView &r : v.regions)
        if (r.region.code() == code) return &r;
    return nullptr;
}

}  // namespace

TEST(AdapterView, RegionsSayWhatTheyCarry) {
    // FCX123: one region holds the boot code and, at 0x80000, the firmware.
    AdapterView v = view_adapter(adapter_of(R"({"adapters": [{"chip": "FCX123",
        "flash": {"bios": "1.60", "fcode": null, "efi": null, "firmware": "3.3.20"}}]})"));
    ASSERT_EQ(v.regions.size(), 1u);
    EXPECT_EQ(v.regions[0].carries, (std::vector<std::string>{"BIOS 1.60", "firmware 3.03.20"}));
    EXPECT_EQ(version_text(v.versions.fcode), "-");

    // FCX160: boot images, firmware, the blocks, blank areas; the whole-flash row left out.
    v = view_adapter(adapter_of(R"({"adapters": [{"chip": "FCX160",
        "flash": {"bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1"}}]})"));
    EXPECT_EQ(region(v, 0xFF), nullptr);
    EXPECT_EQ(region(v, 0x07)->carries, (std::vector<std::string>{"BIOS 1.10", "FCode 2.05", "EFI 1.07"}));
    EXPECT_EQ(region(v, 0x01)->carries, (std::vector<std::string>{"firmware 8.02.01"}));
    EXPECT_EQ(region(v, 0x15)->carries, (std::vector<std::string>{"NVRAM"}));
    EXPECT_EQ(region(v, 0x16)->carries, (std::vector<std::string>{"VPD"}));
    EXPECT_EQ(region(v, 0x2B)->carries, (std::vector<std::string>{"erased"}));
    EXPECT_EQ(v.bios_model, "VX160");  // the default model of the chip
    EXPECT_EQ(v.bios_hardware_type, "160");
    EXPECT_EQ(v.ssvid_bytes, 0x1DE5);
    ASSERT_TRUE(v.parameter_block);
    EXPECT_EQ(v.parameter_block->size(), 512u);
}

TEST(AdapterView, NoBiosImageNoIdentity) {
    const AdapterView v = view_adapter(adapter_of(R"({"adapters": [{"chip": "FCX141",
        "flash": {"bios": null, "fcode": "1.20", "efi": null, "firmware": null}}]})"));
    EXPECT_FALSE(v.bios_model);
    EXPECT_FALSE(v.bios_hardware_type);
    EXPECT_FALSE(v.ssvid_bytes);
    EXPECT_FALSE(v.parameter_block);
    EXPECT_EQ(region(v, 0x07)->carries, (std::vector<std::string>{"FCode 1.20"}));
    EXPECT_EQ(region(v, 0x01)->carries, (std::vector<std::string>{"erased"}));
}

TEST(AdapterView, ParameterBlockSearchStopsWhereTheFlashToolStops) {
    // Every start from 0 through 0x1FFF9 is tried, no later one.
    const std::string erased = R"({"adapters": [{"chip": "FCX141",
        "flash": {"bios": null, "fcode": null, "efi": null, "firmware": null}}]})";
    Adapter last = adapter_of(erased);
    put_text(last, 0x1FFF9, "MEFCX ");
    const AdapterView v = view_adapter(last);
    ASSERT_TRUE(v.parameter_block);
    EXPECT_EQ(v.parameter_block->size(), 512u);
    EXPECT_EQ((*v.parameter_block)[0], 'F');  // the block starts two bytes into the marker

    Adapter past = adapter_of(erased);
    put_text(past, 0x1FFFA, "MEFCX ");
    EXPECT_FALSE(view_adapter(past).parameter_block);

    // Near the end of a small flash the block is cut, not read past the end.
    Adapter small = adapter_of(R"({"adapters": [{"chip": "FCX120", "flash": {"bios": null, "fcode": null, "efi": null}}]})");
    put_text(small, small.flash.size() - 10, "MEFCX ");
    const AdapterView s = view_adapter(small);
    ASSERT_TRUE(s.parameter_block);
    EXPECT_EQ(s.parameter_block->size(), 8u);
}

TEST(AdapterDiff, RegionsVersionsAndOwnData) {
    const std::string host = R"({"adapters": [{"name": "a", "chip": "FCX141",
        "flash": {"bios": "1.05", "fcode": "1.20", "efi": "1.02", "firmware": "5.1.0"}}]})";
    const Adapter before = adapter_of(host);
    Adapter after = before;
    // A new firmware image, then an NVRAM byte and the VPD identifier changed.
    const Adapter newer = adapter_of(R"({"adapters": [{"name": "a", "chip": "FCX141",
        "flash": {"bios": "1.05", "fcode": "1.20", "efi": "1.02", "firmware": "5.2.0"}}]})");
    ASSERT_TRUE(after.write_flash(0x80000, std::span(newer.flash).subspan(0x80000, 0x80000)));
    auto d = diff_adapters({view_adapter(before)}, {view_adapter(after)});
    ASSERT_EQ(d.size(), 1u);
    ASSERT_EQ(d[0].versions.size(), 1u);
    EXPECT_EQ(d[0].versions[0].image, "firmware");
    EXPECT_EQ(d[0].versions[0].before, "5.01.00");
    EXPECT_EQ(d[0].versions[0].after, "5.02.00");
    ASSERT_EQ(d[0].regions.size(), 1u);
    EXPECT_EQ(d[0].regions[0].code, 0x01u);
    EXPECT_TRUE(d[0].own_data_changed.empty());
    EXPECT_FALSE(d[0].unchanged());

    std::vector<uint8_t> nv = after.functions[0].nvram;
    nv[20] ^= 1;
    ASSERT_TRUE(after.write_nvram(0, nv));
    std::vector<uint8_t> vpd = after.functions[0].vpd;
    vpd[5] ^= 1;  // inside the identifier string
    ASSERT_TRUE(after.write_vpd(0, vpd));
    d = diff_adapters({view_adapter(before)}, {view_adapter(after)});
    EXPECT_EQ(d[0].own_data_changed, (std::vector<std::string>{"NVRAM of 0000:05:00.0", "VPD of 0000:05:00.0 (ID)"}));

    // Same bytes: unchanged; names matched, not positions.
    d = diff_adapters({view_adapter(before)}, {view_adapter(before)});
    EXPECT_TRUE(d[0].unchanged());
    Adapter other = before;
    other.name = "b";
    d = diff_adapters({view_adapter(before)}, {view_adapter(other)});
    ASSERT_EQ(d.size(), 2u);
    EXPECT_FALSE(d[0].in_b);
    EXPECT_FALSE(d[1].in_a);
}

TEST(HostFilesFromState, MissingImageFilesAreLeftToTheState) {
    const std::string json = R"({"adapters": [{"chip": "FCX141", "flash": {"file": "gone.bin"},
        "functions": [{"nvram_file": "gone.nv", "vpd_file": "gone.vpd"}]}]})";
    EXPECT_FALSE(parse_host_json(json, "/nonexistent/host.json"));
    auto h = parse_host_json(json, "/nonexistent/host.json", HostFiles::from_state);
    ASSERT_TRUE(h) << h.error().message;
    EXPECT_EQ(h.value().adapters[0].flash.size(), 0x100000u);
    // Everything else is still checked.
    EXPECT_FALSE(parse_host_json(R"({"adapters": [{"chip": "FCX999"}]})", "x.json", HostFiles::from_state));
}

TEST(VpdFields, EveryFieldInBlockOrderUpToWhatFits) {
    VpdSpec s;
    s.identifier = "Card";
    s.read_only = {{"PN", "P1"}, {"SN", "S1"}};
    s.read_write = {{"V1", "x"}};
    auto b = build_vpd(s);
    ASSERT_TRUE(b);
    const auto f = vpd_fields(b.value());
    ASSERT_GE(f.size(), 5u);
    EXPECT_EQ(f[0], (std::pair<std::string, std::string>{"ID", "Card"}));
    EXPECT_EQ(f[1].first, "PN");
    EXPECT_EQ(f[2].first, "SN");
    EXPECT_EQ(f[3].first, "RV");
    EXPECT_EQ(f[4], (std::pair<std::string, std::string>{"V1", "x"}));
    // A block cut inside a field gives the fields before it only.
    const auto cut = vpd_fields(std::span(b.value()).first(12));
    EXPECT_EQ(cut.size(), 1u);
}

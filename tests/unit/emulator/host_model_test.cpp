// SPDX-License-Identifier: MIT
// Host model: JSON defaults and errors, the lab host, flash/NVRAM/VPD
// consistency, versions derived from flash, state save and reload.
#include <gtest/gtest.h>

#include <filesystem>

#include "host_model.h"
#include "process.h"

using namespace vxemu;

namespace {

Host parse_ok(const std::string &json) {
    auto h = parse_host_json(json, "test.json");
    EXPECT_TRUE(h) << h.error().message;
    return h ? std::move(h).value() : Host{};
}

}  // namespace

TEST(HostJson, EmptyDescriptionGivesTheDefaults) {
    Host h = parse_ok("{}");
    EXPECT_EQ(h.driver.name, "vxa2xxx");
    EXPECT_EQ(h.driver.version_text, "8.07.03-k");
    EXPECT_EQ(h.ostype, "Linux");
    EXPECT_EQ(h.node.major, 1u);
    EXPECT_EQ(h.node.minor, 3u);
    EXPECT_FALSE(h.node.stale);
    EXPECT_TRUE(h.adapters.empty());
    EXPECT_EQ(h.instance_count(), 0);
}

TEST(HostJson, AdapterDefaultsFollowTheChip) {
    Host h = parse_ok(R"({"adapters": [{"chip": "FCX141"}, {"chip": "FCX160", "transport": "sysfs",
                           "functions": [{}, {"pci": "0000:06:00.1"}]}]})");
    ASSERT_EQ(h.adapters.size(), 2u);
    const Adapter &a = h.adapters[0];
    EXPECT_EQ(a.name, "adapter0");
    EXPECT_EQ(a.transport, Transport::ioctl);
    EXPECT_EQ(a.flash.size(), 0x100000u);
    ASSERT_EQ(a.functions.size(), 1u);
    const PortFunction &f = a.functions[0];
    EXPECT_EQ(f.pci_address, "0000:05:00.0");
    EXPECT_EQ(f.vendor_id, 0x1DE5);
    EXPECT_EQ(f.device_id, 0x1410);
    EXPECT_EQ(f.ss_device_id, 0x1410);
    EXPECT_EQ(f.host_no, 5u);
    EXPECT_EQ(f.nvram.size(), 512u);  // FCX14x class: extended format
    EXPECT_EQ(nvram_get(f.nvram, NvramFormat::extended, kNvVarSsVendor), 0x1DE5u);
    EXPECT_EQ(vpd_field(f.vpd, "SN"), f.serial);
    EXPECT_EQ(a.versions.bios.text(), "1.00");
    EXPECT_EQ(a.versions.firmware.text(), "1.00.00");
    EXPECT_EQ(a.firmware_version, "1.00.00");
    EXPECT_EQ(a.layout.find(0x07)->size, 0x40000u);

    const Adapter &b = h.adapters[1];
    EXPECT_EQ(b.flash.size(), 0x200000u);
    EXPECT_TRUE(b.layout.reported_by_adapter);
    ASSERT_EQ(b.functions.size(), 2u);
    EXPECT_EQ(b.functions[0].host_no, 6u);
    EXPECT_EQ(b.functions[1].host_no, 7u);
    EXPECT_EQ(b.functions[0].serial, b.functions[1].serial);  // one adapter, one serial
    EXPECT_NE(b.functions[0].wwpn, b.functions[1].wwpn);
    EXPECT_EQ(h.ioctl_port_count(), 1u);
    EXPECT_EQ(h.instance_count(), 1);
}

TEST(HostJson, ErrorsNameTheFileAndTheField) {
    struct Case {
        const char *json;
        const char *expect;
    };
    const Case cases[] = {
        {"{", "test.json: not valid JSON"},
        {"[]", "test.json: (top): expected an object"},
        {R"({"adapter": []})", "test.json: (top).adapter: unknown field"},
        {R"({"driver": {"version": "8.x"}})", "test.json: driver.version: expected Major.Minor.Patch[.Beta]"},
        {R"({"driver": {"transport": "pci"}})", "test.json: driver.transport: expected sysfs, ioctl or ioctl_old"},
        {R"({"node": {"dev": "13"}})", "test.json: node.dev: expected \"major:minor\""},
        {R"({"adapters": [{"chip": "FCX999"}]})", "test.json: adapters[0].chip: unknown chip \"FCX999\""},
        {R"({"adapters": [{"chip": "FCX141", "functions": [{"pci": "05:00.0"}]}]})",
         "test.json: adapters[0].functions[0].pci: expected a PCI address"},
        {R"({"adapters": [{"functions": [{"ssvid": 70000}]}]})", "test.json: adapters[0].functions[0].ssvid: value 70000 is above 65535"},
        {R"({"adapters": [{"functions": [{"wwpn": "21:00"}]}]})", "test.json: adapters[0].functions[0].wwpn: expected 16 hexadecimal digits"},
        {R"({"adapters": [{"name": "../x"}]})", "test.json: adapters[0].name: use letters"},
        {R"({"adapters": [{"name": "a"}, {"name": "a"}]})", "test.json: adapters[1].name: \"a\" used twice"},
        {R"({"adapters": [{}, {"functions": [{"pci": "0000:05:00.0"}]}]})", "test.json: adapters[1].functions[0].pci: 0000:05:00.0 used twice"},
        {R"({"adapters": [{"functions": [{"host": 9}, {"host": 9, "pci": "0000:05:00.1"}]}]})", "host9 used twice"},
        {R"({"adapters": [{"chip": "FCX160", "functions": [{}, {"pci": "0000:05:00.2"}]}]})",
         "adapters[0].functions: FCX160 keeps NVRAM/VPD for one even and one odd PCI function only"},
        {R"({"adapters": [{"flash": {"file": "missing.bin"}}]})", "test.json: adapters[0].flash.file: missing.bin: cannot open"},
        {R"({"adapters": [{"flash": {"bios": "1"}}]})", "test.json: adapters[0].flash.bios: expected a version of 2 dotted numbers"},
        {R"({"adapters": [{"chip": "FCX126", "flash": {"firmware": "1.2.3"}}]})", "adapters[0].flash.firmware: FCX126 flash carries no firmware image"},
        {R"({"adapters": [{"chip": "FCX141", "layout": {"regions": [{"code": 255, "beg": 0, "size": "0x200000"}]}}]})",
         "adapters[0].layout.regions[0].size: value 2097152 is above 1048576"},
        {R"({"adapters": [{"chip": "FCX141", "layout": {"regions": [{"code": 7, "size": 16}]}}]})",
         "adapters[0].layout.regions: the layout needs a 0xFF region"},
        {R"({"faults": [{"kind": "busy"}]})", "test.json: faults[0]: a fault needs a \"command\" or an \"attribute\""},
        {R"({"faults": [{"command": 10, "kind": "melt"}]})", "faults[0].kind: expected status, errno, short, stop_after, busy, bitflip, lie or partial"},
        {R"({"etc": {"/tmp/x": ""}})", "test.json: etc./tmp/x: path must lie under /etc/"},
        // Numbers beyond any field, and files without an end, name their field too.
        {R"({"adapters": [{"chip": "FCX141", "functions": [{"ssvid": 1e999}]}]})",
         "test.json: adapters[0].functions[0].ssvid: number out of range"},
        {R"({"faults": [{}, {"bytes": -1e400}]})", "test.json: faults[1].bytes: number out of range"},
        {R"({"adapters": [{"chip": "FCX141", "flash": {"file": "/dev/zero"}}]})",
         "test.json: adapters[0].flash.file: /dev/zero: larger than 1048576 bytes"},
        {R"({"adapters": [{"functions": [{"vpd_file": "/dev/zero"}]}]})",
         "test.json: adapters[0].functions[0].vpd_file: /dev/zero: larger than"},
    };
    for (const Case &c : cases) {
        auto h = parse_host_json(c.json, "test.json");
        ASSERT_FALSE(h) << c.json;
        EXPECT_NE(h.error().status, 0);
        EXPECT_NE(h.error().message.find(c.expect), std::string::npos) << c.json << "\n  got: " << h.error().message;
    }
}

TEST(HostJson, FaultsNodeAndInstancesAreRead) {
    Host h = parse_ok(R"({
      "node": {"dev": "1:3", "stale": "1:5", "open_fails": true, "open_errno": "EACCES"},
      "instances": {"count": 4, "refuse_bind": [2, 3]},
      "etc": {"/etc/modprobe.conf": "options vxa2xxx Bind=1\n"},
      "faults": [{"adapter": "lab141", "command": "0x0A", "subcode": 7, "kind": "status", "status": 2, "times": 1},
                 {"attribute": "optrom_ctl", "operation": "write", "ctl": "3", "kind": "errno", "errno": "EIO"},
                 {"attribute": "optrom", "operation": "write", "kind": "stop_after", "bytes": 4096}]})");
    ASSERT_TRUE(h.node.stale);
    EXPECT_EQ(h.node.stale->second, 5u);
    EXPECT_TRUE(h.node.open_fails);
    EXPECT_EQ(h.node.open_errno, 13);
    EXPECT_EQ(h.instance_count(), 4);
    EXPECT_EQ(h.instances.refuse_bind, (std::vector<uint16_t>{2, 3}));
    EXPECT_EQ(h.etc_files.at("/etc/modprobe.conf"), "options vxa2xxx Bind=1\n");
    ASSERT_EQ(h.faults.size(), 3u);
    EXPECT_EQ(h.faults[0].command, 0x0A);
    EXPECT_EQ(h.faults[0].subcode, 7);
    EXPECT_EQ(h.faults[0].status, 2u);
    EXPECT_EQ(h.faults[0].times, 1);
    EXPECT_EQ(h.faults[1].op, FaultOp::write);
    EXPECT_EQ(h.faults[1].ctl, "3");
    EXPECT_EQ(h.faults[1].err, 5);
    EXPECT_EQ(h.faults[1].times, -1);
    EXPECT_EQ(h.faults[2].kind, FaultKind::stop_after);
    EXPECT_EQ(h.faults[2].bytes, 4096u);
}

TEST(LabHost, OneDriverGenerationWithFourPortsAndOlderFlash) {
    auto r = builtin_host();
    ASSERT_TRUE(r) << r.error().message;
    const Host &h = r.value();
    ASSERT_EQ(h.adapters.size(), 3u);
    for (const Adapter &a : h.adapters) EXPECT_EQ(a.transport, Transport::ioctl) << a.name;
    const Adapter &a160 = h.adapters[0];
    EXPECT_EQ(a160.chip, "FCX160");
    EXPECT_EQ(a160.functions.size(), 2u);
    EXPECT_EQ(a160.versions.bios.text(), "1.10");
    EXPECT_EQ(a160.versions.fcode.text(), "2.05");
    EXPECT_EQ(a160.versions.efi.text(), "1.07");
    EXPECT_EQ(a160.versions.firmware.text(), "8.02.01");
    EXPECT_EQ(h.adapters[1].chip, "FCX141");
    EXPECT_EQ(h.adapters[2].chip, "FCX123");
    EXPECT_FALSE(h.adapters[2].versions.fcode.present);
    EXPECT_EQ(h.adapters[2].nvram_size(), 256u);
    EXPECT_EQ(nvram_get(h.adapters[2].functions[0].nvram, NvramFormat::basic, kNvVarSsDevice), 0x1230u);
    EXPECT_EQ(h.instance_count(), 4);
    EXPECT_TRUE(h.registers_char_device());
}

TEST(HostModel, ADriverServingOnlyThroughSysfsHasNoCharacterDevice) {
    EXPECT_FALSE(parse_ok(R"({"adapters": [{"chip": "FCX160", "transport": "sysfs"}]})").registers_char_device());
    EXPECT_TRUE(parse_ok(R"({"adapters": [{"chip": "FCX160", "transport": "sysfs"}, {"chip": "FCX123"}]})")
                    .registers_char_device());
    EXPECT_TRUE(parse_ok(R"({"adapters": []})").registers_char_device());
    EXPECT_FALSE(parse_ok(R"({"driver": {"transport": "sysfs"}, "adapters": []})").registers_char_device());
    EXPECT_EQ(parse_ok(R"({"driver": {"attributes": "0x41"}})").driver.attributes, 0x41u);
}

TEST(AdapterBlocks, Fcx160FlashAndBlocksStayEqual) {
    Host h = parse_ok(R"({"adapters": [{"chip": "FCX160", "functions": [{}, {"pci": "0000:05:00.1"}]}]})");
    Adapter &a = h.adapters[0];
    auto region = [&](uint32_t code) {
        auto r = a.layout.find(code);
        return std::vector<uint8_t>(a.flash.begin() + r->beg, a.flash.begin() + r->beg + r->size);
    };
    EXPECT_EQ(region(0x15), a.functions[0].nvram);
    EXPECT_EQ(region(0x17), a.functions[1].nvram);
    EXPECT_EQ(region(0x16), a.functions[1].vpd);

    std::vector<uint8_t> nv(512, 0x42);
    ASSERT_TRUE(a.write_nvram(1, nv));
    EXPECT_EQ(region(0x17), nv);
    EXPECT_NE(region(0x15), nv);

    std::vector<uint8_t> vpd(512, 0x24);
    ASSERT_TRUE(a.write_flash(0x120000, vpd));  // region 0x14 written as flash
    EXPECT_EQ(a.functions[0].vpd, vpd);

    const auto before = a.flash;
    EXPECT_FALSE(a.write_flash(a.flash.size() - 4, std::vector<uint8_t>(8, 0)));
    EXPECT_FALSE(a.write_nvram(2, nv));
    EXPECT_FALSE(a.write_vpd(0, std::vector<uint8_t>(513, 0)));
    EXPECT_EQ(a.flash, before);
    EXPECT_TRUE(a.flash_range(a.flash.size(), 1).empty());
}

TEST(AdapterVersions, FollowWhatIsWrittenToFlash) {
    Host h = parse_ok(R"({"adapters": [{"chip": "FCX141", "flash": {"bios": "1.05", "fcode": null, "efi": "1.02", "firmware": "5.1.0"}}]})");
    Adapter &a = h.adapters[0];
    EXPECT_EQ(a.versions.bios.text(), "1.05");
    EXPECT_FALSE(a.versions.fcode.present);
    EXPECT_EQ(a.versions.efi.text(), "1.02");

    BootChainSpec bc;
    bc.bios = std::pair<uint8_t, uint8_t>(1, 8);
    auto boot = build_boot_chain(*find_chip("FCX141"), bc);
    ASSERT_TRUE(boot);
    ASSERT_TRUE(a.write_flash(0, boot.value()));
    EXPECT_EQ(a.versions.bios.text(), "1.08");
    EXPECT_FALSE(a.versions.efi.present);  // the new chain ends after the BIOS
    EXPECT_EQ(a.versions.firmware.text(), "5.01.00");

    FirmwareSpec fs;
    fs.family = "FCX14";
    fs.major = 5, fs.minor = 2, fs.sub = 0;
    fs.bad_checksum = true;  // a damaged firmware reports no version
    ASSERT_TRUE(a.write_flash(0x80000, build_firmware(fs).value()));
    EXPECT_FALSE(a.versions.firmware.present);
}

TEST(HostFiles, FlashAndBlocksComeFromFilesBesideTheDescription) {
    fwtest::TempDir dir("vxemu-model");
    FirmwareSpec fs;
    fs.family = "FCX14";
    fs.major = 6;
    BootChainSpec bc;
    bc.bios = std::pair<uint8_t, uint8_t>(2, 1);
    auto mb = build_multiboot(build_boot_chain(*find_chip("FCX141"), bc).value(), build_firmware(fs).value());
    ASSERT_TRUE(mb);
    fwtest::write_file(dir / "img.bin", std::string(mb.value().begin(), mb.value().end()));
    fwtest::write_file(dir / "nv.bin", std::string(512, '\x07'));
    fwtest::write_file(dir / "host.json",
                       R"({"adapters": [{"chip": "FCX141", "flash": {"file": "img.bin"}, "functions": [{"nvram_file": "nv.bin"}]}]})");
    auto h = load_host_file(dir / "host.json");
    ASSERT_TRUE(h) << h.error().message;
    const Adapter &a = h.value().adapters[0];
    EXPECT_EQ(a.versions.bios.text(), "2.01");
    EXPECT_EQ(a.versions.firmware.text(), "6.00.00");
    EXPECT_EQ(a.functions[0].nvram, std::vector<uint8_t>(512, 7));

    fwtest::write_file(dir / "nv.bin", std::string(256, '\x07'));
    auto bad = load_host_file(dir / "host.json");
    ASSERT_FALSE(bad);
    EXPECT_NE(bad.error().message.find("nvram_file: expected 512 bytes, found 256"), std::string::npos) << bad.error().message;
    EXPECT_FALSE(load_host_file(dir / "absent.json"));
}

TEST(State, TheNextBootRunsTheFirmwareTheFlashHolds) {
    fwtest::TempDir dir("vxemu-state");
    const std::string desc = R"({"adapters": [{"name": "a", "chip": "FCX160", "flash": {"firmware": "8.2.1"}},
                                              {"name": "b", "chip": "FCX160", "firmware_version": "8.00.00-test",
                                               "flash": {"firmware": "8.2.1"}}]})";
    Host first = parse_ok(desc);
    EXPECT_EQ(first.adapters[0].firmware_version, "8.02.01");
    FirmwareSpec fs;
    fs.family = "FCX16";
    fs.major = 8, fs.minor = 5, fs.sub = 3;
    for (Adapter &a : first.adapters) ASSERT_TRUE(a.write_flash(0x80000, build_firmware(fs).value()));
    // Still running what it booted with until the next start.
    EXPECT_EQ(first.adapters[0].firmware_version, "8.02.01");
    ASSERT_TRUE(save_state(first, dir.path()));

    Host second = parse_ok(desc);
    ASSERT_TRUE(load_state(second, dir.path()));
    EXPECT_EQ(second.adapters[0].firmware_version, "8.05.03");
    EXPECT_EQ(second.adapters[1].firmware_version, "8.00.00-test") << "a version the description fixes stays";
}

TEST(State, SecondRunBootsFromWhatTheFirstWrote) {
    fwtest::TempDir dir("vxemu-state");
    const std::string desc = R"({"adapters": [{"name": "a", "chip": "FCX160", "functions": [{}, {"pci": "0000:05:00.1"}]},
                                              {"name": "b", "chip": "FCX123"}]})";
    Host first = parse_ok(desc);
    BootChainSpec bc;
    bc.bios = std::pair<uint8_t, uint8_t>(3, 4);
    ASSERT_TRUE(first.adapters[0].write_flash(0, build_boot_chain(*find_chip("FCX160"), bc).value()));
    ASSERT_TRUE(first.adapters[0].write_nvram(1, std::vector<uint8_t>(512, 0x31)));
    ASSERT_TRUE(first.adapters[1].write_vpd(0, std::vector<uint8_t>(512, 0x32)));
    ASSERT_TRUE(save_state(first, dir.path()));
    EXPECT_TRUE(fwtest::file_exists(dir / "adapters/a/flash.bin"));
    EXPECT_TRUE(fwtest::file_exists(dir / "adapters/b/vpd.0.bin"));

    Host second = parse_ok(desc);
    EXPECT_EQ(second.adapters[0].versions.bios.text(), "1.00");
    ASSERT_TRUE(load_state(second, dir.path()));
    EXPECT_EQ(second.adapters[0].flash, first.adapters[0].flash);
    EXPECT_EQ(second.adapters[0].versions.bios.text(), "3.04");
    EXPECT_EQ(second.adapters[0].functions[1].nvram, std::vector<uint8_t>(512, 0x31));
    EXPECT_EQ(second.adapters[1].functions[0].vpd, std::vector<uint8_t>(512, 0x32));

    Host fresh = parse_ok(desc);  // an empty state directory changes nothing
    fwtest::TempDir empty("vxemu-state");
    ASSERT_TRUE(load_state(fresh, empty.path()));
    EXPECT_EQ(fresh.adapters[0].versions.bios.text(), "1.00");

    fwtest::write_file(dir / "adapters/b/flash.bin", "short");
    Status st = load_state(fresh, dir.path());
    ASSERT_FALSE(st);
    EXPECT_NE(st.error().message.find("flash.bin: expected 1048576 bytes, found 5"), std::string::npos) << st.error().message;
    EXPECT_EQ(fresh.adapters[0].versions.bios.text(), "1.00");  // nothing applied from a bad state
}

TEST(State, FilesAreNeverFollowedThroughLinksAndReadWithinTheirSize) {
    fwtest::TempDir dir("vxemu-state");
    const std::string desc = R"({"adapters": [{"name": "b", "chip": "FCX123"}]})";
    Host host = parse_ok(desc);
    std::filesystem::create_directories(dir / "adapters/b");
    // Links planted where the state goes: replaced, the files behind them untouched.
    fwtest::write_file(dir / "victim", "keep");
    std::filesystem::create_symlink("../../victim", dir / "adapters/b/flash.bin");
    std::filesystem::create_symlink("../../victim", dir / "adapters/b/flash.bin.tmp");
    ASSERT_TRUE(save_state(host, dir.path()));
    EXPECT_EQ(fwtest::read_file(dir / "victim"), "keep");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "adapters/b/flash.bin"));
    EXPECT_EQ(std::filesystem::file_size(dir / "adapters/b/flash.bin"), host.adapters[0].flash.size());
    for (const auto &e : std::filesystem::directory_iterator(dir / "adapters/b")) {
        const std::string name = e.path().filename().string();
        EXPECT_TRUE(name == "flash.bin" || name == "flash.bin.tmp" || name.ends_with(".0.bin")) << name;
    }

    // A link or a device in the state is an error naming the file, and a
    // huge file is refused by its size, not read.
    std::filesystem::remove(dir / "adapters/b/flash.bin");
    std::filesystem::create_symlink("/dev/zero", dir / "adapters/b/flash.bin");
    Status st = load_state(host, dir.path());
    ASSERT_FALSE(st);
    EXPECT_NE(st.error().message.find("adapters/b/flash.bin: cannot open for reading"), std::string::npos)
        << st.error().message;
    std::filesystem::remove(dir / "adapters/b/flash.bin");
    fwtest::write_file(dir / "adapters/b/flash.bin", "");
    std::filesystem::resize_file(dir / "adapters/b/flash.bin", uintmax_t{1} << 40);  // sparse
    st = load_state(host, dir.path());
    ASSERT_FALSE(st);
    EXPECT_NE(st.error().message.find("flash.bin: expected 1048576 bytes, found 1099511627776"), std::string::npos)
        << st.error().message;
}

// SPDX-License-Identifier: MIT
// The power-cut sweep: the default update of a dual-port 8 Gb adapter and of
// an older chip on the standard path, cut at every store it makes into an
// adapter, then run again. After every cut point the second run ends with
// status 0 and leaves the adapters exactly as an update that was never cut,
// with every byte of their own data (parameter block, "SSVID" bytes, NVRAM,
// VPD and its serial number) as it was before.
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "process.h"

namespace fs = std::filesystem;

namespace {

// The dual-port adapter on the transport under test; the older chip beside it
// on driver requests only (a driver serves all its adapters one way, and the
// whole-image write of the older chips has no attribute path).
bool with_older_chip(const std::string &transport) { return transport == "ioctl"; }

std::string host_json(const std::string &transport) {
    std::string j = R"({ "driver": { "name": "vxa2xxx", "version": "8.7.3.0", "transport": ")" + transport + R"(" },
  "adapters": [
    { "name": "dual160", "chip": "FCX160", "model": "VX2162", "serial": "VXA4200160",
      "flash": { "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1" },
      "functions": [
        { "pci": "0000:05:00.0", "host": 5, "ssvid": "0x1DE5", "ssdid": "0x0162", "wwnn": "2000001de5160000",
          "wwpn": "2100001de5160000", "port_id": "0x010200" },
        { "pci": "0000:05:00.1", "host": 6, "ssvid": "0x1DE5", "ssdid": "0x0162", "wwnn": "2000001de5160000",
          "wwpn": "2100001de5160001", "port_id": "0x010300" } ] })";
    if (with_older_chip(transport))
        j += R"(,
    { "name": "old120", "chip": "FCX120", "model": "VX2120", "serial": "VXA4200120",
      "flash": { "bios": "1.20", "fcode": null, "efi": null },
      "functions": [
        { "pci": "0000:09:00.0", "host": 9, "ssvid": "0x1DE5", "ssdid": "0x1200", "wwnn": "2000001de5120100",
          "wwpn": "2100001de5120100", "port_id": "0x010600" } ] })";
    return j + " ] }\n";
}

const char kSupported[] =
    "# ssdid, ssvid, chip, description, supported\n"
    "0x0162,0x1DE5,FCX160,VX2162 Dual Port 8Gb Fibre Channel HBA,TRUE\n"
    "0x1200,0x1DE5,FCX120,VX2120 Single Port 2Gb Fibre Channel HBA,TRUE\n";
const char kRows[] =
    "# ssdid, ssvid, model, BIOS, EFI, FCode, firmware, image\n"
    "0x0162,0x1DE5,VX2162,1.12,1.08,2.06,8.3.0,dual160.bin\n"
    "0x1200,0x1DE5,VX2120,1.30,0.00,0.00,0.0.0,old120.bin\n";

// The "MEFCX " parameter block of the BIOS at `at`: 2 bytes into the marker.
std::string param_block(const std::string &flash, size_t at, size_t size) {
    const size_t marker = flash.find("MEFCX ", at);
    return marker == std::string::npos ? std::string() : flash.substr(marker + 2, size);
}

class PowerCutSweep : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override {
        mkimage({"multiboot", "--out", dir_ / "dual160.bin", "--chip", "FCX160", "--bios", "1.12", "--fcode", "2.06",
                 "--efi", "1.08", "--firmware", "8.3.0", "--model", "GENERIC"});
        mkimage({"multiboot", "--out", dir_ / "old120.bin", "--chip", "FCX120", "--bios", "1.30", "--no-common",
                 "--size", "0x20000"});
        fwtest::write_file(dir_ / "adapters.properties", kSupported);
        fwtest::write_file(dir_ / "flashwright.properties", kRows);
        fwtest::write_file(dir_ / "host.json", host_json(GetParam()));
    }

    void mkimage(std::vector<std::string> args) {
        args.insert(args.begin(), {fwtest::bin_path("vxemu"), "mkimage"});
        const auto r = fwtest::run(args);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    fwtest::RunResult run(const std::string &state, const std::vector<std::string> &args, unsigned cut = 0) {
        std::vector<std::string> argv{fwtest::bin_path("vxemu"), "run", "--host", dir_ / "host.json", "--state",
                                      dir_ / state};
        if (cut != 0) argv.insert(argv.end(), {"--power-cut", std::to_string(cut)});
        argv.push_back("--");
        argv.push_back(fwtest::bin_path("flashwright"));
        argv.insert(argv.end(), args.begin(), args.end());
        fwtest::RunOptions opts;
        opts.cwd = dir_.path();
        opts.unset_env = {"VX_FCAPI_DEBUG"};
        opts.timeout_seconds = 120;
        return fwtest::run(argv, opts);
    }

    std::string file(const std::string &state, const std::string &relative) {
        return fwtest::read_file(dir_ / (state + "/adapters/" + relative));
    }

    fwtest::TempDir dir_{"fwsweep"};
};

TEST_P(PowerCutSweep, EveryCutPointIsFinishedByTheNextRunWithTheAdaptersOwnData) {
    const bool older = with_older_chip(GetParam());
    std::vector<std::string> adapterFiles = {"dual160/flash.bin", "dual160/nvram.0.bin", "dual160/nvram.1.bin",
                                             "dual160/vpd.0.bin", "dual160/vpd.1.bin"};
    std::vector<std::string> ownFiles = {"dual160/nvram.0.bin", "dual160/nvram.1.bin"};
    if (older) {
        adapterFiles.insert(adapterFiles.end(), {"old120/flash.bin", "old120/nvram.0.bin", "old120/vpd.0.bin"});
        ownFiles.insert(ownFiles.end(), {"old120/nvram.0.bin", "old120/vpd.0.bin"});
    }
    ASSERT_EQ(run("original", {"/i"}).status, 0);
    const std::string flash160 = file("original", "dual160/flash.bin");
    const std::string flash120 = older ? file("original", "old120/flash.bin") : std::string();
    ASSERT_FALSE(param_block(flash160, 0, 512).empty());
    if (older) {
        ASSERT_FALSE(param_block(flash120, 0, 256).empty());
    }

    // The update never cut: what every cut point must end in.
    fs::copy(dir_ / "original", dir_ / "clean", fs::copy_options::recursive);
    const auto clean = run("clean", {});
    ASSERT_EQ(clean.status, 0) << clean.out << clean.err;

    unsigned cuts = 0;
    for (unsigned n = 1; n <= 64; ++n) {
        SCOPED_TRACE("power cut at store " + std::to_string(n));
        const std::string state = "cut" + std::to_string(n);
        fs::copy(dir_ / "original", dir_ / state, fs::copy_options::recursive);
        const auto first = run(state, {}, n);
        const std::string log = fwtest::read_file(dir_ / (state + "/traffic.jsonl"));
        if (log.find("\"fault\":\"power cut at store " + std::to_string(n) + " ") == std::string::npos) {
            // The update made fewer stores: the sweep is complete.
            EXPECT_EQ(first.status, 0) << first.out << first.err;
            break;
        }
        ++cuts;
        EXPECT_EQ(first.status, 137) << first.out << first.err;
        const auto second = run(state, {});
        EXPECT_EQ(second.status, 0) << second.out << second.err;
        EXPECT_EQ(second.err, "");
        for (const std::string &f : adapterFiles) EXPECT_TRUE(file(state, f) == file("clean", f)) << f;
        const std::string after160 = file(state, "dual160/flash.bin");
        EXPECT_EQ(param_block(after160, 0, 512), param_block(flash160, 0, 512));
        EXPECT_EQ(param_block(after160, 0x40000, 512), param_block(flash160, 0, 512));
        EXPECT_EQ(after160.substr(32, 2), flash160.substr(32, 2));
        if (older) {
            const std::string after120 = file(state, "old120/flash.bin");
            EXPECT_EQ(param_block(after120, 0, 256), param_block(flash120, 0, 256));
            EXPECT_EQ(after120.substr(32, 2), flash120.substr(32, 2));
        }
        for (const std::string &f : ownFiles) EXPECT_TRUE(file(state, f) == file("original", f)) << f;
        EXPECT_NE(file(state, "dual160/vpd.0.bin").find("VXA4200160"), std::string::npos);
        const std::string journal = dir_ / (state + "/varlib-upper/flashwright");
        EXPECT_TRUE(!fs::exists(journal) || fs::is_empty(journal)) << "journal left behind";
        std::cout << "cut " << n << ": first run " << first.status << ", second run " << second.status << "\n";
        fs::remove_all(dir_ / state);
    }
    // Boot code and firmware of the dual-port adapter and its VPD after
    // each, and the whole image of the older chip.
    EXPECT_GE(cuts, older ? 5u : 4u);
    std::cout << GetParam() << ": " << cuts << " cut points swept\n";
}

TEST_P(PowerCutSweep, NoByteIsWrittenWhenTheJournalCannotBeKeptSafe) {
    ASSERT_EQ(run("state", {"/i"}).status, 0);
    const std::string flash160 = file("state", "dual160/flash.bin");
    // A journal directory that another user could write.
    fs::create_directories(dir_ / "state/varlib-upper/flashwright");
    fs::permissions(dir_ / "state/varlib-upper/flashwright", fs::perms::all);
    const auto r = run("state", {});
    EXPECT_NE(r.err.find("Error: Unable to keep the adapter data of HBA 0 safe during the update "
                         "(/var/lib/flashwright: not root's alone (owner root, writable by root only)) !\r\n"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(r.status, 3) << r.out;
    const std::string log = fwtest::read_file(dir_ / "state/traffic.jsonl");
    EXPECT_EQ(log.find("\"command\":10,"), std::string::npos);
    EXPECT_EQ(log.find("\"text\":\"3\""), std::string::npos);
    EXPECT_TRUE(file("state", "dual160/flash.bin") == flash160);
}

INSTANTIATE_TEST_SUITE_P(Transports, PowerCutSweep, testing::Values("ioctl", "sysfs"));

}  // namespace

// SPDX-License-Identifier: MIT
// The update modes of flashwright on emulated hosts: which adapters are
// written, through which port, with which messages and status, and what the
// adapters hold afterwards (the image patched for them, their own data kept).
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

struct Port {
    std::string pci, wwnn, wwpn, portId;
};

struct Card {
    std::string name, chip, model, serial, ssvid, ssdid, flash;
    std::vector<Port> ports;
};

std::string host_json(const std::vector<Card> &cards, const std::string &top = "") {
    std::ostringstream j;
    j << "{ \"driver\": { \"name\": \"vxa2xxx\", \"version\": \"8.7.3.0\", \"transport\": \"ioctl\" },\n";
    if (!top.empty()) j << top << ",\n";
    j << "  \"adapters\": [";
    int host = 5;
    for (size_t c = 0; c < cards.size(); ++c) {
        const Card &a = cards[c];
        j << (c ? ",\n" : "\n") << "    { \"name\": \"" << a.name << "\", \"chip\": \"" << a.chip << "\", \"model\": \""
          << a.model << "\"" << (a.serial.empty() ? "" : ", \"serial\": \"" + a.serial + "\"")
          << ", \"flash\": " << a.flash << ", \"functions\": [";
        for (size_t p = 0; p < a.ports.size(); ++p) {
            const Port &f = a.ports[p];
            j << (p ? ", " : " ") << "{ \"pci\": \"" << f.pci << "\", \"host\": " << host++ << ", \"ssvid\": \""
              << a.ssvid << "\", \"ssdid\": \"" << a.ssdid << "\", \"wwnn\": \"" << f.wwnn << "\", \"wwpn\": \""
              << f.wwpn << "\", \"port_id\": \"" << f.portId << "\" }";
        }
        j << " ] }";
    }
    j << "\n  ]\n}\n";
    return j.str();
}

const Card kCard160{"lab160", "FCX160", "VX2162", "VXA4200160", "0x1DE5", "0x0162",
                    R"({ "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1" })",
                    {{"0000:05:00.0", "2000001de5160000", "2100001de5160000", "0x010200"},
                     {"0000:05:00.1", "2000001de5160000", "2100001de5160001", "0x010300"}}};
const Card kCard141{"lab141", "FCX141", "VX2141", "VXA4200141", "0x1E0F", "0x1410",
                    R"({ "bios": "1.05", "fcode": "1.20", "efi": "1.02", "firmware": "5.1.0" })",
                    {{"0000:07:00.0", "2000001de5140000", "2100001de5140000", "0x0104e8"}}};
const Card kCard123{"lab123", "FCX123", "VX2123", "", "0x1DE5", "0x1230",
                    R"({ "bios": "1.60", "fcode": null, "efi": null, "firmware": "3.3.20" })",
                    {{"0000:08:00.0", "2000001de5120000", "2100001de5120000", "0x010500"}}};
const Card kCard120{"old120", "FCX120", "VX2120", "VXA4200120", "0x1DE5", "0x1200",
                    R"({ "bios": "1.20", "fcode": null, "efi": null })",
                    {{"0000:09:00.0", "2000001de5120100", "2100001de5120100", "0x010600"}}};

const std::string kSupported =
    "# ssdid, ssvid, chip, description, supported\n"
    "0x0162,0x1DE5,FCX160,VX2162 Dual Port 8Gb Fibre Channel HBA,TRUE\n"
    "0x1410,0x1E0F,FCX141,VX2141 Single Port 4Gb Fibre Channel HBA,TRUE\n"
    "0x1230,0x1DE5,FCX123,VX2123 Single Port 2Gb Fibre Channel HBA,TRUE\n"
    "0x1200,0x1DE5,FCX120,VX2120 Single Port 2Gb Fibre Channel HBA,TRUE\n";

const std::string kRows =
    "# ssdid, ssvid, model, BIOS, EFI, FCode, firmware, image\n"
    "0x0162,0x1DE5,VX2162,1.12,1.08,2.06,8.3.0,lab160.bin\n"
    "0x1410,0x1E0F,VX2141,1.08,1.03,1.21,5.2.0,lab141.bin\n"
    "0x1230,0x1DE5,VX2123,1.62,0.00,0.00,3.3.20,lab123.bin\n"
    "0x1200,0x1DE5,VX2120,1.30,0.00,0.00,0.0.0,old120.bin\n";

std::string lines(const std::vector<std::string> &texts) {
    std::string out;
    for (const std::string &t : texts) out += t + "\r\n";
    return out;
}

int count(const std::string &text, const std::string &needle) {
    int n = 0;
    for (auto pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
    return n;
}

uint16_t le16(const std::string &b, size_t at) {
    return static_cast<uint16_t>(static_cast<uint8_t>(b[at]) | (static_cast<uint8_t>(b[at + 1]) << 8));
}

class Update : public testing::Test {
protected:
    void SetUp() override {
        mkimage({"multiboot", "--out", dir_ / "lab160.bin", "--chip", "FCX160", "--bios", "1.12", "--fcode", "2.06",
                 "--efi", "1.08", "--firmware", "8.3.0", "--model", "GENERIC"});
        mkimage({"multiboot", "--out", dir_ / "lab141.bin", "--chip", "FCX141", "--bios", "1.08", "--fcode", "1.21",
                 "--efi", "1.03", "--firmware", "5.2.0", "--model", "GENERIC"});
        mkimage({"multiboot", "--out", dir_ / "lab123.bin", "--chip", "FCX123", "--bios", "1.62", "--firmware",
                 "3.3.20", "--model", "GENERIC"});
        mkimage({"multiboot", "--out", dir_ / "old120.bin", "--chip", "FCX120", "--bios", "1.30", "--no-common",
                 "--size", "0x20000"});
        fwtest::write_file(dir_ / "adapters.properties", kSupported);
        fwtest::write_file(dir_ / "flashwright.properties", kRows);
    }

    void mkimage(std::vector<std::string> args) {
        args.insert(args.begin(), {fwtest::bin_path("vxemu"), "mkimage"});
        const auto r = fwtest::run(args);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    fwtest::RunResult run(const std::string &host, const std::vector<std::string> &args) {
        fwtest::write_file(dir_ / "host.json", host);
        std::vector<std::string> command{fwtest::bin_path("flashwright")};
        command.insert(command.end(), args.begin(), args.end());
        return fwtest::run_in_vxemu(dir_, command);
    }

    std::string state(const std::string &adapter, const std::string &file) {
        return fwtest::read_file(dir_ / ("state/adapters/" + adapter + "/" + file));
    }
    std::string traffic() { return fwtest::read_file(dir_ / "state/traffic.jsonl"); }
    int flash_writes(const std::string &adapter) {
        return count(traffic(), "\"adapter\":\"" + adapter + "\",\"function\":0,\"command\":10,") +
               count(traffic(), "\"adapter\":\"" + adapter + "\",\"function\":1,\"command\":10,");
    }

    fwtest::TempDir dir_{"fwupdate"};
};

// The patched BIOS at `at` of a flash: model, hardware type, chip code,
// subsystem vendor ID, device ID, version and a checksum that holds.
void expect_patched_bios(const std::string &flash, size_t at, const std::string &model, const std::string &hw,
                         uint8_t chipCode, uint16_t ssvid, uint16_t deviceId, uint8_t major, uint8_t minor) {
    std::string field = model + " ";
    field.resize(19, '\0');
    EXPECT_EQ(flash.substr(at + 0x44, 19), field);
    std::string hwField = hw;
    hwField.resize(4, '\0');
    EXPECT_EQ(flash.substr(at + 0x09, 4), hwField);
    EXPECT_EQ(static_cast<uint8_t>(flash[at + 0x14]), chipCode);
    EXPECT_EQ(le16(flash, at + 0x20), ssvid);
    EXPECT_EQ(le16(flash, at + 0x2A), deviceId);
    const size_t pcir = at + le16(flash, at + 0x18);
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x13]), major);
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x12]), minor);
    const size_t size = static_cast<uint8_t>(flash[at + 2]) * 512u;
    uint8_t sum = 0;
    for (size_t i = 0; i + 2 < size; ++i) sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(flash[at + i]));
    EXPECT_EQ(static_cast<uint8_t>(flash[at + size - 1]), static_cast<uint8_t>(0x100 - sum));
}

// The "MEFCX " parameter block of the BIOS at `at`: 2 bytes into the marker.
std::string param_block(const std::string &flash, size_t at, size_t size) {
    const size_t marker = flash.find("MEFCX ", at);
    return marker == std::string::npos ? std::string() : flash.substr(marker + 2, size);
}

}  // namespace

namespace {

const std::string kLab = host_json({kCard160, kCard141, kCard123});

// Everything the adapters hold, to compare before and after.
struct Snapshot {
    std::string flash160, flash141, flash123, nvram160a, nvram160b, nvram141, nvram123, vpd141, vpd123;
};

}  // namespace

TEST_F(Update, LabHostIsBroughtToTheFileLevelOnceKeepingItsOwnData) {
    // A listing first, so the state directory holds what the adapters carried.
    ASSERT_EQ(run(kLab, {"/i"}).status, 0);
    Snapshot before{state("lab160", "flash.bin"),   state("lab141", "flash.bin"),   state("lab123", "flash.bin"),
                    state("lab160", "nvram.0.bin"), state("lab160", "nvram.1.bin"), state("lab141", "nvram.0.bin"),
                    state("lab123", "nvram.0.bin"), state("lab141", "vpd.0.bin"),   state("lab123", "vpd.0.bin")};

    auto r = run(kLab, {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 3 -   VX2123. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 3.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updating Flash on HBA 2 -   VX2141. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 2.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updating Flash on HBA port(s) -   VX2162. Please wait...",
                            "Info: Option ROM update complete. Changes have been saved to both ports of this HBA.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updates completed successfully (4 out of 4)."}));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);

    // The dual-port adapter is written once, through its first port.
    EXPECT_EQ(count(traffic(), "\"adapter\":\"lab160\",\"function\":0,\"command\":10,"), 2);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"lab160\",\"function\":1,\"command\":10,"), 0);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"lab141\",\"function\":0,\"command\":10,\"subcode\":7,"), 1);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"lab141\",\"function\":0,\"command\":10,\"subcode\":1,"), 1);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"lab123\",\"function\":0,\"command\":10,\"subcode\":5,"), 1);
    EXPECT_EQ(count(traffic(), "violation"), 0);

    // Each flash holds the image patched for its adapter, with the adapter's
    // own parameter block; the 8 Gb chip keeps its boot code twice.
    const std::string img160 = fwtest::read_file(dir_ / "lab160.bin");
    const std::string img141 = fwtest::read_file(dir_ / "lab141.bin");
    const std::string flash160 = state("lab160", "flash.bin");
    const std::string flash141 = state("lab141", "flash.bin");
    const std::string flash123 = state("lab123", "flash.bin");
    for (size_t at : {size_t{0}, size_t{0x40000}}) {
        SCOPED_TRACE(at);
        expect_patched_bios(flash160, at, "VX2162", "160", 0x2F, 0x1DE5, 0x1600, 1, 12);
        EXPECT_EQ(param_block(flash160, at, 512), param_block(before.flash160, at, 512));
    }
    expect_patched_bios(flash141, 0, "VX2141", "141", 0x25, 0x1E0F, 0x1410, 1, 8);
    EXPECT_EQ(param_block(flash141, 0, 512), param_block(before.flash141, 0, 512));
    expect_patched_bios(flash123, 0, "VX2123", "123", 0x1D, 0x1DE5, 0x1230, 1, 62);
    EXPECT_EQ(param_block(flash123, 0, 256), param_block(before.flash123, 0, 256));
    EXPECT_FALSE(param_block(flash123, 0, 256).empty());
    // FCode and EFI carry the chip's device ID; the firmware is the file's.
    const size_t fcode141 = static_cast<uint8_t>(img141[2]) * 512u;
    EXPECT_EQ(le16(flash141, fcode141 + 0x22), 0x1410);
    EXPECT_EQ(flash141.substr(0x80000, 0x80000), img141.substr(0x80000, 0x80000));
    EXPECT_EQ(flash160.substr(0x80000, 0x80000), img160.substr(0x80000, 0x80000));
    // NVRAM and VPD are the adapters' own.
    EXPECT_EQ(state("lab160", "nvram.0.bin"), before.nvram160a);
    EXPECT_EQ(state("lab160", "nvram.1.bin"), before.nvram160b);
    EXPECT_EQ(state("lab141", "nvram.0.bin"), before.nvram141);
    EXPECT_EQ(state("lab123", "nvram.0.bin"), before.nvram123);
    EXPECT_EQ(state("lab123", "vpd.0.bin"), before.vpd123);
    const std::string vpd141 = state("lab141", "vpd.0.bin");
    EXPECT_EQ(vpd141.size(), before.vpd141.size());
    EXPECT_EQ(vpd141.find("VXA4200141"), before.vpd141.find("VXA4200141"));

    // Both ports of the dual-port adapter report the new level.
    r = run(kLab, {"/i"});
    EXPECT_EQ(count(r.out, "BIOS Version\t\t: 1.12\r\n"), 2);
    EXPECT_EQ(count(r.out, "Flash Firmware Version  : 8.03.00\r\n"), 2);
    EXPECT_EQ(count(r.out, "BIOS Version\t\t: 1.08\r\n"), 1);
    EXPECT_EQ(count(r.out, "BIOS Version\t\t: 1.62\r\n"), 1);

    // A second run finds nothing to do and writes nothing.
    r = run(kLab, {});
    EXPECT_EQ(r.out, lines({"Info: HBA 3 - VX2123 does not need to be upgraded.",
                            "Info: HBA 2 - VX2141 does not need to be upgraded.",
                            "Info: HBA 0 - VX2162 does not need to be upgraded.",
                            "Info: HBA 1 - VX2162 does not need to be upgraded.", "Info: No updates required."}));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(count(traffic(), "\"command\":10,"), 0);
}

TEST_F(Update, ModesAndSilentRuns) {
    // Silent write: nothing printed, every port counted.
    auto r = run(kLab, {"-s", "-f"});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(traffic(), "\"command\":10,"), 5);
    // At revision: the default and the downgrade leave everything, silently too.
    r = run(kLab, {"/S", "/g"});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, 1);
    r = run(kLab, {"-G"});
    EXPECT_EQ(r.out, lines({"Info: HBA 3 - VX2123 does not need to be upgraded.",
                            "Info: HBA 2 - VX2141 does not need to be upgraded.",
                            "Info: HBA 0 - VX2162 does not need to be upgraded.",
                            "Info: HBA 1 - VX2162 does not need to be upgraded.", "Info: No updates required."}));
    EXPECT_EQ(r.status, 1);
    // The rewrite writes what is at revision.
    r = run(kLab, {"/e"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(r.out, "Please wait..."), 3);
    EXPECT_NE(r.out.find("Info: Updates completed successfully (4 out of 4).\r\n"), std::string::npos);
    r = run(kLab, {"/e", "/s"});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(traffic(), "\"command\":10,"), 5);
}

TEST_F(Update, DowngradeAndTheStandardFirmwareRule) {
    // BIOS above the row: only the downgrade writes it back.
    Card newer = kCard141;
    newer.flash = R"({ "bios": "1.09", "fcode": "1.21", "efi": "1.03", "firmware": "5.2.0" })";
    auto r = run(host_json({newer}), {});
    EXPECT_EQ(r.out, lines({"Info: HBA 0 - VX2141 does not need to be upgraded.", "Info: No updates required."}));
    EXPECT_EQ(r.status, 1);
    r = run(host_json({newer}), {"/g"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 0 -   VX2141. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 0.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updates completed successfully (1 out of 1)."}));
    EXPECT_EQ(static_cast<uint8_t>(state("lab141", "flash.bin")[le16(state("lab141", "flash.bin"), 0x18) + 0x12]), 8);

    // Under the default mode a 4 Gb adapter's firmware of another major is
    // judged by its minor alone: 5.02.00 against a row of 4.03.00 is written.
    fwtest::write_file(dir_ / "flashwright.properties", "0x1410,0x1E0F,VX2141,1.08,1.03,1.21,4.3.0,lab141.bin\n");
    r = run(host_json({newer}), {});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Updates completed successfully (1 out of 1)."), std::string::npos);
    fwtest::write_file(dir_ / "flashwright.properties", "0x1410,0x1E0F,VX2141,1.08,1.03,1.21,6.1.0,lab141.bin\n");
    r = run(host_json({newer}), {});
    EXPECT_EQ(r.status, 1) << "5.02.00 against 6.01.00: the minors decide";
}

TEST_F(Update, OlderChipTakesTheStandardBiosPath) {
    const std::string host = host_json({kCard120});
    ASSERT_EQ(run(host, {"/i"}).status, 0);
    const std::string before = state("old120", "flash.bin");
    auto r = run(host, {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 0 -   VX2120. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 0.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updates completed successfully (1 out of 1)."}));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    // One whole-image write through region 0; the standard image is written
    // as it is, apart from the adapter's parameter block.
    EXPECT_EQ(count(traffic(), "\"command\":10,\"subcode\":0,"), 1);
    const std::string flash = state("old120", "flash.bin");
    const size_t pcir = le16(flash, 0x18);
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x13]), 1);
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x12]), 30);
    EXPECT_EQ(flash.substr(0x09, 4), std::string("120\0", 4));
    EXPECT_EQ(param_block(flash, 0, 256), param_block(before, 0, 256));
    EXPECT_EQ(state("old120", "nvram.0.bin").size(), 256u);

    r = run(host, {});
    EXPECT_EQ(r.out, lines({"Info: HBA 0 - VX2120 does not need to be upgraded.", "Info: No updates required."}));
    EXPECT_EQ(r.status, 1);

    // A standard image of another chip is refused and nothing is written.
    mkimage({"multiboot", "--out", dir_ / "old120.bin", "--chip", "FCX122", "--bios", "1.30", "--no-common", "--size",
             "0x20000"});
    r = run(host, {"/f"});
    EXPECT_EQ(r.out, lines({"Warning: Unable to update all HBAs (0 out of 1) !"}));
    EXPECT_EQ(r.err, lines({"Error: Incorrect flash file for HBA 0 (Invalid SSDID/SSVID)!"}));
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(state("old120", "flash.bin"), flash);
}

TEST_F(Update, AdaptersWithoutRowOrApprovalAreLeftAlone) {
    fwtest::write_file(dir_ / "flashwright.properties",
                       "0x0162,0x1DE5,VX2162,1.12,1.08,2.06,8.3.0,lab160.bin\n"
                       "0x1410,0x1E0F,VX2141,1.08,1.03,1.21,5.2.0,lab141.bin\n");
    fwtest::write_file(dir_ / "adapters.properties",
                       "0x0162,0x1DE5,FCX160,VX2162 Dual Port 8Gb Fibre Channel HBA,FALSE\n"
                       "0x1410,0x1E0F,FCX141,VX2141 Single Port 4Gb Fibre Channel HBA,TRUE\n"
                       "0x1230,0x1DE5,FCX123,VX2123 Single Port 2Gb Fibre Channel HBA,TRUE\n");
    ASSERT_EQ(run(kLab, {"/i"}).status, 0);
    const std::string flash160 = state("lab160", "flash.bin");
    const std::string flash123 = state("lab123", "flash.bin");
    const auto r = run(kLab, {});
    EXPECT_EQ(r.out, lines({"Warning: Ignoring HBA 3 - VX2123..., no entry found in file !",
                            "Info: Updating Flash on HBA 2 -   VX2141. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 2.\n"
                            "You must reboot in order for changes to take effect.",
                            "Warning: Unable to update all HBAs (1 out of 3) !"}));
    EXPECT_EQ(r.err, lines({"Error: Flash update is not supported on selected adapter (HBA 0) !",
                            "Error: Flash update is not supported on selected adapter (HBA 1) !"}));
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(state("lab160", "flash.bin"), flash160);
    EXPECT_EQ(state("lab123", "flash.bin"), flash123);
}

TEST_F(Update, OneOfTwoFails) {
    fwtest::write_file(dir_ / "lab123.bin", "not an image");
    const auto r = run(host_json({kCard141, kCard123}), {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 0 -   VX2141. Please wait...",
                            "Info: Flash update complete. Changes have been saved to HBA 0.\n"
                            "You must reboot in order for changes to take effect.",
                            "Warning: Unable to update all HBAs (1 out of 2) !"}));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 3);
}

struct BadImage {
    const char *name;
    std::vector<std::string> boot;  // optrom images for --boot (empty: multiboot of FCX141)
    std::vector<std::string> multiboot;
    std::string err;
};

void PrintTo(const BadImage &c, std::ostream *os) { *os << c.name; }

class UpdateRefusesImage : public Update, public testing::WithParamInterface<BadImage> {};

TEST_P(UpdateRefusesImage, NothingIsWritten) {
    const BadImage &c = GetParam();
    if (!c.boot.empty()) {
        std::vector<std::string> args = {"optrom", "--out", dir_ / "boot.bin", "--chip", "FCX141"};
        for (const std::string &i : c.boot) args.insert(args.end(), {"--image", i});
        mkimage(args);
    }
    if (!c.multiboot.empty()) {
        std::vector<std::string> args = {"multiboot", "--out", dir_ / "lab141.bin"};
        args.insert(args.end(), c.multiboot.begin(), c.multiboot.end());
        if (!c.boot.empty()) args.insert(args.end(), {"--boot", dir_ / "boot.bin"});
        mkimage(args);
    } else {
        std::remove((dir_ / "lab141.bin").c_str());
    }
    const std::string host = host_json({kCard141});
    ASSERT_EQ(run(host, {"/i"}).status, 0);
    const std::string before = state("lab141", "flash.bin");
    const auto r = run(host, {});
    EXPECT_EQ(r.out, lines({"Warning: Unable to update all HBAs (0 out of 1) !"}));
    EXPECT_EQ(r.err, c.err);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(state("lab141", "flash.bin"), before);
    EXPECT_EQ(count(traffic(), "\"command\":10,"), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Checks, UpdateRefusesImage,
    testing::Values(
        // The size text is composed but not shown.
        BadImage{"WrongSize", {}, {"--chip", "FCX141", "--bios", "1.08", "--size", "0x80000"}, ""},
        BadImage{"ChipCodeOfAnotherFamily",
                 {},
                 {"--chip", "FCX126", "--bios", "1.08"},
                 "Error: Incorrect flash file for HBA 0 (Invalid SSDID/SSVID)!\r\n"},
        BadImage{"NoCommonImage",
                 {},
                 {"--chip", "FCX141", "--bios", "1.08", "--no-common"},
                 "Error: Incorrect flash file for HBA 0 (Invalid SSDID/SSVID)!\r\n"},
        BadImage{"EfiOfAnotherFamily",
                 {"bios:1.08:common", "efi:1.03:devid=0x1600"},
                 {"--chip", "FCX141", "--firmware", "5.2.0"},
                 "Error: Incorrect flash file for HBA 0 (SSDID/SSVID mismatched)!\r\n"},
        BadImage{"SecondImageWithoutSignature",
                 {"bios:1.08:common", "fcode:1.21:no-sig"},
                 {"--chip", "FCX141"},
                 "Error: File lab141.bin does not have valid signature header !\r\n"},
        BadImage{"ImageWithoutDataStructure",
                 {"bios:1.08:common", "efi:1.03:no-pcir"},
                 {"--chip", "FCX141"},
                 "Error: File lab141.bin does not have valid signature data !\r\n"},
        BadImage{"MissingFile", {}, {}, "Error: Cannot open file lab141.bin !\r\n"}),
    [](const testing::TestParamInfo<BadImage> &i) { return std::string(i.param.name); });

TEST_F(Update, AFailedRegionWriteIsReported) {
    const std::string fault = R"(  "faults": [ { "adapter": "lab141", "command": 10, "subcode": 1, "kind": "status", "status": 1 } ])";
    const auto r = run(host_json({kCard141}, fault), {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 0 -   VX2141. Please wait...",
                            "Warning: Unable to update all HBAs (0 out of 1) !"}));
    EXPECT_EQ(r.err, lines({"Error: Unable to set HMX_OPT_ROM_REGION_FW (0xffffffff - Unknown Error ffffffffh.).\n",
                            "Error: Failed to update flash on HBA 0 (0xffffffff) (Unknown Error ffffffffh.) !"}));
    EXPECT_EQ(r.status, 3);
}

TEST_F(Update, AFourPortAdapterIsWrittenThroughItsOddPorts) {
    Card quad{"quad144", "FCX144", "VX2444", "VXA4400144", "0x1DE5", "0x0144",
              R"({ "bios": "1.02", "fcode": "1.10", "efi": "1.00", "firmware": "4.0.90" })",
              {{"0000:0a:00.0", "2000001de5440000", "2100001de5440000", "0x010200"},
               {"0000:0a:00.1", "2000001de5440000", "2100001de5440001", "0x010300"},
               {"0000:0a:00.2", "2000001de5440000", "2100001de5440002", "0x010400"},
               {"0000:0a:00.3", "2000001de5440000", "2100001de5440003", "0x010500"}}};
    fwtest::write_file(dir_ / "adapters.properties", "0x0144,0x1DE5,FCX144,VX2444 Quad Port 4Gb Fibre Channel HBA,TRUE\n");
    fwtest::write_file(dir_ / "flashwright.properties", "0x0144,0x1DE5,VX2444,1.04,1.01,1.11,4.0.94,quad.bin\n");
    mkimage({"multiboot", "--out", dir_ / "quad.bin", "--chip", "FCX144", "--bios", "1.04", "--fcode", "1.11", "--efi",
             "1.01", "--firmware", "4.0.94"});
    const auto r = run(host_json({quad}), {});
    // Ports 1 and 3 carry the write, 2 and 4 are counted without one.
    EXPECT_EQ(count(r.out, "Info: Updating Flash on HBA port(s) -   VX2444. Please wait...\r\n"), 2);
    EXPECT_NE(r.out.find("Info: Updates completed successfully (4 out of 4).\r\n"), std::string::npos);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"quad144\",\"function\":0,\"command\":10,"), 2);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"quad144\",\"function\":2,\"command\":10,"), 2);
    EXPECT_EQ(count(traffic(), "\"command\":10,"), 4);
    expect_patched_bios(state("quad144", "flash.bin"), 0, "VX2444", "144", 0x29, 0x1DE5, 0x1440, 1, 4);
}

TEST_F(Update, ASharedBiosChipBoardPicksItsPortByBoardOrder) {
    // Family 2 of the single-BIOS-chip boards: the second port of the pair
    // carries the write, the first is counted without one.
    Card blade = kCard160;
    blade.name = "blade160";
    blade.ssvid = "0x1E42";
    blade.ssdid = "0x1440";
    fwtest::write_file(dir_ / "adapters.properties", "0x1440,0x1E42,FCX160,VX2162 Blade Mezzanine HBA,TRUE\n");
    fwtest::write_file(dir_ / "flashwright.properties", "0x1440,0x1E42,VX2162,1.12,1.08,2.06,8.3.0,lab160.bin\n");
    const auto r = run(host_json({blade}), {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA port(s) -   VX2162. Please wait...",
                            "Info: Option ROM update complete. Changes have been saved to both ports of this HBA.\n"
                            "You must reboot in order for changes to take effect.",
                            "Info: Updates completed successfully (2 out of 2)."}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"blade160\",\"function\":0,\"command\":10,"), 0);
    EXPECT_EQ(count(traffic(), "\"adapter\":\"blade160\",\"function\":1,\"command\":10,"), 2);
}

TEST_F(Update, AFailedWholeImageWriteIsReportedWithTheLibrarysStatus) {
    const std::string fault = R"(  "faults": [ { "adapter": "old120", "command": 10, "kind": "status", "status": 1 } ])";
    const auto r = run(host_json({kCard120}, fault), {});
    EXPECT_EQ(r.out, lines({"Info: Updating Flash on HBA 0 -   VX2120. Please wait...",
                            "Warning: Unable to update all HBAs (0 out of 1) !"}));
    // The library's own status and text this time (their conversion is the library's business).
    EXPECT_TRUE(std::regex_match(r.err, std::regex("Error: Failed to update flash on HBA 0 \\(0x2000[0-9a-f]{4}\\) "
                                                   "\\([A-Za-z][^()]*\\) !\r\n")))
        << r.err;
    EXPECT_EQ(r.status, 3);
}

TEST_F(Update, NoAdapterAtAll) {
    const auto r = run(R"({ "driver": { "transport": "ioctl" }, "adapters": [] })", {});
    EXPECT_EQ(r.out, "Info: Varnix HBA not found !\r\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 8);
}

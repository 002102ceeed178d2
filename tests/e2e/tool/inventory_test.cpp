// SPDX-License-Identifier: MIT
// The adapter listings of flashwright on emulated hosts: which ports the
// tool finds, in which order, under which header and port number, and every
// byte of "/l" and "/i"; the runs only read the adapters.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

const std::string kSeparator(70, '-');

struct Port {
    std::string pci, wwnn, wwpn, portId;
    std::string extra;  // more JSON members of the function
};

struct Card {
    std::string name, chip, model, serial, ssvid, ssdid, flash;
    std::vector<Port> ports;
};

std::string host_json(const std::vector<Card> &cards, const std::string &top = "",
                      const std::string &transport = "ioctl") {
    std::ostringstream j;
    j << "{ \"driver\": { \"name\": \"vxa2xxx\", \"version\": \"8.7.3.0\", \"transport\": \"" << transport << "\" },\n";
    if (!top.empty()) j << top << ",\n";
    j << "  \"adapters\": [";
    int host = 5;
    for (size_t c = 0; c < cards.size(); ++c) {
        const Card &a = cards[c];
        j << (c ? ",\n" : "\n") << "    { \"name\": \"" << a.name << "\", \"chip\": \"" << a.chip << "\", \"model\": \""
          << a.model << "\", \"serial\": \"" << a.serial << "\", \"flash\": " << a.flash << ", \"functions\": [";
        for (size_t p = 0; p < a.ports.size(); ++p) {
            const Port &f = a.ports[p];
            j << (p ? ", " : " ") << "{ \"pci\": \"" << f.pci << "\", \"host\": " << host++ << ", \"ssvid\": \""
              << a.ssvid << "\", \"ssdid\": \"" << a.ssdid << "\", \"wwnn\": \"" << f.wwnn << "\", \"wwpn\": \""
              << f.wwpn << "\", \"port_id\": \"" << f.portId << "\"" << (f.extra.empty() ? "" : ", ") << f.extra
              << " }";
        }
        j << " ] }";
    }
    j << "\n  ]\n}\n";
    return j.str();
}

const std::string kFlash160 = R"({ "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1" })";
const std::string kFlash14x = R"({ "bios": "1.05", "fcode": "1.20", "efi": "1.02", "firmware": "5.1.0" })";
const std::string kFlash123 = R"({ "bios": "1.60", "fcode": null, "efi": null, "firmware": "3.3.20" })";

const std::string kSupported =
    "# ssdid, ssvid, chip, description, supported\n"
    "0x0162,0x1DE5,FCX160,VX2162 Dual Port 8Gb Fibre Channel HBA,TRUE\n"
    "0x1410,0x1E0F,FCX141,VX2141 Single Port 4Gb Fibre Channel HBA,TRUE\n"
    "0x1230,0x1DE5,FCX123,VX2123 Single Port 2Gb Fibre Channel HBA,TRUE\n";

// A dual-port FCX160 whose second function has the lower port name, an
// FCX141 and an FCX145 (not in the supported list), opened in that order
// and listed by serial number: the FCX145, the FCX141, then the FCX160.
std::vector<Card> ordered_cards() {
    return {
        {"c160", "FCX160", "VX2162", "VXC0000160", "0x1DE5", "0x0162", kFlash160,
         {{"0000:05:00.0", "2000001de5160000", "2100001de5160001", "0x010200", R"("speed_code": 8)"},
          {"0000:05:00.1", "2000001de5160000", "2100001de5160000", "0x010300",
           R"("port_state": 0, "speed_code": 3)"}}},
        {"b141", "FCX141", "VX2141", "VXB0000141", "0x1E0F", "0x1410", kFlash14x,
         {{"0000:07:00.0", "2000001de5140000", "2100001de5140000", "0x0104e8",
           R"("speed_code": 4, "connection_mode": 2, "port_type": 2)"}}},
        {"a145", "FCX145", "VX2145", "VXA0000145", "0x1DE5", "0x1450", kFlash14x,
         {{"0000:08:00.0", "2000001de5145000", "2100001de5145000", "0x010500",
           R"("speed_code": 10, "connection_mode": 0, "port_type": 0)"}}},
    };
}

std::string host_block() {
    struct utsname names {};
    uname(&names);
    return std::string("Host Name\t: ") + names.nodename + "\r\n" + "OS Type\t\t: " + names.sysname + " " +
           names.machine + "\r\n" + "OS Version\t: " + names.release + "\r\n" + "FOAPI\t\t: 3.0.1 build6\r\n" +
           "HMXAPI\t\t: v5.00 build7Pre1\r\n";
}

std::string lines(const std::vector<std::string> &texts) {
    std::string out;
    for (const std::string &t : texts) out += t + "\r\n";
    return out;
}

class Listing : public testing::Test {
protected:
    fwtest::RunResult run(const std::string &host, const std::vector<std::string> &args,
                          const std::string &supported = kSupported) {
        fwtest::write_file(dir_ / "host.json", host);
        fwtest::write_file(dir_ / "adapters.properties", supported);
        std::vector<std::string> command{fwtest::bin_path("flashwright")};
        command.insert(command.end(), args.begin(), args.end());
        return fwtest::run_in_vxemu(dir_, command, 60);
    }
    std::string traffic() { return fwtest::read_file(dir_ / "state/traffic.jsonl"); }
    // Listings read the adapters and never write them.
    void expect_read_only() {
        const std::string log = traffic();
        // Write requests are driver requests; netlink lines carry other numbers
        // (the SCSI transport socket is protocol 18).
        std::string requests;
        std::istringstream lines_in(log);
        for (std::string line; std::getline(lines_in, line);)
            if (line.find("\"kind\":\"ioctl\"") != std::string::npos) requests += line + "\n";
        for (const char *write : {"\"command\":7,", "\"command\":10,", "\"command\":13,", "\"command\":18,", "\"command\":24,"})
            EXPECT_EQ(fwtest::count_of(requests, write), 0) << write;
        // (the library's probe of chunked flash access writes "4" to optrom_ctl)
        for (const char *write : {"\"attribute\":\"optrom\",\"op\":\"write\"", "\"attribute\":\"nvram\",\"op\":\"write\"",
                                  "\"attribute\":\"vpd\",\"op\":\"write\""})
            EXPECT_EQ(fwtest::count_of(log, write), 0) << write;
        EXPECT_EQ(fwtest::count_of(log, "violation"), 0);
    }
    fwtest::TempDir dir_{"fwlist"};
};

struct Info {
    std::string model, port, node, wwpn, portId, serial, instance, bootLine, firmware, mode, rate, topology, ssvid,
        ssdid, chipId, flash, status;
};

// One "/i" block; `flash` holds the flash version lines of 4 Gb and 8 Gb chips.
std::string info_block(const Info &i) {
    return lines({kSeparator, "HBA Model\t\t: " + i.model, "HBA Port\t\t: " + i.port, "Node Name\t\t: " + i.node,
                  "Port Name\t\t: " + i.wwpn, "Port ID\t\t\t: " + i.portId, "Serial Number\t\t: " + i.serial,
                  "HBA Instance\t\t: " + i.instance, "HBA ID\t\t\t: " + i.instance + "-" + i.model,
                  "Driver Version\t\t: 8.07.03-k", i.bootLine, "Firmware Version\t: " + i.firmware,
                  "Actual Connection Mode\t: " + i.mode, "Actual Data Rate\t: " + i.rate,
                  "PortType (Topology)\t: " + i.topology, "Subsystem Vendor ID\t: " + i.ssvid,
                  "Subsystem Device ID\t: " + i.ssdid, "HBA Chip ID\t\t: " + i.chipId}) +
           i.flash + lines({"HBA Status\t\t: " + i.status});
}

std::string flash_lines(const std::string &bios, const std::string &fcode, const std::string &efi,
                        const std::string &firmware) {
    return lines({"Flash BIOS Version\t: " + bios, "Flash FCode Version\t: " + fcode, "Flash EFI Version\t: " + efi,
                  "Flash Firmware Version  : " + firmware});
}

}  // namespace

TEST_F(Listing, PortsBySerialNumberThenPortName) {
    const std::string host = host_json(ordered_cards());
    auto r = run(host, {"/l"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    // The status word is the instance number adjusted by the port state:
    // the listing shows what that gives, link up or down.
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2145:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-50-00 SN VXA0000145 (HBA 3) Unknown",
                                           "HBA Model VX2141:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-00-00 SN VXB0000141 (HBA 2) Unknown",
                                           "HBA Model VX2162:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-16-00-00 SN VXC0000160 (HBA 1) Online",
                                           "  Port 2 WWPN 21-00-00-1D-E5-16-00-01 SN VXC0000160 (HBA 0) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 3\n"}));
    expect_read_only();

    r = run(host, {"/i"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    const std::string flash14x = flash_lines("1.05", "1.20", "1.02", "5.01.00");
    const std::string flash160 = flash_lines("1.10", "2.05", "1.07", "8.02.01");
    EXPECT_EQ(r.out,
              info_block({"VX2145", "1", "20-00-00-1D-E5-14-50-00", "21-00-00-1D-E5-14-50-00", "01-05-00", "VXA0000145",
                          "3", "BIOS Version\t\t: 1.05", "5.01.00", "Unknown", "10 Gbps", "Unidentified", "0x1de5",
                          "0x1450", "1450", flash14x, "Unknown"}) +
                  info_block({"VX2141", "1", "20-00-00-1D-E5-14-00-00", "21-00-00-1D-E5-14-00-00", "01-04-E8",
                              "VXB0000141", "2", "BIOS Version\t\t: 1.05", "5.01.00", "Loop", "4 Gbps", "NLPort",
                              "0x1e0f", "0x1410", "141", flash14x, "Unknown"}) +
                  info_block({"VX2162", "1", "20-00-00-1D-E5-16-00-00", "21-00-00-1D-E5-16-00-00", "01-03-00",
                              "VXC0000160", "1", "BIOS Version\t\t: 1.10", "8.02.01", "Point to Point", "Auto", "NPort",
                              "0x1de5", "0x0162", "160", flash160, "Online"}) +
                  info_block({"VX2162", "2", "20-00-00-1D-E5-16-00-00", "21-00-00-1D-E5-16-00-01", "01-02-00",
                              "VXC0000160", "0", "BIOS Version\t\t: 1.10", "8.02.01", "Point to Point", "8 Gbps",
                              "NPort", "0x1de5", "0x0162", "160", flash160, "Loop down"}));
    expect_read_only();
    // The port record is asked for three times per port: by the library's
    // discovery, for the device record, and once more for the block.
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":0,\"subcode\":2,"), 12);

    // Silent alone selects no mode, after the whole discovery.
    r = run(host, {"-s"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":254,"), 4);
}

TEST_F(Listing, AdaptersWithoutSerialNumberShareOneHeaderAndOneCount) {
    const std::vector<Card> cards{
        {"x141", "FCX141", "VX2141", "", "0x1E0F", "0x1410", kFlash14x,
         {{"0000:05:00.0", "2000001de5140000", "2100001de5140002", "0x010200", ""}}},
        {"y144", "FCX144", "VX2442", "", "0x1DE5", "0x0144", kFlash14x,
         {{"0000:06:00.0", "2000001de5144000", "2100001de5144001", "0x010300", R"("port_state": 0)"},
          {"0000:06:00.1", "2000001de5144000", "2100001de5144000", "0x010400", ""}}},
    };
    const auto r = run(host_json(cards), {"-l"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2141:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-00-02 SN N/A (HBA 0) Loop down",
                                           "  Port 2 WWPN 21-00-00-1D-E5-14-40-00 SN N/A (HBA 2) Unknown",
                                           "  Port 3 WWPN 21-00-00-1D-E5-14-40-01 SN N/A (HBA 1) Online", kSeparator,
                                           "Total Varnix HBA(s) : 1\n"}));
    expect_read_only();
}

TEST_F(Listing, APortSeenUnderTwoInstancesIsListedOnce) {
    const std::vector<Card> cards{
        {"twice", "FCX141", "VX2141", "VXD0000141", "0x1E0F", "0x1410", kFlash14x,
         {{"0000:05:00.0", "2000001de5140000", "2100001de5140000", "0x010200", ""},
          {"0000:05:00.1", "2000001de5140000", "2100001de5140000", "0x010200", ""}}},
    };
    const std::string host = host_json(cards);
    auto r = run(host, {"/L"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2141:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-00-00 SN VXD0000141 (HBA 0) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 1\n"}));
    // Both instances were opened and read; the second record was dropped.
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":254,"), 2);
    EXPECT_EQ(fwtest::count_of(traffic(), "\"function\":1,\"command\":0,\"subcode\":1,"), 2);
    // Events are asked for under the instance the port is listed by.
    EXPECT_EQ(fwtest::count_of(traffic(),
                               R"("function":0,"command":2,"subcode":0,"layout":"current","status":0,"text":"enable")"),
              1);
    EXPECT_EQ(fwtest::count_of(traffic(), "\"function\":1,\"command\":2,"), 0);

    r = run(host, {"-i", "-s"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
}

TEST_F(Listing, NoAdapters) {
    // A driver serving through sysfs with no adapter: the first open finds
    // nothing and the loop ends there.
    const std::string host = R"({ "driver": { "transport": "sysfs" }, "adapters": [] })";
    auto r = run(host, {"/l"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, host_block() + "Varnix HBA not found !\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(traffic().find("\"kind\":\"ioctl\""), std::string::npos);
    r = run(host, {"/s", "/l"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "Varnix HBA not found !\n");
    r = run(host, {"/i"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, "Info: Varnix HBA not found !\r\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(Listing, AnInstanceThatWillNotBindIsLeftOut) {
    const std::string fault =
        R"(  "faults": [ { "adapter": "b141", "command": "0xFE", "kind": "status", "status": 1 } ])";
    const auto r = run(host_json(ordered_cards(), fault), {"/l"});
    EXPECT_EQ(r.status, 0);
    // The library's table stays packed: the FCX145 becomes instance 2.
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2145:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-50-00 SN VXA0000145 (HBA 2) Unknown",
                                           "HBA Model VX2162:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-16-00-00 SN VXC0000160 (HBA 1) Online",
                                           "  Port 2 WWPN 21-00-00-1D-E5-16-00-01 SN VXC0000160 (HBA 0) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 2\n"}));
    EXPECT_EQ(fwtest::count_of(traffic(), "\"adapter\":\"b141\",\"function\":0,\"command\":254,"), 1);
}

TEST_F(Listing, ADriverNodeWithoutInstancesFailsTheLoadEvenBesideSysfsPorts) {
    // The current driver's node is there but reports no instance; the
    // FCX160 is served through sysfs. A failed probe is a failed load.
    std::vector<Card> cards = ordered_cards();
    cards.resize(2);
    std::string host = host_json(cards, R"(  "instances": { "count": 0 })");
    const std::string c160 = "\"name\": \"c160\",";
    host.replace(host.find(c160), c160.size(), c160 + " \"transport\": \"sysfs\",");
    const auto r = run(host, {"/i"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, "Info: Varnix HBA not found !\r\n");
    EXPECT_EQ(r.err, "");
    // Every instance tried the load again; no sysfs port was read.
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":255,"), 31);
    EXPECT_EQ(fwtest::count_of(traffic(), "\"attribute\":\"nvram\""), 0);
}

TEST_F(Listing, TheRenamedBladeBoardShowsItsFixedModelName) {
    // Another OEM's blade board whose two ports share one BIOS chip.
    const std::vector<Card> cards{
        {"blade", "FCX160", "VX2162", "VXE0000160", "0x1E31", "0x0164", kFlash160,
         {{"0000:05:00.0", "2000001de5160000", "2100001de5160000", "0x010200", ""},
          {"0000:05:00.1", "2000001de5160000", "2100001de5160001", "0x010300", ""}}},
    };
    const auto r = run(host_json(cards), {"/l"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2462-BL:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-16-00-00 SN VXE0000160 (HBA 0) Loop down",
                                           "  Port 2 WWPN 21-00-00-1D-E5-16-00-01 SN VXE0000160 (HBA 1) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 1\n"}));
}

TEST_F(Listing, ADriverServingThroughSysfsHasNoCharacterDeviceToProbe) {
    std::vector<Card> cards = ordered_cards();
    cards.resize(1);
    const auto r = run(host_json(cards, "", "sysfs"), {"/l"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2162:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-16-00-00 SN VXC0000160 (HBA 1) Online",
                                           "  Port 2 WWPN 21-00-00-1D-E5-16-00-01 SN VXC0000160 (HBA 0) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 1\n"}));
    // No node to find: the load went straight to sysfs.
    const std::string log = traffic();
    EXPECT_EQ(fwtest::count_of(log, "\"kind\":\"ioctl\""), 0);
    EXPECT_EQ(fwtest::count_of(log, "\"attribute\":\"dev\""), 0);
    expect_read_only();
}

TEST_F(Listing, TheExampleHostsOfBothDriverGenerations) {
    // The built-in lab: the current driver, four ports on three adapters.
    fwtest::write_file(dir_ / "adapters.properties",
                       fwtest::read_file(fwtest::source_path("examples/lab/adapters.properties")));
    fwtest::RunOptions opts;
    opts.cwd = dir_.path();
    opts.unset_env = {"VX_FCAPI_DEBUG"};
    opts.timeout_seconds = 60;
    auto r = fwtest::run({fwtest::bin_path("vxemu"), "run", "--", fwtest::bin_path("flashwright"), "/l"}, opts);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2123:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-12-00-00 SN D27698 (HBA 3) Unknown",
                                           "HBA Model VX2141:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-14-00-00 SN VXA4200141 (HBA 2) Unknown",
                                           "HBA Model VX2162:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-16-00-00 SN VXA4200160 (HBA 0) Loop down",
                                           "  Port 2 WWPN 21-00-00-1D-E5-16-00-01 SN VXA4200160 (HBA 1) Online",
                                           kSeparator, "Total Varnix HBA(s) : 3\n"}));

    // The legacy lab: the older driver, reached with the older request layout.
    r = run(fwtest::read_file(fwtest::source_path("examples/lab-legacy/host.json")), {"/l"},
            fwtest::read_file(fwtest::source_path("examples/lab-legacy/adapters.properties")));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, host_block() + lines({kSeparator, "HBA Model VX2123:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-12-30-00 SN D39986 (HBA 2) Unknown",
                                           "HBA Model VX2442:",
                                           "  Port 1 WWPN 21-00-00-1D-E5-44-00-00 SN VXA3100144 (HBA 0) Loop down",
                                           "  Port 2 WWPN 21-00-00-1D-E5-44-00-01 SN VXA3100144 (HBA 1) Loop down",
                                           kSeparator, "Total Varnix HBA(s) : 2\n"}));
    EXPECT_GT(fwtest::count_of(traffic(), "\"layout\":\"old\""), 0);
}

namespace {

// The ordered hosts' ports with `targets` added to each function's members.
std::vector<Card> cards_with_targets(const std::vector<std::string> &targets) {
    std::vector<Card> cards = ordered_cards();
    size_t i = 0;
    for (Card &c : cards)
        for (Port &p : c.ports) {
            const std::string &t = targets.at(i++);
            if (!t.empty()) p.extra += (p.extra.empty() ? "" : ", ") + t;
        }
    return cards;
}

// The driver requests of one command, without the caller's thread id.
std::vector<std::string> requests_of(const std::string &log, unsigned command) {
    std::vector<std::string> out;
    const std::string want = "\"command\":" + std::to_string(command) + ",";
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);) {
        if (line.find("\"kind\":\"ioctl\"") == std::string::npos || line.find(want) == std::string::npos) continue;
        const auto pid = line.find("\"pid\":");
        if (pid != std::string::npos) line.erase(pid, line.find(',', pid) + 1 - pid);
        out.push_back(line);
    }
    return out;
}

}  // namespace

TEST_F(Listing, TargetsBehindThePortsChangeNothingTheToolShows) {
    // The FCX160's first port sees an array that answers REPORT LUNS (one
    // LUN in CHECK CONDITION) and a device that does not; its second port is
    // down; the FCX141 sees the default fabric; the FCX145 a target whose
    // only LUN is in CHECK CONDITION.
    const std::vector<std::string> targets{
        R"("targets": [ { "wwpn": "50:06:0e:80:10:00:01:0a", "luns": [ { "lun": 0 },
              { "lun": 1, "blocks": 4096, "block_size": 4096 }, { "lun": 2, "sense": "06:29:00" } ] },
            { "wwpn": "50:06:0e:80:10:00:01:0b", "report_luns": false,
              "luns": [ { "lun": 0 }, { "lun": 1 }, { "lun": 3, "type": "0x7F" } ] } ])",
        R"("targets": [ { "wwpn": "50:06:0e:80:10:00:01:0c", "luns": [ { "lun": 0 } ] } ])",
        "",
        R"("targets": [ { "wwpn": "50:06:0e:80:10:00:01:0d", "luns": [ { "lun": 0, "sense": "02:04:01" } ] } ])"};
    const std::string none = R"("targets": [])";
    const std::string fabric = host_json(cards_with_targets(targets));
    const std::string bare = host_json(cards_with_targets({none, none, none, none}));
    // A version control file that finds every supported port at its level.
    fwtest::write_file(dir_ / "flashwright.properties",
                       "0x0162,0x1DE5,VX2162,1.10,1.07,2.05,8.2.1,none.bin\n"
                       "0x1410,0x1E0F,VX2141,1.05,1.02,1.20,5.1.0,none.bin\n");

    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"/l"}, std::vector<std::string>{"/i"}, std::vector<std::string>{}}) {
        const std::string mode = args.empty() ? "default" : args[0];
        const auto without = run(bare, args);
        const std::string quiet = traffic();
        const auto with = run(fabric, args);
        const std::string busy = traffic();
        EXPECT_EQ(with.out, without.out) << mode;
        EXPECT_EQ(with.err, without.err) << mode;
        EXPECT_EQ(with.status, without.status) << mode;
        EXPECT_NE(with.out.find("VX2145"), std::string::npos) << mode << with.out;
        EXPECT_EQ(requests_of(quiet, 5).size(), 0u) << mode;
        EXPECT_EQ(fwtest::count_of(quiet, "\"subcode\":4,"), 0) << mode;

        // Each listed port asks for its events; the ports the tool switched
        // on are switched off again at the end.
        EXPECT_EQ(fwtest::count_of(busy, R"("command":2,"subcode":0,"layout":"current","status":0,"text":"enable")"), 4)
            << mode;
        EXPECT_EQ(fwtest::count_of(busy, "\"text\":\"disable\""), 4) << mode;
        EXPECT_EQ(requests_of(quiet, 2).size(), 8u) << mode;

        // The array: INQUIRY and REPORT LUNS at LUN 0, then the capacity of
        // each LUN it reported.
        const auto scsi = requests_of(busy, 5);
        const std::string c160 =
            R"({"kind":"ioctl","adapter":"c160","function":0,"command":5,"subcode":1,"layout":"current",)";
        const std::string readCapacity = R"("length":8,"status":0,"text":"25 00 00 00 00 00 00 00 00 00"})";
        ASSERT_GE(scsi.size(), 5u) << mode;
        EXPECT_EQ(std::vector<std::string>(scsi.begin(), scsi.begin() + 5),
                  (std::vector<std::string>{
                      c160 + R"("region":18,"offset":0,"length":36,"status":0,"text":"12 00 00 00 24 00"})",
                      c160 + R"("region":160,"offset":0,"length":2056,"status":0,)"
                             R"("text":"a0 00 00 00 00 00 00 00 08 08 00 00"})",
                      c160 + R"("region":37,"offset":0,)" + readCapacity,
                      c160 + R"("region":37,"offset":1,)" + readCapacity,
                      c160 + R"("region":37,"offset":2,"length":8,"status":15,)"
                             R"("text":"25 00 00 00 00 00 00 00 00 00"})"}))
            << mode;
        // The device without REPORT LUNS is probed by the library up to the
        // LUN that says there are no more (INQUIRY of LUNs 0 to 3, READ
        // CAPACITY of the two present); the tool does not measure them again.
        const std::string inquiry = R"("command":5,"subcode":1,"layout":"current","region":18,)";
        EXPECT_EQ(fwtest::count_of(busy, R"("adapter":"c160","function":0,)" + inquiry + R"("offset":3,)"), 1) << mode;
        EXPECT_EQ(fwtest::count_of(busy, R"("adapter":"c160","function":0,"command":5,)"), 5 + 2 + 6) << mode;
        // The port whose link is down sees nothing; the default fabric's
        // older device is probed over all 256 LUNs.
        EXPECT_EQ(fwtest::count_of(busy, R"("adapter":"c160","function":1,"command":5,)"), 0) << mode;
        EXPECT_EQ(fwtest::count_of(busy, R"("adapter":"b141","function":0,)" + inquiry), 1 + 1 + 256) << mode;
        // A target that answers nothing but CHECK CONDITION has no LUN list.
        EXPECT_EQ(fwtest::count_of(busy, R"("adapter":"a145","function":0,"command":5,)"), 2) << mode;
        expect_read_only();
    }
}

TEST_F(Listing, HelpVersionAndABadSwitchOnAHostWithAdapters) {
    // Whole runs of the modes that print no adapter: help runs the whole
    // start-up first; the version and a rejected command line stop before it.
    const std::string host = host_json(ordered_cards());
    const auto help = run(host, {"/h"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(help.out.rfind("NAME\n\r\nflashwright - ", 0), 0u) << help.out;
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":254,"), 4);
    expect_read_only();

    const auto bad = run(host, {"/x"});
    EXPECT_EQ(bad.status, 7);
    EXPECT_EQ(bad.err, "");
    EXPECT_EQ(bad.out, help.out);
    EXPECT_EQ(fwtest::count_of(traffic(), "\"kind\":\"ioctl\""), 0);

    const auto version = run(host, {"/v"});
    EXPECT_EQ(version.status, 2);
    EXPECT_EQ(version.err, "");
    EXPECT_EQ(version.out.rfind("Varnix Flash (Firmware Component) Update Utility\nv1.0.0 Build 9\r\n", 0), 0u)
        << version.out;
    EXPECT_EQ(fwtest::count_of(traffic(), "\"kind\":\"ioctl\""), 0);
}

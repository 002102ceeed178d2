// SPDX-License-Identifier: MIT
// The failover LUN and target data calls end to end: the C client under
// `vxemu run`, asserting its exact output, the requests the emulated driver
// saw, and that no run leaves a protocol violation behind.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

const std::string kClient = fwtest::bin_path("fo_client");

// One ioctl adapter with a port at host 10 (link up) and, with `second_port`,
// a port at host 11 whose link is down.
std::string host(const std::string &version, const std::string &flags = "0x0", bool second_port = false) {
    std::ostringstream j;
    j << "{\n  \"driver\": { \"name\": \"vxa2xxx\", \"version\": \"" << version << "\", \"flags\": \"" << flags
      << "\", \"transport\": \"ioctl\" },\n"
      << "  \"adapters\": [ { \"name\": \"a0\", \"chip\": \"FCX123\", \"flash\": { \"bios\": \"1.60\" }, "
      << "\"functions\": [ { \"pci\": \"0000:10:00.0\", \"host\": 10, \"wwnn\": \"20:00:00:1d:e5:01:86:00\" }";
    if (second_port)
        j << ", { \"pci\": \"0000:10:00.1\", \"host\": 11, \"wwnn\": \"20:00:00:1d:e5:01:86:01\", \"port_state\": 4 }";
    j << " ] } ]\n}\n";
    return j.str();
}

// What discovery gives port host 10: target 0 with LUNs 0 and 1, target 1 with LUN 0.
const std::string kLun00 = "  0:0 port 50060e80100001a0 node 50060e80100000a0 flags 0x3 paths 1\n";
const std::string kLun01 = "  0:1 port 50060e80100001a0 node 50060e80100000a0 flags 0x3 paths 1\n";
const std::string kLun10 = "  1:0 port 50060e80100001a1 node 50060e80100000a1 flags 0x3 paths 1\n";

// An entry as the client's set builds it.
std::string made(int target, int lun, const char *flags) {
    char line[128];
    std::snprintf(line, sizeof line, "  %d:%d port 210000000000%02x%02x node 20000000000000fe flags %s paths 2\n",
                  target, lun, target, lun, flags);
    return line;
}

class Failover : public ::testing::Test {
protected:
    fwtest::RunResult run(const std::string &host_json, const std::string &script) {
        fwtest::write_file(dir_ / "host.json", host_json);
        fwtest::write_file(dir_ / "run.sh", "C=" + kClient + "\nset -e\n" + script, 0755);
        auto r = fwtest::run_in_vxemu(dir_, {"/bin/sh", dir_ / "run.sh"}, 60);
        // A protocol violation would end the run with vxemu's own status and a message.
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        return r;
    }
    std::string traffic() { return fwtest::read_file(dir_ / "state/traffic.jsonl"); }
    static std::vector<std::string> lines(const std::string &text) {
        std::vector<std::string> v;
        std::istringstream in(text);
        for (std::string l; std::getline(in, l);) v.push_back(l + "\n");
        return v;
    }
    fwtest::TempDir dir_{"foemu"};
};

TEST_F(Failover, LiveViewIsWhatDiscoveryFoundAndComesInTheDefaultBuffer) {
    const auto r = run(host("8.7.3.0", "0x0", true),
                       "$C get lun live all all\n$C get lun live 0 all\n$C get lun live 1 0\n$C get lun live 1 5\n"
                       "$C get target live all all\n$C get lun store all all\n$C -i 1 get lun live all all\n");
    EXPECT_EQ(r.out, "get lun live: 0x00000000 count 3\n" + kLun00 + kLun01 + kLun10 +
                         "get lun live: 0x00000000 count 2\n" + kLun00 + kLun01 +
                         "get lun live: 0x00000000 count 1\n" + kLun10 +
                         "get lun live: 0x00000000 count 0\n"
                         "get target live: 0x00000000 count 2\n"
                         "  0:0 port 50060e80100001a0 node 50060e80100000a0 flags 0x3 paths 1\n"
                         "  1:0 port 50060e80100001a1 node 50060e80100000a1 flags 0x3 paths 1\n"
                         "get lun store: 0x00000000 count 0\n"  // nothing saved yet this run
                         "get lun live: 0x00000000 count 0\n");  // link down: nothing discovered
    const std::string log = traffic();
    // ((2048 + 32) x 8 + 1) x 32 bytes offered for every list read.
    EXPECT_EQ(fwtest::count_of(log, "\"command\":206"), 6);
    EXPECT_EQ(fwtest::count_of(log, "\"command\":208"), 1);
    EXPECT_EQ(fwtest::count_of(log, "\"length\":532512"), 7);
}

TEST_F(Failover, LargeLunDriverIsOfferedTheLargerBuffer) {
    const auto r = run(host("8.7.3.0", "0x4"), "$C get lun live all all\n$C get target store all all\n");
    EXPECT_EQ(r.out, "get lun live: 0x00000000 count 3\n" + kLun00 + kLun01 + kLun10 +
                         "get target store: 0x00000000 count 0\n");
    const std::string log = traffic();
    EXPECT_EQ(fwtest::count_of(log, "\"length\":1056800"), 2);  // ((4096 + 32) x 8 + 1) x 32
    EXPECT_EQ(fwtest::count_of(log, "\"length\":532512"), 0);
}

TEST_F(Failover, ListsLongerThanTheRecordAreClippedTo256Entries) {
    // Two writes of 200 LUNs give the port 403 live and 400 saved entries;
    // a record claiming 300 entries sends the 256 it holds.
    const auto r = run(host("6.7.0"),
                       "$C set lun 5 all 5 200 1\n$C set lun 6 all 6 200 1\n"
                       "$C get lun live all all\n$C get lun store all all\n$C get lun store 6 all\n"
                       "$C set lun 7 all 7 300 1\n$C get lun store 7 all\n");
    const auto out = lines(r.out);
    ASSERT_EQ(out.size(), 2u + 257u + 257u + 201u + 1u + 257u);
    EXPECT_EQ(out[0], "set lun: 0x00000000\n");
    EXPECT_EQ(out[1], "set lun: 0x00000000\n");
    size_t at = 2;
    EXPECT_EQ(out[at], "get lun live: 0x00000000 count 256\n");
    EXPECT_EQ(out[at + 1], kLun00);
    EXPECT_EQ(out[at + 4], made(5, 0, "0x1"));     // after the three discovered
    EXPECT_EQ(out[at + 256], made(6, 52, "0x1"));  // 3 + 200 + 53
    at += 257;
    EXPECT_EQ(out[at], "get lun store: 0x00000000 count 256\n");
    EXPECT_EQ(out[at + 1], made(5, 0, "0x1"));
    EXPECT_EQ(out[at + 256], made(6, 55, "0x1"));
    at += 257;
    EXPECT_EQ(out[at], "get lun store: 0x00000000 count 200\n");
    EXPECT_EQ(out[at + 200], made(6, 199, "0x1"));
    at += 201;
    EXPECT_EQ(out[at], "set lun: 0x00000000\n");
    EXPECT_EQ(out[at + 1], "get lun store: 0x00000000 count 256\n");
    EXPECT_EQ(out[at + 257], made(7, 255, "0x1"));
    EXPECT_EQ(fwtest::count_of(traffic(), "\"length\":8224"), 1);  // 32-byte request + 256 entries
}

TEST_F(Failover, ConfigurationStoreFollowsTheDriverVersion) {
    struct Case {
        const char *version;
        bool own_store;
    };
    for (const Case c : {Case{"6.6.0.5", false}, Case{"6.5.9", false}, Case{"6.6.0", true}, Case{"6.6.0.9", true},
                         Case{"6.7.0", true}}) {
        SCOPED_TRACE(c.version);
        const auto r = run(host(c.version), "$C get lun store all all\n$C set lun 0 all 0 1 1\n"
                                            "$C get target store all all\n$C set target all all 0 1 1\n"
                                            "$C get lun live 1 all\n");
        const std::string log = traffic();
        if (c.own_store) {
            EXPECT_EQ(r.out, "get lun store: 0x00000000 count 0\nset lun: 0x00000000\n"
                             "get target store: 0x00000000 count 0\nset target: 0x00000000\n"
                             "get lun live: 0x00000000 count 1\n" +
                                 kLun10);
            EXPECT_EQ(fwtest::count_of(log, "\"command\":207"), 1);
            EXPECT_EQ(fwtest::count_of(log, "\"command\":209"), 1);
        } else {
            // The older drivers' configuration file is not ours to read or write:
            // refused, the record left alone, nothing sent but the live read.
            EXPECT_EQ(r.out, "get lun store: 0x20000066 untouched\nset lun: 0x20000066\n"
                             "get target store: 0x20000066 untouched\nset target: 0x20000066\n"
                             "get lun live: 0x00000000 count 1\n" +
                                 kLun10);
            EXPECT_EQ(fwtest::count_of(log, "\"command\":206"), 1);
            EXPECT_EQ(fwtest::count_of(log, "\"command\":207") + fwtest::count_of(log, "\"command\":208") +
                          fwtest::count_of(log, "\"command\":209"),
                      0);
        }
    }
}

TEST_F(Failover, SavedDataRoundTripsAndReplacesWhatItSelects) {
    const auto r = run(host("6.7.0"),
                       "$C set lun 0 all 0 2 1\n$C get lun store all all\n$C get lun live all all\n"
                       "$C set target 1 all 1 1 2\n$C get target store all all\n$C get target live all all\n"
                       "$C set lun 0 all 0 0 0\n$C get lun store all all\n$C get lun live all all\n");
    EXPECT_EQ(r.out, "set lun: 0x00000000\n"
                     "get lun store: 0x00000000 count 2\n" +
                         made(0, 0, "0x1") + made(0, 1, "0x1") + "get lun live: 0x00000000 count 3\n" +
                         made(0, 0, "0x1") + made(0, 1, "0x1") + kLun10 +
                         "set target: 0x00000000\n"
                         "get target store: 0x00000000 count 1\n" +
                         made(1, 0, "0x2") + "get target live: 0x00000000 count 2\n" +
                         "  0:0 port 50060e80100001a0 node 50060e80100000a0 flags 0x3 paths 1\n" + made(1, 0, "0x2") +
                         // An empty write clears what it selects.
                         "set lun: 0x00000000\n"
                         "get lun store: 0x00000000 count 0\n"
                         "get lun live: 0x00000000 count 1\n" +
                         kLun10);
}

TEST_F(Failover, MisuseIsRefusedAndLeavesTheRecordAlone) {
    const auto r = run(host("6.7.0"), "$C misuse\n");
    EXPECT_EQ(r.out, "bad handle get lun: 0x2000006D\n"
                     "bad handle get lun store: 0x2000006D\n"
                     "bad handle get target: 0x2000006D\n"
                     "bad handle set lun: 0x2000006D\n"
                     "bad handle set target: 0x2000006D\n"
                     "other instance: 0x20000064\n"
                     "null record: 0x20000064 0x20000064\n"
                     "record untouched\n"
                     "outside selector: 0x20000064\n");
    // Only the write with foreign entries reached the driver.
    const std::string log = traffic();
    EXPECT_EQ(fwtest::count_of(log, "\"command\":207"), 1);
    EXPECT_EQ(fwtest::count_of(log, "\"command\":206"), 0);
}

}  // namespace

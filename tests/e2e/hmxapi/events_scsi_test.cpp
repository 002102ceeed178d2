// SPDX-License-Identifier: MIT
// Asynchronous events and SCSI pass-through through the public header: C
// clients inside `vxemu run`, checked by their output and by the requests
// the emulated driver saw.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

class EventsAndScsi : public ::testing::Test {
protected:
    fwtest::RunResult run(const std::string &host_json, const std::string &script) {
        fwtest::write_file(dir_ / "host.json", host_json);
        fwtest::write_file(dir_ / "run.sh",
                           "V=" + fwtest::bin_path("vxemu") + "\nE=" + fwtest::bin_path("event_client") +
                               "\nS=" + fwtest::bin_path("scsi_client") + "\nD=" + dir_.path() + "\nST=" +
                               dir_.path() + "/state\n" + script,
                           0755);
        return fwtest::run_in_vxemu(dir_, {"/bin/sh", dir_ / "run.sh"});
    }
    // Traffic lines of one ioctl command, without the caller's thread id.
    std::vector<std::string> requests(unsigned command) {
        std::istringstream in(fwtest::read_file(dir_ / "state/traffic.jsonl"));
        std::vector<std::string> out;
        const std::regex pid(R"("pid":\d+,)");
        const std::string want = "\"command\":" + std::to_string(command) + ",";
        for (std::string line; std::getline(in, line);)
            if (line.find("\"kind\":\"ioctl\"") != std::string::npos && line.find(want) != std::string::npos)
                out.push_back(std::regex_replace(line, pid, ""));
        return out;
    }
    fwtest::TempDir dir_{"hmxevscsi"};
};

// Three ioctl ports a0, a1, a2 (instances 0..2), one per adapter.
std::string three_ports() {
    std::ostringstream j;
    j << R"({ "driver": { "transport": "ioctl" }, "adapters": [)";
    for (int a = 0; a < 3; ++a)
        j << (a ? "," : "") << R"({ "name": "a)" << a << R"(", "chip": "FCX123", "functions": [ { "host": )" << 10 + a
          << " } ] }";
    j << "] }\n";
    return j.str();
}

TEST_F(EventsAndScsi, EventsReachEveryProcessNewestKeptAndDeregisteredOnLastClose) {
    const auto r = run(three_ports(),
                       "$E watch 0 $D > $D/watch.out 2>&1 &\n"
                       "while [ ! -e $D/ready ]; do sleep 0.05; done\n"
                       "$E events $V $ST $D\n"
                       "wait\ncat $D/watch.out\n");
    // Port 0: six 0x8060 (7) then 64 of 0x8010..0x8013 (1..4): the six oldest
    // are gone. Port 1: a 32-byte buffer gets the two newest of five and the
    // rest are discarded. Port 2: 0x8014 is 6, 0x8015 is 5, an unknown code
    // leaves the caller's record as it was.
    std::string cycle;
    for (int i = 0; i < 16; ++i) cycle += " 1 2 3 4";
    const std::string port0 = "HmGetAen(1280 bytes)=0x00000000 count 64:" + cycle + "\n";
    EXPECT_EQ(r.out,
              "open 0: 0x00000000\nHmEnableAen 0: 0x00000000\n"
              "open 1: 0x00000000\nHmEnableAen 1: 0x00000000\n"
              "open 2: 0x00000000\nHmEnableAen 2: 0x00000000\n"
              "HmEnableAen(bad handle): 0x20000065\n"
              "HmGetAen(null count): 0x20000064\n"
              "port 0: " + port0 +
              "port 1: HmGetAen(32 bytes)=0x00000000 count 2: 4 7\n"
              "port 1 again: HmGetAen(1280 bytes)=0x00000000 count 0:\n"
              "port 2: HmGetAen(1280 bytes)=0x00000000 count 3: 6 5 99\n"
              "close 0: 0x00000000\nclose 1: 0x00000000\nclose 2: 0x00000000\n"
              "watch open: 0x00000000\n"
              "watch: " + port0 +
              "watch close: 0x00000000\n")
        << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    // Registration on: one per port. Off: only where the last close on the
    // host was by the process that switched it on; the watcher closed port
    // 0 last and had never registered.
    const auto reg = requests(2);
    ASSERT_EQ(reg.size(), 5u) << fwtest::read_file(dir_ / "state/traffic.jsonl");
    for (int i = 0; i < 3; ++i) EXPECT_NE(reg[static_cast<size_t>(i)].find("\"text\":\"enable\""), std::string::npos);
    EXPECT_NE(reg[3].find("\"adapter\":\"a1\""), std::string::npos);
    EXPECT_NE(reg[3].find("\"text\":\"disable\""), std::string::npos);
    EXPECT_NE(reg[4].find("\"adapter\":\"a2\""), std::string::npos);
    // Fetches: never more than 64 records at a time.
    for (const auto &line : requests(3)) {
        std::smatch m;
        if (std::regex_search(line, m, std::regex(R"("length":(\d+))"))) {
            EXPECT_LE(std::stoul(m[1]), 1024u) << line;
        }
    }
}

// One port with two targets: A answers REPORT LUNS, B does not.
std::string targets_host(const std::string &transport) {
    return R"({ "driver": { "transport": ")" + transport + R"(" }, "adapters": [ {
  "name": "a0", "chip": "FCX123", "functions": [ { "host": 10, "targets": [
    { "wwpn": "50:06:0e:80:10:00:01:0a", "luns": [
        { "lun": 0, "type": "0x00", "blocks": 2097152 },
        { "lun": 1, "type": "0x00", "blocks": "0x1000", "block_size": 4096 },
        { "lun": 2, "sense": "06:29:00" } ] },
    { "wwpn": "50:06:0e:80:10:00:01:0b", "report_luns": false, "luns": [
        { "lun": 0 }, { "lun": 1, "type": "0x05" }, { "lun": 2, "sense": "05:25:00" },
        { "lun": 3, "type": "0x7F" }, { "lun": 4 } ] } ] } ] } ] }
)";
}

// What scsi_client prints for `scsi 0 A B` against targets_host(): the same
// over either transport.
constexpr const char *kScsiClientOut =
    "open: 0x00000000\n"
    "inquiry lun 0: 0x00000000 type 00 vendor VARNIX   product STORAGE ARRAY    after ee\n"
    "read capacity lun 1: 00 00 0f ff 00 00 10 00\n"
    "read capacity lun 1: 0x00000000\n"
    "read capacity lun 2: 0x20000040 SCSI check condition\n"
    "sense: 70 00 06 00 00 00 00 0a 00 00 00 00 29 00 00 00 00 00 00 00\n"
    "17-byte command: 0x20000064\n"
    "both buffers: 0x20000064\n"
    "address type 1: 0x20000064\n"
    "bad handle: 0x20000065\n"
    "test unit ready: 0x00000000\n"
    "report luns A: 0x00000000 list length 24 luns: 0 1 2\n"
    "report luns B: 0x20000077 list length 16 luns: 0 1\n"
    "report luns B: Buffer content returned not directly from device; last lun probed 3\n"
    "report luns B sense: 70 00 05 00 00 00 00 0a 00 00 00 00 20 00 00 00 00 00\n"
    "close: 0x00000000\n";

TEST_F(EventsAndScsi, PassThroughWrappersSenseAndReportLunsFallback) {
    const auto r = run(targets_host("ioctl"), "$S scsi 0 50060e801000010a 50060e801000010b\n");
    EXPECT_EQ(r.out, kScsiClientOut) << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    // What went out: the refused calls sent nothing; INQUIRY asks for 255
    // bytes into a 512-byte buffer; the probe of B stops at the 0x7F LUN.
    const std::vector<std::string> want = {
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":18,"offset":0,"length":512,"status":0,"text":"12 00 00 00 ff 00"})",
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":37,"offset":1,"length":8,"status":0,"text":"25 00 00 00 00 00 00 00 00 00"})",
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":37,"offset":2,"length":8,"status":15,"text":"25 00 00 00 00 00 00 00 00 00"})",
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":0,"offset":0,"length":0,"status":0,"text":"00 00 00 00 00 00"})",
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":160,"offset":0,"length":256,"status":0,"text":"a0 00 00 00 00 00 00 00 01 00 00 00"})",
        R"({"kind":"ioctl","adapter":"a0","function":0,"command":5,"subcode":1,"layout":"current","region":160,"offset":0,"length":256,"status":15,"text":"a0 00 00 00 00 00 00 00 01 00 00 00"})",
    };
    const auto sent = requests(5);
    ASSERT_GE(sent.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_EQ(sent[i], want[i]) << i;
    std::string probe;
    for (size_t i = want.size(); i < sent.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_search(sent[i], m, std::regex(R"("region":(\d+),"offset":(\d+))"))) << sent[i];
        probe += (m[1] == "18" ? " inq" : " cap") + std::string(m[2]);
    }
    EXPECT_EQ(probe, " inq0 cap0 inq1 cap1 inq2 cap2 inq3");
}

// A sysfs port has no pass-through request: the same commands go out with
// SG_IO on the SCSI generic node of each LUN, found through sysfs.
TEST_F(EventsAndScsi, SysfsPortPassesThroughTheScsiGenericNodes) {
    const auto r = run(targets_host("sysfs"), "ls /dev | grep '^sg' | tr '\\n' ' '; echo\n"
                                              "$S scsi 0 50060e801000010a 50060e801000010b\n"
                                              "$S luns 0 50060e80100001ff\n");
    EXPECT_EQ(r.out, std::string("sg0 sg1 sg2 sg3 sg4 sg5 sg6 sg7 \n") + kScsiClientOut +
                         "open: 0x00000000\nluns: 0x2000006D list length 0 luns:\nclose: 0x00000000\n")
        << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(requests(5).empty());
    // A's LUNs are sg0..sg2, B's sg3..sg7. The sense of a CHECK CONDITION
    // comes back in the node's sense buffer; INQUIRY asks for 255 bytes into
    // 512; the probe of B stops at its 0x7F LUN; the unknown target sends nothing.
    std::istringstream in(fwtest::read_file(dir_ / "state/traffic.jsonl"));
    std::vector<std::string> sent;
    for (std::string line; std::getline(in, line);)
        if (line.find("\"kind\":\"sg\"") != std::string::npos)
            sent.push_back(std::regex_replace(line, std::regex(R"("pid":\d+,)"), ""));
    auto sg = [](int node, int op, int lun, int len, int status, const char *cdb) {
        return R"({"kind":"sg","adapter":"a0","function":0,"attribute":"sg)" + std::to_string(node) +
               R"(","op":"SG_IO","region":)" + std::to_string(op) + R"(,"offset":)" + std::to_string(lun) +
               R"(,"length":)" + std::to_string(len) + R"(,"status":)" + std::to_string(status) + R"(,"text":")" +
               cdb + R"("})";
    };
    const char *inq36 = "12 00 00 00 24 00", *cap = "25 00 00 00 00 00 00 00 00 00";
    const std::vector<std::string> want = {
        sg(0, 18, 0, 512, 0, "12 00 00 00 ff 00"),
        sg(1, 37, 1, 8, 0, cap),
        sg(2, 37, 2, 8, 2, cap),
        sg(0, 0, 0, 0, 0, "00 00 00 00 00 00"),
        sg(0, 160, 0, 256, 0, "a0 00 00 00 00 00 00 00 01 00 00 00"),
        sg(3, 160, 0, 256, 2, "a0 00 00 00 00 00 00 00 01 00 00 00"),
        sg(3, 18, 0, 36, 0, inq36), sg(3, 37, 0, 8, 0, cap),
        sg(4, 18, 1, 36, 0, inq36), sg(4, 37, 1, 8, 0, cap),
        sg(5, 18, 2, 36, 2, inq36), sg(5, 37, 2, 8, 2, cap),
        sg(6, 18, 3, 36, 0, inq36),
    };
    EXPECT_EQ(sent, want);
}

TEST_F(EventsAndScsi, ReportLunsFallbackProbesAllLunsOfALargeLegacyTarget) {
    std::string luns;
    for (int l = 0; l < 256; l += 17) luns += std::string(luns.empty() ? "" : ",") + "{ \"lun\": " + std::to_string(l) + " }";
    const std::string host = std::string(R"({ "driver": { "transport": "ioctl" }, "adapters": [ { "name": "a0", "chip": "FCX123",
      "functions": [ { "host": 10, "targets": [ { "wwpn": "50:06:0e:80:10:00:01:0c", "report_luns": false, "luns": [)") +
                             luns + "] } ] } ] } ] }\n";
    const auto r = run(host, "$S luns 0 50060e801000010c\n");
    EXPECT_EQ(r.out,
              "open: 0x00000000\nluns: 0x20000077 list length 128 luns: 0 17 34 51 68 85 102 119 136 153 170 187 204 "
              "221 238 255\nclose: 0x00000000\n")
        << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    // One REPORT LUNS, 256 INQUIRY, a READ CAPACITY for each LUN present.
    EXPECT_EQ(requests(5).size(), 1u + 256u + 16u);
}

}  // namespace

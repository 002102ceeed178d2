// SPDX-License-Identifier: MIT
// The library's netlink transport against the emulated driver: a sysfs host
// opens both sockets, carries port parameters, bridge images, loopback data
// and events over them, and sends nothing when they are closed.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

constexpr const char *kSysfsHost = R"({ "driver": { "transport": "sysfs" }, "adapters": [ {
  "name": "nl0", "chip": "FCX150", "functions": [ { "host": 7, "speed_code": 8 } ] } ] }
)";

class Netlink : public ::testing::Test {
protected:
    fwtest::RunResult run(const std::string &args) {
        fwtest::write_file(dir_ / "host.json", kSysfsHost);
        std::vector<std::string> command{fwtest::bin_path("netlink_client")};
        std::istringstream in(args);
        for (std::string a; in >> a;) command.push_back(a);
        return fwtest::run_in_vxemu(dir_, command, 60);
    }
    // Netlink lines of the traffic log, without the caller's id.
    std::vector<std::string> netlink() {
        std::istringstream in(fwtest::read_file(dir_ / "state/traffic.jsonl"));
        std::vector<std::string> out;
        for (std::string line; std::getline(in, line);)
            if (line.find("\"kind\":\"netlink\"") != std::string::npos)
                out.push_back(std::regex_replace(line, std::regex(R"("pid":\d+,)"), ""));
        return out;
    }
    fwtest::TempDir dir_{"hmxnl"};
};

TEST_F(Netlink, SysfsHostCarriesPortParametersBridgeImagesLoopbackAndEvents) {
    const auto r = run("run " + fwtest::bin_path("vxemu") + " " + dir_ / "state");
    EXPECT_EQ(r.out,
              "open: 0x00000000\n"
              "features: 0x600\n"
              "get: rc 0 status 0 speed 8\n"
              "set 3: rc -1 status 6 speed 3\n"
              "set by id: rc -1 status 6 speed 4\n"
              "set 16: rc 0 status 0 speed 19\n"
              "get: rc 0 status 0 speed 16\n"
              "bridge firmware: rc 0 status 0\n"
              "bridge management: rc 0 status 0\n"
              "loopback: rc 0 status 0\n"
              "receive of 131073: -1 errno 22\n"
              "events: rc 0 status 0 bytes 32 codes 0x8011 0x8014\n"
              "close: 0x00000000\n")
        << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> want = {
        R"({"kind":"netlink","command":20,"op":"socket","status":0})",
        R"({"kind":"netlink","command":18,"op":"socket","status":0})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":7,"length":2096,"status":0})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":7,"length":2096,"status":0})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":7,"length":2096,"status":0})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":2,"offset":0,"length":67632,"status":0,"text":"chunk 65536 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":2,"offset":65536,"length":2100,"status":0,"text":"chunk 1 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":3,"length":2096,"status":0})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":5,"offset":0,"length":67632,"status":0,"text":"chunk 65536 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":5,"offset":65536,"length":2100,"status":0,"text":"chunk 1 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":6,"offset":0,"length":67632,"status":0,"text":"chunk 65536 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":6,"offset":65536,"length":2100,"status":0,"text":"chunk 1 of 65537"})",
        R"({"kind":"netlink","adapter":"nl0","function":0,"command":4,"length":32,"status":0})",
    };
    EXPECT_EQ(netlink(), want);
}

TEST_F(Netlink, NothingIsSentWithBothSocketsClosed) {
    const auto r = run("closed");
    EXPECT_EQ(r.out,
              "open: 0x00000000\n"
              "features: 0x0\n"
              "get: rc -1 status 1 speed 0\n"
              "set 3: rc -1 status 1 speed 3\n"
              "set by id: rc -1 status 1 speed 4\n"
              "set 16: rc -1 status 1 speed 16\n"
              "get: rc -1 status 1 speed 0\n"
              "bridge firmware: rc -1 status 1\n"
              "bridge management: rc -1 status 1\n"
              "loopback: rc -1 status 1\n"
              "close: 0x00000000\n")
        << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    // The sockets were made at load; no message ever went over them.
    for (const auto &line : netlink()) EXPECT_NE(line.find("\"op\":\"socket\""), std::string::npos) << line;
}

}  // namespace

// SPDX-License-Identifier: MIT
// The library against an emulated driver: discovery, the driver node, the
// shared state file with its semaphores across processes, the trace and the
// feature list. Every case runs the C client inside `vxemu run`.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

const std::string kClient = fwtest::bin_path("hmx_client");

// Ioctl adapters with `per_adapter` PCI functions each, `ports` functions in
// all; slots, hosts (10, 11, ...) and node names follow the port order.
std::string ioctl_host(int ports, const std::string &extra = "", const std::string &chip = "FCX123",
                       const std::string &transport = "ioctl", int per_adapter = 1) {
    std::ostringstream j;
    j << "{\n  \"driver\": { \"name\": \"vxa2xxx\", \"version\": \"8.7.3.0\", \"transport\": \"" << transport
      << "\" },\n";
    if (!extra.empty()) j << "  " << extra << ",\n";
    j << "  \"adapters\": [\n";
    for (int port = 0, a = 0; port < ports; ++a) {
        j << (a > 0 ? ",\n" : "") << "    { \"name\": \"a" << a << "\", \"chip\": \"" << chip
          << "\", \"flash\": { \"bios\": \"1.60\" }, \"functions\": [";
        for (int fn = 0; fn < per_adapter && port < ports; ++fn, ++port) {
            char pci[32], wwn[32];
            std::snprintf(pci, sizeof pci, "0000:%02x:00.%d", 0x10 + a, fn);
            std::snprintf(wwn, sizeof wwn, "20:00:00:1d:e5:01:86:%02x", port);
            j << (fn > 0 ? ", " : " ") << "{ \"pci\": \"" << pci << "\", \"host\": " << (10 + port)
              << ", \"wwnn\": \"" << wwn << "\", \"ssvid\": \"0x1DE5\", \"ssdid\": \"0x1230\" }";
        }
        j << " ] }";
    }
    j << "\n  ]\n}\n";
    return j.str();
}

class EmulatedHost : public ::testing::Test {
protected:
    // Runs a shell script inside the emulator, from the scratch directory.
    fwtest::RunResult run(const std::string &host_json, const std::string &script,
                          const std::vector<std::string> &env = {}) {
        std::vector<std::string> argv{fwtest::bin_path("vxemu"), "run", "--state", dir_ / "state"};
        if (!host_json.empty()) {
            fwtest::write_file(dir_ / "host.json", host_json);
            argv.insert(argv.end(), {"--host", dir_ / "host.json"});
        }
        fwtest::write_file(dir_ / "run.sh", "C=" + kClient + "\nD=" + dir_.path() + "\n" + script, 0755);
        argv.insert(argv.end(), {"--", "/bin/sh", dir_ / "run.sh"});
        fwtest::RunOptions opts;
        opts.cwd = dir_.path();
        opts.env = env;
        opts.unset_env = {"VX_FCAPI_DEBUG"};
        opts.timeout_seconds = 60;
        return fwtest::run(argv, opts);
    }
    std::string traffic() { return fwtest::read_file(dir_ / "state/traffic.jsonl"); }
    fwtest::TempDir dir_{"hmxemu"};
};

std::string shared_entries(int ports, const std::vector<int> &hosts = {}) {
    std::string s;
    for (int i = 0; i < ports; ++i)
        s += "entry " + std::to_string(i) + ": /dev/vxa2xxx host " +
             std::to_string(hosts.empty() ? 10 + i : hosts[static_cast<size_t>(i)]) + " open 1\n";
    return s;
}

std::string libinst(const std::vector<unsigned> &flags) {
    std::string s;
    char line[32];
    for (size_t i = 0; i < 8; ++i) {
        std::snprintf(line, sizeof line, "libinst %zu: 0x%X\n", i, i < flags.size() ? flags[i] : 0u);
        s += line;
    }
    return s;
}

TEST_F(EmulatedHost, OneAndTwoAdaptersOverIoctl) {
    for (int ports : {1, 2}) {
        const auto r = run(ioctl_host(ports), "$C scan\n$C shared\n");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        std::string want;
        for (int i = 0; i < ports; ++i)
            want += "open " + std::to_string(i) + ": 0x00000000 handle " + std::to_string(i + 1) + "\n";
        want += "shared: size 7095392\n" + shared_entries(ports) + libinst({5});
        for (int i = 0; i < ports; ++i)
            want += "close " + std::to_string(i + 1) + ": 0x00000000\n";
        want += "shared: absent\n";  // the last process removed it
        EXPECT_EQ(r.out, want);
        const std::string log = traffic();
        EXPECT_EQ(fwtest::count_of(log, "\"command\":255"), ports);  // one count request per bound instance
        EXPECT_EQ(fwtest::count_of(log, "\"command\":254"), ports);
        EXPECT_EQ(fwtest::count_of(log, "\"layout\":\"old\""), 0);
    }
}

TEST_F(EmulatedHost, ThirtyThreeInstancesFillTheTableAt32) {
    const auto r = run(ioctl_host(34, "\"instances\": { \"count\": 33 }", "FCX123", "ioctl", 2), "$C open 0 31 32\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "open 0: 0x00000000 handle 1\n"
              "open 31: 0x00000000 handle 32\n"
              "open 32: 0x20000064 handle 0\n"
              "close 1: 0x00000000\n"
              "close 32: 0x00000000\n");
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":254"), 32);  // instance 32 is never bound
}

TEST_F(EmulatedHost, DriverWithoutInstancesFailsTheLoad) {
    const auto r = run(ioctl_host(1, "\"instances\": { \"count\": 0 }"), "$C open 0\n$C shared\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\nshared: absent\n");
    EXPECT_EQ(fwtest::count_of(traffic(), "\"command\":254"), 0);
}

TEST_F(EmulatedHost, InstancesThatWillNotBindAreSkippedAndTheTableStaysPacked) {
    const auto r = run(ioctl_host(4, "\"instances\": { \"refuse_bind\": [1, 2] }"), "$C scan\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "open 0: 0x00000000 handle 1\n"
                     "open 1: 0x00000000 handle 2\n"
                     "shared: size 7095392\n" +
                         shared_entries(2, {10, 13}) + libinst({5}) +
                         "close 1: 0x00000000\n"
                         "close 2: 0x00000000\n");
}

TEST_F(EmulatedHost, StaleNodeIsReplacedWithMode0600) {
    const auto r = run(ioctl_host(1, "\"node\": { \"stale\": \"1:5\" }"),
                       "stat -c '%t:%T %a %F' /dev/vxa2xxx\n$C open 0\nstat -c '%t:%T %a %F' /dev/vxa2xxx\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "1:5 600 character special file\n"
                     "open 0: 0x00000000 handle 1\n"
                     "close 1: 0x00000000\n"
                     "1:3 600 character special file\n");
}

TEST_F(EmulatedHost, OpenCountsAreSharedAcrossProcesses) {
    const auto r = run(ioctl_host(2),
                       "for n in 1 2 3; do $C hold 0 $D $n > out.$n & done\n"
                       "$C hold 1 $D 4 > out.4 &\n"
                       "while [ $(ls ready.* 2>/dev/null | wc -l) -lt 4 ]; do sleep 0.05; done\n"
                       "$C shared\n"
                       "ipcs -s | awk '$1 == \"0x0000033d\" || $1 == \"0x000003d4\" { print $1, $4, $5 }'\n"
                       "touch go; wait\n"
                       "cat out.1 out.4\n"
                       "$C shared\n"
                       "ipcs -s | grep -c -e 0x0000033d -e 0x000003d4\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "shared: size 7095392\n"
                     "entry 0: /dev/vxa2xxx host 10 open 3\n"
                     "entry 1: /dev/vxa2xxx host 11 open 1\n" +
                         libinst({5, 5, 5, 5}) +
                         "0x0000033d 644 1\n"
                         "0x000003d4 644 1\n"
                         "hold 1 open: 0x00000000\n"
                         "hold 1 close: 0x00000000\n"
                         "hold 4 open: 0x00000000\n"
                         "hold 4 close: 0x00000000\n"
                         "shared: absent\n"
                         "0\n");
}

TEST_F(EmulatedHost, NinthProcessRecoversFromInstancesThatDied) {
    // Eight users die holding their instance slots; the ninth takes slot 0.
    const auto r = run(ioctl_host(1),
                       "for n in 1 2 3 4 5 6 7 8; do $C hold 0 $D $n > out.$n & pids=\"$pids $!\"; done\n"
                       "while [ $(ls ready.* 2>/dev/null | wc -l) -lt 8 ]; do sleep 0.05; done\n"
                       "kill -9 $pids; wait\n"
                       "$C hold 0 $D 9 > out.9 &\n"
                       "while [ ! -e ready.9 ]; do sleep 0.05; done\n"
                       "$C shared\n"
                       "touch go; wait\n"
                       "cat out.9\n"
                       "$C shared\n"
                       "ipcs -s | grep -c -e 0x0000033d -e 0x000003d4\n");
    EXPECT_EQ(r.err, "libvxhmx: INFO - Assigning lib instance number to 0.\n");
    // The dead keep their alive bits and open counts, so file and semaphores stay.
    EXPECT_EQ(r.out, "shared: size 7095392\n"
                     "entry 0: /dev/vxa2xxx host 10 open 9\n" +
                         libinst({5, 1, 1, 1, 1, 1, 1, 1}) +
                         "hold 9 open: 0x00000000\n"
                         "hold 9 close: 0x00000000\n"
                         "shared: size 7095392\n"
                         "entry 0: /dev/vxa2xxx host 10 open 8\n" +
                         libinst({0, 1, 1, 1, 1, 1, 1, 1}) + "2\n");
}

TEST_F(EmulatedHost, ProcessLeavingWithoutClosingGivesItsStateBack) {
    const auto r = run(ioctl_host(2),
                       "$C hold 1 $D 1 > out.1 &\n"
                       "while [ ! -e ready.1 ]; do sleep 0.05; done\n"
                       "$C leave 0\n$C leave 5\n$C shared\n"
                       "touch go; wait\n$C shared\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "leave: 0x00000000\n"
                     "leave: 0x2000006D\n"
                     "shared: size 7095392\n"
                     "entry 0: /dev/vxa2xxx host 10 open 0\n"
                     "entry 1: /dev/vxa2xxx host 11 open 1\n" +
                         libinst({5}) + "shared: absent\n");
}

TEST_F(EmulatedHost, CloseOfAnUnknownHandle) {
    const auto r = run(ioctl_host(1), "$C badhandles\n$C shared\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "close before load: 0x20000066\n"
                     "open 0: 0x00000000\n"
                     "open 7: 0x2000006D\n"
                     "open 40: 0x20000064\n"
                     "capability of 0: 0x20000065\n"
                     "close 77: 0x00000000\n"
                     "close 1: 0x00000000\n"
                     "close 1 again: 0x20000066\n"
                     "shared: absent\n");
}

TEST_F(EmulatedHost, SharedFileThroughALinkIsRefused) {
    const auto r = run(ioctl_host(1), "echo keep > target\nln -s $D/target /tmp/vxhmx.dat\n$C open 0\ncat target\n");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\nkeep\n");
    EXPECT_EQ(r.err, "libvxhmx: ERROR - cannot open /tmp/vxhmx.dat: Too many levels of symbolic links\n");
}

TEST_F(EmulatedHost, SharedFileNotOwnedByRootIsRefused) {
    const auto r = run(ioctl_host(1), "head -c 7095392 /dev/zero > /tmp/vxhmx.dat\nchown 1234 /tmp/vxhmx.dat\n$C open 0\n");
    EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\n");
    EXPECT_EQ(r.err, "libvxhmx: ERROR - /tmp/vxhmx.dat is not a regular file owned by root; not using it.\n");
}

TEST_F(EmulatedHost, SharedFileWithASecondNameIsRefused) {
    // A hard link to another root file would have that file grown and overwritten.
    const auto r =
        run(ioctl_host(1), "echo keep > /tmp/target\nln /tmp/target /tmp/vxhmx.dat\n$C open 0\nwc -c < /tmp/target\n");
    EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\n5\n");
    EXPECT_EQ(r.err, "libvxhmx: ERROR - /tmp/vxhmx.dat has more than one name; not using it.\n");
}

TEST_F(EmulatedHost, SemaphoreSetOfAnotherUserIsRefused) {
    // A set created by another user, held at 0, would hang every open for ever.
    for (const char *key : {"829", "980"}) {
        const auto r = run(ioctl_host(1), std::string("setpriv --reuid=1234 --regid=1234 --clear-groups perl -e "
                                                      "'defined semget(") +
                                              key + ", 1, 01666) or die \"$!\"'\n"
                                                    "timeout 20 $C open 0\n$C shared\n");
        EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\nshared: absent\n") << key;
        EXPECT_EQ(r.err, std::string("libvxhmx: ERROR - semaphore ") + key + " was not created by root; not using it.\n");
    }
}

TEST_F(EmulatedHost, LogFileThatIsNotARegularFileIsSkipped) {
    // A FIFO in place of the log would block the first trace line for ever.
    const auto r = run(ioctl_host(1), "mkfifo /usr/lib/libvxhmx.log\ntimeout 20 $C open 0\n", {"VX_FCAPI_DEBUG=25"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "open 0: 0x00000000 handle 1\nclose 1: 0x00000000\n");
    EXPECT_EQ(r.err.rfind("HmOpenDevice(0): entered.\n", 0), 0u) << r.err;
}

TEST_F(EmulatedHost, FirstVersionFileIsUpgraded) {
    // 7998 bytes whose first entry names an adapter that is gone.
    const auto r = run(ioctl_host(1),
                       "{ printf '/dev/gone'; head -c 7989 /dev/zero; } > /tmp/vxhmx.dat\n"
                       "$C hold 0 $D 1 > out.1 &\n"
                       "while [ ! -e ready.1 ]; do sleep 0.05; done\n"
                       "$C shared\ntouch go; wait\n$C shared\n");
    EXPECT_EQ(r.err, "");
    // The upgrade mark on instance 0 keeps the file after everyone left.
    EXPECT_EQ(r.out, "shared: size 7095392\n"
                     "entry 0: /dev/gone host 0 open 0\n"
                     "entry 1: /dev/vxa2xxx host 10 open 1\n" +
                         libinst({0xD}) + "shared: size 7095392\nentry 0: /dev/gone host 0 open 0\n" +
                         "entry 1: /dev/vxa2xxx host 10 open 0\n" + libinst({0x8}));
}

TEST_F(EmulatedHost, FullSharedListIsCleanedOfAdaptersThatAreGone) {
    const auto r = run(ioctl_host(2),
                       "for i in $(seq 10 41); do printf '/dev/gone%d' $i; head -c 247 /dev/zero; done > /tmp/vxhmx.dat\n"
                       "head -c $((7095392 - 32 * 258)) /dev/zero >> /tmp/vxhmx.dat\n"
                       "$C scan\n");
    EXPECT_EQ(r.err, "");
    // Every gone entry is cleared; the first freed ones take the adapters.
    EXPECT_EQ(r.out, "open 0: 0x00000000 handle 1\n"
                     "open 1: 0x00000000 handle 2\n"
                     "shared: size 7095392\n" +
                         shared_entries(2) + libinst({5}) +
                         "close 1: 0x00000000\n"
                         "close 2: 0x00000000\n");
}

TEST_F(EmulatedHost, LoadFailureIsRetriedByTheNextOpen) {
    const auto r = run(ioctl_host(1), "ln -s /nowhere /tmp/vxhmx.dat\n$C open 0\nrm /tmp/vxhmx.dat\n$C open 0\n");
    EXPECT_EQ(r.out, "open 0: 0x20000075 handle 0\nopen 0: 0x00000000 handle 1\nclose 1: 0x00000000\n");
}

TEST_F(EmulatedHost, ShorterFileKeepsItsBytesAndFlags) {
    const auto r = run(ioctl_host(1),
                       "{ printf '/dev/gone'; head -c 91 /dev/zero; } > /tmp/vxhmx.dat\n"
                       "$C hold 0 $D 1 > out.1 &\n"
                       "while [ ! -e ready.1 ]; do sleep 0.05; done\n"
                       "$C shared\ntouch go; wait\n$C shared\n");
    EXPECT_EQ(r.out, "shared: size 7095392\n"
                     "entry 0: /dev/gone host 0 open 0\n"
                     "entry 1: /dev/vxa2xxx host 10 open 1\n" +
                         libinst({5}) + "shared: absent\n");
}

TEST_F(EmulatedHost, TraceMaskIsHexadecimal) {
    const auto r = run(ioctl_host(1), "$C open 0\nls /usr/lib/libvxhmx.log 2>/dev/null | wc -l\n", {"VX_FCAPI_DEBUG=24"});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "open 0: 0x00000000 handle 1\nclose 1: 0x00000000\n0\n");
    // 0x24: entry and exit of the main calls plus the progress trace (0x04).
    EXPECT_EQ(r.err.rfind("HmOpenDevice(0): entered.\n", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("vxapi_find_all_instances_n: found 1\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("HmOpenDevice(0): exiting. Return Handle =1\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("HmCloseDevice(1): no other hbas opened. unload lib.\n"), std::string::npos) << r.err;
}

TEST_F(EmulatedHost, LogFileLinesCarryTheTime) {
    const auto r = run(ioctl_host(1), "$C open 0\n", {"VX_FCAPI_DEBUG=25"});
    ASSERT_EQ(r.status, 0);
    const std::string log = fwtest::read_file(dir_ / "state/usrlib-upper/libvxhmx.log");
    ASSERT_FALSE(log.empty());
    const std::regex line("[A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} : [^\n]*\n");
    std::istringstream lines(log);
    std::string l;
    int n = 0;
    while (std::getline(lines, l)) {
        EXPECT_TRUE(std::regex_match(l + "\n", line)) << l;
        ++n;
    }
    EXPECT_EQ(n, fwtest::count_of(r.err, "\n"));  // every standard-error line went to the file too
    EXPECT_NE(log.find(" : HmOpenDevice(0): entered.\n"), std::string::npos);
}

TEST_F(EmulatedHost, FeatureListFromTheFirstModuleFile) {
    const auto r = run(ioctl_host(1, "\"etc\": { \"/etc/modprobe.conf\": \"#options vxa2xxx Bind=0\\noptions vxa2xxx Bind=1 ConfigRequired=2\\n\" }"),
                       "$C features 0\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "open: 0x00000000\n"
                     "room 1: 0x20000072 count 5\n"
                     "room 8: 0x00000000 count 5\n"
                     "1 Persistent Only group 2 range 0-1 initial 0 current 2 flags 0x72\n"
                     "2 Persistent+New group 2 range 0-1 initial 1 current 0 flags 0x72\n"
                     "16 New Only group 2 range 0-2 initial 2 current 1 flags 0x72\n"
                     "4 Bind by WWPN group 1 range 0-1 initial 1 current 0 flags 0x72\n"
                     "8 Bind by PID group 1 range 0-1 initial 0 current 1 flags 0x72\n"
                     "close: 0x00000000\n");
    // A module file earlier in the search order hides the one with the line.
    const auto hidden = run(ioctl_host(1, "\"etc\": { \"/etc/modprobe.conf.local\": \"alias scsi_hostadapter vxa2xxx\\n\", "
                                          "\"/etc/modprobe.conf\": \"options vxa2xxx Bind=1\\n\" }"),
                            "$C features 0\n");
    EXPECT_NE(hidden.out.find("4 Bind by WWPN group 1 range 0-1 initial 1 current 1 flags 0x62\n"), std::string::npos)
        << hidden.out;
}

TEST_F(EmulatedHost, FailoverCalls) {
    const auto r = run(ioctl_host(1), "$C failover 0\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("capability: 0x00000000 0x3000000"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("driver version: 0x00000000 "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("bad handle: 0x20000065\n"
                         "sys params: 0x00000000\n"
                         "statistics: 0x00000000\n"
                         "statistics, bad handle: 0x2000006D\n"
                         "statistics, no record: 0x20000064\n"
                         "close: 0x00000000\n"),
              std::string::npos)
        << r.out;
    const std::string log = traffic();
    for (const char *cmd : {"\"command\":210", "\"command\":200", "\"command\":204"})
        EXPECT_EQ(fwtest::count_of(log, cmd), 1) << cmd;
}

TEST_F(EmulatedHost, OlderDriversAreReachedWithTheOlderLayout) {
    const auto r = run(ioctl_host(1, "", "FCX123", "ioctl_old"), "$C open 0\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "open 0: 0x00000000 handle 1\nclose 1: 0x00000000\n");
    const std::string log = traffic();
    // Only the probe of the current driver used the current layout; every
    // request that reached the adapter afterwards used the older one.
    EXPECT_GT(fwtest::count_of(log, "\"layout\":\"old\""), 3);
    EXPECT_EQ(fwtest::count_of(log, "\"command\":252,\"subcode\":0,\"layout\":\"current\""), 0);
}

}  // namespace

// SPDX-License-Identifier: MIT
// Adapter data over both transports, through the public header only: the C
// client runs inside the adapter emulator, and each test checks the
// client's output, the adapters' files the emulator leaves in its state
// directory and the traffic log. Hosts: an FCX160 over sysfs with and
// without the partial flash forms, and one adapter of each family over the
// driver node (FCX123, FCX141, FCX160, dual-port FCX180).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <fstream>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

using Bytes = std::string;

constexpr int kMalformedRequest = 86;  // vxemu: the driver saw a malformed request

std::string host_file(const std::string &name) { return std::string(XFER_HOSTS_DIR) + "/" + name; }

Bytes random_bytes(std::size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    Bytes b(n, '\0');
    for (auto &c : b) c = static_cast<char>(gen() & 0xFF);
    return b;
}

// One emulated host with its own state directory; runs keep the state.
class Host {
public:
    explicit Host(const std::string &host) : host_(host) {}

    // `quiet`: nothing may appear on standard error.
    fwtest::RunResult run(const std::string &script, bool quiet = true) {
        fwtest::RunOptions opts;
        opts.cwd = dir_.path();
        opts.env = {"XC=" + fwtest::bin_path("xfer_client")};
        opts.timeout_seconds = 120;
        auto r = fwtest::run(
            {fwtest::bin_path("vxemu"), "run", "--host", host_, "--state", dir_ / "st", "--", "sh", "-c", script}, opts);
        EXPECT_NE(r.status, kMalformedRequest) << "malformed request: " << r.err;
        // Nothing on standard error: no library complaint, no sanitizer report.
        if (quiet) {
            EXPECT_EQ(r.err, "");
        }
        return r;
    }
    std::string path(const std::string &name) const { return dir_ / name; }
    Bytes flash(const std::string &adapter) const { return fwtest::read_file(dir_ / ("st/adapters/" + adapter + "/flash.bin")); }
    Bytes block(const std::string &adapter, const char *kind, int fn) const {
        return fwtest::read_file(dir_ / ("st/adapters/" + adapter + "/" + kind + "." + std::to_string(fn) + ".bin"));
    }
    void put(const std::string &name, const Bytes &data) const { fwtest::write_file(dir_ / name, data); }
    Bytes get(const std::string &name) const { return fwtest::read_file(dir_ / name); }
    std::vector<nlohmann::json> log() const {
        std::vector<nlohmann::json> out;
        std::istringstream in(fwtest::read_file(dir_ / "st/traffic.jsonl"));
        std::string line;
        while (std::getline(in, line))
            if (!line.empty()) out.push_back(nlohmann::json::parse(line));
        return out;
    }
    // Control commands written to one function's optrom_ctl, the discovery
    // probe "4" left out.
    std::vector<std::string> ctl_commands(int fn) const {
        std::vector<std::string> out;
        for (const auto &e : log())
            if (e.value("attribute", "") == "optrom_ctl" && e.value("function", -1) == fn && e.value("text", "") != "4")
                out.push_back(e.value("text", ""));
        return out;
    }

private:
    std::string host_;
    fwtest::TempDir dir_{"adapterdata"};
};

// Test name of a host file and adapter instance: "sysfs_chunked_0".
std::string case_name(const std::string &host, int instance) {
    return host.substr(0, host.find('.')) + "_" + std::to_string(instance);
}

std::string hex(unsigned v) {
    char b[16];
    std::snprintf(b, sizeof b, "0x%x", v);
    return b;
}

// A client call inside the sandbox: "$XC op args".
std::string xc(const std::string &args) { return "\"$XC\" " + args + "; "; }

// A host file with faults injected, next to the test's scratch files.
class FaultHost {
public:
    FaultHost(const std::string &base, const std::string &faults) {
        std::string host = fwtest::read_file(host_file(base));
        host.insert(host.find("\"adapters\""), "\"faults\": [ " + faults + " ],\n  ");
        fwtest::write_file(dir_ / "host.json", host);
    }
    std::string path() const { return dir_ / "host.json"; }

private:
    fwtest::TempDir dir_{"adapterdata-host"};
};

// ---- layouts --------------------------------------------------------------------

struct LayoutCase {
    const char *host;
    int instance;
    unsigned count;
    const char *first_lines;  // after the count-first probe
};

void PrintTo(const LayoutCase &c, std::ostream *os) { *os << c.host << " #" << c.instance; }

class XferLayouts : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(XferLayouts, CountFirstThenTheTable) {
    const auto &c = GetParam();
    Host h(host_file(c.host));
    const auto r = h.run(xc("layout " + std::to_string(c.instance)));
    ASSERT_EQ(r.status, 0) << r.err;
    char probe[64];
    std::snprintf(probe, sizeof probe, "probe status=0x20000072 count=%u\n", c.count);
    EXPECT_EQ(r.out.rfind(probe, 0), 0u) << r.out;
    EXPECT_NE(r.out.find(c.first_lines), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("close status=0x00000000\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    AllTransports, XferLayouts,
    ::testing::Values(
        LayoutCase{"sysfs_chunked.json", 0, 12,
                   "layout status=0x00000000 size=0x100000 count=12\nregion 0xff size 0x100000\n"
                   "region 0x07 size 0x80000\nregion 0x01 size 0x80000\nregion 0x08 size 0x10000\n"},
        LayoutCase{"sysfs_plain.json", 1, 12, "region 0x2a size 0x4000\nclose"},
        LayoutCase{"ioctl_families.json", 0, 2,
                   "layout status=0x00000000 size=0x100000 count=2\nregion 0xff size 0x100000\n"
                   "region 0x05 size 0x100000\nclose"},
        LayoutCase{"ioctl_families.json", 1, 5,
                   "region 0x07 size 0x40000\nregion 0x29 size 0x4000\nregion 0x2a size 0x4000\n"
                   "region 0x01 size 0x80000\nclose"},
        LayoutCase{"ioctl_families.json", 2, 12, "region 0x2b size 0x8000\nregion 0x29 size 0x4000\n"},
        LayoutCase{"ioctl_families.json", 3, 12,
                   "layout status=0x00000000 size=0x200000 count=12\nregion 0xff size 0x200000\n"
                   "region 0x07 size 0x80000\nregion 0x01 size 0x80000\nregion 0x40 size 0x10000\n"}),
    [](const auto &p) { return case_name(p.param.host, p.param.instance); });

TEST(XferLayoutFaults, FCX180WithoutItsOwnLayoutFailsWhileFCX160AsksAgain) {
    FaultHost fh("ioctl_families.json", R"({ "command": "0x10", "kind": "status", "status": 6 })");
    Host h(fh.path());
    const auto r = h.run(xc("layout 3") + xc("layout 2"));
    ASSERT_EQ(r.status, 0) << r.err;
    // The FCX180 gives its own code; the FCX160's second request reports the driver's status.
    EXPECT_EQ(r.out, "probe status=0x20000075 count=0\nclose status=0x00000000\n"
                     "probe status=0x20000064 count=0\nclose status=0x00000000\n");
    // Each open loads the layout once; the query asks once more on the FCX180, twice on the FCX160.
    int fcx180 = 0, fcx160 = 0;
    for (const auto &e : h.log()) {
        if (e.value("command", -1) != 0x10) continue;
        if (e.value("adapter", "") == "fcx180") ++fcx180;
        if (e.value("adapter", "") == "fcx160") ++fcx160;
    }
    EXPECT_EQ(fcx180, 2);
    EXPECT_EQ(fcx160, 3);
}

TEST(XferLayoutFaults, FailedLayoutRequestIsAnUnknownErrorNotTheSystemError) {
    // The request itself fails (no completion code): the caller learns 0x20000075, not EIO.
    FaultHost fh("ioctl_families.json", R"({ "command": "0x10", "kind": "errno", "errno": "EIO" })");
    Host h(fh.path());
    const auto r = h.run(xc("layout 1") + xc("layout 2"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "probe status=0x20000075 count=0\nclose status=0x00000000\n"
                     "probe status=0x20000075 count=0\nclose status=0x00000000\n");
}

// ---- region reads and writes ------------------------------------------------------

struct RegionCase {
    const char *host;
    int instance;
    const char *adapter;
    unsigned region;
    uint32_t beg;
    uint32_t size;
};

void PrintTo(const RegionCase &c, std::ostream *os) { *os << c.adapter << " " << hex(c.region); }

class XferRegions : public ::testing::TestWithParam<RegionCase> {};

TEST_P(XferRegions, ReadGivesExactlyTheRegionAndWriteTouchesNothingElse) {
    const auto &c = GetParam();
    Host h(host_file(c.host));
    const std::string inst = std::to_string(c.instance);
    auto r = h.run(xc("read " + inst + " " + hex(c.region) + " " + hex(c.size) + " got.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(r.out, "read status=0x00000000\nclose status=0x00000000\n");
    const Bytes before = h.flash(c.adapter);
    ASSERT_GE(before.size(), std::size_t{c.beg} + c.size);
    EXPECT_TRUE(h.get("got.bin") == before.substr(c.beg, c.size));

    const Bytes data = random_bytes(c.size, c.region);
    h.put("new.bin", data);
    r = h.run(xc("write " + inst + " " + hex(c.region) + " new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");
    const Bytes after = h.flash(c.adapter);
    ASSERT_EQ(after.size(), before.size());
    EXPECT_TRUE(after.substr(c.beg, c.size) == data);
    EXPECT_TRUE(after.substr(0, c.beg) == before.substr(0, c.beg)) << "bytes before the region changed";
    EXPECT_TRUE(after.substr(c.beg + c.size) == before.substr(c.beg + c.size)) << "bytes after the region changed";
}

INSTANTIATE_TEST_SUITE_P(
    AllTransports, XferRegions,
    ::testing::Values(RegionCase{"sysfs_chunked.json", 0, "fcx160", 0x29, 0x170000, 0x4000},
                      RegionCase{"sysfs_plain.json", 0, "fcx160", 0x2A, 0x174000, 0x4000},
                      RegionCase{"sysfs_plain.json", 1, "fcx160", 0x13, 0x100000, 0x20000},
                      RegionCase{"ioctl_families.json", 1, "fcx141", 0x29, 0x58000, 0x4000},
                      RegionCase{"ioctl_families.json", 2, "fcx160", 0x2B, 0x148000, 0x8000},
                      RegionCase{"ioctl_families.json", 3, "fcx180", 0x41, 0x110000, 0x10000}),
    [](const auto &p) { return case_name(p.param.host, p.param.instance) + "_region" + hex(p.param.region); });

TEST(XferRegions, FCX123ReadsItsWholeBootAndFirmwareRegion) {
    Host h(host_file("ioctl_families.json"));
    const auto r = h.run(xc("read 0 0x05 0x100000 got.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(h.get("got.bin") == h.flash("fcx123").substr(0, 0x100000));
}

// ---- the attribute protocol ------------------------------------------------------------

TEST(XferSysfsProtocol, ChunkedWriteReadsTheSectorThenStagesTheWindow) {
    Host h(host_file("sysfs_chunked.json"));
    h.put("new.bin", random_bytes(0x4000, 1));
    const auto r = h.run(xc("write 0 0x29 new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    // The 16 KiB region is widened to its 64 KiB sector, which is read first.
    const std::vector<std::string> want{"1:170000:10000", "0", "2:170000:10000", "3", "0"};
    EXPECT_EQ(h.ctl_commands(0), want);
    EXPECT_TRUE(h.ctl_commands(1).empty());
}

TEST(XferSysfsProtocol, WithoutPartialFormsEveryTransferMovesTheWholeFlash) {
    Host h(host_file("sysfs_plain.json"));
    h.put("new.bin", random_bytes(0x4000, 2));
    const auto r = h.run(xc("read 0 0x07 0x80000 got.bin") + xc("write 0 0x29 new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(h.get("got.bin") == h.flash("fcx160").substr(0, 0x80000));
    const std::vector<std::string> want{"1", "0",             // the read
                                        "1", "0", "1", "0",   // sector contents, whole flash
                                        "2", "3", "0"};       // whole flash back
    EXPECT_EQ(h.ctl_commands(0), want);
}

// Two writers of regions 0x29 (data a) and 0x2A (data b), each `count`
// writes, started together once both have the adapter open; every write
// succeeds.
void run_two_writers(Host &h, const Bytes &a, const Bytes &b, int count) {
    h.put("a.bin", a);
    h.put("b.bin", b);
    const std::string n = std::to_string(count);
    const auto r = h.run("\"$XC\" repeat-write 0 0x29 a.bin " + n + " a > a.out & \"$XC\" repeat-write 0 0x2A b.bin " + n +
                         " b > b.out &\nwhile [ ! -e ready.a ] || [ ! -e ready.b ]; do sleep 0.01; done; touch go; wait");
    ASSERT_EQ(r.status, 0) << r.err;
    std::string ok;
    for (int i = 0; i < count; ++i) ok += "repeat-write status=0x00000000\n";
    ok += "close status=0x00000000\n";
    EXPECT_EQ(h.get("a.out"), ok);
    EXPECT_EQ(h.get("b.out"), ok);
}

TEST(XferSysfsProtocol, ConcurrentWritersNeverInterleaveTheirCommands) {
    Host h(host_file("sysfs_chunked.json"));
    const Bytes a = random_bytes(0x4000, 3), b = random_bytes(0x4000, 4);
    run_two_writers(h, a, b, 4);
    // Every access runs from its start command to its "0" before the next starts.
    const auto cmds = h.ctl_commands(0);
    ASSERT_EQ(cmds.size(), 8u * 5u);
    bool open = false;
    for (const auto &c : cmds) {
        if (c == "0") {
            EXPECT_TRUE(open);
            open = false;
        } else if (c == "3") {
            EXPECT_TRUE(open);
        } else {
            EXPECT_FALSE(open) << "a second access started inside another";
            open = true;
        }
    }
    const Bytes flash = h.flash("fcx160");
    EXPECT_TRUE(flash.substr(0x170000, 0x4000) == a);
    EXPECT_TRUE(flash.substr(0x174000, 0x4000) == b);
}

// ---- statuses --------------------------------------------------------------------------

struct CodeCase {
    const char *name;
    const char *host;
    const char *script;
    const char *out;
};

void PrintTo(const CodeCase &c, std::ostream *os) { *os << c.name; }

class XferCodes : public ::testing::TestWithParam<CodeCase> {};

TEST_P(XferCodes, DocumentedStatus) {
    const auto &c = GetParam();
    Host h(host_file(c.host));
    h.put("r16k.bin", random_bytes(0x4000, 5));
    h.put("r64k.bin", random_bytes(0x10000, 6));
    const auto r = h.run(c.script);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, c.out);
}

INSTANTIATE_TEST_SUITE_P(
    Flash, XferCodes,
    ::testing::Values(
        CodeCase{"ReadOnlyRegion", "ioctl_families.json", "\"$XC\" write 3 0x46 r64k.bin",
                 "write status=0x20000066\nclose status=0x00000000\n"},
        CodeCase{"BufferShorterThanRegion", "ioctl_families.json", "\"$XC\" write 1 0x01 r64k.bin",
                 "write status=0x20000084\nclose status=0x00000000\n"},
        CodeCase{"RegionZero", "sysfs_chunked.json", "\"$XC\" write 0 0 r16k.bin",
                 "write status=0x20000089\nclose status=0x00000000\n"},
        CodeCase{"UnknownRegion", "sysfs_chunked.json", "\"$XC\" write 0 0x77 r16k.bin",
                 "write status=0x20000064\nclose status=0x00000000\n"},
        CodeCase{"RegionWithoutWritePath", "ioctl_families.json", "\"$XC\" write 2 0x08 r64k.bin",
                 "write status=0x20000064\nclose status=0x00000000\n"},
        CodeCase{"BadHandle", "sysfs_chunked.json", "\"$XC\" badhandle",
                 "open status=0x00000000\nlayout status=0x20000065\nread status=0x20000065\n"
                 "write status=0x20000065\nnvram status=0x20000065\nvpd status=0x20000065\n"
                 "node status=0x20000065\nvar value=0x20000065\nsetvar status=0x20000065\n"
                 "reset status=0x20000065\nreset own status=0x20000066\n"}),
    [](const auto &p) { return std::string(p.param.name); });

TEST(XferActivation, FirmwareIsActivatedOnBothPortsOfAnFCX180) {
    Host h(host_file("ioctl_families.json"));
    h.put("fw.bin", random_bytes(0x80000, 7));
    const auto r = h.run(xc("write 3 0x01 fw.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");
    std::vector<int> functions;
    for (const auto &e : h.log())
        if (e.value("command", -1) == 0x18) {
            EXPECT_EQ(e.value("subcode", 0), 0x025C);
            functions.push_back(e.value("function", -1));
        }
    EXPECT_EQ(functions, (std::vector<int>{0, 1}));
    EXPECT_TRUE(h.flash("fcx180").substr(0x80000, 0x80000) == random_bytes(0x80000, 7));
}

TEST(XferActivation, FailedActivationIsReported) {
    FaultHost fh("ioctl_families.json", R"({ "adapter": "fcx180", "command": "0x18", "kind": "status", "status": 1 })");
    Host h(fh.path());
    h.put("r64k.bin", random_bytes(0x10000, 8));
    const auto r = h.run(xc("write 3 0x40 r64k.bin") + xc("write 3 0x2A r64k.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    // 0x40 needs activation and fails; the FCX180 table has no 0x2A.
    EXPECT_EQ(r.out, "write status=0x20000090\nclose status=0x00000000\nwrite status=0x20000064\n"
                     "close status=0x00000000\n");
}

TEST(XferSysfsFaults, AFailedStepStillEndsTheAccessAndChangesNothing) {
    struct Case {
        const char *fault;
        std::vector<std::string> commands;
    };
    const Case cases[] = {
        // The data cannot be written: no "3", but the closing "0".
        {R"({ "attribute": "optrom", "operation": "write", "kind": "errno", "errno": "EIO" })",
         {"1:170000:10000", "0", "2:170000:10000", "0"}},
        // The driver refuses to apply the data.
        {R"({ "attribute": "optrom_ctl", "operation": "write", "ctl": "3", "kind": "errno", "errno": "EIO" })",
         {"1:170000:10000", "0", "2:170000:10000", "3", "0"}},
        // The read of the sector contents fails: nothing is staged at all.
        {R"({ "attribute": "optrom", "operation": "read", "kind": "short", "bytes": 100 })", {"1:170000:10000", "0"}},
    };
    for (const auto &c : cases) {
        FaultHost fh("sysfs_chunked.json", c.fault);
        Host h(fh.path());
        h.put("new.bin", random_bytes(0x4000, 9));
        auto r = h.run(xc("props 0"));
        ASSERT_EQ(r.status, 0) << r.err;
        const Bytes before = h.flash("fcx160");
        r = h.run(xc("write 0 0x29 new.bin"));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "write status=0x20000075\nclose status=0x00000000\n") << c.fault;
        EXPECT_EQ(h.ctl_commands(0), c.commands) << c.fault;
        EXPECT_TRUE(h.flash("fcx160") == before) << c.fault;
    }
}

// ---- NVRAM variables and blocks ---------------------------------------------------------

struct NvramCase {
    const char *host;
    int instance;
    const char *adapter;
    int function;
    unsigned ssdid;
    std::size_t block;
    std::size_t option_byte;  // byte holding NVRAMVarNodeNameOption (bit 6)
};

void PrintTo(const NvramCase &c, std::ostream *os) { *os << c.adapter << " function " << c.function; }

class XferNvramVariables : public ::testing::TestWithParam<NvramCase> {};

TEST_P(XferNvramVariables, ReadAndWriteInTheAdaptersFormat) {
    const auto &c = GetParam();
    Host h(host_file(c.host));
    const std::string inst = std::to_string(c.instance);
    auto r = h.run(xc("var-get " + inst + " 128") + xc("nvram-get " + inst + " 512 nv.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    char want[160];
    std::snprintf(want, sizeof want,
                  "nvram-get status=0x00000000\nvalue=0x%x\nclose status=0x00000000\n"
                  "nvram-get status=0x00000000\nclose status=0x00000000\n",
                  c.ssdid);
    EXPECT_EQ(r.out, want);
    const Bytes before = h.block(c.adapter, "nvram", c.function);
    ASSERT_EQ(before.size(), c.block);
    EXPECT_TRUE(h.get("nv.bin").substr(0, c.block) == before);

    const bool was_set = (static_cast<uint8_t>(before[c.option_byte]) & 0x40) != 0;
    r = h.run(xc("var-set " + inst + " 17 " + (was_set ? "0" : "1")));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "nvram-get status=0x00000000\nset status=0x00000000\nnvram-set status=0x00000000\n"
                     "close status=0x00000000\n");
    const Bytes after = h.block(c.adapter, "nvram", c.function);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
        const uint8_t diff = static_cast<uint8_t>(after[i] ^ before[i]);
        EXPECT_EQ(diff, i == c.option_byte ? 0x40 : 0) << "byte " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    BothFormats, XferNvramVariables,
    ::testing::Values(NvramCase{"ioctl_families.json", 0, "fcx123", 0, 0x123, 256, 9},  // basic: word 4 bit 14
                      NvramCase{"ioctl_families.json", 1, "fcx141", 0, 0x141, 512, 0x2D},
                      NvramCase{"sysfs_chunked.json", 1, "fcx160", 1, 0x162, 512, 0x2D},
                      NvramCase{"ioctl_families.json", 4, "fcx180", 1, 0x182, 512, 0x2D}),
    [](const auto &p) { return case_name(p.param.host, p.param.instance); });

TEST(XferNvramBlock, SysfsReadNeedsTheWholeBlock) {
    Host h(host_file("sysfs_chunked.json"));
    const auto r = h.run(xc("nvram-get 0 100 nv.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "nvram-get status=0x20000072\nclose status=0x00000000\n");
}

// ---- VPD -------------------------------------------------------------------------------------

TEST(XferVpd, SerialNumberComesFromTheVpdAndTheBlockRoundTrips) {
    Host h(host_file("sysfs_chunked.json"));
    auto r = h.run(xc("props 0") + xc("vpd-get 0 512 vpd.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("model=VX2162-SYSFS-LO serial=VXS0000160 ports=2\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("portid=010200 state=3 speed=8\n"), std::string::npos) << r.out;
    Bytes vpd = h.get("vpd.bin");
    ASSERT_EQ(vpd.size(), 512u);
    EXPECT_TRUE(vpd == h.block("fcx160", "vpd", 0));
    const auto sn = vpd.find("SN");
    ASSERT_NE(sn, std::string::npos);
    vpd[sn + 3] = 'W';  // a new serial letter; the library writes what it is given
    h.put("vpd2.bin", vpd);
    r = h.run(xc("vpd-set 0 vpd2.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "vpd-set status=0x00000000\nsize=512\nclose status=0x00000000\n");
    EXPECT_TRUE(h.block("fcx160", "vpd", 0) == vpd);
}

TEST(XferVpd, FCX180BlocksAreFlashRegionsByPciFunction) {
    Host h(host_file("ioctl_families.json"));
    const auto r = h.run(xc("vpd-get 3 512 v0.bin") + xc("vpd-get 4 512 v1.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes flash = h.flash("fcx180");
    EXPECT_TRUE(h.get("v0.bin") == flash.substr(0x120000, 512));
    EXPECT_TRUE(h.get("v1.bin") == flash.substr(0x120400, 512));
    int reads = 0;
    for (const auto &e : h.log())
        if (e.value("command", -1) == 0x0F && e.value("subcode", 0) == 0xFFFF) ++reads;
    EXPECT_EQ(reads, 2);
}

TEST(XferVpd, ToolFieldLookupMatchesOnTheKeywordsFirstLetter) {
    Host h(host_file("ioctl_families.json"));
    const auto r = h.run("\"" + fwtest::bin_path("vpd_field_client") + "\" 1 SN EC SX PN ZZ");
    ASSERT_EQ(r.status, 0) << r.err;
    // "SX" finds the first field starting with 'S'; an absent letter leaves the text alone.
    EXPECT_EQ(r.out, "SN 0x00000000 VXI0000141\nEC 0x00000000 B02\nSX 0x00000000 VXI0000141\n"
                     "PN 0x00000000 VX2141\nZZ 0x00000000 -\nnone 0x2000008a\n");
}

// ---- boot code writes keep the adapter's data --------------------------------------------

bool image_checksum_ok(const Bytes &img, std::size_t off) {
    const std::size_t len = static_cast<uint8_t>(img[off + 2]) * 512u;
    unsigned sum = 0;
    for (std::size_t i = 0; i + 2 < len; ++i) sum += static_cast<uint8_t>(img[off + i]);
    sum += static_cast<uint8_t>(img[off + len - 1]);
    return (sum & 0xFF) == 0;
}

// Writes d/host.json: the host file `base` whose FCX141 (serial `sn`)
// carries the VPD block d/vpd.bin with the version fields "V3", "V4" and
// "V5" at "00.00", and the given faults.
void write_versions_vpd_host(const fwtest::TempDir &d, const std::string &base, const std::string &sn,
                             const std::string &faults = "") {
    const auto mk = fwtest::run({fwtest::bin_path("vxemu"), "mkimage", "vpd", "--out", d / "vpd.bin", "--id",
                                 "VX2141 Adapter", "--pn", "VX2141", "--ec", "B02", "--sn", sn, "--field", "V3=00.00",
                                 "--field", "V4=00.00", "--field", "V5=00.00"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    std::string host = fwtest::read_file(host_file(base));
    const std::string vpd_key = R"("vpd": { "pn": "VX2141", "ec": "B02", "sn": ")" + sn + "\" }";
    ASSERT_NE(host.find(vpd_key), std::string::npos);
    host.replace(host.find(vpd_key), vpd_key.size(), R"("vpd_file": "vpd.bin")");
    if (!faults.empty()) host.insert(host.find("\"adapters\""), "\"faults\": [ " + faults + " ],\n  ");
    fwtest::write_file(d / "host.json", host);
}

TEST(XferPreserve, BootCodeWriteKeepsParameterBlockSsvidAndUpdatesVpdVersions) {
    fwtest::TempDir d("adapterdata-host");
    const std::string vxemu = fwtest::bin_path("vxemu");
    write_versions_vpd_host(d, "ioctl_families.json", "VXI0000141");
    Host h(d / "host.json");
    const auto mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("new.bin"), "--chip", "FCX141", "--image",
                                 "bios:1.33", "--image", "fcode:1.44", "--image", "efi:1.55", "--param-seed", "9",
                                 "--ssvid", "0x4321", "--size", "0x40000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    auto r = h.run(xc("props 1"));  // boots the adapter so its flash is on disk
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes before = h.flash("fcx141");
    const Bytes image = h.get("new.bin");
    r = h.run(xc("write 1 0x07 new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");

    const Bytes after = h.flash("fcx141");
    const auto old_marker = before.find("MEFCX ");
    const auto new_marker = after.find("MEFCX ");
    ASSERT_NE(old_marker, std::string::npos);
    ASSERT_EQ(new_marker, image.find("MEFCX "));
    EXPECT_TRUE(after.substr(new_marker + 2, 512) == before.substr(old_marker + 2, 512)) << "parameter block lost";
    EXPECT_EQ(after.substr(32, 2), before.substr(32, 2)) << "subsystem vendor bytes lost";
    EXPECT_TRUE(image_checksum_ok(after, 0));
    EXPECT_TRUE(after.substr(0x40000) == before.substr(0x40000)) << "bytes past the boot code changed";
    EXPECT_TRUE(h.get("new.bin") == image);

    const Bytes vpd = h.block("fcx141", "vpd", 0);
    EXPECT_NE(vpd.find("V3\x05" "01.33"), std::string::npos);
    EXPECT_NE(vpd.find("V4\x05" "01.44"), std::string::npos);
    EXPECT_NE(vpd.find("V5\x05" "01.55"), std::string::npos);
    EXPECT_NE(vpd.find("SN\x0AVXI0000141"), std::string::npos);
}

TEST(XferPreserve, FCX160BootCodeIsStoredTwice) {
    Host h(host_file("ioctl_families.json"));
    auto mk = fwtest::run({fwtest::bin_path("vxemu"), "mkimage", "optrom", "--out", h.path("new.bin"), "--chip",
                           "FCX160", "--image", "bios:1.22", "--image", "efi:1.40", "--size", "0x80000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    Bytes image = h.get("new.bin");
    std::fill(image.begin() + 0x40000, image.end(), '\x5A');  // a second half that must not survive
    h.put("new.bin", image);
    const auto r = h.run(xc("write 2 0x07 new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");
    const Bytes flash = h.flash("fcx160");
    EXPECT_TRUE(flash.substr(0x40000, 0x40000) == flash.substr(0, 0x40000));
    EXPECT_EQ(flash.substr(0, 0x40000).find("MEFCX "), image.find("MEFCX "));
}

TEST(XferPreserve, FCX123KeepsItsVpdImageAcrossABootCodeWrite) {
    Host h(host_file("ioctl_families.json"));
    const std::string vxemu = fwtest::bin_path("vxemu");
    // A chain carrying a VPD image (PCI device ID 1), then one without.
    auto mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("with_vpd.bin"), "--chip", "FCX123", "--image",
                           "bios:1.60", "--image", "efi:0.01:devid=1:no-param", "--size", "0x100000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("new.bin"), "--chip", "FCX123", "--image",
                      "bios:1.70", "--size", "0x100000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    const auto r = h.run(xc("write 0 0x05 with_vpd.bin") + xc("write 0 0x05 new.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n"
                     "write status=0x00000000\nclose status=0x00000000\n");
    const Bytes with_vpd = h.get("with_vpd.bin"), image = h.get("new.bin"), flash = h.flash("fcx123");
    // The VPD image follows the new BIOS image, which hands on its last-image bit.
    EXPECT_TRUE(flash.substr(0x8000, 0x8000) == with_vpd.substr(0x8000, 0x8000));
    const std::size_t pcir = static_cast<uint8_t>(flash[24]) | static_cast<uint8_t>(flash[25]) << 8;
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x13]), 1);  // the new BIOS 1.70
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x12]), 70);
    EXPECT_EQ(static_cast<uint8_t>(flash[pcir + 0x15]), 0x00);
    EXPECT_TRUE(image_checksum_ok(flash, 0));
    EXPECT_TRUE(flash.substr(0x10000, 0x10000) == image.substr(0x10000, 0x10000));
}

// ---- short replies and failures midway ------------------------------------------------------

// Control commands of one function with the process that wrote each.
std::vector<std::pair<std::string, unsigned>> ctl_commands_by_pid(const Host &h, int fn) {
    std::vector<std::pair<std::string, unsigned>> out;
    for (const auto &e : h.log())
        if (e.value("attribute", "") == "optrom_ctl" && e.value("function", -1) == fn && e.value("text", "") != "4")
            out.emplace_back(e.value("text", ""), e.value("pid", 0u));
    return out;
}

int count_commands(const Host &h, int command) {
    int n = 0;
    for (const auto &e : h.log())
        if (e.value("command", -1) == command) ++n;
    return n;
}

// The VPD block's "RV" byte makes the bytes through it sum to 0.
bool vpd_checksum_ok(const Bytes &vpd) {
    const auto rv = vpd.find("RV");
    if (rv == std::string::npos || rv + 3 >= vpd.size()) return false;
    unsigned sum = 0;
    for (std::size_t i = 0; i <= rv + 3; ++i) sum += static_cast<uint8_t>(vpd[i]);
    return (sum & 0xFF) == 0;
}

TEST(XferShortReplies, AShortFlashReadFailsTheCallAndNothingIsWritten) {
    FaultHost fh("ioctl_families.json", R"({ "adapter": "fcx141", "command": "0x0F", "kind": "short", "bytes": 4096 },
                                          { "adapter": "fcx123", "command": "0x0F", "kind": "short", "bytes": 4096 })");
    Host h(fh.path());
    const std::string vxemu = fwtest::bin_path("vxemu");
    auto mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("new141.bin"), "--chip", "FCX141", "--image",
                           "bios:1.33", "--param-seed", "9", "--ssvid", "0x4321", "--size", "0x40000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("new123.bin"), "--chip", "FCX123", "--image",
                      "bios:1.70", "--size", "0x100000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    auto r = h.run(xc("props 0") + xc("props 1"));
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes fcx141 = h.flash("fcx141"), fcx123 = h.flash("fcx123");
    r = h.run(xc("write 1 0x07 new141.bin") + xc("write 0 0x05 new123.bin") + xc("read 1 0x07 0x40000 got.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    // A reply of 4 KiB for a request of 256 KiB or 1 MiB is a data underrun.
    EXPECT_EQ(r.out, "write status=0x2000006c\nclose status=0x00000000\n"
                     "write status=0x2000006c\nclose status=0x00000000\n"
                     "read status=0x2000006c\nclose status=0x00000000\n");
    EXPECT_TRUE(h.flash("fcx141") == fcx141);
    EXPECT_TRUE(h.flash("fcx123") == fcx123);
    EXPECT_EQ(count_commands(h, 0x0A), 0) << "a write was built from a partly filled buffer";
    EXPECT_EQ(count_commands(h, 0x12), 0);
}

// A boot code write to an FCX141 whose VPD carries the version fields.
class VpdWriteBack : public ::testing::TestWithParam<const char *> {};

TEST_P(VpdWriteBack, AWriteThatDiesMidwayLeavesAVpdWhoseChecksumHolds) {
    const bool sysfs = std::string(GetParam()) == "sysfs";
    fwtest::TempDir d("adapterdata-host");
    const std::string vxemu = fwtest::bin_path("vxemu");
    // The write stops after the version fields and before "RV"; the place
    // of "RV" does not depend on the serial number's text.
    write_versions_vpd_host(d, "ioctl_families.json", "VXI0000141");
    const Bytes vpd = fwtest::read_file(d / "vpd.bin");
    ASSERT_TRUE(vpd_checksum_ok(vpd));
    const auto rv = vpd.find("RV");
    ASSERT_LT(vpd.find("V3"), rv);
    const std::string stop = R"("kind": "stop_after", "bytes": )" + std::to_string(rv) + R"(, "times": 1 })";
    if (sysfs)
        write_versions_vpd_host(d, "sysfs_fcx141.json", "VXS0000141",
                                R"({ "attribute": "vpd", "operation": "write", )" + stop);
    else
        write_versions_vpd_host(d, "ioctl_families.json", "VXI0000141",
                                R"({ "adapter": "fcx141", "command": "0x12", )" + stop);
    const Bytes written = fwtest::read_file(d / "vpd.bin");

    Host h(d / "host.json");
    const std::string inst = sysfs ? "0" : "1";
    const auto mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", h.path("new.bin"), "--chip", "FCX141", "--image",
                                 "bios:1.33", "--image", "efi:1.55", "--size", "0x40000"});
    ASSERT_EQ(mk.status, 0) << mk.err;
    const auto r = h.run(xc("write " + inst + " 0x07 new.bin") + xc("vpd-get " + inst + " 512 vpd.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    // The boot code is written, the VPD write fails and the previous block is back.
    EXPECT_EQ(r.out, "write status=0x20000075\nclose status=0x00000000\n"
                     "vpd-get status=0x00000000\nclose status=0x00000000\n");
    const Bytes after = h.block("fcx141", "vpd", 0);
    EXPECT_TRUE(vpd_checksum_ok(after));
    EXPECT_TRUE(after == written);
    EXPECT_TRUE(h.get("vpd.bin") == written);
}

INSTANTIATE_TEST_SUITE_P(BothTransports, VpdWriteBack, ::testing::Values("ioctl", "sysfs"),
                         [](const auto &p) { return std::string(p.param); });

TEST(XferSysfsBlocks, AnImageLargerThanTheBlockIsRefusedNotCut) {
    Host h(host_file("sysfs_chunked.json"));
    h.put("big.bin", random_bytes(1024, 11));
    auto r = h.run(xc("props 0"));
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes nvram = h.block("fcx160", "nvram", 0), vpd = h.block("fcx160", "vpd", 0);
    r = h.run(xc("nvram-set 0 big.bin") + xc("vpd-set 0 big.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "nvram-set status=0x20000075\nclose status=0x00000000\n"
                     "vpd-set status=0x20000075\nsize=1024\nclose status=0x00000000\n");
    EXPECT_TRUE(h.block("fcx160", "nvram", 0) == nvram);
    EXPECT_TRUE(h.block("fcx160", "vpd", 0) == vpd);
}

TEST(XferSysfsProtocol, ConcurrentReadModifyWritesKeepEachOthersRegions) {
    // Without the partial forms each region write reads the whole flash and
    // writes it all back: the read and the write are one access.
    Host h(host_file("sysfs_fcx141.json"));
    const Bytes a = random_bytes(0x4000, 12), b = random_bytes(0x4000, 13);
    run_two_writers(h, a, b, 12);
    const auto cmds = ctl_commands_by_pid(h, 0);
    ASSERT_EQ(cmds.size(), 24u * 5u);
    const std::vector<std::string> one{"1", "0", "2", "3", "0"};
    for (std::size_t i = 0; i < cmds.size(); i += 5)
        for (std::size_t k = 0; k < 5; ++k) {
            EXPECT_EQ(cmds[i + k].first, one[k]) << "command " << i + k;
            EXPECT_EQ(cmds[i + k].second, cmds[i].second) << "another writer inside the access at " << i + k;
        }
    const Bytes flash = h.flash("fcx141");
    EXPECT_TRUE(flash.substr(0x58000, 0x4000) == a) << "region 0x29 lost";
    EXPECT_TRUE(flash.substr(0x5C000, 0x4000) == b) << "region 0x2A lost";
}

TEST(XferSysfsFaults, AFailedClosingCommandReachesTheCaller) {
    FaultHost fh("sysfs_chunked.json",
                 R"({ "attribute": "optrom_ctl", "operation": "write", "ctl": "0", "kind": "errno", "errno": "EIO" })");
    Host h(fh.path());
    const auto r = h.run(xc("read 0 0x29 0x4000 got.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "read status=0x20000075\nclose status=0x00000000\n");

    FaultHost plain("sysfs_fcx141.json",
                    R"({ "attribute": "optrom_ctl", "operation": "write", "ctl": "0", "kind": "errno", "errno": "EIO" })");
    Host w(plain.path());
    w.put("all.bin", random_bytes(0x100000, 14));
    const auto rw = w.run(xc("write 0 0xFF all.bin ex2"));
    ASSERT_EQ(rw.status, 0) << rw.err;
    EXPECT_EQ(rw.out, "write status=0x20000075\nclose status=0x00000000\n");
    EXPECT_EQ(w.ctl_commands(0), (std::vector<std::string>{"2", "3", "0"}));
}

// ---- completion codes of the property and flash calls ---------------------------------------

TEST(XferStatuses, EveryCallConvertsTheDriversCompletionCode) {
    FaultHost fh("ioctl_families.json",
                 R"({ "adapter": "fcx141", "command": "0x06", "subcode": 6, "kind": "status", "status": 15, "detail": 8 },
                    { "adapter": "fcx141", "command": "0x06", "subcode": 3, "kind": "status", "status": 2 },
                    { "adapter": "fcx141", "command": "0x06", "subcode": 8, "kind": "status", "status": 2 },
                    { "adapter": "fcx141", "command": "0x07", "subcode": 8, "kind": "status", "status": 2 },
                    { "adapter": "fcx141", "command": "0x00", "subcode": 9, "kind": "status", "status": 2 },
                    { "adapter": "fcx141", "command": "0x00", "subcode": 2, "kind": "short", "bytes": 8 },
                    { "adapter": "fcx123", "command": "0x0F", "kind": "status", "status": 15, "detail": 8 })");
    Host h(fh.path());
    const auto r = h.run(xc("statuses 1") + xc("read 0 0x05 0x100000 got.bin"));
    ASSERT_EQ(r.status, 0) << r.err;
    // Status 15 goes by its SCSI status (8: busy); 2 is a busy device; a
    // record that comes back short is a data underrun. The record of a
    // failed call is left as it was.
    EXPECT_EQ(r.out, "driver status=0x20000042\nport status=0x2000006c\nstatistics status=0x20000067\n"
                     "beacon-get status=0x20000067\n"
                     "beacon=0x5a5a\nbeacon-set status=0x20000067\ncna status=0x20000067\nclose status=0x00000000\n"
                     "read status=0x20000042\nclose status=0x00000000\n");
}

// ---- many processes at once -----------------------------------------------------------------

TEST(XferSharedState, ChurningProcessesAndTwoWritersShareNoFlashAccessAndLeaveNothingBehind) {
    // 32 programs open, query and close the adapter again and again, so the
    // last one out removes the semaphores and the shared file over and over
    // while others join; two writers run among them. The run is bounded by
    // its counts. Afterwards nothing may be left: no semaphore set, no
    // shared file, no process of the run, no descriptor in any program.
    Host h(host_file("sysfs_fcx141.json"));
    const Bytes a = random_bytes(0x4000, 15), b = random_bytes(0x4000, 16);
    h.put("a.bin", a);
    h.put("b.bin", b);
    // The programs run in a session of their own, so that anything they
    // leave running can be found by it.
    std::string script = "setsid -w sh -c '\n";
    script += "for n in $(seq 1 32); do \"$XC\" churn 0 6 > churn.$n & done\n";
    script += "\"$XC\" repeat-write 0 0x29 a.bin 3 > a.out & \"$XC\" repeat-write 0 0x2A b.bin 3 > b.out &\nwait\n";
    script += "ps -o pid=,comm= -s $$ | grep -v -w -e sh -e ps -e grep > strays || true\n'\n";
    script += "cat churn.* strays; test -e /tmp/vxhmx.dat && echo left; ipcs -s | grep -c -e 0x0000033d -e 0x000003d4 || true\n";
    const auto r = h.run(script, false);
    ASSERT_EQ(r.status, 0) << r.err;
    // More than eight programs at once share instance slots, which the
    // library reports; no semaphore operation may fail.
    std::istringstream err(r.err);
    for (std::string line; std::getline(err, line);)
        EXPECT_EQ(line, "libvxhmx: INFO - Assigning lib instance number to 0.");
    std::string want;
    for (int n = 0; n < 32; ++n) want += "churn failed=0 descriptors left=0\n";
    EXPECT_EQ(r.out, want + "0\n") << "nothing may be left once everyone has gone";
    const std::string ok3 = "repeat-write status=0x00000000\nrepeat-write status=0x00000000\n"
                            "repeat-write status=0x00000000\nclose status=0x00000000\n";
    EXPECT_EQ(h.get("a.out"), ok3);
    EXPECT_EQ(h.get("b.out"), ok3);
    const auto cmds = ctl_commands_by_pid(h, 0);
    ASSERT_EQ(cmds.size(), 6u * 5u);
    for (std::size_t i = 0; i < cmds.size(); i += 5)
        for (std::size_t k = 0; k < 5; ++k) EXPECT_EQ(cmds[i + k].second, cmds[i].second) << "at " << i + k;
    const Bytes flash = h.flash("fcx141");
    EXPECT_TRUE(flash.substr(0x58000, 0x4000) == a);
    EXPECT_TRUE(flash.substr(0x5C000, 0x4000) == b);
}

}  // namespace

// ---- seeded fault kinds on a boot code write ----------------------------------------

// One fault kind met by a boot code write to an FCX141 (whose VPD carries the
// version fields), on either transport.
struct FaultKindCase {
    const char *name;
    bool sysfs;
    const char *fault;  // without the adapter, which the test adds
};

void PrintTo(const FaultKindCase &c, std::ostream *os) { *os << c.name; }

class XferFaultKinds : public ::testing::TestWithParam<FaultKindCase> {
protected:
    // The host (with `faults`), the image and the flash and VPD before the write.
    void prepare(const fwtest::TempDir &d, const std::string &faults) {
        const FaultKindCase &c = GetParam();
        write_versions_vpd_host(d, c.sysfs ? "sysfs_fcx141.json" : "ioctl_families.json",
                                c.sysfs ? "VXS0000141" : "VXI0000141", faults);
        // With the partial forms a commit stores the boot code region only;
        // without them every commit rewrites the whole flash, bytes the
        // library never read included.
        std::string host = fwtest::read_file(d / "host.json");
        if (const auto at = host.find(R"("chunked": false)"); at != std::string::npos) {
            host.replace(at, 16, R"("chunked": true)");
            fwtest::write_file(d / "host.json", host);
        }
        const auto mk = fwtest::run({fwtest::bin_path("vxemu"), "mkimage", "optrom", "--out", d / "new.bin", "--chip",
                                     "FCX141", "--image", "bios:1.33", "--image", "fcode:1.44", "--image", "efi:1.55",
                                     "--param-seed", "9", "--ssvid", "0x4321", "--size", "0x40000"});
        ASSERT_EQ(mk.status, 0) << mk.err;
    }
    std::string instance() const { return GetParam().sysfs ? "0" : "1"; }
};

TEST_P(XferFaultKinds, TheAdaptersOwnDataSurvivesAndOnlyATrueWriteIsASuccess) {
    const FaultKindCase &c = GetParam();
    // The same write on the same adapter without the fault: what success means.
    fwtest::TempDir clean_dir("adapterdata-host");
    prepare(clean_dir, "");
    Host clean(clean_dir / "host.json");
    fwtest::write_file(clean.path("new.bin"), fwtest::read_file(clean_dir / "new.bin"));
    auto r = clean.run(xc("write " + instance() + " 0x07 new.bin"));
    ASSERT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");
    const Bytes clean_flash = clean.flash("fcx141"), clean_vpd = clean.block("fcx141", "vpd", 0);

    fwtest::TempDir d("adapterdata-host");
    std::string fault = c.fault;
    fault.insert(1, R"( "adapter": "fcx141",)");
    prepare(d, fault);
    Host h(d / "host.json");
    fwtest::write_file(h.path("new.bin"), fwtest::read_file(d / "new.bin"));
    r = h.run(xc("props " + instance()));
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes before = h.flash("fcx141"), vpd_before = h.block("fcx141", "vpd", 0);
    const Bytes nvram_before = h.block("fcx141", "nvram", 0);

    r = h.run(xc("write " + instance() + " 0x07 new.bin"), false);
    ASSERT_EQ(r.status, 0) << r.err;
    const bool success = r.out == "write status=0x00000000\nclose status=0x00000000\n";
    const Bytes after = h.flash("fcx141"), vpd_after = h.block("fcx141", "vpd", 0);
    bool fired = false;
    for (const auto &e : h.log()) fired = fired || !e.value("fault", "").empty();
    EXPECT_TRUE(fired) << "the fault never fired";

    // A success is a write that really happened, with the adapter's data.
    if (success) {
        EXPECT_TRUE(after == clean_flash) << "success reported for a flash that is not the written one";
        EXPECT_TRUE(vpd_after == clean_vpd) << "success reported for a VPD that is not the written one";
    }
    // Whatever happened: nothing outside the boot code, and none of the
    // adapter's own bytes, is lost.
    EXPECT_TRUE(after.substr(0x40000) == before.substr(0x40000)) << "bytes past the boot code changed";
    const auto old_marker = before.find("MEFCX ");
    const auto marker = after.find("MEFCX ");
    ASSERT_NE(old_marker, std::string::npos);
    ASSERT_NE(marker, std::string::npos) << "parameter block lost";
    EXPECT_TRUE(after.substr(marker + 2, 512) == before.substr(old_marker + 2, 512)) << "parameter block lost";
    EXPECT_EQ(after.substr(32, 2), before.substr(32, 2)) << "subsystem vendor bytes lost";
    EXPECT_TRUE(h.block("fcx141", "nvram", 0) == nvram_before);
    EXPECT_TRUE(vpd_after == vpd_before || vpd_after == clean_vpd) << "VPD neither kept nor written";
    EXPECT_TRUE(vpd_checksum_ok(vpd_after));
}

INSTANTIATE_TEST_SUITE_P(
    SeededFaults, XferFaultKinds,
    ::testing::Values(
        FaultKindCase{"ioctl_flash_read_bitflip", false, R"({ "command": "0x0F", "kind": "bitflip", "bits": 4096, "times": 1 })"},
        FaultKindCase{"ioctl_write_stores_nothing", false,
                      R"({ "command": "0x0A", "subcode": 7, "kind": "lie", "store": "nothing", "times": 1 })"},
        FaultKindCase{"ioctl_write_stores_other_bytes", false,
                      R"({ "command": "0x0A", "subcode": 7, "kind": "lie", "store": "other", "times": 1 })"},
        FaultKindCase{"ioctl_partial_write", false, R"({ "command": "0x0A", "subcode": 7, "kind": "partial", "times": 1 })"},
        FaultKindCase{"ioctl_vpd_read_bitflip", false, R"({ "command": "0x11", "kind": "bitflip", "bits": 8, "times": 1 })"},
        FaultKindCase{"ioctl_vpd_write_stores_other_bytes", false,
                      R"({ "command": "0x12", "kind": "lie", "store": "other", "times": 1 })"},
        FaultKindCase{"ioctl_vpd_partial_write", false, R"({ "command": "0x12", "kind": "partial", "times": 1 })"},
        FaultKindCase{"sysfs_flash_read_bitflip", true,
                      R"({ "attribute": "optrom", "operation": "read", "kind": "bitflip", "bits": 4096, "times": 1 })"},
        FaultKindCase{"sysfs_commit_stores_other_bytes", true,
                      R"({ "attribute": "optrom_ctl", "ctl": "3", "kind": "lie", "store": "other", "times": 1 })"},
        FaultKindCase{"sysfs_partial_commit", true,
                      R"({ "attribute": "optrom_ctl", "ctl": "3", "kind": "partial", "times": 1 })"},
        FaultKindCase{"sysfs_vpd_write_stores_nothing", true,
                      R"({ "attribute": "vpd", "operation": "write", "kind": "lie", "store": "nothing", "times": 1 })"},
        FaultKindCase{"sysfs_short_vpd_read", true,
                      R"({ "attribute": "vpd", "operation": "read", "kind": "short", "bytes": 100, "times": 1 })"}),
    [](const auto &p) { return std::string(p.param.name); });

// ---- seeded fault kinds on an FCX123 whose flash carries a VPD image ----------------

// The older chips keep their VPD as an image in the boot code chain: a whole
// boot code write must carry it into the new chain whatever the adapter
// does wrong, or report a failure with the flash as it was.
struct VpdImageFaultCase {
    const char *name;
    const char *fault;  // without the adapter, which the test adds
};

void PrintTo(const VpdImageFaultCase &c, std::ostream *os) { *os << c.name; }

class XferVpdImageFaults : public ::testing::TestWithParam<VpdImageFaultCase> {
protected:
    // A host whose FCX123 boots from a chain with a VPD image, with `fault`.
    static std::string host(const fwtest::TempDir &d, const std::string &fault) {
        std::string text = fwtest::read_file(host_file("ioctl_families.json"));
        const std::string versions = R"("flash": { "bios": "1.60", "firmware": "3.3.20" })";
        text.replace(text.find(versions), versions.size(), R"("flash": { "file": ")" + (d / "with_vpd.bin") + "\" }");
        if (!fault.empty()) {
            std::string f = fault;
            f.insert(1, R"( "adapter": "fcx123",)");
            text.insert(text.find("\"adapters\""), "\"faults\": [ " + f + " ],\n  ");
        }
        const std::string name = fault.empty() ? "clean.json" : "faulty.json";
        fwtest::write_file(d / name, text);
        return d / name;
    }
    void SetUp() override {
        const std::string vxemu = fwtest::bin_path("vxemu");
        auto mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", dir_ / "with_vpd.bin", "--chip", "FCX123", "--image",
                               "bios:1.60", "--image", "efi:0.01:devid=1:no-param", "--param-seed", "5", "--ssvid",
                               "0x4321", "--size", "0x100000"});
        ASSERT_EQ(mk.status, 0) << mk.err;
        mk = fwtest::run({vxemu, "mkimage", "optrom", "--out", dir_ / "new.bin", "--chip", "FCX123", "--image",
                          "bios:1.70", "--size", "0x100000"});
        ASSERT_EQ(mk.status, 0) << mk.err;
    }
    fwtest::TempDir dir_{"adapterdata-host"};
};

TEST_P(XferVpdImageFaults, TheVpdImageAndParameterBlockSurviveAndOnlyATrueWriteIsASuccess) {
    Host clean(host(dir_, ""));
    clean.put("new.bin", fwtest::read_file(dir_ / "new.bin"));
    auto r = clean.run(xc("write 0 0x05 new.bin"));
    ASSERT_EQ(r.out, "write status=0x00000000\nclose status=0x00000000\n");
    const Bytes clean_flash = clean.flash("fcx123");

    Host h(host(dir_, GetParam().fault));
    h.put("new.bin", fwtest::read_file(dir_ / "new.bin"));
    r = h.run(xc("props 0"));
    ASSERT_EQ(r.status, 0) << r.err;
    const Bytes before = h.flash("fcx123"), nvram_before = h.block("fcx123", "nvram", 0);
    r = h.run(xc("write 0 0x05 new.bin"), false);
    ASSERT_EQ(r.status, 0) << r.err;
    bool fired = false;
    for (const auto &e : h.log()) fired = fired || !e.value("fault", "").empty();
    EXPECT_TRUE(fired) << "the fault never fired";

    const Bytes after = h.flash("fcx123");
    if (r.out == "write status=0x00000000\nclose status=0x00000000\n") {
        EXPECT_TRUE(after == clean_flash) << "success reported for a flash that is not the written one";
    }
    // A write the adapter reports as failed may have stored part of the new
    // chain (the next update finishes it), but never any third byte.
    ASSERT_EQ(after.size(), before.size());
    size_t foreign = 0;
    for (size_t i = 0; i < after.size(); ++i) foreign += after[i] != before[i] && after[i] != clean_flash[i];
    EXPECT_EQ(foreign, 0u) << "bytes that are neither the old nor the new chain";
    // The VPD image follows the first BIOS image in both chains.
    EXPECT_TRUE(after.substr(0x8000, 0x8000) == before.substr(0x8000, 0x8000)) << "VPD image lost";
    const auto old_marker = before.find("MEFCX "), marker = after.find("MEFCX ");
    ASSERT_NE(old_marker, std::string::npos);
    ASSERT_NE(marker, std::string::npos) << "parameter block lost";
    EXPECT_TRUE(after.substr(marker + 2, 256) == before.substr(old_marker + 2, 256)) << "parameter block lost";
    EXPECT_EQ(after.substr(32, 2), before.substr(32, 2)) << "subsystem vendor bytes lost";
    EXPECT_TRUE(image_checksum_ok(after, 0));
    EXPECT_TRUE(h.block("fcx123", "nvram", 0) == nvram_before);
}

INSTANTIATE_TEST_SUITE_P(
    SeededFaults, XferVpdImageFaults,
    ::testing::Values(
        VpdImageFaultCase{"flash_read_bitflip", R"({ "command": "0x0F", "kind": "bitflip", "bits": 4096, "times": 1 })"},
        VpdImageFaultCase{"write_stores_nothing", R"({ "command": "0x0A", "kind": "lie", "store": "nothing", "times": 1 })"},
        VpdImageFaultCase{"write_stores_other_bytes", R"({ "command": "0x0A", "kind": "lie", "store": "other", "times": 1 })"},
        VpdImageFaultCase{"partial_write", R"({ "command": "0x0A", "kind": "partial", "times": 1 })"},
        VpdImageFaultCase{"short_flash_read", R"({ "command": "0x0F", "kind": "short", "bytes": 4096, "times": 1 })"}),
    [](const auto &p) { return std::string(p.param.name); });

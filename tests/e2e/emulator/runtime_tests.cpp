// SPDX-License-Identifier: MIT
// Pure-logic tests of the vxemu runtime: the request service against a fake
// caller memory, the attribute protocol of the sysfs tree, the emulated
// /proc/devices text and the traffic log lines.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>

#include "driver_service.h"
#include "fake_memory.h"
#include "netlink_service.h"
#include "sandbox.h"
#include "sysfs_tree.h"
#include "traffic_log.h"
#include "wire.h"

namespace vxemu {
namespace {

Host test_host() {
    auto h = parse_host_json(R"({
      "adapters": [
        { "name": "a", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
          "functions": [ { "pci": "0000:07:00.0", "host": 7 } ] },
        { "name": "o", "chip": "FCX123", "transport": "ioctl_old", "flash": { "bios": "1.00", "firmware": "3.3.1" },
          "functions": [ { "pci": "0000:08:00.0", "host": 8 } ] },
        { "name": "s", "chip": "FCX144", "transport": "sysfs", "chunked": true,
          "flash": { "bios": "1.00", "firmware": "5.0.1" }, "functions": [ { "pci": "0000:09:00.0", "host": 9 } ] } ] })",
                             "test.json");
    EXPECT_TRUE(h.ok()) << h.error().message;
    return std::move(h).value();
}

struct Fixture : ::testing::Test {
    Host host = test_host();
    TrafficLog log;
    FaultInjector faults{host};
    DriverService driver{host, log, faults};
    FakeMemory mem;

    // A current-layout header built at the documented offsets.
    std::vector<uint8_t> header(uint16_t sub, uint16_t hba, uint64_t req, uint32_t reqlen, uint64_t resp,
                                uint32_t resplen, uint32_t reserved1 = 0) {
        std::vector<uint8_t> h(116, 0);
        wire::ByteWriter w(h);
        std::memcpy(h.data(), "VARNIX", 6);
        w.le16(8, 2);
        w.le16(10, 7);
        w.le16(12, sub);
        w.le32(24, reserved1);
        w.le32(28, reqlen);
        w.le32(32, resplen);
        w.le64(36, req);
        w.le64(44, resp);
        w.le16(52, hba);
        return h;
    }
    uint32_t status_of(uint64_t hdr) { return *wire::ByteReader(mem.at(hdr)).le32(16); }
};

TEST(ByteReader, FailsOnShortBuffersInsteadOfReadingPast) {
    const std::vector<uint8_t> b{1, 2, 3};
    const wire::ByteReader r(b);
    EXPECT_EQ(r.le16(1), 0x0302);
    EXPECT_FALSE(r.le16(2).has_value());
    EXPECT_FALSE(r.le32(0).has_value());
    EXPECT_FALSE(r.le16(SIZE_MAX).has_value());
}

TEST_F(Fixture, HeaderChecksAndOutcomes) {
    struct Case {
        const char *what;
        unsigned long nr;
        std::function<void(std::vector<uint8_t> &)> tweak;
        int err;
        uint32_t status;
        bool violation;
    };
    const uint64_t resp = mem.map(std::vector<uint8_t>(696));
    const Case cases[] = {
        {"good node query", 0xC0747900, [](auto &) {}, 0, 0, false},
        {"signature", 0xC0747900, [](auto &h) { h[5] = 'Y'; }, 0, 6, true},
        {"signature without NUL padding", 0xC0747900, [](auto &h) { h[7] = 'Z'; }, 0, 6, true},
        {"version", 0xC0747900, [](auto &h) { h[10] = 5; }, 0, 13, true},
        {"addr mode", 0xC0747900, [](auto &h) { h[8] = 3; }, 0, 6, true},
        {"unknown instance", 0xC0747900, [](auto &h) { h[52] = 9; }, 0, 9, false},
        {"response too small", 0xC0747900, [](auto &h) { h[32] = 100; h[33] = 0; }, 0, 16, true},
        {"unknown command", 0xC0747977, [](auto &) {}, EINVAL, 0, true},
    };
    for (const Case &c : cases) {
        auto h = header(1, 0, 0, 0, resp, 696);
        c.tweak(h);
        const uint64_t hdr = mem.map(h);
        const unsigned before = log.violations();
        EXPECT_EQ(driver.handle_ioctl(c.nr, hdr, mem), c.err) << c.what;
        if (c.err == 0) {
            EXPECT_EQ(status_of(hdr), c.status) << c.what;
        }
        EXPECT_EQ(log.violations() > before, c.violation) << c.what;
    }
    EXPECT_EQ(driver.handle_ioctl(0xC0747900, 0xdead0000, mem), EFAULT) << "header not mapped";
}

TEST_F(Fixture, OldLayoutReadsSignatureThroughItsPointerAndBindsByLayout) {
    const uint64_t sig = mem.map({'V', 'A', 'R', 'N', 'I', 'X', 0, 0});
    const uint64_t resp = mem.map(std::vector<uint8_t>(696));
    std::vector<uint8_t> h(88, 0);
    wire::ByteWriter w(h);
    w.le64(0, sig);
    w.le16(8, 2);
    w.le16(10, 5);
    w.le16(12, 1);
    w.le32(32, 696);
    w.le64(48, resp);  // ResponseAdr after the alignment gap
    w.le16(56, 1);     // HbaSelect: the older adapter is driver instance 1
    const uint64_t hdr = mem.map(h);
    ASSERT_EQ(driver.handle_ioctl(0xC0087900, hdr, mem), 0);
    EXPECT_EQ(*wire::ByteReader(mem.at(hdr)).le32(16), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(mem.at(resp).data()) + 8), "Varnix Corporation");

    // Binding: instance 1 only through the older header, instance 0 only through the current one.
    auto bind = [&](unsigned long nr, uint16_t inst) {
        std::vector<uint8_t> b = nr == 0xC00879FE ? h : header(0, 0, 0, 0, 0, 0);
        wire::ByteWriter(b).le16(14, inst);
        const uint64_t a = mem.map(b);
        EXPECT_EQ(driver.handle_ioctl(nr, a, mem), 0);
        return std::make_pair(*wire::ByteReader(mem.at(a)).le32(16), *wire::ByteReader(mem.at(a)).le32(20));
    };
    EXPECT_EQ(bind(0xC00879FE, 1), std::make_pair(0u, 8u));
    EXPECT_NE(bind(0xC07479FE, 1).first, 0u);
    EXPECT_EQ(bind(0xC07479FE, 0), std::make_pair(0u, 7u));
    EXPECT_EQ(log.violations(), 0u);
}

TEST_F(Fixture, FlashWindowsAreBoundedByRegionAndFlash) {
    const Adapter &a = host.adapters[0];
    struct Case {
        uint16_t region;
        uint32_t offset, len;
        uint32_t status;
    };
    const Case cases[] = {
        {0x29, 0, 0x4000, 0},          // whole region
        {0x29, 0x3FFF, 1, 0},          // last byte
        {0x29, 0x3FFF, 2, 6},          // one past the region
        {0xFFFF, static_cast<uint32_t>(a.flash.size()) - 4, 4, 0},
        {0xFFFF, static_cast<uint32_t>(a.flash.size()) - 4, 5, 6},
        {0x13, 0, 16, 6},              // region this chip does not have
    };
    for (const Case &c : cases) {
        const uint64_t data = mem.map(std::vector<uint8_t>(c.len, 0x5A));
        const uint64_t hdr = mem.map(header(c.region, 0, data, c.len, 0, 0, c.offset));
        ASSERT_EQ(driver.handle_ioctl(0xC074790A, hdr, mem), 0);
        EXPECT_EQ(status_of(hdr), c.status) << c.region << "+" << c.offset << ":" << c.len;
    }
    EXPECT_EQ(host.adapters[0].flash[0x58000 + 0x3FFF], 0x5A);
    EXPECT_EQ(log.violations(), 0u);
}

TEST_F(Fixture, NvramReadCopiesAtMostTheBlockAndReportsTheCount) {
    const uint64_t resp = mem.map(std::vector<uint8_t>(4096));
    for (const auto &[asked, got] : {std::pair{100u, 100u}, {512u, 512u}, {4096u, 512u}}) {
        const uint64_t hdr = mem.map(header(0, 0, 0, 0, resp, asked));
        ASSERT_EQ(driver.handle_ioctl(0xC074790C, hdr, mem), 0);
        EXPECT_EQ(*wire::ByteReader(mem.at(hdr)).le32(32), got);
    }
}

// ---- sysfs attributes

struct TreeFixture : ::testing::Test {
    Host host = test_host();
    TrafficLog log;
    FaultInjector faults{host};
    SysfsTree tree{host, log, faults};
    std::string dir = "bus/pci/drivers/vxa2xxx/0000:09:00.0";

    uint64_t file(const std::string &name) {
        // The driver link resolves to the device directory.
        const SysfsNode *link = tree.node(*tree.walk(dir));
        EXPECT_EQ(link->type, NodeType::link);
        auto ino = tree.walk("devices/pci0000:09/0000:09:00.0/host9/" + name);
        EXPECT_TRUE(ino.has_value()) << name;
        return ino.value_or(0);
    }
    int ctl(const std::string &cmd) {
        uint64_t fh = 0;
        EXPECT_EQ(tree.open(file("optrom_ctl"), O_WRONLY, fh), 0);
        std::string with_nul = cmd;
        with_nul.push_back('\0');
        size_t written = 0;
        const int err = tree.write(fh, 0, std::span(reinterpret_cast<const uint8_t *>(with_nul.data()), with_nul.size()),
                                   written);
        tree.release(fh);
        return err;
    }
};

TEST_F(TreeFixture, ModeBitsAreEnforcedEvenForRoot) {
    uint64_t fh = 0;
    EXPECT_EQ(tree.open(file("optrom_ctl"), O_RDONLY, fh), EACCES);
    EXPECT_EQ(tree.open(file("optrom_ctl"), O_RDWR, fh), EACCES);
    EXPECT_EQ(tree.open(file("fw_version"), O_WRONLY, fh), EACCES);
    EXPECT_EQ(tree.open(file("nvram"), O_RDWR, fh), 0);
}

TEST_F(TreeFixture, ControlCommands) {
    const struct {
        const char *cmd;
        int err;
        bool violation;
    } steps[] = {
        {"4", EINVAL, false},           // chunked driver refuses the old probe: the library's probe
        {"3", EINVAL, true},            // nothing staged
        {"1", 0, false},        {"0", 0, false},
        {"1:58000:4000", 0, false},     // hex offset and size
        {"1:58000:", EINVAL, true},     {"1:xyz:10", EINVAL, true},
        {"0", 0, false},
        {"2:fffff:2", EINVAL, true},    // window past the end
        {"2:fffff:1", 0, false},        {"3", 0, false}, {"0", 0, false},
        {"0\n", 0, false},              // trailing newline ignored
        {"7", EINVAL, true},
        {"1", 0, false},
        {"2", 0, true},                 // no closing "0" after the read
        {"0", 0, false},
    };
    for (const auto &s : steps) {
        const unsigned before = log.violations();
        EXPECT_EQ(ctl(s.cmd), s.err) << s.cmd;
        EXPECT_EQ(log.violations() - before, s.violation ? 1u : 0u) << s.cmd;
    }
}

TEST_F(TreeFixture, StagedWriteCommitsOnlyOnThreeAndKeepsUnwrittenBytes) {
    std::vector<uint8_t> &flash = host.adapters[2].flash;
    const std::vector<uint8_t> before(flash.begin() + 0x58000, flash.begin() + 0x58010);
    ASSERT_EQ(ctl("2:58000:10"), 0);
    uint64_t fh = 0;
    ASSERT_EQ(tree.open(file("optrom"), O_WRONLY, fh), 0);
    const uint8_t data[4] = {1, 2, 3, 4};
    size_t written = 0;
    ASSERT_EQ(tree.write(fh, 4, data, written), 0);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(tree.write(fh, 0x10, data, written), EFBIG) << "past the staged window";
    tree.release(fh);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), flash.begin() + 0x58000)) << "nothing before 3";
    ASSERT_EQ(ctl("3"), 0);
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + 4, flash.begin() + 0x58000));
    EXPECT_EQ(flash[0x58004], 1);
    EXPECT_EQ(flash[0x58007], 4);
    EXPECT_TRUE(std::equal(before.begin() + 8, before.end(), flash.begin() + 0x58008));
}

// A request on the driver's netlink protocol as the library builds it.
std::vector<uint8_t> nl_request(uint16_t host_no, uint32_t cmd, size_t data, uint16_t vendor = kMakerVendorId) {
    std::vector<uint8_t> m(data == 0 ? nl::kRequestHdr : ((nl::kRequestHdr + data + 3) & ~size_t{3}), 0);
    wire::ByteWriter w(m);
    w.le32(0, static_cast<uint32_t>(m.size()));
    w.le16(4, nl::kMsgType);
    w.u8(16, 1);
    w.le16(18, nl::kScsiMagic);
    w.le16(20, nl::kScsiMsgType);
    const size_t fc = nl::kNlHdr + nl::kScsiNlHdr;
    w.le64(fc + nl::kMagic, (uint64_t{vendor} << 48) | (uint64_t{0x84DD} << 32) | nl::kFcMagicLow);
    w.le16(fc + nl::kHostNo, host_no);
    w.le16(fc + nl::kDataLen, static_cast<uint16_t>(data));  // 65,536 wraps to 0
    w.le32(fc + nl::kCmd, cmd);
    // Bulk commands: the chunk's offset and the transfer's size; one chunk here.
    w.le32(fc + nl::kParams + 4, static_cast<uint32_t>(data));
    for (size_t i = 0; i < data; ++i) m[nl::kRequestHdr + i] = static_cast<uint8_t>(i * 7);
    return m;
}

TEST(Netlink, BulkChunksUpToSixtyFourKiBAndTheMakersMagic) {
    Host host = test_host();
    // An OEM-branded port: its PCI vendor differs, the protocol magic does not.
    host.adapters[2].functions[0].vendor_id = 0x1234;
    TrafficLog log;
    NetlinkService nls(host, log);
    const size_t fc_error = nl::kNlHdr + nl::kError;
    const struct {
        size_t data;
        uint16_t vendor;
        uint32_t error;
    } cases[] = {
        {1, kMakerVendorId, 0},
        {65536, kMakerVendorId, 0},  // a full chunk: vmsg_datalen reads 0
        {0, kMakerVendorId, 0},
        {8, 0x1234, 6},  // the port's vendor is not the magic's
    };
    for (const auto &c : cases) {
        // First loopback phase, then the second with the same pattern: the
        // driver compares and answers without echoing the data.
        const auto msg = nl_request(9, 5, c.data, c.vendor);
        auto reply = nls.handle(msg, 1);
        ASSERT_EQ(reply.size(), nl::kNlHdr + nl::kFcMsg) << c.data;
        EXPECT_EQ(*wire::ByteReader(reply).le32(fc_error), c.error) << c.data;
        if (c.error != 0 || c.data == 0) continue;
        auto second = nl_request(9, 6, c.data);
        EXPECT_EQ(*wire::ByteReader(nls.handle(second, 1)).le32(fc_error), 0u) << c.data;
        second[nl::kRequestHdr] ^= 0xFF;
        EXPECT_EQ(*wire::ByteReader(nls.handle(second, 1)).le32(fc_error), 1u) << "a pattern that came back changed";
    }
    EXPECT_EQ(log.violations(), 1u);
    // Chunks follow each other, and only the last may be short.
    auto first = nl_request(9, 5, 1000);
    wire::ByteWriter(first).le32(nl::kNlHdr + nl::kScsiNlHdr + nl::kParams + 4, 70000);
    EXPECT_EQ(*wire::ByteReader(nls.handle(first, 1)).le32(fc_error), 6u);
    EXPECT_EQ(log.violations(), 2u);
    // A message cut short of the length it claims is a violation.
    auto cut = nl_request(9, 5, 65536);
    cut.resize(cut.size() - 4);
    EXPECT_EQ(*wire::ByteReader(nls.handle(cut, 1)).le32(fc_error), 6u);
}

TEST(Netlink, PortSpeedIsSetAndReportedAsTheDriversCode) {
    Host host = test_host();
    TrafficLog log;
    NetlinkService nls(host, log);
    const size_t params = nl::kNlHdr + nl::kScsiNlHdr + nl::kParams;
    auto port_param = [&](uint16_t mode, uint16_t speed) {
        auto msg = nl_request(9, 7, 0);
        wire::ByteWriter w(msg);
        w.le16(params + 8, 2);  // destination by port name
        w.le16(params + 16, mode);
        w.le16(params + 18, speed);
        const auto reply = nls.handle(msg, 1);
        const wire::ByteReader r(reply);
        return std::pair{*r.le32(nl::kNlHdr + nl::kError), *r.le16(nl::kNlHdr + nl::kParams + 18)};
    };
    EXPECT_EQ(port_param(0, 0), std::pair(0u, uint16_t{4})) << "8 Gbit reads as code 4";
    EXPECT_EQ(port_param(1, 19).first, 0u);
    EXPECT_EQ(port_param(0, 0).second, 19) << "16 Gbit set, code 19 reported";
    EXPECT_EQ(log.violations(), 0u);
    // Gbit/s sent where a code belongs: 8 is no driver code.
    EXPECT_EQ(port_param(1, 8).first, 6u);
    EXPECT_EQ(log.violations(), 1u);
    EXPECT_EQ(port_param(0, 0).second, 19) << "a refused set changes nothing";
}

TEST(ProcDevices, DriverLineReplacesOthersInTheCharacterSection) {
    const std::string real =
        "Character devices:\n  1 mem\n  4 tty\n254 vxa2xxx_old\n\nBlock devices:\n  7 loop\n254 vxa2xxx\n";
    EXPECT_EQ(emulated_proc_devices(real, "vxa2xxx", 1),
              "Character devices:\n  1 mem\n  1 vxa2xxx\n  4 tty\n\nBlock devices:\n  7 loop\n");
    EXPECT_EQ(emulated_proc_devices("Block devices:\n  7 loop\n", "vxa2xxx", 1),
              "Block devices:\n  7 loop\nCharacter devices:\n  1 vxa2xxx\n");
    // A driver serving its adapters through sysfs only registers no character device.
    EXPECT_EQ(emulated_proc_devices(real, "vxa2xxx", 1, false),
              "Character devices:\n  1 mem\n  4 tty\n\nBlock devices:\n  7 loop\n");
}

TEST(TrafficLog, LinesAreValidJsonEvenForOddBytes) {
    TrafficEntry e;
    e.kind = "attr";
    e.attribute = "optrom_ctl";
    e.text = std::string("1:\"\xff\n", 5);
    e.violation = "unknown optrom_ctl command";
    const std::string line = TrafficLog::to_json(e);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_NE(line.find(R"("text":"1:\")"), std::string::npos) << line;
    EXPECT_NE(line.find(R"("violation":"unknown optrom_ctl command")"), std::string::npos);
}

}  // namespace
}  // namespace vxemu

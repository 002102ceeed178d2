// SPDX-License-Identifier: MIT
// The emulated driver's side of the failover LUN and target data commands,
// driven directly: the checks on malformed requests (each one a violation),
// the buffer-too-small answer, and the bounds of a port's tables.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

#include "driver_service.h"
#include "fake_memory.h"
#include "traffic_log.h"
#include "wire.h"

namespace vxemu {
namespace {

constexpr unsigned long kGetLun = 0xC07479CE, kSetLun = 0xC07479CF, kSetTarget = 0xC07479D1;

Host test_host() {
    auto h = parse_host_json(R"({ "adapters": [
        { "name": "a", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
          "functions": [ { "pci": "0000:07:00.0", "host": 7 } ] } ] })",
                             "test.json");
    EXPECT_TRUE(h.ok()) << h.error().message;
    return std::move(h).value();
}

// The 32-byte list request, optionally followed by `entries` entries of `target`.
std::vector<uint8_t> list_request(uint16_t target = wire::kFoSelectAll, uint16_t lun = wire::kFoSelectAll,
                                  uint8_t from_store = 0, size_t entries = 0) {
    std::vector<uint8_t> b(32 + entries * 32, 0);
    wire::ByteWriter w(b);
    w.u8(2, from_store);
    w.le16(4, target);
    w.le16(6, lun);
    for (size_t i = 0; i < entries; ++i) {
        w.le16(32 + i * 32, target);
        w.le16(32 + i * 32 + 2, static_cast<uint16_t>(i));
        w.le32(32 + i * 32 + 20, wire::kFoFlagVisible);
    }
    return b;
}

struct FoProtocol : ::testing::Test {
    Host host = test_host();
    TrafficLog log;
    FaultInjector faults{host};
    DriverService driver{host, log, faults};
    FakeMemory mem;

    struct Reply {
        int err;
        uint32_t status;
        uint32_t response_len;
        uint64_t response;
    };
    Reply send(unsigned long nr, std::vector<uint8_t> request, uint32_t resplen = 0) {
        const uint64_t req = mem.map(std::move(request));
        const uint64_t resp = resplen > 0 ? mem.map(std::vector<uint8_t>(resplen, 0xEE)) : 0;
        std::vector<uint8_t> h(116, 0);
        wire::ByteWriter w(h);
        std::memcpy(h.data(), "VARNIX", 6);
        w.le16(8, 2);
        w.le16(10, 7);
        w.le32(28, static_cast<uint32_t>(mem.at(req).size()));
        w.le32(32, resplen);
        w.le64(36, req);
        w.le64(44, resp);
        const uint64_t hdr = mem.map(h);
        const int err = driver.handle_ioctl(nr, hdr, mem);
        const wire::ByteReader r(mem.at(hdr));
        return {err, *r.le32(16), *r.le32(32), resp};
    }
    uint32_t entry_count(const Reply &r) { return *wire::ByteReader(mem.at(r.response)).le32(0); }
};

TEST_F(FoProtocol, MalformedRequestsAreRefusedAsViolations) {
    struct Case {
        const char *what;
        unsigned long nr;
        std::function<std::vector<uint8_t>()> request;
    };
    const Case cases[] = {
        {"read with trailing bytes", kGetLun, [] { return list_request(0, 0, 0, 1); }},
        {"read FromStore 2", kGetLun, [] { return list_request(wire::kFoSelectAll, wire::kFoSelectAll, 2); }},
        {"read reserved byte 3", kGetLun, [] { auto b = list_request(); b[3] = 1; return b; }},
        {"read reserved byte 31", kGetLun, [] { auto b = list_request(); b[31] = 1; return b; }},
        {"read other instance", kGetLun, [] { auto b = list_request(); b[0] = 1; return b; }},
        {"short request", kGetLun, [] { return std::vector<uint8_t>(16, 0); }},
        {"write of partial entries", kSetLun, [] { auto b = list_request(2, wire::kFoSelectAll, 0, 1); b.resize(40); return b; }},
        {"write of 257 entries", kSetLun, [] { return list_request(2, wire::kFoSelectAll, 0, 257); }},
        {"write FromStore 1", kSetTarget, [] { return list_request(2, 0, 1, 1); }},
        {"write reserved byte 8", kSetLun, [] { auto b = list_request(2, wire::kFoSelectAll, 0, 1); b[8] = 1; return b; }},
    };
    for (const Case &c : cases) {
        const unsigned before = log.violations();
        const Reply r = send(c.nr, c.request(), 8192);
        EXPECT_EQ(r.err, 0) << c.what;
        EXPECT_EQ(r.status, wire::kStatusInvalidParam) << c.what;
        EXPECT_EQ(log.violations(), before + 1) << c.what;
    }
    // None of them changed the port's table.
    const Reply r = send(kGetLun, list_request(), 8192);
    EXPECT_EQ(r.status, wire::kStatusOk);
    EXPECT_EQ(entry_count(r), 3u);
}

TEST_F(FoProtocol, ShortResponseBufferGetsNothingAndTheLengthNeeded) {
    Reply r = send(kGetLun, list_request(), 32 + 2 * 32);
    EXPECT_EQ(r.status, wire::kStatusBufferTooSmall);
    EXPECT_EQ(r.response_len, 32u + 3 * 32);
    EXPECT_EQ(mem.at(r.response), std::vector<uint8_t>(96, 0xEE));
    EXPECT_EQ(log.violations(), 0u);  // asking with too little room is legitimate

    r = send(kGetLun, list_request(), 32 + 3 * 32);
    EXPECT_EQ(r.status, wire::kStatusOk);
    EXPECT_EQ(r.response_len, 128u);
    EXPECT_EQ(entry_count(r), 3u);
    const wire::ByteReader b(mem.at(r.response));
    EXPECT_EQ(*b.le16(32 + 2 * 32), 1u);  // target 1 comes last
    EXPECT_EQ(*b.le32(32 + 2 * 32 + 20), wire::kFoFlagVisible | wire::kFoFlagPreferred);
}

TEST_F(FoProtocol, TablesStopAtTheirCapacityWithoutChange) {
    // 15 writes of 256 LUNs fit beside the 3 discovered; the 16th would not.
    for (uint16_t t = 10; t < 25; ++t)
        ASSERT_EQ(send(kSetLun, list_request(t, wire::kFoSelectAll, 0, 256)).status, wire::kStatusOk) << t;
    EXPECT_EQ(send(kSetLun, list_request(25, wire::kFoSelectAll, 0, 256)).status, wire::kStatusInvalidParam);
    EXPECT_EQ(log.violations(), 0u);
    const Reply live = send(kGetLun, list_request(), 32 + 4096 * 32);
    EXPECT_EQ(entry_count(live), 3u + 15 * 256);
    // Rewriting a target already held replaces its entries instead of adding.
    EXPECT_EQ(send(kSetLun, list_request(24, wire::kFoSelectAll, 0, 256)).status, wire::kStatusOk);
    const Reply saved = send(kGetLun, list_request(wire::kFoSelectAll, wire::kFoSelectAll, 1), 32 + 4096 * 32);
    EXPECT_EQ(entry_count(saved), 15u * 256);
}

}  // namespace
}  // namespace vxemu

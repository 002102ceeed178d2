// SPDX-License-Identifier: MIT
// The per-process event rings of the shared state, the public event codes,
// and the pure pieces of the netlink transport.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "vx_event_ring.h"
#include "vx_netlink.h"
#include "vx_shared_layout.h"

namespace {

class Rings : public ::testing::Test {
protected:
    void SetUp() override {
        set_alive(0, true);
        set_alive(3, true);
    }
    void set_alive(int inst, bool alive) {
        const uint32_t flags = alive ? kInstAlive | kInstTaken : 0;
        std::memcpy(shared_.data() + libinst_flags_offset(inst), &flags, 4);
    }
    void queue(int slot, uint32_t code) {
        uint8_t rec[16] = {};
        std::memcpy(rec, &code, 4);
        rec[15] = 0xA5;  // the payload travels with the code
        vxapi_event_queue(shared_.data(), slot, rec);
    }
    std::vector<uint32_t> take(int inst, int slot) {
        std::vector<uint8_t> out(64 * 16);
        const size_t n = vxapi_event_take(shared_.data(), inst, slot, out.data(), 64);
        std::vector<uint32_t> codes;
        for (size_t i = 0; i < n; ++i) {
            uint32_t c;
            std::memcpy(&c, out.data() + 16 * i, 4);
            EXPECT_EQ(out[16 * i + 15], 0xA5);
            codes.push_back(c);
        }
        return codes;
    }
    uint8_t *ring(int inst, int slot) { return shared_.data() + hbaptevq_offset(inst) + 1032u * static_cast<unsigned>(slot); }
    std::vector<uint8_t> shared_ = std::vector<uint8_t>(kSharedFileSize, 0);
};

TEST_F(Rings, SeventyEventsKeepTheNewestSixtyFourInOrder) {
    for (uint32_t i = 1; i <= 70; ++i) queue(5, i);
    // Head and tail sit at their documented place: the oldest kept and the newest.
    EXPECT_EQ(ring(0, 5)[1024], 6);
    EXPECT_EQ(ring(0, 5)[1025], 5);
    std::vector<uint32_t> want;
    for (uint32_t i = 7; i <= 70; ++i) want.push_back(i);
    EXPECT_EQ(take(0, 5), want);
    EXPECT_EQ(ring(0, 5)[1024], 0);
    EXPECT_EQ(ring(0, 5)[1025], 0);
    EXPECT_TRUE(take(0, 5).empty());
    // Every live instance got its own copy; the rest of the file is untouched.
    EXPECT_EQ(take(3, 5), want);
    EXPECT_TRUE(take(1, 5).empty());
    EXPECT_TRUE(take(0, 4).empty());
}

// The registry word of instance 3, slot 7 lies at 8288 + 3 * 128 + 7 * 4;
// only its bit 0 asks for callbacks.
TEST_F(Rings, CallbackRegistryIsBitZeroOfTheInstanceWordForTheSlot) {
    uint8_t *word = shared_.data() + 8288 + 3 * 128 + 7 * 4;
    word[0] = 0xFE;
    word[1] = 0xFF;
    EXPECT_FALSE(vxapi_event_callbacks_wanted(shared_.data(), 3, 7));
    word[0] = 0x01;
    EXPECT_TRUE(vxapi_event_callbacks_wanted(shared_.data(), 3, 7));
    EXPECT_FALSE(vxapi_event_callbacks_wanted(shared_.data(), 3, 6));
    EXPECT_FALSE(vxapi_event_callbacks_wanted(shared_.data(), 2, 7));
    EXPECT_FALSE(vxapi_event_callbacks_wanted(shared_.data(), 3, 32));
    EXPECT_FALSE(vxapi_event_callbacks_wanted(shared_.data(), 8, 7));
    EXPECT_FALSE(vxapi_event_callbacks_wanted(nullptr, 3, 7));
}

TEST_F(Rings, FillsAfterAnEmptyingAndSurvivesCorruptIndexes) {
    queue(0, 0x8010);
    queue(0, 0x8011);
    EXPECT_EQ(take(0, 0), (std::vector<uint32_t>{0x8010, 0x8011}));
    queue(0, 0x8012);
    EXPECT_EQ(take(0, 0), (std::vector<uint32_t>{0x8012}));
    // Another process wrote nonsense indexes: nothing is touched beyond the ring.
    ring(0, 31)[1024] = 200;
    ring(0, 31)[1025] = 255;
    queue(31, 0x8013);
    EXPECT_EQ(take(0, 31), (std::vector<uint32_t>{0x8013}));
    EXPECT_TRUE(take(0, 32).empty());
    EXPECT_TRUE(take(8, 0).empty());
}

TEST(EventCodes, PublicNumbersKeepTheExchangedPair) {
    const std::pair<uint32_t, uint32_t> table[] = {{0x8010, 1}, {0x8011, 2}, {0x8012, 3}, {0x8013, 4},
                                                   {0x8014, 6}, {0x8015, 5}, {0x8060, 7}, {0x8016, 0},
                                                   {0, 0},      {0x10, 0}};
    for (const auto &[driver, pub] : table) EXPECT_EQ(vxhmx::aen_public_code(driver), pub) << std::hex << driver;
}

TEST(NetlinkPieces, SpeedsLengthsMagicAndTheRefusedReceive) {
    const std::pair<uint16_t, uint16_t> speeds[] = {{1, 0}, {2, 1}, {4, 3}, {8, 4}, {16, 19}};
    for (const auto &[gbit, code] : speeds) {
        uint16_t c = 0xFFFF, g = 0xFFFF;
        EXPECT_TRUE(vxnl::speed_to_code(gbit, &c));
        EXPECT_EQ(c, code);
        EXPECT_TRUE(vxnl::code_to_speed(code, &g));
        EXPECT_EQ(g, gbit);
    }
    uint16_t c = 0;
    for (uint16_t bad : {0, 3, 10, 32}) EXPECT_FALSE(vxnl::speed_to_code(bad, &c)) << bad;
    EXPECT_EQ(vxnl::request_length(0), 2096u);
    EXPECT_EQ(vxnl::request_length(1), 2100u);
    EXPECT_EQ(vxnl::request_length(65536), 2096u + 65536u);
    EXPECT_EQ(vxnl::fc_magic(), 0x1DE584DDFCAB1FC1ull);

    // A receive above 131,072 bytes reads nothing: the message stays queued.
    int sv[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sv), 0);
    ASSERT_EQ(::send(sv[1], "reply", 5, 0), 5);
    std::vector<uint8_t> buf(131092, 0xEE);
    errno = 0;
    EXPECT_EQ(vxapi_rcv_msg(sv[0], 131073, buf.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(buf[0], 0xEE);
    EXPECT_EQ(vxapi_rcv_msg(sv[0], 131072, buf.data()), 5);
    // Nothing queued: the receive does not wait.
    EXPECT_EQ(vxapi_rcv_msg(sv[0], 16, buf.data()), -1);
    EXPECT_EQ(errno, EAGAIN);
    ::close(sv[0]);
    ::close(sv[1]);
}

}  // namespace

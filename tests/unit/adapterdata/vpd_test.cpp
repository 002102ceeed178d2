// SPDX-License-Identifier: MIT
#include "vx_preserve.h"
#include "vx_vpdimage.h"
#include "vpd_fields.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "test_images.h"

using namespace vxhmx;
using testimg::Rom;

namespace {

std::vector<uint8_t> adapter_vpd() {
    return testimg::vpd("FCX141 Dual Port 8Gb Adapter",
                        {{"PN", "FW-8G2P"}, {"EC", "B01"}, {"SN", "VX1234567890  "}, {"V3", "01.00   "},
                         {"V5", "1.0"}},
                        {{"V4", "00.00   "}, {"YA", "asset"}});
}

// Boot chain of the new image: BIOS 3.18, FCode 2.01, EFI 1.05.
std::vector<uint8_t> new_boot_chain() {
    return testimg::chain({Rom{.code_type = 0, .revision = 0x0312}, Rom{.code_type = 1, .revision = 0x0201},
                           Rom{.code_type = 3, .last = true, .revision = 0x0105}});
}

std::string text_of(const std::vector<uint8_t> &b, std::size_t off, std::size_t len) {
    return std::string(b.begin() + static_cast<std::ptrdiff_t>(off), b.begin() + static_cast<std::ptrdiff_t>(off + len));
}

}  // namespace

TEST(VpdKeywords, SerialNumberLookup) {
    const auto vpd = adapter_vpd();
    char sn[32];
    ASSERT_TRUE(vxvpd_serial_number(vpd, sn, sizeof sn));
    EXPECT_STREQ(sn, "VX1234567890");
    char small[5];
    ASSERT_TRUE(vxvpd_serial_number(vpd, small, sizeof small));
    EXPECT_STREQ(small, "VX12");
    EXPECT_EQ(vxvpd_find_keyword(vpd, "YA")->size(), 5u);
    EXPECT_FALSE(vxvpd_find_keyword(vpd, "MN").has_value());

    // A field whose length runs past its resource ends the walk before it.
    auto broken = vpd;
    const std::size_t sn_at = testimg::find(broken, "SN");
    broken[sn_at + 2] = 0xF0;
    EXPECT_FALSE(vxvpd_serial_number(broken, sn, sizeof sn));
    EXPECT_FALSE(vxvpd_serial_number(std::vector<uint8_t>(512, 0xFF), sn, sizeof sn));
    EXPECT_FALSE(vxvpd_serial_number(std::vector<uint8_t>{0x82, 0x40}, sn, sizeof sn));
}

TEST(VpdVersions, UpdatesFieldsWithRoomAndKeepsEverythingElse) {
    auto vpd = adapter_vpd();
    const auto before = vpd;
    const auto chain = new_boot_chain();
    EXPECT_EQ(vxvpd_update_versions_from_image(vpd, chain), VpdUpdateStatus::Updated);

    const std::size_t v3 = testimg::find(vpd, "V3") + 3, v4 = testimg::find(vpd, "V4") + 3,
                      rv = testimg::find(vpd, "RV") + 3;
    EXPECT_EQ(text_of(vpd, v3, 8), "03.18   ");
    EXPECT_EQ(text_of(vpd, v4, 8), "02.01   ");
    EXPECT_EQ(text_of(vpd, testimg::find(vpd, "V5") + 3, 3), "1.0");  // too short for "01.05": left alone
    for (std::size_t i = 0; i < vpd.size(); ++i) {
        if ((i >= v3 && i < v3 + 8) || (i >= v4 && i < v4 + 8) || i == rv) continue;
        ASSERT_EQ(vpd[i], before[i]) << "byte " << i;
    }
    EXPECT_EQ(verifyVpdChecksum(vpd), 0);
    char sn[32];
    ASSERT_TRUE(vxvpd_serial_number(vpd, sn, sizeof sn));
    EXPECT_STREQ(sn, "VX1234567890");

    const auto once = vpd;
    EXPECT_EQ(vxvpd_update_versions_from_image(vpd, chain), VpdUpdateStatus::Unchanged);
    EXPECT_EQ(vpd, once);
}

TEST(VpdVersions, ReadWriteOnlyChangeKeepsChecksumByte) {
    auto vpd = testimg::vpd("id", {{"SN", "S1"}}, {{"V4", "xxxxx"}});
    const std::size_t rv = testimg::find(vpd, "RV") + 3;
    const uint8_t rv_before = vpd[rv];
    EXPECT_EQ(vxvpd_update_versions_from_image(vpd, new_boot_chain()), VpdUpdateStatus::Updated);
    EXPECT_EQ(vpd[rv], rv_before);
    EXPECT_EQ(text_of(vpd, testimg::find(vpd, "V4") + 3, 5), "02.01");
}

TEST(VpdVersions, RefusesDamagedBlocksWithoutTouchingThem) {
    const auto chain = new_boot_chain();
    struct Case {
        const char *what;
        std::vector<uint8_t> vpd;
        VpdUpdateStatus status;
    };
    std::vector<Case> cases;
    auto bad_sum = adapter_vpd();
    bad_sum[testimg::find(bad_sum, "SN") + 3] ^= 0x01;
    cases.push_back({"checksum off by one bit", bad_sum, VpdUpdateStatus::BadChecksum});
    auto no_rv = adapter_vpd();
    no_rv[testimg::find(no_rv, "RV")] = 'X';
    cases.push_back({"no RV field", no_rv, VpdUpdateStatus::NoChecksum});
    auto no_end = adapter_vpd();
    no_end[testimg::find(no_end, "\x78")] = 0x00;
    cases.push_back({"no end tag", no_end, VpdUpdateStatus::Malformed});
    auto long_field = adapter_vpd();
    long_field[testimg::find(long_field, "EC") + 2] = 0x80;
    cases.push_back({"field past its resource", long_field, VpdUpdateStatus::Malformed});
    cases.push_back({"blank", std::vector<uint8_t>(512, 0xFF), VpdUpdateStatus::Malformed});
    cases.push_back({"empty", {}, VpdUpdateStatus::Malformed});
    auto cut = adapter_vpd();
    cut.resize(40);
    cases.push_back({"cut short", cut, VpdUpdateStatus::Malformed});
    for (auto &c : cases) {
        SCOPED_TRACE(c.what);
        const auto before = c.vpd;
        const auto st = vxvpd_update_versions_from_image(c.vpd, chain);
        EXPECT_EQ(st, c.status);
        EXPECT_FALSE(vxvpd_update_ok(st));
        EXPECT_EQ(c.vpd, before);
    }
}

namespace {

// Current FCX12x flash: BIOS, then the VPD image (device ID 1) as the last one.
std::vector<uint8_t> current_with_vpd() {
    auto c = testimg::chain({Rom{.code_type = 0, .blocks = 2},
                             Rom{.code_type = 0, .device_id = 1, .blocks = 1, .last = true, .fill = 0x56}},
                            0x20000);
    c[1024 + 0x100] = 'S';  // something only the adapter's VPD has
    return c;
}

}  // namespace

TEST(VpdMerge, AppendsAfterTheNewChainAndHandsOnTheLastBit) {
    const auto cur = current_with_vpd();
    auto img = testimg::chain({Rom{.code_type = 0, .blocks = 2, .fill = 0x33},
                               Rom{.code_type = 1, .blocks = 2, .last = true, .fill = 0x44}},
                              0x20000);
    EXPECT_EQ(vxvpd_merge_vpd_image(cur, img), VpdMergeStatus::Merged);
    const auto chain = vxrom_walk_chain(img, 32);
    ASSERT_EQ(chain.size(), 3u);
    EXPECT_FALSE(chain[1].last());
    EXPECT_TRUE(testimg::sealed(img, 1024));
    EXPECT_EQ(chain[2].offset, 2048u);
    EXPECT_EQ(chain[2].device_id, 1u);
    EXPECT_TRUE(chain[2].last());
    EXPECT_TRUE(std::equal(img.begin() + 2048, img.begin() + 2560, cur.begin() + 1024));
    EXPECT_EQ(img[2560], 0xFF);
}

TEST(VpdMerge, ReplacesFactoryVpdImageKeepingItsPlaceInTheChain) {
    const auto cur = current_with_vpd();
    auto img = testimg::chain({Rom{.code_type = 0, .blocks = 2, .fill = 0x33},
                               Rom{.code_type = 0, .device_id = 1, .blocks = 1, .fill = 0x00},
                               Rom{.code_type = 3, .blocks = 1, .last = true}});
    EXPECT_EQ(vxvpd_merge_vpd_image(cur, img), VpdMergeStatus::Merged);
    EXPECT_EQ(img[1024 + 0x100], 'S');
    const auto chain = vxrom_walk_chain(img, 32);
    ASSERT_EQ(chain.size(), 3u);
    EXPECT_FALSE(chain[1].last());  // the EFI image stays reachable
    EXPECT_TRUE(testimg::sealed(img, 1024));
}

TEST(VpdMerge, RefusalsLeaveTheNewImageUntouched) {
    const auto cur = current_with_vpd();
    struct Case {
        const char *what;
        std::vector<uint8_t> current;
        std::vector<uint8_t> image;
        VpdMergeStatus status;
    };
    auto firmware_after = testimg::chain({Rom{.code_type = 0, .blocks = 2, .last = true}}, 0x20000);
    firmware_after[1024 + 7] = 0x12;  // not blank
    auto truncated = cur;
    truncated.resize(1024 + 300);
    const std::vector<Case> cases{
        {"no VPD in current", testimg::chain({Rom{.last = true}}),
         testimg::chain({Rom{.last = true}}, 0x4000), VpdMergeStatus::NothingToMerge},
        {"current VPD cut short", truncated, testimg::chain({Rom{.last = true}}, 0x4000),
         VpdMergeStatus::CurrentUnreadable},
        {"VPD image of another length",
         cur, testimg::chain({Rom{.blocks = 2}, Rom{.device_id = 1, .blocks = 2, .last = true}}),
         VpdMergeStatus::SizeMismatch},
        {"data after the chain", cur, firmware_after, VpdMergeStatus::NoRoom},
        {"no room at the end", cur, testimg::chain({Rom{.blocks = 2, .last = true}}, 1024 + 511),
         VpdMergeStatus::NoRoom},
        {"new buffer without a chain", cur, std::vector<uint8_t>(0x4000, 0xFF), VpdMergeStatus::NewImageInvalid},
        {"chain without a last image", cur, testimg::chain({Rom{.blocks = 2}}, 0x4000),
         VpdMergeStatus::NewImageInvalid},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        auto img = c.image;
        EXPECT_EQ(vxvpd_merge_vpd_image(c.current, img), c.status);
        EXPECT_EQ(img, c.image);
    }
    EXPECT_TRUE(vxvpd_merge_ok(VpdMergeStatus::NothingToMerge));
    EXPECT_FALSE(vxvpd_merge_ok(VpdMergeStatus::NoRoom));
}

// ---- The tool's field walk and checks ------------------------------------

namespace {

constexpr char kGuard = '#';

struct Out {
    std::array<char, 40> buf;
    Out() { buf.fill(kGuard); }
    std::span<char> span(std::size_t n) { return std::span<char>(buf.data(), n); }
    std::string str() const { return std::string(buf.data()); }
};

std::vector<std::string> g_trace;
void capture(const char *line) { g_trace.emplace_back(line); }

}  // namespace

TEST(VpdFieldWalk, FindsSerialNumber) {
    const auto vpd = testimg::vpd("Adapter", {{"PN", "P-100"}, {"EC", "A"}, {"SN", "SER123"}}, {});
    Out out;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "SN", out.span(sizeof out.buf)), 0u);
    EXPECT_EQ(std::string(out.buf.data(), 6), "SER123");
    EXPECT_EQ(out.buf[6], kGuard);  // as long as the field: not terminated
}

TEST(VpdFieldWalk, OnlyTheFirstCharacterIsCompared) {
    const auto vpd = testimg::vpd("Adapter", {{"V0", "zero"}, {"V1", "  one  "}, {"V3", "three"}}, {});
    Out out;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "V1", out.span(sizeof out.buf)), 0u);
    EXPECT_EQ(std::string(out.buf.data(), 4), "zero");
    Out out3;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "V3", out3.span(sizeof out3.buf)), 0u);
    EXPECT_EQ(std::string(out3.buf.data(), 4), "zero");
}

TEST(VpdFieldWalk, RendersByKeyword) {
    struct Case {
        const char *keyword;
        std::string data;
        std::string expect;  // the `data.size()` characters written
    };
    const Case cases[] = {
        {"V1", "  a b  ", std::string("a b\0\0\0\0", 7)},
        {"FN", " 1 2 3", std::string("123\0\0\0", 6)},
        {"MN", " x ", " x "},
        {"ZZ", "abc", std::string("\0\0\0", 3)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.keyword);
        const auto vpd = testimg::vpd("Adapter", {}, {{c.keyword, c.data}});
        Out out;
        EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, c.keyword, out.span(sizeof out.buf)), 0u);
        EXPECT_EQ(std::string(out.buf.data(), c.expect.size()), c.expect);
        EXPECT_EQ(out.buf[c.expect.size()], kGuard);
    }
    // "RV" renders its first data byte in hex.
    std::vector<uint8_t> rv{0x82, 1, 0, 'i', 0x90, 5, 0, 'R', 'V', 2, 0x0A, 0x00, 0x78};
    rv.resize(512, 0);
    Out out;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(rv, "RV", out.span(sizeof out.buf)), 0u);
    EXPECT_EQ(std::string(out.buf.data(), 3), "0A#");
    // The identifier string renders too (via GetVPDDataField directly).
    const uint8_t tag[] = {0x82, 3, 0};
    const uint8_t data[] = {'a', 'b', 'c'};
    char text[8] = "zzzzzzz";
    EXPECT_STREQ(GetVPDDataField(tag, data, 3, text), "abc");
    char two[2];
    EXPECT_STREQ(GetVPDDataField(tag, data, 3, two), "a");
}

TEST(VpdFieldWalk, NeverWritesPastTheOutput) {
    const auto vpd = testimg::vpd("Adapter", {{"SN", "SERIAL-NUMBER-0123456789"}}, {});
    Out out;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "SN", out.span(8)), 0u);
    EXPECT_EQ(std::string(out.buf.data(), 8), "SERIAL-N");
    EXPECT_EQ(out.buf[8], kGuard);
    // No room at all: found, nothing copied (and no copy from or to null).
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "SN", std::span<char>()), 0u);
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(vpd, "SN", out.span(0)), 0u);
    EXPECT_EQ(out.buf[0], 'S');
}

TEST(VpdFieldWalk, FailuresAndMisses) {
    Out out;
    std::vector<uint8_t> blank(512, 0xFF);
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(blank, "SN", out.span(sizeof out.buf)), 0x2000008Au);
    EXPECT_EQ(RetrieveVPDFieldFromBuffer({}, "SN", out.span(sizeof out.buf)), 0x2000008Au);

    // No end tag: unknown fields and zero bytes to the end, then nothing.
    std::vector<uint8_t> endless(512, 0);
    const uint8_t head[] = {0x82, 2, 0, 'i', 'd', 0x90, 0xF0, 0x01, 'P', 'N', 3, 'a', 'b', 'c'};
    std::copy(std::begin(head), std::end(head), endless.begin());
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(endless, "SN", out.span(sizeof out.buf), capture), 0u);
    // A field running past the buffer is not taken.
    std::vector<uint8_t> cut(head, head + sizeof head);
    cut.insert(cut.end(), {'S', 'N', 20, 'x'});
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(cut, "SN", out.span(sizeof out.buf)), 0u);
    EXPECT_EQ(out.buf[0], kGuard);
}

// After a field, a zero byte steps by that field's length again.
TEST(VpdFieldWalk, ZeroByteReusesThePreviousLength) {
    std::vector<uint8_t> b{0x82, 1, 0, 'i', 0x90, 0x20, 0, 'P', 'N', 2, 'x', 'y', 0, 'S', '!', 'S', '!'};
    b.insert(b.end(), {'S', 'N', 2, 'o', 'k', 0x78});
    b.resize(512, 0);
    Out out;
    EXPECT_EQ(RetrieveVPDFieldFromBuffer(b, "SN", out.span(sizeof out.buf)), 0u);
    EXPECT_EQ(std::string(out.buf.data(), 2), "ok");
}

TEST(VpdChecks, TagsBlankAndChecksum) {
    const auto good = testimg::vpd("Adapter", {{"SN", "S1"}}, {});
    EXPECT_EQ(verifyVpdStartTag(good), 0);
    EXPECT_EQ(verifyVpdEndTag(good), 0);
    const std::vector<uint8_t> ones(512, 0xFF), zeros(512, 0x00);
    EXPECT_EQ(verifyVpdStartTag(ones), 1);
    EXPECT_EQ(verifyVpdEndTag(zeros), 2);

    g_trace.clear();
    EXPECT_EQ(IsBlankVpd(ones, capture), 1);
    EXPECT_EQ(IsBlankVpd(zeros), 1);
    EXPECT_EQ(IsBlankVpd(good, capture), 0);
    EXPECT_EQ(g_trace, (std::vector<std::string>{"IsBlankVpd: Enter", "IsBlankVpd: Exit, bVpdIsBlank=1",
                                                 "IsBlankVpd: Enter", "IsBlankVpd: Exit, bVpdIsBlank=0"}));

    g_trace.clear();
    EXPECT_EQ(verifyVpdChecksum(good, capture), 0);
    auto bad = good;
    bad[5] ^= 0x10;
    EXPECT_EQ(verifyVpdChecksum(bad, capture), 162);
    auto no_end = good;
    std::replace(no_end.begin(), no_end.end(), uint8_t{0x78}, uint8_t{0x00});
    EXPECT_EQ(verifyVpdChecksum(no_end, capture), 161);
    auto no_rv = good;
    no_rv[testimg::find(no_rv, "RV")] = 'r';
    EXPECT_EQ(verifyVpdChecksum(no_rv, capture), 161);
    ASSERT_EQ(g_trace.size(), 3u);
    EXPECT_EQ(g_trace[0].rfind("verifyVpdChecksum: checksum verification failed, chk_sum= ", 0), 0u);
    EXPECT_EQ(g_trace[1], "verifyVpdChecksum: No end tag found");
    EXPECT_EQ(g_trace[2], "verifyVpdChecksum: no checksum tag found");
}

// Random and cut-down blocks go through every VPD routine without a read or
// write outside them (the sanitizer build checks) and without a bogus success.
TEST(VpdRobustness, GarbageAndTruncatedInputs) {
    std::mt19937 rng(11);
    const auto good = adapter_vpd();
    const auto chain = new_boot_chain();
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> b(rng() % 600);
        for (auto &x : b) x = static_cast<uint8_t>(rng() % 4 == 0 ? 0x82 + rng() % 16 : rng());
        if (round % 3 == 0 && !b.empty()) b[0] = 0x82;
        std::vector<uint8_t> cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(round % good.size()));
        for (auto *v : {&b, &cut}) {
            auto copy = *v;
            if (vxvpd_update_versions_from_image(copy, chain) == VpdUpdateStatus::Updated) {
                EXPECT_EQ(verifyVpdChecksum(copy), 0);
            }
            char sn[8];
            (void)vxvpd_serial_number(*v, sn, sizeof sn);
            Out out;
            (void)RetrieveVPDFieldFromBuffer(*v, "SN", out.span(sizeof out.buf));
            (void)verifyVpdChecksum(*v);
            auto img = chain;
            (void)vxvpd_merge_vpd_image(*v, img);
        }
    }
}

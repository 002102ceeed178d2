// SPDX-License-Identifier: MIT
#include "vx_preserve.h"
#include "vx_hmnvr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "test_images.h"

using namespace vxhmx;
using testimg::Rom;

namespace {

// Current flash: x86 image with subsystem vendor bytes and a parameter block
// of 0xA5, then FCode. New image: x86 with other bytes (0x11), then EFI.
std::vector<uint8_t> current_flash() {
    return testimg::chain({Rom{.code_type = 0, .ssvid = 0x1234, .marker_at = 0x100, .fill = 0xA5},
                           Rom{.code_type = 1, .last = true, .fill = 0xA5}},
                          0x20000);
}

std::vector<uint8_t> new_image(std::size_t marker_at = 0x180) {
    return testimg::chain({Rom{.code_type = 0, .blocks = 6, .ssvid = 0xFFFF, .marker_at = marker_at},
                           Rom{.code_type = 3, .last = true, .fill = 0x22}});
}

}  // namespace

TEST(Preserve, CopiesBlockAfterMarkerAndSsvidAndSealsAgain) {
    for (std::size_t block : {std::size_t{256}, std::size_t{512}}) {
        SCOPED_TRACE(block);
        const auto cur = current_flash();
        auto img = new_image();
        const auto before = img;
        const auto rep = vxpreserve_adapter_data(cur, img, block);
        EXPECT_TRUE(rep.current_is_x86);
        EXPECT_TRUE(rep.current_marker);
        EXPECT_EQ(rep.images_walked, 2u);
        EXPECT_EQ(rep.ssvid_copied, 1u);
        EXPECT_EQ(rep.blocks_copied, 1u);
        EXPECT_EQ(rep.resealed, 1u);

        EXPECT_EQ(img[32], 0x34);
        EXPECT_EQ(img[33], 0x12);
        // The block starts two bytes after the marker: "ME" stays, "FCX " is
        // overwritten by the current contents' bytes at the same distance.
        EXPECT_EQ(img[0x180], 'M');
        EXPECT_EQ(img[0x181], 'E');
        EXPECT_TRUE(std::equal(img.begin() + 0x182, img.begin() + 0x182 + static_cast<std::ptrdiff_t>(block),
                               cur.begin() + 0x102));
        EXPECT_EQ(img[0x182 + block], 0x11);  // nothing beyond the block
        EXPECT_TRUE(testimg::sealed(img, 0));
        EXPECT_TRUE(std::equal(img.begin() + 6 * 512, img.end(), before.begin() + 6 * 512));  // EFI image untouched
    }
}

// Either form of the label counts; one side without it stops the copy.
TEST(Preserve, SsvidNeedsTheLabelOnBothSides) {
    const auto cur = current_flash();
    auto four_letters = new_image();
    std::memcpy(&four_letters[28], "SSVI", 4);
    EXPECT_EQ(vxpreserve_adapter_data(cur, four_letters, 256).ssvid_copied, 1u);
    EXPECT_EQ(four_letters[32], 0x34);

    auto unlabelled = new_image();
    std::memset(&unlabelled[27], 0, 5);
    EXPECT_EQ(vxpreserve_adapter_data(cur, unlabelled, 256).ssvid_copied, 0u);
    EXPECT_EQ(unlabelled[32], 0xFF);
}

// Byte L-2 is outside the sum: two images that differ only there get the
// same checksum byte, and it need not make the whole image sum to zero.
TEST(Preserve, SealLeavesOutTheByteBeforeTheChecksum) {
    auto a = testimg::rom(Rom{.blocks = 1});
    auto b = a;
    b[510] = static_cast<uint8_t>(a[510] + 0x40);
    ASSERT_TRUE(vxrom_reseal_checksum(a, 0));
    ASSERT_TRUE(vxrom_reseal_checksum(b, 0));
    EXPECT_EQ(a[511], b[511]);
    EXPECT_EQ(b[510], static_cast<uint8_t>(a[510] + 0x40));
    EXPECT_TRUE(testimg::sealed(b, 0));

    std::vector<uint8_t> short_one = a;
    short_one.resize(511);  // the image claims 512 bytes
    EXPECT_FALSE(vxrom_reseal_checksum(short_one, 0));
    short_one[2] = 0;
    EXPECT_FALSE(vxrom_reseal_checksum(short_one, 0));
}

TEST(Preserve, NoMarkerInCurrentCopiesNothing) {
    auto cur = testimg::chain({Rom{.code_type = 0, .last = true, .ssvid = 0x1234}});
    auto img = testimg::chain({Rom{.code_type = 0, .last = true, .ssvid = 0x1234, .marker_at = 0x180}});
    const auto before = img;
    const auto rep = vxpreserve_adapter_data(cur, img, 512);
    EXPECT_TRUE(rep.current_is_x86);
    EXPECT_FALSE(rep.current_marker);
    EXPECT_EQ(rep.resealed, 0u);
    EXPECT_EQ(img, before);
}

TEST(Preserve, CurrentThatIsNotX86LeavesImageAlone) {
    const auto cur = testimg::chain({Rom{.code_type = 1, .last = true, .ssvid = 0x1234, .marker_at = 0x100}});
    auto img = new_image();
    const auto before = img;
    EXPECT_FALSE(vxpreserve_adapter_data(cur, img, 512).current_is_x86);
    EXPECT_EQ(img, before);
}

TEST(Preserve, WalkStopsAfterLastImageAndAfterTen) {
    const auto cur = current_flash();
    auto two = testimg::chain({Rom{.last = true, .marker_at = 0x180}, Rom{.marker_at = 0x180}});
    const auto before = two;
    EXPECT_EQ(vxpreserve_adapter_data(cur, two, 256).blocks_copied, 1u);
    EXPECT_TRUE(std::equal(two.begin() + 2048, two.end(), before.begin() + 2048));

    std::vector<uint8_t> twelve;
    for (int i = 0; i < 12; ++i) {
        const auto one = testimg::rom(Rom{.blocks = 2, .marker_at = 0x180});
        twelve.insert(twelve.end(), one.begin(), one.end());
    }
    const auto rep = vxpreserve_adapter_data(cur, twelve, 256);
    EXPECT_EQ(rep.images_walked, 10u);
    EXPECT_EQ(rep.blocks_copied, 10u);
    EXPECT_EQ(twelve[9 * 1024 + 0x186], 0xA5);
    EXPECT_EQ(twelve[10 * 1024 + 0x186], 0x11);  // the eleventh keeps its bytes
}

// A block that would run past the new image (into the next one) or past
// either buffer is not copied.
TEST(Preserve, BlocksThatDoNotFitAreSkipped) {
    const auto cur = current_flash();
    auto tight = testimg::chain({Rom{.blocks = 1, .marker_at = 0x100}, Rom{.code_type = 3, .last = true}});
    const auto before = tight;
    EXPECT_EQ(vxpreserve_adapter_data(cur, tight, 512).blocks_copied, 0u);
    EXPECT_EQ(tight, before);

    auto cur_short = cur;
    cur_short.resize(0x200);  // marker at 0x100, block would end at 0x302
    auto img = new_image(0x300);
    EXPECT_EQ(vxpreserve_adapter_data(cur_short, img, 512).blocks_copied, 0u);
    EXPECT_EQ(vxpreserve_adapter_data(cur, img, 512).blocks_copied, 1u);
}

TEST(Preserve, TruncatedAndGarbageInputsNeverCrash) {
    const auto cur = current_flash();
    const auto good = new_image();
    for (std::size_t cut = 0; cur.size() > 0 && cut < good.size(); cut += 37) {
        std::vector<uint8_t> img(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut));
        std::vector<uint8_t> c(cur.begin(), cur.begin() + static_cast<std::ptrdiff_t>(std::min(cut * 3, cur.size())));
        (void)vxpreserve_adapter_data(c, img, 512);
        (void)vxpreserve_adapter_data(cur, img, 512);
    }
    std::mt19937 rng(7);
    for (int round = 0; round < 200; ++round) {
        std::vector<uint8_t> a(rng() % 4096), b(rng() % 4096);
        for (auto &x : a) x = static_cast<uint8_t>(rng());
        for (auto &x : b) x = static_cast<uint8_t>(rng());
        // Plant plausible headers so the walk gets somewhere.
        for (auto *v : {&a, &b})
            if (v->size() > 26) {
                (*v)[0] = 0x55;
                (*v)[1] = 0xAA;
            }
        (void)vxpreserve_adapter_data(a, b, 512);
        (void)vxrom_walk_chain(b, 32);
    }
    // A PCI data structure pointer beyond the buffer.
    auto img = testimg::rom(Rom{.blocks = 1});
    img[24] = 0xF0;
    img[25] = 0x01;
    EXPECT_FALSE(vxrom_image_at(img, 0).has_value());
}

TEST(BootCopy, OnlyFcx160AndFcx180WholeFlashOrBootRegion) {
    EXPECT_TRUE(vxpreserve_needs_boot_copy(0x1600, 0x07));
    EXPECT_TRUE(vxpreserve_needs_boot_copy(0x1800, 0xFF));
    EXPECT_FALSE(vxpreserve_needs_boot_copy(0x1800, 0x01));
    EXPECT_FALSE(vxpreserve_needs_boot_copy(0x1410, 0x07));
    EXPECT_EQ(vxhmnvr_block_size(uint16_t{0x1410}), 512u);
    EXPECT_EQ(vxhmnvr_block_size(uint16_t{0x1230}), 256u);
}

TEST(BootCopy, ImageStoredTwice) {
    std::vector<uint8_t> img(0x40000);
    for (std::size_t i = 0; i < img.size(); ++i) img[i] = static_cast<uint8_t>(i * 13 + 1);
    const auto out = vxpreserve_double_boot_image(img);
    ASSERT_EQ(out.size(), 0x80000u);
    EXPECT_TRUE(std::equal(img.begin(), img.end(), out.begin()));
    EXPECT_TRUE(std::equal(img.begin(), img.end(), out.begin() + 0x40000));

    const std::vector<uint8_t> small(0x30000, 0x5A);
    const auto s = vxpreserve_double_boot_image(small);
    ASSERT_EQ(s.size(), 0x80000u);
    EXPECT_EQ(s[0x2FFFF], 0x5A);
    EXPECT_EQ(s[0x30000], 0x00);
    EXPECT_EQ(s[0x6FFFF], 0x5A);
    EXPECT_EQ(s[0x70000], 0x00);

    std::vector<uint8_t> big(0x100000, 0x77);
    big[0] = 0x01;
    const auto b = vxpreserve_double_boot_image(big);
    ASSERT_EQ(b.size(), 0x100000u);
    EXPECT_EQ(b[0x40000], 0x01);
    EXPECT_EQ(b[0x80000], 0x77);
}

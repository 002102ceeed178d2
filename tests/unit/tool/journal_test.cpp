// SPDX-License-Identifier: MIT
// The update journal's record and its directory: a record survives the trip
// to disk whole or is refused, and nothing another user could plant or
// change is ever trusted or written through.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "journal_record.h"
#include "journal_store.h"

namespace fs = std::filesystem;

namespace {

JournalRecord sample() {
    JournalRecord r;
    r.portWwn = {0x21, 0x00, 0x00, 0x1d, 0xe5, 0x16, 0x00, 0x00};
    r.serial = "VXA4200160";
    r.imageFile = "lab160.bin";
    r.flash.resize(0x2000);
    for (size_t i = 0; i < r.flash.size(); ++i) r.flash[i] = static_cast<uint8_t>(i * 7);
    r.vpd.assign(512, 0x5A);
    return r;
}

TEST(JournalRecord, RoundTripsAndRefusesAnyDamage) {
    const JournalRecord r = sample();
    const std::vector<uint8_t> bytes = EncodeJournalRecord(r);
    ASSERT_EQ(bytes.size(), kJournalHeaderSize + r.flash.size() + r.vpd.size());
    const auto back = DecodeJournalRecord(bytes);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->portWwn, r.portWwn);
    EXPECT_EQ(back->serial, r.serial);
    EXPECT_EQ(back->imageFile, r.imageFile);
    EXPECT_EQ(back->flash, r.flash);
    EXPECT_EQ(back->vpd, r.vpd);

    // One changed byte anywhere, a record cut short or grown: refused.
    for (size_t at : {size_t{0}, size_t{9}, size_t{13}, size_t{20}, size_t{60}, size_t{313}, kJournalHeaderSize + 5,
                      bytes.size() - 1}) {
        std::vector<uint8_t> bad = bytes;
        bad[at] ^= 0x01;
        EXPECT_FALSE(DecodeJournalRecord(bad).has_value()) << at;
    }
    EXPECT_FALSE(DecodeJournalRecord(std::span<const uint8_t>(bytes).first(bytes.size() - 1)).has_value());
    EXPECT_FALSE(DecodeJournalRecord(std::span<const uint8_t>(bytes).first(100)).has_value());
    std::vector<uint8_t> longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(DecodeJournalRecord(longer).has_value());
    EXPECT_FALSE(DecodeJournalRecord({}).has_value());
}

TEST(JournalRecord, TextsAreBoundedAndTheNameIsTheWwn) {
    JournalRecord r = sample();
    r.serial = std::string(40, 'S');
    r.imageFile = std::string(300, 'f');
    r.vpd.clear();
    const auto back = DecodeJournalRecord(EncodeJournalRecord(r));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->serial, std::string(31, 'S'));
    EXPECT_EQ(back->imageFile, std::string(255, 'f'));
    EXPECT_TRUE(back->vpd.empty());
    EXPECT_EQ(JournalFileName(r.portWwn), "wwpn-2100001de5160000");
}

class JournalStoreTest : public testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/fwjournal.XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        base_ = tmpl;
        ::chmod(base_.c_str(), 0755);
        dir_ = base_ + "/flashwright";
    }
    void TearDown() override { fs::remove_all(base_); }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_)) names.push_back(e.path().filename().string());
        return names;
    }
    std::string base_, dir_;
};

TEST_F(JournalStoreTest, CreatesAPrivateDirectoryAndReplacesFilesWhole) {
    JournalStore absent(dir_);
    std::string why;
    ASSERT_TRUE(absent.open(false, why)) << why;
    EXPECT_FALSE(absent.present());
    EXPECT_FALSE(fs::exists(dir_));

    JournalStore store(dir_);
    ASSERT_TRUE(store.open(true, why)) << why;
    struct stat st {};
    ASSERT_EQ(::stat(dir_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);

    EXPECT_FALSE(store.read("wwpn-1", why).has_value());
    EXPECT_EQ(why, "");
    const std::vector<uint8_t> one(100, 1), two(50, 2);
    ASSERT_TRUE(store.write("wwpn-1", one, why)) << why;
    ASSERT_TRUE(store.write("wwpn-1", two, why)) << why;
    EXPECT_EQ(store.read("wwpn-1", why), two);
    ASSERT_EQ(::stat((dir_ + "/wwpn-1").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(entries(), std::vector<std::string>{"wwpn-1"});  // no temporary left
    ASSERT_TRUE(store.remove("wwpn-1", why)) << why;
    EXPECT_TRUE(store.remove("wwpn-1", why)) << why;
    EXPECT_TRUE(entries().empty());
}

TEST_F(JournalStoreTest, RefusesWhatAnotherUserCouldHavePlanted) {
    std::string why;
    // The directory: a link, writable by others, or not root's.
    ASSERT_EQ(::mkdir((base_ + "/elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(::symlink((base_ + "/elsewhere").c_str(), dir_.c_str()), 0);
    EXPECT_FALSE(JournalStore(dir_).open(true, why));
    EXPECT_NE(why, "");
    ASSERT_EQ(::unlink(dir_.c_str()), 0);
    ASSERT_EQ(::mkdir(dir_.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(dir_.c_str(), 0777), 0);
    EXPECT_FALSE(JournalStore(dir_).open(true, why));
    // Another tool's 0755 is fine: nobody else can write it.
    ASSERT_EQ(::chmod(dir_.c_str(), 0755), 0);
    EXPECT_TRUE(JournalStore(dir_).open(false, why)) << why;
    ASSERT_EQ(::chmod(dir_.c_str(), 0700), 0);
    ASSERT_EQ(::chown(dir_.c_str(), 1000, 1000), 0);
    EXPECT_FALSE(JournalStore(dir_).open(false, why));
    ASSERT_EQ(::chown(dir_.c_str(), 0, 0), 0);
    // The directory above, writable by others without the sticky bit.
    ASSERT_EQ(::chmod(base_.c_str(), 0777), 0);
    EXPECT_FALSE(JournalStore(dir_).open(false, why));
    ASSERT_EQ(::chmod(base_.c_str(), 0755), 0);

    JournalStore store(dir_);
    ASSERT_TRUE(store.open(false, why)) << why;
    // A file: a link (even to a good record), writable by others, or not root's.
    const std::vector<uint8_t> good(10, 7);
    ASSERT_TRUE(store.write("real", good, why));
    ASSERT_EQ(::symlink((dir_ + "/real").c_str(), (dir_ + "/link").c_str()), 0);
    EXPECT_FALSE(store.read("link", why).has_value());
    EXPECT_NE(why, "");
    ASSERT_EQ(::chmod((dir_ + "/real").c_str(), 0622), 0);
    EXPECT_FALSE(store.read("real", why).has_value());
    EXPECT_NE(why, "");
    ASSERT_EQ(::chmod((dir_ + "/real").c_str(), 0600), 0);
    ASSERT_EQ(::chown((dir_ + "/real").c_str(), 1000, 1000), 0);
    EXPECT_FALSE(store.read("real", why).has_value());
    // A new record replaces the planted link instead of writing through it.
    ASSERT_TRUE(store.write("link", good, why)) << why;
    EXPECT_FALSE(fs::is_symlink(dir_ + "/link"));
}

}  // namespace

// SPDX-License-Identifier: MIT
// The configuration path and the files a root run takes from directories
// other users can write.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "option_rom.h"
#include "oss.h"
#include "oss_files.h"
#include "process.h"

namespace {

constexpr uid_t kNobody = 65534;

// The configuration path OSSInitialize derives from a working directory
// (in a child: it changes directory and must run as root).
std::string config_path_from(const std::string &cwd) {
    int fds[2];
    if (pipe(fds) != 0) return "pipe failed";
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        if (chdir(cwd.c_str()) != 0) _exit(1);
        OSSInitialize(0, nullptr);
        const char *path = OSSGetConfigPath();
        if (write(fds[1], path, std::strlen(path)) < 0) _exit(1);
        _exit(0);
    }
    close(fds[1]);
    std::string out;
    char buf[300];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    waitpid(child, nullptr, 0);
    return out;
}

TEST(ConfigurationPath, WorkingDirectoryPlusSlash) {
    if (geteuid() != 0) GTEST_SKIP() << "OSSInitialize refuses non-root users";
    fwtest::TempDir dir("fwunit");
    EXPECT_EQ(config_path_from(dir.path()), dir.path() + "/");
    EXPECT_EQ(config_path_from("/"), "//");
}

bool opens_config(const std::string &path) {
    FILE *f = OSSOpenConfigFile(path.c_str(), "r");
    if (f == nullptr) return false;
    std::fclose(f);
    return true;
}

bool opens_image(const std::string &path) {
    FILE *f = OSSOpenImageFile(path.c_str());
    if (f == nullptr) return false;
    std::fclose(f);
    return true;
}

// A directory like /tmp: root's, writable by everyone, sticky.
class SharedDirectory : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root to own and give away files";
        ASSERT_EQ(chmod(dir_.path().c_str(), 01777), 0);
        alarm(20);  // nothing here may block on a FIFO
    }
    void TearDown() override { alarm(0); }
    std::string put(const std::string &name, mode_t mode = 0644, uid_t owner = 0) {
        const std::string path = dir_ / name;
        fwtest::write_file(path, "0x10C6,0x1DE5,FCX141,Dual port,TRUE\n", mode);
        EXPECT_EQ(chown(path.c_str(), owner, owner), 0);
        return path;
    }
    fwtest::TempDir dir_{"fwunit"};
};

TEST_F(SharedDirectory, OnlyRootsOwnUnsharedFilesCount) {
    const std::string good = put("adapters.properties");
    EXPECT_TRUE(OSSConfigFileExists(good.c_str()));
    EXPECT_TRUE(opens_config(good));
    FILE *rw = OSSOpenConfigFile(good.c_str(), "r+");
    ASSERT_NE(rw, nullptr);
    std::fclose(rw);

    const std::vector<std::string> absent = {
        put("by-nobody.properties", 0644, kNobody),
        put("group-writable.properties", 0664),
        put("world-writable.properties", 0666),
    };
    const std::string link = dir_ / "link.properties";
    ASSERT_EQ(symlink(good.c_str(), link.c_str()), 0);
    const std::string twice = put("twice.properties");
    ASSERT_EQ(::link(twice.c_str(), (dir_ / "second-name").c_str()), 0);
    const std::string fifo = dir_ / "fifo.properties";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string sub = dir_ / "subdir.properties";
    ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
    for (const std::string &path : {absent[0], absent[1], absent[2], link, twice, fifo, sub}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(OSSConfigFileExists(path.c_str()));
        errno = 0;
        EXPECT_FALSE(opens_config(path));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_FALSE(opens_image(path));
    }

    // Without the sticky bit anyone may replace the entry: nothing counts.
    ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
    EXPECT_FALSE(OSSConfigFileExists(good.c_str()));
    EXPECT_FALSE(opens_config(good));
    // A directory only root can write is not shared: its files are taken as they are.
    ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
    EXPECT_TRUE(opens_config(good));
    EXPECT_TRUE(opens_config(link));
    EXPECT_TRUE(opens_config(absent[0]));
}

TEST(ImageFiles, OnlyRegularFilesAreOpened) {
    alarm(20);  // a FIFO without a writer must not block the open
    fwtest::TempDir dir("fwunit");
    const std::string fifo = dir / "image.fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string regular = dir / "image.bin";
    fwtest::write_file(regular, std::string(600, 'x'));
    const std::string link = dir / "image.link";
    ASSERT_EQ(symlink(regular.c_str(), link.c_str()), 0);

    EXPECT_TRUE(opens_image(regular));
    EXPECT_TRUE(opens_image(link));
    for (const std::string &path : {fifo, dir.path(), std::string("/dev/zero")}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(opens_image(path));
        std::vector<uint8_t> buffer(0x10000);
        int32_t max = 0x10000;
        EXPECT_EQ(validateOptionROMFile(path.c_str(), buffer, &max), 1);
        EXPECT_EQ(max, 0);
        EXPECT_EQ(scanOptionROMFile(nullptr, path.c_str()), 1);
    }
    alarm(0);
}

}  // namespace

// SPDX-License-Identifier: MIT
// The flashwright binary on a host without adapters: command line, start-up
// order, configuration directory search and the exact bytes it prints.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "process.h"

namespace {

// Scratch directories must stay visible when a run mounts a fresh /tmp.
const bool kScratchReady = [] {
    mkdir(FW_E2E_SCRATCH, 0755);
    chmod(FW_E2E_SCRATCH, 0755);
    return setenv("FWTEST_TMPDIR", FW_E2E_SCRATCH, 1) == 0;
}();

constexpr uid_t kNobody = 65534;

const std::string kUsage =
    "NAME\n\r\n"
    "flashwright - Varnix Flash (Firmware Component) Update Utility\n\r\n"
    "SYNOPSIS\n\r\n"
    "flashwright [OPTION]\n\r\n"
    "\r\nOPTIONS:\r\n\n\r\n"
    "    Default: Invoked with no parameter\r\n\r\n"
    "    Force to write a known firmware version to all HBAs that are currently\r\r\n"
    "    down revision.\r\n\r\n"
    " /f Write:\r\n\r\n"
    "    Force to write a known firmware version to all HBAs (No revision check).\r\n\r\n"
    " /e Rewrite:\r\n\r\n"
    "    Force to rewrite the firmware to all HBAs that are at revision. Only\r\r\n"
    "    HBAs that are down revision will be upgraded. HBAs that are up\r\r\n"
    "    revision will be left alone.\r\n\r\n"
    " /g Downgrade:\r\n\r\n"
    "    Force to downgrade the firmware of HBAs that are up revision to\r\r\n"
    "    a current known revision. HBAs that are down revision are upgraded\r\r\n"
    "    and HBAs that are at revision will be left alone.\r\n\r\n"
    " /l Host Information:\r\n\r\n"
    "    Display Host information.\r\n\r\n"
    " /i HBA Information:\r\n\r\n"
    "    Display general information of all HBAs.\r\n\r\n"
    " /v Version infomation:\r\n\r\n"
    "    Display application version.\r\n\r\n"
    " /s Silent Mode:\r\n\r\n"
    "    Suppress the output.\r\n\r\n";

const std::regex kVersion(
    "Varnix Flash \\(Firmware Component\\) Update Utility\nv1\\.0\\.0 Build 9\r\n"
    "[^\r\n]+\n[^\r\n]+\r\n"
    "Build Type: Release\r\n"
    "Build Date: (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3][0-9] [0-9]{4} "
    "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\r\n");

const std::string kRootError = "Error: You must be root to use this program.\n";
const std::string kNoAdapterInfo = "Info: Varnix HBA not found !\r\n";

fwtest::RunOptions base_options() {
    fwtest::RunOptions opts;
    opts.unset_env = {"VX_FCAPI_DEBUG"};
    opts.timeout_seconds = 60;
    return opts;
}

// A run as an ordinary user: it never gets far enough to read any file.
fwtest::RunResult run_as_nobody(const std::vector<std::string> &args) {
    fwtest::TempDir cwd("fwcli");
    fwtest::RunOptions opts = base_options();
    opts.cwd = cwd.path();
    opts.uid = kNobody;
    std::vector<std::string> argv{fwtest::bin_path("flashwright")};
    argv.insert(argv.end(), args.begin(), args.end());
    return fwtest::run(argv, opts);
}

// A root run in a private mount namespace: fresh /tmp, throw-away /etc,
// with the files staged under etc/, tmp/ and cwd/ put in place first.
class PrivateHost : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(kScratchReady);
        if (geteuid() != 0) GTEST_SKIP() << "needs root for the private mount namespace";
        mkdir((stage_ / "etc").c_str(), 0755);
        mkdir((stage_ / "tmp").c_str(), 0755);
        mkdir(cwd().c_str(), 0755);
    }
    std::string cwd() const { return stage_ / "cwd"; }
    void put(const std::string &where, const std::string &name, const std::string &text = "") {
        fwtest::write_file(stage_ / (where + "/" + name), text);
    }
    fwtest::RunResult run(const std::vector<std::string> &args) {
        fwtest::RunOptions opts = base_options();
        opts.cwd = cwd();
        opts.env = {"FW_STAGE=" + stage_.path(), "FW_CWD=" + cwd()};
        std::vector<std::string> argv{"/usr/bin/unshare", "--mount", "--propagation", "private",
                                      "/bin/sh",          FW_E2E_LAUNCHER, fwtest::bin_path("flashwright")};
        argv.insert(argv.end(), args.begin(), args.end());
        return fwtest::run(argv, opts);
    }
    fwtest::TempDir stage_{"fwcli"};
};

std::string host_block(const std::string &osType) {
    struct utsname names {};
    uname(&names);
    return std::string("Host Name\t: ") + names.nodename + "\r\n" + "OS Type\t\t: " + osType + "\r\n" +
           "OS Version\t: " + names.release + "\r\n" + "FOAPI\t\t: 3.0.1 build6\r\n" +
           "HMXAPI\t\t: v5.00 build7Pre1\r\n";
}

std::string plain_os_type() {
    struct utsname names {};
    uname(&names);
    return std::string(names.sysname) + " " + names.machine;
}

TEST(CommandLineOnly, VersionNeedsNoRootAndNoStartUp) {
    for (const auto &args : std::vector<std::vector<std::string>>{{"-v"}, {"/V"}, {"-v", "-s"}, {"-v", "-h"}}) {
        const auto r = run_as_nobody(args);
        EXPECT_EQ(r.status, 2) << args[0];
        EXPECT_TRUE(std::regex_match(r.out, kVersion)) << r.out;
        EXPECT_EQ(r.err, "");
    }
    // Silent before the version switch: nothing at all.
    const auto silent = run_as_nobody({"-s", "-v"});
    EXPECT_EQ(silent.status, 2);
    EXPECT_EQ(silent.out, "");
    EXPECT_EQ(silent.err, "");
}

TEST(CommandLineOnly, RejectedCommandLinesPrintUsageWithoutRootCheck) {
    const std::vector<std::vector<std::string>> rejected = {{"-x"}, {"-ff"}, {"f"}, {"-f", "-e"}, {"-l", "extra"}};
    for (const auto &args : rejected) {
        const auto r = run_as_nobody(args);
        EXPECT_EQ(r.status, 7) << args[0];
        EXPECT_EQ(r.out, kUsage) << args[0];
        EXPECT_EQ(r.err, "") << args[0];
    }
    const auto silent = run_as_nobody({"-s", "-x"});
    EXPECT_EQ(silent.status, 7);
    EXPECT_EQ(silent.out, "");
}

TEST(CommandLineOnly, EveryOtherRequestNeedsRoot) {
    for (const auto &args : std::vector<std::vector<std::string>>{{}, {"-h"}, {"/?"}, {"-l"}, {"-s"}}) {
        const auto r = run_as_nobody(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, kRootError);  // written directly, silent mode or not
    }
}

TEST_F(PrivateHost, HelpNeedsTheConfigurationFile) {
    auto r = run({"-h"});
    EXPECT_EQ(r.status, 5);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");

    put("cwd", "adapters.properties");
    r = run({"-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, kUsage);
    EXPECT_EQ(r.err, "");

    r = run({"-s", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
}

TEST_F(PrivateHost, NoModeSelected) {
    put("cwd", "adapters.properties");
    auto r = run({"-s"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");

    r = run({""});  // an empty argument selects nothing either
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Error: Unknown option entered !\n\r\n");
}

TEST_F(PrivateHost, UpdateModesWithoutAdapters) {
    put("cwd", "adapters.properties", "0x10C6,0x1DE5,FCX141,Dual port,TRUE\n");
    // No version control file: the update never starts.
    for (const auto &args : std::vector<std::vector<std::string>>{{}, {"-f"}, {"/E"}, {"-g"}}) {
        const auto r = run(args);
        EXPECT_EQ(r.status, 4);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "Error: Cannot open file " + cwd() + "/flashwright.properties !\r\n");
    }
    auto r = run({"-s", "-f"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.err, "");

    put("cwd", "flashwright.properties", "; versions\n0x10C6,0x1DE5,QX,1.28,1.02,1.10,4.0.90,image.bin\n");
    for (const auto &args : std::vector<std::vector<std::string>>{{}, {"-f"}, {"-F"}, {"/g"}}) {
        r = run(args);
        EXPECT_EQ(r.status, 8);
        EXPECT_EQ(r.out, kNoAdapterInfo);
        EXPECT_EQ(r.err, "");
    }
    r = run({"-f", "-s"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, "");
}

TEST_F(PrivateHost, ListingsWithoutAdapters) {
    put("cwd", "adapters.properties");
    auto r = run({"/i"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, kNoAdapterInfo);
    EXPECT_EQ(r.err, "");

    r = run({"-l"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, host_block(plain_os_type()) + "Varnix HBA not found !\n");
    EXPECT_EQ(r.err, "");

    // The agent channel's line survives silent mode.
    r = run({"-s", "/L"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "Varnix HBA not found !\n");

    r = run({"-s", "-i"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, "");
}

TEST_F(PrivateHost, ReleaseFileNamesTheHostType) {
    put("cwd", "adapters.properties");
    struct utsname names {};
    uname(&names);
    put("etc", "redhat-release", "Red Hat Enterprise Linux Server release 5.3 (Tikanga)\nsecond line\n");
    auto r = run({"-l"});
    EXPECT_EQ(r.out, host_block(std::string("Linux - Red Hat Enterprise Linux Server release 5.3  ") + names.machine) +
                         "Varnix HBA not found !\n");

    // The SuSE file is read first; its first line ends at the line feed.
    put("etc", "SuSE-release", "SUSE Linux Enterprise Server 10 x86_64\nVERSION = 10\n");
    r = run({"-l"});
    EXPECT_EQ(r.out, host_block(std::string("Linux - SUSE Linux Enterprise Server 10 x86_64 ") + names.machine) +
                         "Varnix HBA not found !\n");
}

TEST_F(PrivateHost, ConfigurationDirectorySearch) {
    // Only in /tmp/: the version control file is looked for there too, not
    // in the working directory.
    put("tmp", "adapters.properties");
    put("cwd", "flashwright.properties");
    auto r = run({"-f"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.err, "Error: Cannot open file /tmp/flashwright.properties !\r\n");

    put("tmp", "flashwright.properties", "0x10C6,0x1DE5,QX,1.28,1.02,1.10,4.0.90,image.bin\n");
    r = run({"-f"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, kNoAdapterInfo);

    // /etc/ comes before /tmp/.
    put("etc", "adapters.properties");
    r = run({"-f"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.err, "Error: Cannot open file /etc/flashwright.properties !\r\n");
}

TEST_F(PrivateHost, TmpFilesCountOnlyWhenRootAloneCouldHavePutThem) {
    const std::string tmp = stage_ / "tmp";
    const std::string marker = tmp + "/adapters.properties";
    const std::string versions = tmp + "/flashwright.properties";
    const std::string rows = "0x10C6,0x1DE5,QX,1.28,1.02,1.10,4.0.90,../../../../etc/shadow\n";
    // Planted by another user, writable by others, a link, a second name:
    // as if there were no file, so the search finds nothing.
    const std::vector<std::pair<std::string, std::function<void()>>> planted = {
        {"owned by nobody", [&] { ASSERT_EQ(chown(marker.c_str(), kNobody, kNobody), 0); }},
        {"writable by all", [&] { ASSERT_EQ(chmod(marker.c_str(), 0666), 0); }},
        {"a link", [&] {
             ASSERT_EQ(rename(marker.c_str(), (tmp + "/real").c_str()), 0);
             ASSERT_EQ(symlink("real", marker.c_str()), 0);
         }},
        {"a second name", [&] { ASSERT_EQ(link(marker.c_str(), (tmp + "/other").c_str()), 0); }},
    };
    for (const auto &[what, plant] : planted) {
        SCOPED_TRACE(what);
        std::filesystem::remove_all(tmp);
        mkdir(tmp.c_str(), 0755);
        put("tmp", "adapters.properties");
        put("tmp", "flashwright.properties", rows);
        plant();
        const auto r = run({"-f"});
        EXPECT_EQ(r.status, 5);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
    }

    // The marker is root's, the version file is not: that file is absent.
    std::filesystem::remove_all(tmp);
    mkdir(tmp.c_str(), 0755);
    put("tmp", "adapters.properties");
    put("tmp", "flashwright.properties", rows);
    ASSERT_EQ(chown(versions.c_str(), kNobody, kNobody), 0);
    auto r = run({"-f"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.err, "Error: Cannot open file /tmp/flashwright.properties !\r\n");

    ASSERT_EQ(chown(versions.c_str(), 0, 0), 0);
    r = run({"-f"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, kNoAdapterInfo);
    EXPECT_EQ(r.err, "");
}

TEST_F(PrivateHost, InterruptEndsTheRunByTheSignal) {
    // The version control file is a FIFO without a writer, so the update
    // blocks opening it until the interrupt comes.
    put("cwd", "adapters.properties");
    ASSERT_EQ(mkfifo((cwd() + "/flashwright.properties").c_str(), 0644), 0);
    const std::string script =
        "\"$1\" -f & pid=$!\n"
        "i=0\n"
        "while [ $i -lt 100 ] && [ \"$(cat /proc/$pid/wchan 2>/dev/null)\" != wait_for_partner ]; do\n"
        "  sleep 0.05; i=$((i + 1))\n"
        "done\n"
        "kill -INT $pid\n"
        "wait $pid\n"
        "echo \"status $?\"\n";
    fwtest::RunOptions opts = base_options();
    opts.cwd = cwd();
    opts.timeout_seconds = 30;
    opts.env = {"FW_STAGE=" + stage_.path(), "FW_CWD=" + cwd()};
    const auto r = fwtest::run({"/usr/bin/unshare", "--mount", "--propagation", "private", "/bin/sh", FW_E2E_LAUNCHER,
                                "/bin/sh", "-c", script, "sh", fwtest::bin_path("flashwright")},
                               opts);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "status 130\n");  // 128 + SIGINT: the default action, not exit(1)
    EXPECT_EQ(r.err, "");
}

TEST_F(PrivateHost, UnreadableAgentPreferencesDoNotMatter) {
    put("cwd", "adapters.properties");
    put("cwd", "agent.properties", "node.agent.polling.interval=0\nnode.agent.quiet.mode.enable=7\ngarbage\n");
    const auto r = run({"-i"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.out, kNoAdapterInfo);
}

}  // namespace

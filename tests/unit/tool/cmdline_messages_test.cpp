// SPDX-License-Identifier: MIT
// Command line parsing, the message channels and the string routines.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstring>
#include <string>
#include <vector>

#include "cmdline.h"
#include "fw_strings.h"
#include "messages.h"
#include "oss.h"
#include "usage.h"

namespace {

struct Parsed {
    int status;
    int32_t help, silent, hostInfo, hbaInfo, update, mode;
};

// Runs the parser on writable copies of `args` (the parser blanks some).
Parsed parse(const std::vector<std::string> &args) {
    std::vector<std::vector<char>> storage;
    storage.push_back({'f', 'w', '\0'});
    for (const std::string &a : args) storage.emplace_back(a.c_str(), a.c_str() + a.size() + 1);
    std::vector<char *> argv;
    for (auto &s : storage) argv.push_back(s.data());
    argv.push_back(nullptr);
    g_bDisplayHBAInfo = 0;  // zero at start; the parser leaves it alone
    const int status = ParseArg(static_cast<int>(storage.size()), argv.data());
    return {status, g_bHelp, g_bSilentMode, g_bHostInfo, g_bDisplayHBAInfo, g_bUpdateFlash, g_iFlashMode};
}

struct ParseCase {
    std::vector<std::string> args;
    Parsed expected;
};

TEST(CommandLine, SwitchesModesAndOrder) {
    testing::internal::CaptureStderr();
    const ParseCase cases[] = {
        // status, help, silent, hostInfo, hbaInfo, update, mode
        {{}, {0, 0, 0, 0, 0, 1, 0}},
        {{"-s"}, {0, 0, 1, 0, 0, 0, 0}},
        {{"-f"}, {0, 0, 0, 0, 0, 1, 1}},
        {{"/F"}, {0, 0, 0, 0, 0, 1, 1}},
        {{"-F"}, {0, 0, 0, 0, 0, 1, 1}},
        {{"/e"}, {0, 0, 0, 0, 0, 1, 2}},
        {{"-G"}, {0, 0, 0, 0, 0, 1, 3}},
        {{"/l"}, {0, 0, 0, 1, 0, 0, 0}},
        {{"-i"}, {0, 0, 0, 0, 1, 0, 0}},
        {{"-ff"}, {7, 0, 0, 0, 0, 0, 0}},
        {{"f"}, {7, 0, 0, 0, 0, 0, 0}},
        {{"-f", "-e"}, {7, 0, 0, 0, 0, 0, 0}},
        {{"-s", "-f"}, {0, 0, 1, 0, 0, 1, 1}},
        {{"-f", "-s"}, {0, 0, 1, 0, 0, 1, 1}},
        {{"-s", "-h"}, {1, 1, 1, 0, 0, 0, 0}},
        {{"/?"}, {1, 1, 0, 0, 0, 0, 0}},
        {{"-h", "-v"}, {1, 1, 0, 0, 0, 0, 0}},
        {{"-v", "-h"}, {2, 0, 0, 0, 0, 0, 0}},
        {{"-v", "-s"}, {2, 0, 0, 0, 0, 0, 0}},
        {{"-s", "-v"}, {2, 0, 1, 0, 0, 0, 0}},
        {{"-h", "-bogus"}, {1, 1, 0, 0, 0, 0, 0}},  // later arguments are not looked at
        {{"-f", "-bogus", "-h"}, {1, 1, 0, 0, 0, 0, 0}},
        {{""}, {0, 0, 0, 0, 0, 0, 0}},
        {{"", "-s", ""}, {0, 0, 1, 0, 0, 0, 0}},
        {{"", "-f", ""}, {0, 0, 0, 0, 0, 1, 1}},
    };
    for (const ParseCase &c : cases) {
        std::string label;
        for (const auto &a : c.args) label += "'" + a + "' ";
        const Parsed got = parse(c.args);
        EXPECT_EQ(got.status, c.expected.status) << label;
        EXPECT_EQ(got.help, c.expected.help) << label;
        EXPECT_EQ(got.silent, c.expected.silent) << label;
        EXPECT_EQ(got.hostInfo, c.expected.hostInfo) << label;
        EXPECT_EQ(got.hbaInfo, c.expected.hbaInfo) << label;
        EXPECT_EQ(got.update, c.expected.update) << label;
        EXPECT_EQ(got.mode, c.expected.mode) << label;
        EXPECT_EQ(GetArgumentCount(), 0) << label << "(copies are always freed)";
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CommandLine, ArgumentLimit) {
    // 127 copied arguments reach the second pass (which rejects them
    // quietly); the 128th is refused by the first pass with a message.
    testing::internal::CaptureStderr();
    EXPECT_EQ(parse(std::vector<std::string>(127, "x")).status, kParseUsage);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    testing::internal::CaptureStderr();
    EXPECT_EQ(parse(std::vector<std::string>(128, "x")).status, kParseUsage);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Unknown option entered !\n\r\n");

    // Silent mode hides it.
    std::vector<std::string> args(128, "x");
    args.insert(args.begin(), "-s");
    testing::internal::CaptureStderr();
    EXPECT_EQ(parse(args).status, kParseUsage);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    g_bSilentMode = 0;
}

TEST(Messages, ConsoleChannelLevelsAndStreams) {
    g_bSilentMode = 0;
    struct Case {
        int level;
        std::string out, err;
    } cases[] = {
        {0, "text\r\n", ""},
        {1, "Info: text\r\n", ""},
        {2, "Warning: text\r\n", ""},
        {3, "", "Error: text\r\n"},
        {4, "Unknown: text\r\n", ""},
        {100, "Debug: text\r\n", ""},
        {-1, "Unknown: text\r\n", ""},
    };
    for (const Case &c : cases) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        PrintLogMessage(c.level, "%s", "text");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.level;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err) << c.level;
    }

    // A status text keeps its own line feed before the channel's "\r\n".
    testing::internal::CaptureStderr();
    PrintStatusMessage("Memory allocation error !");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Memory allocation error !\n\r\n");
    EXPECT_STREQ(g_statusMsg, "Memory allocation error !");

    // A text longer than the formatting buffer is cut, not overrun.
    testing::internal::CaptureStdout();
    PrintLogMessage(0, "%s", std::string(2000, 'a').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(kMessageBufferSize - 1, 'a') + "\r\n");
}

TEST(Messages, SilentModeAndAgentChannel) {
    g_bSilentMode = 1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    PrintLogMessage(3, "%s", "hidden");
    LogMessage(0, "hidden");
    CoreLogMessage(0, "%s", "shown anyway");
    CoreLogMessage(3, "%s", "dropped");
    CoreLogMessage(100, "%s", "dropped");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "shown anyway\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    g_bSilentMode = 0;
}

TEST(Strings, CaseInsensitiveEquality) {
    EXPECT_EQ(striscmp("-f", "-F"), 0);
    EXPECT_EQ(striscmp("FCX160", "fcx160"), 0);
    EXPECT_EQ(striscmp("", ""), -1);
    EXPECT_EQ(striscmp(nullptr, "a"), -1);
    EXPECT_EQ(striscmp("-f", "-ff"), -1);
    EXPECT_EQ(striscmp("-f", "-g"), -1);
}

TEST(Strings, TrimmingAndCleaning) {
    char a[] = " \t image.bin  \r\n";
    EXPECT_STREQ(Trim(a), "image.bin");
    char b[] = "  model  ";
    EXPECT_STREQ(RightTrim(b), "  model");
    char c[] = "   ";
    EXPECT_STREQ(Trim(c), "");
    char d[] = "v2.02.00 (beta)";
    EXPECT_STREQ(CleanStr(d), "2.02.00");
    EXPECT_EQ(right("0x10C6", 4), "10C6");
    EXPECT_EQ(right("ab", 4), "ab");
    char small[4];
    CopyText(small, "abcdef");
    EXPECT_STREQ(small, "abc");
}

TEST(HostType, TestsLookAtTheMachineName) {
    // No release files under this directory: system name and machine.
    OSSFillHostIdentity("/nonexistent-release-dir/");
    struct utsname names {};
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(std::string(g_hostSystemType), std::string(names.sysname) + " " + names.machine);
    EXPECT_EQ(isHostSystemType(names.machine), 1);
    EXPECT_EQ(isHostSystemType("IA64"), std::strstr(names.machine, "IA64") != nullptr ? 1 : 0);
    EXPECT_EQ(isSUNi86PC(), 0);
    EXPECT_EQ(GetHostInformation(nullptr), -1);
}

}  // namespace

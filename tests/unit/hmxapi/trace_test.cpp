// SPDX-License-Identifier: MIT
// The debug trace: number spelling, the line buffer, the log file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

#include "process.h"
#include "vx_hmdbg.h"

namespace {

TEST(TraceNumbers, RadixRules) {
    const struct {
        uint64_t n;
        uint8_t base;
        const char *text;
    } rows[] = {
        {0, 10, "0"},          {7, 10, "7"},         {1234567890, 10, "1234567890"},
        {0, 16, "0"},          {9, 16, "9"},         {10, 16, "Ah"},
        {0x2000006D, 16, "2000006Dh"},              {UINT64_MAX, 16, "FFFFFFFFFFFFFFFFh"},
        {static_cast<uint64_t>(-5), 1, "-5"},      {42, 1, "42"},
        {UINT64_MAX, 10, "18446744073709551615"},  {static_cast<uint64_t>(INT64_MIN), 1, "-9223372036854775808"},
        {12, 8, ""},           {12, 0, ""},          {12, 2, ""},
    };
    for (const auto &r : rows) EXPECT_EQ(vxhmx::format_trace_number(r.n, r.base), r.text) << r.n << " base " << int(r.base);
}

TEST(TraceFormat, PercentSignsAreReadAsAFormatWithoutArguments) {
    EXPECT_EQ(vxhmx::expand_trace_format("100%% done"), "100% done");
    EXPECT_EQ(vxhmx::expand_trace_format("%s %d %"), "%s %d %");
    EXPECT_EQ(vxhmx::expand_trace_format("%%%%"), "%%");
}

// Runs body with standard error going to a file and returns what was written.
template <class F>
std::string capture_stderr(F body) {
    fwtest::TempDir dir("hmxtrace");
    const std::string path = dir / "err";
    std::fflush(stderr);
    const int saved = ::dup(2);
    FILE *f = std::fopen(path.c_str(), "w");
    ::dup2(fileno(f), 2);
    body();
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    std::fclose(f);
    return fwtest::read_file(path);
}

class Trace : public ::testing::Test {
protected:
    void SetUp() override { saved_ = vx_debug; }
    void TearDown() override {
        vx_debug = saved_;
        vxdbg_set_log_path(nullptr);
    }
    uint32_t saved_ = 0;
};

TEST_F(Trace, SilentWithoutMask) {
    vx_debug = 0;
    EXPECT_EQ(capture_stderr([] { vxdbg_print("HmOpenDevice(0): entered.", 0, 0, 1); }), "");
    EXPECT_EQ(vxdbg_get_fptr(), nullptr);
}

TEST_F(Trace, PrintWritesTextNumberAndNewline) {
    vx_debug = VXDBG_TRACE;
    const std::string out = capture_stderr([] {
        vxdbg_print("stat=", 0x20000075, 16, 1);
        vxdbg_print("count ", 3, 10, 0);
        vxdbg_print(" more", 0, 0, 1);
        vxdbg_print("no number", 99, 0, 1);
    });
    EXPECT_EQ(out, "stat=20000075h\ncount 3 more\nno number\n");
}

TEST_F(Trace, LongLinesAreCutAt251Characters) {
    vx_debug = VXDBG_TRACE;
    const std::string text(300, 'x');
    const std::string out = capture_stderr([&] { vxdbg_print(text.c_str(), 0, 0, 1); });
    EXPECT_EQ(out, text + "\n");  // split into a 251-character write and the rest
}

TEST_F(Trace, DumpLinesUpWords) {
    vx_debug = VXDBG_TRACE;
    const uint8_t words[] = {0x01, 0x00, 0x2A, 0x00, 0x34, 0x12, 0xFF, 0x0F, 0x00, 0x00,
                             0x0B, 0x00, 0x00, 0x01, 0xCD, 0xAB, 0x05, 0x00};
    const std::string out = capture_stderr([&] { vxdbg_dump("nvram:", words, 16, 9); });
    EXPECT_EQ(out, "nvram:\n   1  2A 1234 FFF   0   B 100 ABCD\n   5\n");
}

TEST_F(Trace, LogFileLinesCarryTheTimePrefix) {
    fwtest::TempDir dir("hmxlog");
    const std::string log = dir / "libvxhmx.log";
    vxdbg_set_log_path(log.c_str());
    vx_debug = VXDBG_LOGFILE | VXDBG_TRACE;
    const std::string err = capture_stderr([] {
        vxdbg_print("first ", 1, 10, 1);
        vxdbg_print("second", 0, 0, 1);
    });
    EXPECT_EQ(err, "first 1\nsecond\n");
    const std::string text = fwtest::read_file(log);
    const std::regex line("[A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} : (first 1|second)\n");
    ASSERT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
    const std::string first = text.substr(0, text.find('\n') + 1);
    const std::string second = text.substr(first.size());
    EXPECT_TRUE(std::regex_match(first, line)) << first;
    EXPECT_TRUE(std::regex_match(second, line)) << second;
}

TEST_F(Trace, LogFileIsNeverWrittenThroughALink) {
    fwtest::TempDir dir("hmxlog");
    const std::string target = dir / "target";
    const std::string link = dir / "libvxhmx.log";
    fwtest::write_file(target, "keep\n");
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    vxdbg_set_log_path(link.c_str());
    vx_debug = VXDBG_LOGFILE | VXDBG_TRACE;
    capture_stderr([] { vxdbg_print("line", 0, 0, 1); });
    EXPECT_EQ(fwtest::read_file(target), "keep\n");
}

TEST_F(Trace, MaskIsReadAsHexadecimal) {
    ::setenv("VX_FCAPI_DEBUG", "24", 1);
    vxapi_set_debug_level();
    EXPECT_EQ(vx_debug, 0x24u);
    ::setenv("VX_FCAPI_DEBUG", "0x101", 1);
    vxapi_set_debug_level();
    EXPECT_EQ(vx_debug, 0x101u);
    ::unsetenv("VX_FCAPI_DEBUG");
    vxapi_set_debug_level();  // unset keeps the mask
    EXPECT_EQ(vx_debug, 0x101u);
}

}  // namespace

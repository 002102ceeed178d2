// SPDX-License-Identifier: MIT
// The three text files the tool reads: adapters.properties,
// flashwright.properties and agent.properties.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "cmdline.h"
#include "core.h"
#include "messages.h"
#include "oss.h"
#include "preferences.h"
#include "process.h"
#include "subsystem_list.h"
#include "version_control.h"

namespace {

// ---- adapters.properties ---------------------------------------------------

class SupportedAdapters : public testing::Test {
protected:
    SubSystemIDListPtr load(const std::string &text) {
        const std::string path = dir_ / "adapters.properties";
        fwtest::write_file(path, text);
        return BuildSubSystemListFromFile(path.c_str());
    }
    fwtest::TempDir dir_{"fwunit"};
};

TEST_F(SupportedAdapters, RowsAreMatchedExactlyInFileOrder) {
    auto list = load(
        "# supported adapters (device vendor chip description supported)\n"
        "header,with,three,commas\n"
        "0x10C6,0x1DE5,FCX141,Dual port 4Gb,TRUE\n"
        "0x10C6,0x1DE5,FCX160,Later duplicate,TRUE\n"
        "0x10c7,0x1DE5,FCX141,Lower-case digits,TRUE\n"
        "0x10C8, 0x1DE5,FCX141,Blank before vendor,TRUE\n"
        "0x10C9,,,0x1DE5,,FCX150,Comma runs,FALSE,extra,fields\n");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(CountSubSystemID(list.get()), 6u);  // the empty first entry counts
    EXPECT_STREQ(list->first->subsystemDeviceId, "");

    const SubSystemIDEntry *e = FindSubSystemInSubSystemList(list.get(), 0x10C6, 0x1DE5);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->chip, "FCX141");
    EXPECT_STREQ(e->description, "Dual port 4Gb");
    EXPECT_STREQ(e->supported, "TRUE\n");  // the line feed stays in field 5
    EXPECT_TRUE(IsSubSystemSupported(e));
    EXPECT_EQ(ValidateAdapterProperties(e), 0);

    EXPECT_EQ(FindSubSystemInSubSystemList(list.get(), 0x10C7, 0x1DE5), nullptr);
    EXPECT_EQ(FindSubSystemInSubSystemList(list.get(), 0x10C8, 0x1DE5), nullptr);

    e = FindSubSystemInSubSystemList(list.get(), 0x10C9, 0x1DE5);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->chip, "FCX150");
    EXPECT_STREQ(e->supported, "FALSE");
    EXPECT_EQ(ValidateAdapterProperties(e), 6);
}

TEST_F(SupportedAdapters, ARowMissingAFieldFailsTheWholeList) {
    EXPECT_EQ(load("0x10C6,0x1DE5,FCX141,A,TRUE\n,,,,\n"), nullptr);
    EXPECT_EQ(load("0x10C6,0x1DE5,FCX141,A,TRUE\nfield,,,,field\n"), nullptr);
    EXPECT_EQ(BuildSubSystemListFromFile((dir_ / "absent").c_str()), nullptr);

    auto onlyEmpty = load("no commas here\n\n");
    ASSERT_NE(onlyEmpty, nullptr);
    EXPECT_EQ(CountSubSystemID(onlyEmpty.get()), 1u);
    EXPECT_EQ(FindSubSystemInSubSystemList(onlyEmpty.get(), 0, 0), nullptr);
}

TEST_F(SupportedAdapters, LongLinesAndFieldsAreCut) {
    // The first 127 characters are one piece; the rest is judged on its own.
    const std::string longDescription(150, 'd');
    auto list = load("0x0001,0x1DE5,FCX141,TRUE," + longDescription +
                     "\n0x0002,0x1DE5,FCX14567890123456789012345,Desc,TRUE\n");
    ASSERT_NE(list, nullptr);
    const SubSystemIDEntry *e = FindSubSystemInSubSystemList(list.get(), 0x0001, 0x1DE5);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::strlen(e->supported), 9u);  // the fifth field kept to 9
    EXPECT_EQ(CountSubSystemID(list.get()), 3u);
    e = FindSubSystemInSubSystemList(list.get(), 0x0002, 0x1DE5);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->chip, "FCX1456789012345678");  // 19 characters
}

// ---- flashwright.properties ------------------------------------------------

class VersionFile : public testing::Test {
protected:
    void TearDown() override { DeleteFlashCtrVersionList(); }
    int load(const std::string &text) {
        const std::string path = dir_ / "flashwright.properties";
        fwtest::write_file(path, text);
        return BuildFlashCtrListFromFile(path.c_str());
    }
    const VersionCtrEntry *row(uint32_t index) {
        const VersionCtrEntry *e = g_VersionCtrEntryList.first;
        for (uint32_t i = 0; i < index && e != nullptr; ++i) e = e->next;
        return e;
    }
    static std::string versions(const VersionCtrEntry *e) {
        char text[64];
        std::snprintf(text, sizeof text, "%d.%02d %d.%02d %d.%02d %d.%02d.%02d", e->biosVersion[0], e->biosVersion[1],
                      e->efiVersion[0], e->efiVersion[1], e->fcodeVersion[0], e->fcodeVersion[1], e->fwVersion[0],
                      e->fwVersion[1], e->fwVersion[2]);
        return text;
    }
    fwtest::TempDir dir_{"fwunit"};
};

TEST_F(VersionFile, RowsCommentsAndDelimiters) {
    ASSERT_EQ(load("; comment\n"
                   "   # indented comment\n"
                   "\n"
                   "  0x10C6,\t,0x1DE5,,QX 2460 Dual,1.28,1.02,1.10,4.0.90,   image one.bin   \n"
                   ",,\t,\n"
                   "0X10c7,0x1de5,M2,300.2,,,,img2.bin,ignored\n"),
              0);
    ASSERT_EQ(g_VersionCtrEntryList.count, 2u);
    const VersionCtrEntry *e = row(0);
    EXPECT_STREQ(e->subsystemDeviceId, "0x10C6");
    EXPECT_STREQ(e->subsystemVendorId, "0x1DE5");
    EXPECT_STREQ(e->model, "QX 2460 Dual");
    EXPECT_EQ(versions(e), "1.28 1.02 1.10 4.00.90");
    EXPECT_STREQ(e->imageFileName, "image one.bin");

    // The delimiter-only line did not link the first row again.
    ASSERT_EQ(e->next, row(1));
    EXPECT_EQ(row(1)->next, nullptr);
    EXPECT_EQ(g_VersionCtrEntryList.last, row(1));

    // Comma runs shift the tokens left: the image name lands in the EFI
    // text and reads as 0; components are truncated to a byte; the missing
    // firmware text reuses the first component of the previous row's.
    e = row(1);
    EXPECT_STREQ(e->subsystemDeviceId, "0X10c7");
    EXPECT_STREQ(e->model, "M2");
    EXPECT_EQ(versions(e), "44.02 0.00 0.00 4.00.00");
    EXPECT_STREQ(e->imageFileName, "");
}

TEST_F(VersionFile, VersionTextsAreClearedOncePerFile) {
    ASSERT_EQ(load("0x0001,0x0002,M1,1.28,2.05,3.10,4.0.90,a.bin\n"
                   "0x0003,0x0004,M2\n"),
              0);
    ASSERT_EQ(g_VersionCtrEntryList.count, 2u);
    EXPECT_EQ(versions(row(1)), "1.00 2.00 3.00 4.00.00");
    EXPECT_STREQ(row(1)->imageFileName, "");
}

TEST_F(VersionFile, ComponentsSpillIntoTheFollowingFields) {
    ASSERT_EQ(load("0x0001,0x0002,M1,1.2.3\n"), 0);
    EXPECT_EQ(versions(row(0)), "1.02 3.00 0.00 0.00.00");  // third BIOS component is the EFI major
    DeleteFlashCtrVersionList();

    ASSERT_EQ(load("0x0001,0x0002,M1,1.00,0.00,0.00,4.0.90.65,image.bin\n"), 0);
    EXPECT_EQ(versions(row(0)), "1.00 0.00 0.00 4.00.90");
    EXPECT_STREQ(row(0)->imageFileName, "Amage.bin");  // fourth firmware component, 65 = 'A'
    DeleteFlashCtrVersionList();

    // Only 12 characters of a version text are kept: "1.2.3.4.5.6." .
    ASSERT_EQ(load("0x0001,0x0002,M1,1.2.3.4.5.6.7.8\n"), 0);
    EXPECT_EQ(versions(row(0)), "1.02 3.04 5.06 0.00.00");
}

TEST_F(VersionFile, LongLinesAreReadInPieces) {
    // 127 characters, then the rest as a row of its own.
    std::string first = "0x0001,0x0002,M1,1.00,0.00,0.00,1.0.0," + std::string(89, 'n');
    ASSERT_EQ(first.size(), 127u);
    ASSERT_EQ(load(first + "0x0003,0x0004,M2\n" + first + "#0x0005,comment\n"), 0);
    ASSERT_EQ(g_VersionCtrEntryList.count, 3u);
    EXPECT_EQ(std::strlen(row(0)->imageFileName), 89u);
    EXPECT_STREQ(row(1)->subsystemDeviceId, "0x0003");
    EXPECT_STREQ(row(2)->subsystemDeviceId, "0x0001");
}

TEST_F(VersionFile, MissingFileAndFieldBounds) {
    const std::string path = dir_ / "absent.properties";
    g_bSilentMode = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(BuildFlashCtrListFromFile(path.c_str()), 4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Cannot open file " + path + " !\r\n");
    EXPECT_TRUE(g_VersionCtrEntryList.empty());

    ASSERT_EQ(load("0x123456789ABC," + std::string(40, 'v') + "," + std::string(60, 'm') + "\n"), 0);
    EXPECT_STREQ(row(0)->subsystemDeviceId, "0x1234567");
    EXPECT_EQ(std::strlen(row(0)->subsystemVendorId), 9u);
    EXPECT_EQ(std::strlen(row(0)->model), 31u);
    DeleteFlashCtrVersionList();

    EXPECT_EQ(load("; only comments\n\n   \n"), 0);
    EXPECT_TRUE(g_VersionCtrEntryList.empty());
}

// ---- agent.properties -------------------------------------------------------

class AgentPreferences : public testing::Test {
protected:
    // Points the agent core at the scratch directory and loads it.
    void start() {
        CoreResetPreferences();
        OSSSetConfigPath((dir_.path() + "/").c_str());
        CoreInitialize();
    }
    void write(const std::string &text, mode_t mode = 0644) {
        fwtest::write_file(dir_ / "agent.properties", text, mode);
    }
    fwtest::TempDir dir_{"fwunit"};
};

TEST_F(AgentPreferences, DefaultsWithoutFile) {
    start();
    EXPECT_EQ(CoreGetPollingInterval(), 30);
    EXPECT_EQ(CoreGetFabricScanning(), 0);
    EXPECT_EQ(CoreGetQuietMode(), 0);
    EXPECT_EQ(CoreLoadPollingInterval(), -1);
    EXPECT_EQ(CoreLoadQuietMode(), -1);
}

TEST_F(AgentPreferences, ValuesAreCheckedPerKey) {
    write("node.agent.polling.interval=45\nnode.agent.fabric.scanning.enable=1\nnode.agent.quiet.mode.enable=1\n");
    start();
    EXPECT_EQ(CoreGetPollingInterval(), 45);
    EXPECT_EQ(CoreGetFabricScanning(), 1);
    EXPECT_EQ(CoreGetQuietMode(), 1);

    struct Case {
        const char *text;
        int pollStatus, poll, fabricStatus, fabric, quietStatus, quiet;
    } cases[] = {
        {"node.agent.polling.interval=0\n", -1, 30, 0, 0, 0, 0},
        {"node.agent.polling.interval=abc\nnode.agent.quiet.mode.enable=2\n", -1, 30, 0, 0, -1, 1},
        {"node.agent.fabric.scanning.enable=-1\n", -1, 30, -1, 1, 0, 0},
        {"node.agent.polling.interval=99999999999\n", -1, 30, 0, 0, 0, 0},
        // Every token is compared: a key standing as a value is found there,
        // and the first hit decides even when nothing follows it.
        {"a=node.agent.polling.interval=15\nx=node.agent.quiet.mode.enable\nnode.agent.quiet.mode.enable=1\n", 0,
         15, 0, 0, 0, 0},
    };
    for (const Case &c : cases) {
        write(c.text);
        CoreSetQuietMode(1);
        // Fabric scanning starts from 1 so an unchanged value is visible.
        EXPECT_EQ(CoreLoadPollingInterval(), c.pollStatus) << c.text;
        EXPECT_EQ(CoreGetPollingInterval(), c.poll) << c.text;
        write("node.agent.fabric.scanning.enable=1\n");
        ASSERT_EQ(CoreLoadFabricScanning(), 0);
        write(c.text);
        EXPECT_EQ(CoreLoadFabricScanning(), c.fabricStatus) << c.text;
        EXPECT_EQ(CoreGetFabricScanning(), c.fabric) << c.text;
        EXPECT_EQ(CoreLoadQuietMode(), c.quietStatus) << c.text;
        EXPECT_EQ(CoreGetQuietMode(), c.quiet) << c.text;
    }
}

TEST_F(AgentPreferences, ReadOnlyFileCountsAsMissing) {
    // Root may write any file, so the check runs as an ordinary user.
    write("node.agent.polling.interval=45\nnode.agent.quiet.mode.enable=1\n", 0444);
    OSSSetConfigPath((dir_.path() + "/").c_str());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
        CoreResetPreferences();
        CoreInitialize();
        _exit(CoreGetPollingInterval() == 30 && CoreGetQuietMode() == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace

// SPDX-License-Identifier: MIT
// Status texts and the two driver-status maps.
#include <gtest/gtest.h>

#include <string>

#include "vx_failover.h"
#include "vx_hmerr.h"
#include "vxhmx.h"

namespace {

struct TextRow {
    uint32_t code;
    const char *text;
};

// Written out independently of the library's table so a typo on either side shows.
const TextRow kExpectedTexts[] = {
    {0x00000000, "No error"},
    {0x20000002, "Invalid command code"},
    {0x20000003, "Invalid version level"},
    {0x20000004, "Logical error"},
    {0x20000005, "Invalid IU size"},
    {0x20000006, "Logical busy"},
    {0x20000007, "Protocol error"},
    {0x20000008, "(09h) No Additional Explanation"},
    {0x20000009, "IE List Not Available"},
    {0x2000000A, "IE Type Not Available"},
    {0x2000000B, "Domain ID Not Available"},
    {0x2000000C, "In-Band Management Address Not Available"},
    {0x2000000D, "Fabric Name Not Available"},
    {0x2000000E, "Logical IE Name Not Available"},
    {0x2000000F, "Management Address List Not Available"},
    {0x20000010, "IE Attributes List Not Available"},
    {0x20000011, "Port List Not Available"},
    {0x20000012, "Port Type Not Available"},
    {0x20000013, "Physical Port ID Not Available"},
    {0x20000014, "Logical Port Name Not Available"},
    {0x20000015, "Attached Port Name List Not Available"},
    {0x20000016, "Port Attributes List Not Available"},
    {0x20000017, "Port State Not Available"},
    {0x20000018, "Unable to Set Logical IE Name"},
    {0x20000019, "Unable to Set Logical Port Name"},
    {0x2000001A, "Authentication Exception"},
    {0x2000001B, "Error: Reserved code"},
    {0x2000001C, "Command not supported"},
    {0x2000001D, "Vendor unique error"},
    {0x2000001E, "Management Server reserved error"},
    {0x2000001F, "Specified buffer is not big enough for all data"},
    {0x20000020, "Port Identifier not registered"},
    {0x20000021, "Port Name not registered"},
    {0x20000022, "Node Name not registered"},
    {0x20000023, "Class of Service not registered"},
    {0x20000024, "IP Address (Node) not registered"},
    {0x20000025, "Initial Process Associator not registered"},
    {0x20000026, "FC-4 Types not registered"},
    {0x20000027, "Symbolic Port Name not registered"},
    {0x20000028, "Symbolic Node Name not registered"},
    {0x20000029, "Port Type not registered"},
    {0x2000002A, "IP Address (Port) not registered"},
    {0x2000002B, "Fabric Port Name not registered"},
    {0x2000002C, "Hard Address not registered"},
    {0x2000002D, "Access Denied"},
    {0x2000002E, "Unacceptable Port Identifier"},
    {0x2000002F, "Database Empty"},
    {0x20000030, "No object registered in the specified scope"},
    {0x20000031, "Invalid WWN (IE or Port)"},
    {0x20000032, "Platform Name does not exist"},
    {0x20000033, "Platform Name already exists"},
    {0x20000034, "Platform Node Name does not exist"},
    {0x20000035, "Platform Node Name already exists"},
    {0x20000036, "Authorization Exception"},
    {0x20000037, "No Response from Management Server/Fabricdoesn't support MS"},
    {0x20000040, "SCSI check condition"},
    {0x20000041, "SCSI condition Met"},
    {0x20000042, "SCSI busy"},
    {0x20000043, "SCSI intermediate"},
    {0x20000044, "SCSI intermediate condition met"},
    {0x20000045, "SCSI reservation conflict"},
    {0x20000046, "SCSI command terminated"},
    {0x20000047, "SCSI queue full"},
    {0x20000049, "SCSI unknown status"},
    {0x20000064, "Invalid parameter"},
    {0x20000065, "Handle to HBA device is invalid"},
    {0x20000066, "Command not supported"},
    {0x20000067, "Device is busy"},
    {0x20000068, "Request pending"},
    {0x20000069, "Request suspended"},
    {0x2000006A, "Request retry pending"},
    {0x2000006B, "Data overrun"},
    {0x2000006C, "Data underrun"},
    {0x2000006D, "Device not found"},
    {0x2000006E, "Copy memory failed"},
    {0x2000006F, "Firmware mailbox failed"},
    {0x20000070, "Invalid command sub-code"},
    {0x20000071, "Unsupported command version"},
    {0x20000072, "Buffer too small"},
    {0x20000073, "Invalid request"},
    {0x20000074, "Out of memory"},
    {0x20000075, "Unknown error"},
    {0x20000076, "Invalid configuration registry setting"},
    {0x20000077, "Buffer content returned not directly from device"},
    {0x2000007D, "NVRam CheckSum is not valid"},
    {0x2000007E, "FirmaWare State is not valid"},
};

TEST(ErrorString, EveryCodeHasItsExactText) {
    for (const auto &row : kExpectedTexts) EXPECT_STREQ(HmGetErrorString(row.code), row.text) << std::hex << row.code;
    EXPECT_EQ(vxhmx::error_texts().size(), std::size(kExpectedTexts)) << "a code gained or lost its text";
}

TEST(ErrorString, CodesWithoutTextAreFormattedIntoOneBuffer) {
    const struct {
        uint32_t code;
        const char *text;
    } rows[] = {
        {0x20000001, "Unknown Error 20000001h."}, {0x20000048, "Unknown Error 20000048h."},
        {0x20000078, "Unknown Error 20000078h."}, {0x2000007B, "Unknown Error 2000007bh."},
        {0xFFFFFFFF, "Unknown Error ffffffffh."}, {0x20000000, "Unknown Error 20000000h."},
        {2, "System Error 2."},                   {25, "System Error 25."},
        {0x1FFFFFFF, "System Error 536870911."},
    };
    for (const auto &row : rows) EXPECT_STREQ(HmGetErrorString(row.code), row.text);
    // The fall-back texts share one static buffer.
    const char *first = HmGetErrorString(2);
    const char *second = HmGetErrorString(0x20000048);
    EXPECT_EQ(first, second);
}

TEST(DriverStatusMap, CompletionCodesMapToStatuses) {
    const uint32_t expected[] = {0,          0x20000075, 0x20000067, 0x20000068, 0x20000069, 0x2000006A,
                                 0x20000064, 0x2000006B, 0x2000006C, 0x2000006D, 0x2000006E, 0x2000006F,
                                 0x20000070, 0x20000071, 0x20000037};
    for (uint32_t s = 0; s < std::size(expected); ++s) EXPECT_EQ(HmXlateHMXErr(s, 0), expected[s]) << s;
    EXPECT_EQ(HmXlateHMXErr(16, 0), 0x20000072u);
    EXPECT_EQ(HmXlateHMXErr(23, 0), 0x2000007Bu);
    for (uint32_t s : {17u, 18u, 20u, 22u, 24u, 255u, 0xFFFFFFFFu}) EXPECT_EQ(HmXlateHMXErr(s, 0), 0x20000066u) << s;
}

TEST(DriverStatusMap, ScsiCompletionUsesTheStatusByte) {
    const struct {
        uint32_t detail, code;
    } rows[] = {
        {0, 0},           {2, 0x20000040},  {4, 0x20000041},     {8, 0x20000042},     {16, 0x20000043},
        {20, 0x20000044}, {24, 0x20000045}, {34, 0x20000046},    {40, 0x20000047},    {41, 0x20000049},
        {3, 0x20000049},  {0x129, 0x20000049}, {0x102, 0x20000040}, {0xFF00, 0},
    };
    for (const auto &row : rows) EXPECT_EQ(HmXlateHMXErr(15, row.detail), row.code) << row.detail;
}

TEST(FailoverStatusMap, HasItsOwnMeanings) {
    const struct {
        uint32_t status, code;
    } rows[] = {
        {0, 0},           {1, 0x20000066},  {2, 0x20000067},  {3, 0x20000068},  {4, 0x20000069},
        {5, 0x2000006A},  {6, 0x20000064},  {7, 0x2000006B},  {8, 0x2000006C},  {9, 0x2000006D},
        {10, 0x2000006E}, {11, 0x2000006F}, {12, 0x20000070}, {13, 0x20000071}, {14, 0x20000037},
        {16, 0x20000072}, {20, 0x20000073}, {17, 0},          {18, 0},          {19, 0},
        {21, 0},          {300, 0},
    };
    for (const auto &row : rows) EXPECT_EQ(vxapi_fo_status_to_error(row.status, 0x77), row.code) << row.status;
    // Status 15 hands the driver's detail word through unchanged.
    EXPECT_EQ(vxapi_fo_status_to_error(15, 0x12345), 0x12345u);
}

TEST(FailoverCalls, ApiVersionTextIsCutToTheBuffer) {
    char buf[16];
    EXPECT_EQ(IHmFoGetApiVersion(buf, sizeof buf), 0x3000106u);
    EXPECT_STREQ(buf, "3.0.1 build6");
    char small[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(IHmFoGetApiVersion(small, sizeof small), 0x3000106u);
    EXPECT_STREQ(small, "3.0.");
    EXPECT_EQ(IHmFoGetApiVersion(nullptr, 10), 0x3000106u);
}

TEST(FailoverCalls, UnknownHandlesAreRejectedWithoutTouchingTheDriver) {
    uint32_t cap = 0;
    EXPECT_EQ(IHmFoGetFoCapability(0, &cap), 0x20000065u);
    EXPECT_EQ(cap, 0x30000002u);
    EXPECT_EQ(IHmFoGetFoCapability(7, &cap), 0x20000065u);
    EXPECT_EQ(IHmFoGetFoCapability(1, nullptr), 0x20000064u);
    HMFO_DRIVER_VERSION v{};
    EXPECT_EQ(IHmFoGetFoDriverVersion(3, &v), 0x2000006Du);  // the gate's own code for a bad handle
    EXPECT_EQ(IHmFoGetFoDriverVersion(3, nullptr), 0x20000064u);
}

TEST(Version, NullBufferStillGivesTheNumber) {
    EXPECT_EQ(HmGetVersion(nullptr, 0), 0x05000700u);
    int8_t buf[17];
    EXPECT_EQ(HmGetVersion(buf, 0), 0x05000700u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf)), "v5.00 build7Pre1");
}

}  // namespace

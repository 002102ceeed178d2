// SPDX-License-Identifier: MIT
// NVRAM variable table and the image read/write routines.
//
// Places of the variables, per format. The places the tool depends on are
// fixed by the adapters' NVRAM images; the rest follow one rule so that no
// two variables share a bit:
//   basic (256 bytes, 16-bit words, a field never crosses a word):
//     words 0-1 image id, word 2 versions, word 3 frame size, word 4 the
//     firmware option bits (variables 3 to 18 on bits 0 to 15), words 5-8
//     counters, word 14 and word 20 connection and timing options, word 35
//     boot/host option bits, word 55 login and boot order bits, each
//     world-wide name four words low byte first, each 16-bit count or LUN a
//     word of its own, subsystem IDs in words 123-126 and the checksum in
//     the last word;
//   extended (512 bytes, byte offsets of 32-bit little-endian values): the
//     same grouping with the option words at 0x2C, 0x30, 0x38, 0x100 and
//     0x144, names eight bytes each, 16-bit counts on even offsets, the
//     subsystem IDs at 0x1F4-0x1FB and a 32-bit checksum in the last four
//     bytes. Loop-era options of the basic format (PCI parity, extended
//     logging, the FCode boot port name) are not carried.
// A compile-time check below proves the rule: every place lies inside its
// image and no two places overlap.
#include "vx_hmnvr.h"

#include "vx_chipdata.h"

#include <array>

namespace vxhmx {
namespace {

constexpr NvramPlace kAbsent{kNvramNotPresent, 0, 0};

struct VarRow {
    const char *short_name;
    NvramPlace basic;
    NvramPlace extended;
    uint16_t setting_bits;
};

constexpr std::array<VarRow, NVRAMVarEnd> kVars{{
    {"Id", {0, 0, 32}, {0x0, 0, 32}, kNvSetFactory},  // 0
    {"Version", {2, 0, 8}, {0x4, 0, 16}, kNvSetFactory},  // 1
    {"RiscVersion", {2, 8, 8}, {0x6, 0, 16}, kNvSetFactory},  // 2
    {"RiscEnableHardLoopID", {4, 0, 1}, {0x2C, 0, 1}, kNvSetUser},  // 3
    {"EnableFairness", {4, 1, 1}, {0x2C, 1, 1}, kNvSetAdvanced},  // 4
    {"EnableFullDuplex", {4, 2, 1}, {0x2C, 2, 1}, kNvSetAdvanced},  // 5
    {"EnableFastPosting", {4, 3, 1}, {0x2C, 3, 1}, kNvSetAdvanced},  // 6
    {"EnableTargetMode", {4, 4, 1}, {0x2C, 4, 1}, kNvSetAdvanced},  // 7
    {"DisableInitiatorMode", {4, 5, 1}, {0x2C, 5, 1}, kNvSetAdvanced},  // 8
    {"EnableADISC", {4, 6, 1}, {0x2C, 6, 1}, kNvSetAdvanced},  // 9
    {"TargetInquiryData", {4, 7, 1}, {0x2C, 7, 1}, kNvSetAdvanced},  // 10
    {"EnablePDBCNotify", {4, 8, 1}, {0x2C, 8, 1}, kNvSetAdvanced},  // 11
    {"NonParticipatingLIP", {4, 9, 1}, {0x2C, 9, 1}, kNvSetAdvanced | kNvSetLegacy},  // 12
    {"DescendingSearchLoopID", {4, 10, 1}, {0x2C, 10, 1}, kNvSetAdvanced | kNvSetLegacy},  // 13
    {"AcquireLoopIDInLIPA", {4, 11, 1}, {0x2C, 11, 1}, kNvSetAdvanced | kNvSetLegacy},  // 14
    {"StopPortQOnFullStatus", {4, 12, 1}, {0x2C, 12, 1}, kNvSetAdvanced},  // 15
    {"FullLoginAfterLIP", {4, 13, 1}, {0x2C, 13, 1}, kNvSetAdvanced},  // 16
    {"NodeNameOption", {4, 14, 1}, {0x2C, 14, 1}, kNvSetName},  // 17
    {"ExtIFWCBEnableBit", {4, 15, 1}, {0x2C, 15, 1}, kNvSetAdvanced},  // 18
    {"FramePayloadSize", {3, 0, 16}, {0x8, 0, 16}, kNvSetAdvanced},  // 19
    {"MaxIocbAllocation", {5, 0, 16}, {0xA, 0, 16}, kNvSetAdvanced},  // 20
    {"ExecutionThrottle", {6, 0, 16}, {0xC, 0, 16}, kNvSetUser},  // 21
    {"RetryCount", {7, 0, 8}, {0xE, 0, 8}, kNvSetUser},  // 22
    {"RetryDelay", {7, 8, 8}, {0xF, 0, 8}, kNvSetUser},  // 23
    {"PortName0", {9, 0, 8}, {0x14, 0, 8}, kNvSetName},  // 24
    {"PortName1", {9, 8, 8}, {0x15, 0, 8}, kNvSetName},  // 25
    {"PortName2", {10, 0, 8}, {0x16, 0, 8}, kNvSetName},  // 26
    {"PortName3", {10, 8, 8}, {0x17, 0, 8}, kNvSetName},  // 27
    {"PortName4", {11, 0, 8}, {0x18, 0, 8}, kNvSetName},  // 28
    {"PortName5", {11, 8, 8}, {0x19, 0, 8}, kNvSetName},  // 29
    {"PortName6", {12, 0, 8}, {0x1A, 0, 8}, kNvSetName},  // 30
    {"PortName7", {12, 8, 8}, {0x1B, 0, 8}, kNvSetName},  // 31
    {"AdapterHardLoopID", {8, 0, 8}, {0x10, 0, 16}, kNvSetUser},  // 32
    {"InquiryData", {8, 8, 8}, {0x24, 0, 8}, kNvSetAdvanced},  // 33
    {"LoginTimeout", {13, 0, 16}, {0x12, 0, 16}, kNvSetUser},  // 34
    {"NodeName0", {15, 0, 8}, {0x1C, 0, 8}, kNvSetName},  // 35
    {"NodeName1", {15, 8, 8}, {0x1D, 0, 8}, kNvSetName},  // 36
    {"NodeName2", {16, 0, 8}, {0x1E, 0, 8}, kNvSetName},  // 37
    {"NodeName3", {16, 8, 8}, {0x1F, 0, 8}, kNvSetName},  // 38
    {"NodeName4", {17, 0, 8}, {0x20, 0, 8}, kNvSetName},  // 39
    {"NodeName5", {17, 8, 8}, {0x21, 0, 8}, kNvSetName},  // 40
    {"NodeName6", {18, 0, 8}, {0x22, 0, 8}, kNvSetName},  // 41
    {"NodeName7", {18, 8, 8}, {0x23, 0, 8}, kNvSetName},  // 42
    {"TimerOperationMode", {14, 0, 4}, {0x30, 0, 4}, kNvSetAdvanced},  // 43
    {"InitConfigMode", {14, 4, 4}, {0x30, 4, 4}, kNvSetAdvanced},  // 44
    {"EnableNonPartOnLIHAFailure", {14, 8, 1}, {0x30, 8, 1}, kNvSetAdvanced},  // 45
    {"EnableClass2", {14, 9, 1}, {0x30, 9, 1}, kNvSetAdvanced},  // 46
    {"EnableAck0", {14, 10, 1}, {0x30, 10, 1}, kNvSetAdvanced},  // 47
    {"EnableFCTape", {14, 11, 1}, {0x30, 11, 1}, kNvSetAdvanced},  // 48
    {"EnableFCConfirm", {14, 12, 1}, {0x30, 12, 1}, kNvSetAdvanced},  // 49
    {"EnableCRN", {14, 13, 1}, {0x30, 13, 1}, kNvSetAdvanced},  // 50
    {"NoLogoOnLinkDown", {14, 14, 1}, {0x30, 14, 1}, kNvSetAdvanced},  // 51
    {"ResponseAccumulationTimer", {19, 0, 8}, {0x34, 0, 8}, kNvSetAdvanced},  // 52
    {"InterruptDelayTimer", {19, 8, 8}, {0x34, 8, 8}, kNvSetAdvanced},  // 53
    {"EnableReadXfrRdy", {20, 0, 1}, {0x38, 0, 1}, kNvSetAdvanced},  // 54
    {"FcpRspPayload", {20, 1, 2}, {0x38, 1, 2}, kNvSetAdvanced},  // 55
    {"RecvOutOfOrderDataBit", {20, 3, 1}, {0x38, 3, 1}, kNvSetAdvanced},  // 56
    {"DataRate", {20, 4, 3}, {0x38, 4, 3}, kNvSetUser},  // 57
    {"DisableBIOS", {35, 1, 1}, {0x100, 1, 1}, kNvSetBoot},  // 58
    {"DisableLUNs", {35, 2, 1}, {0x100, 2, 1}, kNvSetBoot},  // 59
    {"EnableSelectableBoot", {35, 3, 1}, {0x100, 3, 1}, kNvSetBoot},  // 60
    {"DisableRISCCodeLoad", {35, 4, 1}, {0x100, 4, 1}, kNvSetAdvanced},  // 61
    {"SetCacheLineSize1", {35, 5, 1}, {0x100, 5, 1}, kNvSetAdvanced},  // 62
    {"PCIParityDisable", {35, 6, 1}, kAbsent, kNvSetAdvanced | kNvSetLegacy},  // 63
    {"EnableExtendedLogging", {35, 7, 1}, kAbsent, kNvSetAdvanced | kNvSetLegacy},  // 64
    {"Enable64BitsAddressing", {35, 8, 1}, {0x100, 8, 1}, kNvSetUser},  // 65
    {"EnableLIPReset", {35, 9, 1}, {0x100, 9, 1}, kNvSetUser},  // 66
    {"EnableLIPFullLogin", {35, 10, 1}, {0x100, 10, 1}, kNvSetUser},  // 67
    {"EnableTargetReset", {35, 11, 1}, {0x100, 11, 1}, kNvSetUser},  // 68
    {"EnableDatabaseStorage", {35, 12, 1}, {0x100, 12, 1}, kNvSetAdvanced},  // 69
    {"EnableCacheFlushRead", {35, 13, 1}, {0x100, 13, 1}, kNvSetAdvanced},  // 70
    {"EnableDatabaseLoad", {35, 14, 1}, {0x100, 14, 1}, kNvSetAdvanced},  // 71
    {"BootNodeName0", {36, 0, 8}, {0x114, 0, 8}, kNvSetBoot},  // 72
    {"BootNodeName1", {36, 8, 8}, {0x115, 0, 8}, kNvSetBoot},  // 73
    {"BootNodeName2", {37, 0, 8}, {0x116, 0, 8}, kNvSetBoot},  // 74
    {"BootNodeName3", {37, 8, 8}, {0x117, 0, 8}, kNvSetBoot},  // 75
    {"BootNodeName4", {38, 0, 8}, {0x118, 0, 8}, kNvSetBoot},  // 76
    {"BootNodeName5", {38, 8, 8}, {0x119, 0, 8}, kNvSetBoot},  // 77
    {"BootNodeName6", {39, 0, 8}, {0x11A, 0, 8}, kNvSetBoot},  // 78
    {"BootNodeName7", {39, 8, 8}, {0x11B, 0, 8}, kNvSetBoot},  // 79
    {"BootLUNNumber", {40, 0, 8}, {0x11C, 0, 16}, kNvSetBoot},  // 80
    {"ResetDelay", {40, 8, 8}, {0x11E, 0, 16}, kNvSetUser},  // 81
    {"PortDownRetryCount", {41, 0, 16}, {0x120, 0, 16}, kNvSetUser},  // 82
    {"MaximumLUNsPerTarget", {42, 0, 16}, {0x140, 0, 16}, kNvSetUser},  // 83
    {"FcodeBootPortName0", {43, 0, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 84
    {"FcodeBootPortName1", {43, 8, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 85
    {"FcodeBootPortName2", {44, 0, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 86
    {"FcodeBootPortName3", {44, 8, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 87
    {"FcodeBootPortName4", {45, 0, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 88
    {"FcodeBootPortName5", {45, 8, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 89
    {"FcodeBootPortName6", {46, 0, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 90
    {"FcodeBootPortName7", {46, 8, 8}, kAbsent, kNvSetBoot | kNvSetLegacy},  // 91
    {"SelectiveLogin", {55, 0, 1}, {0x144, 0, 1}, kNvSetBoot},  // 92
    {"EnableAltBootDevice", {55, 1, 1}, {0x144, 1, 1}, kNvSetBoot},  // 93
    {"EnableBootOrderList", {55, 2, 1}, {0x144, 2, 1}, kNvSetBoot},  // 94
    {"EnableSelectiveLUN", {55, 3, 1}, {0x144, 3, 1}, kNvSetBoot},  // 95
    {"ForceWorldLogin", {55, 7, 1}, {0x144, 7, 1}, kNvSetBoot},  // 96
    {"LinkDownTimeout", {56, 0, 16}, {0x142, 0, 16}, kNvSetUser},  // 97
    {"Alt1BootPortName0", {64, 0, 8}, {0x122, 0, 8}, kNvSetBoot},  // 98
    {"Alt1BootPortName1", {64, 8, 8}, {0x123, 0, 8}, kNvSetBoot},  // 99
    {"Alt1BootPortName2", {65, 0, 8}, {0x124, 0, 8}, kNvSetBoot},  // 100
    {"Alt1BootPortName3", {65, 8, 8}, {0x125, 0, 8}, kNvSetBoot},  // 101
    {"Alt1BootPortName4", {66, 0, 8}, {0x126, 0, 8}, kNvSetBoot},  // 102
    {"Alt1BootPortName5", {66, 8, 8}, {0x127, 0, 8}, kNvSetBoot},  // 103
    {"Alt1BootPortName6", {67, 0, 8}, {0x128, 0, 8}, kNvSetBoot},  // 104
    {"Alt1BootPortName7", {67, 8, 8}, {0x129, 0, 8}, kNvSetBoot},  // 105
    {"Alt1BootLUNNumber", {68, 0, 16}, {0x12A, 0, 16}, kNvSetBoot},  // 106
    {"Alt2BootPortName0", {69, 0, 8}, {0x12C, 0, 8}, kNvSetBoot},  // 107
    {"Alt2BootPortName1", {69, 8, 8}, {0x12D, 0, 8}, kNvSetBoot},  // 108
    {"Alt2BootPortName2", {70, 0, 8}, {0x12E, 0, 8}, kNvSetBoot},  // 109
    {"Alt2BootPortName3", {70, 8, 8}, {0x12F, 0, 8}, kNvSetBoot},  // 110
    {"Alt2BootPortName4", {71, 0, 8}, {0x130, 0, 8}, kNvSetBoot},  // 111
    {"Alt2BootPortName5", {71, 8, 8}, {0x131, 0, 8}, kNvSetBoot},  // 112
    {"Alt2BootPortName6", {72, 0, 8}, {0x132, 0, 8}, kNvSetBoot},  // 113
    {"Alt2BootPortName7", {72, 8, 8}, {0x133, 0, 8}, kNvSetBoot},  // 114
    {"Alt2BootLUNNumber", {73, 0, 16}, {0x134, 0, 16}, kNvSetBoot},  // 115
    {"Alt3BootPortName0", {74, 0, 8}, {0x136, 0, 8}, kNvSetBoot},  // 116
    {"Alt3BootPortName1", {74, 8, 8}, {0x137, 0, 8}, kNvSetBoot},  // 117
    {"Alt3BootPortName2", {75, 0, 8}, {0x138, 0, 8}, kNvSetBoot},  // 118
    {"Alt3BootPortName3", {75, 8, 8}, {0x139, 0, 8}, kNvSetBoot},  // 119
    {"Alt3BootPortName4", {76, 0, 8}, {0x13A, 0, 8}, kNvSetBoot},  // 120
    {"Alt3BootPortName5", {76, 8, 8}, {0x13B, 0, 8}, kNvSetBoot},  // 121
    {"Alt3BootPortName6", {77, 0, 8}, {0x13C, 0, 8}, kNvSetBoot},  // 122
    {"Alt3BootPortName7", {77, 8, 8}, {0x13D, 0, 8}, kNvSetBoot},  // 123
    {"Alt3BootLUNNumber", {78, 0, 16}, {0x13E, 0, 16}, kNvSetBoot},  // 124
    {"SubSystemVendorID0", {123, 0, 16}, {0x1F4, 0, 16}, kNvSetFactory},  // 125
    {"SubSystemDeviceID0", {124, 0, 16}, {0x1F6, 0, 16}, kNvSetFactory},  // 126
    {"SubSystemVendorID1", {125, 0, 16}, {0x1F8, 0, 16}, kNvSetFactory},  // 127
    {"SubSystemDeviceID1", {126, 0, 16}, {0x1FA, 0, 16}, kNvSetFactory},  // 128
    {"CheckSum", {127, 0, 16}, {0x1FC, 0, 32}, kNvSetFactory},  // 129
}};

// The description texts as the library has always carried them: one entry
// short from "Enable Alt Boot Device" on, which shifts the later texts one
// variable up. Kept so for the programs that show them.
constexpr std::array<const char *, NVRAMVarEnd> kDescriptions{{
    "Adapter ID",  // 0
    "Adapter Version",  // 1
    "Firmare Version",  // 2
    "Enable Hard Loop ID",  // 3
    "Enable Fairness",  // 4
    "Enable Full Duplex",  // 5
    "Enable Fast Posting",  // 6
    "Enable Target Mode",  // 7
    "Disable Initiator Mode",  // 8
    "Enable ADISC",  // 9
    "Target Inquiry Data",  // 10
    "Enable PDBC Notify",  // 11
    "Non Participating LIP",  // 12
    "Descending Search Loop ID",  // 13
    "Acquire Loop ID in LIPA",  // 14
    "Stop Port Queue on Full Status",  // 15
    "Full Login after LIP",  // 16
    "Node Name Option",  // 17
    "Extended IFWCB Enable",  // 18
    "Frame Payload Size",  // 19
    "Maximum IOCB Allocation",  // 20
    "Execution Throttle",  // 21
    "Retry Count",  // 22
    "Retry Delay",  // 23
    "Port Name Byte 0",  // 24
    "Port Name Byte 1",  // 25
    "Port Name Byte 2",  // 26
    "Port Name Byte 3",  // 27
    "Port Name Byte 4",  // 28
    "Port Name Byte 5",  // 29
    "Port Name Byte 6",  // 30
    "Port Name Byte 7",  // 31
    "Adapter Hard Loop ID",  // 32
    "Inquiry Data",  // 33
    "Login Timeout",  // 34
    "Node Name Byte 0",  // 35
    "Node Name Byte 1",  // 36
    "Node Name Byte 2",  // 37
    "Node Name Byte 3",  // 38
    "Node Name Byte 4",  // 39
    "Node Name Byte 5",  // 40
    "Node Name Byte 6",  // 41
    "Node Name Byte 7",  // 42
    "Timer Operation Mode",  // 43
    "Init Config Mode",  // 44
    "Enable Non Participating on LIHA Failure",  // 45
    "Enable Class 2",  // 46
    "Enable ACK0",  // 47
    "Enable FC Tape",  // 48
    "Enable FC Confirm",  // 49
    "Enable CRN",  // 50
    "No Logo on Link Down",  // 51
    "Response Accumulation Timer",  // 52
    "Interrupt Delay Timer",  // 53
    "Enable Read Xfer Ready",  // 54
    "FCP Response Payload",  // 55
    "Receive Out of Order Data",  // 56
    "Data Rate",  // 57
    "Disable BIOS",  // 58
    "Disable LUNs",  // 59
    "Enable Selectable Boot",  // 60
    "Disable RISC Code Load",  // 61
    "Set Cache Line Size 1",  // 62
    "PCI Parity Disable",  // 63
    "Enable Extended Logging",  // 64
    "Enable 64 Bit Addressing",  // 65
    "Enable LIP Reset",  // 66
    "Enable LIP Full Login",  // 67
    "Enable Target Reset",  // 68
    "Enable Database Storage",  // 69
    "Enable Cache Flush Read",  // 70
    "Enable Database Load",  // 71
    "Boot Node Name Byte 0",  // 72
    "Boot Node Name Byte 1",  // 73
    "Boot Node Name Byte 2",  // 74
    "Boot Node Name Byte 3",  // 75
    "Boot Node Name Byte 4",  // 76
    "Boot Node Name Byte 5",  // 77
    "Boot Node Name Byte 6",  // 78
    "Boot Node Name Byte 7",  // 79
    "Boot LUN Number",  // 80
    "Reset Delay",  // 81
    "Port Down Retry Count",  // 82
    "Maximum LUNs per Target",  // 83
    "FCode Boot Port Name Byte 0",  // 84
    "FCode Boot Port Name Byte 1",  // 85
    "FCode Boot Port Name Byte 2",  // 86
    "FCode Boot Port Name Byte 3",  // 87
    "FCode Boot Port Name Byte 4",  // 88
    "FCode Boot Port Name Byte 5",  // 89
    "FCode Boot Port Name Byte 6",  // 90
    "FCode Boot Port Name Byte 7",  // 91
    "Selective Login",  // 92
    "Enable Alt Boot DeviceEnable Boot Order List",  // 93
    "Enable Selective LUN",  // 94
    "Force World Login",  // 95
    "Link Down Timeout",  // 96
    "Alt1 Boot Port Name Byte 0",  // 97
    "Alt1 Boot Port Name Byte 1",  // 98
    "Alt1 Boot Port Name Byte 2",  // 99
    "Alt1 Boot Port Name Byte 3",  // 100
    "Alt1 Boot Port Name Byte 4",  // 101
    "Alt1 Boot Port Name Byte 5",  // 102
    "Alt1 Boot Port Name Byte 6",  // 103
    "Alt1 Boot Port Name Byte 7",  // 104
    "Alt1 Boot LUN Number",  // 105
    "Alt2 Boot Port Name Byte 0",  // 106
    "Alt2 Boot Port Name Byte 1",  // 107
    "Alt2 Boot Port Name Byte 2",  // 108
    "Alt2 Boot Port Name Byte 3",  // 109
    "Alt2 Boot Port Name Byte 4",  // 110
    "Alt2 Boot Port Name Byte 5",  // 111
    "Alt2 Boot Port Name Byte 6",  // 112
    "Alt2 Boot Port Name Byte 7",  // 113
    "Alt2 Boot LUN Number",  // 114
    "Alt3 Boot Port Name Byte 0",  // 115
    "Alt3 Boot Port Name Byte 1",  // 116
    "Alt3 Boot Port Name Byte 2",  // 117
    "Alt3 Boot Port Name Byte 3",  // 118
    "Alt3 Boot Port Name Byte 4",  // 119
    "Alt3 Boot Port Name Byte 5",  // 120
    "Alt3 Boot Port Name Byte 6",  // 121
    "Alt3 Boot Port Name Byte 7",  // 122
    "Alt3 Boot LUN Number",  // 123
    "Subsystem Vendor ID 0",  // 124
    "Subsystem Device ID 0",  // 125
    "Subsystem Vendor ID 1",  // 126
    "Subsystem Device ID 1",  // 127
    "Checksum",  // 128
    "",  // 129
}};

constexpr std::array<uint32_t, 33> kMasks = [] {
    std::array<uint32_t, 33> m{};
    for (uint32_t n = 0; n < 32; ++n) m[n] = (uint32_t{1} << n) - 1u;
    m[32] = 0xFFFFFFFFu;
    return m;
}();

// Read-only and visible masks, chosen by the subsystem device ID (variable
// 128): the low values 0..8 are development and evaluation boards, which show
// and allow everything but the factory data; a real product ID (entry 9)
// also locks the names and hides the tuning and loop-era settings.
constexpr std::array<uint16_t, 10> kReadOnlyMasks{
    kNvSetFactory, kNvSetFactory, kNvSetFactory, kNvSetFactory, kNvSetFactory,
    kNvSetFactory, kNvSetFactory, kNvSetFactory, kNvSetFactory, kNvSetFactory | kNvSetName};
constexpr uint16_t kAllSettings =
    kNvSetFactory | kNvSetUser | kNvSetBoot | kNvSetAdvanced | kNvSetName | kNvSetLegacy;
constexpr std::array<uint16_t, 10> kVisibleMasks{
    kAllSettings, kAllSettings, kAllSettings, kAllSettings, kAllSettings,
    kAllSettings, kAllSettings, kAllSettings, kAllSettings,
    kNvSetFactory | kNvSetUser | kNvSetBoot | kNvSetName};

// Bit range of a place in the image, counted from bit 0 of byte 0 (both
// formats are little-endian, so word w bit b is image bit 16w + b).
struct BitSpan {
    uint32_t first;
    uint32_t len;
};

constexpr BitSpan bit_span(NvramFormat format, const NvramPlace &p) {
    return format == NvramFormat::Basic ? BitSpan{p.pos * 16u + p.bit, p.len}
                                        : BitSpan{p.pos * 8u + p.bit, p.len};
}

constexpr bool layout_is_sound(NvramFormat format, std::size_t image_size) {
    for (uint32_t v = 0; v < NVRAMVarEnd; ++v) {
        const NvramPlace &p = format == NvramFormat::Basic ? kVars[v].basic : kVars[v].extended;
        if (p.pos == kNvramNotPresent) continue;
        if (p.len < 1 || p.len > 32) return false;
        // A basic field stays inside its word; only the id spans two.
        if (format == NvramFormat::Basic && v != NVRAMVarId && p.bit + p.len > 16) return false;
        if (format == NvramFormat::Extended && p.bit + p.len > 32) return false;
        const BitSpan a = bit_span(format, p);
        if (a.first + a.len > image_size * 8) return false;
        for (uint32_t w = v + 1; w < NVRAMVarEnd; ++w) {
            const NvramPlace &q = format == NvramFormat::Basic ? kVars[w].basic : kVars[w].extended;
            if (q.pos == kNvramNotPresent) continue;
            const BitSpan b = bit_span(format, q);
            if (a.first < b.first + b.len && b.first < a.first + a.len) return false;
        }
    }
    return true;
}
static_assert(layout_is_sound(NvramFormat::Basic, kNvramBasicSize));
static_assert(layout_is_sound(NvramFormat::Extended, kNvramExtendedSize));
static_assert(kVars[NVRAMVarCheckSum].basic.pos == kNvramBasicSize / 2 - 1);
static_assert(kVars[NVRAMVarCheckSum].extended.pos == kNvramExtendedSize - 4);

// Where a place's bytes lie in the image: the bytes holding its bits for the
// extended format, the whole 16-bit word (or the 4-byte id) for the basic one.
struct ByteWindow {
    std::size_t offset;
    std::size_t count;
};

ByteWindow byte_window(NvramFormat format, uint32_t var, const NvramPlace &p) {
    if (format == NvramFormat::Basic)
        return {std::size_t{p.pos} * 2u, var == NVRAMVarId ? 4u : 2u};
    if (var == NVRAMVarId) return {p.pos, 4};
    return {p.pos, (std::size_t{p.bit} + p.len + 7u) / 8u};
}

bool fits(std::size_t image_size, const ByteWindow &w) {
    return w.offset <= image_size && w.count <= image_size - w.offset;
}

// Little-endian assembly of up to four bytes.
uint32_t load_le(std::span<const uint8_t> image, const ByteWindow &w) {
    uint32_t v = 0;
    for (std::size_t i = 0; i < w.count; ++i) v |= uint32_t{image[w.offset + i]} << (8 * i);
    return v;
}

void store_le(std::span<uint8_t> image, const ByteWindow &w, uint32_t v) {
    for (std::size_t i = 0; i < w.count; ++i) image[w.offset + i] = static_cast<uint8_t>(v >> (8 * i));
}

uint32_t mask_test(std::span<const uint8_t> image, NvramFormat format, uint32_t var,
                   const std::array<uint16_t, 10> &masks) {
    if (var >= NVRAMVarEnd) return HMX_ERR_INVALID_PARAMETER;
    uint32_t index = VXHMNVR_GetVariableValue(image, format, NVRAMVarSubSystemDeviceID1);
    if (index > 8) index = 9;
    return (kVars[var].setting_bits & masks[index]) != 0 ? HMX_STATUS_OK : HMX_ERR_UNKNOWN;
}

}  // namespace

bool vxhmnvr_uses_extended_format(uint16_t pci_device_id) { return is_fcx14x_class(pci_device_id); }

NvramPlace vxhmnvr_place(NvramFormat format, uint32_t var) {
    if (var >= NVRAMVarEnd) return kAbsent;
    return format == NvramFormat::Basic ? kVars[var].basic : kVars[var].extended;
}

const char *vxhmnvr_short_name(uint32_t var) { return var < NVRAMVarEnd ? kVars[var].short_name : ""; }

const char *vxhmnvr_description(uint32_t var) { return var < NVRAMVarEnd ? kDescriptions[var] : ""; }

uint32_t vxhmnvr_mask(uint32_t nbits) { return nbits < kMasks.size() ? kMasks[nbits] : 0; }

uint32_t VXHMNVR_GetVariableValue(std::span<const uint8_t> image, NvramFormat format, uint32_t var) {
    if (var >= NVRAMVarEnd) return 0;
    const NvramPlace p = vxhmnvr_place(format, var);
    if (p.pos == kNvramNotPresent) return 0;
    const ByteWindow w = byte_window(format, var, p);
    if (!fits(image.size(), w)) return 0;
    const uint32_t raw = load_le(image, w);
    if (var == NVRAMVarId) return raw;
    return (raw >> p.bit) & kMasks[p.len];
}

uint32_t VXHMNVR_SetVariableValue(std::span<uint8_t> image, NvramFormat format, uint32_t var,
                                  uint32_t value) {
    if (var >= NVRAMVarEnd) return HMX_ERR_INVALID_PARAMETER;
    const NvramPlace p = vxhmnvr_place(format, var);
    if (p.pos == kNvramNotPresent) return HMX_STATUS_OK;
    const ByteWindow w = byte_window(format, var, p);
    if (!fits(image.size(), w)) return HMX_ERR_INVALID_PARAMETER;
    if (VXHMNVR_GetVariableValue(image, format, var) == value) return HMX_STATUS_OK;

    if (var == NVRAMVarId) {
        // The id is text: at most four characters, a zero byte ends it and
        // the rest of the field is cleared.
        bool ended = false;
        for (std::size_t i = 0; i < 4; ++i) {
            const auto c = static_cast<uint8_t>(value >> (8 * i));
            if (c == 0) ended = true;
            image[w.offset + i] = ended ? 0 : c;
        }
        return HMX_STATUS_OK;
    }
    const uint32_t field = kMasks[p.len] << p.bit;
    uint32_t raw = load_le(image, w);
    raw = (raw & ~field) | ((value & kMasks[p.len]) << p.bit);
    store_le(image, w, raw);
    return HMX_STATUS_OK;
}

uint32_t VXHMNVR_IsVariableReadOnly(std::span<const uint8_t> image, NvramFormat format, uint32_t var) {
    return mask_test(image, format, var, kReadOnlyMasks);
}

uint32_t VXHMNVR_IsVariableVisible(std::span<const uint8_t> image, NvramFormat format, uint32_t var) {
    return mask_test(image, format, var, kVisibleMasks);
}

}  // namespace vxhmx

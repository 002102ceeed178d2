// SPDX-License-Identifier: MIT
// The driver request header in both layouts, the request numbers and the
// command and sub-command codes.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Request header, current layout (116 bytes, packed) -------------------
struct __attribute__((packed)) EXT_IOCTL {
    uint8_t Signature[8];
    uint16_t AddrMode;
    uint16_t Version;
    uint16_t SubCode;
    uint16_t Instance;
    uint32_t Status;
    uint32_t DetailStatus;
    uint32_t Reserved1;
    uint32_t RequestLen;
    uint32_t ResponseLen;
    uint64_t RequestAdr;
    uint64_t ResponseAdr;
    uint16_t HbaSelect;
    uint16_t VendorSpecificStatus[11];
    uint64_t VendorSpecificData;
    uint16_t Reserved2[16];
};
static_assert(sizeof(EXT_IOCTL) == 116);
static_assert(offsetof(EXT_IOCTL, Signature) == 0);
static_assert(offsetof(EXT_IOCTL, AddrMode) == 8);
static_assert(offsetof(EXT_IOCTL, Version) == 10);
static_assert(offsetof(EXT_IOCTL, SubCode) == 12);
static_assert(offsetof(EXT_IOCTL, Instance) == 14);
static_assert(offsetof(EXT_IOCTL, Status) == 16);
static_assert(offsetof(EXT_IOCTL, DetailStatus) == 20);
static_assert(offsetof(EXT_IOCTL, Reserved1) == 24);
static_assert(offsetof(EXT_IOCTL, RequestLen) == 28);
static_assert(offsetof(EXT_IOCTL, ResponseLen) == 32);
static_assert(offsetof(EXT_IOCTL, RequestAdr) == 36);
static_assert(offsetof(EXT_IOCTL, ResponseAdr) == 44);
static_assert(offsetof(EXT_IOCTL, HbaSelect) == 52);
static_assert(offsetof(EXT_IOCTL, VendorSpecificStatus) == 54);
static_assert(offsetof(EXT_IOCTL, VendorSpecificData) == 76);
static_assert(offsetof(EXT_IOCTL, Reserved2) == 84);

// ---- Request header, older layout (88 bytes, natural alignment) -----------
// Older drivers take native pointers in place of the 64-bit addresses.
struct EXT_IOCTL_O {
    const void *Signature;
    uint16_t AddrMode;
    uint16_t Version;
    uint16_t SubCode;
    uint16_t Instance;
    uint32_t Status;
    uint32_t DetailStatus;
    uint32_t Reserved1;
    uint32_t RequestLen;
    uint32_t ResponseLen;
    void *RequestAdr;
    void *ResponseAdr;
    uint16_t HbaSelect;
    uint16_t VendorSpecificStatus[11];
    void *VendorSpecificData;
};
static_assert(sizeof(void *) == 8, "the older request layout is defined for 64-bit hosts");
static_assert(sizeof(EXT_IOCTL_O) == 88);
static_assert(offsetof(EXT_IOCTL_O, Signature) == 0);
static_assert(offsetof(EXT_IOCTL_O, AddrMode) == 8);
static_assert(offsetof(EXT_IOCTL_O, Version) == 10);
static_assert(offsetof(EXT_IOCTL_O, SubCode) == 12);
static_assert(offsetof(EXT_IOCTL_O, Instance) == 14);
static_assert(offsetof(EXT_IOCTL_O, Status) == 16);
static_assert(offsetof(EXT_IOCTL_O, DetailStatus) == 20);
static_assert(offsetof(EXT_IOCTL_O, Reserved1) == 24);
static_assert(offsetof(EXT_IOCTL_O, RequestLen) == 28);
static_assert(offsetof(EXT_IOCTL_O, ResponseLen) == 32);
static_assert(offsetof(EXT_IOCTL_O, RequestAdr) == 40);
static_assert(offsetof(EXT_IOCTL_O, ResponseAdr) == 48);
static_assert(offsetof(EXT_IOCTL_O, HbaSelect) == 56);
static_assert(offsetof(EXT_IOCTL_O, VendorSpecificStatus) == 58);
static_assert(offsetof(EXT_IOCTL_O, VendorSpecificData) == 80);

inline constexpr char kExtSignature[8] = {'V', 'A', 'R', 'N', 'I', 'X', 0, 0};
inline constexpr uint16_t kExtAddrMode = 2;
inline constexpr uint16_t kExtVersion = 7;
inline constexpr uint16_t kExtVersionOld = 5;
inline constexpr uint64_t kExtVendorSpecificData = 2;

// Request numbers: read-write, type 'y', size 116; the older layout keeps
// the type and number and carries size 8.
constexpr uint32_t vxapi_ioctl_number(uint8_t command) { return 0xC0747900u | command; }
constexpr uint32_t vxapi_ioctl_number_old(uint32_t number) { return (number & 0xFFFFu) | 0xC0080000u; }

// Command codes.
enum : uint8_t {
    EXT_CC_QUERY = 0x00,
    EXT_CC_SEND_CT_PASSTHRU = 0x01,
    EXT_CC_REG_AEN = 0x02,
    EXT_CC_GET_AEN = 0x03,
    EXT_CC_SEND_RNID = 0x04,
    EXT_CC_SEND_SCSI_PASSTHRU = 0x05,
    EXT_CC_GET_DATA = 0x06,
    EXT_CC_SET_DATA = 0x07,
    EXT_CC_LOOPBACK = 0x09,
    EXT_CC_UPDATE_OPTION_ROM = 0x0A,
    EXT_CC_GET_NVRAM = 0x0C,
    EXT_CC_SET_NVRAM = 0x0D,
    EXT_CC_READ_OPTION_ROM = 0x0F,
    EXT_CC_GET_OPTION_ROM_LAYOUT = 0x10,
    EXT_CC_GET_VPD = 0x11,
    EXT_CC_SET_VPD = 0x12,
    EXT_CC_GET_SFP_DATA = 0x13,
    EXT_CC_GET_FW_DUMP = 0x14,
    EXT_CC_PORT_PARAM = 0x15,
    EXT_CC_TAMAR_MGMT = 0x17,
    EXT_CC_ACTIVATE_REGION = 0x18,
    EXT_CC_SEND_ELS_PASSTHRU = 0x30,
    EXT_CC_FO_GET_SYS_PARAMS = 0xC8,
    EXT_CC_FO_SET_SYS_PARAMS = 0xC9,
    EXT_CC_FO_GET_PATHS = 0xCA,
    EXT_CC_FO_SET_CURRENT_PATH = 0xCB,
    EXT_CC_FO_GET_STATISTICS = 0xCC,
    EXT_CC_FO_RESET_STATISTICS = 0xCD,
    EXT_CC_FO_GET_LUN_DATA = 0xCE,
    EXT_CC_FO_SET_LUN_DATA = 0xCF,
    EXT_CC_FO_GET_TARGET_DATA = 0xD0,
    EXT_CC_FO_SET_TARGET_DATA = 0xD1,
    EXT_CC_FO_GET_DRIVER_VERSION = 0xD2,
    EXT_CC_DRIVER_SPECIFIC = 0xFC,
    EXT_CC_WWPN_TO_SCSIADDR = 0xFD,
    EXT_CC_SET_INSTANCE = 0xFE,
    EXT_CC_STARTIOCTL = 0xFF,
};

// Sub-codes of the query (0x00), get-data (0x06) and set-data (0x07) commands.
enum : uint16_t {
    EXT_SC_QUERY_HBA_NODE = 1,
    EXT_SC_QUERY_HBA_PORT = 2,
    EXT_SC_QUERY_DISC_PORT = 3,
    EXT_SC_QUERY_DISC_TGT = 4,
    EXT_SC_QUERY_CHIP = 8,
    EXT_SC_QUERY_CNA_PORT = 9,
    EXT_SC_QUERY_ADAPTER_VERSIONS = 10,
    EXT_SC_GET_STATISTICS = 3,
    EXT_SC_GET_DRIVER = 6,
    EXT_SC_GET_FW = 7,
    EXT_SC_GET_BEACON = 8,
    EXT_SC_GET_FC4_STATISTICS = 9,
    EXT_SC_GET_TGT_LUN_DATA_LIST = 10,
    EXT_SC_GET_DCBX_PARAM = 11,
    EXT_SC_GET_PORT_SUMMARY = 106,
    EXT_SC_RNID_INFO = 109,
    EXT_SC_GET_PORT_STATISTICS = 112,
    EXT_SC_SET_BEACON = 8,
    EXT_SC_RAW_FLASH = 0xFFFF,
    EXT_SC_SCSI_PT_BY_PORT_NAME = 1,
};

// SPDX-License-Identifier: MIT
// Driver request headers (both layouts), request numbers and the request
// wrappers of the ioctl transport.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_hmerr.h"
#include "vx_layout.h"
#include "vx_wire.h"

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
// The raw flash request carries the raw pseudo region's code as its subcode.
static_assert(EXT_SC_RAW_FLASH == vxhmx::kRegionRawFlash);

uint64_t vxapi_ptr_to_64bit(const void *p);

// Both fill a zeroed header; 1 only when no header is given.
int vxapi_init_ext_ioctl_n(EXT_IOCTL *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx);
int vxapi_init_ext_ioctl_o(EXT_IOCTL_O *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx);

// One header of whichever layout the adapter takes.
struct VxRequest {
    EXT_IOCTL n{};
    EXT_IOCTL_O o{};
    bool current = true;

    int init(int api_idx, uint16_t subcode, uint16_t instance, const void *request, uint32_t request_len,
             void *response, uint32_t response_len);
    void *header() { return current ? static_cast<void *>(&n) : static_cast<void *>(&o); }
    uint32_t status() const { return current ? n.Status : o.Status; }
    uint32_t detail_status() const { return current ? n.DetailStatus : o.DetailStatus; }
    uint16_t instance() const { return current ? n.Instance : o.Instance; }
    uint32_t response_len() const { return current ? n.ResponseLen : o.ResponseLen; }
    void set_reserved1(uint32_t v) {
        n.Reserved1 = v;
        o.Reserved1 = v;
    }
};

// Sends one request; chooses the request number by the adapter's layout.
int hmx_ioctl(int fd, uint32_t number, void *header, int api_idx);

// ---- Request wrappers -----------------------------------------------------
// Each returns the ioctl result (0, or -1 with errno set), or 1 when no
// header could be built; the reply's Status goes to *status and, where
// asked, its DetailStatus to *detail. A flash, NVRAM or VPD read whose reply
// carries fewer bytes than asked completes with 8 (data underrun). Adapters served
// by sysfs are handed to the sysfs routine of the same name.
// One request of any command; the common path of every wrapper.
struct VxCall {
    const char *name;      // wrapper name for the trace
    uint8_t command;
    uint16_t subcode = 0;
    uint16_t instance = 0;
    const void *request = nullptr;
    uint32_t request_len = 0;
    void *response = nullptr;
    uint32_t response_len = 0;
    uint32_t reserved1 = 0;
};
int vxapi_send(int fd, int api_idx, const VxCall &call, uint32_t *status, uint32_t *detail = nullptr,
               uint32_t *returned_len = nullptr, uint16_t *reply_instance = nullptr, uint16_t *reply_hba_select = nullptr);

int vxapi_query_hbanode(int fd, int api_idx, EXT_HBA_NODE *node, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_hbaport(int fd, int api_idx, EXT_HBA_PORT *port, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_discport(int fd, int api_idx, uint16_t port_index, EXT_DISC_PORT *port, uint32_t *status,
                         uint32_t *detail = nullptr);
int vxapi_query_disctgt(int fd, int api_idx, uint16_t target_index, EXT_DISC_PORT *target, uint32_t *status,
                        uint32_t *detail = nullptr);
int vxapi_query_chip(int fd, int api_idx, EXT_CHIP *chip, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_cnaport(int fd, int api_idx, uint8_t *buf128, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_adapter_versions(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxapi_async_event_reg(int fd, int api_idx, const EXT_REG_AEN *reg, uint32_t *status);
int vxapi_async_event_get(int fd, int api_idx, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                          uint32_t *returned_len);
int vxapi_query_driver(int fd, int api_idx, EXT_DRIVER *drv, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_query_fw(int fd, int api_idx, EXT_FW *fw, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_statistics(int fd, int api_idx, EXT_STATISTICS *stats, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_port_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                              uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_fc4_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                             uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_beacon(int fd, int api_idx, EXT_BEACON_CONTROL *beacon, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_beacon(int fd, int api_idx, const EXT_BEACON_CONTROL *beacon, uint32_t *status,
                     uint32_t *detail = nullptr);
int vxapi_read_optrom(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                      uint32_t *status, uint32_t *detail = nullptr);
int vxapi_update_optrom(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                        uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_nvram(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_nvram(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status,
                    uint32_t *detail = nullptr);
int vxapi_get_vpd(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_set_vpd(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail = nullptr);
int vxapi_get_optrom_layout(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status,
                            uint32_t *detail = nullptr);
int vxapi_activate_region(int fd, int api_idx, uint16_t region, uint32_t *status);
int vxapi_get_driver_specifics(int fd, int api_idx, EXT_LN_DRIVER_DATA *data, uint32_t *status);
// Port parameters (INT_PORT_PARAM, speed in Gbit/s), the loopback test and
// the FCX15x bridge operations (1 reset, 2 firmware update, 3 management).
// Sysfs adapters take them over netlink while the driver socket is open.
int vxapi_port_param(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status);
int vxapi_loopback_test(int fd, int api_idx, const uint8_t *req, uint32_t req_len, uint8_t *resp, uint32_t resp_len,
                        uint32_t *status);
int vxapi_tamar_mgmt(int fd, int api_idx, uint16_t operation, uint8_t *buf, uint32_t len, uint32_t *status);
// SCSI pass-through addressed by port name (command 0x05, sub-code 1): the
// descriptor in, sense back in it; `data` is read into or written from by
// the direction the descriptor gives. The SCSI status comes back in
// *scsi_status and the bytes moved in *xferred.
int vxapi_send_fc_scsipt(int fd, int api_idx, EXT_SCSI_PASSTHRU *pt, uint8_t *data, uint32_t len, uint32_t *status,
                         uint32_t *scsi_status, uint32_t *xferred);
int vxapi_wwpn_to_scsiaddr(int fd, int api_idx, const uint8_t wwpn[8], EXT_SCSI_ADDR *addr, uint32_t *status);
int vxapi_set_instance(int fd, uint16_t drvr_inst, int api_idx, uint32_t *status, uint16_t *host_no);
// Request 0xFF: the number of driver instances, from the reply's Instance.
int vxapi_get_instance_count(int fd, int api_idx, uint32_t *status, uint32_t *count);

// Flash sector size of the adapter (chip query); 0 when unknown.
uint32_t vxapi_get_flash_sector_size(int fd, int api_idx);
// Widens [offset, offset + len) to whole sectors within the flash the
// library's layout knows, reading the surrounding bytes from the flash; on
// success *out holds the window and, unless the write was whole sectors
// already, the merged data. Returns 1 with *status set on failure: 6 for
// bad arguments or a write past the flash end, 10 when out of memory, the
// read's status when a surrounding read fails.
int vxapi_sector_align(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t offset, uint32_t sector,
                       vxhmx::SectorAligned *out, uint32_t *status);
// True for chips whose flash is reached raw (FCX160, FCX180).
bool vxapi_raw_flash_chip(int api_idx);

// SPDX-License-Identifier: MIT
// The library's adapter table (32 records, packed from index 0), the
// features word of each record, handles and look-ups.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_text.h"

inline constexpr int kMaxAdapters = 32;
inline constexpr const char *kDriverName = "vxa2xxx";

// features bits of an adapter record.
inline constexpr uint32_t VXF_IOCTL = 0x1;         // answered the driver-specifics query
inline constexpr uint32_t VXF_NEW_LAYOUT = 0x2;    // takes the 116-byte request header
inline constexpr uint32_t VXF_FCX12X = 0x4;        // FCX12x generation chip
inline constexpr uint32_t VXF_NEW_CFG_STORE = 0x8; // driver keeps failover configuration
inline constexpr uint32_t VXF_AEN = 0x10;          // event delivery registered
inline constexpr uint32_t VXF_SYSFS = 0x20;        // served by the sysfs transport
inline constexpr uint32_t VXF_DRV_FLAG4 = 0x40;    // driver-wide, record 0 only
inline constexpr uint32_t VXF_CHUNKED_FLASH = 0x80; // sysfs: takes the "1:%x:%x" and "2:%x:%x" forms
inline constexpr uint32_t VXF_DRV_FLAG8 = 0x100;   // driver-wide, record 0 only
inline constexpr uint32_t VXF_NL_MGMT = 0x200;     // record 0: driver netlink socket open
inline constexpr uint32_t VXF_NL_SCSI_FC = 0x400;  // record 0: SCSI transport socket open

struct vxapi_priv_db_t {
    char phys_path[80];
    char model[16];
    int oshandle;
    uint32_t apihandle;
    uint32_t open_cnt;
    uint16_t drvr_inst;
    uint16_t host_no;
    uint32_t drvr_attr;
    uint8_t wwnn[8];
    uint8_t wwpn[8];
    uint8_t port_id[4];
    uint32_t port_cnt;
    uint32_t features;
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t ssvendor_id;
    uint16_t ssdevice_id;
    char serial_num[32];
};

extern vxapi_priv_db_t api_priv_data[kMaxAdapters];
extern int OS_Type;  // 1 = ESX host, 2 = any other
inline constexpr int kOsTypeEsx = 1;
inline constexpr int kOsTypeOther = 2;

// Adapter table.
void vxapi_clear_record(int idx);
void vxapi_clear_table();
bool vxapi_table_empty();
int vxapi_get_hba_count();
uint32_t vxapi_create_apihandle(int idx);
int vxapi_get_hbainst_from_apihandle(uint32_t handle);
int check_handle(uint32_t handle, uint16_t *index);
int vxapi_get_api_inst_by_handle(uint32_t handle, uint16_t *index);
void vxapi_get_api_inst_by_drvr_inst(uint16_t drvr_inst, int *idx, const char *drvname);
int vxapi_get_drvr_inst_by_api_inst(int idx, uint16_t *drvr_inst);
uint16_t vxapi_get_host_no_by_handle(uint32_t handle);

// An index of the adapter table.
inline bool vxapi_valid_index(int idx) { return idx >= 0 && idx < kMaxAdapters; }

// SPDX-License-Identifier: MIT
// The adapter table, its handles and look-ups.
#include "vx_instances.h"

#include <cstring>

vxapi_priv_db_t api_priv_data[kMaxAdapters];
int OS_Type = kOsTypeOther;

void vxapi_clear_record(int idx) {
    if (!vxapi_valid_index(idx)) return;
    std::memset(&api_priv_data[idx], 0, sizeof api_priv_data[idx]);
    api_priv_data[idx].oshandle = -1;
}

void vxapi_clear_table() {
    for (int i = 0; i < kMaxAdapters; ++i) vxapi_clear_record(i);
}

bool vxapi_table_empty() { return api_priv_data[0].phys_path[0] == '\0'; }

int vxapi_get_hba_count() {
    int n = 0;
    while (n < kMaxAdapters && api_priv_data[n].phys_path[0] != '\0') ++n;
    return n;
}

uint32_t vxapi_create_apihandle(int idx) { return static_cast<uint32_t>(idx) + 1; }
int vxapi_get_hbainst_from_apihandle(uint32_t handle) { return static_cast<int>(handle) - 1; }

int vxapi_get_api_inst_by_handle(uint32_t handle, uint16_t *index) {
    for (int i = 0; i < kMaxAdapters; ++i) {
        if (api_priv_data[i].apihandle == handle) {
            if (index != nullptr) *index = static_cast<uint16_t>(i);
            return 0;
        }
    }
    return 1;
}

int check_handle(uint32_t handle, uint16_t *index) {
    if (handle == 0) return 1;
    uint16_t idx = 0;
    if (vxapi_get_api_inst_by_handle(handle, &idx) != 0) return 1;
    if (vxapi_get_hbainst_from_apihandle(handle) != idx) return 1;
    if ((api_priv_data[idx].features & (VXF_IOCTL | VXF_SYSFS)) == 0) return 1;
    if (index != nullptr) *index = idx;
    return 0;
}

void vxapi_get_api_inst_by_drvr_inst(uint16_t drvr_inst, int *idx, const char *drvname) {
    if (idx == nullptr) return;
    *idx = -1;
    if (drvname == nullptr) return;
    for (int i = 0; i < kMaxAdapters; ++i) {
        // The last match wins.
        if (api_priv_data[i].drvr_inst == drvr_inst &&
            std::strncmp(api_priv_data[i].model, drvname, sizeof api_priv_data[i].model) == 0)
            *idx = i;
    }
}

int vxapi_get_drvr_inst_by_api_inst(int idx, uint16_t *drvr_inst) {
    if (!vxapi_valid_index(idx) || drvr_inst == nullptr) return 1;
    *drvr_inst = api_priv_data[idx].drvr_inst;
    return 0;
}

uint16_t vxapi_get_host_no_by_handle(uint32_t handle) {
    uint16_t idx = 0;
    if (handle == 0 || vxapi_get_api_inst_by_handle(handle, &idx) != 0) return 65535;
    return api_priv_data[idx].host_no;
}

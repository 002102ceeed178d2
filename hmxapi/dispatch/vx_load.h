// SPDX-License-Identifier: MIT
// The load sequence, driver node discovery and the open and close of an
// adapter for a caller.
#pragma once

#include <cstddef>
#include <cstdint>

int vxapi_load_lib();
void vxapi_unload_lib();
int vxapi_charnode_exist(char *path, std::size_t path_size, const char *drvname);
int vxapi_find_all_instances_n(const char *drvname, int *index);
int vxapi_find_all_instances_o(const char *drvname, int *index);
int vxapi_open_device_n(uint16_t drvr_inst, int api_idx, int *fd, const char *path, uint16_t *host_no,
                        uint32_t *instance_count);
int vxapi_open_device_o(uint16_t drvr_inst, int api_idx, int *fd, const char *path, uint16_t *host_no,
                        uint32_t *instance_count);
int vxapi_open_adapter(int api_idx, uint32_t *handle, int *os_error);
int vxapi_close_adapter(int api_idx, int *os_error);
int vxapi_check_esx();
int vxapi_check_linux_version();
int vxapi_check_vxioctlmod();
void vxapi_load_vxioctlmod();

// SPDX-License-Identifier: MIT
// Failover request gate.
#pragma once

#include <cstdint>

// Failover reply status to library code (its own map, see the gate).
uint32_t vxapi_fo_status_to_error(uint32_t status, uint32_t detail);
uint32_t VxFailOverDeviceIoControl(uint32_t handle, uint32_t ioctl_number, uint16_t subcode, const void *request,
                                   uint32_t request_len, void *response, uint32_t response_len);

// Whether the adapter's driver keeps the newer configuration store (1) or not (0).
int vxapi_hba_support_new_cfg_store(uint32_t handle, int api_idx);

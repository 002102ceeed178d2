// SPDX-License-Identifier: MIT
// Failover request gate.
#pragma once

#include <cstdint>

// Failover reply status to library code (its own map, see the gate).
uint32_t vxapi_fo_status_to_error(uint32_t status, uint32_t detail);
uint32_t VxFailOverDeviceIoControl(uint32_t handle, uint32_t ioctl_number, uint16_t subcode, const void *request,
                                   uint32_t request_len, void *response, uint32_t response_len);

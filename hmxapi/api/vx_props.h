// SPDX-License-Identifier: MIT
// Conversions behind the public property calls, exposed for the unit tests:
// the transports' records into the public records.
#pragma once

#include <cstdint>

#include "vx_wire.h"
#include "vxhmx.h"

// 3 when the port record's state is 2 (up), 1 when it is 0 (down), else 2.
uint8_t vxprops_port_state(uint16_t record_state);

void vxprops_node_from_record(const EXT_HBA_NODE &node, const char *serial_num, DEVICENODEPROPERTY &out);
void vxprops_port_from_record(const EXT_HBA_PORT &port, uint16_t host_no, DEVICEPORTPROPERTY &out);
void vxprops_chip_from_record(const EXT_CHIP &chip, CHIPPROPERTY &out);
void vxprops_driver_from_record(const EXT_DRIVER &drv, DRIVERPROPERTY &out);

// SPDX-License-Identifier: MIT
// Netlink sockets for adapters served by the sysfs transport.
#pragma once

// Opens the sockets not yet open and records them in record 0's features.
int vxapi_open_netlink_socket();
void vxapi_close_netlink_socket();

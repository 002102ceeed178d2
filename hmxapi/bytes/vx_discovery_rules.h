// SPDX-License-Identifier: MIT
// The rules discovery applies to what the driver reports: computed serial
// numbers, driver versions, the device number of the driver's node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// Serial number "%c%05d" from the node name, when the adapter reports none.
void vxapi_compute_serial(const uint8_t wwnn[8], uint8_t mask, char *out, std::size_t out_size);
struct DriverVersion {
    uint8_t major, minor, patch, beta;
};
bool vxapi_driver_new_enough(const DriverVersion &v);
bool vxapi_driver_new_cfg_store(const DriverVersion &v);

namespace vxhmx {
// "major:minor" of a sysfs dev attribute.
bool parse_dev_numbers(const char *text, unsigned *major_no, unsigned *minor_no);
// Major number of the last /proc/devices line naming the driver.
bool proc_devices_major(std::string_view text, const char *name, unsigned *major_no);
}  // namespace vxhmx

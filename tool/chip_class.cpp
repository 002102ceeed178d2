// SPDX-License-Identifier: MIT
#include "chip_class.h"

#include "chip_table.h"

int CoreGetFCXType(const HMXDevice *device) {
    return device != nullptr ? ChipFcxType(device->chipProperty.DeviceID) : 0;
}
int CoreGetFCX4GbType(const HMXDevice *device) {
    return device != nullptr ? ChipFcx4GbType(device->chipProperty.DeviceID) : 0;
}
int CoreGetFCX8GbType(const HMXDevice *device) {
    return device != nullptr ? ChipFcx8GbType(device->chipProperty.DeviceID) : 0;
}
int Get4GbAnd8GbFCXType(const HMXDevice *device) {
    return device != nullptr ? ChipFcx4And8GbType(device->chipProperty.DeviceID) : -1;
}
int FindWhichFCX2GType(const HMXDevice *device) {
    return device != nullptr ? ChipFcx2GType(device->chipProperty.DeviceID) : -1;
}
int CoreGetFCX18yType(const HMXDevice *device) {
    return device != nullptr ? ChipFcx18yType(device->chipProperty.DeviceID) : 0;
}

/* SPDX-License-Identifier: MIT */
/*
 * hmxinfo - lists every adapter port libvxhmx finds, with its identity,
 * versions and flash layout. A small client of the public header only;
 * run it as root (on an emulated host: vxemu run -- hmxinfo).
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vxhmx.h"

enum { kMaxInstances = 32 };

static void print_wwn(const char *label, const uint8_t *w) {
    printf("  %-18s%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", label, w[0], w[1], w[2], w[3], w[4], w[5],
           w[6], w[7]);
}

static void print_layout(int handle) {
    HMX_OPT_ROM_LAYOUT probe;
    memset(&probe, 0, sizeof probe);
    uint32_t st = HmGetOptionRomLayout(handle, 0, &probe);
    if (st != 0 && st != HMX_ERR_BUFFER_TOO_SMALL) {
        printf("  %-18s%s\n", "flash layout", HmGetErrorString(st));
        return;
    }
    uint32_t count = probe.NoOfRegions;
    HMX_OPT_ROM_LAYOUT *layout =
        calloc(1, sizeof *layout + (count > 0 ? count - 1 : 0) * sizeof(HMX_OPT_ROM_REGION));
    if (layout == NULL) return;
    layout->NoOfRegions = count;
    st = HmGetOptionRomLayout(handle, 0, layout);
    if (st == 0) {
        printf("  %-18s%u bytes, %u regions:", "flash", layout->Size, layout->NoOfRegions);
        for (uint32_t i = 0; i < layout->NoOfRegions; ++i)
            printf(" %02x/%x", layout->Region[i].Region, layout->Region[i].Size);
        printf("\n");
    } else {
        printf("  %-18s%s\n", "flash layout", HmGetErrorString(st));
    }
    free(layout);
}

int main(void) {
    char version[32] = {0};
    HmGetVersion((int8_t *)version, sizeof version);
    printf("libvxhmx %s\n", version);

    int found = 0;
    for (uint32_t instance = 0; instance < kMaxInstances; ++instance) {
        int handle = 0;
        uint32_t st = HmOpenDevice(instance, &handle);
        if (st == HMX_ERR_DEVICE_NOT_FOUND) break;
        if (st != 0) {
            printf("instance %u: %s\n", instance, HmGetErrorString(st));
            continue;
        }
        ++found;
        DEVICENODEPROPERTY node;
        DEVICEPORTPROPERTY port;
        CHIPPROPERTY chip;
        uint8_t nvram[512];
        memset(&node, 0, sizeof node);
        memset(&port, 0, sizeof port);
        memset(&chip, 0, sizeof chip);
        memset(nvram, 0, sizeof nvram);
        HmGetHbaDeviceNodeProperty(handle, &node);
        HmGetHbaDevicePortProperty(handle, 0, &port);
        HmGetHbaDeviceChipProperty(handle, &chip);
        HmGetNVRam(handle, 0, 0, nvram, sizeof nvram);

        printf("instance %u: %s (PCI %04x:%04x, subsystem %04x:%04x from NVRAM)\n", instance, node.Model,
               chip.VendorID, chip.DeviceID, HmGetVariableValue(handle, nvram, NVRAMVarSubSystemVendorID1),
               HmGetVariableValue(handle, nvram, NVRAMVarSubSystemDeviceID1));
        printf("  %-18s%s\n", "serial number", (const char *)node.SerialNumber);
        print_wwn("node name", node.WWN);
        print_wwn("port name", port.WWN);
        printf("  %-18s%02x%02x%02x\n", "port id", port.PortID[0], port.PortID[1], port.PortID[2]);
        printf("  %-18s%s\n", "driver", node.DriverVersion);
        printf("  %-18s%s\n", "firmware", node.FirmwareVersion);
        printf("  %-18s%s\n", "boot code", node.OptionRomVersion);
        print_layout(handle);
        HmCloseDevice(handle);
    }
    printf("%d adapter port(s)\n", found);
    return found > 0 ? 0 : 1;
}

/* SPDX-License-Identifier: MIT */
/*
 * every_call_client: one whole run of a library user that makes every
 * public call of the header at least once against one adapter instance,
 * with arguments a careful caller would pass. Every write puts back what
 * was just read, so the adapter must end exactly as it began. Prints one
 * line per call: its name and status, and a few facts read.
 *
 *   every_call_client INSTANCE
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vxhmx.h"

#define NVRAM_SIZE 512
#define VPD_SIZE 512
#define SECTOR 0x1000

static HMFO_LUN_DATA g_luns;       /* 8 KiB each: kept off the stack */
static HMFO_TARGET_DATA g_targets;

static void show(const char *call, uint32_t status) { printf("%s: 0x%08X\n", call, (unsigned)status); }

static void frame_calls(void) {
    int8_t version[17];
    char fo[32];
    printf("HmGetVersion: 0x%08X %s\n", (unsigned)HmGetVersion(version, sizeof version), (const char *)version);
    printf("IHmFoGetApiVersion: 0x%08X %s\n", (unsigned)IHmFoGetApiVersion(fo, sizeof fo), fo);
    printf("HmGetErrorString: %s\n", HmGetErrorString(HMX_ERR_NOT_SUPPORTED));
    show("HmXlateHMXErr", HmXlateHMXErr(15, 2));
}

static void property_calls(int h) {
    DEVICENODEPROPERTY node;
    DEVICEPORTPROPERTY port;
    CHIPPROPERTY chip;
    DRIVERPROPERTY driver;
    FIRMWAREPROPERTY firmware;
    DISCPORTPROPERTY disc;
    STATISTICS stats;
    uint8_t buffer[256];
    uint32_t value = 0;
    uint32_t st;

    memset(&node, 0, sizeof node);
    st = HmGetHbaDeviceNodeProperty(h, &node);
    printf("HmGetHbaDeviceNodeProperty: 0x%08X model %s ports %u\n", (unsigned)st, node.Model,
           (unsigned)node.NumberOfPorts);
    memset(&port, 0, sizeof port);
    st = HmGetHbaDevicePortProperty(h, 0, &port);
    printf("HmGetHbaDevicePortProperty: 0x%08X state %u targets %u\n", (unsigned)st, (unsigned)port.PortState,
           (unsigned)port.DiscTargetCount);
    memset(&chip, 0, sizeof chip);
    st = HmGetHbaDeviceChipProperty(h, &chip);
    printf("HmGetHbaDeviceChipProperty: 0x%08X device 0x%04X\n", (unsigned)st, (unsigned)chip.DeviceID);
    show("HmGetHbaDeviceDriverProperty", HmGetHbaDeviceDriverProperty(h, &driver));
    show("HmGetHbaDeviceFirmwareProperty", HmGetHbaDeviceFirmwareProperty(h, &firmware));
    show("HmGetDiscTargetProperty", HmGetDiscTargetProperty(h, 0, 0, 0, &disc));
    show("HmGetDiscPortProperty", HmGetDiscPortProperty(h, 0, 0, &disc));
    show("HmGetPortDatabase", HmGetPortDatabase(h, 0, buffer, sizeof buffer));
    show("HmGetStatistics", HmGetStatistics(h, 0, &stats));
    show("HmGetStatisticsFC", HmGetStatisticsFC(h, 0, &stats));
    show("HmGetPortStatisticsFC", HmGetPortStatisticsFC(h, 0, port.WWN, &stats));
    show("HmResetStatistics", HmResetStatistics(h, 0));
    show("HmGetCnaPortData", HmGetCnaPortData(h, buffer, 128));
    show("HmGetSFPData", HmGetSFPData(h, buffer, sizeof buffer));
    st = HmGetBeaconControl(h, &value);
    show("HmGetBeaconControl", st);
    if (st == HMX_STATUS_OK) show("HmUpdateBeaconControl", HmUpdateBeaconControl(h, value));
    else show("HmUpdateBeaconControl(not asked)", 0);
    show("HmGetDriverParameters", HmGetDriverParameters(h, buffer, sizeof buffer));
    show("HmGetFirmwareParameters", HmGetFirmwareParameters(h, buffer, sizeof buffer));
    show("HmVerifyHbaNVRam", HmVerifyHbaNVRam(h, 0));
    show("HmGetTargetIDMALinkSpeed", HmGetTargetIDMALinkSpeed(h, 0, port.WWN, &value));
    show("HmSetTargetIDMALinkSpeed", HmSetTargetIDMALinkSpeed(h, 0, port.WWN, 0));
}

static void feature_and_failover_calls(int h, int instance) {
    HMX_HBA_FEATURE_LIST *list;
    HMFO_DRIVER_VERSION version;
    HMFO_SYS_PARAMS params;
    HMFO_PATH_REQUEST paths;
    HMFO_SELECTOR selector;
    HMFO_STATISTICS stats;
    HMFO_LUN_SELECT all = {HMFO_SELECT_ALL, HMFO_SELECT_ALL};
    uint8_t pathList[256];
    uint32_t capability = 0, st;

    list = calloc(1, sizeof *list + 7 * sizeof list->Feature[0]);
    if (list == NULL) return;
    list->Count = 1;
    st = HmGetHbaSupportedFeatureList(h, list);
    if (st == HMX_ERR_BUFFER_TOO_SMALL && list->Count <= 8) st = HmGetHbaSupportedFeatureList(h, list);
    printf("HmGetHbaSupportedFeatureList: 0x%08X count %u\n", (unsigned)st, (unsigned)list->Count);
    free(list);

    st = IHmFoGetFoCapability(h, &capability);
    printf("IHmFoGetFoCapability: 0x%08X 0x%08X\n", (unsigned)st, (unsigned)capability);
    show("IHmFoGetFoDriverVersion", IHmFoGetFoDriverVersion(h, &version));
    memset(&params, 0, sizeof params);
    st = IHmFoGetSysParams(h, &params);
    show("IHmFoGetSysParams", st);
    if (st == HMX_STATUS_OK) show("IHmFoSetSysParams", IHmFoSetSysParams(h, &params));
    else show("IHmFoSetSysParams(not asked)", 0);
    memset(&paths, 0, sizeof paths);
    show("IHmFoGetPaths", IHmFoGetPaths(h, &paths, pathList, sizeof pathList));
    memset(&selector, 0, sizeof selector);
    show("IHmFoSetCurrentPath", IHmFoSetCurrentPath(h, &selector));
    show("IHmFoGetStatistics", IHmFoGetStatistics(h, &selector, &stats));
    show("IHmFoResetStatistics", IHmFoResetStatistics(h, &selector));
    st = IHmFoGetLunData(h, instance, all, &g_luns, 0);
    printf("IHmFoGetLunData: 0x%08X\n", (unsigned)st);
    st = IHmFoGetLunData(h, instance, all, &g_luns, 1);
    printf("IHmFoGetLunData(store): 0x%08X\n", (unsigned)st);
    if (st == HMX_STATUS_OK) show("IHmFoSetLunData", IHmFoSetLunData(h, instance, all, &g_luns));
    else show("IHmFoSetLunData(not asked)", 0);
    st = IHmFoGetTargetData(h, instance, all, &g_targets, 1);
    printf("IHmFoGetTargetData(store): 0x%08X\n", (unsigned)st);
    if (st == HMX_STATUS_OK) show("IHmFoSetTargetData", IHmFoSetTargetData(h, instance, all, &g_targets));
    else show("IHmFoSetTargetData(not asked)", 0);
}

/* Reads the port's NVRAM and VPD and writes them back as they were. */
static void nvram_and_vpd_calls(int h) {
    uint8_t nvram[NVRAM_SIZE], copy[NVRAM_SIZE], vpd[VPD_SIZE];
    uint32_t size = sizeof vpd, st;
    memset(nvram, 0, sizeof nvram);
    st = HmGetNVRam(h, 0, 1, nvram, sizeof nvram);
    show("HmGetNVRam", st);
    memcpy(copy, nvram, sizeof copy);
    printf("HmGetVariableValue: 0x%04X\n", (unsigned)HmGetVariableValue(h, copy, NVRAMVarSubSystemDeviceID1));
    show("HmSetVariableValue", HmSetVariableValue(h, copy, NVRAMVarSubSystemDeviceID1, 0x1234));
    printf("HmGetVariableValue(changed copy): 0x%04X\n",
           (unsigned)HmGetVariableValue(h, copy, NVRAMVarSubSystemDeviceID1));
    if (st == HMX_STATUS_OK) show("HmUpdateNVRam", HmUpdateNVRam(h, 0, 1, nvram, sizeof nvram));
    else show("HmUpdateNVRam(not asked)", 0);

    memset(vpd, 0, sizeof vpd);
    st = HmGetVpd(h, 0, vpd, &size);
    printf("HmGetVpd: 0x%08X size %u\n", (unsigned)st, (unsigned)size);
    if (st == HMX_STATUS_OK) show("HmUpdateVpd", HmUpdateVpd(h, 0, vpd, &size));
    else show("HmUpdateVpd(not asked)", 0);
}

/* The boot code region (0x07, else 0x05, else the whole flash) of the layout. */
static uint32_t boot_region(const HMX_OPT_ROM_LAYOUT *layout, uint32_t *size) {
    static const uint32_t wanted[] = {HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI,
                                      HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI_FW, HMX_OPT_ROM_REGION_ALL};
    size_t w;
    uint32_t i;
    for (w = 0; w < sizeof wanted / sizeof wanted[0]; ++w)
        for (i = 0; i < layout->NoOfRegions; ++i)
            if ((layout->Region[i].Region & 0xFF) == wanted[w]) {
                *size = layout->Region[i].Size;
                return wanted[w];
            }
    *size = 0;
    return 0;
}

/* Reads the boot code and writes the same bytes back by every write call. */
static void flash_calls(int h) {
    HMX_OPT_ROM_LAYOUT probe, *layout;
    uint32_t region, size, st;
    uint8_t *image, sector[SECTOR];

    memset(&probe, 0, sizeof probe);
    st = HmGetOptionRomLayout(h, 0, &probe);
    printf("HmGetOptionRomLayout(count): 0x%08X regions %u\n", (unsigned)st, (unsigned)probe.NoOfRegions);
    if (probe.NoOfRegions == 0 || probe.NoOfRegions > 64) return;
    layout = calloc(1, sizeof *layout + probe.NoOfRegions * sizeof layout->Region[0]);
    if (layout == NULL) return;
    layout->NoOfRegions = probe.NoOfRegions;
    st = HmGetOptionRomLayout(h, 0, layout);
    region = boot_region(layout, &size);
    printf("HmGetOptionRomLayout: 0x%08X flash 0x%X boot region 0x%02X of 0x%X\n", (unsigned)st,
           (unsigned)layout->Size, (unsigned)region, (unsigned)size);
    free(layout);
    if (region == 0 || size < SECTOR) return;

    image = calloc(1, size);
    if (image == NULL) return;
    st = HmGetOptionRomEx(h, 0, image, size, region);
    show("HmGetOptionRomEx", st);
    if (st == HMX_STATUS_OK) {
        show("HmUpdateOptionRomEx", HmUpdateOptionRomEx(h, 0, image, size, region));
        show("HmUpdateOptionRomEx2", HmUpdateOptionRomEx2(h, 0, image, size, region));
        if (region != HMX_OPT_ROM_REGION_ALL && size >= 0x20000)
            show("HmUpdateOptionRom", HmUpdateOptionRom(h, 0, image, size));
        else
            show("HmUpdateOptionRom(short buffer)", HmUpdateOptionRom(h, 0, image, SECTOR));
    }
    free(image);

    st = HmGetOptionRomOffset(h, 0, sector, sizeof sector, 0);
    show("HmGetOptionRomOffset", st);
    if (st == HMX_STATUS_OK) show("HmUpdateOptionRomOffset", HmUpdateOptionRomOffset(h, 0, sector, sizeof sector, 0));
    else show("HmUpdateOptionRomOffset(not asked)", 0);
}

static void event_and_scsi_calls(int h) {
    ASYNCEVENT events[4];
    uint32_t count = 0, st;
    DISCPORTPROPERTY target;
    DESTINATIONADDRESS address;
    uint8_t cdb[6] = {0, 0, 0, 0, 0, 0}; /* TEST UNIT READY */
    uint8_t resp[64], sense[32], luns[264];

    show("HmEnableAen", HmEnableAen(h));
    st = HmGetAen(h, events, sizeof events, &count);
    printf("HmGetAen: 0x%08X count %u\n", (unsigned)st, (unsigned)count);
    show("HmDisableAen", HmDisableAen(h));

    memset(&address, 0, sizeof address);
    address.AddressType = 2;
    memset(&target, 0, sizeof target);
    if (HmGetDiscTargetProperty(h, 0, 0, 0, &target) == HMX_STATUS_OK)
        memcpy(address.AddressUsing, target.PortWWN, sizeof address.AddressUsing);
    show("HmSendScsiPassThruFC", HmSendScsiPassThruFC(h, &address, cdb, sizeof cdb, NULL, 0, NULL, 0, sense,
                                                      sizeof sense));
    show("HmSendScsiInquiryCmdFC", HmSendScsiInquiryCmdFC(h, &address, resp, 36, sense, sizeof sense));
    show("HmSendScsiReadCapacityCmdFC", HmSendScsiReadCapacityCmdFC(h, &address, resp, 8, sense, sizeof sense));
    show("HmSendScsiReportLunsCmdFC",
         HmSendScsiReportLunsCmdFC(h, &address, luns, sizeof luns, sense, sizeof sense));
}

int main(int argc, char **argv) {
    int h = 0;
    uint32_t instance, st;
    if (argc != 2) {
        fprintf(stderr, "usage: every_call_client INSTANCE\n");
        return 2;
    }
    instance = (uint32_t)strtoul(argv[1], NULL, 0);
    frame_calls();
    st = HmOpenDevice(instance, &h);
    show("HmOpenDevice", st);
    if (st != HMX_STATUS_OK) return 1;
    property_calls(h);
    feature_and_failover_calls(h, (int)instance);
    nvram_and_vpd_calls(h);
    flash_calls(h);
    event_and_scsi_calls(h);
    show("HmCloseDevice", HmCloseDevice(h));
    return 0;
}

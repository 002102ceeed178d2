/* SPDX-License-Identifier: MIT */
/*
 * A small client of the public header for the adapter data tests. One run
 * opens adapter INSTANCE and performs one operation, printing every status
 * as "status=0x%08x" and binary data to files:
 *
 *   xfer_client layout INSTANCE                 count-first layout query
 *   xfer_client read INSTANCE REGION SIZE OUT    HmGetOptionRomEx
 *   xfer_client write INSTANCE REGION IN [ex2]   HmUpdateOptionRomEx(2)
 *   xfer_client writerom INSTANCE IN             HmUpdateOptionRom
 *   xfer_client offset-read INSTANCE OFF SIZE OUT
 *   xfer_client nvram-get INSTANCE SIZE OUT      HmGetNVRam
 *   xfer_client nvram-set INSTANCE IN            HmUpdateNVRam
 *   xfer_client vpd-get INSTANCE SIZE OUT        HmGetVpd
 *   xfer_client vpd-set INSTANCE IN              HmUpdateVpd
 *   xfer_client var-get INSTANCE VAR             NVRAM read, HmGetVariableValue
 *   xfer_client var-set INSTANCE VAR VALUE       NVRAM read, set, write back
 *   xfer_client props INSTANCE                   the four property records
 *   xfer_client repeat-write INSTANCE REGION IN COUNT [TAG]
 *                                                with TAG: creates ready.TAG once open and
 *                                                starts writing when a file "go" exists
 *   xfer_client badhandle                        calls with handle 0x7777
 *   xfer_client statuses INSTANCE                driver, port, statistics, beacon and CNA calls
 *   xfer_client churn INSTANCE COUNT             COUNT opens, queries and closes; failures
 *                                                and descriptors left open printed
 */
#define _POSIX_C_SOURCE 200809L
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "vxhmx.h"

static void sleep_ms(long ms) {
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&ts, NULL);
}

static unsigned long num(const char *s) { return strtoul(s, NULL, 0); }

static unsigned char *load(const char *path, unsigned long *size) {
    FILE *f = fopen(path, "rb");
    unsigned char *buf;
    long n;
    if (f == NULL) return NULL;
    if (fseek(f, 0, SEEK_END) != 0 || (n = ftell(f)) < 0 || fseek(f, 0, SEEK_SET) != 0) {
        fclose(f);
        return NULL;
    }
    buf = malloc(n > 0 ? (size_t)n : 1);
    if (buf != NULL && fread(buf, 1, (size_t)n, f) != (size_t)n) {
        free(buf);
        buf = NULL;
    }
    fclose(f);
    *size = (unsigned long)n;
    return buf;
}

static int save(const char *path, const unsigned char *buf, unsigned long size) {
    FILE *f = fopen(path, "wb");
    int ok;
    if (f == NULL) return 0;
    ok = fwrite(buf, 1, size, f) == size;
    return fclose(f) == 0 && ok;
}

/* Tells the test this process is ready, then waits (at most 30 s) for its go. */
static void wait_for_go(const char *tag) {
    char path[64];
    FILE *f;
    int waited;
    snprintf(path, sizeof path, "ready.%s", tag);
    f = fopen(path, "w");
    if (f != NULL) fclose(f);
    for (waited = 0; waited < 30000; waited += 5) {
        f = fopen("go", "r");
        if (f != NULL) {
            fclose(f);
            return;
        }
        sleep_ms(5);
    }
}

static void status(const char *what, uint32_t st) { printf("%s status=0x%08x\n", what, (unsigned)st); }

static int bad_handle_calls(void) {
    uint8_t buf[512];
    uint32_t size = sizeof buf;
    DEVICENODEPROPERTY node;
    HMX_OPT_ROM_LAYOUT layout;
    layout.NoOfRegions = 0;
    status("layout", HmGetOptionRomLayout(0x7777, 0, &layout));
    status("read", HmGetOptionRomEx(0x7777, 0, buf, sizeof buf, 0x07));
    status("write", HmUpdateOptionRomEx(0x7777, 0, buf, sizeof buf, 0x07));
    status("nvram", HmGetNVRam(0x7777, 0, 0, buf, sizeof buf));
    status("vpd", HmGetVpd(0x7777, 0, buf, &size));
    status("node", HmGetHbaDeviceNodeProperty(0x7777, &node));
    printf("var value=0x%08x\n", (unsigned)HmGetVariableValue(0x7777, buf, 17));
    status("setvar", HmSetVariableValue(0x7777, buf, 17, 1));
    status("reset", HmResetStatistics(0x7777, 0));
    return 0;
}

static int props(int h) {
    DEVICENODEPROPERTY node;
    DEVICEPORTPROPERTY port;
    CHIPPROPERTY chip;
    DRIVERPROPERTY drv;
    uint32_t st;
    int i;
    memset(&node, 0, sizeof node);
    st = HmGetHbaDeviceNodeProperty(h, &node);
    status("node", st);
    if (st == 0) {
        printf("wwn=");
        for (i = 0; i < 8; ++i) printf("%02x", node.WWN[i]);
        printf(" manufacturer=%s model=%s serial=%s ports=%u\n", node.Manufacturer, node.Model,
               (const char *)node.SerialNumber, (unsigned)node.NumberOfPorts);
        printf("driver=%s firmware=%s optionrom=%s bivalid=%u fw=%u.%u.%u efi=%u.%u fcode=%u.%u\n",
               node.DriverVersion, node.FirmwareVersion, node.OptionRomVersion, (unsigned)node.BIValid,
               node.BIFwVersion[0], node.BIFwVersion[1], node.BIFwVersion[2], node.BIEfiVersion[0],
               node.BIEfiVersion[1], node.BIFCodeVersion[0], node.BIFCodeVersion[1]);
    }
    memset(&port, 0, sizeof port);
    st = HmGetHbaDevicePortProperty(h, 0, &port);
    status("port", st);
    if (st == 0) {
        printf("wwpn=");
        for (i = 0; i < 8; ++i) printf("%02x", port.WWN[i]);
        printf(" portid=%02x%02x%02x state=%u speed=%u\n", port.PortID[0], port.PortID[1], port.PortID[2],
               port.PortState, (unsigned)port.PortSpeed);
    }
    memset(&chip, 0, sizeof chip);
    st = HmGetHbaDeviceChipProperty(h, &chip);
    status("chip", st);
    if (st == 0)
        printf("vendor=%04x device=%04x ssvid=%04x ssdid=%04x bus=%u slot=%u\n", chip.VendorID, chip.DeviceID,
               chip.SubVendorID, chip.SubSystemID, chip.PciBusNumber, chip.PciSlotNumber);
    memset(&drv, 0, sizeof drv);
    st = HmGetHbaDeviceDriverProperty(h, &drv);
    status("driver", st);
    if (st == 0) printf("driver version=%s\n", (const char *)drv.Version);
    return 0;
}

static int statuses(int h) {
    DRIVERPROPERTY drv;
    DEVICEPORTPROPERTY port;
    STATISTICS stats;
    uint32_t beacon = 0x5A5A;
    uint8_t cna[128];
    memset(&stats, 0, sizeof stats);
    status("driver", HmGetHbaDeviceDriverProperty(h, &drv));
    status("port", HmGetHbaDevicePortProperty(h, 0, &port));
    status("statistics", HmGetStatistics(h, 0, &stats));
    status("beacon-get", HmGetBeaconControl(h, &beacon));
    printf("beacon=0x%x\n", (unsigned)beacon);
    status("beacon-set", HmUpdateBeaconControl(h, 1));
    status("cna", HmGetCnaPortData(h, cna, sizeof cna));
    return 0;
}

/* Opens and closes one adapter again and again, as many short-lived
 * management programs on one host do; only failures are printed. */
/* Descriptors this process has open, the directory's own one not counted. */
static int open_descriptors(void) {
    DIR *d = opendir("/proc/self/fd");
    int n = -1;
    if (d == NULL) return -1;
    while (readdir(d) != NULL) ++n;
    closedir(d);
    return n - 2; /* "." and ".." */
}

static int churn(uint32_t inst, unsigned long count) {
    unsigned long n, failed = 0;
    const int before = open_descriptors();
    for (n = 0; n < count; ++n) {
        DEVICENODEPROPERTY node;
        DEVICEPORTPROPERTY port;
        int h = 0;
        uint32_t st = HmOpenDevice(inst, &h);
        if (st != 0) {
            status("churn open", st);
            ++failed;
            continue;
        }
        if ((st = HmGetHbaDeviceNodeProperty(h, &node)) != 0) {
            status("churn node", st);
            ++failed;
        }
        if ((st = HmGetHbaDevicePortProperty(h, 0, &port)) != 0) {
            status("churn port", st);
            ++failed;
        }
        st = HmCloseDevice(h);
        if (st != 0) {
            status("churn close", st);
            ++failed;
        }
    }
    /* The last close unloads the library: nothing of it may stay open. */
    printf("churn failed=%lu descriptors left=%d\n", failed, open_descriptors() - before);
    return 0;
}

static int layout_query(int h) {
    HMX_OPT_ROM_LAYOUT probe;
    HMX_OPT_ROM_LAYOUT *full;
    uint32_t st, i;
    memset(&probe, 0, sizeof probe);
    st = HmGetOptionRomLayout(h, 0, &probe);
    printf("probe status=0x%08x count=%u\n", (unsigned)st, (unsigned)probe.NoOfRegions);
    if (st != HMX_ERR_BUFFER_TOO_SMALL) return 0;
    full = calloc(1, sizeof *full + probe.NoOfRegions * sizeof(HMX_OPT_ROM_REGION));
    if (full == NULL) return 1;
    full->NoOfRegions = probe.NoOfRegions;
    st = HmGetOptionRomLayout(h, 0, full);
    printf("layout status=0x%08x size=0x%x count=%u\n", (unsigned)st, (unsigned)full->Size,
           (unsigned)full->NoOfRegions);
    for (i = 0; st == 0 && i < full->NoOfRegions; ++i)
        printf("region 0x%02x size 0x%x\n", (unsigned)full->Region[i].Region, (unsigned)full->Region[i].Size);
    free(full);
    return 0;
}

static int run(int h, int argc, char **argv) {
    const char *op = argv[1];
    unsigned long size = 0;
    unsigned char *buf = NULL;
    uint32_t st = 0;
    if (strcmp(op, "layout") == 0) return layout_query(h);
    if (strcmp(op, "props") == 0) return props(h);
    if (strcmp(op, "statuses") == 0) return statuses(h);
    if ((strcmp(op, "read") == 0 && argc == 6) || (strcmp(op, "offset-read") == 0 && argc == 6)) {
        size = num(argv[4]);
        buf = calloc(1, size ? size : 1);
        if (buf == NULL) return 1;
        st = op[0] == 'r' ? HmGetOptionRomEx(h, 0, buf, (uint32_t)size, (uint32_t)num(argv[3]))
                          : HmGetOptionRomOffset(h, 0, buf, (uint32_t)size, (uint32_t)num(argv[3]));
        status(op, st);
        if (st == 0 && !save(argv[5], buf, size)) st = 1;
    } else if ((strcmp(op, "write") == 0 && argc >= 5) ||
               (strcmp(op, "repeat-write") == 0 && (argc == 6 || argc == 7))) {
        unsigned long n, count = op[0] == 'r' ? num(argv[5]) : 1;
        buf = load(argv[4], &size);
        if (buf == NULL) return 1;
        if (op[0] == 'r' && argc == 7) wait_for_go(argv[6]);
        for (n = 0; n < count; ++n) {
            st = argc == 6 && strcmp(argv[5], "ex2") == 0
                     ? HmUpdateOptionRomEx2(h, 0, buf, (uint32_t)size, (uint32_t)num(argv[3]))
                     : HmUpdateOptionRomEx(h, 0, buf, (uint32_t)size, (uint32_t)num(argv[3]));
            status(op, st);
        }
    } else if (strcmp(op, "writerom") == 0 && argc == 4) {
        buf = load(argv[3], &size);
        if (buf == NULL) return 1;
        status(op, HmUpdateOptionRom(h, 0, buf, (uint32_t)size));
    } else if ((strcmp(op, "nvram-get") == 0 || strcmp(op, "vpd-get") == 0) && argc == 5) {
        uint32_t sz;
        size = num(argv[3]);
        buf = calloc(1, size ? size : 1);
        if (buf == NULL) return 1;
        sz = (uint32_t)size;
        st = op[0] == 'n' ? HmGetNVRam(h, 0, 1, buf, (uint32_t)size) : HmGetVpd(h, 0, buf, &sz);
        status(op, st);
        if (st == 0 && !save(argv[4], buf, size)) st = 1;
    } else if ((strcmp(op, "nvram-set") == 0 || strcmp(op, "vpd-set") == 0) && argc == 4) {
        uint32_t sz;
        buf = load(argv[3], &size);
        if (buf == NULL) return 1;
        sz = (uint32_t)size;
        st = op[0] == 'n' ? HmUpdateNVRam(h, 0, 1, buf, (uint32_t)size) : HmUpdateVpd(h, 0, buf, &sz);
        status(op, st);
        if (op[0] == 'v') printf("size=%u\n", (unsigned)sz);
    } else if ((strcmp(op, "var-get") == 0 && argc == 4) || (strcmp(op, "var-set") == 0 && argc == 5)) {
        unsigned char image[512];
        memset(image, 0, sizeof image);
        st = HmGetNVRam(h, 0, 1, image, sizeof image);
        status("nvram-get", st);
        if (st != 0) return 0;
        if (op[4] == 'g') {
            printf("value=0x%x\n", (unsigned)HmGetVariableValue(h, image, (uint32_t)num(argv[3])));
            return 0;
        }
        st = HmSetVariableValue(h, image, (uint32_t)num(argv[3]), (uint32_t)num(argv[4]));
        status("set", st);
        if (st == 0) status("nvram-set", HmUpdateNVRam(h, 0, 1, image, sizeof image));
        return 0;
    } else {
        fprintf(stderr, "xfer_client: bad arguments\n");
        return 2;
    }
    free(buf);
    return 0;
}

int main(int argc, char **argv) {
    int h = 0;
    uint32_t st;
    int rc;
    if (argc >= 2 && strcmp(argv[1], "badhandle") == 0) {
        /* Open one adapter so the library is loaded, then use a handle it never gave. */
        st = HmOpenDevice(0, &h);
        status("open", st);
        rc = bad_handle_calls();
        if (st == 0) {
            status("reset own", HmResetStatistics(h, 0));
            HmCloseDevice(h);
        }
        return rc;
    }
    if (argc == 4 && strcmp(argv[1], "churn") == 0) return churn((uint32_t)num(argv[2]), num(argv[3]));
    if (argc < 3) {
        fprintf(stderr, "xfer_client: bad arguments\n");
        return 2;
    }
    st = HmOpenDevice((uint32_t)num(argv[2]), &h);
    if (st != 0) {
        status("open", st);
        return 1;
    }
    rc = run(h, argc, argv);
    status("close", HmCloseDevice(h));
    return rc;
}

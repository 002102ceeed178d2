/* SPDX-License-Identifier: MIT */
/*
 * A small C client of the public header, run by the end-to-end tests
 * (inside the emulator for everything that touches an adapter).
 *
 *   hmx_client version             version texts and numbers, error texts
 *   hmx_client scan                open every instance 0..31, print them and
 *                                  the shared file, close all
 *   hmx_client open I [I ...]      open the given instances, print, close all
 *   hmx_client hold I DIR N        open I, create DIR/ready.N, wait for DIR/go,
 *                                  close; prints the open and close statuses
 *   hmx_client leave I             open I and exit without closing it
 *   hmx_client badhandles          calls with handles and instances that are wrong
 *   hmx_client shared              open counts and instance flags of the
 *                                  shared file, read byte by byte
 *   hmx_client features I          the feature list of instance I
 *   hmx_client failover I          failover capability and driver version
 */
#define _POSIX_C_SOURCE 200809L
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "vxhmx.h"

static int cmd_version(void) {
    int8_t text[17];
    char fo[32];
    uint32_t v = HmGetVersion(text, sizeof text);
    printf("HmGetVersion=0x%08X text=%s\n", (unsigned)v, (const char *)text);
    printf("HmGetVersion(null)=0x%08X\n", (unsigned)HmGetVersion(NULL, 0));
    v = IHmFoGetApiVersion(fo, sizeof fo);
    printf("IHmFoGetApiVersion=0x%08X text=%s\n", (unsigned)v, fo);
    printf("0x2000006D=%s\n", HmGetErrorString(HMX_ERR_DEVICE_NOT_FOUND));
    printf("0x20000048=%s\n", HmGetErrorString(0x20000048u));
    printf("2=%s\n", HmGetErrorString(2));
    return 0;
}

static int cmd_shared(void);

static int open_list(int argc, char **argv, int all) {
    int handles[32];
    int n = all ? 32 : argc;
    int i;
    for (i = 0; i < n && i < 32; ++i) {
        uint32_t inst = all ? (uint32_t)i : (uint32_t)strtoul(argv[i], NULL, 0);
        int h = 0;
        uint32_t st = HmOpenDevice(inst, &h);
        handles[i] = st == 0 ? h : 0;
        if (all && st == HMX_ERR_DEVICE_NOT_FOUND) continue; /* the empty rest of the table */
        printf("open %u: 0x%08X handle %d\n", (unsigned)inst, (unsigned)st, st == 0 ? h : 0);
    }
    if (all) cmd_shared();
    for (i = 0; i < n && i < 32; ++i) {
        if (handles[i] == 0) continue;
        printf("close %d: 0x%08X\n", handles[i], (unsigned)HmCloseDevice(handles[i]));
    }
    return 0;
}

static int file_exists(const char *path) { return access(path, F_OK) == 0; }

static void sleep_ms(long ms) {
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&ts, NULL);
}

static int cmd_hold(const char *inst, const char *dir, const char *tag) {
    char path[512];
    int h = 0, waited;
    uint32_t st = HmOpenDevice((uint32_t)strtoul(inst, NULL, 0), &h);
    printf("hold %s open: 0x%08X\n", tag, (unsigned)st);
    fflush(stdout);
    snprintf(path, sizeof path, "%s/ready.%s", dir, tag);
    FILE *f = fopen(path, "w");
    if (f != NULL) fclose(f);
    snprintf(path, sizeof path, "%s/go", dir);
    for (waited = 0; !file_exists(path) && waited < 30000; waited += 10) sleep_ms(10);
    if (st == 0) printf("hold %s close: 0x%08X\n", tag, (unsigned)HmCloseDevice(h));
    return 0;
}

static int cmd_shared(void) {
    /* Offsets of the shared file: entries of 258 bytes from 0, the eight
     * instance flag words at 8256. */
    FILE *f = fopen("/tmp/vxhmx.dat", "rb");
    long size;
    int i;
    unsigned char entry[258];
    if (f == NULL) {
        printf("shared: absent\n");
        return 0;
    }
    fseek(f, 0, SEEK_END);
    size = ftell(f);
    printf("shared: size %ld\n", size);
    for (i = 0; i < 32; ++i) {
        fseek(f, (long)i * 258, SEEK_SET);
        if (fread(entry, 1, sizeof entry, f) != sizeof entry) break;
        if (entry[0] == 0) continue;
        entry[239] = 0;
        printf("entry %d: %s host %u open %u\n", i, (const char *)entry, (unsigned)(entry[255] | (entry[256] << 8)),
               (unsigned)entry[257]);
    }
    for (i = 0; i < 8; ++i) {
        unsigned char w[4];
        fseek(f, 8256L + 4L * i, SEEK_SET);
        if (fread(w, 1, 4, f) != 4) break;
        printf("libinst %d: 0x%X\n", i, (unsigned)(w[0] | (w[1] << 8) | (w[2] << 16) | ((unsigned)w[3] << 24)));
    }
    fclose(f);
    return 0;
}

static int cmd_features(const char *inst) {
    int h = 0;
    uint32_t st = HmOpenDevice((uint32_t)strtoul(inst, NULL, 0), &h);
    unsigned char storage[4 + 8 * sizeof(HMX_HBA_FEATURE)];
    HMX_HBA_FEATURE_LIST *list = (HMX_HBA_FEATURE_LIST *)(void *)storage;
    uint32_t i;
    printf("open: 0x%08X\n", (unsigned)st);
    if (st != 0) return 1;
    list->Count = 1;
    st = HmGetHbaSupportedFeatureList(h, list);
    printf("room 1: 0x%08X count %u\n", (unsigned)st, (unsigned)list->Count);
    list->Count = 8;
    st = HmGetHbaSupportedFeatureList(h, list);
    printf("room 8: 0x%08X count %u\n", (unsigned)st, (unsigned)list->Count);
    for (i = 0; st == 0 && i < list->Count; ++i) {
        const HMX_HBA_FEATURE *f = &list->Feature[i];
        printf("%u %s group %u range %u-%u initial %u current %u flags 0x%X\n", (unsigned)f->FeatureId, f->Name,
               (unsigned)f->Group, (unsigned)f->Minimum, (unsigned)f->Maximum, (unsigned)f->InitialValue,
               (unsigned)f->CurrentValue, (unsigned)f->Flags);
    }
    printf("close: 0x%08X\n", (unsigned)HmCloseDevice(h));
    return 0;
}

static int cmd_failover(const char *inst) {
    int h = 0;
    uint32_t cap = 0;
    HMFO_DRIVER_VERSION v;
    uint32_t st = HmOpenDevice((uint32_t)strtoul(inst, NULL, 0), &h);
    printf("open: 0x%08X\n", (unsigned)st);
    if (st != 0) return 1;
    st = IHmFoGetFoCapability(h, &cap);
    printf("capability: 0x%08X 0x%08X\n", (unsigned)st, (unsigned)cap);
    memset(&v, 0, sizeof v);
    st = IHmFoGetFoDriverVersion(h, &v);
    v.Data[31] = 0;
    printf("driver version: 0x%08X %s\n", (unsigned)st, (const char *)v.Data);
    printf("bad handle: 0x%08X\n", (unsigned)IHmFoGetFoCapability(h + 40, &cap));
    {
        HMFO_SYS_PARAMS params;
        HMFO_SELECTOR sel;
        HMFO_STATISTICS stats;
        memset(&sel, 0xEE, sizeof sel);
        printf("sys params: 0x%08X\n", (unsigned)IHmFoGetSysParams(h, &params));
        printf("statistics: 0x%08X\n", (unsigned)IHmFoGetStatistics(h, &sel, &stats));
        printf("statistics, bad handle: 0x%08X\n", (unsigned)IHmFoGetStatistics(h + 40, &sel, &stats));
        printf("statistics, no record: 0x%08X\n", (unsigned)IHmFoGetStatistics(h, &sel, NULL));
    }
    printf("close: 0x%08X\n", (unsigned)HmCloseDevice(h));
    return 0;
}

static int cmd_badhandles(void) {
    int h = 0;
    uint32_t cap = 0;
    printf("close before load: 0x%08X\n", (unsigned)HmCloseDevice(1));
    printf("open 0: 0x%08X\n", (unsigned)HmOpenDevice(0, &h));
    {
        int other = 0;
        printf("open 7: 0x%08X\n", (unsigned)HmOpenDevice(7, &other));
        printf("open 40: 0x%08X\n", (unsigned)HmOpenDevice(40, &other));
    }
    printf("capability of 0: 0x%08X\n", (unsigned)IHmFoGetFoCapability(0, &cap));
    printf("close 77: 0x%08X\n", (unsigned)HmCloseDevice(77));
    printf("close %d: 0x%08X\n", h, (unsigned)HmCloseDevice(h));
    printf("close %d again: 0x%08X\n", h, (unsigned)HmCloseDevice(h));
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    if (strcmp(argv[1], "version") == 0) return cmd_version();
    if (strcmp(argv[1], "scan") == 0) return open_list(0, NULL, 1);
    if (strcmp(argv[1], "open") == 0) return open_list(argc - 2, argv + 2, 0);
    if (strcmp(argv[1], "hold") == 0 && argc == 5) return cmd_hold(argv[2], argv[3], argv[4]);
    if (strcmp(argv[1], "shared") == 0) return cmd_shared();
    if (strcmp(argv[1], "badhandles") == 0) return cmd_badhandles();
    if (strcmp(argv[1], "leave") == 0 && argc == 3) {
        int h = 0;
        printf("leave: 0x%08X\n", (unsigned)HmOpenDevice((uint32_t)strtoul(argv[2], NULL, 0), &h));
        return 0;
    }
    if (strcmp(argv[1], "features") == 0 && argc == 3) return cmd_features(argv[2]);
    if (strcmp(argv[1], "failover") == 0 && argc == 3) return cmd_failover(argv[2]);
    return 2;
}

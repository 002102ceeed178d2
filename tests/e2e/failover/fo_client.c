/* SPDX-License-Identifier: MIT */
/*
 * fo_client: drives the failover LUN and target data calls of libvxhmx
 * through its public header only, one command per run, against adapter
 * instance 0 (or the instance given with -i N).
 *
 *   fo_client [-i N] get lun|target live|store TARGET LUN
 *   fo_client [-i N] set lun|target TARGET LUN FIRST COUNT FLAGS
 *   fo_client [-i N] misuse
 *
 * TARGET and LUN are numbers or "all". A set builds COUNT entries (the
 * record's EntryCount; only 256 fit in it): LUNs 0.. of target FIRST for
 * LUN data, targets FIRST.. for target data.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vxhmx.h"

#define UNTOUCHED 0xA5A5A5A5u

static HMFO_LUN_DATA g_data; /* 8 KiB: kept off the stack */

static uint16_t selector(const char *text) {
    if (strcmp(text, "all") == 0) return HMFO_SELECT_ALL;
    return (uint16_t)strtoul(text, NULL, 0);
}

static void print_wwn(const uint8_t *w) {
    int i;
    for (i = 0; i < 8; ++i) printf("%02x", w[i]);
}

static void print_list(const char *what, uint32_t rc, const HMFO_LUN_DATA *d) {
    uint32_t i;
    printf("%s: 0x%08X", what, rc);
    if (d->EntryCount == UNTOUCHED) {
        printf(" untouched\n");
        return;
    }
    printf(" count %u\n", d->EntryCount);
    for (i = 0; i < d->EntryCount && i < HMFO_MAX_ENTRIES; ++i) {
        const HMFO_LUN_ENTRY *e = &d->Entry[i];
        printf("  %u:%u port ", e->TargetId, e->Lun);
        print_wwn(e->PortName);
        printf(" node ");
        print_wwn(e->NodeName);
        printf(" flags 0x%X paths %u\n", e->Flags, e->PathCount);
    }
}

static void fill(HMFO_LUN_DATA *d, int targets, uint16_t first, uint32_t count, uint32_t flags) {
    uint32_t i;
    memset(d, 0, sizeof *d);
    d->EntryCount = count;
    for (i = 0; i < count && i < HMFO_MAX_ENTRIES; ++i) {
        HMFO_LUN_ENTRY *e = &d->Entry[i];
        e->TargetId = (uint16_t)(targets ? first + i : first);
        e->Lun = (uint16_t)(targets ? 0 : i);
        e->PortName[0] = 0x21;
        e->PortName[6] = (uint8_t)(e->TargetId & 0xFF);
        e->PortName[7] = (uint8_t)(e->Lun & 0xFF);
        e->NodeName[0] = 0x20;
        e->NodeName[5] = (uint8_t)(e->Lun >> 8);
        e->NodeName[7] = 0xFE;
        e->Flags = flags;
        e->PathCount = 2;
    }
}

static int misuse(int handle, int instance) {
    HMFO_LUN_SELECT all = {HMFO_SELECT_ALL, HMFO_SELECT_ALL};
    static HMFO_TARGET_DATA tdata;
    const int bad = handle + 40;
    g_data.EntryCount = UNTOUCHED;
    printf("bad handle get lun: 0x%08X\n", IHmFoGetLunData(bad, instance, all, &g_data, 0));
    printf("bad handle get lun store: 0x%08X\n", IHmFoGetLunData(bad, instance, all, &g_data, 1));
    printf("bad handle get target: 0x%08X\n", IHmFoGetTargetData(bad, instance, all, &tdata, 0));
    printf("bad handle set lun: 0x%08X\n", IHmFoSetLunData(bad, instance, all, &g_data));
    printf("bad handle set target: 0x%08X\n", IHmFoSetTargetData(bad, instance, all, &tdata));
    printf("other instance: 0x%08X\n", IHmFoGetLunData(handle, instance + 1, all, &g_data, 0));
    printf("null record: 0x%08X 0x%08X\n", IHmFoGetLunData(handle, instance, all, NULL, 0),
           IHmFoSetTargetData(handle, instance, all, NULL));
    printf("record %s\n", g_data.EntryCount == UNTOUCHED ? "untouched" : "written");
    /* Entries the selector does not cover: the driver refuses the data. */
    fill(&g_data, 0, 7, 1, HMFO_FLAG_VISIBLE);
    {
        HMFO_LUN_SELECT target3 = {3, HMFO_SELECT_ALL};
        printf("outside selector: 0x%08X\n", IHmFoSetLunData(handle, instance, target3, &g_data));
    }
    return 0;
}

int main(int argc, char **argv) {
    int handle = 0, instance = 0, targets, argi = 1;
    uint32_t rc;
    if (argc > 2 && strcmp(argv[1], "-i") == 0) {
        instance = atoi(argv[2]);
        argi = 3;
    }
    if (argc - argi < 1) {
        fprintf(stderr, "usage: fo_client [-i N] get|set|misuse ...\n");
        return 2;
    }
    rc = HmOpenDevice((uint32_t)instance, &handle);
    if (rc != HMX_STATUS_OK) {
        printf("open %d: 0x%08X\n", instance, rc);
        return 1;
    }
    if (strcmp(argv[argi], "misuse") == 0) {
        misuse(handle, instance);
    } else if (strcmp(argv[argi], "get") == 0 && argc - argi == 5) {
        HMFO_LUN_SELECT sel;
        char what[64];
        const int store = strcmp(argv[argi + 2], "store") == 0;
        targets = strcmp(argv[argi + 1], "target") == 0;
        sel.TargetId = selector(argv[argi + 3]);
        sel.Lun = selector(argv[argi + 4]);
        g_data.EntryCount = UNTOUCHED;
        if (targets) {
            static HMFO_TARGET_DATA t;
            t.EntryCount = UNTOUCHED;
            rc = IHmFoGetTargetData(handle, instance, sel, &t, store);
            memcpy(&g_data, &t, sizeof t);
        } else {
            rc = IHmFoGetLunData(handle, instance, sel, &g_data, store);
        }
        snprintf(what, sizeof what, "get %s %s", argv[argi + 1], argv[argi + 2]);
        print_list(what, rc, &g_data);
    } else if (strcmp(argv[argi], "set") == 0 && argc - argi == 7) {
        HMFO_LUN_SELECT sel;
        targets = strcmp(argv[argi + 1], "target") == 0;
        sel.TargetId = selector(argv[argi + 2]);
        sel.Lun = selector(argv[argi + 3]);
        fill(&g_data, targets, selector(argv[argi + 4]), (uint32_t)strtoul(argv[argi + 5], NULL, 0),
             (uint32_t)strtoul(argv[argi + 6], NULL, 0));
        if (targets) {
            static HMFO_TARGET_DATA t;
            memcpy(&t, &g_data, sizeof t);
            rc = IHmFoSetTargetData(handle, instance, sel, &t);
        } else {
            rc = IHmFoSetLunData(handle, instance, sel, &g_data);
        }
        printf("set %s: 0x%08X\n", argv[argi + 1], rc);
    } else {
        fprintf(stderr, "fo_client: bad command\n");
        HmCloseDevice(handle);
        return 2;
    }
    HmCloseDevice(handle);
    return 0;
}

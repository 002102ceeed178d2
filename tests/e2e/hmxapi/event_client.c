/* SPDX-License-Identifier: MIT */
/*
 * Asynchronous events through the public header, run inside the emulator.
 *
 *   event_client events VXEMU STATE DIR
 *       opens instances 0, 1 and 2, switches their event reporting on, raises
 *       driver events through `VXEMU event --state STATE`, waits until the
 *       library fetched them and takes them with HmGetAen; then creates
 *       DIR/go and closes everything
 *   event_client watch I DIR
 *       opens instance I without switching events on, creates DIR/ready,
 *       waits for DIR/go and takes the events of the port
 */
#define _POSIX_C_SOURCE 200809L
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "vxhmx.h"

static const char *g_vxemu, *g_state;

static void sleep_ms(long ms) {
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&ts, NULL);
}

static int wait_file(const char *dir, const char *name) {
    char path[512];
    int waited;
    snprintf(path, sizeof path, "%s/%s", dir, name);
    for (waited = 0; access(path, F_OK) != 0; waited += 10) {
        if (waited > 90000) return 0;
        sleep_ms(10);
    }
    return 1;
}

static void touch(const char *dir, const char *name) {
    char path[512];
    FILE *f;
    snprintf(path, sizeof path, "%s/%s", dir, name);
    f = fopen(path, "w");
    if (f != NULL) fclose(f);
}

static int vxemu_event(const char *args) {
    char cmd[8192];
    snprintf(cmd, sizeof cmd, "%s event --state %s %s", g_vxemu, g_state, args);
    return system(cmd);
}

/* "a0 0 0x8010 0x8010 ..." with `count` codes taken from `codes` in turn. */
static int raise_codes(const char *port, const unsigned *codes, int ncodes, int count) {
    char args[4096];
    size_t len;
    int i;
    len = (size_t)snprintf(args, sizeof args, "%s", port);
    for (i = 0; i < count && len < sizeof args - 16; ++i)
        len += (size_t)snprintf(args + len, sizeof args - len, " 0x%X", codes[i % ncodes]);
    return vxemu_event(args);
}

/* Takes the events of a port into a buffer of `size` bytes whose records
 * start as 99 and prints what came back. */
static void take(const char *tag, int handle, uint32_t size) {
    ASYNCEVENT ev[80];
    uint32_t count = 12345, i, st;
    for (i = 0; i < 80; ++i) {
        ev[i].EventCode = 99;
        ev[i].Reserved[0] = ev[i].Reserved[1] = ev[i].Reserved[2] = 0;
    }
    st = HmGetAen(handle, ev, size, &count);
    printf("%s: HmGetAen(%u bytes)=0x%08X count %u:", tag, (unsigned)size, (unsigned)st, (unsigned)count);
    for (i = 0; i < count && i < 80; ++i) printf(" %u", (unsigned)ev[i].EventCode);
    printf("\n");
}

static int cmd_events(const char *dir) {
    static const unsigned old_ones[] = {0x8060};
    static const unsigned cycle[] = {0x8010, 0x8011, 0x8012, 0x8013};
    static const unsigned five[] = {0x8010, 0x8011, 0x8012, 0x8013, 0x8060};
    static const unsigned swapped[] = {0x8014, 0x8015, 0x8099};
    int h[3] = {0, 0, 0}, i;
    for (i = 0; i < 3; ++i) {
        printf("open %d: 0x%08X\n", i, (unsigned)HmOpenDevice((uint32_t)i, &h[i]));
        printf("HmEnableAen %d: 0x%08X\n", i, (unsigned)HmEnableAen(h[i]));
    }
    printf("HmEnableAen(bad handle): 0x%08X\n", (unsigned)HmEnableAen(77));
    printf("HmGetAen(null count): 0x%08X\n", (unsigned)HmGetAen(h[0], NULL, 0, NULL));
    fflush(stdout);
    /* 70 events on port 0: six of 0x8060 first, then 64 of the cycle. */
    if (raise_codes("a0 0", old_ones, 1, 6) != 0 || raise_codes("a0 0", cycle, 4, 64) != 0) return 1;
    if (raise_codes("a1 0", five, 5, 5) != 0 || raise_codes("a2 0", swapped, 3, 3) != 0) return 1;
    /* The library fetches 64 events per pass: port 0 needs two passes. */
    if (vxemu_event("--wait a0 0") != 0 || vxemu_event("--wait a1 0") != 0 || vxemu_event("--wait a2 0") != 0) return 1;
    take("port 0", h[0], 80 * sizeof(ASYNCEVENT));
    take("port 1", h[1], 32);
    take("port 1 again", h[1], 80 * sizeof(ASYNCEVENT));
    take("port 2", h[2], 80 * sizeof(ASYNCEVENT));
    fflush(stdout);
    touch(dir, "go");
    for (i = 0; i < 3; ++i) printf("close %d: 0x%08X\n", i, (unsigned)HmCloseDevice(h[i]));
    return 0;
}

static int cmd_watch(const char *inst, const char *dir) {
    int h = 0;
    uint32_t st = HmOpenDevice((uint32_t)strtoul(inst, NULL, 0), &h);
    printf("watch open: 0x%08X\n", (unsigned)st);
    fflush(stdout);
    touch(dir, "ready");
    if (!wait_file(dir, "go")) return 1;
    take("watch", h, 80 * sizeof(ASYNCEVENT));
    printf("watch close: 0x%08X\n", (unsigned)HmCloseDevice(h));
    return 0;
}

int main(int argc, char **argv) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    if (argc == 5 && strcmp(argv[1], "events") == 0) {
        g_vxemu = argv[2];
        g_state = argv[3];
        return cmd_events(argv[4]);
    }
    if (argc == 4 && strcmp(argv[1], "watch") == 0) return cmd_watch(argv[2], argv[3]);
    fprintf(stderr, "usage: event_client events VXEMU STATE DIR | watch I DIR\n");
    return 2;
}

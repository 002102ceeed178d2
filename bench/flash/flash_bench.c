/* SPDX-License-Identifier: MIT */
/*
 * Library side of the flash benchmark: moves 1 MiB of flash at offset 0
 * through the public calls, ITER times, and prints the mean time per MiB.
 *   flash_bench read|write INSTANCE ITER
 * Run inside vxemu (see flash_bench.sh); never on a real host.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "vxhmx.h"

#define MIB (1024u * 1024u)

static double now_ms(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

int main(int argc, char **argv) {
    int h = 0, i, iter;
    int write;
    uint8_t *buf;
    uint32_t st;
    double t0, ms;
    if (argc != 4 || (strcmp(argv[1], "read") != 0 && strcmp(argv[1], "write") != 0)) {
        fprintf(stderr, "usage: flash_bench read|write INSTANCE ITER\n");
        return 2;
    }
    write = argv[1][0] == 'w';
    iter = atoi(argv[3]);
    if (iter < 1) iter = 1;
    st = HmOpenDevice((uint32_t)atoi(argv[2]), &h);
    if (st != 0) {
        fprintf(stderr, "flash_bench: open failed 0x%08x\n", (unsigned)st);
        return 1;
    }
    buf = malloc(MIB);
    if (buf == NULL) return 1;
    /* Write back what the flash holds, so a run leaves it as it was. */
    st = HmGetOptionRomOffset(h, 0, buf, MIB, 0);
    t0 = now_ms();
    for (i = 0; st == 0 && i < iter; ++i)
        st = write ? HmUpdateOptionRomOffset(h, 0, buf, MIB, 0) : HmGetOptionRomOffset(h, 0, buf, MIB, 0);
    ms = (now_ms() - t0) / iter;
    HmCloseDevice(h);
    free(buf);
    if (st != 0) {
        fprintf(stderr, "flash_bench: %s failed 0x%08x\n", argv[1], (unsigned)st);
        return 1;
    }
    printf("%.3f\n", ms);
    return 0;
}

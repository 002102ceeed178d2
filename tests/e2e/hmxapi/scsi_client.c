/* SPDX-License-Identifier: MIT */
/*
 * SCSI pass-through through the public header, run inside the emulator.
 *
 *   scsi_client scsi I WWPN_A WWPN_B
 *       on instance I: INQUIRY, READ CAPACITY, a CHECK CONDITION and REPORT
 *       LUNS against target A (LUN 2 reports a unit attention), the refused
 *       calls, and REPORT LUNS against target B, which refuses the command
 *   scsi_client luns I WWPN
 *       REPORT LUNS against one target; prints the list
 */
#define _POSIX_C_SOURCE 200809L
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vxhmx.h"

static int parse_wwn(const char *text, uint8_t out[8]) {
    unsigned v[8];
    int i;
    if (sscanf(text, "%2x%2x%2x%2x%2x%2x%2x%2x", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]) != 8)
        return 0;
    for (i = 0; i < 8; ++i) out[i] = (uint8_t)v[i];
    return 1;
}

static void dest_of(DESTINATIONADDRESS *d, const uint8_t wwn[8], uint16_t lun) {
    memset(d, 0, sizeof *d);
    d->AddressType = 2;
    memcpy(d->AddressUsing, wwn, 8);
    d->LunNumber = lun;
}

static void print_bytes(const char *tag, const uint8_t *b, unsigned n) {
    unsigned i;
    printf("%s:", tag);
    for (i = 0; i < n; ++i) printf(" %02x", b[i]);
    printf("\n");
}

static void print_luns(const char *tag, uint32_t st, const uint8_t *buf, uint32_t size) {
    uint32_t len = ((uint32_t)buf[0] << 24) | ((uint32_t)buf[1] << 16) | ((uint32_t)buf[2] << 8) | buf[3];
    uint32_t i;
    printf("%s: 0x%08X list length %u luns:", tag, (unsigned)st, (unsigned)len);
    for (i = 8; i + 8 <= size && i < 8 + len; i += 8)
        printf(" %u", (unsigned)(((buf[i] & 0x3Fu) << 8) | buf[i + 1]));
    printf("\n");
}

static int cmd_scsi(int h, const uint8_t a[8], const uint8_t b[8]) {
    DESTINATIONADDRESS d;
    uint8_t resp[512], sense[64], cdb[17];
    uint32_t st;

    dest_of(&d, a, 0);
    memset(resp, 0xEE, sizeof resp);
    st = HmSendScsiInquiryCmdFC(h, &d, resp, sizeof resp, sense, sizeof sense);
    printf("inquiry lun 0: 0x%08X type %02x vendor %.8s product %.16s after %02x\n", (unsigned)st, resp[0],
           (const char *)resp + 8, (const char *)resp + 16, resp[96]);

    dest_of(&d, a, 1);
    memset(resp, 0, sizeof resp);
    st = HmSendScsiReadCapacityCmdFC(h, &d, resp, 8, sense, sizeof sense);
    print_bytes("read capacity lun 1", resp, 8);
    printf("read capacity lun 1: 0x%08X\n", (unsigned)st);

    dest_of(&d, a, 2);
    memset(sense, 0, sizeof sense);
    st = HmSendScsiReadCapacityCmdFC(h, &d, resp, 8, sense, 18);
    printf("read capacity lun 2: 0x%08X %s\n", (unsigned)st, HmGetErrorString(st));
    print_bytes("sense", sense, 20);

    /* Refused before anything is sent. */
    memset(cdb, 0, sizeof cdb);
    cdb[0] = 0x12;
    dest_of(&d, a, 0);
    printf("17-byte command: 0x%08X\n", (unsigned)HmSendScsiPassThruFC(h, &d, cdb, 17, NULL, 0, resp, 36, sense, 18));
    printf("both buffers: 0x%08X\n",
           (unsigned)HmSendScsiPassThruFC(h, &d, cdb, 6, resp, 36, resp + 64, 36, sense, 18));
    d.AddressType = 1;
    printf("address type 1: 0x%08X\n", (unsigned)HmSendScsiPassThruFC(h, &d, cdb, 6, NULL, 0, resp, 36, sense, 18));
    dest_of(&d, a, 0);
    printf("bad handle: 0x%08X\n", (unsigned)HmSendScsiInquiryCmdFC(h + 40, &d, resp, 36, sense, 18));

    /* TEST UNIT READY: no data either way. */
    memset(cdb, 0, sizeof cdb);
    printf("test unit ready: 0x%08X\n", (unsigned)HmSendScsiPassThruFC(h, &d, cdb, 6, NULL, 0, NULL, 0, NULL, 0));

    dest_of(&d, a, 0);
    memset(resp, 0, sizeof resp);
    st = HmSendScsiReportLunsCmdFC(h, &d, resp, 256, sense, 18);
    print_luns("report luns A", st, resp, 256);

    dest_of(&d, b, 0);
    memset(resp, 0, sizeof resp);
    memset(sense, 0, sizeof sense);
    st = HmSendScsiReportLunsCmdFC(h, &d, resp, 256, sense, 18);
    print_luns("report luns B", st, resp, 256);
    printf("report luns B: %s; last lun probed %u\n", HmGetErrorString(st), (unsigned)d.LunNumber);
    print_bytes("report luns B sense", sense, 18);
    return 0;
}

static int cmd_luns(int h, const uint8_t wwn[8]) {
    DESTINATIONADDRESS d;
    uint8_t resp[4096], sense[18];
    uint32_t st;
    dest_of(&d, wwn, 0);
    memset(resp, 0, sizeof resp);
    st = HmSendScsiReportLunsCmdFC(h, &d, resp, sizeof resp, sense, sizeof sense);
    print_luns("luns", st, resp, sizeof resp);
    return 0;
}

int main(int argc, char **argv) {
    uint8_t a[8], b[8];
    int h = 0, rc = 2;
    uint32_t st;
    if (argc < 4 || !parse_wwn(argv[3], a) || (argc > 4 && !parse_wwn(argv[4], b))) {
        fprintf(stderr, "usage: scsi_client scsi I WWPN_A WWPN_B | luns I WWPN\n");
        return 2;
    }
    st = HmOpenDevice((uint32_t)strtoul(argv[2], NULL, 0), &h);
    printf("open: 0x%08X\n", (unsigned)st);
    if (st != 0) return 1;
    if (strcmp(argv[1], "scsi") == 0 && argc == 5) rc = cmd_scsi(h, a, b);
    else if (strcmp(argv[1], "luns") == 0 && argc == 4) rc = cmd_luns(h, a);
    printf("close: 0x%08X\n", (unsigned)HmCloseDevice(h));
    return rc;
}

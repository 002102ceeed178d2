/* SPDX-License-Identifier: MIT */
/* A client built against an installed libvxhmx: it needs nothing but the
 * installed header and library, and no adapter. */
#include <stdio.h>
#include <string.h>

#include <vxhmx.h>

int main(void) {
    int8_t version[32];
    memset(version, 0, sizeof version);
    uint32_t number = HmGetVersion(version, sizeof version);
    printf("%s %08x\n", (const char *)version, number);
    printf("%s\n", HmGetErrorString(HMX_ERR_DEVICE_NOT_FOUND));
    return number == 0x05000700u ? 0 : 1;
}

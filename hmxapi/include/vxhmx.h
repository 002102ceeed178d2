/* SPDX-License-Identifier: MIT */
/*
 * vxhmx.h - public interface of libvxhmx, the Varnix adapter management
 * library. Plain C; every call returns a 32-bit status (0 = success, a
 * 0x200000nn library code, or an errno value for a system failure) unless
 * its comment says otherwise.
 */
#ifndef VXHMX_H
#define VXHMX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VXHMX_API __attribute__((visibility("default")))
#else
#define VXHMX_API
#endif

/* ---- Library frame ---------------------------------------------------- */

/* Copies "v5.00 build7Pre1" and its terminating zero (17 bytes) into
 * pVersion when it is not null; VersionSize is not consulted, so the buffer
 * must hold at least 17 bytes. Returns the version number 0x05000700, not a
 * status. Works without any adapter being opened. */
VXHMX_API uint32_t HmGetVersion(int8_t *pVersion, uint32_t VersionSize);

/* ---- Failover interface ----------------------------------------------- */

/* The failover driver version record, as the driver returns it (100 bytes). */
typedef struct _HMFO_DRIVER_VERSION {
    uint8_t Data[100];
} HMFO_DRIVER_VERSION;

/* Writes "3.0.1 build6" into buffer, cut to size - 1 characters and
 * terminated; nothing is written when buffer is null or size is 0. Always
 * returns 0x3000106, the interface version one byte per part. */
VXHMX_API uint32_t IHmFoGetApiVersion(char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* VXHMX_H */

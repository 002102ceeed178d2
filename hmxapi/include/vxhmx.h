/* SPDX-License-Identifier: MIT */
/*
 * vxhmx.h - public interface of libvxhmx, the Varnix adapter management
 * library. Plain C; every call returns a 32-bit status (0 = success, a
 * 0x200000nn library code, or an errno value for a system failure) unless
 * its comment says otherwise.
 *
 * Locking: the library is meant to be called from one thread of a process
 * (the library's own event thread only reads the adapter table). Between
 * processes, opens and closes of adapters are serialised by the library's
 * System V semaphore; callers take no lock themselves.
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

/* ---- Status codes ----------------------------------------------------- */
/* HmGetErrorString gives the text of each. Codes without a constant here
 * (0x20000001, 0x20000048, 0x20000078..0x2000007C) have no text of their own. */
#define HMX_STATUS_OK                          0x00000000u
#define HMX_ERR_INVALID_COMMAND_CODE           0x20000002u
#define HMX_ERR_INVALID_VERSION_LEVEL          0x20000003u
#define HMX_ERR_LOGICAL_ERROR                  0x20000004u
#define HMX_ERR_INVALID_IU_SIZE                0x20000005u
#define HMX_ERR_LOGICAL_BUSY                   0x20000006u
#define HMX_ERR_PROTOCOL_ERROR                 0x20000007u
#define HMX_ERR_NO_ADDITIONAL_EXPLANATION      0x20000008u
#define HMX_ERR_IE_LIST_NA                     0x20000009u
#define HMX_ERR_IE_TYPE_NA                     0x2000000Au
#define HMX_ERR_DOMAIN_ID_NA                   0x2000000Bu
#define HMX_ERR_INBAND_MGMT_ADDR_NA            0x2000000Cu
#define HMX_ERR_FABRIC_NAME_NA                 0x2000000Du
#define HMX_ERR_LOGICAL_IE_NAME_NA             0x2000000Eu
#define HMX_ERR_MGMT_ADDR_LIST_NA              0x2000000Fu
#define HMX_ERR_IE_ATTR_LIST_NA                0x20000010u
#define HMX_ERR_PORT_LIST_NA                   0x20000011u
#define HMX_ERR_PORT_TYPE_NA                   0x20000012u
#define HMX_ERR_PHYS_PORT_ID_NA                0x20000013u
#define HMX_ERR_LOGICAL_PORT_NAME_NA           0x20000014u
#define HMX_ERR_ATTACHED_PORT_NAME_LIST_NA     0x20000015u
#define HMX_ERR_PORT_ATTR_LIST_NA              0x20000016u
#define HMX_ERR_PORT_STATE_NA                  0x20000017u
#define HMX_ERR_SET_LOGICAL_IE_NAME            0x20000018u
#define HMX_ERR_SET_LOGICAL_PORT_NAME          0x20000019u
#define HMX_ERR_AUTHENTICATION_EXCEPTION       0x2000001Au
#define HMX_ERR_RESERVED_CODE                  0x2000001Bu
#define HMX_ERR_MS_COMMAND_NOT_SUPPORTED       0x2000001Cu
#define HMX_ERR_VENDOR_UNIQUE                  0x2000001Du
#define HMX_ERR_MS_RESERVED                    0x2000001Eu
#define HMX_ERR_MS_BUFFER_NOT_BIG_ENOUGH       0x2000001Fu
#define HMX_ERR_PORT_ID_NOT_REGISTERED         0x20000020u
#define HMX_ERR_PORT_NAME_NOT_REGISTERED       0x20000021u
#define HMX_ERR_NODE_NAME_NOT_REGISTERED       0x20000022u
#define HMX_ERR_COS_NOT_REGISTERED             0x20000023u
#define HMX_ERR_NODE_IP_NOT_REGISTERED         0x20000024u
#define HMX_ERR_IPA_NOT_REGISTERED             0x20000025u
#define HMX_ERR_FC4_TYPES_NOT_REGISTERED       0x20000026u
#define HMX_ERR_SYM_PORT_NAME_NOT_REGISTERED   0x20000027u
#define HMX_ERR_SYM_NODE_NAME_NOT_REGISTERED   0x20000028u
#define HMX_ERR_PORT_TYPE_NOT_REGISTERED       0x20000029u
#define HMX_ERR_PORT_IP_NOT_REGISTERED         0x2000002Au
#define HMX_ERR_FABRIC_PORT_NAME_NOT_REGISTERED 0x2000002Bu
#define HMX_ERR_HARD_ADDR_NOT_REGISTERED       0x2000002Cu
#define HMX_ERR_ACCESS_DENIED                  0x2000002Du
#define HMX_ERR_UNACCEPTABLE_PORT_ID           0x2000002Eu
#define HMX_ERR_DATABASE_EMPTY                 0x2000002Fu
#define HMX_ERR_NO_OBJECT_IN_SCOPE             0x20000030u
#define HMX_ERR_INVALID_WWN                    0x20000031u
#define HMX_ERR_PLATFORM_NAME_NOT_EXIST        0x20000032u
#define HMX_ERR_PLATFORM_NAME_EXISTS           0x20000033u
#define HMX_ERR_PLATFORM_NODE_NAME_NOT_EXIST   0x20000034u
#define HMX_ERR_PLATFORM_NODE_NAME_EXISTS      0x20000035u
#define HMX_ERR_AUTHORIZATION_EXCEPTION        0x20000036u
#define HMX_ERR_NO_MS_RESPONSE                 0x20000037u
#define HMX_ERR_SCSI_CHECK_CONDITION           0x20000040u
#define HMX_ERR_SCSI_CONDITION_MET             0x20000041u
#define HMX_ERR_SCSI_BUSY                      0x20000042u
#define HMX_ERR_SCSI_INTERMEDIATE              0x20000043u
#define HMX_ERR_SCSI_INTERMEDIATE_COND_MET     0x20000044u
#define HMX_ERR_SCSI_RESERVATION_CONFLICT      0x20000045u
#define HMX_ERR_SCSI_COMMAND_TERMINATED        0x20000046u
#define HMX_ERR_SCSI_QUEUE_FULL                0x20000047u
#define HMX_ERR_SCSI_UNKNOWN_STATUS            0x20000049u
#define HMX_ERR_INVALID_PARAMETER              0x20000064u
#define HMX_ERR_INVALID_HANDLE                 0x20000065u
#define HMX_ERR_NOT_SUPPORTED                  0x20000066u
#define HMX_ERR_DEVICE_BUSY                    0x20000067u
#define HMX_ERR_REQUEST_PENDING                0x20000068u
#define HMX_ERR_REQUEST_SUSPENDED              0x20000069u
#define HMX_ERR_REQUEST_RETRY_PENDING          0x2000006Au
#define HMX_ERR_DATA_OVERRUN                   0x2000006Bu
#define HMX_ERR_DATA_UNDERRUN                  0x2000006Cu
#define HMX_ERR_DEVICE_NOT_FOUND               0x2000006Du
#define HMX_ERR_COPY_MEMORY_FAILED             0x2000006Eu
#define HMX_ERR_MAILBOX_FAILED                 0x2000006Fu
#define HMX_ERR_INVALID_SUBCODE                0x20000070u
#define HMX_ERR_UNSUPPORTED_VERSION            0x20000071u
#define HMX_ERR_BUFFER_TOO_SMALL               0x20000072u
#define HMX_ERR_INVALID_REQUEST                0x20000073u
#define HMX_ERR_OUT_OF_MEMORY                  0x20000074u
#define HMX_ERR_UNKNOWN                        0x20000075u
#define HMX_ERR_INVALID_CONFIG_SETTING         0x20000076u
#define HMX_ERR_NOT_FROM_DEVICE                0x20000077u
#define HMX_ERR_NO_OPTION_LINE                 0x20000078u /* no text of its own */
#define HMX_ERR_DRIVER_STATUS_23               0x2000007Bu /* no text of its own */
#define HMX_ERR_NVRAM_CHECKSUM                 0x2000007Du
#define HMX_ERR_FIRMWARE_STATE                 0x2000007Eu

/* ---- Library frame ---------------------------------------------------- */

/* Copies "v5.00 build7Pre1" and its terminating zero (17 bytes) into
 * pVersion when it is not null; VersionSize is not consulted, so the buffer
 * must hold at least 17 bytes. Returns the version number 0x05000700, not a
 * status. Works without any adapter being opened. */
VXHMX_API uint32_t HmGetVersion(int8_t *pVersion, uint32_t VersionSize);

/* Opens adapter Instance (0..31, the library's adapter index) and stores
 * its handle in *pDeviceHandle. The first open loads the library: it must
 * run as root, finds the driver's adapters and attaches the shared state
 * file /tmp/vxhmx.dat with its semaphores (held around the open).
 * Returns 0; HMX_ERR_INVALID_PARAMETER (null pDeviceHandle or Instance
 * above 31); HMX_ERR_UNKNOWN (load failed, or the open failed without an
 * operating-system error); HMX_ERR_DEVICE_NOT_FOUND (no adapters, or no
 * adapter at Instance); HMX_ERR_NOT_SUPPORTED (shared state not in use);
 * HMX_ERR_OUT_OF_MEMORY (shared state not set up); or the errno of a
 * failing open of the driver node. */
VXHMX_API uint32_t HmOpenDevice(uint32_t Instance, int *pDeviceHandle);

/* Closes a handle from HmOpenDevice; the last close in the process
 * unloads the library (and, for the last process, removes the shared state
 * file and semaphores). A handle that matches no open adapter is not an
 * error. Takes the shared-state semaphore around the close.
 * Returns 0; HMX_ERR_NOT_SUPPORTED (shared state not in use);
 * HMX_ERR_INVALID_HANDLE (shared state cannot be attached); the errno of a
 * failing close; or HMX_ERR_UNKNOWN. */
VXHMX_API uint32_t HmCloseDevice(int DeviceHandle);

/* Text of a status code. Codes without a text of their own give
 * "Unknown Error %xh." (codes above 0x1FFFFFFF) or "System Error %d."
 * (errno values), formatted into one static buffer that the next such call
 * overwrites. Never returns null. Needs no load; not thread-safe. */
VXHMX_API const char *HmGetErrorString(uint32_t ErrorCode);

/* One record of the adapter feature list (88 bytes). */
typedef struct _HMX_HBA_FEATURE {
    uint32_t Version;      /* 1 */
    uint32_t Size;         /* 88 */
    uint32_t FeatureId;    /* 1, 2, 4, 8 or 16 */
    uint32_t Group;        /* 2 = configuration store mode, 1 = target binding */
    uint32_t Minimum;
    uint32_t Maximum;
    uint32_t InitialValue;
    uint32_t CurrentValue;
    uint32_t Flags;        /* 0x62; 0x72 when set from the driver option line */
    uint32_t Reserved;
    char Name[48];
} HMX_HBA_FEATURE;

/* The list passed to HmGetHbaSupportedFeatureList: Count records of room. */
typedef struct _HMX_HBA_FEATURE_LIST {
    uint32_t Count;
    HMX_HBA_FEATURE Feature[1]; /* Count records follow */
} HMX_HBA_FEATURE_LIST;

/* Fills pList with the driver's binding and configuration-store features,
 * their current values taken from the driver's option line in the first
 * module configuration file that exists. pList->Count is the room on input
 * and the number of records written (or needed) on output.
 * Returns 0; HMX_ERR_INVALID_PARAMETER (null pList or unknown handle);
 * HMX_ERR_BUFFER_TOO_SMALL (Count set to the number needed);
 * HMX_ERR_OUT_OF_MEMORY. No lock is taken. */
VXHMX_API uint32_t HmGetHbaSupportedFeatureList(int Device, HMX_HBA_FEATURE_LIST *pList);

/* ---- Failover interface ----------------------------------------------- */

/* The failover driver version record, as the driver returns it (100 bytes). */
typedef struct _HMFO_DRIVER_VERSION {
    uint8_t Data[100];
} HMFO_DRIVER_VERSION;

#define HMFO_CAPABILITY_BASIC    0x30000002u
#define HMFO_CAPABILITY_FAILOVER 0x30000004u

/* Writes "3.0.1 build6" into buffer, cut to size - 1 characters and
 * terminated; nothing is written when buffer is null or size is 0. Always
 * returns 0x3000106, the interface version one byte per part. */
VXHMX_API uint32_t IHmFoGetApiVersion(char *buffer, uint32_t size);

/* Stores the failover capability of the adapter in *pCapability:
 * HMFO_CAPABILITY_FAILOVER when the driver reports failover support for
 * it, else HMFO_CAPABILITY_BASIC (also left there on failure).
 * Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null
 * pCapability). No driver request, no lock. */
VXHMX_API uint32_t IHmFoGetFoCapability(int Device, uint32_t *pCapability);

/* Reads the failover driver's 100-byte version record into *pVersion.
 * Returns 0; HMX_ERR_DEVICE_NOT_FOUND (bad handle); HMX_ERR_NOT_SUPPORTED
 * (adapter served through sysfs, or the driver rejects the request);
 * HMX_ERR_INVALID_PARAMETER (null pVersion); HMX_ERR_OUT_OF_MEMORY; an
 * errno value when the request itself fails; or the mapped driver status.
 * No lock is taken. */
VXHMX_API uint32_t IHmFoGetFoDriverVersion(int Device, HMFO_DRIVER_VERSION *pVersion);

/* Failover records whose contents are the driver's; only their sizes are
 * fixed. A selector addresses one adapter's LUN or path: the library puts
 * the adapter's driver instance into its first two bytes. */
typedef struct _HMFO_SYS_PARAMS {
    uint8_t Data[64];
} HMFO_SYS_PARAMS;

typedef struct _HMFO_PATH_REQUEST {
    uint8_t Data[40];
} HMFO_PATH_REQUEST;

typedef struct _HMFO_SELECTOR {
    uint8_t Data[32];
} HMFO_SELECTOR;

typedef struct _HMFO_STATISTICS {
    uint8_t Data[8];
} HMFO_STATISTICS;

/* The failover calls below send one request to the adapter's driver and
 * share their statuses: 0; HMX_ERR_INVALID_PARAMETER (a null record);
 * HMX_ERR_DEVICE_NOT_FOUND (bad handle); HMX_ERR_NOT_SUPPORTED (adapter
 * served through sysfs, or the driver rejects the request);
 * HMX_ERR_OUT_OF_MEMORY; an errno value when the request itself fails;
 * otherwise the driver's status mapped (unknown driver statuses read as 0).
 * No lock is taken. */

/* Reads the driver's failover system parameters. */
VXHMX_API uint32_t IHmFoGetSysParams(int Device, HMFO_SYS_PARAMS *pParams);
/* Sets the driver's failover system parameters. */
VXHMX_API uint32_t IHmFoSetSysParams(int Device, const HMFO_SYS_PARAMS *pParams);
/* Reads the path list selected by pRequest into pPaths (PathsSize bytes). */
VXHMX_API uint32_t IHmFoGetPaths(int Device, const HMFO_PATH_REQUEST *pRequest, void *pPaths, uint32_t PathsSize);
/* Makes the path named by pPath the current one. */
VXHMX_API uint32_t IHmFoSetCurrentPath(int Device, const HMFO_SELECTOR *pPath);
/* Reads the failover statistics of the selected LUN or path. */
VXHMX_API uint32_t IHmFoGetStatistics(int Device, const HMFO_SELECTOR *pSelect, HMFO_STATISTICS *pStats);
/* Clears the failover statistics of the selected LUN or path. */
VXHMX_API uint32_t IHmFoResetStatistics(int Device, const HMFO_SELECTOR *pSelect);

#ifdef __cplusplus
}
#endif

#endif /* VXHMX_H */

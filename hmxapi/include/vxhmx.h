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

/* Public status of a driver completion code ext_stat (the Status word of a
 * driver request); for SCSI completions (15) the low byte of ext_dstat, the
 * SCSI status, decides. Codes the driver may add later map to
 * HMX_ERR_NOT_SUPPORTED. Needs no load. */
VXHMX_API uint32_t HmXlateHMXErr(uint32_t ext_stat, uint32_t ext_dstat);

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

/* ---- Failover LUN and target data ---- */

/* Selects by target and LUN; HMFO_SELECT_ALL in a field selects every one. */
#define HMFO_SELECT_ALL 0xFFFFu
typedef struct _HMFO_LUN_SELECT {
    uint16_t TargetId;
    uint16_t Lun;
} HMFO_LUN_SELECT;

/* The driver's 32-byte request of the LUN and target data commands, in
 * little-endian byte order on the wire: drvr_inst at 0, FromStore at 2
 * (1 = the driver's saved configuration instead of its live view; 0 in a
 * write), TargetId at 4, Lun at 6, the rest zero. A write is followed by
 * its entries, 32 bytes each, at most HMFO_MAX_ENTRIES. */
typedef struct _HMFO_DATA_REQUEST {
    uint16_t drvr_inst;
    uint8_t FromStore;
    uint8_t Reserved1;
    uint16_t TargetId;
    uint16_t Lun;
    uint8_t Reserved2[24];
} HMFO_DATA_REQUEST;

/* The driver's reply list: this 32-byte header, then EntryCount entries. */
typedef struct _HMFO_DATA_LIST_HEADER {
    uint32_t EntryCount;
    uint8_t Reserved[28];
} HMFO_DATA_LIST_HEADER;

#define HMFO_FLAG_VISIBLE   0x1u /* the LUN or target is presented to the host */
#define HMFO_FLAG_PREFERRED 0x2u /* this port is the preferred path */

/* One LUN (or, in target data, one target) as the driver reports it. */
typedef struct _HMFO_LUN_ENTRY {
    uint16_t TargetId;
    uint16_t Lun;
    uint8_t PortName[8];
    uint8_t NodeName[8];
    uint32_t Flags;
    uint16_t PathCount;
    uint8_t Reserved[6];
} HMFO_LUN_ENTRY;
typedef HMFO_LUN_ENTRY HMFO_TARGET_ENTRY;

#define HMFO_MAX_ENTRIES 256

typedef struct _HMFO_LUN_DATA {
    uint32_t EntryCount;
    uint8_t Reserved[4];
    HMFO_LUN_ENTRY Entry[HMFO_MAX_ENTRIES];
} HMFO_LUN_DATA;

typedef struct _HMFO_TARGET_DATA {
    uint32_t EntryCount;
    uint8_t Reserved[4];
    HMFO_TARGET_ENTRY Entry[HMFO_MAX_ENTRIES];
} HMFO_TARGET_DATA;

/* Reads the failover data of the LUNs (targets) chosen by Select into
 * *pData. ApiIndex is the adapter's library instance, the one Device was
 * opened for (HmOpenDevice's Instance).
 * FromStore 0 asks the driver for its live view; the list it returns may be
 * longer than HMFO_MAX_ENTRIES: only the first HMFO_MAX_ENTRIES entries are
 * kept, EntryCount says how many. FromStore non-zero reads the saved
 * configuration: drivers from 6.6.0 on (except 6.6.0 betas 1 to 8) keep it
 * themselves and are asked for it; older drivers keep it in a configuration
 * file this library does not handle, so the call returns
 * HMX_ERR_NOT_SUPPORTED and leaves *pData as it was.
 * Returns 0; HMX_ERR_INVALID_PARAMETER (null pData, or ApiIndex not the
 * handle's instance); HMX_ERR_DEVICE_NOT_FOUND (bad handle);
 * HMX_ERR_NOT_SUPPORTED (adapter served through sysfs, the driver rejects
 * the request, or the older configuration file); HMX_ERR_OUT_OF_MEMORY; an
 * errno value when the request itself fails; otherwise the driver's status
 * mapped. *pData is written only on success. No lock is taken. */
VXHMX_API uint32_t IHmFoGetLunData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, HMFO_LUN_DATA *pData,
                                   int FromStore);
/* The same for the driver's per-target data; Select.Lun is not used. */
VXHMX_API uint32_t IHmFoGetTargetData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, HMFO_TARGET_DATA *pData,
                                      int FromStore);

/* Saves the first EntryCount (at most HMFO_MAX_ENTRIES) entries of *pData as
 * the configuration of the LUNs (targets) chosen by Select: the driver
 * replaces the saved entries Select covers and applies them at once. Only
 * drivers that keep the configuration themselves take it; for older ones
 * the call returns HMX_ERR_NOT_SUPPORTED and nothing is sent. Statuses as
 * for IHmFoGetLunData. */
VXHMX_API uint32_t IHmFoSetLunData(int Device, int ApiIndex, HMFO_LUN_SELECT Select, const HMFO_LUN_DATA *pData);
VXHMX_API uint32_t IHmFoSetTargetData(int Device, int ApiIndex, HMFO_LUN_SELECT Select,
                                      const HMFO_TARGET_DATA *pData);

/* ==== Adapter data: properties, NVRAM variables, flash, NVRAM and VPD ==== */
/*
 * Every call below takes a handle from HmOpenDevice first and returns
 * HMX_ERR_INVALID_HANDLE for a bad one before any adapter work. Results of
 * the transport are converted the same way everywhere: a driver completion
 * code through HmXlateHMXErr's table, a failing system call as its errno
 * value, any other transport failure as HMX_ERR_UNKNOWN. Records are filled
 * only when the adapter returned data; a data overrun or underrun still
 * fills the record and then returns HMX_ERR_DATA_OVERRUN or
 * HMX_ERR_DATA_UNDERRUN. All multi-byte fields are host-order integers.
 */

/* Node (adapter) properties, 388 bytes. */
typedef struct _DEVICENODEPROPERTY {
    uint8_t  WWN[8];               /* node world-wide name */
    char     Manufacturer[80];
    char     Model[32];            /* at most 15 characters and a zero */
    uint8_t  SerialNumber[32];     /* at most 31 characters and a zero */
    char     DriverVersion[32];
    char     FirmwareVersion[32];
    char     OptionRomVersion[32]; /* boot code version text */
    uint16_t NumberOfPorts;
    uint16_t InterfaceType;
    uint32_t DriverAttributes;
    uint32_t FirmwareAttributes;
    uint32_t BIValid;              /* 0x1 BIFwVersion, 0x2 BIEfiVersion, 0x4 BIFCodeVersion valid */
    uint8_t  BIFwVersion[4];       /* firmware version stored in flash */
    uint8_t  BIEfiVersion[4];      /* EFI driver version stored in flash */
    uint8_t  BIFCodeVersion[4];    /* FCode version stored in flash */
    uint32_t Reserved[28];
} DEVICENODEPROPERTY;

/* Port properties, 148 bytes. */
typedef struct _DEVICEPORTPROPERTY {
    uint8_t  WWN[8];               /* port world-wide name */
    uint8_t  PortID[3];            /* 24-bit Fibre Channel address, high byte first */
    uint8_t  PortType;
    uint8_t  PortState;            /* 3 up (record state 2), 1 down (record state 0), else 2 */
    uint8_t  ConnectionMode;
    uint16_t DiscPortCount;
    uint16_t DiscTargetCount;
    char     DeviceName[32];       /* operating-system device name */
    uint32_t PortSpeed;
    uint16_t LinkState2;
    uint16_t LinkState3;
    uint32_t Reserved[22];
} DEVICEPORTPROPERTY;

/* PCI chip properties, 80 bytes. */
typedef struct _CHIPPROPERTY {
    uint16_t VendorID;
    uint16_t DeviceID;
    uint16_t SubVendorID;
    uint16_t SubSystemID;
    uint16_t PciBusNumber;
    uint16_t PciSlotNumber;        /* PCI device number x 8 + function */
    uint32_t IoAddress;
    uint32_t IoAddressLength;
    uint32_t MemoryAddress;
    uint32_t MemoryAddressLength;
    uint16_t ChipType;
    uint16_t InterruptLevel;
    uint16_t OutMbx[8];
    uint16_t DomainNr;
    uint16_t PcieLinkCap;
    uint16_t PcieLinkStat;
    uint16_t Reserved1;
    uint32_t Reserved[6];
} CHIPPROPERTY;

/* Driver properties, 104 bytes. */
typedef struct _DRIVERPROPERTY {
    uint8_t  Version[32];
    uint16_t NumberOfBus;
    uint16_t TargetsPerBus;
    uint16_t LunsPerTarget;
    uint32_t MaximumTransferLen;
    uint32_t MaximumDataSegments;
    uint16_t DmaBitAddresses;
    uint16_t IoMapType;
    uint32_t Attributes;
    uint32_t InternalFlags[4];
    uint32_t Reserved[8];
} DRIVERPROPERTY;

/* Firmware properties, 68 bytes. */
typedef struct _FIRMWAREPROPERTY {
    char     Version[32];
    uint32_t Attributes;
    uint32_t Reserved[8];
} FIRMWAREPROPERTY;

/* One discovered port or target of a port, 56 bytes. */
typedef struct _DISCPORTPROPERTY {
    uint8_t  NodeWWN[8];
    uint8_t  PortWWN[8];
    uint8_t  PortID[3];            /* high byte first */
    uint8_t  Reserved0;
    uint16_t Type;
    uint16_t Status;
    uint16_t Bus;
    uint16_t TargetId;
    uint16_t LoopId;
    uint16_t Reserved1;
    uint32_t Reserved[6];
} DISCPORTPROPERTY;

/* Link and I/O counters, 176 bytes. */
typedef struct _STATISTICS {
    uint32_t ControllerErrorCount;
    uint32_t DeviceErrorCount;
    uint32_t IOCount;
    uint32_t MegabyteCount;
    uint32_t LipResetCount;
    uint32_t InterruptCount;
    uint32_t LinkFailureCount;
    uint32_t LossOfSyncCount;
    uint32_t LossOfSignalCount;
    uint32_t PrimitiveSeqProtocolErrorCount;
    uint32_t InvalidTransmissionWordCount;
    uint32_t InvalidCRCCount;
    uint32_t Reserved[32];
} STATISTICS;

/* Beacon (port identification light) control, 16 bytes. */
typedef struct _EXT_BEACON_CONTROL {
    uint32_t State;
    uint32_t Reserved[3];
} EXT_BEACON_CONTROL;

/* Fills the node record: world-wide name, manufacturer, model (cut to 15
 * characters), serial number (from the library's adapter table), driver,
 * firmware and boot code versions, port count and the flash versions.
 * Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null
 * record); HMX_ERR_DATA_OVERRUN / HMX_ERR_DATA_UNDERRUN (record filled);
 * a converted transport status. No lock is taken. */
VXHMX_API uint32_t HmGetHbaDeviceNodeProperty(int Device, DEVICENODEPROPERTY *phba_node_user);

/* Fills the port record of the handle's port; hba_port_num is accepted and
 * not used. Statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetHbaDevicePortProperty(int fd, uint16_t hba_port_num, DEVICEPORTPROPERTY *phba_port_user);

/* Fills the PCI chip record. Statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetHbaDeviceChipProperty(int Device, CHIPPROPERTY *pChipProperty);

/* Fills the driver record. Statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetHbaDeviceDriverProperty(int Device, DRIVERPROPERTY *pDriverProperty);

/* Fills the firmware record. Statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetHbaDeviceFirmwareProperty(int Device, FIRMWAREPROPERTY *pFirmwareProperty);

/* One discovered target (GetType 0) or discovered port (any other GetType)
 * of the port, by index. HMX_ERR_NOT_SUPPORTED on adapters served through
 * sysfs; otherwise statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetDiscTargetProperty(int Device, uint16_t HbaDevPortNum, uint32_t DiscTargetNum,
                                           uint32_t GetType, DISCPORTPROPERTY *pDiscTargetProperty);

/* One discovered port of the port, by index. As HmGetDiscTargetProperty. */
VXHMX_API uint32_t HmGetDiscPortProperty(int Device, uint16_t HbaDevPortNum, uint32_t DiscPortNum,
                                         DISCPORTPROPERTY *pDiscPortProperty);

/* The port's list of discovered devices, as the driver lays it out, into
 * DeviceInfoSize bytes. TypeMode is passed to the driver. Returns 0;
 * HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null buffer or size
 * 0); HMX_ERR_NOT_SUPPORTED (sysfs); a converted transport status. */
VXHMX_API uint32_t HmGetPortDatabase(int Device, uint16_t TypeMode, void *pDeviceInfo, uint32_t DeviceInfoSize);

/* Link and I/O counters of the port. HMX_ERR_NOT_SUPPORTED on sysfs;
 * otherwise statuses as HmGetHbaDeviceNodeProperty. */
VXHMX_API uint32_t HmGetStatistics(int fd, uint16_t HbaDevPortNum, STATISTICS *pStatistics);

/* FC-4 counters of the port itself, and link counters of the remote port
 * pPortWWN (8 bytes). As HmGetStatistics. */
VXHMX_API uint32_t HmGetStatisticsFC(int Device, uint16_t HbaDevPortNum, STATISTICS *pStatistics);
VXHMX_API uint32_t HmGetPortStatisticsFC(int Device, uint16_t HbaDevPortNum, const uint8_t *pPortWWN,
                                         STATISTICS *pStatistics);

/* Not supported: HMX_ERR_INVALID_HANDLE for a bad handle, otherwise always
 * HMX_ERR_NOT_SUPPORTED (nothing is sent to the adapter). */
VXHMX_API uint32_t HmResetStatistics(int Device, uint16_t HbaDevPortNum);

/* Converged-adapter port data (128 bytes into pBuffer). Returns 0;
 * HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null buffer);
 * HMX_ERR_BUFFER_TOO_SMALL (BufferSize below 128); HMX_ERR_NOT_SUPPORTED
 * (sysfs); a converted transport status. */
VXHMX_API uint32_t HmGetCnaPortData(int Device, uint8_t *pBuffer, uint32_t BufferSize);

/* Transceiver data, BufferSize bytes. Returns 0; HMX_ERR_INVALID_HANDLE;
 * HMX_ERR_INVALID_PARAMETER (null buffer or size 0); HMX_ERR_NOT_SUPPORTED
 * (sysfs); a converted transport status. */
VXHMX_API uint32_t HmGetSFPData(int Device, uint8_t *pBuffer, uint32_t BufferSize);

/* The beacon state into *pUpdateMode. Returns 0; HMX_ERR_INVALID_HANDLE;
 * HMX_ERR_INVALID_PARAMETER (null pointer); HMX_ERR_NOT_SUPPORTED (sysfs);
 * a converted transport status. */
VXHMX_API uint32_t HmGetBeaconControl(int Device, uint32_t *pUpdateMode);

/* Sets the beacon state. As HmGetBeaconControl. */
VXHMX_API uint32_t HmUpdateBeaconControl(int Device, uint32_t UpdateMode);

/* Driver and firmware parameter blocks, NVRAM verification and the target
 * link speed are not offered by the drivers this library serves: after the
 * handle check they return HMX_ERR_NOT_SUPPORTED. */
VXHMX_API uint32_t HmGetDriverParameters(int Device, uint8_t *pBuffer, uint32_t BufferSize);
VXHMX_API uint32_t HmGetFirmwareParameters(int Device, uint8_t *pBuffer, uint32_t BufferSize);
VXHMX_API uint32_t HmVerifyHbaNVRam(int Device, uint16_t HbaDevPortNum);
VXHMX_API uint32_t HmGetTargetIDMALinkSpeed(int Device, uint16_t HbaDevPortNum, const uint8_t *pTargetWWN,
                                            uint32_t *pSpeed);
VXHMX_API uint32_t HmSetTargetIDMALinkSpeed(int Device, uint16_t HbaDevPortNum, const uint8_t *pTargetWWN,
                                            uint32_t Speed);

/* NVRAM variable numbers: the named settings inside an NVRAM image. */
typedef enum _EnumNVRAMVar {
    NVRAMVarId = 0,
    NVRAMVarVersion,
    NVRAMVarRiscVersion,
    NVRAMVarRiscEnableHardLoopID,
    NVRAMVarEnableFairness,
    NVRAMVarEnableFullDuplex,
    NVRAMVarEnableFastPosting,
    NVRAMVarEnableTargetMode,
    NVRAMVarDisableInitiatorMode,
    NVRAMVarEnableADISC,
    NVRAMVarTargetInquiryData, /* 10 */
    NVRAMVarEnablePDBCNotify,
    NVRAMVarNonParticipatingLIP,
    NVRAMVarDescendingSearchLoopID,
    NVRAMVarAcquireLoopIDInLIPA,
    NVRAMVarStopPortQOnFullStatus,
    NVRAMVarFullLoginAfterLIP,
    NVRAMVarNodeNameOption,
    NVRAMVarExtIFWCBEnableBit,
    NVRAMVarFramePayloadSize,
    NVRAMVarMaxIocbAllocation, /* 20 */
    NVRAMVarExecutionThrottle,
    NVRAMVarRetryCount,
    NVRAMVarRetryDelay,
    NVRAMVarPortName0,
    NVRAMVarPortName1,
    NVRAMVarPortName2,
    NVRAMVarPortName3,
    NVRAMVarPortName4,
    NVRAMVarPortName5,
    NVRAMVarPortName6, /* 30 */
    NVRAMVarPortName7,
    NVRAMVarAdapterHardLoopID,
    NVRAMVarInquiryData,
    NVRAMVarLoginTimeout,
    NVRAMVarNodeName0,
    NVRAMVarNodeName1,
    NVRAMVarNodeName2,
    NVRAMVarNodeName3,
    NVRAMVarNodeName4,
    NVRAMVarNodeName5, /* 40 */
    NVRAMVarNodeName6,
    NVRAMVarNodeName7,
    NVRAMVarTimerOperationMode,
    NVRAMVarInitConfigMode,
    NVRAMVarEnableNonPartOnLIHAFailure,
    NVRAMVarEnableClass2,
    NVRAMVarEnableAck0,
    NVRAMVarEnableFCTape,
    NVRAMVarEnableFCConfirm,
    NVRAMVarEnableCRN, /* 50 */
    NVRAMVarNoLogoOnLinkDown,
    NVRAMVarResponseAccumulationTimer,
    NVRAMVarInterruptDelayTimer,
    NVRAMVarEnableReadXfrRdy,
    NVRAMVarFcpRspPayload,
    NVRAMVarRecvOutOfOrderDataBit,
    NVRAMVarDataRate,
    NVRAMVarDisableBIOS,
    NVRAMVarDisableLUNs,
    NVRAMVarEnableSelectableBoot, /* 60 */
    NVRAMVarDisableRISCCodeLoad,
    NVRAMVarSetCacheLineSize1,
    NVRAMVarPCIParityDisable,
    NVRAMVarEnableExtendedLogging,
    NVRAMVarEnable64BitsAddressing,
    NVRAMVarEnableLIPReset,
    NVRAMVarEnableLIPFullLogin,
    NVRAMVarEnableTargetReset,
    NVRAMVarEnableDatabaseStorage,
    NVRAMVarEnableCacheFlushRead, /* 70 */
    NVRAMVarEnableDatabaseLoad,
    NVRAMVarBootNodeName0,
    NVRAMVarBootNodeName1,
    NVRAMVarBootNodeName2,
    NVRAMVarBootNodeName3,
    NVRAMVarBootNodeName4,
    NVRAMVarBootNodeName5,
    NVRAMVarBootNodeName6,
    NVRAMVarBootNodeName7,
    NVRAMVarBootLUNNumber, /* 80 */
    NVRAMVarResetDelay,
    NVRAMVarPortDownRetryCount,
    NVRAMVarMaximumLUNsPerTarget,
    NVRAMVarFcodeBootPortName0,
    NVRAMVarFcodeBootPortName1,
    NVRAMVarFcodeBootPortName2,
    NVRAMVarFcodeBootPortName3,
    NVRAMVarFcodeBootPortName4,
    NVRAMVarFcodeBootPortName5,
    NVRAMVarFcodeBootPortName6, /* 90 */
    NVRAMVarFcodeBootPortName7,
    NVRAMVarSelectiveLogin,
    NVRAMVarEnableAltBootDevice,
    NVRAMVarEnableBootOrderList,
    NVRAMVarEnableSelectiveLUN,
    NVRAMVarForceWorldLogin,
    NVRAMVarLinkDownTimeout,
    NVRAMVarAlt1BootPortName0,
    NVRAMVarAlt1BootPortName1,
    NVRAMVarAlt1BootPortName2, /* 100 */
    NVRAMVarAlt1BootPortName3,
    NVRAMVarAlt1BootPortName4,
    NVRAMVarAlt1BootPortName5,
    NVRAMVarAlt1BootPortName6,
    NVRAMVarAlt1BootPortName7,
    NVRAMVarAlt1BootLUNNumber,
    NVRAMVarAlt2BootPortName0,
    NVRAMVarAlt2BootPortName1,
    NVRAMVarAlt2BootPortName2,
    NVRAMVarAlt2BootPortName3, /* 110 */
    NVRAMVarAlt2BootPortName4,
    NVRAMVarAlt2BootPortName5,
    NVRAMVarAlt2BootPortName6,
    NVRAMVarAlt2BootPortName7,
    NVRAMVarAlt2BootLUNNumber,
    NVRAMVarAlt3BootPortName0,
    NVRAMVarAlt3BootPortName1,
    NVRAMVarAlt3BootPortName2,
    NVRAMVarAlt3BootPortName3,
    NVRAMVarAlt3BootPortName4, /* 120 */
    NVRAMVarAlt3BootPortName5,
    NVRAMVarAlt3BootPortName6,
    NVRAMVarAlt3BootPortName7,
    NVRAMVarAlt3BootLUNNumber,
    NVRAMVarSubSystemVendorID0,
    NVRAMVarSubSystemDeviceID0,
    NVRAMVarSubSystemVendorID1,
    NVRAMVarSubSystemDeviceID1,
    NVRAMVarCheckSum,
    NVRAMVarEnd /* 130, end marker */
} EnumNVRAMVar;

/* Value of variable parmNumber in the NVRAM image pNVRam (256 bytes basic
 * format, 512 bytes extended format on FCX14x-class chips; the handle's chip
 * chooses). Not a status: 0 for an unknown number or a variable the format
 * does not carry (indistinguishable from a zero value), and
 * HMX_ERR_INVALID_HANDLE (0x20000065) as the value for a bad handle or a
 * null image. The adapter is not contacted. */
VXHMX_API uint32_t HmGetVariableValue(int Device, uint8_t *pNVRam, uint32_t parmNumber);

/* Changes variable parmNumber in the image to dwSetValue (masked to the
 * variable's width); the NVRAM checksum is not recomputed. Returns 0 (also
 * when the format does not carry the variable: nothing changes);
 * HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (number above 129, null
 * image). The adapter is not contacted. */
VXHMX_API uint32_t HmSetVariableValue(int Device, uint8_t *pNVRam, uint32_t parmNumber, uint32_t dwSetValue);

/* ---- Flash, NVRAM and VPD ---------------------------------------------- */

/* Region codes (the low 8 bits of a region; the layout tells which an
 * adapter has). */
enum {
    HMX_OPT_ROM_REGION_FW = 0x01,                      /* adapter firmware */
    HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI_FW = 0x05, /* boot code and firmware (FCX123) */
    HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI = 0x07,    /* boot code images (FCX14x class) */
    HMX_OPT_ROM_REGION_ALL = 0xFF                      /* the whole flash */
};

typedef struct _HMX_OPT_ROM_REGION {
    uint32_t Region;               /* region code */
    uint32_t Size;                 /* bytes */
} HMX_OPT_ROM_REGION;

/* The caller allocates room for NoOfRegions entries of Region. */
typedef struct _HMX_OPT_ROM_LAYOUT {
    uint32_t Size;                 /* whole flash, bytes */
    uint32_t NoOfRegions;          /* in: room in Region; out: number of regions */
    HMX_OPT_ROM_REGION Region[1];  /* NoOfRegions entries follow */
} HMX_OPT_ROM_LAYOUT;

/* Refreshes the library's flash layout of the adapter (FCX160/FCX180: the
 * table the adapter reports; other chips: the fixed table of the chip) and,
 * when pLayout is not null, copies it out. Ask with NoOfRegions 0 first to
 * learn the count. The layout is one per process and replaced by every
 * query. Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_BUFFER_TOO_SMALL (only
 * NoOfRegions is set, to the count needed); HMX_ERR_OUT_OF_MEMORY;
 * HMX_ERR_UNKNOWN (an FCX180 that does not report its layout, or a failed
 * transport); a converted driver status. */
VXHMX_API uint32_t HmGetOptionRomLayout(int Device, uint16_t HbaDevPortNum, HMX_OPT_ROM_LAYOUT *pLayout);

/* Reads the first BufferSize bytes of region Region (at most the region's
 * size; the rest of the buffer is zeroed on adapters served through sysfs)
 * into pBuffer. Flash reads hold the library's flash semaphore between
 * processes. Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER
 * (null buffer, size 0); a converted transport status (an unknown region
 * gives HMX_ERR_UNKNOWN or the driver's invalid-parameter status). A
 * driver reply shorter than asked fails with 0x2000006C (data underrun). */
VXHMX_API uint32_t HmGetOptionRomEx(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                    uint32_t Region);

/* Writes one region from the start of pBuffer. Checks, in order: the
 * handle, a fresh layout, the region is in the layout (else
 * HMX_ERR_INVALID_PARAMETER), writable (else HMX_ERR_NOT_SUPPORTED), not
 * larger than BufferSize (else 0x20000084), not region 0 (0x20000089).
 * Regions 0x01-0x07 and 0xFF take the preserving path, 0x13, 0x29-0x2E,
 * 0x40, 0x41 and 0x45-0x47 are written as given, all others are refused
 * with HMX_ERR_INVALID_PARAMETER.
 *
 * The preserving path keeps the adapter's own data: it reads the region's
 * current contents, and when they start with an x86 boot image it copies
 * the subsystem vendor bytes ("SSVID" images) and the parameter block that
 * follows the "MEFCX " marker (256 bytes, 512 on FCX14x-class chips) into
 * every x86 image of the new chain, sealing each changed image's checksum
 * again. The new buffer given by the caller is not changed; the library
 * works on its own copy.
 * VPD on FCX120-FCX123: the VPD travels in the flash as an image of the boot
 * chain (PCI device ID 1). The current one is carried into the new chain:
 * it replaces a VPD image of the same length there, or is appended after
 * the new chain's last image when that room is blank; when neither is
 * possible the write is refused with 0x20000091 and nothing is written.
 * VPD on FCX14x-class chips: the VPD is a separate 512-byte block. After a
 * successful write its "V3", "V4" and "V5" fields receive the versions
 * ("MM.mm") of the new chain's x86 BIOS, FCode and EFI images (fields keep
 * their lengths; a field too short is left alone), the "RV" checksum is
 * sealed again and the block written back; every other byte, the serial
 * number among them, stays. A block that does not parse or whose checksum
 * does not hold is never changed: 0x20000091. When the write of the block
 * fails, the previous block is written back and the write's status is
 * returned.
 * A read of the current contents that comes back short fails the call
 * (0x2000006C through the driver node) before anything is written.
 * On FCX160 and FCX180 a boot code write to region 0xFF or 0x07 is padded to
 * 0x80000 bytes and its first 0x40000 bytes stored again at 0x40000. Writes
 * on those chips are widened to whole flash sectors; the bytes around the
 * region are read first and written back unchanged.
 * On an FCX180 a region marked for activation is activated after the
 * write through the driver node (firmware also on the adapter's other
 * port); a port served through sysfs has no activation request, so such a
 * write ends with 0x20000090 after the data was written.
 * Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER;
 * HMX_ERR_NOT_SUPPORTED; HMX_ERR_OUT_OF_MEMORY; 0x20000084; 0x20000089;
 * 0x20000090 (activation failed); 0x20000091 (VPD could not be kept or
 * updated); a converted transport status. Flash transfers hold the
 * library's flash semaphore. */
VXHMX_API uint32_t HmUpdateOptionRomEx(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                       uint32_t Region);

/* As HmUpdateOptionRomEx, but always the plain write (no preservation);
 * activation as there. */
VXHMX_API uint32_t HmUpdateOptionRomEx2(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                        uint32_t Region);

/* Writes a whole boot code image with the preservation steps (region 0 of
 * the driver). BufferSize below 0x20000 gives HMX_ERR_INVALID_PARAMETER;
 * otherwise statuses as HmUpdateOptionRomEx. */
VXHMX_API uint32_t HmUpdateOptionRom(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize);

/* Read or write BufferSize bytes at flash byte Offset. Returns 0;
 * HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null buffer, size 0);
 * a converted transport status. */
VXHMX_API uint32_t HmGetOptionRomOffset(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                        uint32_t Offset);
VXHMX_API uint32_t HmUpdateOptionRomOffset(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer,
                                           uint32_t BufferSize, uint32_t Offset);

/* Reads or writes the port's NVRAM block. The size is cut to 256 bytes
 * (512 on FCX14x-class chips). On an FCX180 the block is flash region 0x15
 * (even PCI function) or 0x17 (odd). Mode is passed through. Adapters
 * served through sysfs return the whole block the driver offers, so pass a
 * buffer of the full block size; a larger write than the block fails.
 * Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (null
 * buffer, size 0); a converted transport status. */
VXHMX_API uint32_t HmGetNVRam(int Device, uint16_t HbaDevPortNum, uint32_t Mode, uint8_t *pBuffer,
                              uint32_t BufferSize);
VXHMX_API uint32_t HmUpdateNVRam(int Device, uint16_t HbaDevPortNum, uint32_t Mode, uint8_t *pBuffer,
                                 uint32_t BufferSize);

/* Reads or writes the port's VPD block; *pBufferSize is the size in bytes
 * (a successful write through sysfs sets it to the block's size). On an
 * FCX180 the block is flash region 0x14 (even PCI function) or 0x16 (odd).
 * Statuses as HmGetNVRam. */
VXHMX_API uint32_t HmGetVpd(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t *pBufferSize);
VXHMX_API uint32_t HmUpdateVpd(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t *pBufferSize);

/* ==== End of adapter data ================================================ */

/* ==== Asynchronous events ================================================ */

/* One event as HmGetAen reports it. EventCode: 1 to 7 for the driver events
 * 0x8010 to 0x8013 (1 to 4), 0x8014 (6), 0x8015 (5) and 0x8060 (7); the
 * numbers of 0x8014 and 0x8015 are exchanged on purpose. Reserved is never
 * written by the library. */
typedef struct _ASYNCEVENT {
    uint32_t EventCode;
    uint32_t Reserved[3];
} ASYNCEVENT;

/* Switch the driver's event reporting for the port on or off. While it is
 * on, the library's event thread fetches the port's events every 15 seconds
 * into a queue of 64 per process; the oldest are dropped beyond that. The
 * last close of the port on the host switches reporting off.
 * Returns 0; HMX_ERR_INVALID_HANDLE; the driver's completion code through
 * HmXlateHMXErr; an errno value when the request could not be sent;
 * HMX_ERR_UNKNOWN. Takes no lock. */
VXHMX_API uint32_t HmEnableAen(int Device);
VXHMX_API uint32_t HmDisableAen(int Device);

/* Takes the queued events of the port: up to AEventBufSize / 16 records go
 * to pAEvents and their number to *pAEventCount. When more are queued than
 * fit, the newest are reported and the older ones discarded: the queue is
 * always emptied. A record whose driver code is not listed above stays as
 * the caller left it. Returns 0; HMX_ERR_INVALID_HANDLE;
 * HMX_ERR_INVALID_PARAMETER (null pAEventCount, or null pAEvents with room
 * for a record); HMX_ERR_UNKNOWN (the port is not in the shared state);
 * HMX_ERR_OUT_OF_MEMORY. Takes the shared-state semaphore. */
VXHMX_API uint32_t HmGetAen(int Device, ASYNCEVENT *pAEvents, uint32_t AEventBufSize, uint32_t *pAEventCount);

/* ==== SCSI pass-through ================================================== */

/* The target of a SCSI command: AddressType 2 (the only one accepted) with
 * the target's port world-wide name in AddressUsing, and the LUN. */
typedef struct _DESTINATIONADDRESS {
    uint16_t AddressType;
    uint8_t AddressUsing[8];
    uint16_t LunNumber;
} DESTINATIONADDRESS;

/* Sends one SCSI command of ValidCdbLen (at most 16) bytes to a target
 * behind the port. Give pRespBuf to read RespBufSize bytes from the target,
 * pReqBuf to write ReqBufSize bytes to it, or neither; never both. Up to 256
 * bytes of sense (at most SenseBufSize) are returned in pSenseBuf when the
 * target reports CHECK CONDITION.
 * Returns 0; HMX_ERR_INVALID_HANDLE; HMX_ERR_INVALID_PARAMETER (command too
 * long, AddressType not 2, both buffers, null pDestAddr or pCdbBuf; nothing
 * is sent); HMX_ERR_SCSI_CHECK_CONDITION (sense returned); the driver's
 * completion code and SCSI status through HmXlateHMXErr; an errno value;
 * HMX_ERR_UNKNOWN. Takes no lock. */
VXHMX_API uint32_t HmSendScsiPassThruFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pCdbBuf, uint32_t ValidCdbLen,
                                        uint8_t *pReqBuf, uint32_t ReqBufSize, uint8_t *pRespBuf, uint32_t RespBufSize,
                                        uint8_t *pSenseBuf, uint32_t SenseBufSize);

/* INQUIRY (allocation length: the smaller of RespSize and 255, into a
 * RespSize-byte buffer) and READ CAPACITY(10). Statuses as above. */
VXHMX_API uint32_t HmSendScsiInquiryCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pResp, uint32_t RespSize,
                                          uint8_t *pSense, uint32_t SenseSize);
VXHMX_API uint32_t HmSendScsiReadCapacityCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pResp,
                                               uint32_t RespSize, uint8_t *pSense, uint32_t SenseSize);

/* REPORT LUNS into pRespBuf. A target that refuses the command (ILLEGAL
 * REQUEST) is probed LUN by LUN from 0 to 255 instead (INQUIRY, then READ
 * CAPACITY; a LUN answering INQUIRY with 0x7F ends the probe); the list is
 * then built by the library, pDestAddr->LunNumber is left at the last LUN
 * probed and the status is HMX_ERR_NOT_FROM_DEVICE. The list length in the
 * first four bytes counts every LUN found, even those that did not fit.
 * Other statuses as above. */
VXHMX_API uint32_t HmSendScsiReportLunsCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pRespBuf,
                                             uint32_t RespBufSize, uint8_t *pSense, uint32_t SenseSize);


#ifdef __cplusplus
}
#endif

#endif /* VXHMX_H */

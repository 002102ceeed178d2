// SPDX-License-Identifier: MIT
// The driver's management request header (both layouts) and the reply records
// it fills. Every record is declared once here with its size and offsets proved
// at compile time; bytes are moved field by field through ByteWriter/ByteReader
// at these offsets, never by casting a caller's buffer to a struct.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

namespace vxemu::wire {

// ---- bounds-checked little-endian access ---------------------------------

class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    [[nodiscard]] std::optional<uint8_t> u8(size_t off) const {
        if (off >= bytes_.size()) return std::nullopt;
        return bytes_[off];
    }
    [[nodiscard]] std::optional<uint16_t> le16(size_t off) const { return le<uint16_t>(off); }
    [[nodiscard]] std::optional<uint32_t> le32(size_t off) const { return le<uint32_t>(off); }
    [[nodiscard]] std::optional<uint64_t> le64(size_t off) const { return le<uint64_t>(off); }
    [[nodiscard]] size_t size() const { return bytes_.size(); }

private:
    template <typename T>
    [[nodiscard]] std::optional<T> le(size_t off) const {
        if (off > bytes_.size() || bytes_.size() - off < sizeof(T)) return std::nullopt;
        T v = 0;
        for (size_t i = 0; i < sizeof(T); ++i) v |= static_cast<T>(static_cast<T>(bytes_[off + i]) << (8 * i));
        return v;
    }
    std::span<const uint8_t> bytes_;
};

// Writes silently stop at the end of the buffer: a reply record is always
// built in a buffer of its full size, and a caller's shorter response buffer
// gets the leading bytes only.
class ByteWriter {
public:
    explicit ByteWriter(std::span<uint8_t> bytes) : bytes_(bytes) {}
    void u8(size_t off, uint8_t v) { put(off, v, 1); }
    void le16(size_t off, uint16_t v) { put(off, v, 2); }
    void le32(size_t off, uint32_t v) { put(off, v, 4); }
    void le64(size_t off, uint64_t v) { put(off, v, 8); }
    void bytes(size_t off, std::span<const uint8_t> src, size_t field_size) {
        for (size_t i = 0; i < field_size; ++i) u8(off + i, i < src.size() ? src[i] : 0);
    }
    // Text into a fixed field, NUL-padded, always leaving a terminating NUL.
    void text(size_t off, std::string_view s, size_t field_size) {
        for (size_t i = 0; i < field_size; ++i)
            u8(off + i, (i + 1 < field_size && i < s.size()) ? static_cast<uint8_t>(s[i]) : 0);
    }

private:
    void put(size_t off, uint64_t v, size_t n) {
        for (size_t i = 0; i < n; ++i)
            if (off + i < bytes_.size()) bytes_[off + i] = static_cast<uint8_t>(v >> (8 * i));
    }
    std::span<uint8_t> bytes_;
};

// ---- request header ---------------------------------------------------------

inline constexpr char kSignature[] = "VARNIX";
inline constexpr uint16_t kAddrMode = 2;
inline constexpr uint16_t kVersionCurrent = 7;
inline constexpr uint16_t kVersionOld = 5;

#pragma pack(push, 1)
struct EXT_IOCTL {
    uint8_t Signature[8];
    uint16_t AddrMode;
    uint16_t Version;
    uint16_t SubCode;
    uint16_t Instance;
    uint32_t Status;
    uint32_t DetailStatus;
    uint32_t Reserved1;
    uint32_t RequestLen;
    uint32_t ResponseLen;
    uint64_t RequestAdr;
    uint64_t ResponseAdr;
    uint16_t HbaSelect;
    uint16_t VendorSpecificStatus[11];
    uint64_t VendorSpecificData;
    uint16_t Reserved2[16];
};
#pragma pack(pop)
static_assert(sizeof(EXT_IOCTL) == 116);
static_assert(offsetof(EXT_IOCTL, AddrMode) == 8 && offsetof(EXT_IOCTL, Version) == 10);
static_assert(offsetof(EXT_IOCTL, SubCode) == 12 && offsetof(EXT_IOCTL, Instance) == 14);
static_assert(offsetof(EXT_IOCTL, Status) == 16 && offsetof(EXT_IOCTL, DetailStatus) == 20);
static_assert(offsetof(EXT_IOCTL, Reserved1) == 24 && offsetof(EXT_IOCTL, RequestLen) == 28);
static_assert(offsetof(EXT_IOCTL, ResponseLen) == 32 && offsetof(EXT_IOCTL, RequestAdr) == 36);
static_assert(offsetof(EXT_IOCTL, ResponseAdr) == 44 && offsetof(EXT_IOCTL, HbaSelect) == 52);
static_assert(offsetof(EXT_IOCTL, VendorSpecificStatus) == 54);
static_assert(offsetof(EXT_IOCTL, VendorSpecificData) == 76 && offsetof(EXT_IOCTL, Reserved2) == 84);

// Older layout: pointers are native (8 bytes on this platform), natural alignment.
struct EXT_IOCTL_O {
    uint64_t Signature;  // address of the signature text in the caller
    uint16_t AddrMode;
    uint16_t Version;
    uint16_t SubCode;
    uint16_t Instance;
    uint32_t Status;
    uint32_t DetailStatus;
    uint32_t Reserved1;
    uint32_t RequestLen;
    uint32_t ResponseLen;
    uint64_t RequestAdr;
    uint64_t ResponseAdr;
    uint16_t HbaSelect;
    uint16_t VendorSpecificStatus[11];
    uint64_t VendorSpecificData;
};
static_assert(sizeof(EXT_IOCTL_O) == 88);
static_assert(offsetof(EXT_IOCTL_O, AddrMode) == 8 && offsetof(EXT_IOCTL_O, Version) == 10);
static_assert(offsetof(EXT_IOCTL_O, SubCode) == 12 && offsetof(EXT_IOCTL_O, Instance) == 14);
static_assert(offsetof(EXT_IOCTL_O, Status) == 16 && offsetof(EXT_IOCTL_O, DetailStatus) == 20);
static_assert(offsetof(EXT_IOCTL_O, Reserved1) == 24 && offsetof(EXT_IOCTL_O, RequestLen) == 28);
static_assert(offsetof(EXT_IOCTL_O, ResponseLen) == 32 && offsetof(EXT_IOCTL_O, RequestAdr) == 40);
static_assert(offsetof(EXT_IOCTL_O, ResponseAdr) == 48 && offsetof(EXT_IOCTL_O, HbaSelect) == 56);
static_assert(offsetof(EXT_IOCTL_O, VendorSpecificStatus) == 58);
static_assert(offsetof(EXT_IOCTL_O, VendorSpecificData) == 80);

// Ioctl numbers: read-write, type 'y', number = command, size 116 (current) or 8 (older).
inline constexpr unsigned long kIoctlTypeMask = 0xFFFFFF00UL;
inline constexpr unsigned long kIoctlCurrentBase = 0xC0747900UL;
inline constexpr unsigned long kIoctlOldBase = 0xC0087900UL;

enum class Layout { Current, Old };

// Commands.
enum Command : uint8_t {
    kCmdQuery = 0x00,
    kCmdAenReg = 0x02,
    kCmdAenGet = 0x03,
    kCmdScsiPassthru = 0x05,
    kCmdGetData = 0x06,
    kCmdSetData = 0x07,
    kCmdUpdateOptrom = 0x0A,
    kCmdGetNvram = 0x0C,
    kCmdSetNvram = 0x0D,
    kCmdReadOptrom = 0x0F,
    kCmdOptromLayout = 0x10,
    kCmdGetVpd = 0x11,
    kCmdSetVpd = 0x12,
    kCmdGetSfpData = 0x13,
    kCmdActivateRegion = 0x18,
    kCmdFoFirst = 0xC8,
    kCmdFoGetLunData = 0xCE,
    kCmdFoSetLunData = 0xCF,
    kCmdFoGetTargetData = 0xD0,
    kCmdFoSetTargetData = 0xD1,
    kCmdFoLast = 0xD2,
    kCmdDriverSpecifics = 0xFC,
    kCmdWwpnToScsiAddr = 0xFD,
    kCmdSetInstance = 0xFE,
    kCmdInstanceCount = 0xFF,
};

// Status words the driver answers with.
enum DriverStatus : uint32_t {
    kStatusOk = 0,
    kStatusError = 1,
    kStatusBusy = 2,
    kStatusInvalidParam = 6,
    kStatusDataOverrun = 7,
    kStatusDataUnderrun = 8,
    kStatusDevNotFound = 9,
    kStatusCopyError = 10,
    kStatusInvalidSubcode = 12,
    kStatusUnsupportedVersion = 13,
    kStatusScsiStatus = 15,
    kStatusBufferTooSmall = 16,
};

// ---- reply records ------------------------------------------------------------

struct EXT_HBA_NODE {
    uint8_t WWNN[8];
    char Manufacturer[64];
    char Model[32];
    char SerialNum[32];
    char DriverVersion[32];
    char FWVersion[32];
    char OptRomVersion[32];
    uint16_t PortCount;
    uint16_t InterfaceType;
    uint32_t DriverAttr;
    uint32_t FWAttr;
    uint32_t BIValid;
    uint8_t BIFwVersion[4];
    uint8_t BIEfiVersion[4];
    uint8_t BIFCodeVersion[4];
    uint8_t Reserved1[420];
    uint8_t Reserved[16];
};
static_assert(sizeof(EXT_HBA_NODE) == 696);
static_assert(offsetof(EXT_HBA_NODE, Manufacturer) == 8 && offsetof(EXT_HBA_NODE, Model) == 72);
static_assert(offsetof(EXT_HBA_NODE, SerialNum) == 104 && offsetof(EXT_HBA_NODE, DriverVersion) == 136);
static_assert(offsetof(EXT_HBA_NODE, FWVersion) == 168 && offsetof(EXT_HBA_NODE, OptRomVersion) == 200);
static_assert(offsetof(EXT_HBA_NODE, PortCount) == 232 && offsetof(EXT_HBA_NODE, InterfaceType) == 234);
static_assert(offsetof(EXT_HBA_NODE, DriverAttr) == 236 && offsetof(EXT_HBA_NODE, FWAttr) == 240);
static_assert(offsetof(EXT_HBA_NODE, BIValid) == 244 && offsetof(EXT_HBA_NODE, BIFwVersion) == 248);
static_assert(offsetof(EXT_HBA_NODE, BIEfiVersion) == 252 && offsetof(EXT_HBA_NODE, BIFCodeVersion) == 256);
static_assert(offsetof(EXT_HBA_NODE, Reserved1) == 260 && offsetof(EXT_HBA_NODE, Reserved) == 680);

struct EXT_HBA_PORT {
    uint8_t WWPN[8];
    uint8_t Id[4];
    uint16_t Type;
    uint16_t State;
    uint16_t Mode;
    uint16_t DiscPortCount;
    uint16_t DiscPortNameType;
    uint16_t DiscTargetCount;
    uint16_t Bus;
    uint16_t Target;
    uint16_t Lun;
    uint16_t Reserved0;
    uint32_t PortSpeed;
    uint16_t LinkState2;
    uint16_t LinkState3;
    uint8_t Reserved[16];
};
static_assert(sizeof(EXT_HBA_PORT) == 56);
static_assert(offsetof(EXT_HBA_PORT, Id) == 8 && offsetof(EXT_HBA_PORT, Type) == 12);
static_assert(offsetof(EXT_HBA_PORT, State) == 14 && offsetof(EXT_HBA_PORT, Mode) == 16);
static_assert(offsetof(EXT_HBA_PORT, DiscPortCount) == 18 && offsetof(EXT_HBA_PORT, DiscPortNameType) == 20);
static_assert(offsetof(EXT_HBA_PORT, DiscTargetCount) == 22 && offsetof(EXT_HBA_PORT, Bus) == 24);
static_assert(offsetof(EXT_HBA_PORT, Target) == 26 && offsetof(EXT_HBA_PORT, Lun) == 28);
static_assert(offsetof(EXT_HBA_PORT, PortSpeed) == 32 && offsetof(EXT_HBA_PORT, LinkState2) == 36);
static_assert(offsetof(EXT_HBA_PORT, LinkState3) == 38 && offsetof(EXT_HBA_PORT, Reserved) == 40);

struct EXT_DISC_PORT {  // also EXT_DISC_TARGET
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    uint8_t Id[4];
    uint16_t Type;
    uint16_t Status;
    uint16_t Bus;
    uint16_t TargetId;
    uint16_t LoopId;
    uint16_t Reserved0;
    uint8_t Reserved[28];
};
static_assert(sizeof(EXT_DISC_PORT) == 60);
static_assert(offsetof(EXT_DISC_PORT, WWPN) == 8 && offsetof(EXT_DISC_PORT, Id) == 16);
static_assert(offsetof(EXT_DISC_PORT, Type) == 20 && offsetof(EXT_DISC_PORT, Status) == 22);
static_assert(offsetof(EXT_DISC_PORT, Bus) == 24 && offsetof(EXT_DISC_PORT, TargetId) == 26);
static_assert(offsetof(EXT_DISC_PORT, LoopId) == 28 && offsetof(EXT_DISC_PORT, Reserved) == 32);

struct EXT_CHIP {
    uint16_t VendorId;
    uint16_t DeviceId;
    uint16_t SubVendorId;
    uint16_t SubSystemId;
    uint16_t PciBusNumber;
    uint16_t PciSlotNumber;
    uint32_t IoAddr;
    uint32_t IoAddrLen;
    uint32_t MemAddr;
    uint32_t MemAddrLen;
    uint16_t ChipType;
    uint16_t InterruptLevel;
    uint16_t OutMbx[8];
    uint16_t PciDevFunc;
    uint16_t DomainNr;
    uint32_t PcieLinkCap;
    uint16_t PcieLinkStat;
    uint16_t Pad0;
    uint32_t FlashBlockSize;
    uint16_t Reserved[9];
    uint16_t Pad1;
};
static_assert(sizeof(EXT_CHIP) == 84);
static_assert(offsetof(EXT_CHIP, PciBusNumber) == 8 && offsetof(EXT_CHIP, PciSlotNumber) == 10);
static_assert(offsetof(EXT_CHIP, IoAddr) == 12 && offsetof(EXT_CHIP, MemAddrLen) == 24);
static_assert(offsetof(EXT_CHIP, ChipType) == 28 && offsetof(EXT_CHIP, InterruptLevel) == 30);
static_assert(offsetof(EXT_CHIP, OutMbx) == 32 && offsetof(EXT_CHIP, PciDevFunc) == 48);
static_assert(offsetof(EXT_CHIP, DomainNr) == 50 && offsetof(EXT_CHIP, PcieLinkCap) == 52);
static_assert(offsetof(EXT_CHIP, PcieLinkStat) == 56 && offsetof(EXT_CHIP, FlashBlockSize) == 60);
static_assert(offsetof(EXT_CHIP, Reserved) == 64);

struct EXT_DRIVER {
    char Version[32];
    uint16_t NumOfBus;
    uint16_t TargetsPerBus;
    uint16_t LunsPerTarget;
    uint16_t Pad;
    uint32_t MaxTransferLen;
    uint32_t MaxDataSegments;
    uint16_t DmaBitAddresses;
    uint16_t IoMapType;
    uint32_t Attrib;
    uint32_t InternalFlags[4];
    uint32_t Reserved[32];
};
static_assert(sizeof(EXT_DRIVER) == 200);
static_assert(offsetof(EXT_DRIVER, NumOfBus) == 32 && offsetof(EXT_DRIVER, LunsPerTarget) == 36);
static_assert(offsetof(EXT_DRIVER, MaxTransferLen) == 40 && offsetof(EXT_DRIVER, MaxDataSegments) == 44);
static_assert(offsetof(EXT_DRIVER, DmaBitAddresses) == 48 && offsetof(EXT_DRIVER, IoMapType) == 50);
static_assert(offsetof(EXT_DRIVER, Attrib) == 52 && offsetof(EXT_DRIVER, InternalFlags) == 56);
static_assert(offsetof(EXT_DRIVER, Reserved) == 72);

struct EXT_FW {
    char Version[32];
    uint32_t Attrib;
    uint8_t Reserved[164];
};
static_assert(sizeof(EXT_FW) == 200 && offsetof(EXT_FW, Attrib) == 32);

struct EXT_STATISTICS {
    uint32_t Counter[12];  // ControllerErrorCount ... InvalidCRCCount, in that order
    uint32_t Reserved[16];
};
static_assert(sizeof(EXT_STATISTICS) == 112);

struct EXT_LN_DRIVER_DATA {
    uint8_t Major;
    uint8_t Minor;
    uint8_t Patch;
    uint8_t Beta;
    uint8_t Reserved1[4];
    uint32_t Flags;
    uint32_t Reserved[13];
};
static_assert(sizeof(EXT_LN_DRIVER_DATA) == 64 && offsetof(EXT_LN_DRIVER_DATA, Flags) == 8);

struct EXT_FO_DRIVER_VERSION {
    char Version[32];
    uint32_t Attrib;
    uint8_t Reserved[64];
};
static_assert(sizeof(EXT_FO_DRIVER_VERSION) == 100 && offsetof(EXT_FO_DRIVER_VERSION, Attrib) == 32);

struct EXT_SCSI_ADDR {
    uint16_t Bus;
    uint16_t Target;
    uint16_t Lun;
    uint16_t Padding[5];
};
static_assert(sizeof(EXT_SCSI_ADDR) == 16 && offsetof(EXT_SCSI_ADDR, Lun) == 4);

struct EXT_DEST_ADDR {
    uint8_t DestAddr[8];
    uint16_t DestType;
    uint16_t Lun;
    uint16_t Padding[2];
};
static_assert(sizeof(EXT_DEST_ADDR) == 16 && offsetof(EXT_DEST_ADDR, DestType) == 8);
static_assert(offsetof(EXT_DEST_ADDR, Lun) == 10);

struct EXT_SCSI_PASSTHRU {
    uint8_t Addr[16];  // EXT_SCSI_ADDR or EXT_DEST_ADDR
    uint8_t Direction;
    uint8_t CdbLength;
    uint8_t Cdb[16];
    uint16_t Pad;
    uint32_t Timeout;
    uint32_t Reserved[13];
    uint16_t Reserved2;
    uint16_t SenseLength;
    uint8_t SenseData[256];
};
static_assert(sizeof(EXT_SCSI_PASSTHRU) == 352);
static_assert(offsetof(EXT_SCSI_PASSTHRU, Direction) == 16 && offsetof(EXT_SCSI_PASSTHRU, CdbLength) == 17);
static_assert(offsetof(EXT_SCSI_PASSTHRU, Cdb) == 18 && offsetof(EXT_SCSI_PASSTHRU, Timeout) == 36);
static_assert(offsetof(EXT_SCSI_PASSTHRU, Reserved) == 40 && offsetof(EXT_SCSI_PASSTHRU, Reserved2) == 92);
static_assert(offsetof(EXT_SCSI_PASSTHRU, SenseLength) == 94 && offsetof(EXT_SCSI_PASSTHRU, SenseData) == 96);

struct EXT_REG_AEN {
    uint32_t Enable;
    uint16_t BufLength;
    uint16_t Reserved;
};
static_assert(sizeof(EXT_REG_AEN) == 8 && offsetof(EXT_REG_AEN, BufLength) == 4);

struct EXT_ASYNC_EVENT {
    uint32_t AsyncEventCode;
    uint8_t Payload[12];
};
static_assert(sizeof(EXT_ASYNC_EVENT) == 16);

struct EXT_BEACON_CONTROL {
    uint32_t State;
    uint32_t Reserved[3];
};
static_assert(sizeof(EXT_BEACON_CONTROL) == 16);

// Failover LUN and target data (0xCE-0xD1): a 32-byte request, followed in
// a write by its entries; a read answers with a list header and entries.
struct EXT_FO_DATA_REQUEST {
    uint16_t drvr_inst;
    uint8_t FromStore;  // 1: the saved configuration instead of the live view (reads only)
    uint8_t Reserved1;
    uint16_t TargetId;  // kFoSelectAll = every target
    uint16_t Lun;       // kFoSelectAll = every LUN; not used by the target commands
    uint8_t Reserved2[24];
};
static_assert(sizeof(EXT_FO_DATA_REQUEST) == 32 && offsetof(EXT_FO_DATA_REQUEST, FromStore) == 2);
static_assert(offsetof(EXT_FO_DATA_REQUEST, Reserved1) == 3 && offsetof(EXT_FO_DATA_REQUEST, TargetId) == 4);
static_assert(offsetof(EXT_FO_DATA_REQUEST, Lun) == 6 && offsetof(EXT_FO_DATA_REQUEST, Reserved2) == 8);

struct EXT_FO_LIST_HEADER {
    uint32_t EntryCount;
    uint8_t Reserved[28];
};
static_assert(sizeof(EXT_FO_LIST_HEADER) == 32);

struct EXT_FO_LUN_ENTRY {
    uint16_t TargetId;
    uint16_t Lun;
    uint8_t PortName[8];
    uint8_t NodeName[8];
    uint32_t Flags;
    uint16_t PathCount;
    uint8_t Reserved[6];
};
static_assert(sizeof(EXT_FO_LUN_ENTRY) == 32 && offsetof(EXT_FO_LUN_ENTRY, Lun) == 2);
static_assert(offsetof(EXT_FO_LUN_ENTRY, PortName) == 4 && offsetof(EXT_FO_LUN_ENTRY, NodeName) == 12);
static_assert(offsetof(EXT_FO_LUN_ENTRY, Flags) == 20 && offsetof(EXT_FO_LUN_ENTRY, PathCount) == 24);
static_assert(offsetof(EXT_FO_LUN_ENTRY, Reserved) == 26);

inline constexpr uint16_t kFoSelectAll = 0xFFFF;
inline constexpr uint32_t kFoMaxWriteEntries = 256;  // entries one write may carry
inline constexpr uint32_t kFoFlagVisible = 0x1;
inline constexpr uint32_t kFoFlagPreferred = 0x2;

// Get/set data sub-codes served.
inline constexpr uint16_t kGetStatistics = 3;
inline constexpr uint16_t kGetDriver = 6;
inline constexpr uint16_t kGetFw = 7;
inline constexpr uint16_t kGetBeacon = 8;  // also the set-data code
inline constexpr uint16_t kGetFc4Statistics = 9;
inline constexpr uint16_t kGetPortStatistics = 112;

// Query sub-codes served.
inline constexpr uint16_t kQueryNode = 1;
inline constexpr uint16_t kQueryPort = 2;
inline constexpr uint16_t kQueryDiscPort = 3;
inline constexpr uint16_t kQueryDiscTarget = 4;
inline constexpr uint16_t kQueryChip = 8;
inline constexpr uint16_t kQueryCnaPort = 9;
inline constexpr uint16_t kQueryAdapterVersions = 10;

inline constexpr uint32_t kActivateFirmware = 0x2025C;
inline constexpr uint32_t kActivateRegions = 0x2025D;

}  // namespace vxemu::wire

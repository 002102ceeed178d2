// SPDX-License-Identifier: MIT
// Reply and request records the driver exchanges with the library. They are
// passed to the driver as whole, naturally aligned records of these sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "vxhmx.h"

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
    uint8_t Reserved[16];  // OEM adapters: serial number text
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

// Discovered port or target (60 bytes).
struct EXT_DISC_PORT {
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
    uint32_t FlashBlockSize;  // flash sector size
    uint16_t Reserved[9];
    uint16_t Pad1;
};
static_assert(sizeof(EXT_CHIP) == 84);
static_assert(offsetof(EXT_CHIP, SubVendorId) == 4 && offsetof(EXT_CHIP, SubSystemId) == 6);
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

// Flags of EXT_LN_DRIVER_DATA that the library keeps in record 0.
inline constexpr uint32_t kDrvFlagLargeLun = 0x4;  // 4096 LUNs per target
inline constexpr uint32_t kDrvFlag8 = 0x8;

struct EXT_SCSI_ADDR {
    uint16_t Bus;
    uint16_t Target;
    uint16_t Lun;
    uint16_t Padding[5];
};
static_assert(sizeof(EXT_SCSI_ADDR) == 16 && offsetof(EXT_SCSI_ADDR, Lun) == 4);

struct EXT_DEST_ADDR {
    uint8_t DestAddr[8];
    uint16_t DestType;  // 2 = port world-wide name
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

// EXT_BEACON_CONTROL is a public record (vxhmx.h): the driver exchanges it as is.
static_assert(sizeof(EXT_BEACON_CONTROL) == 16 && offsetof(EXT_BEACON_CONTROL, Reserved) == 4);

// Bounds-checked little-endian reads over a byte buffer (VPD, shared file).
class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    std::optional<uint8_t> u8(std::size_t off) const {
        if (off >= bytes_.size()) return std::nullopt;
        return bytes_[off];
    }
    std::optional<uint16_t> le16(std::size_t off) const {
        if (off > bytes_.size() || bytes_.size() - off < 2) return std::nullopt;
        return static_cast<uint16_t>(bytes_[off] | (bytes_[off + 1] << 8));
    }
    std::optional<uint32_t> le32(std::size_t off) const {
        if (off > bytes_.size() || bytes_.size() - off < 4) return std::nullopt;
        return static_cast<uint32_t>(bytes_[off]) | (static_cast<uint32_t>(bytes_[off + 1]) << 8) |
               (static_cast<uint32_t>(bytes_[off + 2]) << 16) | (static_cast<uint32_t>(bytes_[off + 3]) << 24);
    }
    std::size_t size() const { return bytes_.size(); }

private:
    std::span<const uint8_t> bytes_;
};

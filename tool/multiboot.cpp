// SPDX-License-Identifier: MIT
#include "multiboot.h"

#include <cstring>
#include <string>

#include "byte_view.h"
#include "chip_table.h"
#include "firmware_image.h"
#include "messages.h"
#include "optrom_request.h"
#include "option_rom.h"
#include "oss.h"
#include "subsystem_list.h"

namespace {

// Fields of a BIOS image, relative to its start.
constexpr uint64_t kBiosHardwareType = 0x09;
constexpr uint64_t kBiosChipCode = 0x14;
constexpr uint64_t kBiosSsvid = 0x20;
constexpr uint64_t kBiosDeviceId = 0x2A;
constexpr uint64_t kBiosModel = 0x44;
constexpr uint64_t kBiosModelEnd = 0x56;  // last byte of the model field
constexpr size_t kModelMax = 18;
// The device ID of an EFI or FCode image.
constexpr uint64_t kBootDeviceId = 0x22;
// Where the SBus form of an FCode image keeps its hardware type.
constexpr uint64_t kSbusHardwareType = 0x18038;

constexpr size_t kChipTypeSize = 20;

// The hardware type the checks use: the chip-type text without its first
// three characters.
const char *check_hardware(const char *chipType) {
    if (chipType == nullptr) return "";
    return ::strnlen(chipType, 3) < 3 ? "" : chipType + 3;
}

// The BIOS patch drops "FCX" only when the text carries it.
const char *patch_hardware(const char *chipType) {
    if (chipType == nullptr) return "";
    const char *fcx = std::strstr(chipType, "FCX");
    return fcx != nullptr ? fcx + 3 : chipType;
}

// The first four bytes of a hardware type, zero after its end, as the image
// stores them.
void hardware_bytes(const char *hw, uint8_t (&out)[4]) {
    const size_t n = ::strnlen(hw, 4);
    for (size_t i = 0; i < 4; ++i) out[i] = i < n ? static_cast<uint8_t>(hw[i]) : 0;
}

bool contains(const char *text, const char *part) { return std::strstr(text, part) != nullptr; }

bool is_fw_stop(int code) { return code == 16 || code == 18 || code == 19 || code == 20; }

std::span<uint8_t> bounded(std::span<uint8_t> buffer, int32_t size) {
    if (size < 0) return buffer.first(0);
    return static_cast<size_t>(size) < buffer.size() ? buffer.first(static_cast<size_t>(size)) : buffer;
}

// The chip-type text of the adapter's row in the supported-adapter list.
bool lookup_chip_type(uint16_t ssdid, uint16_t ssvid, const char *caller, char (&chipType)[kChipTypeSize]) {
    const std::string path = std::string(OSSGetDirPath()) + "adapters.properties";
    SubSystemIDListPtr list = BuildSubSystemListFromFile(path.c_str());
    const SubSystemIDEntry *row = FindSubSystemInSubSystemList(list.get(), ssdid, ssvid);
    if (row == nullptr) return false;
    FwTrace("%s: %s", caller, row->description);
    std::memcpy(chipType, row->chip, sizeof chipType);
    chipType[kChipTypeSize - 1] = '\0';
    return true;
}

// One image of a chain held in memory: its offset and PCI data structure.
struct ChainImage {
    uint64_t data = 0;  // offset of "PCIR"
    uint8_t codeType = 0;
    bool last = false;
    uint32_t length = 0;
    char version[16] = {};
};

// 0, or 21 / 22 for an image without its signatures.
int read_chain_image(std::span<const uint8_t> buffer, uint64_t o, ChainImage &image) {
    const ByteView view(buffer);
    const auto sig0 = view.u8(o);
    const auto sig1 = view.u8(o + 1);
    const auto pointer = view.le16(o + rom::kDataOffset);
    if (!sig0 || !sig1 || *sig0 != 0x55 || *sig1 != 0xAA || !pointer) {
        FwTrace("Failed to recognize header signature!");
        return kBootNoSignature;
    }
    image.data = o + *pointer;
    if (!view.has(image.data, kPciDataSize) || std::memcmp(buffer.data() + image.data, "PCIR", 4) != 0) {
        FwTrace("Failed to recognize data signature!");
        return kBootNoPcir;
    }
    const uint8_t *d = buffer.data() + image.data;
    image.codeType = d[rom::kCodeType];
    image.last = IsLastImage(d);
    image.length = GetImageLength(d);
    std::snprintf(image.version, sizeof image.version, "%d.%02d", d[rom::kRevision + 1], d[rom::kRevision]);
    return 0;
}

// The BIOS branch of the multiboot walk: a common image is checked, patched,
// sealed and checked again; a standard one is left alone. `stop` says which
// verdicts of the first check end the walk.
int multiboot_bios(std::span<uint8_t> buffer, const char *chipType, const char *hw, uint16_t ssvid, const char *model,
                   uint64_t o, bool alsoStopOn11, int result, bool &stop) {
    if (!isCommonBIOSImage(buffer, o)) return result;
    FwTrace("validateUpdateMultibootOptionROM: CommonBIOSImage (BIOS) detected!");
    int status = Validate(buffer, hw, o);
    // A checksum complaint is no reason to stop: the patch seals the image again.
    if (status == kBootNotForAdapter || (alsoStopOn11 && status == kBootIdMismatch)) {
        stop = true;
        return status;
    }
    status = UpdateImage(0, ssvid, buffer, model, chipType, o);
    if (status != 0) {
        stop = true;
        return status;
    }
    if (ComputeChecksum(1, buffer, o) == 1) result = Validate(buffer, hw, o);
    return result;
}

int multiboot_fcode(std::span<uint8_t> buffer, const char *chipType, const char *hw, int busFlag, uint64_t o,
                    const ChainImage &image, bool &stop) {
    FwTrace("validateUpdateMultibootOptionROM: CommonBIOSImage (FCode) detected!");
    int status = validateFCode(buffer, hw, busFlag, o);
    if (status != 0) {
        stop = true;
        return status;
    }
    FwTrace("FCode version=%s Offset=0x%x (%ld)", image.version, static_cast<unsigned>(o), static_cast<long>(o));
    status = updateImageFCode(0, buffer, chipType, o);
    if (status != 0) {
        FwTrace("validateUpdateMultibootOptionROM: Failed to update FCode image.");
        stop = true;
        return status;
    }
    status = validateFCode(buffer, hw, busFlag, o);
    if (status != 0)
        FwTrace("validateUpdateMultibootOptionROM: Failed to validate after update FCode image.");
    else
        FwTrace("validateUpdateMultibootOptionROM: Common BIOS - Fcode file successfully validated.");
    return status;
}

int multiboot_efi(std::span<uint8_t> buffer, const char *chipType, const char *hw, uint64_t o, const ChainImage &image,
                  bool &stop) {
    FwTrace("validateUpdateMultibootOptionROM: CommonBIOSImage (EFI) detected!");
    int status = ValidateEFI(buffer, hw, o);
    if (status != 0) {
        stop = true;
        return status;
    }
    FwTrace("EFI version=%s Offset=0x%x (%ld)", image.version, static_cast<unsigned>(o), static_cast<long>(o));
    status = UpdateImageEFI(0, buffer, chipType, o);
    if (status != 0) {
        FwTrace("validateUpdateMultibootOptionROM: Failed to validate EFI image!");
        stop = true;
        return status;
    }
    status = ValidateEFI(buffer, hw, o);
    FwTrace("validateUpdateMultibootOptionROM: EFI image successfully validated.");
    return status;
}

// The walk both multiboot entries share. The older entry checks FCode and EFI
// images before it asks whether they are common, and also stops on an ID
// mismatch of the BIOS check.
int walk_multiboot(std::span<uint8_t> buffer, const char *chipType, uint16_t ssvid, const char *model, int busFlag,
                   bool older) {
    const char *hw = check_hardware(chipType);
    int result = kBootNotForAdapter;
    FwTrace("Parsing the PCI header...");
    uint64_t o = 0;
    // Every image is at least 512 bytes, so the chain cannot hold more than this.
    for (size_t images = 0; images <= buffer.size() / 512; ++images) {
        ChainImage image;
        if (const int status = read_chain_image(buffer, o, image); status != 0) return status;
        bool stop = false;
        switch (image.codeType) {
            case kCodeFcode:
                if (older) {
                    const int status = validateFCode(buffer, hw, busFlag, o);
                    if (status != 0) return status;
                }
                if (isCommonFCodeImage(buffer, hw)) result = multiboot_fcode(buffer, chipType, hw, busFlag, o, image, stop);
                break;
            case kCodeX86:
                FwTrace("HMX_PDS_CT_X8: BIOS version=%s Offset=0x%x (%ld)", image.version, static_cast<unsigned>(o),
                        static_cast<long>(o));
                result = multiboot_bios(buffer, chipType, hw, ssvid, model, o, older, result, stop);
                break;
            case kCodeEfi:
                if (older) {
                    const int status = ValidateEFI(buffer, hw, o);
                    if (status != 0) return status;
                }
                if (isCommonEFIImage(buffer, hw)) result = multiboot_efi(buffer, chipType, hw, o, image, stop);
                break;
            default: break;
        }
        if (stop || image.last) return result;
        // A zero length would visit the same image again.
        if (image.length == 0) return result;
        o += image.length;
    }
    return result;
}

}  // namespace

int ValidateMultibootForChip(const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                             const char *model, int busFlag, uint32_t *region) {
    const uint32_t requested = region != nullptr ? *region : 0xFF;
    FwTrace("validateUpdateMultibootOptionROM: Region=%d, buffer size=%d", static_cast<int>(requested), size);
    // The whole option ROM is always what gets written from a multiboot file,
    // so the firmware check below never runs here.
    if (region != nullptr) *region = 0xFF;
    const uint32_t current = 0xFF;
    if (size != kMultibootImageSize || buffer.size() < static_cast<size_t>(kMultibootImageSize)) return kBootWrongSize;
    if (chipType == nullptr) return kBootNotForAdapter;
    std::span<uint8_t> image = bounded(buffer, size);
    FwTrace("validateUpdateMultibootOptionROM: FCX Type %s, Region=0x%02x", chipType, current);
    if (current == 1) {
        const int status = validateFirmware(image, chipType, kMultibootImageSize, 1);
        if (is_fw_stop(status)) return status;
    }
    return walk_multiboot(image, chipType, ssvid, model, busFlag, false);
}

int validateUpdateMultibootOptionROM(uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                                     const char *model, int busFlag) {
    uint32_t *region = g_ptrOptionROMRequest != nullptr ? &g_ptrOptionROMRequest->Region : nullptr;
    // The row is looked up only for a buffer of the right size.
    char chipType[kChipTypeSize] = {};
    const bool found =
        size == kMultibootImageSize && lookup_chip_type(ssdid, ssvid, "validateUpdateMultibootOptionROM", chipType);
    return ValidateMultibootForChip(found ? chipType : nullptr, ssvid, buffer, size, model, busFlag, region);
}

int ValidateMultibootForChip_1(const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                               const char *model, int busFlag, uint32_t region) {
    if (chipType == nullptr) return kBootNotForAdapter;
    const char *hw = check_hardware(chipType);
    std::span<uint8_t> image = bounded(buffer, size);
    if (region == 1) {
        if (size > 0x40000) return kBootFirmwareTooLarge;
        const int status = validateFirmware(image, chipType, size, 1);
        if (status == kFirmwareBadChecksum || status == kFirmwareNotForChip || status == kFirmwareValid) return status;
    } else {
        const bool bigFlash = contains(hw, "14") || contains(hw, "16") || contains(hw, "15");
        if (bigFlash && size != kMultibootImageSize) return kBootRegionWrongSize;
        if (region == 7 && size != 0x40000) return kBootCodeWrongSize;
        if (region != 0xFF && size != kMultibootImageSize) return kBootRegionWrongSize;
    }
    return walk_multiboot(image, chipType, ssvid, model, busFlag, true);
}

int validateUpdateMultibootOptionROM_1(uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                                       const char *model, int busFlag) {
    char chipType[kChipTypeSize] = {};
    if (!lookup_chip_type(ssdid, ssvid, "validateUpdateMultibootOptionROM", chipType)) return kBootNotForAdapter;
    const uint32_t region = g_ptrOptionROMRequest != nullptr ? g_ptrOptionROMRequest->Region : 0xFF;
    return ValidateMultibootForChip_1(chipType, ssvid, buffer, size, model, busFlag, region);
}

int ValidateStandardForChip(FILE *file, const char *chipType, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                            const char *model, int busFlag, uint32_t region) {
    if (chipType == nullptr) return kBootNotForAdapter;
    const char *hw = check_hardware(chipType);
    std::span<uint8_t> image = bounded(buffer, size);
    FwTrace("validateUpdateOptionROM: FCX Type %s", chipType);
    FwTrace("validateUpdateOptionROM: g_ptrOptionROMRequest->Region=0x%x", region);
    if (region == 1) {
        const int status = validateFirmware(image, chipType, size, 1);
        FwTrace("validateUpdateOptionROM: validateFirmware returns %d", status);
        if (is_fw_stop(status)) return status;
    }

    FwTrace("Reading file image header...");
    ImageHeader header = {};
    PciData data = {};
    if (GetFileImageHeader(file, header, data, 0) == 0) return kBootNoHeader;

    // Nothing was checked yet: an image nobody looked at is not for this adapter.
    int result = kBootNotForAdapter;
    if (IsBiosImage(data)) {
        if (!isCommonBIOSImage(image, 0)) {
            FwTrace("validateUpdateOptionROM: returns %d (not a common bios file).\n", result);
            result = Validate(image, hw, 0);
            if (result == 0) FwTrace("validateUpdateOptionROM: Validate returns %d (not a common bios file).\n", result);
            return result;
        }
        FwTrace("ValidateUpdateOptionROM: CommonBIOSImage (BIOS) detected!");
        result = Validate(image, hw, 0);
        if (const int status = UpdateImage(0, ssvid, image, model, chipType, 0); status != 0) return status;
        ComputeChecksum(1, image, 0);
        result = Validate(image, hw, 0);
        FwTrace("ValidateUpdateOptionROM: Common BIOS file successfully validated.");
    }

    // The further images of the chain are checked and patched at offset 0 of
    // the buffer, whatever their own offset: that is how this flow works.
    long offset = 0;
    for (size_t images = 1; !IsLastImage(data) && images <= image.size() / 512 + 1; ++images) {
        FwTrace("The PCI size is:  %d.", static_cast<int>(kPciDataSize));
        const uint32_t length = GetImageLength(data);
        if (length == 0) break;
        offset += static_cast<long>(length);
        FwTrace("The image size is:  %d.", static_cast<int>(length));
        FwTrace("The new start address is:  %d.", static_cast<int>(offset));
        if (GetFileImageHeader(file, header, data, offset) == 0) break;
        if (IsBiosImage(data) && isCommonBIOSImage(image, 0)) {
            FwTrace("ValidateUpdateOptionROM: CommonBIOSImage (BIOS) detected!");
            result = Validate(image, hw, 0);
            if (const int status = UpdateImage(0, ssvid, image, model, chipType, 0); status != 0) return status;
            ComputeChecksum(1, image, 0);
            result = Validate(image, hw, 0);
        } else if (IsFcodeImage(data) && isCommonFCodeImage(image, hw)) {
            FwTrace("ValidateUpdateOptionROM: CommonBIOSImage (FCode) detected!");
            if (const int status = updateImageFCode(0, image, chipType, 0); status != 0) return status;
            result = validateFCode(image, hw, busFlag, 0);
            if (result == 0) FwTrace("ValidateUpdateOptionROM: Common BIOS - Fcode file successfully validated.");
        } else if (IsEfiImage(data) && isCommonEFIImage(image, hw)) {
            FwTrace("ValidateUpdateOptionROM: CommonBIOSImage (EFI) detected!");
            if (const int status = UpdateImageEFI(0, image, chipType, 0); status != 0) return status;
            result = ValidateEFI(image, hw, 0);
        }
    }
    return result;
}

int validateUpdateOptionROM(FILE *file, uint16_t ssdid, uint16_t ssvid, std::span<uint8_t> buffer, int32_t size,
                            const char *model, int busFlag) {
    char chipType[kChipTypeSize] = {};
    if (!lookup_chip_type(ssdid, ssvid, "validateUpdateOptionROM", chipType)) return kBootNotForAdapter;
    const uint32_t region = g_ptrOptionROMRequest != nullptr ? g_ptrOptionROMRequest->Region : 0;
    return ValidateStandardForChip(file, chipType, ssvid, buffer, size, model, busFlag, region);
}

int UpdateImage(uint16_t, uint16_t ssvid, std::span<uint8_t> buffer, const char *model, const char *chipType,
                uint64_t o) {
    FwTrace("UpdateImage: Updating BIOS image with offset=0x%x  (%d)...", static_cast<unsigned>(o), static_cast<int>(o));
    const ByteView view(buffer);
    if (o > buffer.size() || !view.has(o, kBiosModelEnd + 1)) return kBootNotForAdapter;
    uint8_t *bios = buffer.data() + o;

    const char *text = model != nullptr ? model : "";
    const size_t length = ::strnlen(text, kModelMax);
    std::memset(bios + kBiosModel, 0, kBiosModelEnd - kBiosModel + 1);
    std::memcpy(bios + kBiosModel, text, length);
    bios[kBiosModel + length] = ' ';
    FwTrace("HBA Model is %s", text);
    FwTrace("HBA Model length is %d", static_cast<int>(std::strlen(text)));

    const char *type = chipType != nullptr ? chipType : "";
    FwTrace("UpdateImage: HBA's FCX Type: %s", type);
    const char *hw = patch_hardware(type);
    FwTrace("UpdateImage: HBA's Hardware Type: %s", hw);
    uint8_t hwBytes[4];
    hardware_bytes(hw, hwBytes);
    std::memcpy(bios + kBiosHardwareType, hwBytes, 4);

    int status = kBootOk;
    const BootPatchChip *chip = FindBootPatchChip(type);
    if (chip != nullptr) {
        bios[kBiosChipCode] = chip->biosChipCode;
    } else {
        CoreLogMessage(kMsgError, "UpdateImage: Unknown hardware type (%s)!", type);
        status = kBootUnknownHardware;
    }

    bios[kBiosSsvid] = static_cast<uint8_t>(ssvid);
    bios[kBiosSsvid + 1] = static_cast<uint8_t>(ssvid >> 8);
    FwTrace("The adapter SSVID is [1]: 0x%x", bios[kBiosSsvid + 1]);
    FwTrace("The adapter SSVID is [0]: 0x%x", bios[kBiosSsvid]);

    if (chip != nullptr) {
        bios[kBiosDeviceId] = static_cast<uint8_t>(chip->deviceId);
        bios[kBiosDeviceId + 1] = static_cast<uint8_t>(chip->deviceId >> 8);
    } else {
        CoreLogMessage(kMsgError, "UpdateImage: Unknown hardware type (%s)!", type);
    }
    FwTrace("UpdateImage: The adapter SSDID is [1]: 0x%x", bios[kBiosDeviceId + 1]);
    FwTrace("UpdateImage: The adapter SSDID is [0]: 0x%x", bios[kBiosDeviceId]);
    return status;
}

namespace {

// The chip codes a common BIOS image may carry for a hardware type; the
// first row that applies decides.
bool chip_code_accepted(const char *hw, uint8_t code) {
    auto none_of = [code](std::initializer_list<uint8_t> refused) {
        for (uint8_t r : refused)
            if (code == r) return false;
        return true;
    };
    if (std::strcmp(hw, "123S") == 0 || std::strcmp(hw, "123s") == 0) return code == 0x21;
    if (std::strcmp(hw, "123") == 0) return code == 0x1F || code == 0x1D;
    if (contains(hw, "120") || contains(hw, "121") || contains(hw, "122")) return none_of({0x1F, 0x20});
    if (contains(hw, "14")) return none_of({0x1F, 0x20, 0x1D, 0x21, 0x31});
    if (contains(hw, "126") || contains(hw, "127")) return code == 0x1F || code == 0x20;
    if (contains(hw, "16")) return none_of({0x1F, 0x20, 0x1D, 0x21, 0x22, 0x25, 0x28, 0x29, 0x31});
    if (contains(hw, "15")) return none_of({0x1F, 0x20, 0x1D, 0x21, 0x22, 0x25, 0x28, 0x29});
    return false;
}

}  // namespace

int Validate(std::span<uint8_t> buffer, const char *hardwareType, uint64_t o) {
    const char *hw = hardwareType != nullptr ? hardwareType : "";
    const ByteView view(buffer);
    if (o > buffer.size() || !view.has(o, kBiosChipCode + 1)) return kBootNotForAdapter;
    const uint8_t *bios = buffer.data() + o;
    uint8_t hwBytes[4];
    hardware_bytes(hw, hwBytes);
    FwTrace("Validate: Adapter HW Type: %s", hw);
    FwTrace("Validate: BIOS: FCX[0]- %x, FCX[1]- %x, FCX[2]- %x, FCX[3]- %x", bios[kBiosHardwareType],
            bios[kBiosHardwareType + 1], bios[kBiosHardwareType + 2], bios[kBiosHardwareType + 3]);
    FwTrace("Validate: HBA : FCX[0]- %x, FCX[1]- %x, FCX[2]- %x, FCX[3]- %x", hwBytes[0], hwBytes[1], hwBytes[2],
            hwBytes[3]);

    if (!isCommonBIOSImage(buffer, o)) {
        FwTrace("Validate: Standard BIOS file detected.");
        return std::memcmp(bios + kBiosHardwareType, hwBytes, 4) == 0 ? kBootOk : kBootNotForAdapter;
    }
    const uint8_t code = bios[kBiosChipCode];
    FwTrace("Validate: Common BIOS file detected (hw=%s hba_code=%x.", hw, code);
    if (contains(hw, "15") && !contains(hw, "12") && !contains(hw, "14") && !contains(hw, "16"))
        FwTrace("Validate: m_Data[0x%x]=0x%x", static_cast<unsigned>(kBiosChipCode), code);
    if (!chip_code_accepted(hw, code)) return kBootNotForAdapter;
    return ComputeChecksum(0, buffer, o) == 1 ? kBootOk : kBootBadChecksum;
}

namespace {

// The device ID of the chip table into an EFI or FCode image.
int patch_boot_device_id(std::span<uint8_t> buffer, const char *chipType, uint64_t o) {
    const BootPatchChip *chip = chipType != nullptr ? FindBootPatchChip(chipType) : nullptr;
    if (chip == nullptr || !chip->commonBootCode) return kBootUnknownHardware;
    const ByteView view(buffer);
    if (o > buffer.size() || !view.has(o + kBootDeviceId, 2)) return kBootNotForAdapter;
    buffer[o + kBootDeviceId] = static_cast<uint8_t>(chip->deviceId);
    buffer[o + kBootDeviceId + 1] = static_cast<uint8_t>(chip->deviceId >> 8);
    return kBootOk;
}

// "%02x" texts of the high and the low byte of an image's device ID.
bool device_id_texts(std::span<const uint8_t> buffer, uint64_t o, char (&high)[3], char (&low)[3]) {
    const ByteView view(buffer);
    if (o > buffer.size() || !view.has(o + kBootDeviceId, 2)) return false;
    std::snprintf(high, sizeof high, "%02x", buffer[o + kBootDeviceId + 1]);
    std::snprintf(low, sizeof low, "%02x", buffer[o + kBootDeviceId]);
    return true;
}

}  // namespace

int UpdateImageEFI(uint16_t, std::span<uint8_t> buffer, const char *chipType, uint64_t o) {
    FwTrace("UpdateImageEFI: Updating EFI in common image...");
    FwTrace("UpdateImageEFI: HBA's FCX Type: %s", chipType != nullptr ? chipType : "");
    return patch_boot_device_id(buffer, chipType, o);
}

int ValidateEFI(std::span<const uint8_t> buffer, const char *hardwareType, uint64_t o) {
    const char *hw = hardwareType != nullptr ? hardwareType : "";
    char high[3];
    char low[3];
    if (!device_id_texts(buffer, o, high, low)) return kBootIdMismatch;
    FwTrace("validateEFI: FCX=%s mString=%s lString=%s", hw, high, low);
    // One EFI image family ("x5") passes for every adapter.
    if ((hw[0] != '\0' && high[1] == hw[1]) || high[1] == '5') return kBootOk;
    return kBootIdMismatch;
}

int updateImageFCode(uint16_t, std::span<uint8_t> buffer, const char *chipType, uint64_t o) {
    const char *type = chipType != nullptr ? chipType : "";
    FwTrace("updateImageFCode: Updating FCode in common image...");
    FwTrace("HBA's FCX Type: %s", type);
    FwTrace("updateImageFCode: HBA's Hardware Type: %s  %s offset=%d", check_hardware(type), type, static_cast<int>(o));
    const BootPatchChip *chip = FindBootPatchChip(type);
    if (chip == nullptr || !chip->commonBootCode) {
        CoreLogMessage(kMsgError, "updateImageFCode: Unknown hardware type (%s)!", type);
        return kBootUnknownHardware;
    }
    const ByteView view(buffer);
    const bool traced = std::strcmp(type, "FCX140") == 0 && o <= buffer.size() && view.has(o + kBootDeviceId, 2);
    if (traced)
        FwTrace("updateImageFCode: %s - Before update - MSOffset 0x%x=0x%x LSO 0x%x=0x%x", type,
                static_cast<unsigned>(kBootDeviceId + 1), buffer[o + kBootDeviceId + 1],
                static_cast<unsigned>(kBootDeviceId), buffer[o + kBootDeviceId]);
    const int status = patch_boot_device_id(buffer, type, o);
    if (traced)
        FwTrace("updateImageFCode: %s - After update - MSOffset 0x%x=0x%x LSO 0x%x=0x%x", type,
                static_cast<unsigned>(kBootDeviceId + 1), buffer[o + kBootDeviceId + 1],
                static_cast<unsigned>(kBootDeviceId), buffer[o + kBootDeviceId]);
    return status;
}

int validateFCode(std::span<const uint8_t> buffer, const char *hardwareType, int busFlag, uint64_t o) {
    const char *hw = hardwareType != nullptr ? hardwareType : "";
    uint8_t hwBytes[4];
    hardware_bytes(hw, hwBytes);
    if (busFlag != 0) {
        const ByteView view(buffer);
        if (!view.has(kSbusHardwareType, 2)) return kBootIdMismatch;
        const uint8_t b0 = buffer[kSbusHardwareType];
        const uint8_t b1 = buffer[kSbusHardwareType + 1];
        FwTrace("validateFCode (SBUS): HBA FCX[0]=%x FCX[1]=%x", hwBytes[0], hwBytes[1]);
        FwTrace("validateFCode (SBUS): Buffer FCX[0]=%x FCX[1]=%x", b0, b1);
        const bool both = std::strcmp(hw, "120") == 0;
        if ((both && b0 != hwBytes[0]) || b1 != hwBytes[1]) return kBootIdMismatch;
        return buffer[0] == 0xF1 ? kBootOk : kBootNoPcir;
    }

    char high[3];
    char low[3];
    if (!device_id_texts(buffer, o, high, low)) return kBootIdMismatch;
    const char text[4] = {high[0], high[1], low[0], low[1]};
    bool match = false;
    if (std::strcmp(hw, "110") == 0 || std::strcmp(hw, "122") == 0 || std::strcmp(hw, "120") == 0) {
        match = std::memcmp(text, hwBytes, 4) == 0;
    } else if (std::strcmp(hw, "121") == 0) {
        // No hexadecimal text holds the byte 0x1E: an FCX121 never passes.
        match = text[0] == hw[0] && text[1] == hw[1] && text[2] == 0x1E && text[3] == 0x1E;
    } else {
        match = hw[0] != '\0' && text[1] == hw[1];
    }
    if (!match) return kBootIdMismatch;
    return (!buffer.empty() && buffer[0] == 0x55) || (buffer.size() > 1 && buffer[1] == 0x55) ? kBootOk : kBootNoPcir;
}

bool isCommonEFIImage(std::span<const uint8_t>, const char *hardwareType) { return IsCommonBootHardware(hardwareType); }
bool isCommonFCodeImage(std::span<const uint8_t>, const char *hardwareType) {
    return IsCommonBootHardware(hardwareType);
}

bool isBIOSImage(std::span<uint8_t> buffer, int32_t size, uint64_t o) {
    return ComputeChecksum(0, buffer, o) == 1 && size == 0x20000;
}

// SPDX-License-Identifier: MIT
#include "region_update.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "chip_class.h"
#include "flash_defaults.h"
#include "messages.h"
#include "multiboot.h"
#include "oem_rules.h"
#include "option_rom.h"
#include "optrom_request.h"
#include "oss_files.h"
#include "port_gate.h"
#include "region_plan.h"
#include "update_journal.h"
#include "vxhmx.h"

namespace {

constexpr uint32_t kStdBiosImageSize = 0x20000;
// Status the failure texts of a region write carry, whatever the library said.
constexpr uint32_t kFailureShown = 0xFFFFFFFF;

struct FreeDeleter {
    void operator()(void *block) const { std::free(block); }
};
template <typename T>
using HeapPtr = std::unique_ptr<T, FreeDeleter>;

struct FileCloser {
    void operator()(FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// The pending request lives as long as one adapter's update.
struct RequestScope {
    ~RequestScope() { freeUserOptionROMReq(); }
};

const char *model_of(const HMXDevice *device) { return device->nodeProperty.Model; }

bool multi_port_4or8(const HMXDevice *device) { return Get4GbAnd8GbFCXType(device) > 0 && QueryHBAType(device); }

void print_validation_error(int code, const HMXDevice *device, const char *file) {
    const unsigned hba = device->instance;
    switch (code) {
        case 2:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d. The selected file does not match the HBA!", hba);
            break;
        case kBootWrongSize:
        case kBootRegionWrongSize:
        case kBootFirmwareTooLarge:
        case kBootCodeWrongSize: {
            // Composed for these codes but never shown.
            char text[kMessageBufferSize];
            if (code == kBootFirmwareTooLarge)
                std::snprintf(text, sizeof text,
                              "%s is not an acceptable firmware file for this HBA (Instance %d), wrong size!", file, hba);
            else if (code == kBootCodeWrongSize)
                std::snprintf(text, sizeof text,
                              "%s is not an acceptable boot code file for this HBA (Instance %d), wrong size!", file, hba);
            else
                std::snprintf(text, sizeof text,
                              "%s is not an acceptable multi-bootimage file for this HBA (Instance %d), wrong size !",
                              file, hba);
            break;
        }
        case kBootUnknownHardware:
        case kBootNotForAdapter:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d (Invalid SSDID/SSVID)!", hba);
            break;
        case kBootIdMismatch:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d (SSDID/SSVID mismatched)!", hba);
            break;
        case kBootBadChecksum:
        case kBootNoHeader:
        case 20: PrintLogMessage(kMsgError, "Incorrect flash file, invalid checksum!"); break;
        case 18:
            PrintLogMessage(kMsgError,
                            "Incorrect firmware file for HBA %d. The selected file does not match the HBA type !", hba);
            break;
        case kBootNoSignature: PrintLogMessage(kMsgError, "File %s does not have valid signature header !", file); break;
        case kBootNoPcir: PrintLogMessage(kMsgError, "File %s does not have valid signature data !", file); break;
        default: PrintLogMessage(kMsgError, "Unable to access file %s (Read error) !", file); break;
    }
}

// The failure of one region write. Only the firmware region's text is shown.
void report_region_failure(uint32_t code) {
    const char *text = HmGetErrorString(kFailureShown);
    switch (code) {
        case kRegionBootCode:
            FwTrace("OptionROMRegionUpdate: Unable to set HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI (0x%x - %s).\n",
                    kFailureShown, text);
            break;
        case kRegionBootCodeAndFirmware:
            FwTrace("OptionROMRegionUpdate: Unable to set HMX_OPT_ROM_REGION_PHBIOS_PHFCODE_PHEFI_FW (0x%x - %s).\n",
                    kFailureShown, text);
            break;
        case kRegionFirmware:
            PrintLogMessage(kMsgError, "Unable to set HMX_OPT_ROM_REGION_FW (0x%x - %s).\n", kFailureShown, text);
            break;
        default:
            FwTrace("OptionROMRegionUpdate: Unable to set HMX_OPT_ROM_REGION_ALL (0x%x - %s).\n", kFailureShown, text);
            break;
    }
}

// The layout of the port: asked once for its size, then in full.
uint32_t read_layout(int handle, std::vector<LayoutRegion> &regions, bool &allocated) {
    allocated = true;
    HMX_OPT_ROM_LAYOUT probe{};
    probe.NoOfRegions = 0;
    uint32_t status = HmGetOptionRomLayout(handle, 0, &probe);
    if (status != 0 && status != 0x20000072) return status;
    const uint32_t count = probe.NoOfRegions;
    const size_t bytes = offsetof(HMX_OPT_ROM_LAYOUT, Region) + sizeof(HMX_OPT_ROM_REGION) * (count > 0 ? count : 1);
    HeapPtr<HMX_OPT_ROM_LAYOUT> layout(static_cast<HMX_OPT_ROM_LAYOUT *>(std::calloc(1, bytes)));
    if (!layout) {
        FwTrace("OptionROMRegionUpdate:Unable to allocate memory !");
        allocated = false;
        return 0;
    }
    layout->NoOfRegions = count;
    status = HmGetOptionRomLayout(handle, 0, layout.get());
    if (status != 0) return status;
    const uint32_t got = layout->NoOfRegions < count ? layout->NoOfRegions : count;
    for (uint32_t i = 0; i < got; ++i) regions.push_back({layout->Region[i].Region, layout->Region[i].Size});
    return 0;
}

}  // namespace

int getFileSize(const char *path, int32_t *size) {
    if (path == nullptr || size == nullptr) return 1;
    *size = 0;
    // Non-blocking, so that a FIFO planted under the name cannot stall the run.
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return 1;
    struct stat st {};
    const int rc = ::fstat(fd, &st);
    ::close(fd);
    if (rc != 0 || !S_ISREG(st.st_mode)) return 1;
    if (st.st_size > INT32_MAX) return 2;
    *size = static_cast<int32_t>(st.st_size);
    return 0;
}

int PreserveFlashDefaultArea(const HMXDevice *device, std::span<const uint8_t> current, std::span<uint8_t> image) {
    return PreserveFlashDefaultsForChip(CoreGetFCX8GbType(device), current, image);
}

int OptionROMRegionUpdate(const HMXDevice *device, const char *file) {
    if (device == nullptr || file == nullptr) return -1;
    const SubsystemPair ids = GetSubsystemPair(device);
    const unsigned hba = device->instance;

    int32_t fileSize = 0;
    const int sizeStatus = getFileSize(file, &fileSize);
    FwTrace("OptionROMRegionUpdate: getFileSize returns %d with status %d", fileSize, sizeStatus);
    if (sizeStatus != 0) {
        PrintLogMessage(kMsgError, "Cannot open file %s !", file);
        return sizeStatus;
    }
    // Opened under the image rule (a regular file, not planted in a shared
    // directory) and required to be the file just measured: a name swapped
    // in between is refused, not read.
    FilePtr stream(OSSOpenImageFile(file));
    struct stat opened {};
    if (!stream || ::fstat(::fileno(stream.get()), &opened) != 0 || opened.st_size != fileSize) {
        PrintLogMessage(kMsgError, "Cannot open file %s !", file);
        return 1;
    }
    if (g_ptrOptionROMRequest != nullptr) g_ptrOptionROMRequest->FileSize = fileSize;
    HeapPtr<uint8_t> fileBuffer(static_cast<uint8_t *>(std::calloc(fileSize > 0 ? static_cast<size_t>(fileSize) : 1, 1)));
    if (!fileBuffer) {
        PrintLogMessage(kMsgError, "Memory allocation error !");
        return -1;
    }
    // A file that shrank under us leaves the rest zero, as allocated.
    const size_t got = std::fread(fileBuffer.get(), 1, static_cast<size_t>(fileSize), stream.get());
    (void)got;
    stream.reset();
    std::span<uint8_t> image(fileBuffer.get(), static_cast<size_t>(fileSize));

    std::vector<LayoutRegion> layout;
    bool allocated = true;
    if (read_layout(device->handle, layout, allocated) != 0) {
        PrintLogMessage(kMsgError, "Flash update is not supported with HBA %d  !", hba);
        return -1;
    }
    if (!allocated) return -1;
    if (layout.empty()) {
        PrintLogMessage(kMsgError, "No valid flash update region found !");
        return 0;
    }

    const uint32_t requestRegion = g_ptrOptionROMRequest != nullptr ? g_ptrOptionROMRequest->Region : kRegionAll;
    int index = -1;
    for (size_t i = 0; i < layout.size(); ++i) {
        FwTrace("OptionROMRegionUpdate: Region No=%d Size=%d.", layout[i].region, layout[i].size);
        if (layout[i].region == requestRegion) {
            index = static_cast<int>(i);
            break;
        }
        FwTrace("OptionROMRegionUpdate: Region=%x, Max Region Size=%d.", layout[i].region, layout[i].size);
    }
    if (index < 0) {
        PrintLogMessage(kMsgError, "%s is not an acceptable multi-bootimage file for this HBA (Instance %d), wrong size !",
                        file, hba);
        return -1;
    }
    int status = 0;
    const uint32_t maxRegionSize = layout[static_cast<size_t>(index)].size;
    FwTrace("OptionROMRegionUpdate: Current Region=%x, Max Region Size=%d.", requestRegion, maxRegionSize);
    if (maxRegionSize == 0) {
        PrintLogMessage(kMsgError, "%s is not an acceptable multi-bootimage file for this HBA (Instance %d), wrong size !",
                        file, hba);
        status = -1;
    }

    HeapPtr<uint8_t> regionBuffer(static_cast<uint8_t *>(std::calloc(maxRegionSize > 0 ? maxRegionSize : 1, 1)));
    if (!regionBuffer) {
        PrintLogMessage(kMsgError, "Memory allocation error !");
        return -1;
    }
    std::span<uint8_t> region(regionBuffer.get(), maxRegionSize);
    FwTrace("OptionROMRegionUpdate: Number of Region=%x, Max Region Size=%d.", static_cast<unsigned>(layout.size()),
            maxRegionSize);

    const int code = validateUpdateMultibootOptionROM(ids.deviceId, ids.vendorId, image, fileSize, model_of(device), 0);
    FwTrace("OptionROMRegionUpdate: validateUpdateMultibootOptionROM returns %d", code);
    if (code == 0) {
        PreserveFlashDefaultArea(device, region, image);
    } else if (code != 19) {
        print_validation_error(code, device, file);
        return -1;
    }

    if (multi_port_4or8(device))
        PrintLogMessage(kMsgInfo, "Updating Flash on HBA port(s) - %8s. Please wait...", model_of(device));
    else
        PrintLogMessage(kMsgInfo, "Updating Flash on HBA %d - %8s. Please wait...", hba, model_of(device));
    FwTrace("OptionROMRegionUpdate: max region size=%d fSize=%d.", maxRegionSize, fileSize);
    // The file has passed the size check; the copy still never runs past the region buffer.
    std::memcpy(region.data(), image.data(), image.size() < region.size() ? image.size() : region.size());
    FwTrace("OptionROMRegionUpdate: Current Region No=%d Size=%d.", requestRegion, maxRegionSize);
    FwTrace("OptionROMRegionUpdate: g_ptrOptionROMRequest->Region=%d FileSize=%d", requestRegion, fileSize);

    // Nothing is written unless the adapter's own data is safe first.
    if (JournalBeginWrite(device, file) != 0) return -1;
    bool written = false;
    bool failed = false;
    for (const RegionStep &step : PlanRegionWrites(layout, requestRegion, maxRegionSize)) {
        FwTrace("OptionROMRegionUpdate: Current Region No=%d Size=%d.", step.region, step.size);
        if (!step.write) continue;
        if (step.traced)
            FwTrace("OptionROMRegionUpdate: Updating Region=%x Size=%d to HBA port %d (%s)...", step.region,
                    step.length, device->portIndex, model_of(device));
        // A layout entry that would need bytes past the region buffer is not written.
        const uint32_t rc = step.fits ? HmUpdateOptionRomEx(device->handle, 0, region.data() + step.from, step.length,
                                                             step.region)
                                      : kFailureShown;
        if (rc != 0) {
            report_region_failure(step.region);
            failed = true;
            break;
        }
        written = true;
    }

    if (failed) {
        PrintLogMessage(kMsgError, "Failed to update flash on HBA %d (0x%x) (%s) !", hba, kFailureShown,
                        HmGetErrorString(kFailureShown));
        status = -1;
    } else if (!written) {
        PrintLogMessage(kMsgError, "Failed to update flash on HBA %d (region update not supported) !", hba);
    } else if (multi_port_4or8(device)) {
        PrintLogMessage(kMsgInfo,
                        "Option ROM update complete. Changes have been saved to both ports of this HBA.\n"
                        "You must reboot in order for changes to take effect.");
    } else {
        PrintLogMessage(kMsgInfo,
                        "Flash update complete. Changes have been saved to HBA %d.\n"
                        "You must reboot in order for changes to take effect.",
                        hba);
    }
    FwTrace("OptionROMRegionUpdate: exit with status %d.", status);
    return status;
}

int DoStdBiosUpdate(const HMXDevice *device, const char *file) {
    if (device == nullptr || file == nullptr) {
        PrintLogMessage(kMsgError, "Unable to find the selected HBA !");
        return -1;
    }
    const SubsystemPair ids = GetSubsystemPair(device);
    const unsigned hba = device->instance;
    HeapPtr<uint8_t> buffer(static_cast<uint8_t *>(std::calloc(kStdBiosImageSize, 1)));
    if (!buffer) {
        PrintLogMessage(kMsgError, "Memory allocation error !");
        return -1;
    }
    std::span<uint8_t> image(buffer.get(), kStdBiosImageSize);
    int32_t size = kStdBiosImageSize;
    const int loaded = validateOptionROMFile(file, image, &size);
    FwTrace("DoStdBiosUpdate: Return file size %d", size);
    switch (loaded) {
        case 0: break;
        case 1: PrintLogMessage(kMsgError, "Cannot open file %s !", file); return -1;
        case 3: PrintLogMessage(kMsgError, "Cannot open file %s for reading !", file); return -1;
        case 4:
            PrintLogMessage(kMsgError,
                            "%s is not an acceptable multi-bootimage file for this HBA (Instance %d), wrong size !", file,
                            hba);
            return -1;
        default: PrintLogMessage(kMsgError, "Unable to access file %s (Read error) !", file); return -1;
    }

    FilePtr stream(OSSOpenImageFile(file));
    if (!stream) {
        // Status 1 here where the load above answers -1; the buffer is freed all the same.
        PrintLogMessage(kMsgError, "Cannot open file %s !", file);
        return 1;
    }
    const int checked =
        validateUpdateOptionROM(stream.get(), ids.deviceId, ids.vendorId, image, size, model_of(device), 0);
    FwTrace("DoStdBiosUpdate: validateUpdateOptionROM returns %d", checked);
    stream.reset();

    int result = checked;
    switch (checked) {
        case 0:
        case 15: {
            PrintLogMessage(kMsgInfo, "Updating Flash on HBA %d - %8s. Please wait...", hba, model_of(device));
            if (JournalBeginWrite(device, file) != 0) {
                result = -1;
                break;
            }
            const uint32_t rc = HmUpdateOptionRom(device->handle, 0, image.data(), static_cast<uint32_t>(size));
            if (rc != 0) {
                PrintLogMessage(kMsgError, "Failed to update flash on HBA %d (0x%x) (%s) !", hba, rc,
                                HmGetErrorString(rc));
                result = -1;
            } else {
                PrintLogMessage(kMsgInfo,
                                "Flash update complete. Changes have been saved to HBA %d.\n"
                                "You must reboot in order for changes to take effect.",
                                hba);
                result = 0;
            }
            break;
        }
        case 2:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d. The selected file does not match the HBA!", hba);
            break;
        case kBootWrongSize:
            PrintLogMessage(kMsgError,
                            "%s is not an acceptable multi-bootimage file for this HBA (Instance %d), wrong size !", file,
                            hba);
            break;
        case kBootUnknownHardware:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d (Unknown HBA hardware type)!", hba);
            break;
        case kBootNotForAdapter:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d (Invalid SSDID/SSVID)!", hba);
            break;
        case kBootIdMismatch:
            PrintLogMessage(kMsgError, "Incorrect flash file for HBA %d (SSDID/SSVID mismatched)!", hba);
            break;
        case kBootBadChecksum: PrintLogMessage(kMsgError, "Incorrect flash file, invalid checksum!"); break;
        default: PrintLogMessage(kMsgError, "Unable to access file %s (Read error) !", file); break;
    }
    FwTrace("DoStdBiosUpdate: exit with status %d.", result);
    return result;
}

int updateOptionROMSingleHBA(const HMXDevice *device, const char *file) {
    FwTrace("updateOptionROMSingleHBA: File=%s", file != nullptr ? file : "");
    if (device == nullptr) return -1;
    const unsigned hba = device->instance;
    const int adapterClass = doFCXCheckForOptionROM(device);
    FwTrace("updateOptionROMSingleHBA: doFCXCheckForOptionROM()=%d", adapterClass);
    int status = CheckAdapterFlashUpdateStatus(device);
    FwTrace("updateOptionROMSingleHBA: CheckAdapterFlashUpdateStatus()=%d", status);

    RequestScope scope;
    auto region_path = [&]() {
        if (const int rc = addUserOptionROMRequest("all", file); rc != 0) return rc;
        return OptionROMRegionUpdate(device, file);
    };
    auto not_supported = [&](int level) {
        PrintLogMessage(level, "Flash update is not supported on selected adapter (HBA %d) !", hba);
    };
    const bool allowed = status == kFlashFirstPort || status == kFlashThirdPort;
    switch (adapterClass) {
        case kClassRegionUpdate: return allowed ? region_path() : 2;
        case kClassStdBiosKind1:
        case kClassStdBiosKind2:
        case kClassStdBiosKind0:
            if (allowed) {
                if (const int rc = addUserOptionROMRequest(nullptr, file); rc != 0) return rc;
                return DoStdBiosUpdate(device, file);
            }
            if (status == kFlashWrongOs) {
                PrintLogMessage(kMsgInfo, "Flash update is unsupported only supported on this OS !");
                return 3;
            }
            not_supported(kMsgError);
            return 4;
        case kClassBiosDisabled:
            PrintLogMessage(kMsgInfo, "Flash update is unsupported only supported on this OS !");
            return 3;
        case kClassNotSupported:
        case 9: not_supported(kMsgError); return 4;
        case kClassUnknown: {
            const SubsystemPair ids = GetSubsystemPair(device);
            PrintLogMessage(kMsgError, "Unknown adapter type (HBA %d ssvid=0x%04x ssdid=0x%04x) !", hba, ids.vendorId,
                            ids.deviceId);
            return 5;
        }
        case kClassRecheck:
            status = CheckAdapterFlashUpdateStatus(device);
            if (status == kFlashFirstPort || status == kFlashThirdPort) return region_path();
            if (status == kFlashWrongOs) return 3;
            not_supported(kMsgError);
            return 4;
        case kSingleBIOSChipOEM:
            // Information, not an error: these boards are updated by their own tools.
            not_supported(kMsgInfo);
            return 6;
        default: return 5;
    }
}

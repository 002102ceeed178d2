// SPDX-License-Identifier: MIT
#include "update_journal.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "adapter_list.h"
#include "journal_record.h"
#include "journal_store.h"
#include "messages.h"
#include "vxhmx.h"

namespace {

constexpr uint32_t kRegionWholeFlash = 0xFF;
constexpr uint32_t kVpdBlockSize = 512;

std::array<uint8_t, 8> port_wwn(const HMXDevice *device) {
    std::array<uint8_t, 8> wwn{};
    std::memcpy(wwn.data(), device->portProperty.WWN, wwn.size());
    return wwn;
}

void report(const HMXDevice *device, const std::string &why) {
    PrintLogMessage(kMsgError, "Unable to keep the adapter data of HBA %d safe during the update (%s) !",
                    device->instance, why.c_str());
}

// The size of the whole-flash region of the port's layout, 0 when it has none.
uint32_t whole_flash_size(int handle) {
    HMX_OPT_ROM_LAYOUT probe{};
    probe.NoOfRegions = 0;
    const uint32_t status = HmGetOptionRomLayout(handle, 0, &probe);
    if ((status != 0 && status != 0x20000072) || probe.NoOfRegions == 0 || probe.NoOfRegions > 255) return 0;
    const size_t bytes = offsetof(HMX_OPT_ROM_LAYOUT, Region) + sizeof(HMX_OPT_ROM_REGION) * probe.NoOfRegions;
    std::unique_ptr<HMX_OPT_ROM_LAYOUT, decltype(&std::free)> storage(
        static_cast<HMX_OPT_ROM_LAYOUT *>(std::calloc(1, bytes)), &std::free);
    HMX_OPT_ROM_LAYOUT *layout = storage.get();
    if (layout == nullptr) return 0;
    layout->NoOfRegions = probe.NoOfRegions;
    if (HmGetOptionRomLayout(handle, 0, layout) != 0) return 0;
    for (uint32_t i = 0; i < layout->NoOfRegions && i < probe.NoOfRegions; ++i)
        if (layout->Region[i].Region == kRegionWholeFlash) return layout->Region[i].Size;
    return 0;
}

// The saved record of the port: nullopt when there is none; `why` set when
// one is there but cannot be used.
std::optional<JournalRecord> load(const JournalStore &store, const HMXDevice *device, std::string &why) {
    const std::string name = JournalFileName(port_wwn(device));
    auto bytes = store.read(name, why);
    if (!bytes) return std::nullopt;
    auto record = DecodeJournalRecord(*bytes);
    if (!record || record->portWwn != port_wwn(device)) {
        why = std::string(kJournalDirectory) + "/" + name + ": damaged record";
        return std::nullopt;
    }
    return record;
}

int save(const JournalStore &store, const HMXDevice *device, const char *imageFile) {
    JournalRecord record;
    record.portWwn = port_wwn(device);
    record.serial = GetAdapterSerial(device);
    record.imageFile = imageFile != nullptr ? imageFile : "";
    const uint32_t size = whole_flash_size(device->handle);
    if (size == 0 || size > kJournalMaxFlash) {
        report(device, "flash layout unavailable");
        return -1;
    }
    record.flash.assign(size, 0);
    if (const uint32_t rc = HmGetOptionRomEx(device->handle, 0, record.flash.data(), size, kRegionWholeFlash); rc != 0) {
        report(device, std::string("flash read: ") + HmGetErrorString(rc));
        return -1;
    }
    // An adapter without a readable VPD has none to lose.
    std::vector<uint8_t> vpd(kVpdBlockSize, 0);
    uint32_t vpdSize = kVpdBlockSize;
    if (HmGetVpd(device->handle, 0, vpd.data(), &vpdSize) == 0 && vpdSize > 0 && vpdSize <= kVpdBlockSize) {
        vpd.resize(vpdSize);
        record.vpd = std::move(vpd);
    }
    std::string why;
    if (!store.write(JournalFileName(record.portWwn), EncodeJournalRecord(record), why)) {
        report(device, why);
        return -1;
    }
    FwTrace("JournalBeginWrite: saved %u flash and %u VPD bytes of HBA %d", size,
            static_cast<unsigned>(record.vpd.size()), device->instance);
    return 0;
}

int restore(const HMXDevice *device, JournalRecord &record) {
    FwTrace("JournalBeginWrite: HBA %d: finishing the update of %s that was cut short", device->instance,
            record.imageFile.c_str());
    const uint32_t size = static_cast<uint32_t>(record.flash.size());
    if (const uint32_t rc = HmUpdateOptionRomEx2(device->handle, 0, record.flash.data(), size, kRegionWholeFlash);
        rc != 0) {
        report(device, std::string("restoring the saved flash: ") + HmGetErrorString(rc));
        return -1;
    }
    if (!record.vpd.empty()) {
        uint32_t vpdSize = static_cast<uint32_t>(record.vpd.size());
        if (const uint32_t rc = HmUpdateVpd(device->handle, 0, record.vpd.data(), &vpdSize); rc != 0) {
            report(device, std::string("restoring the saved VPD: ") + HmGetErrorString(rc));
            return -1;
        }
    }
    return 0;
}

}  // namespace

bool JournalHasUnfinished(const HMXDevice *device) {
    if (device == nullptr) return false;
    JournalStore store(kJournalDirectory);
    std::string why;
    if (!store.open(false, why) || !store.present()) return false;
    // A record that is there but cannot be read still means an unfinished
    // update: the write then stops with the reason.
    auto bytes = store.read(JournalFileName(port_wwn(device)), why);
    return bytes.has_value() || !why.empty();
}

int JournalBeginWrite(const HMXDevice *device, const char *imageFile) {
    if (device == nullptr) return -1;
    JournalStore store(kJournalDirectory);
    std::string why;
    if (!store.open(true, why)) {
        report(device, why);
        return -1;
    }
    auto record = load(store, device, why);
    if (!why.empty()) {
        report(device, why);
        return -1;
    }
    return record ? restore(device, *record) : save(store, device, imageFile);
}

void JournalFinish(const HMXDevice *device) {
    if (device == nullptr) return;
    JournalStore store(kJournalDirectory);
    std::string why;
    if (!store.open(false, why) || !store.remove(JournalFileName(port_wwn(device)), why))
        FwTrace("JournalFinish: %s", why.c_str());
}

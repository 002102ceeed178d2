// SPDX-License-Identifier: MIT
#include "update_policy.h"

#include "adapter_list.h"
#include "chip_class.h"
#include "cmdline.h"
#include "messages.h"
#include "region_update.h"
#include "update_decision.h"
#include "update_journal.h"
#include "version_lookup.h"

namespace {

// The two records of a port, traced in one layout.
void trace_entry(bool fileRow, const HMXDevice *device, const VersionCtrEntry *e) {
    const unsigned hba = device->instance;
    if (fileRow)
        FwTrace("File entry: HBA %d (%s) ssdid=%s ssvid=%s %d.%02d %d.%02d %d.%02d %d.%02d.%02d %s", hba, e->model,
                e->subsystemDeviceId, e->subsystemVendorId, e->biosVersion[0], e->biosVersion[1], e->efiVersion[0],
                e->efiVersion[1], e->fcodeVersion[0], e->fcodeVersion[1], e->fwVersion[0], e->fwVersion[1],
                e->fwVersion[2], e->imageFileName);
    else
        FwTrace("HBA entry : HBA %d (%s) ssdid=%s ssvid=%s %d.%02d %d.%02d %d.%02d %d.%02d.%02d %s", hba, e->model,
                e->subsystemDeviceId, e->subsystemVendorId, e->biosVersion[0], e->biosVersion[1], e->efiVersion[0],
                e->efiVersion[1], e->fcodeVersion[0], e->fcodeVersion[1], e->fwVersion[0], e->fwVersion[1],
                e->fwVersion[2], e->imageFileName);
}

}  // namespace

int GetFlashUpdatePolicy(const HMXDevice *device, const VersionCtrEntry *current, const VersionCtrEntry *target) {
    if (current == nullptr || target == nullptr) return 0;
    const UpdateChipKinds kinds{CoreGetFCX4GbType(device), Get4GbAnd8GbFCXType(device)};
    return DecideFlashUpdate(g_iFlashMode, kinds, *current, *target);
}

int updateOptionROMAllHBAs() {
    DeviceList *list = GetMyDeviceList();
    if (list->first == nullptr) {
        PrintLogMessage(kMsgInfo, "Varnix HBA not found !");
        return 8;
    }
    int needed = 0;
    int updated = 0;
    for (HMXDevice *device = list->first; device != nullptr; device = device->next) {
        VersionCtrEntry *target = CreateNewEntry();
        if (target == nullptr) {
            PrintLogMessage(kMsgError, "Memory allocation error !");
            return -1;
        }
        GetVersionFromFlashCtrFile(device, target);
        const bool noRow = target->subsystemDeviceId[0] == '\0' || target->subsystemVendorId[0] == '\0';
        if (noRow)
            FwTrace("Unable to find a matched entry for current adapter (HBA %d - %s) !", device->instance,
                    device->nodeProperty.Model);
        else
            trace_entry(true, device, target);

        VersionCtrEntry *current = CreateNewEntry();
        if (current == nullptr) {
            CoreFree(target);
            PrintLogMessage(kMsgError, "Memory allocation error !");
            return -1;
        }
        BuildFlashCtrListFromHBA(device, current);
        trace_entry(false, device, current);

        if (noRow) {
            PrintLogMessage(kMsgWarning, "Ignoring HBA %d - %s..., no entry found in file !", device->instance,
                            device->nodeProperty.Model);
        } else if (GetFlashUpdatePolicy(device, current, target) == 1 || JournalHasUnfinished(device)) {
            // An update cut short is finished whatever the versions read back say.
            ++needed;
            const int result = updateOptionROMSingleHBA(device, target->imageFileName);
            if (result == 0 || result == 2) ++updated;
            if (result == 0) JournalFinish(device);
        } else {
            PrintLogMessage(kMsgInfo, "HBA %d - %s does not need to be upgraded.", device->instance,
                            device->nodeProperty.Model);
        }
        CoreFree(current);
        CoreFree(target);
    }

    // The order of these tests is part of the design: a pass in which every
    // needed adapter failed ends in the third one.
    int result;
    if (needed == 0) {
        PrintLogMessage(kMsgInfo, "No updates required.");
        result = 1;
    } else if (updated == needed) {
        PrintLogMessage(kMsgInfo, "Updates completed successfully (%d out of %d).", updated, updated);
        result = 0;
    } else if (needed > updated) {
        PrintLogMessage(kMsgWarning, "Unable to update all HBAs (%d out of %d) !", updated, needed);
        result = 3;
    } else if (updated == 0) {
        PrintLogMessage(kMsgError, "All HBAs that need to be updated failed to be updated (%d out of %d) !", updated,
                        needed);
        result = 2;
    } else {
        result = -1;
    }
    FwTrace("updateOptionROMAllHBAs: retStatus=%d", result);
    return result;
}

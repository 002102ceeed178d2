// SPDX-License-Identifier: MIT
#include "update_decision.h"

#include <cstddef>

#include "messages.h"

namespace {

enum class Rule { Below, BelowOrEqual, Differs };

// A compares with R over `count` bytes, most significant first.
int compare(Rule rule, const uint8_t *a, const uint8_t *r, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (a[i] == r[i]) continue;
        if (rule == Rule::Differs) return 1;
        return a[i] < r[i] ? 1 : 0;
    }
    return rule == Rule::BelowOrEqual ? 1 : 0;
}

// The firmware of a 4 Gb adapter under mode 0: with different majors only the
// minors are compared, so 5.02.00 against 4.03.00 is an update and 4.02.00
// against 5.02.00 is not.
int firmware_standard(const uint8_t *a, const uint8_t *r) {
    if (a[0] == r[0]) return compare(Rule::Below, a + 1, r + 1, 2);
    return a[1] < r[1] ? 1 : 0;
}

}  // namespace

int DecideFlashUpdate(int mode, UpdateChipKinds kinds, const VersionCtrEntry &current, const VersionCtrEntry &target) {
    Rule rule = Rule::Below;
    bool allComponents = false;
    switch (mode) {
        case 1: return 1;
        case 0: allComponents = kinds.fcx4GbType >= 1; break;
        case 2:
            rule = Rule::BelowOrEqual;
            allComponents = kinds.fcx4And8GbType >= 1;
            break;
        case 3:
            rule = Rule::Differs;
            allComponents = kinds.fcx4And8GbType >= 1;
            break;
        default: PrintLogMessage(kMsgError, "Unknown command line option!"); return 0;
    }

    int status = compare(rule, current.biosVersion, target.biosVersion, 2);
    FwTrace("GetFlashUpdatePolicy: iUpdateStatus (BIOS)=%d", status);
    if (status == 1 || !allComponents) return status;
    status = compare(rule, current.efiVersion, target.efiVersion, 2);
    FwTrace("GetFlashUpdatePolicy: iUpdateStatus (EFI)=%d", status);
    if (status == 1) return status;
    status = compare(rule, current.fcodeVersion, target.fcodeVersion, 2);
    FwTrace("GetFlashUpdatePolicy: iUpdateStatus (FCode)=%d", status);
    if (status == 1) return status;
    status = mode == 0 ? firmware_standard(current.fwVersion, target.fwVersion)
                       : compare(rule, current.fwVersion, target.fwVersion, 3);
    FwTrace("GetFlashUpdatePolicy: iUpdateStatus (Firmware)=%d", status);
    return status;
}

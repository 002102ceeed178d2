// SPDX-License-Identifier: MIT
#include "update_policy.h"

#include "adapter_list.h"
#include "messages.h"

int updateOptionROMAllHBAs() {
    if (GetMyDeviceList()->empty()) {
        PrintLogMessage(kMsgInfo, "Varnix HBA not found !");
        return 8;
    }
    // Per-adapter decisions need the port records filled at discovery.
    return 0;
}

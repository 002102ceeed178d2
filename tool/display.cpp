// SPDX-License-Identifier: MIT
#include "display.h"

#include "adapter_list.h"
#include "messages.h"

namespace {
constexpr const char *kNoAdapter = "Varnix HBA not found !";
}  // namespace

int DisplayAllHBAs() {
    if (GetMyDeviceList()->empty()) {
        // Shown through the agent channel, so silent mode does not hide it.
        CoreLogMessage(kMsgPlain, "%s", kNoAdapter);
        return -1;
    }
    // The per-port summary needs the port records filled at discovery.
    return 0;
}

int DisplayAllHBAInformation() {
    if (GetMyDeviceList()->empty()) {
        PrintLogMessage(kMsgInfo, "%s", kNoAdapter);
        return 8;
    }
    return 0;
}

// SPDX-License-Identifier: MIT
#include "optrom_request.h"

#include "core.h"
#include "fw_strings.h"
#include "messages.h"

OptionROMRequest *g_ptrOptionROMRequest;

int addUserOptionROMRequest(const char *regionName, const char *file) {
    uint32_t region = 0;
    if (regionName != nullptr && *regionName != '\0') {
        if (striscmp(regionName, "all") != 0) return -1;
        region = 0xFF;
    }
    freeUserOptionROMReq();
    auto *request = static_cast<OptionROMRequest *>(CoreZMalloc(sizeof(OptionROMRequest)));
    if (request == nullptr) {
        PrintLogMessage(kMsgError, "Memory allocation error !");
        return 10;
    }
    request->Region = region;
    if (file != nullptr) CopyText(request->FileName, file);
    g_ptrOptionROMRequest = request;
    return 0;
}

void freeUserOptionROMReq() {
    CoreFree(g_ptrOptionROMRequest);
    g_ptrOptionROMRequest = nullptr;
}

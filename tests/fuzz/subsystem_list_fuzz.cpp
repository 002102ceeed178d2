// SPDX-License-Identifier: MIT
// The supported-adapter list: comma-separated rows of IDs, chip, description
// and a support flag, and the look-up by subsystem IDs.
#include <cstdio>

#include "fuzz_file.h"
#include "messages.h"
#include "subsystem_list.h"
#include "text_checks.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const SubSystemIDListPtr list = BuildSubSystemListFromFile(fuzz::write_input(data, size));
    if (list == nullptr) return 0;
    fuzz::expect_consistent(*list);
    if (CountSubSystemID(list.get()) > list->count) std::abort();
    for (const SubSystemIDEntry *e = list->first; e != nullptr; e = e->next) {
        fuzz::expect_terminated(e->subsystemDeviceId);
        fuzz::expect_terminated(e->subsystemVendorId);
        fuzz::expect_terminated(e->chip);
        fuzz::expect_terminated(e->description);
        fuzz::expect_terminated(e->supported);
        (void)IsSubSystemSupported(e);
        (void)ValidateAdapterProperties(e);
        // Every row written in the look-up's own form is found again.
        unsigned device = 0, vendor = 0;
        if (std::sscanf(e->subsystemDeviceId, "0x%4X", &device) == 1 &&
            std::sscanf(e->subsystemVendorId, "0x%4X", &vendor) == 1) {
            char again[8];
            std::snprintf(again, sizeof again, "0x%04X", device);
            char vendorAgain[8];
            std::snprintf(vendorAgain, sizeof vendorAgain, "0x%04X", vendor);
            if (std::strcmp(again, e->subsystemDeviceId) == 0 && std::strcmp(vendorAgain, e->subsystemVendorId) == 0 &&
                FindSubSystemInSubSystemList(list.get(), static_cast<uint16_t>(device),
                                             static_cast<uint16_t>(vendor)) == nullptr)
                std::abort();
        }
    }
    return 0;
}

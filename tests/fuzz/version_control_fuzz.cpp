// SPDX-License-Identifier: MIT
// The version control file: rows of IDs, model, four version texts and an
// image file name.
#include "fuzz_file.h"
#include "messages.h"
#include "text_checks.h"
#include "version_control.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (BuildFlashCtrListFromFile(fuzz::write_input(data, size)) == 0) {
        fuzz::expect_consistent(g_VersionCtrEntryList);
        for (const VersionCtrEntry *e = g_VersionCtrEntryList.first; e != nullptr; e = e->next) {
            fuzz::expect_terminated(e->subsystemDeviceId);
            fuzz::expect_terminated(e->subsystemVendorId);
            fuzz::expect_terminated(e->model);
            fuzz::expect_terminated(e->imageFileName);
        }
    }
    DeleteFlashCtrVersionList();
    if (g_VersionCtrEntryList.count != 0 || g_VersionCtrEntryList.first != nullptr) std::abort();
    return 0;
}

// SPDX-License-Identifier: MIT
// The agent preferences file: key=value lines looked up by key.
#include <cstdlib>
#include <cstring>

#include "fuzz_file.h"
#include "messages.h"
#include "preferences.h"

namespace {
constexpr const char *kKeys[] = {"node.agent.polling.interval", "node.agent.fabric.scanning.enable",
                                 "node.agent.quiet.mode.enable", "", "="};
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *file = PrefOpenPreferenceFile(fuzz::write_input(data, size));
    if (file == nullptr) std::abort();
    for (const char *key : kKeys) {
        const char *value = PrefGetProperty(file, key);
        if (value != nullptr && (std::strchr(value, '=') != nullptr || std::strchr(value, '\n') != nullptr))
            std::abort();
    }
    // The first line's text up to '=' is a key the file holds.
    const auto *end = static_cast<const uint8_t *>(std::memchr(data, '=', size));
    if (end != nullptr) {
        std::string key(reinterpret_cast<const char *>(data), static_cast<size_t>(end - data));
        (void)PrefGetProperty(file, key.c_str());
    }
    if (PrefClosePreferenceFile(file) != 0) std::abort();
    return 0;
}

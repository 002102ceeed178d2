// SPDX-License-Identifier: MIT
// Runs the tool's VPD field lookup against an opened adapter:
//   vpd_field_client INSTANCE KEYWORD...
// prints one line per keyword: the status and the text found (or "-").
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "adapter_list.h"
#include "vpd_fields.h"
#include "vxhmx.h"

int main(int argc, char **argv) {
    if (argc < 3) return 2;
    int handle = 0;
    const uint32_t st = HmOpenDevice(static_cast<uint32_t>(std::atoi(argv[1])), &handle);
    if (st != 0) {
        std::printf("open 0x%08x\n", st);
        return 1;
    }
    Adapter adapter{};
    adapter.handle = handle;
    for (int i = 2; i < argc; ++i) {
        char text[256];
        std::memset(text, 0, sizeof text);
        const uint32_t rc = RetrieveSpecificVPDField(&adapter, argv[i], text);
        std::printf("%s 0x%08x %s\n", argv[i], rc, text[0] != '\0' ? text : "-");
    }
    char text[256] = {};
    std::printf("none 0x%08x\n", RetrieveSpecificVPDField(nullptr, "SN", text));
    HmCloseDevice(handle);
    return 0;
}

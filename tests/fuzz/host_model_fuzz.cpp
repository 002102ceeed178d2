// SPDX-License-Identifier: MIT
// vxemu's host description: JSON naming chips, ports, IDs, images and faults.
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "host_model.h"

namespace {
std::string g_origin;  // DIR/host.json, DIR an empty directory of our own
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // Image names resolve against the description's directory: an empty one,
    // so an input never names a file of the machine.
    static std::string dir = "/tmp/fwfuzz-host.XXXXXX";
    if (::mkdtemp(dir.data()) == nullptr) std::abort();
    std::atexit([] { ::rmdir(dir.c_str()); });
    g_origin = dir + "/host.json";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    // No absolute or parent paths (plain or escaped): a name such as
    // "/dev/zero" would read forever instead of testing the parser.
    if (text.find('/') != text.npos || text.find("\\u") != text.npos || text.find("..") != text.npos) return 0;
    auto host = vxemu::parse_host_json(text, g_origin);
    if (!host) return 0;
    for (auto &adapter : host.value().adapters) vxemu::derive_versions(adapter);
    (void)host.value().ioctl_port_count();
    (void)host.value().instance_count();
    (void)host.value().registers_char_device();
    return 0;
}

// SPDX-License-Identifier: MIT
// Attribute sessions on vxemu's /sys: opens, reads, writes and closes in
// any order on every file of a small host, with optrom_ctl command texts
// ("1:%x:%x" and the rest) driving the flash session state machine and
// optrom, nvram and vpd moving the bytes.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "emu_host.h"
#include "fault_injector.h"
#include "host_model.h"
#include "sysfs_tree.h"
#include "traffic_log.h"

using namespace vxemu;

namespace {

fuzz::EmuHost g_emu;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // One chunked and one older driver port, flash of 1 MiB and 128 KiB.
    g_emu.init("attr_sessions", R"({
      "adapters": [
        { "name": "s", "chip": "FCX144", "transport": "sysfs", "chunked": true,
          "flash": { "bios": "1.00", "firmware": "5.0.1" }, "functions": [ { "pci": "0000:09:00.0", "host": 9 } ] },
        { "name": "t", "chip": "FCX120", "transport": "sysfs", "chunked": false,
          "flash": { "bios": "1.00" }, "functions": [ { "pci": "0000:0a:00.0", "host": 10 } ] } ] })");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    Host &host = g_emu.reset();
    FaultInjector faults(host);
    SysfsTree tree(host, g_emu.log(), faults);
    std::vector<uint64_t> files;
    for (uint64_t ino = 1; ino <= tree.node_count(); ++ino)
        if (const SysfsNode *n = tree.node(ino); n != nullptr && n->type == NodeType::file && n->adapter >= 0) files.push_back(ino);
    if (files.empty()) std::abort();

    std::vector<uint64_t> handles;
    const unsigned callers[] = {0, static_cast<unsigned>(::getpid()), 1};
    while (in.remaining_bytes() > 0) {
        // A handle the tree gave, or any number at all.
        auto handle = [&]() -> uint64_t {
            if (handles.empty() || in.ConsumeIntegralInRange(0, 15) == 0) return in.ConsumeIntegral<uint8_t>();
            return handles[in.ConsumeIntegralInRange<size_t>(0, handles.size() - 1)];
        };
        auto offset = [&]() -> uint64_t {
            return in.ConsumeBool() ? in.ConsumeIntegralInRange<uint64_t>(0, 0x1000) : in.ConsumeIntegral<uint64_t>();
        };
        switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0: {
            uint64_t fh = 0;
            const int flags = in.PickValueInArray({O_RDONLY, O_WRONLY, O_RDWR, O_WRONLY | O_TRUNC});
            const int err = tree.open(files[in.ConsumeIntegralInRange<size_t>(0, files.size() - 1)], flags, fh);
            if (err < 0) std::abort();
            if (err == 0) handles.push_back(fh);
            break;
        }
        case 1: {
            // A command text as the library writes it (with its NUL) or bytes.
            std::string text = in.ConsumeRandomLengthString(40);
            if (in.ConsumeBool()) text.push_back('\0');
            size_t written = 0;
            const int err = tree.write(handle(), offset(), std::span(reinterpret_cast<const uint8_t *>(text.data()), text.size()),
                                       written, callers[in.ConsumeIntegralInRange(0, 2)]);
            if (err < 0 || written > text.size()) std::abort();
            break;
        }
        case 2: {
            const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 4096));
            size_t written = 0;
            const int err = tree.write(handle(), offset(), bytes, written, callers[in.ConsumeIntegralInRange(0, 2)]);
            if (err < 0 || written > bytes.size()) std::abort();
            break;
        }
        case 3: {
            const size_t want = in.ConsumeIntegralInRange<size_t>(0, 0x20000);
            std::vector<uint8_t> out;
            const int err = tree.read(handle(), offset(), want, out);
            if (err < 0 || out.size() > want) std::abort();
            break;
        }
        default:
            if (!handles.empty()) {
                const size_t i = in.ConsumeIntegralInRange<size_t>(0, handles.size() - 1);
                tree.release(handles[i]);
                handles.erase(handles.begin() + static_cast<std::ptrdiff_t>(i));
            }
            break;
        }
    }
    for (uint64_t fh : handles) tree.release(fh);
    // The flash never changes size, whatever was written.
    for (size_t i = 0; i < host.adapters.size(); ++i)
        if (host.adapters[i].flash.size() != g_emu.prototype().adapters[i].flash.size()) std::abort();
    return 0;
}

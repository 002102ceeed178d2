// SPDX-License-Identifier: MIT
// vxemu's state directory as a second run finds it: each adapter's flash
// image (any bytes, any size, or a link) and its NVRAM and VPD block files.
// A state that loads is booted from (versions derived from the flash), and
// saving it and loading it again gives the same adapters.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host_model.h"
#include "scratch_dir.h"

namespace fs = std::filesystem;
using namespace vxemu;

namespace {

// One host per kind of adapter: blocks in files (128 KiB and 1 MiB flash)
// or in the flash itself (2 MiB).
std::vector<Host> g_hosts;
// Hosts inputs work on: reset from the above by assignment, which reuses
// their large buffers.
std::vector<Host> g_work, g_reload;
fs::path g_dir, g_again;

Host host_of(const char *adapter) {
    const std::string text = std::string(R"({ "adapters": [ )") + adapter + " ] }";
    auto h = parse_host_json(text, "fuzz.json");
    if (!h) {
        std::fprintf(stderr, "emu_state: %s\n", h.error().message.c_str());
        std::abort();
    }
    return std::move(h).value();
}

void put_block(FuzzedDataProvider &in, const fs::path &p, size_t size) {
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return;  // no file: the host's own block stays
    case 1: {
        std::vector<uint8_t> b = in.ConsumeBytes<uint8_t>(size);
        b.resize(size, 0xFF);
        fuzz::put_file(p.string(), std::span<const uint8_t>(b));
        return;
    }
    case 2: fuzz::put_file(p.string(), std::span<const uint8_t>(in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, size + 8)))); return;
    default: fs::create_symlink("/dev/zero", p); return;  // never followed
    }
}

bool same(const Adapter &a, const Adapter &b) {
    if (a.flash != b.flash || a.versions != b.versions || a.firmware_version != b.firmware_version ||
        a.functions.size() != b.functions.size())
        return false;
    for (size_t i = 0; i < a.functions.size(); ++i)
        if (a.functions[i].nvram != b.functions[i].nvram || a.functions[i].vpd != b.functions[i].vpd) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_hosts.push_back(host_of(R"({ "name": "o", "chip": "FCX120", "transport": "ioctl_old",
        "flash": { "bios": "1.00" }, "functions": [ { "pci": "0000:08:00.0" } ] })"));
    g_hosts.push_back(host_of(R"({ "name": "a", "chip": "FCX141", "transport": "ioctl",
        "flash": { "bios": "1.00", "firmware": "5.0.1" },
        "functions": [ { "pci": "0000:07:00.0" }, { "pci": "0000:07:00.1" } ] })"));
    g_hosts.push_back(host_of(R"({ "name": "n", "chip": "FCX160", "transport": "sysfs",
        "flash": { "bios": "1.00", "efi": "2.00", "firmware": "8.3.0" }, "functions": [ { "pci": "0000:09:00.0" } ] })"));
    g_work = g_reload = g_hosts;
    g_dir = fs::path(fuzz::scratch_dir()) / "state";
    g_again = fs::path(fuzz::scratch_dir()) / "again";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    std::error_code ec;
    fs::remove_all(g_dir, ec);
    fs::remove_all(g_again, ec);
    const size_t k = in.ConsumeIntegralInRange<size_t>(0, g_hosts.size() - 1);
    Host &host = g_work[k];
    host = g_hosts[k];
    const Adapter &a = host.adapters.front();
    const fs::path ad = g_dir / "adapters" / a.name;
    fs::create_directories(ad);

    // The flash: the adapter's own image with pieces replaced, a file of
    // another size, or a link.
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: break;
    case 1: {
        std::vector<uint8_t> flash = a.flash;
        for (int n = in.ConsumeIntegralInRange(0, 8); n > 0; --n) {
            const size_t at = in.ConsumeIntegralInRange<size_t>(0, flash.size() - 1);
            const std::vector<uint8_t> piece = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 512));
            for (size_t i = 0; i < piece.size() && at + i < flash.size(); ++i) flash[at + i] = piece[i];
        }
        fuzz::put_file((ad / "flash.bin").string(), std::span<const uint8_t>(flash));
        break;
    }
    case 2: fuzz::put_file((ad / "flash.bin").string(), std::span<const uint8_t>(in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 4096)))); break;
    default: fs::create_symlink("/dev/zero", ad / "flash.bin"); break;
    }
    for (size_t i = 0; i < a.functions.size(); ++i) {
        put_block(in, ad / ("nvram." + std::to_string(i) + ".bin"), a.nvram_size());
        put_block(in, ad / ("vpd." + std::to_string(i) + ".bin"), a.vpd_size());
    }

    if (!load_state(host, g_dir)) {
        if (!same(host.adapters.front(), g_hosts[k].adapters.front())) std::abort();  // a refused state changes nothing
        return 0;
    }
    if (!save_state(host, g_again)) std::abort();
    Host &reloaded = g_reload[k];
    reloaded = g_hosts[k];
    if (!load_state(reloaded, g_again) || !same(reloaded.adapters.front(), host.adapters.front())) std::abort();
    return 0;
}

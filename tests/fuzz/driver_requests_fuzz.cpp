// SPDX-License-Identifier: MIT
// Driver requests as vxemu's driver takes them from a caller: the request
// number, the header in either layout (signature, versions, lengths,
// addresses, adapter selection) and the request buffer, one request after
// another against a small host. The caller's memory is three blocks
// (header, request, response); an input may point anywhere else too.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>

#include "driver_service.h"
#include "emu_host.h"
#include "emu_memory.h"
#include "fault_injector.h"
#include "host_model.h"
#include "traffic_log.h"
#include "wire.h"

using namespace vxemu;
using namespace vxemu::wire;

namespace {

fuzz::EmuHost g_emu;

void put64(std::vector<uint8_t> &b, size_t at, uint64_t v) {
    for (size_t i = 0; i < 8 && at + i < b.size(); ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_emu.init("driver_requests", R"({
      "adapters": [
        { "name": "a", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
          "functions": [ { "pci": "0000:07:00.0", "host": 7 }, { "pci": "0000:07:00.1", "host": 8 } ] },
        { "name": "o", "chip": "FCX120", "transport": "ioctl_old", "flash": { "bios": "1.00" },
          "functions": [ { "pci": "0000:08:00.0", "host": 9 } ] } ] })");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    Host &host = g_emu.reset();
    FaultInjector faults(host);
    DriverService driver(host, g_emu.log(), faults);
    fuzz::BlockMemory mem;

    while (in.remaining_bytes() > 0) {
        const bool current = in.ConsumeBool();
        const size_t hdr_size = current ? 116 : 88;
        unsigned long number = (current ? kIoctlCurrentBase : kIoctlOldBase) | in.ConsumeIntegral<uint8_t>();
        if (in.ConsumeIntegralInRange(0, 31) == 0) number = in.ConsumeIntegral<uint32_t>();

        mem.clear();
        std::vector<uint8_t> &hdr = mem.block(0);
        hdr = in.ConsumeBytes<uint8_t>(hdr_size);
        hdr.resize(hdr_size);
        // Mostly a well-formed frame around the fuzzed fields, so the
        // requests get past the signature and version checks.
        if (in.ConsumeIntegralInRange(0, 7) != 0) {
            std::memcpy(hdr.data(), kSignature, 7);
            hdr[7] = 0;
            hdr[8] = kAddrMode;
            hdr[9] = 0;
            hdr[10] = current ? kVersionCurrent : kVersionOld;
            hdr[11] = 0;
            if (!current) {
                // The older layout carries a pointer to the signature.
                put64(hdr, 0, fuzz::BlockMemory::address(3));
                mem.block(3).assign(kSignature, kSignature + 7);
            }
        }
        const size_t req_at = current ? 36 : 40, resp_at = current ? 44 : 48;
        std::vector<uint8_t> &req = mem.block(1);
        req = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 2048));
        mem.block(2).assign(in.ConsumeIntegralInRange<size_t>(0, 8192), 0);
        if (in.ConsumeIntegralInRange(0, 7) != 0) {
            put64(hdr, req_at, fuzz::BlockMemory::address(1));
            put64(hdr, resp_at, fuzz::BlockMemory::address(2));
        }
        const int err = driver.handle_ioctl(number, fuzz::BlockMemory::address(0), mem);
        if (err < 0) std::abort();
        // The header block is never resized by the driver.
        if (mem.block(0).size() != hdr_size) std::abort();
    }
    return 0;
}

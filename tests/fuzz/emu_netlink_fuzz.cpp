// SPDX-License-Identifier: MIT
// Netlink requests as vxemu's driver takes them on its management socket:
// lengths, headers, the maker's magic, the port's host number, commands and
// their parameters, bulk chunks that assemble a whole transfer. Several
// messages per input, against one sysfs port, so chunk sequences carry over.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <vector>

#include "emu_host.h"
#include "host_model.h"
#include "netlink_service.h"
#include "traffic_log.h"
#include "wire.h"

using namespace vxemu;

namespace {

fuzz::EmuHost g_emu;

void put(std::vector<uint8_t> &m, size_t at, uint64_t v, size_t n) {
    for (size_t i = 0; i < n; ++i) m[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_emu.init("emu_netlink", R"({
      "adapters": [
        { "name": "b", "chip": "FCX150", "transport": "sysfs", "flash": { "bios": "1.00", "firmware": "6.1.0" },
          "functions": [ { "pci": "0000:0b:00.0", "host": 4 } ] } ] })");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    Host &host = g_emu.reset();
    NetlinkService service(host, g_emu.log());
    const size_t fc = nl::kNlHdr + nl::kScsiNlHdr;
    // A few dozen messages: enough for chunk sequences, few enough that
    // full 64 KiB chunks keep an input quick.
    for (int n = 0; n < 24 && in.remaining_bytes() > 0; ++n) {
        // Bulk data (a chunk may be a full 64 KiB), then the header fields.
        const size_t datalen = in.ConsumeBool() ? in.ConsumeIntegralInRange<size_t>(0, 300)
                                                : in.PickValueInArray<size_t>({0, 1, nl::kMaxChunk - 1, nl::kMaxChunk});
        size_t length = datalen == 0 ? nl::kRequestHdr : (datalen + nl::kRequestHdr + 3) & ~size_t{3};
        if (in.ConsumeIntegralInRange(0, 15) == 0) length = in.ConsumeIntegralInRange<size_t>(0, nl::kRequestHdr + 300);
        std::vector<uint8_t> msg(length, 0);
        if (msg.size() >= nl::kRequestHdr) {
            const bool framed = in.ConsumeIntegralInRange(0, 15) != 0;
            put(msg, 0, framed ? msg.size() : in.ConsumeIntegral<uint32_t>(), 4);
            put(msg, 4, framed ? nl::kMsgType : in.ConsumeIntegral<uint16_t>(), 2);
            put(msg, 16, 1, 1);
            put(msg, 18, nl::kScsiMagic, 2);
            put(msg, 20, framed ? nl::kScsiMsgType : in.ConsumeIntegral<uint16_t>(), 2);
            const uint64_t magic = (uint64_t{kMakerVendorId} << 48) | (uint64_t{0x84DD} << 32) | nl::kFcMagicLow;
            put(msg, fc + nl::kMagic, framed ? magic : in.ConsumeIntegral<uint64_t>(), 8);
            put(msg, fc + nl::kHostNo, in.ConsumeIntegralInRange(0, 15) != 0 ? 4 : in.ConsumeIntegral<uint16_t>(), 2);
            put(msg, fc + nl::kDataLen, static_cast<uint16_t>(datalen), 2);
            put(msg, fc + nl::kCmd, in.ConsumeIntegralInRange<uint32_t>(0, 9), 4);
            // Parameters (a position and a total for bulk chunks, a port
            // record, a bridge request), then the data.
            const std::vector<uint8_t> params = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 40));
            std::copy(params.begin(), params.end(), msg.begin() + static_cast<std::ptrdiff_t>(fc + nl::kParams));
            const std::vector<uint8_t> bulk = in.ConsumeBytes<uint8_t>(std::min<size_t>(datalen, 256));
            for (size_t i = 0; nl::kRequestHdr + i < msg.size() && i < datalen; ++i)
                msg[nl::kRequestHdr + i] = bulk.empty() ? 0 : bulk[i % bulk.size()];
        } else {
            const std::vector<uint8_t> raw = in.ConsumeBytes<uint8_t>(msg.size());
            std::copy(raw.begin(), raw.end(), msg.begin());
        }
        const std::vector<uint8_t> reply = service.handle(msg, 1);
        // A reply is a netlink header and the whole message block, maybe data.
        if (!reply.empty() && reply.size() < nl::kNlHdr + nl::kFcMsg) std::abort();
    }
    return 0;
}

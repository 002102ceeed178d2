// SPDX-License-Identifier: MIT
#include "netlink_service.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "wire.h"

namespace vxemu {

using wire::ByteReader;
using wire::ByteWriter;

std::vector<uint8_t> NetlinkService::handle(std::span<const uint8_t> msg, unsigned pid) {
    TrafficEntry e;
    e.kind = "netlink";
    e.pid = pid;
    e.length = msg.size();
    const ByteReader r(msg);
    // A malformed request is still answered (with "invalid parameter") when it is
    // long enough to carry a reply, so a caller never waits for nothing.
    auto done = [&](std::string violation) {
        e.violation = std::move(violation);
        log_.record(e);
        std::vector<uint8_t> reply;
        if (msg.size() >= nl::kRequestHdr) {
            reply.assign(nl::kNlHdr + nl::kFcMsg, 0);
            ByteWriter w(reply);
            w.le32(0, static_cast<uint32_t>(reply.size()));
            w.le16(4, nl::kMsgType);
            w.le32(nl::kNlHdr + nl::kError, 6);
        }
        return reply;
    };
    if (msg.size() < nl::kRequestHdr) return done("netlink message of " + std::to_string(msg.size()) + " bytes");
    const uint32_t len = *r.le32(0);
    const size_t fc = nl::kNlHdr + nl::kScsiNlHdr;
    const uint32_t cmd = *r.le32(fc + nl::kCmd);
    const uint16_t host_no = *r.le16(fc + nl::kHostNo);
    // vmsg_datalen is 16 bits wide while a bulk chunk may hold 65,536 bytes:
    // a full chunk arrives with the field wrapped to 0, and only nlmsg_len
    // tells it from a request without data.
    size_t datalen = *r.le16(fc + nl::kDataLen);
    if (datalen == 0 && len == nl::kRequestHdr + nl::kMaxChunk) datalen = nl::kMaxChunk;
    e.command = cmd;
    const size_t want_len = datalen == 0 ? nl::kRequestHdr : ((datalen + nl::kRequestHdr + 3) & ~size_t{3});
    if (len != msg.size() || len != want_len) return done("nlmsg_len " + std::to_string(len) + " does not match the message");
    if (*r.le16(4) != nl::kMsgType) return done("nlmsg_type " + std::to_string(*r.le16(4)));
    if (*r.u8(16) != 1 || *r.u8(17) != 0 || *r.le16(18) != nl::kScsiMagic || *r.le16(20) != nl::kScsiMsgType)
        return done("bad SCSI netlink header");
    const uint64_t magic = *r.le64(fc + nl::kMagic);

    // Find the sysfs adapter port behind host_no.
    Adapter *adapter = nullptr;
    PortFunction *fn = nullptr;
    size_t fn_index = 0;
    for (Adapter &a : host_.adapters) {
        if (a.transport != Transport::sysfs) continue;
        for (size_t i = 0; i < a.functions.size(); ++i)
            if (a.functions[i].host_no == host_no) {
                adapter = &a;
                fn = &a.functions[i];
                fn_index = i;
            }
    }
    if (adapter == nullptr) return done("netlink request for unknown host " + std::to_string(host_no));
    e.adapter = adapter->name;
    e.function = static_cast<unsigned>(fn_index);
    // The magic names the maker, not the port: an adapter sold under another
    // vendor's PCI ID still carries the maker's ID here.
    const uint64_t want_magic = (uint64_t{kMakerVendorId} << 48) | (uint64_t{0x84DD} << 32) | nl::kFcMagicLow;
    if (magic != want_magic) return done("bad vxa_fc_msg magic");

    // Reply: netlink header, then the vxa_fc_msg block (no SCSI header), then any data.
    std::vector<uint8_t> reply(nl::kNlHdr + nl::kFcMsg, 0);
    std::copy_n(msg.begin() + static_cast<std::ptrdiff_t>(fc), nl::kFcMsg, reply.begin() + nl::kNlHdr);
    ByteWriter w(reply);
    const size_t out = nl::kNlHdr;
    uint32_t error = 0;
    switch (cmd) {
    case 7: {  // port parameters: EXT_DEST_ADDR (16), Mode, Speed
        const size_t p = fc + nl::kParams;
        if (*r.le16(p + 8) != 2) {
            error = 6;
            break;
        }
        // Link speeds in Gbit/s and the driver's codes for them.
        static constexpr std::pair<uint32_t, uint16_t> kSpeedCodes[] = {{1, 0}, {2, 1}, {4, 3}, {8, 4}, {16, 19}};
        const uint16_t mode = *r.le16(p + 16);
        if (mode == 0) {
            // Report the link speed as the driver's speed code.
            uint16_t code = 3;
            for (const auto &[gbit, c] : kSpeedCodes)
                if (gbit == fn->speed_code) code = c;
            w.le16(out + nl::kParams + 18, code);
            break;
        }
        // A set carries a speed code, never Gbit/s: the caller translates first.
        const uint16_t code = *r.le16(p + 18);
        const auto it = std::find_if(std::begin(kSpeedCodes), std::end(kSpeedCodes),
                                     [code](const auto &sc) { return sc.second == code; });
        if (it == std::end(kSpeedCodes)) return done("port speed " + std::to_string(code) + " is not a driver speed code");
        fn->speed_code = it->first;
        break;
    }
    case 4: {  // asynchronous events: a count, then the 16-byte records, oldest first
        if (datalen != 0) return done("event fetch carrying " + std::to_string(datalen) + " data bytes");
        const size_t n = std::min(fn->events.size(), (nl::kFcMsg - nl::kParams - 4) / 16);
        w.le32(out + nl::kParams, static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; ++i)
            std::copy(fn->events[i].begin(), fn->events[i].end(),
                      reply.begin() + static_cast<std::ptrdiff_t>(out + nl::kParams + 4 + 16 * i));
        fn->events.erase(fn->events.begin(), fn->events.begin() + static_cast<std::ptrdiff_t>(n));
        e.length = 16 * n;
        break;
    }
    case 1:
    case 3:  // converged bridge reset and management: parameters only
        if (datalen != 0) return done("bridge command " + std::to_string(cmd) + " carrying " + std::to_string(datalen) + " data bytes");
        if (adapter->chip.rfind("FCX15", 0) != 0) error = 1;
        break;
    case 2:
    case 5:
    case 6: {  // bulk: bridge firmware, loopback phases; one chunk per message at its offset
        const size_t p = fc + nl::kParams;
        const uint32_t at = *r.le32(p), total = *r.le32(p + 4);
        e.offset = at;
        e.text = "chunk " + std::to_string(datalen) + " of " + std::to_string(total);
        const std::string key = adapter->name + "/" + std::to_string(fn_index) + "/" + std::to_string(cmd);
        size_t &expect = bulk_next_[key];
        if (at == 0) expect = 0;
        if (datalen == 0 && total != 0) return done("bulk message without data");
        if (at != expect || uint64_t{at} + datalen > total)
            return done("chunk at " + std::to_string(at) + " of " + std::to_string(datalen) + " bytes; expected offset " +
                        std::to_string(expect) + " within " + std::to_string(total));
        // Only the last chunk of a transfer may be short.
        if (datalen < nl::kMaxChunk && at + datalen != total)
            return done("short chunk of " + std::to_string(datalen) + " bytes before the end");
        expect = at + datalen;
        if (cmd == 2) {
            if (adapter->chip.rfind("FCX15", 0) != 0) error = 1;
            break;
        }
        // Loopback: the first phase sends the pattern round the loop, the
        // second sends it again and the driver compares what came back.
        std::vector<uint8_t> &sent = loop_data_[adapter->name + "/" + std::to_string(fn_index)];
        const auto chunk = msg.subspan(nl::kRequestHdr, datalen);
        if (cmd == 5) {
            if (at == 0) sent.clear();
            sent.insert(sent.end(), chunk.begin(), chunk.end());
        } else if (sent.size() < at + datalen || !std::equal(chunk.begin(), chunk.end(), sent.begin() + at)) {
            error = 1;
        }
        break;
    }
    default: return done("unknown netlink command " + std::to_string(cmd));
    }
    ByteWriter hdr(reply);  // the loopback data may have moved the buffer
    hdr.le32(0, static_cast<uint32_t>(reply.size()));
    hdr.le16(4, nl::kMsgType);
    hdr.le32(out + nl::kError, error);
    e.status = error;
    log_.record(e);
    return reply;
}

}  // namespace vxemu

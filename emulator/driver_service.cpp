// SPDX-License-Identifier: MIT
#include "driver_service.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vxemu {

using namespace wire;

namespace {

// Offsets that differ between the two header layouts.
struct HeaderOffsets {
    size_t size, request_adr, response_adr, hba_select;
};
constexpr HeaderOffsets kCurrentOffsets{sizeof(EXT_IOCTL), offsetof(EXT_IOCTL, RequestAdr),
                                        offsetof(EXT_IOCTL, ResponseAdr), offsetof(EXT_IOCTL, HbaSelect)};
constexpr HeaderOffsets kOldOffsets{sizeof(EXT_IOCTL_O), offsetof(EXT_IOCTL_O, RequestAdr),
                                    offsetof(EXT_IOCTL_O, ResponseAdr), offsetof(EXT_IOCTL_O, HbaSelect)};
// These fields sit at the same place in both layouts.
static_assert(offsetof(EXT_IOCTL, Status) == offsetof(EXT_IOCTL_O, Status));
static_assert(offsetof(EXT_IOCTL, ResponseLen) == offsetof(EXT_IOCTL_O, ResponseLen));
static_assert(offsetof(EXT_IOCTL, Instance) == offsetof(EXT_IOCTL_O, Instance));

bool is_ioctl_transport(Transport t) { return t == Transport::ioctl || t == Transport::ioctl_old; }

bool chip_is(const Adapter &a, std::string_view prefix) { return a.chip.rfind(prefix, 0) == 0; }

uint32_t sector_size_of(const Adapter &a) { return a.layout.sector_size != 0 ? a.layout.sector_size : 0x10000; }

void put_id(ByteWriter &w, size_t off, uint32_t port_id) {
    w.u8(off, 0);
    w.u8(off + 1, static_cast<uint8_t>(port_id >> 16));
    w.u8(off + 2, static_cast<uint8_t>(port_id >> 8));
    w.u8(off + 3, static_cast<uint8_t>(port_id));
}

}  // namespace

struct DriverService::Call {
    RemoteMemory &mem;
    Layout layout = Layout::Current;
    HeaderOffsets off{};
    uint8_t command = 0;
    std::vector<uint8_t> hdr;
    uint16_t subcode = 0, instance = 0, hba_select = 0;
    uint32_t reserved1 = 0, req_len = 0, resp_len = 0;
    uint64_t req_adr = 0, resp_adr = 0;

    uint32_t status = kStatusOk, detail = 0;
    std::optional<uint16_t> reply_instance;
    std::optional<uint32_t> reply_resp_len;
    int err = 0;
    bool answer = true;  // the header is written back

    Adapter *adapter = nullptr;
    PortFunction *fn = nullptr;
    size_t fn_index = 0;
    std::optional<Fault> fault;
    TrafficEntry entry;

    explicit Call(RemoteMemory &m) : mem(m) {}

    void violate(std::string why) {
        if (entry.violation.empty()) entry.violation = std::move(why);
    }
    void fail(uint32_t st, std::string why) {
        status = st;
        violate(std::move(why));
    }
    void fail_errno(int e, std::string why) {
        err = e;
        answer = false;
        violate(std::move(why));
    }
};

DriverService::DriverService(Host &host, TrafficLog &log, FaultInjector &faults)
    : host_(host), log_(log), faults_(faults) {
    for (size_t a = 0; a < host_.adapters.size(); ++a) {
        if (!is_ioctl_transport(host_.adapters[a].transport)) continue;
        for (size_t f = 0; f < host_.adapters[a].functions.size(); ++f) ports_.push_back({a, f});
    }
}

std::vector<EmulatedTarget> DriverService::targets_of(const PortFunction &fn) {
    // A port whose link is down sees nothing.
    if (fn.port_state != 2) return {};
    std::vector<EmulatedTarget> t;
    if (fn.targets) {
        for (const TargetPort &tp : *fn.targets) {
            t.push_back({tp, static_cast<uint16_t>(t.size())});
        }
        return t;
    }
    // The default fabric: two storage ports, a two-LUN array and a single-LUN
    // device whose firmware predates REPORT LUNS.
    t.resize(2);
    for (size_t i = 0; i < t.size(); ++i) {
        const auto tag = static_cast<uint8_t>(((fn.host_no & 0x0F) << 4) | i);
        t[i].wwnn = {0x50, 0x06, 0x0E, 0x80, 0x10, 0x00, 0x00, tag};
        t[i].wwpn = {0x50, 0x06, 0x0E, 0x80, 0x10, 0x00, 0x01, tag};
        t[i].port_id = 0x010100 + static_cast<uint32_t>(i) * 0x100 + (fn.port_id & 0xFF);
        t[i].target_id = static_cast<uint16_t>(i);
    }
    t[0].luns.resize(2);
    t[0].luns[1].lun = 1;
    t[1].luns.resize(1);
    t[1].report_luns = false;
    return t;
}

void DriverService::record(Call &c) {
    // A caller that died in the middle of its request did nothing wrong.
    if (c.mem.gone() && !c.entry.violation.empty()) {
        c.entry.violation.clear();
        // A power cut kills its caller on purpose: keep the cut in the log.
        c.entry.fault = c.entry.fault.empty() ? "caller gone" : c.entry.fault + "; caller gone";
    }
    log_.record(c.entry);
}

int DriverService::handle_ioctl(unsigned long request, uint64_t header_addr, RemoteMemory &mem, unsigned pid) {
    Call c(mem);
    c.entry.kind = "ioctl";
    c.entry.pid = pid;
    c.command = static_cast<uint8_t>(request & 0xFF);
    c.entry.command = c.command;
    const unsigned long base = request & kIoctlTypeMask;
    if (base == kIoctlCurrentBase) {
        c.layout = Layout::Current;
        c.off = kCurrentOffsets;
    } else if (base == kIoctlOldBase) {
        c.layout = Layout::Old;
        c.off = kOldOffsets;
    } else {
        c.fail_errno(EINVAL, "unknown request number");
        record(c);
        return c.err;
    }
    c.entry.layout = c.layout == Layout::Current ? "current" : "old";

    c.hdr.assign(c.off.size, 0);
    if (!mem.read(header_addr, c.hdr)) {
        c.fail_errno(EFAULT, "request header not readable");
        record(c);
        return c.err;
    }
    const ByteReader r(c.hdr);
    c.subcode = *r.le16(offsetof(EXT_IOCTL, SubCode));
    c.instance = *r.le16(offsetof(EXT_IOCTL, Instance));
    c.reserved1 = *r.le32(offsetof(EXT_IOCTL, Reserved1));
    c.req_len = *r.le32(offsetof(EXT_IOCTL, RequestLen));
    c.resp_len = *r.le32(offsetof(EXT_IOCTL, ResponseLen));
    c.req_adr = *r.le64(c.off.request_adr);
    c.resp_adr = *r.le64(c.off.response_adr);
    c.hba_select = *r.le16(c.off.hba_select);
    c.entry.subcode = c.subcode;

    // Signature: in place in the current layout, behind a pointer in the older one.
    std::array<uint8_t, 8> sig{};
    bool sig_ok = false;
    if (c.layout == Layout::Current) {
        std::copy_n(c.hdr.begin(), 8, sig.begin());
        sig_ok = true;
    } else {
        sig_ok = mem.read(*r.le64(0), std::span<uint8_t>(sig.data(), 7));
    }
    const bool sig_match = sig_ok && std::memcmp(sig.data(), kSignature, 7) == 0 &&
                           (c.layout == Layout::Old || sig[7] == 0);
    const uint16_t want_version = c.layout == Layout::Current ? kVersionCurrent : kVersionOld;
    if (!sig_match) {
        c.fail(kStatusInvalidParam, "bad signature");
    } else if (*r.le16(offsetof(EXT_IOCTL, AddrMode)) != kAddrMode) {
        c.fail(kStatusInvalidParam, "bad AddrMode " + std::to_string(*r.le16(offsetof(EXT_IOCTL, AddrMode))));
    } else if (*r.le16(offsetof(EXT_IOCTL, Version)) != want_version) {
        c.fail(kStatusUnsupportedVersion, "bad Version " + std::to_string(*r.le16(offsetof(EXT_IOCTL, Version))));
    } else {
        dispatch(c);
    }

    if (c.answer) {
        ByteWriter w(c.hdr);
        w.le32(offsetof(EXT_IOCTL, Status), c.status);
        w.le32(offsetof(EXT_IOCTL, DetailStatus), c.detail);
        if (c.reply_instance) w.le16(offsetof(EXT_IOCTL, Instance), *c.reply_instance);
        if (c.reply_resp_len) w.le32(offsetof(EXT_IOCTL, ResponseLen), *c.reply_resp_len);
        if (!mem.write(header_addr, c.hdr)) {
            c.err = EFAULT;
            c.violate("request header not writable");
        }
    }
    c.entry.status = c.err != 0 ? -static_cast<int64_t>(c.err) : static_cast<int64_t>(c.status);
    record(c);
    return c.err;
}

bool DriverService::apply_fault(Call &c, const std::string &adapter, int function) {
    c.fault = faults_.on_ioctl(adapter, function, c.command, c.subcode);
    if (!c.fault) return false;
    c.entry.fault = FaultInjector::describe(*c.fault);
    switch (c.fault->kind) {
    case FaultKind::status:
        c.status = c.fault->status;
        c.detail = c.fault->detail;
        return true;
    case FaultKind::error:
        c.err = c.fault->err;
        c.answer = false;
        return true;
    case FaultKind::busy: c.status = kStatusBusy; return true;
    case FaultKind::short_xfer:
    case FaultKind::stop_after:
    case FaultKind::bitflip:
    case FaultKind::lie:
    case FaultKind::partial: break;  // applied by the transfer itself
    }
    return false;
}

void DriverService::dispatch(Call &c) {
    const bool current = c.layout == Layout::Current;
    if (c.command == kCmdInstanceCount) {
        // Not addressed to an adapter: only faults for any adapter apply.
        if (apply_fault(c, "", -1)) return;
        c.reply_instance = host_.instance_count();
        return;
    }
    if (c.command == kCmdSetInstance) {
        if (c.instance >= ports_.size() || c.instance >= host_.instance_count()) {
            if (apply_fault(c, "", -1)) return;
            c.status = kStatusDevNotFound;
            return;
        }
        const PortRef p = ports_[c.instance];
        Adapter &a = host_.adapters[p.adapter];
        c.entry.adapter = a.name;
        c.entry.function = static_cast<unsigned>(p.function);
        if (apply_fault(c, a.name, static_cast<int>(p.function))) return;
        const bool refused = std::find(host_.instances.refuse_bind.begin(), host_.instances.refuse_bind.end(),
                                       c.instance) != host_.instances.refuse_bind.end();
        // An adapter that speaks only the other layout cannot be bound through this one:
        // that is how the library tells the two driver generations apart.
        if (refused || (a.transport == Transport::ioctl) != current) {
            c.status = kStatusError;
            return;
        }
        c.detail = a.functions[p.function].host_no;
        return;
    }

    if (c.hba_select >= ports_.size() || c.hba_select >= host_.instance_count()) {
        c.status = kStatusDevNotFound;
        return;
    }
    const PortRef p = ports_[c.hba_select];
    c.adapter = &host_.adapters[p.adapter];
    c.fn_index = p.function;
    c.fn = &c.adapter->functions[p.function];
    c.entry.adapter = c.adapter->name;
    c.entry.function = static_cast<unsigned>(p.function);
    if ((c.adapter->transport == Transport::ioctl) != current) {
        c.fail_errno(EINVAL, std::string("header layout ") + (current ? "current" : "old") + " sent to an adapter of the " +
                                 (current ? "older" : "current") + " layout");
        return;
    }

    if (apply_fault(c, c.adapter->name, static_cast<int>(p.function))) return;

    switch (c.command) {
    case kCmdQuery: query(c); break;
    case kCmdGetData: get_data(c); break;
    case kCmdSetData: set_data(c); break;
    case kCmdReadOptrom: read_optrom(c); break;
    case kCmdUpdateOptrom: update_optrom(c); break;
    case kCmdOptromLayout: optrom_layout(c); break;
    case kCmdGetNvram:
    case kCmdSetNvram:
    case kCmdGetVpd:
    case kCmdSetVpd: nvram_vpd(c); break;
    case kCmdActivateRegion: activate(c); break;
    case kCmdAenReg:
    case kCmdAenGet: aen(c); break;
    case kCmdScsiPassthru: scsi_passthru(c); break;
    case kCmdWwpnToScsiAddr: wwpn_to_scsiaddr(c); break;
    case kCmdGetSfpData: {
        // The transceiver's two ID pages (A0h and A2h, 256 bytes each), as
        // much of them as the caller asked for.
        std::vector<uint8_t> b(512);
        ByteWriter w(b);
        w.u8(0, 0x03);  // identifier: SFP
        w.u8(2, 0x07);  // LC connector
        const std::string_view vendor = "VARNIX          ";  // space-padded, no NUL
        for (size_t i = 0; i < vendor.size(); ++i) w.u8(20 + i, static_cast<uint8_t>(vendor[i]));
        put_response(c, b);
        break;
    }
    case kCmdDriverSpecifics: {
        if (!need_response(c, sizeof(EXT_LN_DRIVER_DATA))) return;
        std::array<uint8_t, sizeof(EXT_LN_DRIVER_DATA)> b{};
        ByteWriter w(b);
        w.u8(offsetof(EXT_LN_DRIVER_DATA, Major), host_.driver.major);
        w.u8(offsetof(EXT_LN_DRIVER_DATA, Minor), host_.driver.minor);
        w.u8(offsetof(EXT_LN_DRIVER_DATA, Patch), host_.driver.patch);
        w.u8(offsetof(EXT_LN_DRIVER_DATA, Beta), host_.driver.beta);
        w.le32(offsetof(EXT_LN_DRIVER_DATA, Flags), host_.driver.flags);
        put_response(c, b);
        break;
    }
    default:
        if (c.command >= kCmdFoFirst && c.command <= kCmdFoLast) {
            failover(c);
        } else {
            c.fail_errno(EINVAL, "unknown command " + std::to_string(c.command));
        }
    }
}

// ---- buffer helpers ---------------------------------------------------------

bool DriverService::fetch_request(Call &c, uint32_t need, std::vector<uint8_t> &out) {
    if (c.req_len < need) {
        c.fail(kStatusInvalidParam,
               "RequestLen " + std::to_string(c.req_len) + " below the " + std::to_string(need) + " bytes of the command");
        return false;
    }
    if (c.req_len > kMaxTransfer) {
        c.fail(kStatusInvalidParam, "RequestLen " + std::to_string(c.req_len) + " too large");
        return false;
    }
    out.assign(c.req_len, 0);
    if (!c.mem.read(c.req_adr, out)) {
        c.fail(kStatusCopyError, "request buffer not readable");
        return false;
    }
    return true;
}

bool DriverService::need_response(Call &c, uint32_t need) {
    if (c.resp_len < need) {
        c.fail(kStatusBufferTooSmall, "ResponseLen " + std::to_string(c.resp_len) + " below the " +
                                          std::to_string(need) + " bytes of the reply");
        return false;
    }
    return true;
}

bool DriverService::put_response(Call &c, std::span<const uint8_t> bytes) {
    size_t n = std::min<size_t>(bytes.size(), c.resp_len);
    if (c.fault && c.fault->kind == FaultKind::short_xfer) {
        n = std::min(n, c.fault->bytes);
        c.reply_resp_len = static_cast<uint32_t>(n);
    }
    std::vector<uint8_t> flipped;
    if (c.fault && c.fault->kind == FaultKind::bitflip && n > 0) {
        flipped.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        c.entry.fault = faults_.on_read(c.fault, flipped);
        bytes = flipped;
    }
    if (n > 0 && !c.mem.write(c.resp_adr, bytes.first(n))) {
        c.fail(kStatusCopyError, "response buffer not writable");
        return false;
    }
    return true;
}

// ---- queries ------------------------------------------------------------------

void DriverService::query(Call &c) {
    const Adapter &a = *c.adapter;
    const PortFunction &fn = *c.fn;
    switch (c.subcode) {
    case kQueryNode: {
        if (!need_response(c, sizeof(EXT_HBA_NODE))) return;
        std::vector<uint8_t> b(sizeof(EXT_HBA_NODE));
        ByteWriter w(b);
        w.bytes(offsetof(EXT_HBA_NODE, WWNN), fn.wwnn, 8);
        w.text(offsetof(EXT_HBA_NODE, Manufacturer), "Varnix Corporation", 64);
        w.text(offsetof(EXT_HBA_NODE, Model), fn.model.empty() ? a.model : fn.model, 32);
        w.text(offsetof(EXT_HBA_NODE, SerialNum), fn.serial, 32);
        w.text(offsetof(EXT_HBA_NODE, DriverVersion), a.driver_version, 32);
        w.text(offsetof(EXT_HBA_NODE, FWVersion), a.firmware_version, 32);
        w.text(offsetof(EXT_HBA_NODE, OptRomVersion), a.versions.bios.text(), 32);
        w.le16(offsetof(EXT_HBA_NODE, PortCount), static_cast<uint16_t>(a.functions.size()));
        w.le16(offsetof(EXT_HBA_NODE, InterfaceType), 1);
        w.le32(offsetof(EXT_HBA_NODE, DriverAttr), host_.driver.attributes);
        uint32_t bivalid = 0;
        if (a.versions.firmware.present) {
            bivalid |= 0x1;
            w.u8(offsetof(EXT_HBA_NODE, BIFwVersion), a.versions.firmware.major);
            w.u8(offsetof(EXT_HBA_NODE, BIFwVersion) + 1, a.versions.firmware.minor);
            w.u8(offsetof(EXT_HBA_NODE, BIFwVersion) + 2, a.versions.firmware.sub);
        }
        if (a.versions.efi.present) {
            bivalid |= 0x2;
            w.u8(offsetof(EXT_HBA_NODE, BIEfiVersion), a.versions.efi.major);
            w.u8(offsetof(EXT_HBA_NODE, BIEfiVersion) + 1, a.versions.efi.minor);
        }
        if (a.versions.fcode.present) {
            bivalid |= 0x4;
            w.u8(offsetof(EXT_HBA_NODE, BIFCodeVersion), a.versions.fcode.major);
            w.u8(offsetof(EXT_HBA_NODE, BIFCodeVersion) + 1, a.versions.fcode.minor);
        }
        w.le32(offsetof(EXT_HBA_NODE, BIValid), bivalid);
        // The OEM serial-number area: the driver copies the serial in for every model.
        w.text(offsetof(EXT_HBA_NODE, Reserved), fn.serial, 16);
        put_response(c, b);
        return;
    }
    case kQueryPort: {
        if (!need_response(c, sizeof(EXT_HBA_PORT))) return;
        std::vector<uint8_t> b(sizeof(EXT_HBA_PORT));
        ByteWriter w(b);
        const auto targets = targets_of(fn);
        w.bytes(offsetof(EXT_HBA_PORT, WWPN), fn.wwpn, 8);
        put_id(w, offsetof(EXT_HBA_PORT, Id), fn.port_id);
        w.le16(offsetof(EXT_HBA_PORT, Type), fn.port_type);
        w.le16(offsetof(EXT_HBA_PORT, State), fn.port_state);
        w.le16(offsetof(EXT_HBA_PORT, Mode), fn.connection_mode);
        w.le16(offsetof(EXT_HBA_PORT, DiscPortCount), static_cast<uint16_t>(targets.size()));
        w.le16(offsetof(EXT_HBA_PORT, DiscTargetCount), static_cast<uint16_t>(targets.size()));
        w.le32(offsetof(EXT_HBA_PORT, PortSpeed), fn.speed_code);
        put_response(c, b);
        return;
    }
    case kQueryDiscPort:
    case kQueryDiscTarget: {
        if (!need_response(c, sizeof(EXT_DISC_PORT))) return;
        const auto targets = targets_of(fn);
        if (c.instance >= targets.size()) {
            c.status = kStatusDevNotFound;
            return;
        }
        const EmulatedTarget &t = targets[c.instance];
        std::vector<uint8_t> b(sizeof(EXT_DISC_PORT));
        ByteWriter w(b);
        w.bytes(offsetof(EXT_DISC_PORT, WWNN), t.wwnn, 8);
        w.bytes(offsetof(EXT_DISC_PORT, WWPN), t.wwpn, 8);
        put_id(w, offsetof(EXT_DISC_PORT, Id), t.port_id);
        w.le16(offsetof(EXT_DISC_PORT, Type), 0x2);  // target
        w.le16(offsetof(EXT_DISC_PORT, TargetId), t.target_id);
        w.le16(offsetof(EXT_DISC_PORT, LoopId), static_cast<uint16_t>(0x81 + t.target_id));
        put_response(c, b);
        return;
    }
    case kQueryChip: {
        if (!need_response(c, sizeof(EXT_CHIP))) return;
        std::vector<uint8_t> b(sizeof(EXT_CHIP));
        ByteWriter w(b);
        w.le16(offsetof(EXT_CHIP, VendorId), fn.vendor_id);
        w.le16(offsetof(EXT_CHIP, DeviceId), fn.device_id);
        w.le16(offsetof(EXT_CHIP, SubVendorId), fn.ss_vendor_id);
        w.le16(offsetof(EXT_CHIP, SubSystemId), fn.ss_device_id);
        w.le16(offsetof(EXT_CHIP, PciBusNumber), static_cast<uint16_t>(fn.bus()));
        const auto devfn = static_cast<uint16_t>(fn.device() * 8 + fn.function());
        w.le16(offsetof(EXT_CHIP, PciSlotNumber), devfn);
        w.le32(offsetof(EXT_CHIP, MemAddr), 0xFE000000u + static_cast<uint32_t>(fn.bus()) * 0x100000u);
        w.le32(offsetof(EXT_CHIP, MemAddrLen), 0x4000);
        w.le16(offsetof(EXT_CHIP, ChipType), fn.device_id);
        w.le16(offsetof(EXT_CHIP, InterruptLevel), static_cast<uint16_t>(32 + fn.host_no));
        w.le16(offsetof(EXT_CHIP, PciDevFunc), devfn);
        w.le16(offsetof(EXT_CHIP, DomainNr), static_cast<uint16_t>(fn.domain()));
        w.le32(offsetof(EXT_CHIP, FlashBlockSize), sector_size_of(a));
        put_response(c, b);
        return;
    }
    case kQueryCnaPort: {
        // Only the converged chips have an Ethernet side to describe.
        if (!chip_is(a, "FCX15")) {
            c.status = kStatusInvalidSubcode;
            return;
        }
        if (!need_response(c, 128)) return;
        std::vector<uint8_t> b(128);
        ByteWriter w(b);
        w.bytes(0, fn.wwpn, 6);  // MAC address from the port name
        put_response(c, b);
        return;
    }
    case kQueryAdapterVersions: {
        // 24-byte entries: Region uint16, Location uint16, VersionLen uint16,
        // Version uint8[12], Reserved uint8[6].
        struct Entry {
            uint16_t region;
            std::array<uint8_t, 3> v;
        };
        std::vector<Entry> list;
        if (a.versions.firmware.present)
            list.push_back({kRegionFirmware, {a.versions.firmware.major, a.versions.firmware.minor, a.versions.firmware.sub}});
        if (a.versions.bios.present) list.push_back({kRegionBootCode, {a.versions.bios.major, a.versions.bios.minor, 0}});
        std::vector<uint8_t> b(list.size() * 24);
        ByteWriter w(b);
        for (size_t i = 0; i < list.size(); ++i) {
            w.le16(i * 24, list[i].region);
            w.le16(i * 24 + 4, 3);
            w.bytes(i * 24 + 6, list[i].v, 3);
        }
        if (c.resp_len < b.size()) {
            c.status = kStatusBufferTooSmall;
            c.reply_resp_len = static_cast<uint32_t>(b.size());
            return;
        }
        c.reply_resp_len = static_cast<uint32_t>(b.size());
        put_response(c, b);
        return;
    }
    default: c.fail(kStatusInvalidSubcode, "unknown query sub-code " + std::to_string(c.subcode));
    }
}

// ---- get / set data ---------------------------------------------------------------

void DriverService::get_data(Call &c) {
    const Adapter &a = *c.adapter;
    switch (c.subcode) {
    case kGetDriver: {
        if (!need_response(c, sizeof(EXT_DRIVER))) return;
        std::vector<uint8_t> b(sizeof(EXT_DRIVER));
        ByteWriter w(b);
        w.text(offsetof(EXT_DRIVER, Version), a.driver_version, 32);
        w.le16(offsetof(EXT_DRIVER, NumOfBus), 1);
        w.le16(offsetof(EXT_DRIVER, TargetsPerBus), 512);
        w.le16(offsetof(EXT_DRIVER, LunsPerTarget), 256);
        w.le32(offsetof(EXT_DRIVER, MaxTransferLen), 0x100000);
        w.le32(offsetof(EXT_DRIVER, MaxDataSegments), 128);
        w.le16(offsetof(EXT_DRIVER, DmaBitAddresses), 64);
        put_response(c, b);
        return;
    }
    case kGetFw: {
        if (!need_response(c, sizeof(EXT_FW))) return;
        std::vector<uint8_t> b(sizeof(EXT_FW));
        ByteWriter w(b);
        w.text(offsetof(EXT_FW, Version), a.firmware_version, 32);
        put_response(c, b);
        return;
    }
    case kGetStatistics:
    case kGetPortStatistics:
    case kGetFc4Statistics: {
        if (c.subcode != kGetStatistics) {
            std::vector<uint8_t> dest;
            if (!fetch_request(c, sizeof(EXT_DEST_ADDR), dest)) return;
        }
        if (!need_response(c, sizeof(EXT_STATISTICS))) return;
        std::vector<uint8_t> b(sizeof(EXT_STATISTICS));
        ByteWriter w(b);
        // A quiet, healthy link: some traffic, one reset at boot, no errors.
        const uint32_t counters[12] = {0, 0, 48213, 1877, 1, 96021, 0, 0, 0, 0, 0, 0};
        for (size_t i = 0; i < 12; ++i) w.le32(i * 4, counters[i]);
        put_response(c, b);
        return;
    }
    case kGetBeacon: {
        if (!need_response(c, sizeof(EXT_BEACON_CONTROL))) return;
        std::vector<uint8_t> b(sizeof(EXT_BEACON_CONTROL));
        ByteWriter(b).le32(0, beacon_[c.adapter->name + "/" + std::to_string(c.fn_index)]);
        put_response(c, b);
        return;
    }
    case 106:  // port summary
    case 10:   // target/LUN data list
    case 109:  // RNID parameters
    {
        if (c.subcode == 106) {
            std::vector<uint8_t> in;
            if (!fetch_request(c, 4, in)) return;
        }
        std::vector<uint8_t> b(std::min<uint32_t>(c.resp_len, 4096), 0);
        put_response(c, b);
        return;
    }
    default: c.fail(kStatusInvalidSubcode, "unknown get-data sub-code " + std::to_string(c.subcode));
    }
}

void DriverService::set_data(Call &c) {
    switch (c.subcode) {
    case kGetBeacon: {
        std::vector<uint8_t> in;
        if (!fetch_request(c, sizeof(EXT_BEACON_CONTROL), in)) return;
        beacon_[c.adapter->name + "/" + std::to_string(c.fn_index)] = *ByteReader(in).le32(0);
        return;
    }
    case 109: {
        std::vector<uint8_t> in;
        fetch_request(c, 1, in);
        return;
    }
    default: c.fail(kStatusInvalidSubcode, "unknown set-data sub-code " + std::to_string(c.subcode));
    }
}

// ---- flash ----------------------------------------------------------------------------

namespace {

// Where a flash request lands: raw (offset and size given) or a region plus offset.
struct Window {
    uint64_t beg = 0;
    uint64_t size = 0;
    const FlashRegion *region = nullptr;  // null for raw access
};

// nullopt for a region the adapter does not have or a window past the flash end.
std::optional<Window> flash_window(const Adapter &a, uint16_t code, uint32_t offset, uint32_t len) {
    Window w;
    w.size = len;
    // Region 0 is the whole option ROM from its first byte: the whole-image
    // write of the older chips reads and writes the flash through it.
    if (code == kRegionRaw || code == kRegionWholeOptionRom) {
        w.beg = offset;
    } else {
        for (const FlashRegion &r : a.layout.regions)
            if (r.code() == code) {
                w.region = &r;
                break;
            }
        if (w.region == nullptr) return std::nullopt;
        w.beg = static_cast<uint64_t>(w.region->beg) + offset;
    }
    if (w.beg + w.size > a.flash.size()) return std::nullopt;
    return w;
}

}  // namespace

void DriverService::read_optrom(Call &c) {
    c.entry.region = c.subcode;
    c.entry.offset = c.reserved1;
    c.entry.length = c.resp_len;
    const auto w = flash_window(*c.adapter, c.subcode, c.reserved1, c.resp_len);
    if (!w) {
        c.status = kStatusInvalidParam;
        return;
    }
    if (c.resp_len > kMaxTransfer) {
        c.fail(kStatusInvalidParam, "flash read too large");
        return;
    }
    const auto bytes = c.adapter->flash_range(w->beg, w->size);
    put_response(c, bytes);
}

void DriverService::update_optrom(Call &c) {
    c.entry.region = c.subcode;
    c.entry.offset = c.reserved1;
    c.entry.length = c.req_len;
    const auto w = flash_window(*c.adapter, c.subcode, c.reserved1, c.req_len);
    if (!w) {
        c.status = kStatusInvalidParam;
        return;
    }
    // A region write stays inside its region, and read-only regions are refused.
    const FlashRegion *region = w->region;
    if (region != nullptr && (region->read_only() || c.reserved1 + static_cast<uint64_t>(c.req_len) > region->size)) {
        c.status = kStatusInvalidParam;
        return;
    }
    std::vector<uint8_t> data;
    if (!fetch_request(c, c.req_len, data)) return;
    const FaultInjector::Store st = store(c, data);
    if (st.kept > 0 && !c.adapter->write_flash(w->beg, std::span<const uint8_t>(data).first(st.kept)).ok()) {
        c.status = kStatusInvalidParam;
        return;
    }
    if (st.failed) c.status = c.fault && c.fault->status != 0 ? c.fault->status : kStatusError;
}

FaultInjector::Store DriverService::store(Call &c, std::span<uint8_t> data) {
    FaultInjector::Store st = faults_.on_store(c.fault, data);
    if (!st.note.empty()) c.entry.fault = c.entry.fault.empty() ? st.note : c.entry.fault + "; " + st.note;
    return st;
}

void DriverService::optrom_layout(Call &c) {
    const std::vector<uint8_t> full = encode_layout(c.adapter->layout);
    if (c.resp_len < full.size()) {
        c.status = kStatusBufferTooSmall;
        c.reply_resp_len = static_cast<uint32_t>(full.size());
        return;
    }
    put_response(c, full);
}

void DriverService::activate(Call &c) {
    // The sub-code field is 16 bits wide: the activation code arrives cut to its low half.
    const uint32_t code = c.subcode;
    c.entry.region = code;
    if (code != (kActivateFirmware & 0xFFFF) && code != (kActivateRegions & 0xFFFF) && c.reserved1 != kActivateFirmware &&
        c.reserved1 != kActivateRegions)
        c.fail(kStatusInvalidParam, "unknown activation code " + std::to_string(code));
}

void DriverService::nvram_vpd(Call &c) {
    Adapter &a = *c.adapter;
    const bool nvram = c.command == kCmdGetNvram || c.command == kCmdSetNvram;
    const bool reading = c.command == kCmdGetNvram || c.command == kCmdGetVpd;
    const size_t block = nvram ? a.nvram_size() : a.vpd_size();
    std::vector<uint8_t> current = nvram ? c.fn->nvram : c.fn->vpd;
    current.resize(block, nvram ? 0x00 : 0xFF);
    if (reading) {
        const size_t n = std::min<size_t>(c.resp_len, block);
        c.entry.length = n;
        c.reply_resp_len = static_cast<uint32_t>(n);
        put_response(c, std::span<const uint8_t>(current).first(n));
        return;
    }
    c.entry.length = c.req_len;
    if (c.req_len > block) {
        c.fail(kStatusInvalidParam, "write of " + std::to_string(c.req_len) + " bytes to a block of " + std::to_string(block));
        return;
    }
    std::vector<uint8_t> in;
    if (!fetch_request(c, c.req_len, in)) return;
    const FaultInjector::Store put = store(c, in);
    std::copy_n(in.begin(), put.kept, current.begin());
    if (put.kept > 0) {
        const Status st = nvram ? a.write_nvram(c.fn_index, current) : a.write_vpd(c.fn_index, current);
        if (!st.ok()) c.status = kStatusError;
    }
    if (put.failed) c.status = c.fault && c.fault->status != 0 ? c.fault->status : kStatusError;
}

// ---- events -----------------------------------------------------------------------------

void DriverService::aen(Call &c) {
    if (c.command == kCmdAenReg) {
        std::vector<uint8_t> in;
        if (!fetch_request(c, sizeof(EXT_REG_AEN), in)) return;
        const bool enable = *ByteReader(in).le32(offsetof(EXT_REG_AEN, Enable)) != 0;
        c.entry.text = enable ? "enable" : "disable";
        c.fn->events_registered = enable;
        // Deregistering drops what the port still held.
        if (!enable) c.fn->events.clear();
        return;
    }
    // Whole records only, oldest first, as many as the buffer takes.
    const size_t n = std::min<size_t>(c.fn->events.size(), c.resp_len / sizeof(EXT_ASYNC_EVENT));
    std::vector<uint8_t> out;
    for (size_t i = 0; i < n; ++i) out.insert(out.end(), c.fn->events[i].begin(), c.fn->events[i].end());
    c.entry.length = out.size();
    c.reply_resp_len = static_cast<uint32_t>(out.size());
    if (put_response(c, out)) c.fn->events.erase(c.fn->events.begin(), c.fn->events.begin() + static_cast<std::ptrdiff_t>(n));
}

// ---- SCSI ---------------------------------------------------------------------------------

std::string cdb_text(std::span<const uint8_t> cdb) {
    std::string s;
    char b[4];
    for (uint8_t v : cdb) {
        std::snprintf(b, sizeof b, "%s%02x", s.empty() ? "" : " ", v);
        s += b;
    }
    return s;
}

ScsiResult scsi_execute(const TargetPort &t, uint16_t lun, std::span<const uint8_t> cdb, uint32_t xfer_len) {
    ScsiResult r;
    auto check = [&](uint8_t key, uint8_t asc, uint8_t ascq) {
        r.status = 2;  // CHECK CONDITION, fixed-format sense
        r.sense.assign(18, 0);
        r.sense[0] = 0x70;
        r.sense[2] = key;
        r.sense[7] = 10;
        r.sense[12] = asc;
        r.sense[13] = ascq;
    };
    const LogicalUnit *lu = nullptr;
    for (const LogicalUnit &cand : t.luns)
        if (cand.lun == lun) lu = &cand;
    if (cdb.empty()) {
        check(0x05, 0x20, 0x00);
        return r;
    }
    if (lu != nullptr && lu->sense) {
        check((*lu->sense)[0], (*lu->sense)[1], (*lu->sense)[2]);
        return r;
    }
    auto be = [&](size_t at, size_t n) {
        uint32_t v = 0;
        for (size_t i = 0; i < n && at + i < cdb.size(); ++i) v = (v << 8) | cdb[at + i];
        return v;
    };
    uint32_t alloc = xfer_len;
    switch (cdb[0]) {
    case 0x12: {  // INQUIRY: standard data, cut at the allocation length
        r.data.assign(96, 0);
        r.data[0] = lu != nullptr ? lu->inquiry_type : 0x20;  // qualifier 1: nothing connected here
        r.data[2] = 5;
        r.data[3] = 2;
        r.data[4] = 91;
        const char *product = !t.report_luns ? "LEGACY DISK     " : "STORAGE ARRAY   ";
        std::memcpy(r.data.data() + 8, "VARNIX  ", 8);
        std::memcpy(r.data.data() + 16, product, 16);
        std::memcpy(r.data.data() + 32, "0001", 4);
        alloc = std::min<uint32_t>(alloc, be(4, 1));
        break;
    }
    case 0x25: {  // READ CAPACITY(10): last block and block length
        if (lu == nullptr) {
            check(0x05, 0x25, 0x00);
            return r;
        }
        r.data.assign(8, 0);
        const uint64_t last = lu->blocks == 0 ? 0 : lu->blocks - 1;
        const uint32_t last32 = last > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(last);
        for (int i = 0; i < 4; ++i) {
            r.data[static_cast<size_t>(i)] = static_cast<uint8_t>(last32 >> (24 - 8 * i));
            r.data[static_cast<size_t>(4 + i)] = static_cast<uint8_t>(lu->block_size >> (24 - 8 * i));
        }
        break;
    }
    case 0xA0: {  // REPORT LUNS
        if (!t.report_luns) {
            check(0x05, 0x20, 0x00);
            return r;
        }
        std::vector<uint16_t> luns;
        for (const LogicalUnit &l : t.luns)
            if (l.inquiry_type != 0x7F) luns.push_back(l.lun);
        std::sort(luns.begin(), luns.end());
        r.data.assign(8 + 8 * luns.size(), 0);
        const auto list_len = static_cast<uint32_t>(8 * luns.size());
        for (int i = 0; i < 4; ++i) r.data[static_cast<size_t>(i)] = static_cast<uint8_t>(list_len >> (24 - 8 * i));
        for (size_t k = 0; k < luns.size(); ++k) {
            r.data[8 + 8 * k] = static_cast<uint8_t>((luns[k] >> 8) & 0x3F);
            r.data[8 + 8 * k + 1] = static_cast<uint8_t>(luns[k]);
        }
        alloc = std::min<uint32_t>(alloc, be(6, 4));
        break;
    }
    case 0x00:  // TEST UNIT READY
        if (lu == nullptr) check(0x05, 0x25, 0x00);
        return r;
    default:
        check(0x05, 0x20, 0x00);
        return r;
    }
    if (r.data.size() > alloc) r.data.resize(alloc);
    return r;
}

void DriverService::scsi_passthru(Call &c) {
    if (c.subcode > 2) {
        c.fail(kStatusInvalidSubcode, "unknown pass-through sub-code " + std::to_string(c.subcode));
        return;
    }
    std::vector<uint8_t> desc;
    if (!fetch_request(c, sizeof(EXT_SCSI_PASSTHRU), desc)) return;
    if (desc.size() != sizeof(EXT_SCSI_PASSTHRU)) {
        c.fail(kStatusInvalidParam, "RequestLen " + std::to_string(desc.size()) + " for the 352-byte pass-through descriptor");
        return;
    }
    const ByteReader r(desc);
    const uint8_t cdb_len = *r.u8(offsetof(EXT_SCSI_PASSTHRU, CdbLength));
    const uint8_t direction = *r.u8(offsetof(EXT_SCSI_PASSTHRU, Direction));
    const uint16_t sense_len = *r.le16(offsetof(EXT_SCSI_PASSTHRU, SenseLength));
    if (cdb_len == 0 || cdb_len > 16) {
        c.fail(kStatusInvalidParam, "CdbLength " + std::to_string(cdb_len));
        return;
    }
    const auto cdb = std::span<const uint8_t>(desc).subspan(offsetof(EXT_SCSI_PASSTHRU, Cdb), cdb_len);
    c.entry.region = cdb[0];
    c.entry.text = cdb_text(cdb);
    c.entry.length = c.resp_len;
    if (direction > 2 || (direction == 0 && c.resp_len != 0)) {
        c.fail(kStatusInvalidParam, "Direction " + std::to_string(direction) + " with " + std::to_string(c.resp_len) + " data bytes");
        return;
    }
    if (sense_len > 256) {
        c.fail(kStatusInvalidParam, "SenseLength " + std::to_string(sense_len));
        return;
    }
    if (c.subcode == 1 && *r.le16(offsetof(EXT_DEST_ADDR, DestType)) != 2) {
        c.fail(kStatusInvalidParam, "DestType " + std::to_string(*r.le16(offsetof(EXT_DEST_ADDR, DestType))));
        return;
    }
    const auto targets = targets_of(*c.fn);
    const EmulatedTarget *t = nullptr;
    uint16_t lun = 0;
    if (c.subcode == 1) {
        lun = *r.le16(offsetof(EXT_DEST_ADDR, Lun));
        for (const auto &cand : targets)
            if (std::equal(cand.wwpn.begin(), cand.wwpn.end(), desc.begin())) t = &cand;
    } else {
        const uint16_t target = *r.le16(offsetof(EXT_SCSI_ADDR, Target));
        lun = *r.le16(offsetof(EXT_SCSI_ADDR, Lun));
        if (target < targets.size()) t = &targets[target];
    }
    c.entry.offset = lun;
    if (t == nullptr) {
        c.status = kStatusDevNotFound;
        c.reply_resp_len = 0;
        return;
    }
    if (direction == 2) {
        // Written data is taken from the caller and dropped.
        std::vector<uint8_t> sink(std::min<uint32_t>(c.resp_len, kMaxTransfer), 0);
        if (!sink.empty() && !c.mem.read(c.resp_adr, sink)) {
            c.fail(kStatusCopyError, "data buffer not readable");
            return;
        }
    }
    const ScsiResult res = scsi_execute(*t, lun, cdb, direction == 1 ? c.resp_len : 0);
    if (res.status != 0) {
        c.status = kStatusScsiStatus;
        c.detail = res.status;
        ByteWriter w(desc);
        const size_t n = std::min<size_t>(res.sense.size(), sense_len);
        for (size_t i = 0; i < n; ++i) w.u8(offsetof(EXT_SCSI_PASSTHRU, SenseData) + i, res.sense[i]);
        if (!c.mem.write(c.req_adr, desc)) c.fail(kStatusCopyError, "pass-through descriptor not writable");
        c.reply_resp_len = 0;
        return;
    }
    c.reply_resp_len = static_cast<uint32_t>(res.data.size());
    if (direction == 1 && !res.data.empty()) put_response(c, res.data);
}

void DriverService::wwpn_to_scsiaddr(Call &c) {
    std::vector<uint8_t> in;
    if (!fetch_request(c, 8, in)) return;
    if (!need_response(c, sizeof(EXT_SCSI_ADDR))) return;
    const auto targets = targets_of(*c.fn);
    for (const auto &t : targets) {
        if (!std::equal(t.wwpn.begin(), t.wwpn.end(), in.begin())) continue;
        std::vector<uint8_t> b(sizeof(EXT_SCSI_ADDR));
        ByteWriter w(b);
        w.le16(offsetof(EXT_SCSI_ADDR, Target), t.target_id);
        put_response(c, b);
        return;
    }
    c.status = kStatusDevNotFound;
}

// ---- failover -------------------------------------------------------------------------------

void DriverService::failover(Call &c) {
    struct Shape {
        uint32_t request;   // bytes the request must carry (at least)
        uint32_t response;  // bytes the reply needs (0 = caller's length, none required)
        bool addressed;     // the request starts with the driver instance
    };
    Shape s{};
    switch (c.command) {
    case 0xC8: s = {0, 64, false}; break;
    case 0xC9: s = {64, 0, false}; break;
    case 0xCA: s = {40, 0, false}; break;
    case 0xCB: s = {32, 0, true}; break;
    case 0xCC: s = {32, 8, true}; break;
    case 0xCD: s = {32, 0, true}; break;
    case 0xCE: s = {32, 0, true}; break;
    case 0xCF: s = {32, 0, true}; break;
    case 0xD0: s = {32, 0, true}; break;
    case 0xD1: s = {32, 0, true}; break;
    case 0xD2: s = {0, sizeof(EXT_FO_DRIVER_VERSION), false}; break;
    default: c.fail_errno(EINVAL, "unknown command " + std::to_string(c.command)); return;
    }
    std::vector<uint8_t> in;
    if (s.request > 0) {
        if (!fetch_request(c, s.request, in)) return;
        if (s.addressed && *ByteReader(in).le16(0) != c.hba_select) {
            c.fail(kStatusInvalidParam, "failover request addresses driver instance " +
                                            std::to_string(*ByteReader(in).le16(0)) + " on instance " +
                                            std::to_string(c.hba_select));
            return;
        }
    }
    switch (c.command) {
    case kCmdFoGetLunData:
    case kCmdFoGetTargetData: fo_read_list(c, in, c.command == kCmdFoGetTargetData); return;
    case kCmdFoSetLunData:
    case kCmdFoSetTargetData: fo_write_list(c, in, c.command == kCmdFoSetTargetData); return;
    default: break;
    }
    if (s.response > 0 && !need_response(c, s.response)) return;
    std::vector<uint8_t> out;
    if (c.command == 0xD2) {
        out.assign(sizeof(EXT_FO_DRIVER_VERSION), 0);
        const std::string v = std::to_string(host_.driver.major) + "." + std::to_string(host_.driver.minor) + "." +
                              std::to_string(host_.driver.patch);
        ByteWriter(out).text(offsetof(EXT_FO_DRIVER_VERSION, Version), v, 32);
    } else if (c.command == 0xC8 || c.command == 0xCC) {
        out.assign(s.response, 0);
    } else if (c.command == 0xCA) {
        // Empty lists: the driver manages no failover paths on a single-path fabric.
        out.assign(std::min<uint32_t>(c.resp_len, 4096), 0);
    }
    if (!out.empty()) put_response(c, out);
}

// ---- failover LUN and target data ------------------------------------------------------

namespace {

bool fo_selected(const FoEntry &e, uint16_t target, uint16_t lun, bool targets) {
    return (target == kFoSelectAll || e.target_id == target) && (targets || lun == kFoSelectAll || e.lun == lun);
}

// A target table holds one entry per target; a LUN table one per target and LUN.
bool fo_same_key(const FoEntry &a, const FoEntry &b, bool targets) {
    return a.target_id == b.target_id && (targets || a.lun == b.lun);
}

bool fo_before(const FoEntry &a, const FoEntry &b) {
    return a.target_id != b.target_id ? a.target_id < b.target_id : a.lun < b.lun;
}

bool fo_reserved_clear(std::span<const uint8_t> request) {
    if (request[offsetof(EXT_FO_DATA_REQUEST, Reserved1)] != 0) return false;
    const auto rest = request.subspan(offsetof(EXT_FO_DATA_REQUEST, Reserved2), sizeof(EXT_FO_DATA_REQUEST::Reserved2));
    return std::all_of(rest.begin(), rest.end(), [](uint8_t b) { return b == 0; });
}

void fo_put_entry(ByteWriter &w, size_t off, const FoEntry &e) {
    w.le16(off + offsetof(EXT_FO_LUN_ENTRY, TargetId), e.target_id);
    w.le16(off + offsetof(EXT_FO_LUN_ENTRY, Lun), e.lun);
    for (size_t i = 0; i < 8; ++i) {
        w.u8(off + offsetof(EXT_FO_LUN_ENTRY, PortName) + i, e.port_name[i]);
        w.u8(off + offsetof(EXT_FO_LUN_ENTRY, NodeName) + i, e.node_name[i]);
    }
    w.le32(off + offsetof(EXT_FO_LUN_ENTRY, Flags), e.flags);
    w.le16(off + offsetof(EXT_FO_LUN_ENTRY, PathCount), e.path_count);
}

FoEntry fo_get_entry(const ByteReader &r, size_t off) {
    FoEntry e;
    e.target_id = r.le16(off + offsetof(EXT_FO_LUN_ENTRY, TargetId)).value_or(0);
    e.lun = r.le16(off + offsetof(EXT_FO_LUN_ENTRY, Lun)).value_or(0);
    for (size_t i = 0; i < 8; ++i) {
        e.port_name[i] = r.u8(off + offsetof(EXT_FO_LUN_ENTRY, PortName) + i).value_or(0);
        e.node_name[i] = r.u8(off + offsetof(EXT_FO_LUN_ENTRY, NodeName) + i).value_or(0);
    }
    e.flags = r.le32(off + offsetof(EXT_FO_LUN_ENTRY, Flags)).value_or(0);
    e.path_count = r.le16(off + offsetof(EXT_FO_LUN_ENTRY, PathCount)).value_or(0);
    return e;
}

}  // namespace

FoTable &DriverService::fo_table(Call &c, bool targets) {
    FoTable &t = (targets ? fo_targets_ : fo_luns_)[c.adapter->name + "/" + std::to_string(c.fn_index)];
    if (!t.seeded) {
        // The driver starts from what discovery found: every LUN of every
        // target, visible through this port, its only path.
        t.seeded = true;
        for (const auto &target : targets_of(*c.fn)) {
            if (targets) {
                t.live.push_back({target.target_id, 0, target.wwpn, target.wwnn, kFoFlagVisible | kFoFlagPreferred, 1});
                continue;
            }
            for (const LogicalUnit &lu : target.luns)
                t.live.push_back({target.target_id, lu.lun, target.wwpn, target.wwnn, kFoFlagVisible | kFoFlagPreferred, 1});
        }
    }
    return t;
}

void DriverService::fo_read_list(Call &c, std::span<const uint8_t> in, bool targets) {
    const ByteReader r(in);
    const uint8_t from_store = *r.u8(offsetof(EXT_FO_DATA_REQUEST, FromStore));
    if (in.size() != sizeof(EXT_FO_DATA_REQUEST)) {
        c.fail(kStatusInvalidParam, "RequestLen " + std::to_string(in.size()) + " for the 32-byte list request");
        return;
    }
    if (from_store > 1) {
        c.fail(kStatusInvalidParam, "FromStore " + std::to_string(from_store));
        return;
    }
    if (!fo_reserved_clear(in)) {
        c.fail(kStatusInvalidParam, "reserved bytes of the list request set");
        return;
    }
    const uint16_t target = *r.le16(offsetof(EXT_FO_DATA_REQUEST, TargetId));
    const uint16_t lun = *r.le16(offsetof(EXT_FO_DATA_REQUEST, Lun));
    const FoTable &t = fo_table(c, targets);
    std::vector<FoEntry> picked;
    for (const auto &e : from_store != 0 ? t.saved : t.live)
        if (fo_selected(e, target, lun, targets)) picked.push_back(e);

    const size_t need = sizeof(EXT_FO_LIST_HEADER) + picked.size() * sizeof(EXT_FO_LUN_ENTRY);
    c.entry.length = c.resp_len;
    c.reply_resp_len = static_cast<uint32_t>(need);
    // Like the driver: a buffer that cannot take the whole list gets nothing,
    // and ResponseLen says how much is needed, so the caller can ask again.
    if (c.resp_len < need) {
        c.status = kStatusBufferTooSmall;
        return;
    }
    std::vector<uint8_t> out(need, 0);
    ByteWriter w(out);
    w.le32(offsetof(EXT_FO_LIST_HEADER, EntryCount), static_cast<uint32_t>(picked.size()));
    for (size_t i = 0; i < picked.size(); ++i)
        fo_put_entry(w, sizeof(EXT_FO_LIST_HEADER) + i * sizeof(EXT_FO_LUN_ENTRY), picked[i]);
    put_response(c, out);
}

void DriverService::fo_write_list(Call &c, std::span<const uint8_t> in, bool targets) {
    const ByteReader r(in);
    const size_t data = in.size() - sizeof(EXT_FO_DATA_REQUEST);  // the request part was checked
    if (data % sizeof(EXT_FO_LUN_ENTRY) != 0) {
        c.fail(kStatusInvalidParam, std::to_string(data) + " data bytes are not whole 32-byte entries");
        return;
    }
    const size_t count = data / sizeof(EXT_FO_LUN_ENTRY);
    if (count > kFoMaxWriteEntries) {
        c.fail(kStatusInvalidParam, std::to_string(count) + " entries in one write, at most " +
                                        std::to_string(kFoMaxWriteEntries));
        return;
    }
    const uint8_t from_store = *r.u8(offsetof(EXT_FO_DATA_REQUEST, FromStore));
    if (from_store != 0) {
        c.fail(kStatusInvalidParam, "FromStore " + std::to_string(from_store) + " in a write");
        return;
    }
    if (!fo_reserved_clear(in)) {
        c.fail(kStatusInvalidParam, "reserved bytes of the list request set");
        return;
    }
    c.entry.length = c.req_len;
    const uint16_t target = *r.le16(offsetof(EXT_FO_DATA_REQUEST, TargetId));
    const uint16_t lun = *r.le16(offsetof(EXT_FO_DATA_REQUEST, Lun));
    std::vector<FoEntry> entries;
    for (size_t i = 0; i < count; ++i) {
        entries.push_back(fo_get_entry(r, sizeof(EXT_FO_DATA_REQUEST) + i * sizeof(EXT_FO_LUN_ENTRY)));
        // Well-formed, but outside what the request selects: the caller's data
        // is wrong, not the request, so the driver just refuses it.
        if (!fo_selected(entries.back(), target, lun, targets)) {
            c.status = kStatusInvalidParam;
            return;
        }
    }
    // The entries the selector covers are replaced, in the saved configuration
    // and in the live view alike; nothing changes when either would overflow.
    FoTable &t = fo_table(c, targets);
    auto replaced = [&](std::vector<FoEntry> v) {
        std::erase_if(v, [&](const FoEntry &e) { return fo_selected(e, target, lun, targets); });
        for (const auto &e : entries) {
            auto it = std::find_if(v.begin(), v.end(), [&](const FoEntry &o) { return fo_same_key(o, e, targets); });
            if (it != v.end()) *it = e;
            else v.push_back(e);
        }
        std::sort(v.begin(), v.end(), fo_before);
        return v;
    };
    auto saved = replaced(t.saved);
    auto live = replaced(t.live);
    if (saved.size() > kFoMaxTableEntries || live.size() > kFoMaxTableEntries) {
        c.status = kStatusInvalidParam;
        return;
    }
    t.saved = std::move(saved);
    t.live = std::move(live);
}

}  // namespace vxemu

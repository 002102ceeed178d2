// SPDX-License-Identifier: MIT
#include "sysfs_tree.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "driver_service.h"
#include "scsi_generic.h"

namespace vxemu {

namespace {

// The process (thread group) a thread belongs to; the thread itself when
// /proc cannot tell.
unsigned process_of(unsigned tid) {
    std::ifstream in("/proc/" + std::to_string(tid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("Tgid:", 0) == 0) return static_cast<unsigned>(std::strtoul(line.c_str() + 5, nullptr, 10));
    return tid;
}

// Gone, or a zombie whose descriptors are already closed.
bool process_gone(unsigned pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(in, line)) return true;
    const size_t rp = line.rfind(')');
    if (rp == std::string::npos || rp + 2 >= line.size()) return true;
    const char state = line[rp + 2];
    return state == 'Z' || state == 'X';
}

}  // namespace

namespace {

std::string hex16(uint16_t v) {
    char b[16];
    std::snprintf(b, sizeof b, "0x%04x\n", v);
    return b;
}

// Parses a lower- or upper-case hex number that fills the whole text.
bool parse_hex(std::string_view s, uint64_t &out) {
    if (s.empty() || s.size() > 16) return false;
    out = 0;
    for (char ch : s) {
        unsigned d;
        if (ch >= '0' && ch <= '9') d = static_cast<unsigned>(ch - '0');
        else if (ch >= 'a' && ch <= 'f') d = static_cast<unsigned>(ch - 'a' + 10);
        else if (ch >= 'A' && ch <= 'F') d = static_cast<unsigned>(ch - 'A' + 10);
        else return false;
        out = out << 4 | d;
    }
    return true;
}

const char *text_attrs[] = {"serial_num",           "model_name",         "driver_version",
                            "fw_version",           "optrom_bios_version", "optrom_fcode_version",
                            "optrom_efi_version",   "optrom_fw_version",   "sg_tablesize"};

}  // namespace

std::string wwn_text(const std::array<uint8_t, 8> &wwn) {
    std::string s = "0x";
    char b[3];
    for (uint8_t v : wwn) {
        std::snprintf(b, sizeof b, "%02x", v);
        s += b;
    }
    return s + "\n";
}

SysfsTree::SysfsTree(Host &host, TrafficLog &log, FaultInjector &faults) : host_(host), log_(log), faults_(faults) {
    build();
}

uint64_t SysfsTree::add(uint64_t parent, const std::string &name, NodeType type, mode_t mode) {
    if (parent != 0) {
        auto &kids = nodes_[parent - 1].children;
        if (auto it = kids.find(name); it != kids.end()) return it->second;
    }
    SysfsNode n;
    n.ino = nodes_.size() + 1;
    n.parent = parent == 0 ? n.ino : parent;
    n.name = name;
    n.type = type;
    n.mode = mode;
    nodes_.push_back(std::move(n));
    const uint64_t ino = nodes_.size();
    if (parent != 0) nodes_[parent - 1].children.emplace(name, ino);
    return ino;
}

uint64_t SysfsTree::add_dir_path(const std::string &path) {
    uint64_t cur = kRootIno;
    size_t pos = 0;
    while (pos < path.size()) {
        size_t slash = path.find('/', pos);
        if (slash == std::string::npos) slash = path.size();
        if (slash > pos) cur = add(cur, path.substr(pos, slash - pos), NodeType::dir, 0755);
        pos = slash + 1;
    }
    return cur;
}

uint64_t SysfsTree::add_file(uint64_t dir, const std::string &name, mode_t mode, AttrKind kind, int adapter, int fn,
                             std::string text) {
    const uint64_t ino = add(dir, name, NodeType::file, mode);
    SysfsNode &n = nodes_[ino - 1];
    n.kind = kind;
    n.attr = name;
    n.adapter = adapter;
    n.function = fn;
    n.fixed_text = std::move(text);
    if (adapter >= 0) {
        const Adapter &a = host_.adapters[static_cast<size_t>(adapter)];
        switch (kind) {
        case AttrKind::optrom: n.size = a.flash.size(); break;
        case AttrKind::nvram: n.size = a.nvram_size(); break;
        case AttrKind::vpd: n.size = a.vpd_size(); break;
        case AttrKind::pci_config: n.size = 256; break;
        default: break;
        }
    }
    return ino;
}

void SysfsTree::add_link(const std::string &path, const std::string &target) {
    const size_t slash = path.rfind('/');
    const uint64_t dir = add_dir_path(path.substr(0, slash));
    const uint64_t ino = add(dir, path.substr(slash + 1), NodeType::link, 0777);
    nodes_[ino - 1].target = target;
}

void SysfsTree::build() {
    add(0, "", NodeType::dir, 0755);  // root
    const std::string &drv = host_.driver.name;
    add_dir_path("bus/pci/devices");
    add_dir_path("bus/pci/drivers/" + drv);
    add_dir_path("class/scsi_host");
    add_dir_path("class/fc_host");

    char devtext[32];
    std::snprintf(devtext, sizeof devtext, "%u:%u\n", host_.node.major, host_.node.minor);
    std::vector<std::string> node_names;
    if (host_.registers_char_device()) node_names.push_back(drv);
    const bool any_old = std::any_of(host_.adapters.begin(), host_.adapters.end(),
                                     [](const Adapter &a) { return a.transport == Transport::ioctl_old; });
    // The older driver generation registers its own class device.
    if (any_old && drv != "vxa2x00") node_names.push_back("vxa2x00");
    for (const std::string &name : node_names) {
        const uint64_t vdir = add_dir_path("devices/virtual/" + name + "/" + name);
        add_file(vdir, "dev", 0444, AttrKind::text, -1, -1, devtext);
        add_link("devices/virtual/" + name + "/" + name + "/subsystem", "../../../../class/" + name);
        add_link("class/" + name + "/" + name, "../../devices/virtual/" + name + "/" + name);
    }

    for (size_t ai = 0; ai < host_.adapters.size(); ++ai) {
        const Adapter &a = host_.adapters[ai];
        const bool sysfs = a.transport == Transport::sysfs;
        for (size_t fi = 0; fi < a.functions.size(); ++fi) {
            const PortFunction &fn = a.functions[fi];
            const int A = static_cast<int>(ai), F = static_cast<int>(fi);
            char root[32];
            std::snprintf(root, sizeof root, "pci%04x:%02x", fn.domain(), fn.bus());
            const std::string busid = fn.pci_address;
            const std::string devpath = std::string("devices/") + root + "/" + busid;
            const uint64_t dev = add_dir_path(devpath);
            add_file(dev, "vendor", 0444, AttrKind::text, A, F, hex16(fn.vendor_id));
            add_file(dev, "device", 0444, AttrKind::text, A, F, hex16(fn.device_id));
            add_file(dev, "subsystem_vendor", 0444, AttrKind::text, A, F, hex16(fn.ss_vendor_id));
            add_file(dev, "subsystem_device", 0444, AttrKind::text, A, F, hex16(fn.ss_device_id));
            add_file(dev, "class", 0444, AttrKind::text, A, F, "0x0c0400\n");
            add_file(dev, "irq", 0444, AttrKind::text, A, F, std::to_string(32 + fn.host_no) + "\n");
            add_file(dev, "config", 0644, AttrKind::pci_config, A, F);
            add_link(devpath + "/subsystem", "../../../bus/pci");
            add_link(devpath + "/bus", "../../../bus/pci");
            add_link("bus/pci/devices/" + busid, "../../../" + devpath);
            if (sysfs) {
                add_link(devpath + "/driver", "../../../bus/pci/drivers/" + drv);
                add_link("bus/pci/drivers/" + drv + "/" + busid, "../../../../" + devpath);
            }

            const std::string host = "host" + std::to_string(fn.host_no);
            const std::string hostpath = devpath + "/" + host;
            const uint64_t hdir = add_dir_path(hostpath);
            const std::string shpath = hostpath + "/scsi_host/" + host;
            const uint64_t sh = add_dir_path(shpath);
            for (const char *t : text_attrs) {
                add_file(hdir, t, 0444, AttrKind::text, A, F);
                add_file(sh, t, 0444, AttrKind::text, A, F);
            }
            if (sysfs) {
                add_file(hdir, "optrom_ctl", 0200, AttrKind::optrom_ctl, A, F);
                add_file(hdir, "optrom", 0600, AttrKind::optrom, A, F);
                add_file(hdir, "nvram", 0600, AttrKind::nvram, A, F);
                add_file(hdir, "vpd", 0600, AttrKind::vpd, A, F);
            }
            add_link(shpath + "/device", "../../../" + host);
            add_link(shpath + "/subsystem", "../../../../../../class/scsi_host");
            add_link("class/scsi_host/" + host, "../../" + shpath);

            const std::string fcpath = hostpath + "/fc_host/" + host;
            const uint64_t fc = add_dir_path(fcpath);
            for (const char *t : {"node_name", "port_name", "port_id", "speed", "state", "link_state", "link_state2"})
                add_file(fc, t, 0444, AttrKind::text, A, F);
            add_link(fcpath + "/device", "../../../" + host);
            add_link(fcpath + "/subsystem", "../../../../../../class/fc_host");
            add_link("class/fc_host/" + host, "../../" + fcpath);
        }
    }
    add_scsi_generic();
}

// Below each sysfs host, a remote port and target per target the port sees,
// a directory per LUN with its scsi_device and scsi_generic entries, and the
// class links that lead there: fc_transport/targetH:0:T (the target's names),
// scsi_device/H:0:T:L and scsi_generic/sgN.
void SysfsTree::add_scsi_generic() {
    for (const ScsiGenericNode &sg : scsi_generic_nodes(host_)) {
        const PortFunction &fn = host_.adapters[sg.adapter].functions[sg.function];
        char root[32];
        std::snprintf(root, sizeof root, "pci%04x:%02x", fn.domain(), fn.bus());
        const std::string h = std::to_string(sg.host_no), t = std::to_string(sg.target_id);
        const std::string hostpath = std::string("devices/") + root + "/" + fn.pci_address + "/host" + h;
        const std::string tname = "target" + h + ":0:" + t;
        const std::string tpath = hostpath + "/rport-" + h + ":0-" + t + "/" + tname;
        const std::string fct = tpath + "/fc_transport/" + tname;
        if (!walk(fct)) {
            const EmulatedTarget *target = nullptr;
            const auto targets = DriverService::targets_of(fn);
            for (const EmulatedTarget &cand : targets)
                if (cand.target_id == sg.target_id) target = &cand;
            if (target == nullptr) continue;
            char id[16];
            std::snprintf(id, sizeof id, "0x%06x\n", target->port_id & 0xFFFFFF);
            const uint64_t dir = add_dir_path(fct);
            add_file(dir, "port_name", 0444, AttrKind::text, -1, -1, wwn_text(target->wwpn));
            add_file(dir, "node_name", 0444, AttrKind::text, -1, -1, wwn_text(target->wwnn));
            add_file(dir, "port_id", 0444, AttrKind::text, -1, -1, id);
            add_link(fct + "/device", "../../../" + tname);
            add_link("class/fc_transport/" + tname, "../../" + fct);
        }
        const std::string lname = h + ":0:" + t + ":" + std::to_string(sg.lun);
        const std::string lpath = tpath + "/" + lname;
        const std::string sdev = lpath + "/scsi_device/" + lname;
        add_dir_path(sdev);
        add_link(sdev + "/device", "../../../" + lname);
        add_link("class/scsi_device/" + lname, "../../" + sdev);
        const std::string gpath = lpath + "/scsi_generic/" + sg.name();
        char devtext[32];
        std::snprintf(devtext, sizeof devtext, "%u:%u\n", major(scsi_generic_dev()), minor(scsi_generic_dev()));
        add_file(add_dir_path(gpath), "dev", 0444, AttrKind::text, -1, -1, devtext);
        add_link(gpath + "/device", "../../../" + lname);
        add_link("class/scsi_generic/" + sg.name(), "../../" + gpath);
    }
}

const SysfsNode *SysfsTree::node(uint64_t ino) const {
    if (ino == 0 || ino > nodes_.size()) return nullptr;
    return &nodes_[ino - 1];
}

std::optional<uint64_t> SysfsTree::lookup(uint64_t parent, std::string_view name) const {
    const SysfsNode *p = node(parent);
    if (p == nullptr || p->type != NodeType::dir) return std::nullopt;
    if (auto it = p->children.find(std::string(name)); it != p->children.end()) return it->second;
    return std::nullopt;
}

std::optional<uint64_t> SysfsTree::walk(std::string_view path) const {
    uint64_t cur = kRootIno;
    size_t pos = 0;
    while (pos < path.size()) {
        size_t slash = path.find('/', pos);
        if (slash == std::string_view::npos) slash = path.size();
        if (slash > pos) {
            auto next = lookup(cur, path.substr(pos, slash - pos));
            if (!next) return std::nullopt;
            cur = *next;
        }
        pos = slash + 1;
    }
    return cur;
}

std::string SysfsTree::text_of(const SysfsNode &n) const {
    if (n.adapter < 0 || !n.fixed_text.empty()) return n.fixed_text;
    const Adapter &a = host_.adapters[static_cast<size_t>(n.adapter)];
    const PortFunction &fn = a.functions[static_cast<size_t>(n.function)];
    const std::string &at = n.attr;
    if (at == "serial_num") return fn.serial + "\n";
    if (at == "model_name") return (fn.model.empty() ? a.model : fn.model) + "\n";
    if (at == "driver_version") return a.driver_version + "\n";
    if (at == "fw_version") return a.firmware_version + "\n";
    if (at == "optrom_bios_version") return a.versions.bios.text() + "\n";
    if (at == "optrom_fcode_version") return a.versions.fcode.text() + "\n";
    if (at == "optrom_efi_version") return a.versions.efi.text() + "\n";
    if (at == "optrom_fw_version") return a.versions.firmware.text() + "\n";
    if (at == "sg_tablesize") return "128\n";
    if (at == "node_name") return wwn_text(fn.wwnn);
    if (at == "port_name") return wwn_text(fn.wwpn);
    if (at == "port_id") {
        char b[16];
        std::snprintf(b, sizeof b, "0x%06x\n", fn.port_id & 0xFFFFFF);
        return b;
    }
    if (at == "speed") return fn.speed + "\n";
    if (at == "state") return fn.link_state + "\n";
    if (at == "link_state") return std::to_string(fn.port_state) + "\n";
    if (at == "link_state2") return std::to_string(fn.connection_mode) + "\n";
    return {};
}

void SysfsTree::log_attr(const SysfsNode &n, const char *op, uint64_t off, uint64_t len, int err, TrafficEntry e) {
    e.kind = "attr";
    e.attribute = n.attr;
    e.op = op;
    if (n.adapter >= 0) {
        e.adapter = host_.adapters[static_cast<size_t>(n.adapter)].name;
        e.function = static_cast<unsigned>(n.function);
    }
    // A control command reports the flash window it opened, not its own bytes.
    if (!e.offset) e.offset = off;
    if (!e.length) e.length = len;
    e.status = -static_cast<int64_t>(err);
    log_.record(e);
}

int SysfsTree::open(uint64_t ino, int flags, uint64_t &fh) {
    const SysfsNode *n = node(ino);
    if (n == nullptr) return ENOENT;
    if (n->type == NodeType::dir) return EISDIR;
    const int acc = flags & O_ACCMODE;
    // sysfs checks the mode bits even for root: a store-only file cannot be read.
    if ((acc == O_RDONLY || acc == O_RDWR) && (n->mode & 0444) == 0) return EACCES;
    if ((acc == O_WRONLY || acc == O_RDWR) && (n->mode & 0222) == 0) return EACCES;
    if (n->adapter >= 0) {
        if (auto f = faults_.on_attr(host_.adapters[static_cast<size_t>(n->adapter)].name, n->function, n->attr,
                                     FaultOp::open, {})) {
            const int err = f->kind == FaultKind::error ? f->err : f->kind == FaultKind::busy ? EBUSY : EIO;
            TrafficEntry e;
            e.fault = FaultInjector::describe(*f);
            log_attr(*n, "open", 0, 0, err, e);
            return err;
        }
    }
    fh = next_fh_++;
    open_[fh] = OpenFile{ino, 0, std::nullopt};
    return 0;
}

void SysfsTree::release(uint64_t fh) { open_.erase(fh); }

int SysfsTree::read(uint64_t fh, uint64_t off, size_t size, std::vector<uint8_t> &out) {
    out.clear();
    auto it = open_.find(fh);
    if (it == open_.end()) return EBADF;
    OpenFile &of = it->second;
    const SysfsNode &n = nodes_[of.ino - 1];
    TrafficEntry e;
    if (n.adapter >= 0 && !of.fault)
        of.fault = faults_.on_attr(host_.adapters[static_cast<size_t>(n.adapter)].name, n.function, n.attr,
                                   FaultOp::read, {});
    if (of.fault) {
        e.fault = FaultInjector::describe(*of.fault);
        if (of.fault->kind == FaultKind::error || of.fault->kind == FaultKind::status ||
            of.fault->kind == FaultKind::busy) {
            const int err = of.fault->kind == FaultKind::error ? of.fault->err
                            : of.fault->kind == FaultKind::busy ? EBUSY
                                                                 : EIO;
            log_attr(n, "read", off, 0, err, e);
            return err;
        }
    }

    std::vector<uint8_t> content;
    std::span<const uint8_t> src;
    switch (n.kind) {
    case AttrKind::text: {
        const std::string t = text_of(n);
        content.assign(t.begin(), t.end());
        src = content;
        break;
    }
    case AttrKind::pci_config: {
        const PortFunction &fn = host_.adapters[static_cast<size_t>(n.adapter)].functions[static_cast<size_t>(n.function)];
        content.assign(256, 0);
        auto put16 = [&](size_t o, uint16_t v) {
            content[o] = static_cast<uint8_t>(v);
            content[o + 1] = static_cast<uint8_t>(v >> 8);
        };
        put16(0x00, fn.vendor_id);
        put16(0x02, fn.device_id);
        put16(0x04, 0x0147);  // memory, bus master, parity, SERR
        put16(0x06, 0x0010);  // capabilities list
        content[0x08] = 0x02;  // revision
        content[0x0A] = 0x04;  // Fibre Channel
        content[0x0B] = 0x0C;  // serial bus controller
        content[0x0E] = fn.function() == 0 ? 0x80 : 0x00;
        put16(0x2C, fn.ss_vendor_id);
        put16(0x2E, fn.ss_device_id);
        content[0x3C] = static_cast<uint8_t>(32 + fn.host_no);
        content[0x3D] = 0x01;
        src = content;
        break;
    }
    case AttrKind::optrom: {
        const auto key = std::make_pair(n.adapter, n.function);
        auto s = sessions_.find(key);
        if (s == sessions_.end() || s->second.mode != OptromSession::Mode::reading) {
            e.violation = "optrom read without a read started on optrom_ctl";
            log_attr(n, "read", off, 0, 0, e);
            return 0;
        }
        const Adapter &a = host_.adapters[static_cast<size_t>(n.adapter)];
        src = a.flash_range(s->second.offset, s->second.size);
        break;
    }
    case AttrKind::nvram:
    case AttrKind::vpd: {
        const Adapter &a = host_.adapters[static_cast<size_t>(n.adapter)];
        const PortFunction &fn = a.functions[static_cast<size_t>(n.function)];
        content = n.kind == AttrKind::nvram ? fn.nvram : fn.vpd;
        content.resize(n.kind == AttrKind::nvram ? a.nvram_size() : a.vpd_size(), n.kind == AttrKind::nvram ? 0 : 0xFF);
        src = content;
        break;
    }
    case AttrKind::optrom_ctl: return EACCES;  // store-only
    }

    if (off < src.size()) {
        size_t n_bytes = std::min<uint64_t>(size, src.size() - off);
        if (of.fault && of.fault->kind == FaultKind::short_xfer)
            n_bytes = of.moved >= of.fault->bytes ? 0 : std::min<uint64_t>(n_bytes, of.fault->bytes - of.moved);
        out.assign(src.begin() + static_cast<std::ptrdiff_t>(off),
                   src.begin() + static_cast<std::ptrdiff_t>(off + n_bytes));
        if (std::string note = faults_.on_read(of.fault, out); !note.empty()) e.fault = note;
    }
    of.moved += out.size();
    log_attr(n, "read", off, out.size(), 0, e);
    return 0;
}

int SysfsTree::optrom_ctl(const SysfsNode &n, std::string_view cmd, TrafficEntry &e, unsigned owner) {
    const Adapter &a = host_.adapters[static_cast<size_t>(n.adapter)];
    OptromSession &s = sessions_[std::make_pair(n.adapter, n.function)];
    const uint64_t flash = a.flash.size();
    auto start = [&](OptromSession::Mode mode, uint64_t off, uint64_t size) {
        // Every access ends with "0" before the next one starts, under the flash
        // lock: a start on top of an open access means a caller skipped its "0"
        // or two callers interleave on one control file. The new access still
        // replaces the old one, as the driver's single staging buffer would.
        // An access whose process has gone (killed between its start and its
        // "0") ended with that process, as the driver ends it when the last
        // descriptor closes: logged once, against that process, and no fault
        // of the caller now.
        if (s.mode != OptromSession::Mode::idle && s.owner != 0 && process_gone(s.owner)) {
            TrafficEntry left;
            left.pid = s.owner;
            left.offset = s.offset;
            left.length = s.size;
            log_attr(n, "abandoned", s.offset, s.size, 0, left);
            s = OptromSession{};
        }
        if (s.mode != OptromSession::Mode::idle)
            e.violation = "optrom_ctl " + std::string(cmd) + " while an earlier access is still open (no closing 0)";
        if (off > flash || size > flash - off || size == 0) {
            e.violation = "optrom window past the end of the flash";
            return EINVAL;
        }
        s = OptromSession{};
        s.owner = owner;
        s.mode = mode;
        s.offset = off;
        s.size = size;
        if (mode == OptromSession::Mode::writing) {
            // Staging starts from the flash contents: bytes the caller does not
            // write are committed unchanged.
            const auto cur = a.flash_range(off, size);
            s.staging.assign(cur.begin(), cur.end());
        }
        e.region = 0xFF;
        e.offset = off;
        e.length = size;
        return 0;
    };
    if (cmd == "0") {
        s = OptromSession{};
        return 0;
    }
    if (cmd == "1") return start(OptromSession::Mode::reading, 0, flash);
    if (cmd == "2") return start(OptromSession::Mode::writing, 0, flash);
    if (cmd == "3") {
        if (s.mode != OptromSession::Mode::writing) {
            e.violation = "optrom_ctl 3 without a write started";
            return EINVAL;
        }
        e.offset = s.offset;
        e.length = s.size;
        return -1;  // committed by the caller, which knows about faults
    }
    if (cmd == "4") {
        // Only a driver without the offset/size forms takes the old command 4.
        return a.chunked ? EINVAL : 0;
    }
    if (cmd.size() > 2 && (cmd[0] == '1' || cmd[0] == '2') && cmd[1] == ':') {
        if (!a.chunked) return EINVAL;  // the library probes for this; not a fault of the caller
        const std::string_view rest = cmd.substr(2);
        const size_t colon = rest.find(':');
        uint64_t off = 0, size = 0;
        if (colon == std::string_view::npos || !parse_hex(rest.substr(0, colon), off) ||
            !parse_hex(rest.substr(colon + 1), size)) {
            e.violation = "malformed optrom_ctl command";
            return EINVAL;
        }
        return start(cmd[0] == '1' ? OptromSession::Mode::reading : OptromSession::Mode::writing, off, size);
    }
    e.violation = "unknown optrom_ctl command";
    return EINVAL;
}

int SysfsTree::write(uint64_t fh, uint64_t off, std::span<const uint8_t> data, size_t &written, unsigned caller) {
    written = 0;
    auto it = open_.find(fh);
    if (it == open_.end()) return EBADF;
    OpenFile &of = it->second;
    const SysfsNode &n = nodes_[of.ino - 1];
    TrafficEntry e;
    if (n.adapter < 0 || n.kind == AttrKind::text || n.kind == AttrKind::pci_config) {
        e.violation = "write to a read-only attribute";
        log_attr(n, "write", off, 0, EACCES, e);
        return EACCES;
    }
    Adapter &a = host_.adapters[static_cast<size_t>(n.adapter)];
    std::string cmd;
    if (n.kind == AttrKind::optrom_ctl) {
        // The driver reads the command up to the first NUL and ignores a trailing newline.
        const auto nul = std::find(data.begin(), data.end(), uint8_t{0});
        cmd.assign(data.begin(), nul);
        if (!cmd.empty() && cmd.back() == '\n') cmd.pop_back();
        e.text = cmd;
    }
    std::optional<Fault> fault = of.fault;
    if (!fault) {
        fault = faults_.on_attr(a.name, n.function, n.attr, FaultOp::write, cmd);
        if (fault && n.kind != AttrKind::optrom_ctl) of.fault = fault;
    }
    if (fault) {
        e.fault = FaultInjector::describe(*fault);
        if (fault->kind == FaultKind::error || fault->kind == FaultKind::status || fault->kind == FaultKind::busy) {
            const int err = fault->kind == FaultKind::error ? fault->err : fault->kind == FaultKind::busy ? EBUSY : EIO;
            log_attr(n, "write", off, 0, err, e);
            return err;
        }
    }

    int err = 0;
    switch (n.kind) {
    case AttrKind::optrom_ctl: {
        err = optrom_ctl(n, cmd, e, caller != 0 ? process_of(caller) : 0);
        if (err == -1) {  // commit
            OptromSession &s = sessions_[std::make_pair(n.adapter, n.function)];
            // A short commit is one that dies midway.
            std::optional<Fault> f = fault;
            if (f && f->kind == FaultKind::short_xfer) f->kind = FaultKind::stop_after;
            const FaultInjector::Store put = store(f, s.staging, e);
            err = 0;
            if (put.kept > 0 && !a.write_flash(s.offset, std::span<const uint8_t>(s.staging).first(put.kept)).ok()) err = EIO;
            if (put.failed) err = EIO;
            s.mode = OptromSession::Mode::idle;
        }
        if (err == 0) written = data.size();
        break;
    }
    case AttrKind::optrom: {
        auto s = sessions_.find(std::make_pair(n.adapter, n.function));
        if (s == sessions_.end() || s->second.mode != OptromSession::Mode::writing) {
            e.violation = "optrom write without a write started on optrom_ctl";
            err = EINVAL;
            break;
        }
        OptromSession &ss = s->second;
        if (off >= ss.size) {
            e.violation = "optrom write past the staged window";
            err = EFBIG;
            break;
        }
        size_t n_bytes = std::min<uint64_t>(data.size(), ss.size - off);
        if (fault && (fault->kind == FaultKind::stop_after || fault->kind == FaultKind::short_xfer)) {
            if (of.moved >= fault->bytes) {
                err = EIO;
                break;
            }
            n_bytes = std::min<uint64_t>(n_bytes, fault->bytes - of.moved);
        }
        std::copy_n(data.begin(), n_bytes, ss.staging.begin() + static_cast<std::ptrdiff_t>(off));
        written = n_bytes;
        break;
    }
    case AttrKind::nvram:
    case AttrKind::vpd: {
        const bool nv = n.kind == AttrKind::nvram;
        const size_t block = nv ? a.nvram_size() : a.vpd_size();
        if (off >= block) {
            err = EFBIG;
            break;
        }
        size_t n_bytes = std::min<uint64_t>(data.size(), block - off);
        if (fault && (fault->kind == FaultKind::stop_after || fault->kind == FaultKind::short_xfer)) {
            if (of.moved >= fault->bytes) {
                err = EIO;
                break;
            }
            n_bytes = std::min<uint64_t>(n_bytes, fault->bytes - of.moved);
        }
        const PortFunction &fn = a.functions[static_cast<size_t>(n.function)];
        std::vector<uint8_t> cur = nv ? fn.nvram : fn.vpd;
        cur.resize(block, nv ? 0 : 0xFF);
        std::vector<uint8_t> piece(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(n_bytes));
        // stop_after and short were applied to the bytes moved above.
        std::optional<Fault> f = fault;
        if (f && f->kind != FaultKind::lie && f->kind != FaultKind::partial) f.reset();
        const FaultInjector::Store put = store(f, piece, e);
        std::copy_n(piece.begin(), put.kept, cur.begin() + static_cast<std::ptrdiff_t>(off));
        Status st;
        if (put.kept > 0)
            st = nv ? a.write_nvram(static_cast<size_t>(n.function), cur) : a.write_vpd(static_cast<size_t>(n.function), cur);
        if (!st.ok() || put.failed) err = EIO;
        else written = n_bytes;
        break;
    }
    default: err = EACCES;
    }
    of.moved += written;
    log_attr(n, "write", off, written, err, e);
    return err;
}

FaultInjector::Store SysfsTree::store(const std::optional<Fault> &f, std::span<uint8_t> data, TrafficEntry &e) {
    FaultInjector::Store st = faults_.on_store(f, data);
    if (!st.note.empty()) e.fault = e.fault.empty() ? st.note : e.fault + "; " + st.note;
    return st;
}

}  // namespace vxemu

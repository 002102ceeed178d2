// SPDX-License-Identifier: MIT
#include "host_model.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "chipdata.h"
#include "state_files.h"

namespace vxemu {

extern const char *const kBuiltinHostJson;  // generated from examples/lab/host.json

namespace {

using json = nlohmann::json;
namespace fs = std::filesystem;

constexpr size_t kBlockArea = 0x120000;  // VPD/NVRAM of the functions on FCX160/FCX180
constexpr size_t kBootCopy = 0x40000;    // second copy of the boot code on FCX160/FCX180

std::string hex4(uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%04X", v);
    return buf;
}

// The firmware an adapter runs after power-on: the image in its flash, or the
// boot ROM's fallback when the flash holds none.
std::string running_firmware_text(const Adapter &a) {
    return a.versions.firmware.present ? a.versions.firmware.text() : "1.00.00";
}

// Bounds of the files a host description names: a flash image is at most the
// chip's flash; NVRAM and VPD blocks are checked for their exact size later.
constexpr size_t kMaxBlockFile = 0x10000;
constexpr size_t kMaxHostFile = 64u << 20;

bool safe_name(std::string_view n) {
    if (n.empty() || n == "." || n == ".." || n.size() > 64) return false;
    return std::all_of(n.begin(), n.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
    });
}

std::optional<std::array<unsigned, 4>> parse_pci(std::string_view a) {
    // dddd:bb:dd.f
    if (a.size() != 12 || a[4] != ':' || a[7] != ':' || a[10] != '.') return std::nullopt;
    auto hex = [&](size_t off, size_t n) { return parse_number("0x" + std::string(a.substr(off, n))); };
    auto d = hex(0, 4), b = hex(5, 2), dev = hex(8, 2), f = hex(11, 1);
    if (!d || !b || !dev || !f || *dev > 0x1F || *f > 7) return std::nullopt;
    return std::array<unsigned, 4>{static_cast<unsigned>(*d), static_cast<unsigned>(*b), static_cast<unsigned>(*dev),
                                   static_cast<unsigned>(*f)};
}

int errno_from_name(std::string_view n) {
    static constexpr std::pair<std::string_view, int> kNames[] = {
        {"EPERM", 1},  {"ENOENT", 2}, {"EIO", 5},     {"ENXIO", 6},   {"EBADF", 9},   {"EAGAIN", 11}, {"ENOMEM", 12},
        {"EACCES", 13}, {"EFAULT", 14}, {"EBUSY", 16}, {"ENODEV", 19}, {"EINVAL", 22}, {"ENOSPC", 28}, {"ENOTTY", 25},
        {"ENOSYS", 38}, {"ETIMEDOUT", 110}};
    for (const auto &[name, value] : kNames)
        if (name == n) return value;
    return 0;
}

// Reads the host description; remembers the first error with its JSON path.
class Parser {
public:
    Parser(fs::path origin, fs::path base, HostFiles files)
        : origin_(std::move(origin)), base_(std::move(base)), files_(files) {}

    [[nodiscard]] bool failed() const { return !err_.empty(); }
    [[nodiscard]] const std::string &error() const { return err_; }
    void fail(const std::string &path, const std::string &what) {
        if (err_.empty()) err_ = origin_.string() + ": " + path + ": " + what;
    }

    bool object(const json &j, const std::string &path, std::initializer_list<std::string_view> keys) {
        if (!j.is_object()) {
            fail(path, "expected an object");
            return false;
        }
        for (const auto &[k, v] : j.items()) {
            (void)v;
            if (std::find(keys.begin(), keys.end(), k) == keys.end()) {
                fail(path + "." + k, "unknown field");
                return false;
            }
        }
        return true;
    }

    std::optional<uint64_t> number(const json &j, const std::string &path, uint64_t max) {
        std::optional<uint64_t> v;
        if (j.is_number_unsigned()) v = j.get<uint64_t>();
        else if (j.is_number_integer() && j.get<int64_t>() >= 0) v = static_cast<uint64_t>(j.get<int64_t>());
        else if (j.is_string()) v = parse_number(j.get_ref<const std::string &>());
        if (!v) {
            fail(path, "expected a number (decimal or 0x hexadecimal)");
            return std::nullopt;
        }
        if (*v > max) {
            fail(path, "value " + std::to_string(*v) + " is above " + std::to_string(max));
            return std::nullopt;
        }
        return v;
    }

    std::optional<std::string> string(const json &j, const std::string &path, size_t max_len = 4096) {
        if (!j.is_string()) {
            fail(path, "expected a string");
            return std::nullopt;
        }
        const auto &s = j.get_ref<const std::string &>();
        if (s.size() > max_len) {
            fail(path, "longer than " + std::to_string(max_len) + " characters");
            return std::nullopt;
        }
        return s;
    }

    std::optional<bool> boolean(const json &j, const std::string &path) {
        if (!j.is_boolean()) {
            fail(path, "expected true or false");
            return std::nullopt;
        }
        return j.get<bool>();
    }

    template <class T>
    void opt_number(const json &obj, const char *key, const std::string &path, T &out, uint64_t max) {
        if (auto it = obj.find(key); it != obj.end())
            if (auto v = number(*it, path + "." + key, max)) out = static_cast<T>(*v);
    }
    void opt_string(const json &obj, const char *key, const std::string &path, std::string &out, size_t max_len = 4096) {
        if (auto it = obj.find(key); it != obj.end())
            if (auto v = string(*it, path + "." + key, max_len)) out = *v;
    }
    void opt_bool(const json &obj, const char *key, const std::string &path, bool &out) {
        if (auto it = obj.find(key); it != obj.end())
            if (auto v = boolean(*it, path + "." + key)) out = *v;
    }

    std::optional<Transport> transport(const json &j, const std::string &path) {
        auto s = string(j, path);
        if (!s) return std::nullopt;
        if (*s == "sysfs") return Transport::sysfs;
        if (*s == "ioctl") return Transport::ioctl;
        if (*s == "ioctl_old") return Transport::ioctl_old;
        fail(path, "expected sysfs, ioctl or ioctl_old");
        return std::nullopt;
    }

    std::optional<std::pair<uint32_t, uint32_t>> devnum(const json &j, const std::string &path) {
        auto s = string(j, path);
        if (!s) return std::nullopt;
        const auto colon = s->find(':');
        if (colon != std::string::npos) {
            auto ma = parse_number(s->substr(0, colon)), mi = parse_number(s->substr(colon + 1));
            if (ma && mi && *ma <= 0xFFF && *mi <= 0xFFFFF) return std::pair<uint32_t, uint32_t>(*ma, *mi);
        }
        fail(path, "expected \"major:minor\"");
        return std::nullopt;
    }

    std::optional<std::vector<uint8_t>> file(const json &j, const std::string &path, size_t max) {
        auto s = string(j, path);
        if (!s) return std::nullopt;
        fs::path p(*s);
        if (p.is_relative() && !base_.empty()) p = base_ / p;
        auto bytes = read_bounded(p, max);
        if (!bytes) {
            // The state replaces what the file would have given.
            if (files_ == HostFiles::from_state) return std::nullopt;
            fail(path, bytes.error().message);
            return std::nullopt;
        }
        return std::move(bytes).value();
    }

    // A version text with `parts` parts; JSON null or "" means "not carried".
    std::optional<std::vector<uint8_t>> version(const json &j, const std::string &path, size_t parts, bool &absent) {
        absent = j.is_null() || (j.is_string() && j.get_ref<const std::string &>().empty());
        if (absent) return std::nullopt;
        auto s = string(j, path, 32);
        if (!s) return std::nullopt;
        auto v = parse_version(*s, parts);
        if (!v) fail(path, "expected a version of " + std::to_string(parts) + " dotted numbers 0..255");
        return v;
    }

    void driver(const json &j, Driver &d);
    void instances(const json &j, InstanceBehaviour &ib);
    void node(const json &j, NodeBehaviour &nb);
    void fault(const json &j, const std::string &path, Fault &f);
    void adapter(const json &j, const std::string &path, size_t index, const Host &host, Adapter &a);

private:
    void function(const json &j, const std::string &path, const ChipInfo &chip, size_t adapter_index, size_t fn_index,
                  const Adapter &a, PortFunction &pf, std::optional<std::vector<uint8_t>> &nvram_file,
                  std::optional<std::vector<uint8_t>> &vpd_file, VpdSpec &vpd);
    void layout(const json &j, const std::string &path, const ChipInfo &chip, FlashLayout &l);
    void targets(const json &j, const std::string &path, PortFunction &pf);
    std::optional<std::array<uint8_t, 8>> wwn(const json &obj, const char *key, const std::string &path);
    void flash(const json &j, const std::string &path, const ChipInfo &chip, Adapter &a);

    fs::path origin_;
    fs::path base_;
    HostFiles files_;
    std::string err_;
};

void Parser::driver(const json &j, Driver &d) {
    const std::string p = "driver";
    if (!object(j, p, {"name", "version", "version_text", "flags", "attributes", "transport"})) return;
    opt_string(j, "name", p, d.name, 32);
    if (!safe_name(d.name)) fail(p + ".name", "not a usable driver name");
    if (auto it = j.find("version"); it != j.end()) {
        if (auto s = string(*it, p + ".version", 32)) {
            auto v = parse_version(*s, 4);
            if (!v) {
                v = parse_version(*s, 3);
                if (v) v->push_back(0);
            }
            if (!v) fail(p + ".version", "expected Major.Minor.Patch[.Beta]");
            else d.major = (*v)[0], d.minor = (*v)[1], d.patch = (*v)[2], d.beta = (*v)[3];
        }
    }
    opt_string(j, "version_text", p, d.version_text, 31);
    opt_number(j, "flags", p, d.flags, 0xFFFFFFFF);
    opt_number(j, "attributes", p, d.attributes, 0xFFFFFFFF);
    if (auto it = j.find("transport"); it != j.end())
        if (auto t = transport(*it, p + ".transport")) d.transport = *t;
}

void Parser::instances(const json &j, InstanceBehaviour &ib) {
    const std::string p = "instances";
    if (!object(j, p, {"count", "refuse_bind"})) return;
    if (auto it = j.find("count"); it != j.end())
        if (auto v = number(*it, p + ".count", 0xFFFF)) ib.count = static_cast<uint16_t>(*v);
    if (auto it = j.find("refuse_bind"); it != j.end()) {
        if (!it->is_array()) return fail(p + ".refuse_bind", "expected an array of instance numbers");
        for (size_t i = 0; i < it->size(); ++i)
            if (auto v = number((*it)[i], p + ".refuse_bind[" + std::to_string(i) + "]", 0xFFFF))
                ib.refuse_bind.push_back(static_cast<uint16_t>(*v));
    }
}

void Parser::node(const json &j, NodeBehaviour &nb) {
    const std::string p = "node";
    if (!object(j, p, {"dev", "stale", "open_fails", "open_errno"})) return;
    if (auto it = j.find("dev"); it != j.end())
        if (auto d = devnum(*it, p + ".dev")) nb.major = d->first, nb.minor = d->second;
    if (auto it = j.find("stale"); it != j.end())
        if (auto d = devnum(*it, p + ".stale")) nb.stale = d;
    opt_bool(j, "open_fails", p, nb.open_fails);
    if (auto it = j.find("open_errno"); it != j.end()) {
        if (it->is_string() && errno_from_name(it->get_ref<const std::string &>()) != 0)
            nb.open_errno = errno_from_name(it->get_ref<const std::string &>());
        else if (auto v = number(*it, p + ".open_errno", 4095)) nb.open_errno = static_cast<int>(*v);
    }
}

void Parser::fault(const json &j, const std::string &p, Fault &f) {
    if (!object(j, p, {"adapter", "function", "command", "subcode", "attribute", "operation", "ctl", "kind", "status", "detail",
                       "errno", "bytes", "bits", "store", "chance", "times"}))
        return;
    opt_string(j, "adapter", p, f.adapter, 64);
    if (auto it = j.find("function"); it != j.end()) {
        if (it->is_number_integer() && it->get<int64_t>() == -1) f.function = -1;
        else if (auto v = number(*it, p + ".function", 255)) f.function = static_cast<int>(*v);
    }
    if (auto it = j.find("command"); it != j.end())
        if (auto v = number(*it, p + ".command", 0xFF)) f.command = static_cast<uint8_t>(*v);
    if (auto it = j.find("subcode"); it != j.end())
        if (auto v = number(*it, p + ".subcode", 0xFFFF)) f.subcode = static_cast<uint16_t>(*v);
    opt_string(j, "attribute", p, f.attribute, 64);
    if (auto it = j.find("operation"); it != j.end()) {
        auto s = string(*it, p + ".operation");
        if (s == "any") f.op = FaultOp::any;
        else if (s == "open") f.op = FaultOp::open;
        else if (s == "read") f.op = FaultOp::read;
        else if (s == "write") f.op = FaultOp::write;
        else if (s) fail(p + ".operation", "expected open, read, write or any");
    }
    if (auto it = j.find("ctl"); it != j.end())
        if (auto s = string(*it, p + ".ctl", 64)) f.ctl = *s;
    if (!f.command && f.attribute.empty()) fail(p, "a fault needs a \"command\" or an \"attribute\"");
    if (f.command && !f.attribute.empty()) fail(p, "a fault matches either a \"command\" or an \"attribute\", not both");
    if (auto it = j.find("kind"); it != j.end()) {
        auto s = string(*it, p + ".kind");
        if (s == "status") f.kind = FaultKind::status;
        else if (s == "errno") f.kind = FaultKind::error;
        else if (s == "short") f.kind = FaultKind::short_xfer;
        else if (s == "stop_after") f.kind = FaultKind::stop_after;
        else if (s == "busy") f.kind = FaultKind::busy;
        else if (s == "bitflip") f.kind = FaultKind::bitflip;
        else if (s == "lie") f.kind = FaultKind::lie;
        else if (s == "partial") f.kind = FaultKind::partial;
        else if (s) fail(p + ".kind", "expected status, errno, short, stop_after, busy, bitflip, lie or partial");
    }
    opt_number(j, "bits", p, f.bits, 1u << 20);
    if (f.bits == 0) fail(p + ".bits", "at least one bit");
    if (auto it = j.find("store"); it != j.end()) {
        auto s = string(*it, p + ".store");
        if (s == "nothing") f.store = LieStore::nothing;
        else if (s == "other") f.store = LieStore::other;
        else if (s) fail(p + ".store", "expected nothing or other");
    }
    if (auto it = j.find("chance"); it != j.end()) {
        if (!it->is_number() || it->get<double>() < 0.0 || it->get<double>() > 1.0) fail(p + ".chance", "expected a number from 0 to 1");
        else f.chance = it->get<double>();
    }
    opt_number(j, "status", p, f.status, 0xFFFFFFFF);
    opt_number(j, "detail", p, f.detail, 0xFFFFFFFF);
    if (auto it = j.find("errno"); it != j.end()) {
        if (it->is_string() && errno_from_name(it->get_ref<const std::string &>()) != 0)
            f.err = errno_from_name(it->get_ref<const std::string &>());
        else if (auto v = number(*it, p + ".errno", 4095)) f.err = static_cast<int>(*v);
        if (f.err == 0) fail(p + ".errno", "errno 0 is not a failure");
    }
    opt_number(j, "bytes", p, f.bytes, 0x10000000);
    if (auto it = j.find("times"); it != j.end()) {
        if (it->is_number_integer() && it->get<int64_t>() == -1) f.times = -1;
        else if (auto v = number(*it, p + ".times", 1000000)) f.times = static_cast<int>(*v);
    }
}

std::optional<std::array<uint8_t, 8>> Parser::wwn(const json &obj, const char *key, const std::string &p) {
    auto it = obj.find(key);
    if (it == obj.end()) return std::nullopt;
    auto s = string(*it, p + "." + key, 32);
    if (!s) return std::nullopt;
    auto w = parse_wwn(*s);
    if (!w) fail(p + "." + key, "expected 16 hexadecimal digits (colons or dashes allowed)");
    return w;
}

void Parser::targets(const json &j, const std::string &p, PortFunction &pf) {
    if (!j.is_array()) return fail(p, "expected an array of targets");
    pf.targets.emplace();
    for (size_t i = 0; i < j.size() && !failed(); ++i) {
        const std::string tp = p + "[" + std::to_string(i) + "]";
        const json &t = j[i];
        if (!object(t, tp, {"wwpn", "wwnn", "port_id", "report_luns", "luns"})) return;
        TargetPort tgt;
        tgt.wwpn = {0x50, 0x06, 0x0E, 0x80, 0x10, 0x00, 0x01, static_cast<uint8_t>(i)};
        if (auto w = wwn(t, "wwpn", tp)) tgt.wwpn = *w;
        tgt.wwnn = tgt.wwpn;
        tgt.wwnn[6] = 0x00;
        if (auto w = wwn(t, "wwnn", tp)) tgt.wwnn = *w;
        tgt.port_id = 0x010100 + static_cast<uint32_t>(i) * 0x100;
        opt_number(t, "port_id", tp, tgt.port_id, 0xFFFFFF);
        opt_bool(t, "report_luns", tp, tgt.report_luns);
        if (auto it = t.find("luns"); it != t.end()) {
            if (!it->is_array()) return fail(tp + ".luns", "expected an array of LUNs");
            for (size_t k = 0; k < it->size() && !failed(); ++k) {
                const std::string lp = tp + ".luns[" + std::to_string(k) + "]";
                const json &l = (*it)[k];
                if (!object(l, lp, {"lun", "type", "blocks", "block_size", "sense"})) return;
                LogicalUnit lu;
                lu.lun = static_cast<uint16_t>(k);
                opt_number(l, "lun", lp, lu.lun, 0x3FFF);
                opt_number(l, "type", lp, lu.inquiry_type, 0xFF);
                opt_number(l, "blocks", lp, lu.blocks, 0x100000000ull);
                opt_number(l, "block_size", lp, lu.block_size, 0x100000);
                if (auto s = l.find("sense"); s != l.end()) {
                    auto text = string(*s, lp + ".sense", 8);
                    unsigned key = 0, asc = 0, ascq = 0;
                    if (text && (std::sscanf(text->c_str(), "%2x:%2x:%2x", &key, &asc, &ascq) != 3 || key > 0xF))
                        fail(lp + ".sense", "expected \"key:asc:ascq\" in hexadecimal");
                    lu.sense = std::array<uint8_t, 3>{static_cast<uint8_t>(key), static_cast<uint8_t>(asc),
                                                      static_cast<uint8_t>(ascq)};
                }
                for (const auto &other : tgt.luns)
                    if (other.lun == lu.lun) fail(lp + ".lun", "LUN " + std::to_string(lu.lun) + " listed twice");
                tgt.luns.push_back(lu);
            }
        }
        pf.targets->push_back(std::move(tgt));
    }
}

void Parser::layout(const json &j, const std::string &p, const ChipInfo &chip, FlashLayout &l) {
    if (!object(j, p, {"sector_size", "regions"})) return;
    opt_number(j, "sector_size", p, l.sector_size, chip.flash_size);
    auto it = j.find("regions");
    if (it == j.end()) return;
    if (!it->is_array() || it->empty()) return fail(p + ".regions", "expected a non-empty array");
    l.regions.clear();
    l.size = 0;
    for (size_t i = 0; i < it->size(); ++i) {
        const std::string rp = p + ".regions[" + std::to_string(i) + "]";
        const json &r = (*it)[i];
        if (!object(r, rp, {"code", "beg", "size", "read_only", "activate"})) return;
        uint32_t code = 0, beg = 0, size = 0;
        bool ro = false, act = false;
        if (!r.contains("code") || !r.contains("size")) return fail(rp, "a region needs \"code\" and \"size\"");
        opt_number(r, "code", rp, code, 0xFF);
        opt_number(r, "beg", rp, beg, chip.flash_size);
        opt_number(r, "size", rp, size, chip.flash_size);
        opt_bool(r, "read_only", rp, ro);
        opt_bool(r, "activate", rp, act);
        if (failed()) return;
        if (size == 0 || uint64_t{beg} + size > chip.flash_size)
            return fail(rp, "region lies outside the " + std::to_string(chip.flash_size) + "-byte flash");
        uint32_t word = code | (ro ? kRegionReadOnly : 0) | (act ? (code == kRegionFirmware ? kRegionActivateA : kRegionActivateB) : 0);
        l.regions.push_back(FlashRegion{word, size, beg, beg + size - 1});
        if (code == kRegionAll && l.size == 0) l.size = size;
    }
    if (l.size == 0) fail(p + ".regions", "the layout needs a 0xFF region (the whole flash)");
}

void Parser::flash(const json &j, const std::string &p, const ChipInfo &chip, Adapter &a) {
    a.flash.assign(chip.flash_size, 0xFF);
    if (!j.is_null() && !object(j, p, {"file", "bios", "fcode", "efi", "firmware", "common_bios", "firmware_family"})) return;
    if (j.is_object() && j.contains("file")) {
        if (j.size() > 1) return fail(p, "\"file\" cannot be combined with versions");
        auto bytes = file(j["file"], p + ".file", a.flash.size());
        if (!bytes) return;
        if (bytes->size() > a.flash.size())
            return fail(p + ".file", "image of " + std::to_string(bytes->size()) + " bytes is larger than the " +
                                         std::to_string(a.flash.size()) + "-byte flash of " + std::string(chip.name));
        std::copy(bytes->begin(), bytes->end(), a.flash.begin());
        return;
    }
    // Built from versions: absent = the default, null or "" = not carried.
    auto pick = [&](const char *key, const char *def, size_t parts) -> std::optional<std::vector<uint8_t>> {
        bool absent = false;
        if (!j.is_object() || !j.contains(key)) return parse_version(def, parts);
        auto v = version(j[key], p + "." + key, parts, absent);
        return absent ? std::nullopt : v;
    };
    BootChainSpec bc;
    auto pair_of = [](const std::optional<std::vector<uint8_t>> &v) -> std::optional<std::pair<uint8_t, uint8_t>> {
        if (!v) return std::nullopt;
        return std::pair<uint8_t, uint8_t>((*v)[0], (*v)[1]);
    };
    bc.bios = pair_of(pick("bios", "1.00", 2));
    bc.fcode = pair_of(pick("fcode", "1.00", 2));
    bc.efi = pair_of(pick("efi", "1.00", 2));
    auto fwv = chip.has_firmware ? pick("firmware", "1.0.0", 3) : std::nullopt;
    if (j.is_object()) opt_bool(j, "common_bios", p, bc.common_bios);
    std::string family(chip.family);
    if (j.is_object()) opt_string(j, "firmware_family", p, family, 5);
    if (failed()) return;
    if (!chip.has_firmware && j.is_object() && j.contains("firmware") && !j["firmware"].is_null())
        return fail(p + ".firmware", std::string(chip.name) + " flash carries no firmware image");
    bc.model = a.model.substr(0, 18);
    bc.ssvid = a.functions.empty() ? kMakerVendorId : a.functions[0].ss_vendor_id;
    auto boot = build_boot_chain(chip, bc);
    if (!boot) return fail(p, boot.error().message);
    const auto boot_region = a.layout.find(kRegionBootCode);
    const size_t boot_at = boot_region ? boot_region->beg : 0;
    const size_t boot_room = boot_region ? boot_region->size : a.flash.size();
    if (boot.value().size() > boot_room || boot_at + boot.value().size() > a.flash.size())
        return fail(p, "boot images do not fit in the boot-code region");
    std::copy(boot.value().begin(), boot.value().end(), a.flash.begin() + static_cast<std::ptrdiff_t>(boot_at));
    if (chip.own_layout && kBootCopy + boot.value().size() <= a.flash.size())
        std::copy(boot.value().begin(), boot.value().end(), a.flash.begin() + static_cast<std::ptrdiff_t>(kBootCopy));
    if (fwv) {
        FirmwareSpec fs;
        fs.family = family;
        fs.major = (*fwv)[0], fs.minor = (*fwv)[1], fs.sub = (*fwv)[2];
        auto fw = build_firmware(fs);
        if (!fw) return fail(p + ".firmware", fw.error().message);
        const auto fw_region = a.layout.find(kRegionFirmware);
        const size_t at = fw_region ? fw_region->beg : kMultibootFirmwareOffset;
        if (at + fw.value().size() > a.flash.size()) return fail(p + ".firmware", "firmware does not fit in the flash");
        std::copy(fw.value().begin(), fw.value().end(), a.flash.begin() + static_cast<std::ptrdiff_t>(at));
    }
}

void Parser::function(const json &j, const std::string &p, const ChipInfo &chip, size_t adapter_index, size_t fn_index,
                      const Adapter &a, PortFunction &pf, std::optional<std::vector<uint8_t>> &nvram_file,
                      std::optional<std::vector<uint8_t>> &vpd_file, VpdSpec &vpd) {
    char pci[32];
    std::snprintf(pci, sizeof pci, "0000:%02x:00.%u", static_cast<unsigned>((5 + adapter_index) & 0xFF),
                  static_cast<unsigned>(fn_index & 7));
    pf.pci_address = pci;
    pf.device_id = chip.device_id;
    pf.ss_vendor_id = kMakerVendorId;
    pf.ss_device_id = chip.device_id;
    pf.wwnn = {0x20, 0x00, 0x00, 0x1D, 0xE5, 0x00, static_cast<uint8_t>(adapter_index + 1), static_cast<uint8_t>(fn_index)};
    pf.wwpn = pf.wwnn;
    pf.wwpn[0] = 0x21;
    pf.port_id = 0x010000 | static_cast<uint32_t>(((adapter_index + 1) << 8) | fn_index);
    pf.model = a.model;
    pf.serial = a.functions.empty() ? std::string() : a.functions[0].serial;

    if (!object(j, p, {"pci", "vendor_id", "device_id", "ssvid", "ssdid", "host", "wwnn", "wwpn", "port_id", "link_state", "speed",
                       "port_state", "port_type", "connection_mode", "speed_code", "model", "serial", "nvram_file", "vpd_file",
                       "vpd", "targets"}))
        return;
    if (auto it = j.find("pci"); it != j.end()) {
        if (auto s = string(*it, p + ".pci", 16)) {
            if (!parse_pci(*s)) fail(p + ".pci", "expected a PCI address \"dddd:bb:dd.f\"");
            else pf.pci_address = *s;
        }
    }
    opt_number(j, "vendor_id", p, pf.vendor_id, 0xFFFF);
    opt_number(j, "device_id", p, pf.device_id, 0xFFFF);
    opt_number(j, "ssvid", p, pf.ss_vendor_id, 0xFFFF);
    opt_number(j, "ssdid", p, pf.ss_device_id, 0xFFFF);
    opt_number(j, "host", p, pf.host_no, 0xFFFF);
    for (const char *key : {"wwnn", "wwpn"}) {
        if (auto it = j.find(key); it != j.end()) {
            if (auto s = string(*it, p + "." + key, 32)) {
                auto w = parse_wwn(*s);
                if (!w) fail(p + "." + key, "expected 16 hexadecimal digits (colons or dashes allowed)");
                else (std::string_view(key) == "wwnn" ? pf.wwnn : pf.wwpn) = *w;
            }
        }
    }
    opt_number(j, "port_id", p, pf.port_id, 0xFFFFFF);
    opt_string(j, "link_state", p, pf.link_state, 64);
    opt_string(j, "speed", p, pf.speed, 64);
    opt_number(j, "port_state", p, pf.port_state, 0xFF);
    opt_number(j, "port_type", p, pf.port_type, 0xFF);
    opt_number(j, "connection_mode", p, pf.connection_mode, 0xFF);
    opt_number(j, "speed_code", p, pf.speed_code, 0xFFFFFFFF);
    opt_string(j, "model", p, pf.model, 127);
    opt_string(j, "serial", p, pf.serial, 31);
    if (auto it = j.find("targets"); it != j.end()) targets(*it, p + ".targets", pf);
    if (auto it = j.find("nvram_file"); it != j.end()) nvram_file = file(*it, p + ".nvram_file", kMaxBlockFile);
    if (auto it = j.find("vpd_file"); it != j.end()) vpd_file = file(*it, p + ".vpd_file", kMaxBlockFile);

    vpd.identifier = "Varnix " + pf.model + " Fibre Channel Adapter";
    std::string pn = pf.model, ec = "A01", sn = pf.serial;
    std::vector<std::pair<std::string, std::string>> extra;
    if (auto it = j.find("vpd"); it != j.end()) {
        if (!it->is_object()) return fail(p + ".vpd", "expected an object of keyword texts");
        for (const auto &[k, v] : it->items()) {
            const std::string kp = p + ".vpd." + k;
            auto s = string(v, kp, 255);
            if (!s) return;
            std::string kw;
            for (char c : k) kw += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            if (kw == "ID") vpd.identifier = *s;
            else if (kw == "PN") pn = *s;
            else if (kw == "EC") ec = *s;
            else if (kw == "SN") sn = *s;
            else if (kw.size() != 2 || kw == "RV" || kw == "RW") return fail(kp, "not a VPD keyword the kit can place");
            else extra.emplace_back(kw, *s);
        }
    }
    // PN, EC, SN first: field lookups by first letter must meet SN before any other S keyword.
    vpd.read_only = {{"PN", pn}, {"EC", ec}, {"SN", sn}};
    vpd.read_only.insert(vpd.read_only.end(), extra.begin(), extra.end());
}

void Parser::adapter(const json &j, const std::string &p, size_t index, const Host &host, Adapter &a) {
    if (!object(j, p, {"name", "chip", "transport", "chunked", "driver_version", "firmware_version", "model", "serial", "flash",
                       "layout", "functions"}))
        return;
    a.name = "adapter" + std::to_string(index);
    opt_string(j, "name", p, a.name, 64);
    if (!safe_name(a.name)) return fail(p + ".name", "use letters, digits, '-', '_' and '.' only");
    opt_string(j, "chip", p, a.chip, 16);
    const ChipInfo *chip = find_chip(a.chip);
    if (!chip) return fail(p + ".chip", "unknown chip \"" + a.chip + "\"");
    a.transport = host.driver.transport;
    if (auto it = j.find("transport"); it != j.end())
        if (auto t = transport(*it, p + ".transport")) a.transport = *t;
    opt_bool(j, "chunked", p, a.chunked);
    a.driver_version = host.driver.version_text;
    opt_string(j, "driver_version", p, a.driver_version, 127);
    a.model = "VX" + std::string(chip->name.substr(3));
    opt_string(j, "model", p, a.model, 127);
    char serial[16];
    std::snprintf(serial, sizeof serial, "VXA%07zu", 4200100 + index);
    std::string adapter_serial = serial;
    opt_string(j, "serial", p, adapter_serial, 31);
    if (failed()) return;

    // Functions first: their subsystem IDs choose the fixed layout.
    const json empty_fn = json::object();
    std::vector<const json *> fjs;
    if (auto it = j.find("functions"); it != j.end()) {
        if (!it->is_array() || it->empty()) return fail(p + ".functions", "expected a non-empty array");
        for (const auto &f : *it) fjs.push_back(&f);
    } else {
        fjs.push_back(&empty_fn);
    }
    if (fjs.size() > 8) return fail(p + ".functions", "at most 8 PCI functions per adapter");
    std::vector<std::optional<std::vector<uint8_t>>> nv_files(fjs.size()), vpd_files(fjs.size());
    std::vector<VpdSpec> vpds(fjs.size());
    a.functions.clear();
    for (size_t i = 0; i < fjs.size(); ++i) {
        PortFunction pf;
        pf.serial = adapter_serial;
        a.functions.push_back(pf);
        function(*fjs[i], p + ".functions[" + std::to_string(i) + "]", *chip, index, i, a, a.functions.back(), nv_files[i],
                 vpd_files[i], vpds[i]);
        if (failed()) return;
    }
    if (a.blocks_in_flash()) {
        std::set<unsigned> parities;
        for (const auto &f : a.functions) parities.insert(f.function() & 1);
        if (a.functions.size() > 2 || parities.size() != a.functions.size())
            return fail(p + ".functions", std::string(chip->name) + " keeps NVRAM/VPD for one even and one odd PCI function only");
    }

    a.layout = default_layout(a.chip, a.functions[0].ss_vendor_id, a.functions[0].ss_device_id);
    if (auto it = j.find("layout"); it != j.end()) layout(*it, p + ".layout", *chip, a.layout);
    if (failed()) return;

    const json null_flash;
    auto fit = j.find("flash");
    flash(fit != j.end() ? *fit : null_flash, p + ".flash", *chip, a);
    if (failed()) return;
    const bool flash_from_file = fit != j.end() && fit->is_object() && fit->contains("file");

    const NvramFormat fmt = a.nvram_format();
    for (size_t i = 0; i < a.functions.size(); ++i) {
        PortFunction &pf = a.functions[i];
        const std::string fp = p + ".functions[" + std::to_string(i) + "]";
        std::vector<uint8_t> nv, vp;
        if (nv_files[i]) {
            if (nv_files[i]->size() != a.nvram_size())
                return fail(fp + ".nvram_file", "expected " + std::to_string(a.nvram_size()) + " bytes, found " +
                                                    std::to_string(nv_files[i]->size()));
            nv = *nv_files[i];
        } else {
            NvramSpec ns;
            ns.format = fmt;
            ns.ss_vendor = pf.ss_vendor_id;
            ns.ss_device = pf.ss_device_id;
            ns.wwnn = pf.wwnn;
            ns.wwpn = pf.wwpn;
            auto built = build_nvram(ns);
            if (!built) return fail(fp, built.error().message);
            nv = std::move(built).value();
        }
        if (vpd_files[i]) {
            if (vpd_files[i]->size() != a.vpd_size())
                return fail(fp + ".vpd_file", "expected " + std::to_string(a.vpd_size()) + " bytes, found " +
                                                  std::to_string(vpd_files[i]->size()));
            vp = *vpd_files[i];
        } else {
            vpds[i].size = a.vpd_size();
            auto built = build_vpd(vpds[i]);
            if (!built) return fail(fp + ".vpd", built.error().message);
            vp = std::move(built).value();
        }
        pf.nvram.assign(a.nvram_size(), 0);
        pf.vpd.assign(a.vpd_size(), 0);
        // A flash image from a file already holds the blocks, unless its
        // block area is blank or an explicit block file overrides it.
        auto area_blank = [&](uint32_t code) {
            auto r = a.layout.find(code);
            if (!r || r->end >= a.flash.size()) return true;
            return std::all_of(a.flash.begin() + r->beg, a.flash.begin() + r->end + 1, [](uint8_t b) { return b == 0xFF; });
        };
        const bool odd = (pf.function() & 1) != 0;
        const bool keep_nv = a.blocks_in_flash() && flash_from_file && !nv_files[i] && !area_blank(odd ? kRegionNvram1 : kRegionNvram0);
        const bool keep_vpd = a.blocks_in_flash() && flash_from_file && !vpd_files[i] && !area_blank(odd ? kRegionVpd1 : kRegionVpd0);
        if (a.blocks_in_flash()) {
            if (keep_nv) {
                auto r = a.layout.find(odd ? kRegionNvram1 : kRegionNvram0);
                nv.assign(a.flash.begin() + r->beg, a.flash.begin() + r->beg + std::min<size_t>(r->size, a.nvram_size()));
            }
            if (keep_vpd) {
                auto r = a.layout.find(odd ? kRegionVpd1 : kRegionVpd0);
                vp.assign(a.flash.begin() + r->beg, a.flash.begin() + r->beg + std::min<size_t>(r->size, a.vpd_size()));
            }
        }
        if (Status st = a.write_nvram(i, nv); !st) return fail(fp, st.error().message);
        if (Status st = a.write_vpd(i, vp); !st) return fail(fp, st.error().message);
    }

    derive_versions(a);
    a.firmware_version = running_firmware_text(a);
    a.firmware_version_from_flash = !j.contains("firmware_version");
    opt_string(j, "firmware_version", p, a.firmware_version, 31);
}

}  // namespace

// ---------------------------------------------------------------- model

const char *transport_name(Transport t) {
    switch (t) {
    case Transport::sysfs: return "sysfs";
    case Transport::ioctl: return "ioctl";
    case Transport::ioctl_old: return "ioctl_old";
    }
    return "?";
}

const char *fault_kind_name(FaultKind k) {
    switch (k) {
    case FaultKind::status: return "status";
    case FaultKind::error: return "errno";
    case FaultKind::short_xfer: return "short";
    case FaultKind::stop_after: return "stop_after";
    case FaultKind::busy: return "busy";
    case FaultKind::bitflip: return "bitflip";
    case FaultKind::lie: return "lie";
    case FaultKind::partial: return "partial";
    }
    return "?";
}

std::string BootVersion::text() const {
    if (!present) return {};
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u.%02u", major, minor);
    return buf;
}

std::string FirmwareVersion::text() const {
    if (!present) return {};
    char buf[24];
    std::snprintf(buf, sizeof buf, "%u.%02u.%02u", major, minor, sub);
    return buf;
}

unsigned PortFunction::function() const {
    auto p = parse_pci(pci_address);
    return p ? (*p)[3] : 0;
}
unsigned PortFunction::domain() const {
    auto p = parse_pci(pci_address);
    return p ? (*p)[0] : 0;
}
unsigned PortFunction::bus() const {
    auto p = parse_pci(pci_address);
    return p ? (*p)[1] : 0;
}
unsigned PortFunction::device() const {
    auto p = parse_pci(pci_address);
    return p ? (*p)[2] : 0;
}

NvramFormat Adapter::nvram_format() const {
    const ChipInfo *c = find_chip(chip);
    return c && c->fcx14x_class ? NvramFormat::extended : NvramFormat::basic;
}

size_t Adapter::nvram_size() const { return vxemu::nvram_size(nvram_format()); }

bool Adapter::blocks_in_flash() const {
    const ChipInfo *c = find_chip(chip);
    return c && c->own_layout;
}

namespace {

// Flash place of a function's block, or nullopt if the chip keeps it elsewhere.
std::optional<std::pair<size_t, size_t>> block_place(const Adapter &a, size_t fn_index, bool nvram) {
    if (!a.blocks_in_flash() || fn_index >= a.functions.size()) return std::nullopt;
    const bool odd = (a.functions[fn_index].function() & 1) != 0;
    const uint32_t code = nvram ? (odd ? kRegionNvram1 : kRegionNvram0) : (odd ? kRegionVpd1 : kRegionVpd0);
    size_t beg = kBlockArea + (code - kRegionVpd0) * 0x200, size = 0x200;
    if (auto r = a.layout.find(code)) beg = r->beg, size = r->size;
    if (beg >= a.flash.size() || size > a.flash.size() - beg) return std::nullopt;
    return std::pair<size_t, size_t>(beg, size);
}

void refresh_mirrors(Adapter &a, size_t off, size_t len) {
    for (size_t i = 0; i < a.functions.size(); ++i) {
        for (bool nv : {true, false}) {
            auto place = block_place(a, i, nv);
            if (!place || off >= place->first + place->second || off + len <= place->first) continue;
            auto &mirror = nv ? a.functions[i].nvram : a.functions[i].vpd;
            const size_t n = std::min(mirror.size(), place->second);
            std::copy_n(a.flash.begin() + static_cast<std::ptrdiff_t>(place->first), n, mirror.begin());
        }
    }
}

Status write_block(Adapter &a, size_t fn_index, std::span<const uint8_t> bytes, bool nvram) {
    if (fn_index >= a.functions.size()) return Status::fail("no PCI function " + std::to_string(fn_index) + " on " + a.name);
    const size_t cap = nvram ? a.nvram_size() : a.vpd_size();
    if (bytes.size() > cap)
        return Status::fail(std::string(nvram ? "NVRAM" : "VPD") + " block of " + std::to_string(bytes.size()) +
                            " bytes is larger than " + std::to_string(cap));
    auto &block = nvram ? a.functions[fn_index].nvram : a.functions[fn_index].vpd;
    block.resize(cap, 0);
    std::copy(bytes.begin(), bytes.end(), block.begin());
    if (auto place = block_place(a, fn_index, nvram)) {
        const size_t n = std::min(block.size(), place->second);
        std::copy_n(block.begin(), n, a.flash.begin() + static_cast<std::ptrdiff_t>(place->first));
    }
    return {};
}

}  // namespace

Status Adapter::write_flash(size_t offset, std::span<const uint8_t> bytes) {
    if (offset > flash.size() || bytes.size() > flash.size() - offset)
        return Status::fail("flash write of " + std::to_string(bytes.size()) + " bytes at " + hex4(static_cast<uint32_t>(offset)) +
                            " lies outside the " + std::to_string(flash.size()) + "-byte flash of " + name);
    std::copy(bytes.begin(), bytes.end(), flash.begin() + static_cast<std::ptrdiff_t>(offset));
    refresh_mirrors(*this, offset, bytes.size());
    derive_versions(*this);
    return {};
}

Status Adapter::write_nvram(size_t fn_index, std::span<const uint8_t> bytes) { return write_block(*this, fn_index, bytes, true); }
Status Adapter::write_vpd(size_t fn_index, std::span<const uint8_t> bytes) { return write_block(*this, fn_index, bytes, false); }

std::span<const uint8_t> Adapter::flash_range(size_t offset, size_t size) const {
    if (offset > flash.size() || size > flash.size() - offset) return {};
    return std::span<const uint8_t>(flash).subspan(offset, size);
}

size_t Host::ioctl_port_count() const {
    size_t n = 0;
    for (const auto &a : adapters)
        if (a.transport != Transport::sysfs) n += a.functions.size();
    return n;
}

bool Host::registers_char_device() const {
    if (ioctl_port_count() > 0) return true;
    // Without adapters the driver's generation decides.
    return adapters.empty() && driver.transport != Transport::sysfs;
}

uint16_t Host::instance_count() const {
    if (instances.count) return *instances.count;
    return static_cast<uint16_t>(std::min<size_t>(ioctl_port_count(), 0xFFFF));
}

void derive_versions(Adapter &a) {
    AdapterVersions v;
    const auto boot = a.layout.find(kRegionBootCode);
    const size_t boot_at = boot ? boot->beg : 0;
    for (const RomImageInfo &img : walk_option_rom(a.flash, boot_at)) {
        // Device IDs 1..3 mark data images (VPD, firmware) carried in the chain.
        if (img.device_id >= 1 && img.device_id <= 3) continue;
        BootVersion *slot = img.raw_type == 0 ? &v.bios : img.raw_type == 1 ? &v.fcode : img.raw_type == 3 ? &v.efi : nullptr;
        if (slot && !slot->present) *slot = BootVersion{true, img.major, img.minor};
    }
    const ChipInfo *chip = find_chip(a.chip);
    std::optional<size_t> fw_at;
    if (auto r = a.layout.find(kRegionFirmware)) fw_at = r->beg;
    else if (chip && chip->has_firmware) fw_at = kMultibootFirmwareOffset;
    if (fw_at && *fw_at < a.flash.size()) {
        auto area = std::span<const uint8_t>(a.flash).subspan(*fw_at, std::min<size_t>(0x80000, a.flash.size() - *fw_at));
        if (auto fw = inspect_firmware(area); fw && fw->valid())
            v.firmware = FirmwareVersion{true, fw->major, fw->minor, fw->sub};
    }
    a.versions = v;
}

// ---------------------------------------------------------------- loading

Result<Host> parse_host_json(std::string_view text, const fs::path &origin, HostFiles files) {
    json root;
    // Where the parser is, so that a value it cannot take (a number beyond
    // any field, such as 1e999) is reported with its field.
    struct Frame {
        bool array = false;
        std::string key;
        size_t index = 0;
    };
    std::vector<Frame> at;
    auto track = [&at](int, json::parse_event_t event, json &parsed) {
        auto element_done = [&at] {
            if (!at.empty() && at.back().array) ++at.back().index;
        };
        switch (event) {
        case json::parse_event_t::object_start: at.push_back({false, "", 0}); break;
        case json::parse_event_t::array_start: at.push_back({true, "", 0}); break;
        case json::parse_event_t::key:
            if (!at.empty() && parsed.is_string()) at.back().key = parsed.get<std::string>();
            break;
        case json::parse_event_t::object_end:
        case json::parse_event_t::array_end:
            if (!at.empty()) at.pop_back();
            element_done();
            break;
        case json::parse_event_t::value: element_done(); break;
        }
        return true;
    };
    auto where = [&at] {
        std::string path;
        for (const Frame &f : at) {
            if (f.array) path += "[" + std::to_string(f.index) + "]";
            else if (!f.key.empty()) path += (path.empty() ? "" : ".") + f.key;
        }
        return path.empty() ? std::string() : path + ": ";
    };
    try {
        root = json::parse(text.begin(), text.end(), track);
    } catch (const json::out_of_range &) {
        return Result<Host>::fail(origin.string() + ": " + where() + "number out of range");
    } catch (const json::exception &e) {
        return Result<Host>::fail(origin.string() + ": " + where() + "not valid JSON: " + e.what());
    }
    Parser ps(origin, origin.parent_path(), files);
    Host host;
    try {
        if (!ps.object(root, "(top)", {"driver", "ostype", "etc", "instances", "node", "faults", "seed", "power_cut", "adapters"}))
            return Result<Host>::fail(ps.error());
        if (auto it = root.find("driver"); it != root.end()) ps.driver(*it, host.driver);
        if (host.driver.version_text.empty()) {
            char buf[32];
            std::snprintf(buf, sizeof buf, "%u.%02u.%02u-k", host.driver.major, host.driver.minor, host.driver.patch);
            host.driver.version_text = buf;
        }
        ps.opt_string(root, "ostype", "", host.ostype, 64);
        if (auto it = root.find("etc"); it != root.end()) {
            if (!it->is_object()) ps.fail("etc", "expected an object of path: content");
            else
                for (const auto &[path, content] : it->items()) {
                    if (!path.starts_with("/etc/") || path.ends_with("/") || path.find("..") != std::string::npos ||
                        path.find("//") != std::string::npos || path.size() > 255)
                        ps.fail("etc." + path, "path must lie under /etc/");
                    else if (auto c = ps.string(content, "etc." + path, 1 << 20)) host.etc_files[path] = *c;
                }
        }
        if (auto it = root.find("instances"); it != root.end()) ps.instances(*it, host.instances);
        if (auto it = root.find("node"); it != root.end()) ps.node(*it, host.node);
        if (auto it = root.find("faults"); it != root.end()) {
            if (!it->is_array()) ps.fail("faults", "expected an array");
            else
                for (size_t i = 0; i < it->size() && !ps.failed(); ++i) {
                    Fault f;
                    ps.fault((*it)[i], "faults[" + std::to_string(i) + "]", f);
                    host.faults.push_back(f);
                }
        }
        if (auto it = root.find("seed"); it != root.end())
            if (auto v = ps.number(*it, "seed", UINT64_MAX)) host.seed = *v;
        if (auto it = root.find("power_cut"); it != root.end()) {
            if (auto v = ps.number(*it, "power_cut", UINT32_MAX)) {
                if (*v == 0) ps.fail("power_cut", "stores count from 1");
                else host.power_cut = *v;
            }
        }
        if (auto it = root.find("adapters"); it != root.end()) {
            if (!it->is_array()) ps.fail("adapters", "expected an array");
            else {
                if (it->size() > 32) ps.fail("adapters", "at most 32 adapters");
                for (size_t i = 0; i < it->size() && !ps.failed(); ++i) {
                    Adapter a;
                    ps.adapter((*it)[i], "adapters[" + std::to_string(i) + "]", i, host, a);
                    host.adapters.push_back(std::move(a));
                }
            }
        }
        if (ps.failed()) return Result<Host>::fail(ps.error());
        host.description = std::string(text);

        // Cross-checks: names, PCI addresses and SCSI hosts are unique. A
        // function without an explicit host number gets the next free one.
        std::set<std::string> names, pcis;
        std::set<uint32_t> hosts;
        for (size_t i = 0; i < host.adapters.size(); ++i) {
            const auto &a = host.adapters[i];
            if (!names.insert(a.name).second)
                return Result<Host>::fail(origin.string() + ": adapters[" + std::to_string(i) + "].name: \"" + a.name + "\" used twice");
            for (size_t k = 0; k < a.functions.size(); ++k)
                if (!pcis.insert(a.functions[k].pci_address).second)
                    return Result<Host>::fail(origin.string() + ": adapters[" + std::to_string(i) + "].functions[" + std::to_string(k) +
                                              "].pci: " + a.functions[k].pci_address + " used twice");
        }
        const json &adapters = root.contains("adapters") ? root["adapters"] : json::array();
        for (size_t i = 0; i < host.adapters.size(); ++i) {
            const json &fns = adapters[i].is_object() && adapters[i].contains("functions") ? adapters[i]["functions"] : json::array();
            for (size_t k = 0; k < host.adapters[i].functions.size(); ++k)
                if (k < fns.size() && fns[k].contains("host")) hosts.insert(host.adapters[i].functions[k].host_no);
        }
        uint32_t next_host = 5;
        std::set<uint32_t> used;
        for (size_t i = 0; i < host.adapters.size(); ++i) {
            const json &fns = adapters[i].is_object() && adapters[i].contains("functions") ? adapters[i]["functions"] : json::array();
            for (size_t k = 0; k < host.adapters[i].functions.size(); ++k) {
                auto &pf = host.adapters[i].functions[k];
                if (!(k < fns.size() && fns[k].contains("host"))) {
                    while (hosts.count(next_host)) ++next_host;
                    pf.host_no = next_host;
                    hosts.insert(next_host);
                }
                if (!used.insert(pf.host_no).second)
                    return Result<Host>::fail(origin.string() + ": adapters[" + std::to_string(i) + "].functions[" + std::to_string(k) +
                                              "].host: host" + std::to_string(pf.host_no) + " used twice");
            }
        }
    } catch (const json::exception &e) {
        // Type checks above keep nlohmann quiet; this is a last guard.
        return Result<Host>::fail(origin.string() + ": " + e.what());
    }
    return host;
}

Result<Host> load_host_file(const fs::path &path) {
    auto bytes = read_bounded(path, kMaxHostFile);
    if (!bytes) return Result<Host>::fail(bytes.error().message);
    const std::string text(bytes.value().begin(), bytes.value().end());
    return parse_host_json(text, path);
}

Result<Host> builtin_host() { return parse_host_json(kBuiltinHostJson, "examples/lab/host.json"); }

Status load_state(Host &host, const fs::path &dir) {
    std::error_code ec;
    // Work on a copy so that a bad file leaves the host as it was.
    std::vector<Adapter> adapters = host.adapters;
    for (Adapter &a : adapters) {
        const fs::path ad = dir / "adapters" / a.name;
        if (!fs::is_directory(ad, ec)) continue;
        auto load = [&](const fs::path &p, size_t expect) -> std::optional<Result<std::vector<uint8_t>>> {
            if (!fs::exists(fs::symlink_status(p, ec))) return std::nullopt;
            return read_state_file(p, expect);
        };
        if (auto f = load(ad / "flash.bin", a.flash.size())) {
            if (!*f) return Status::fail(f->error().message);
            a.flash = std::move(*f).value();
        }
        // The flash holds the blocks on chips that keep them there; the block
        // files are only a convenience copy for those.
        for (size_t i = 0; i < a.functions.size(); ++i) {
            if (a.blocks_in_flash()) break;
            if (auto f = load(ad / ("nvram." + std::to_string(i) + ".bin"), a.nvram_size())) {
                if (!*f) return Status::fail(f->error().message);
                a.functions[i].nvram = std::move(*f).value();
            }
            if (auto f = load(ad / ("vpd." + std::to_string(i) + ".bin"), a.vpd_size())) {
                if (!*f) return Status::fail(f->error().message);
                a.functions[i].vpd = std::move(*f).value();
            }
        }
        if (a.blocks_in_flash()) refresh_mirrors(a, 0, a.flash.size());
        derive_versions(a);
        // The adapter boots the firmware its flash holds now.
        if (a.firmware_version_from_flash) a.firmware_version = running_firmware_text(a);
    }
    host.adapters = std::move(adapters);
    return {};
}

Status save_state(const Host &host, const fs::path &dir) {
    for (const Adapter &a : host.adapters) {
        const fs::path ad = dir / "adapters" / a.name;
        std::error_code ec;
        fs::create_directories(ad, ec);
        if (ec) return Status::fail(ad.string() + ": cannot create: " + ec.message());
        if (Status st = write_state_file(ad / "flash.bin", a.flash); !st) return st;
        for (size_t i = 0; i < a.functions.size(); ++i) {
            if (Status st = write_state_file(ad / ("nvram." + std::to_string(i) + ".bin"), a.functions[i].nvram); !st) return st;
            if (Status st = write_state_file(ad / ("vpd." + std::to_string(i) + ".bin"), a.functions[i].vpd); !st) return st;
        }
    }
    return {};
}

}  // namespace vxemu

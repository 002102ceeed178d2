// SPDX-License-Identifier: MIT
#include "show_command.h"

#include <sys/stat.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "command_line.h"
#include "state_files.h"

namespace vxemu {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;

namespace {

constexpr size_t kMaxHostFile = 64u << 20;

constexpr const char kShowHelp[] =
    "Usage: vxemu show [--json] STATE\n"
    "\n"
    "Shows what the adapters of a state directory (vxemu run --state) hold, per\n"
    "adapter: chip, model, serial, the versions its driver reports from the flash,\n"
    "what each flash region carries, the model text and hardware type in the BIOS\n"
    "image, whether the parameter block and the \"SSVID\" bytes are there; per\n"
    "port: WWNs, the subsystem IDs in NVRAM and the VPD fields.\n"
    "\n"
    "  -j, --json   one JSON object instead of text\n"
    "  -h, --help   this help\n"
    "\n"
    "Exit status: 0 shown, 2 bad command line or unreadable state.\n";

constexpr const char kDiffHelp[] =
    "Usage: vxemu diff [--json] STATE_A STATE_B\n"
    "\n"
    "Compares the adapters of two state directories (matched by name): which\n"
    "flash regions changed, from which versions to which, and whether every byte\n"
    "an adapter owns (parameter block, \"SSVID\" bytes, NVRAM, VPD) is unchanged.\n"
    "\n"
    "  -j, --json   one JSON object instead of text\n"
    "  -h, --help   this help\n"
    "\n"
    "Exit status: 0 no difference; 1 flash regions changed and every adapter kept\n"
    "its own data; 3 an adapter's own data changed, or an adapter is in one state\n"
    "only; 2 bad command line or unreadable state.\n";

// Printable ASCII as is, anything else as \xNN (VPD and flash bytes are not text).
std::string printable(std::string_view s) {
    std::string out;
    for (unsigned char c : s) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char buf[5];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        }
    }
    return out;
}

std::string hex(uint32_t v, int digits) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%0*X", digits, v);
    return buf;
}

std::string join(const std::vector<std::string> &v, const char *sep = ", ") {
    std::string out;
    for (const auto &s : v) out += (out.empty() ? "" : sep) + s;
    return out;
}

std::string versions_line(const AdapterVersions &v) {
    return "BIOS " + version_text(v.bios) + ", FCode " + version_text(v.fcode) + ", EFI " + version_text(v.efi) +
           ", firmware " + version_text(v.firmware);
}

std::string region_flags(const FlashRegion &r) {
    std::string f;
    if (r.read_only()) f += " [read-only]";
    if (r.needs_activation()) f += " [activated]";
    return f;
}

// VPD fields: text ones as they are; "RV" holds a checksum and "RW" the
// free read-write room, neither of them text.
std::vector<std::string> vpd_line(const PortView &p) {
    std::vector<std::string> out;
    for (const auto &[kw, value] : p.vpd)
        out.push_back(kw == "RV" || kw == "RW" ? kw : printable(kw) + " \"" + printable(value) + "\"");
    return out;
}

json versions_json(const AdapterVersions &v) {
    auto one = [](const auto &x) { return x.present ? json(x.text()) : json(nullptr); };
    return json{{"bios", one(v.bios)}, {"fcode", one(v.fcode)}, {"efi", one(v.efi)}, {"firmware", one(v.firmware)}};
}

// "-" marks an image that is not there.
json version_json(const std::string &v) { return v == "-" ? json(nullptr) : json(v); }

std::string dump(const json &j) { return j.dump(2, ' ', false, json::error_handler_t::replace) + "\n"; }

Result<std::vector<uint8_t>> read_regular(const fs::path &p, size_t max) {
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0) return Result<std::vector<uint8_t>>::fail(p.string() + ": not found");
    if (!S_ISREG(st.st_mode)) return Result<std::vector<uint8_t>>::fail(p.string() + ": not a regular file");
    if (static_cast<uint64_t>(st.st_size) > max)
        return Result<std::vector<uint8_t>>::fail(p.string() + ": larger than " + std::to_string(max) + " bytes");
    return read_state_file(p, static_cast<size_t>(st.st_size));
}

int usage_error(const char *command, const std::string &msg) {
    std::fprintf(stderr, "vxemu: %s\nTry 'vxemu %s --help'.\n", msg.c_str(), command);
    return kShowFailed;
}

// Parses [--json] and `operands` states; -1 to go on, else the exit status.
int parse(int argc, char **argv, const char *help, size_t operands, bool &as_json, std::vector<std::string> &states) {
    static constexpr OptionSpec kOptions[] = {{"json", 'j', false}, {"help", 'h', false}};
    ParsedOptions parsed;
    std::string error;
    if (!parse_options(argc, argv, kOptions, parsed, error, OptionOrder::anywhere)) return usage_error(argv[0], error);
    for (const auto &[name, value] : parsed.options) {
        if (name == "help") {
            std::fputs(help, stdout);
            return 0;
        }
        as_json = true;
    }
    if (parsed.operands.size() != operands)
        return usage_error(argv[0], parsed.operands.size() < operands
                                        ? std::string(operands == 1 ? "a state directory is needed"
                                                                    : "two state directories are needed")
                                        : "unexpected argument '" + parsed.operands[operands] + "'");
    states = std::move(parsed.operands);
    return -1;
}

}  // namespace

Result<std::vector<AdapterView>> load_state_views(const fs::path &state) {
    using R = Result<std::vector<AdapterView>>;
    const fs::path desc = state / "host.json";
    auto text = read_regular(desc, kMaxHostFile);
    if (!text) return R::fail(text.error().message + " (is " + state.string() + " a state directory of vxemu run?)");
    auto host = parse_host_json(std::string(text.value().begin(), text.value().end()), desc, HostFiles::from_state);
    if (!host) return R::fail(host.error().message);
    // Image files the description names may be gone; the adapters' own files
    // replace them, so each adapter must have left its flash.
    for (const Adapter &a : host.value().adapters) {
        struct stat st {};
        const fs::path flash = state / "adapters" / a.name / "flash.bin";
        if (::lstat(flash.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
            return R::fail(flash.string() + ": missing: the state holds no flash of adapter " + a.name);
    }
    if (Status st = load_state(host.value(), state); !st) return R::fail(st.error().message);
    std::vector<AdapterView> out;
    for (const Adapter &a : host.value().adapters) out.push_back(view_adapter(a));
    return out;
}

std::string show_text(const std::vector<AdapterView> &adapters) {
    std::string o;
    if (adapters.empty()) return "no adapters\n";
    for (const AdapterView &a : adapters) {
        o += "adapter " + a.name + ": " + a.chip + " (device ID " + hex(a.device_id, 4) + "), model " + printable(a.model) +
             ", serial " + (a.serial.empty() ? "none" : printable(a.serial)) + "\n";
        o += "  transport " + a.transport + ", driver " + printable(a.driver_version) + ", running firmware " +
             printable(a.running_firmware) + ", flash " + std::to_string(a.flash_size / 1024) + " KiB\n";
        o += "  versions: " + versions_line(a.versions) + "\n";
        if (a.bios_model)
            o += "  BIOS image: model text \"" + printable(*a.bios_model) + "\", hardware type \"" +
                 printable(a.bios_hardware_type.value_or("")) + "\"\n";
        else
            o += "  BIOS image: none\n";
        o += "  parameter block: " +
             (a.parameter_block ? "present (" + std::to_string(a.parameter_block->size()) + " bytes)" : std::string("absent")) +
             "\n";
        o += "  SSVID bytes: " + (a.ssvid_bytes ? "present (" + hex(*a.ssvid_bytes, 4) + ")" : std::string("absent")) + "\n";
        o += "  regions:\n";
        for (const RegionView &r : a.regions)
            o += "    " + hex(r.region.code(), 2) + "  " + hex(r.region.beg, 6) + "-" + hex(r.region.end, 6) + "  " +
                 join(r.carries) + region_flags(r.region) + "\n";
        for (const PortView &p : a.ports) {
            o += "  port " + p.pci + " (host" + std::to_string(p.host_no) + ")\n";
            o += "    WWNN " + p.wwnn + ", WWPN " + p.wwpn + "\n";
            o += "    NVRAM: subsystem IDs " + hex(p.ssvid, 4) + "/" + hex(p.ssdid, 4) + ", checksum " +
                 (p.nvram_checksum_ok ? "ok" : "wrong") + "\n";
            o += "    VPD: " + (p.vpd.empty() ? std::string("no fields") : join(vpd_line(p))) + ", checksum " +
                 (p.vpd_checksum_ok ? "ok" : "wrong") + "\n";
        }
    }
    return o;
}

std::string show_json(const std::vector<AdapterView> &adapters) {
    json list = json::array();
    for (const AdapterView &a : adapters) {
        json regions = json::array();
        for (const RegionView &r : a.regions)
            regions.push_back({{"code", hex(r.region.code(), 2)},
                               {"beg", r.region.beg},
                               {"size", r.region.size},
                               {"read_only", r.region.read_only()},
                               {"activated", r.region.needs_activation()},
                               {"carries", r.carries}});
        json ports = json::array();
        for (const PortView &p : a.ports) {
            json vpd = json::object();
            for (const auto &[kw, value] : p.vpd)
                if (kw != "RV" && kw != "RW") vpd[printable(kw)] = printable(value);
            ports.push_back({{"pci", p.pci},
                             {"host", p.host_no},
                             {"wwnn", p.wwnn},
                             {"wwpn", p.wwpn},
                             {"ssvid", hex(p.ssvid, 4)},
                             {"ssdid", hex(p.ssdid, 4)},
                             {"nvram_checksum_ok", p.nvram_checksum_ok},
                             {"vpd", vpd},
                             {"vpd_checksum_ok", p.vpd_checksum_ok}});
        }
        list.push_back({{"name", a.name},
                        {"chip", a.chip},
                        {"device_id", hex(a.device_id, 4)},
                        {"model", a.model},
                        {"serial", a.serial},
                        {"transport", a.transport},
                        {"driver_version", a.driver_version},
                        {"running_firmware", a.running_firmware},
                        {"flash_size", a.flash_size},
                        {"versions", versions_json(a.versions)},
                        {"bios_model", a.bios_model ? json(printable(*a.bios_model)) : json(nullptr)},
                        {"bios_hardware_type", a.bios_hardware_type ? json(printable(*a.bios_hardware_type)) : json(nullptr)},
                        {"parameter_block", a.parameter_block.has_value()},
                        {"ssvid_bytes", a.ssvid_bytes ? json(hex(*a.ssvid_bytes, 4)) : json(nullptr)},
                        {"regions", regions},
                        {"ports", ports}});
    }
    return dump(json{{"adapters", list}});
}

std::string diff_text(const std::vector<AdapterDiff> &diffs) {
    std::string o;
    if (diffs.empty()) return "no adapters\n";
    for (const AdapterDiff &d : diffs) {
        if (!d.in_b) {
            o += d.name + ": only in the first state\n";
            continue;
        }
        if (!d.in_a) {
            o += d.name + ": only in the second state\n";
            continue;
        }
        o += d.name + (d.unchanged() ? ": unchanged\n" : ": changed\n");
        if (d.unchanged()) continue;
        for (const VersionChange &v : d.versions) o += "  " + v.image + " " + v.before + " -> " + v.after + "\n";
        for (const RegionChange &r : d.regions)
            o += "  region " + hex(r.code, 2) + ": " + (r.before.empty() ? "-" : join(r.before)) + " -> " +
                 (r.after.empty() ? "-" : join(r.after)) + "\n";
        o += d.own_data_changed.empty() ? "  own data (parameter block, SSVID bytes, NVRAM, VPD): unchanged\n"
                                        : "  own data CHANGED: " + printable(join(d.own_data_changed)) + "\n";
    }
    return o;
}

std::string diff_json(const std::vector<AdapterDiff> &diffs) {
    json list = json::array();
    bool identical = true;
    for (const AdapterDiff &d : diffs) {
        identical = identical && d.unchanged();
        json versions = json::array();
        for (const VersionChange &v : d.versions)
            versions.push_back({{"image", v.image}, {"before", version_json(v.before)}, {"after", version_json(v.after)}});
        json regions = json::array();
        for (const RegionChange &r : d.regions)
            regions.push_back({{"code", hex(r.code, 2)}, {"before", r.before}, {"after", r.after}});
        list.push_back({{"name", d.name},
                        {"in_a", d.in_a},
                        {"in_b", d.in_b},
                        {"unchanged", d.unchanged()},
                        {"versions", versions},
                        {"regions", regions},
                        {"own_data_unchanged", d.in_a && d.in_b && d.own_data_changed.empty()},
                        {"own_data_changed", [&] {
                             json changed = json::array();
                             for (const std::string &c : d.own_data_changed) changed.push_back(printable(c));
                             return changed;
                         }()}});
    }
    return dump(json{{"identical", identical}, {"adapters", list}});
}

int show_main(int argc, char **argv) {
    bool as_json = false;
    std::vector<std::string> states;
    if (const int rc = parse(argc, argv, kShowHelp, 1, as_json, states); rc >= 0) return rc;
    auto views = load_state_views(states[0]);
    if (!views) {
        std::fprintf(stderr, "vxemu: show: %s\n", views.error().message.c_str());
        return kShowFailed;
    }
    const std::string out = as_json ? show_json(views.value()) : show_text(views.value());
    std::fputs(out.c_str(), stdout);
    return 0;
}

int diff_main(int argc, char **argv) {
    bool as_json = false;
    std::vector<std::string> states;
    if (const int rc = parse(argc, argv, kDiffHelp, 2, as_json, states); rc >= 0) return rc;
    std::vector<AdapterView> views[2];
    for (int i = 0; i < 2; ++i) {
        auto v = load_state_views(states[i]);
        if (!v) {
            std::fprintf(stderr, "vxemu: diff: %s\n", v.error().message.c_str());
            return kShowFailed;
        }
        views[i] = std::move(v).value();
    }
    const std::vector<AdapterDiff> diffs = diff_adapters(views[0], views[1]);
    const std::string out = as_json ? diff_json(diffs) : diff_text(diffs);
    std::fputs(out.c_str(), stdout);
    int rc = kDiffSame;
    for (const AdapterDiff &d : diffs) {
        if (!d.in_a || !d.in_b || !d.own_data_changed.empty()) return kDiffOwnDataLost;
        if (!d.unchanged()) rc = kDiffChanged;
    }
    return rc;
}

}  // namespace vxemu

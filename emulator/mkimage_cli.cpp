// SPDX-License-Identifier: MIT
// `vxemu mkimage`: writes the image files an emulated world needs (option ROM
// chains, firmware, multiboot files, NVRAM and VPD blocks).
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "chipdata.h"
#include "command_line.h"
#include "imagekit.h"

int vxemu_mkimage_main(int argc, char **argv);

namespace vxemu {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr const char *kHelp =
    "Usage: vxemu mkimage KIND --out FILE [OPTIONS]\n"
    "Build an adapter image file.\n"
    "\n"
    "Kinds and their options:\n"
    "  optrom     a chain of PCI expansion ROM images\n"
    "             --image TYPE:VERSION[:FLAG...]  one image, in chain order (repeatable);\n"
    "                        TYPE bios|fcode|efi; FLAGs: common (BIOS \"MODL\" marker),\n"
    "                        bad-checksum, no-param (no \"MEFCX \" block), no-ssvid,\n"
    "                        no-sig (no 0x55 0xAA), no-pcir (no \"PCIR\"),\n"
    "                        blocks=N (length in 512-byte units, at most 127),\n"
    "                        devid=N, vendor=N\n"
    "             --chip CHIP       take device ID, hardware type and chip code from CHIP\n"
    "                               (default FCX160)\n"
    "             --device-id N     device ID of every image\n"
    "             --hw-type TEXT    BIOS hardware type (4 characters at 0x09)\n"
    "             --chip-code N     BIOS chip code (0x14)\n"
    "             --ssvid N         BIOS subsystem vendor ID (0x20)\n"
    "             --model TEXT      BIOS model text (0x44, at most 18 characters)\n"
    "             --param-seed N    pattern of the \"MEFCX \" parameter block\n"
    "             --bad-checksum I  break the checksum of image I (0-based)\n"
    "             --size N          pad the file with 0xFF to N bytes\n"
    "  firmware   a firmware image of two checksummed segments\n"
    "             --version A.B.C   (required)\n"
    "             --family FCXnn    family text (default FCX16)\n"
    "             --words L1,L2     segment lengths in 32-bit words (default 4096,2048)\n"
    "             --tamar           add the bridge-chip marker and version word\n"
    "             --bad-checksum    make the second segment sum non-zero\n"
    "  multiboot  boot code at 0 and firmware at 0x80000 in one 1 MiB file\n"
    "             --chip CHIP       (required) chip the images are built for\n"
    "             --bios V --fcode V --efi V --firmware A.B.C   images to carry\n"
    "             --no-common       BIOS without the \"MODL\" marker (a standard image;\n"
    "                               with --size 0x20000 the whole flash of an older chip)\n"
    "             --hw-type TEXT --chip-code N   BIOS hardware type and chip code of a\n"
    "                               variant without a chip of its own (FCX123S: 123S, 0x21)\n"
    "             --model TEXT --ssvid N\n"
    "             --boot FILE       take the boot code from FILE instead\n"
    "             --firmware-file FILE   take the firmware from FILE instead\n"
    "             --size N          file size (default 0x100000)\n"
    "  nvram      an NVRAM block\n"
    "             --format basic|extended   (default extended: 512 bytes; basic: 256)\n"
    "             --ssvid N --ssdid N       subsystem IDs (variables 127, 128)\n"
    "             --wwnn W --wwpn W         world-wide names (16 hex digits)\n"
    "             --var NUM=VALUE           any other variable (repeatable)\n"
    "  vpd        a VPD block (identifier, read-only fields with \"RV\", read-write, end tag)\n"
    "             --id TEXT --pn TEXT --ec TEXT --sn TEXT\n"
    "             --field KW=TEXT   another read-only field (repeatable)\n"
    "             --rw KW=TEXT      a read-write field (repeatable)\n"
    "             --bad-checksum    store a wrong \"RV\" checksum\n"
    "             --size N          block size (default 512)\n"
    "\n"
    "Numbers are decimal or 0x hexadecimal. Exit status: 0 written, 1 failed,\n"
    "2 bad command line.\n";

struct Args {
    std::string kind;
    std::multimap<std::string, std::string> opts;
    std::string error;

    [[nodiscard]] bool has(const std::string &k) const { return opts.count(k) != 0; }
    [[nodiscard]] std::string get(const std::string &k, const std::string &def = "") const {
        auto it = opts.find(k);
        return it == opts.end() ? def : it->second;
    }
    [[nodiscard]] std::vector<std::string> all(const std::string &k) const {
        std::vector<std::string> v;
        for (auto [it, end] = opts.equal_range(k); it != end; ++it) v.push_back(it->second);
        return v;
    }
};


int usage_error(const std::string &msg) {
    std::fprintf(stderr, "vxemu mkimage: %s\nTry 'vxemu mkimage --help'.\n", msg.c_str());
    return kExitUsage;
}

int failed(const std::string &msg) {
    std::fprintf(stderr, "vxemu mkimage: %s\n", msg.c_str());
    return kExitFailed;
}

// The options of one kind on the common option parser: "--opt value" and
// "--opt=value" alike, anywhere after KIND.
std::optional<Args> parse_args(int argc, char **argv, std::string &err, const std::vector<std::string> &allowed_with_value,
                               const std::vector<std::string> &allowed_flags, bool &help) {
    std::vector<OptionSpec> specs;
    for (const std::string &n : allowed_with_value) specs.push_back({n.c_str(), 0, true});
    for (const std::string &n : allowed_flags) specs.push_back({n.c_str(), 0, false});
    specs.push_back({"help", 'h', false});
    ParsedOptions parsed;
    if (!parse_options(argc, argv, specs, parsed, err, OptionOrder::anywhere)) return std::nullopt;
    if (!parsed.operands.empty()) {
        err = "unexpected argument '" + parsed.operands[0] + "'";
        return std::nullopt;
    }
    Args a;
    for (auto &[name, value] : parsed.options) {
        if (name == "help") help = true;
        else a.opts.emplace(name, std::move(value));
    }
    return a;
}

std::optional<uint64_t> num(const Args &a, const std::string &k, uint64_t max, std::string &err) {
    const std::string v = a.get(k);
    auto n = parse_number(v);
    if (!n || *n > max) {
        err = "--" + k + ": '" + v + "' is not a number from 0 to " + std::to_string(max);
        return std::nullopt;
    }
    return n;
}

int write_out(const Args &a, const std::vector<uint8_t> &bytes) {
    const std::string path = a.get("out");
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return failed(tmp + ": cannot open for writing");
        out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.flush();
        if (!out) {
            std::remove(tmp.c_str());
            return failed(tmp + ": write error");
        }
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        return failed(path + ": cannot rename into place");
    }
    return kExitOk;
}

std::optional<std::vector<uint8_t>> read_in(const std::string &path, std::string &err) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        err = path + ": cannot open for reading";
        return std::nullopt;
    }
    std::vector<uint8_t> out((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        err = path + ": read error";
        return std::nullopt;
    }
    return out;
}

const ChipInfo *chip_arg(const Args &a, const std::string &def, std::string &err) {
    const std::string name = a.get("chip", def);
    const ChipInfo *c = find_chip(name);
    if (!c) err = "--chip: unknown chip '" + name + "'";
    return c;
}

std::optional<std::pair<uint8_t, uint8_t>> version2(const std::string &text, const std::string &what, std::string &err) {
    auto v = parse_version(text, 2);
    if (!v) {
        err = what + ": '" + text + "' is not a version MAJOR.MINOR";
        return std::nullopt;
    }
    return std::pair<uint8_t, uint8_t>((*v)[0], (*v)[1]);
}

int pad_and_write(const Args &a, std::vector<uint8_t> bytes) {
    if (a.has("size")) {
        std::string err;
        auto size = num(a, "size", 0x4000000, err);
        if (!size) return usage_error(err);
        if (*size < bytes.size())
            return failed("the image needs " + std::to_string(bytes.size()) + " bytes, more than --size " + std::to_string(*size));
        bytes.resize(*size, 0xFF);
    }
    return write_out(a, bytes);
}

int cmd_optrom(const Args &a) {
    std::string err;
    const ChipInfo *chip = chip_arg(a, "FCX160", err);
    if (!chip) return usage_error(err);
    RomImageSpec base;
    base.device_id = chip->device_id;
    base.hw_type = std::string(chip->name.substr(3, 4));
    base.chip_code = chip->bios_chip_code;
    base.param_bytes = param_block_bytes(*chip);
    base.common = false;
    if (a.has("device-id")) {
        auto v = num(a, "device-id", 0xFFFF, err);
        if (!v) return usage_error(err);
        base.device_id = static_cast<uint16_t>(*v);
    }
    if (a.has("hw-type")) base.hw_type = a.get("hw-type");
    if (a.has("chip-code")) {
        auto v = num(a, "chip-code", 0xFF, err);
        if (!v) return usage_error(err);
        base.chip_code = static_cast<uint8_t>(*v);
    }
    if (a.has("ssvid")) {
        auto v = num(a, "ssvid", 0xFFFF, err);
        if (!v) return usage_error(err);
        base.ssvid = static_cast<uint16_t>(*v);
    }
    if (a.has("model")) base.model = a.get("model");
    if (a.has("param-seed")) {
        auto v = num(a, "param-seed", 0xFF, err);
        if (!v) return usage_error(err);
        base.param_seed = static_cast<uint8_t>(*v);
    }

    std::vector<RomImageSpec> specs;
    for (const std::string &img : a.all("image")) {
        RomImageSpec s = base;
        std::vector<std::string> parts;
        size_t pos = 0;
        while (true) {
            const size_t c = img.find(':', pos);
            parts.push_back(img.substr(pos, c == std::string::npos ? std::string::npos : c - pos));
            if (c == std::string::npos) break;
            pos = c + 1;
        }
        auto type = code_type_from_name(parts[0]);
        if (!type || parts.size() < 2) return usage_error("--image '" + img + "': expected TYPE:VERSION[:FLAG...] with TYPE bios, fcode or efi");
        s.type = *type;
        auto v = version2(parts[1], "--image", err);
        if (!v) return usage_error(err);
        s.major = v->first;
        s.minor = v->second;
        for (size_t i = 2; i < parts.size(); ++i) {
            const std::string &f = parts[i];
            if (f == "common") s.common = true;
            else if (f == "bad-checksum") s.bad_checksum = true;
            else if (f == "no-param") s.param_block = false;
            else if (f == "no-ssvid") s.ssvid_label = false;
            else if (f == "no-sig") s.bad_signature = true;
            else if (f == "no-pcir") s.bad_pcir = true;
            else if (f.starts_with("blocks=") || f.starts_with("devid=") || f.starts_with("vendor=")) {
                const std::string val = f.substr(f.find('=') + 1);
                auto n = parse_number(val);
                const uint64_t max = f.starts_with("blocks=") ? 127 : 0xFFFF;
                if (!n || *n > max || (f.starts_with("blocks=") && *n == 0))
                    return usage_error("--image '" + img + "': bad value in '" + f + "'");
                if (f.starts_with("blocks=")) s.blocks = *n;
                else if (f.starts_with("devid=")) s.device_id = static_cast<uint16_t>(*n);
                else s.vendor_id = static_cast<uint16_t>(*n);
            } else {
                return usage_error("--image '" + img + "': unknown flag '" + f + "'");
            }
        }
        specs.push_back(s);
    }
    if (specs.empty()) return usage_error("optrom needs at least one --image");
    for (const std::string &idx : a.all("bad-checksum")) {
        auto n = parse_number(idx);
        if (!n || *n >= specs.size()) return usage_error("--bad-checksum: no image " + idx);
        specs[*n].bad_checksum = true;
    }
    auto rom = build_option_rom(specs);
    if (!rom) return failed(rom.error().message);
    return pad_and_write(a, std::move(rom).value());
}

int cmd_firmware(const Args &a) {
    std::string err;
    if (!a.has("version")) return usage_error("firmware needs --version A.B.C");
    auto v = parse_version(a.get("version"), 3);
    if (!v) return usage_error("--version: '" + a.get("version") + "' is not a version A.B.C");
    FirmwareSpec s;
    s.major = (*v)[0], s.minor = (*v)[1], s.sub = (*v)[2];
    s.family = a.get("family", "FCX16");
    s.tamar = a.has("tamar");
    s.bad_checksum = a.has("bad-checksum");
    if (a.has("words")) {
        const std::string w = a.get("words");
        const size_t comma = w.find(',');
        auto l1 = parse_number(w.substr(0, comma));
        auto l2 = comma == std::string::npos ? std::nullopt : parse_number(w.substr(comma + 1));
        if (!l1 || !l2 || *l1 > 0x20000 || *l2 > 0x20000) return usage_error("--words: expected L1,L2");
        s.seg1_words = static_cast<uint32_t>(*l1);
        s.seg2_words = static_cast<uint32_t>(*l2);
    }
    auto fw = build_firmware(s);
    if (!fw) return failed(fw.error().message);
    return write_out(a, fw.value());
}

int cmd_multiboot(const Args &a) {
    std::string err;
    if (!a.has("chip")) return usage_error("multiboot needs --chip");
    const ChipInfo *chip = chip_arg(a, "", err);
    if (!chip) return usage_error(err);
    std::vector<uint8_t> boot, fw;
    if (a.has("boot")) {
        if (a.has("bios") || a.has("fcode") || a.has("efi")) return usage_error("--boot cannot be combined with --bios/--fcode/--efi");
        auto b = read_in(a.get("boot"), err);
        if (!b) return failed(err);
        boot = std::move(*b);
    } else {
        BootChainSpec bc;
        for (const char *k : {"bios", "fcode", "efi"}) {
            if (!a.has(k)) continue;
            auto v = version2(a.get(k), std::string("--") + k, err);
            if (!v) return usage_error(err);
            (std::string_view(k) == "bios" ? bc.bios : std::string_view(k) == "fcode" ? bc.fcode : bc.efi) = v;
        }
        bc.common_bios = !a.has("no-common");
        if (a.has("hw-type")) {
            if (a.get("hw-type").size() > 4) return usage_error("--hw-type: at most 4 characters");
            bc.hw_type = a.get("hw-type");
        }
        if (a.has("chip-code")) {
            auto v = num(a, "chip-code", 0xFF, err);
            if (!v) return usage_error(err);
            bc.chip_code = static_cast<uint8_t>(*v);
        }
        bc.model = a.get("model", "VX" + std::string(chip->name.substr(3)));
        if (bc.model.size() > 18) return usage_error("--model: at most 18 characters");
        if (a.has("ssvid")) {
            auto v = num(a, "ssvid", 0xFFFF, err);
            if (!v) return usage_error(err);
            bc.ssvid = static_cast<uint16_t>(*v);
        }
        auto b = build_boot_chain(*chip, bc);
        if (!b) return failed(b.error().message);
        boot = std::move(b).value();
    }
    if (a.has("firmware-file")) {
        if (a.has("firmware")) return usage_error("--firmware-file cannot be combined with --firmware");
        auto f = read_in(a.get("firmware-file"), err);
        if (!f) return failed(err);
        fw = std::move(*f);
    } else if (a.has("firmware")) {
        auto v = parse_version(a.get("firmware"), 3);
        if (!v) return usage_error("--firmware: '" + a.get("firmware") + "' is not a version A.B.C");
        FirmwareSpec s;
        s.family = std::string(chip->family);
        s.major = (*v)[0], s.minor = (*v)[1], s.sub = (*v)[2];
        auto f = build_firmware(s);
        if (!f) return failed(f.error().message);
        fw = std::move(f).value();
    }
    size_t size = kMultibootSize;
    if (a.has("size")) {
        auto v = num(a, "size", 0x4000000, err);
        if (!v) return usage_error(err);
        size = *v;
    }
    auto mb = build_multiboot(boot, fw, size);
    if (!mb) return failed(mb.error().message);
    return write_out(a, mb.value());
}

int cmd_nvram(const Args &a) {
    std::string err;
    NvramSpec s;
    const std::string fmt = a.get("format", "extended");
    if (fmt == "basic") s.format = NvramFormat::basic;
    else if (fmt != "extended") return usage_error("--format: expected basic or extended");
    for (const char *k : {"ssvid", "ssdid"}) {
        if (!a.has(k)) continue;
        auto v = num(a, k, 0xFFFF, err);
        if (!v) return usage_error(err);
        (std::string_view(k) == "ssvid" ? s.ss_vendor : s.ss_device) = static_cast<uint16_t>(*v);
    }
    for (const char *k : {"wwnn", "wwpn"}) {
        if (!a.has(k)) continue;
        auto w = parse_wwn(a.get(k));
        if (!w) return usage_error(std::string("--") + k + ": expected 16 hexadecimal digits");
        (std::string_view(k) == "wwnn" ? s.wwnn : s.wwpn) = *w;
    }
    for (const std::string &kv : a.all("var")) {
        const size_t eq = kv.find('=');
        auto n = parse_number(kv.substr(0, eq));
        auto v = eq == std::string::npos ? std::nullopt : parse_number(kv.substr(eq + 1));
        if (!n || !v || *v > 0xFFFFFFFF) return usage_error("--var '" + kv + "': expected NUM=VALUE");
        s.variables.emplace_back(static_cast<unsigned>(std::min<uint64_t>(*n, 0xFFFF)), static_cast<uint32_t>(*v));
    }
    auto nv = build_nvram(s);
    if (!nv) return failed(nv.error().message);
    return write_out(a, nv.value());
}

int cmd_vpd(const Args &a) {
    std::string err;
    VpdSpec s;
    if (a.has("id")) s.identifier = a.get("id");
    for (const char *k : {"pn", "ec", "sn"}) {
        if (!a.has(k)) continue;
        std::string kw = k;
        for (char &c : kw) c = static_cast<char>(c - 'a' + 'A');
        s.read_only.emplace_back(kw, a.get(k));
    }
    auto fields = [&](const char *opt, auto &out) -> bool {
        for (const std::string &kv : a.all(opt)) {
            const size_t eq = kv.find('=');
            if (eq != 2) {
                err = std::string("--") + opt + " '" + kv + "': expected KW=TEXT with a two-character keyword";
                return false;
            }
            out.emplace_back(kv.substr(0, 2), kv.substr(3));
        }
        return true;
    };
    if (!fields("field", s.read_only) || !fields("rw", s.read_write)) return usage_error(err);
    s.bad_checksum = a.has("bad-checksum");
    if (a.has("size")) {
        auto v = num(a, "size", 0x10000, err);
        if (!v) return usage_error(err);
        s.size = *v;
    }
    auto vpd = build_vpd(s);
    if (!vpd) return failed(vpd.error().message);
    return write_out(a, vpd.value());
}

struct Kind {
    const char *name;
    int (*run)(const Args &);
    std::vector<std::string> with_value;
    std::vector<std::string> flags;
};

}  // namespace
}  // namespace vxemu

int vxemu_mkimage_main(int argc, char **argv) {
    using namespace vxemu;
    // argv[0] is "mkimage" (or whatever the caller names the sub-command).
    if (argc < 2) return usage_error("missing KIND (optrom, firmware, multiboot, nvram or vpd)");
    const std::string_view first = argv[1];
    if (first == "--help" || first == "-h" || first == "help") {
        std::fputs(kHelp, stdout);
        return kExitOk;
    }
    static const Kind kinds[] = {
        {"optrom", cmd_optrom,
         {"out", "image", "chip", "device-id", "hw-type", "chip-code", "ssvid", "model", "param-seed", "bad-checksum", "size"},
         {}},
        {"firmware", cmd_firmware, {"out", "version", "family", "words"}, {"tamar", "bad-checksum"}},
        {"multiboot", cmd_multiboot, {"out", "chip", "bios", "fcode", "efi", "firmware", "model", "ssvid", "hw-type", "chip-code", "boot", "firmware-file", "size"},
         {"no-common"}},
        {"nvram", cmd_nvram, {"out", "format", "ssvid", "ssdid", "wwnn", "wwpn", "var"}, {}},
        {"vpd", cmd_vpd, {"out", "id", "pn", "ec", "sn", "field", "rw", "size"}, {"bad-checksum"}},
    };
    for (const Kind &k : kinds) {
        if (first != k.name) continue;
        std::string err;
        bool help = false;
        auto args = parse_args(argc - 1, argv + 1, err, k.with_value, k.flags, help);
        if (!args) return usage_error(err);
        if (help) {
            std::fputs(kHelp, stdout);
            return kExitOk;
        }
        args->kind = k.name;
        if (!args->has("out") || args->get("out").empty()) return usage_error(std::string(k.name) + " needs --out FILE");
        try {
            return k.run(*args);
        } catch (const std::exception &e) {  // allocation failure and the like
            return failed(e.what());
        }
    }
    return usage_error("unknown KIND '" + std::string(first) + "'");
}

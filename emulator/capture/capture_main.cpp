// SPDX-License-Identifier: MIT
// vxemu-capture: describes the adapters of this host, as the adapter
// management library sees them, in a host description for `vxemu run`, with
// each adapter's flash, NVRAM and VPD beside it, so that an update can be
// rehearsed on a copy of the host. It only reads: every adapter is reached
// through public library calls that do not write.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <getopt.h>

#include "chip_table.h"
#include "vxhmx.h"

namespace {

using json = nlohmann::ordered_json;

constexpr int kExitUsage = 2;
constexpr int kExitFailed = 1;

constexpr uint32_t kMaxInstances = 32;
constexpr uint32_t kReadChunk = 0x10000;
// The layout's whole-flash row can be smaller than the flash (an FCX160
// keeps NVRAM and VPD above its 1 MiB row): read on in chunks until the
// adapter refuses, up to this bound.
constexpr uint32_t kMaxFlash = 16u << 20;
constexpr uint32_t kVpdBytes = 512;
constexpr uint32_t kNvramMax = 512;

constexpr const char kHelp[] =
    "Usage: vxemu capture --out DIR\n"
    "       vxemu-capture --out DIR\n"
    "\n"
    "Reads every adapter of this host through the adapter management library\n"
    "(read-only calls only) and writes into DIR, which must not exist yet or be\n"
    "empty: host.json, a host description, and per adapter NAME.flash.bin and per\n"
    "port NAME.nvram.N.bin and NAME.vpd.N.bin. Rehearse on the copy with\n"
    "  vxemu run --host DIR/host.json --state STATE -- flashwright ...\n"
    "Run it as root on the real host (not inside vxemu run, except to test it).\n"
    "What a capture cannot know is listed in vxemu-host(5).\n"
    "\n"
    "  -o, --out DIR   where to write\n"
    "  -h, --help      this help\n"
    "\n"
    "Exit status: 0 written, 1 failed, 2 bad command line.\n";

void fail(const std::string &msg) { std::fprintf(stderr, "vxemu-capture: %s\n", msg.c_str()); }

std::string status_text(uint32_t st) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "0x%X", st);
    return std::string(HmGetErrorString(st)) + " (" + buf + ")";
}

std::string hex4(uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%04X", v & 0xFFFF);
    return buf;
}

std::string wwn_text(const uint8_t *w) {
    char buf[24];
    std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
    return buf;
}

// A fixed-size text field up to its first zero, never past its end.
template <size_t N>
std::string field_text(const char (&f)[N]) {
    return std::string(f, strnlen(f, N));
}
template <size_t N>
std::string field_text(const uint8_t (&f)[N]) {
    return std::string(reinterpret_cast<const char *>(f), strnlen(reinterpret_cast<const char *>(f), N));
}

// A handle that is closed on every path.
class Device {
public:
    explicit Device(uint32_t instance) { status_ = HmOpenDevice(instance, &handle_); }
    ~Device() {
        if (status_ == 0) HmCloseDevice(handle_);
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    [[nodiscard]] uint32_t status() const { return status_; }
    [[nodiscard]] int handle() const { return handle_; }

private:
    int handle_ = 0;
    uint32_t status_ = 0;
};

struct Port {
    uint32_t instance = 0;
    DEVICENODEPROPERTY node{};
    DEVICEPORTPROPERTY port{};
    CHIPPROPERTY chip{};
    bool sysfs = false;
    std::vector<uint8_t> nvram, vpd;
    std::string pci;  // "dddd:bb:dd.f"
    unsigned function = 0;
};

struct Adapter {
    std::string name;
    std::string chip;
    std::vector<Port> ports;
    std::vector<uint8_t> flash;
};

// The port's NVRAM block, as long as the library gives it for this chip
// (256 or 512 bytes): read twice over different fillers, the block ends
// where the two reads stop agreeing.
bool read_nvram(int h, std::vector<uint8_t> &out, std::string &err) {
    std::vector<uint8_t> a(kNvramMax, 0x00), b(kNvramMax, 0xA5);
    uint32_t st = HmGetNVRam(h, 0, 0, a.data(), kNvramMax);
    if (st == 0) st = HmGetNVRam(h, 0, 0, b.data(), kNvramMax);
    if (st != 0) {
        err = "NVRAM: " + status_text(st);
        return false;
    }
    size_t len = kNvramMax;
    while (len > 0 && a[len - 1] != b[len - 1]) --len;
    len = len <= 256 ? 256 : kNvramMax;
    out.assign(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(len));
    return true;
}

bool read_vpd(int h, std::vector<uint8_t> &out, std::string &err) {
    out.assign(kVpdBytes, 0);
    uint32_t size = kVpdBytes;
    const uint32_t st = HmGetVpd(h, 0, out.data(), &size);
    if (st != 0) {
        err = "VPD: " + status_text(st);
        return false;
    }
    return true;
}

// A keyword field of a VPD block, walked within its bounds: the identifier
// string (0x82), then the read-only (0x90) and read-write (0x91) resources of
// keyword fields, up to the end tag (0x78).
std::optional<std::string> vpd_field(const std::vector<uint8_t> &v, char k0, char k1) {
    size_t pos = 0;
    while (pos < v.size() && v[pos] != 0x78) {
        const uint8_t tag = v[pos];
        if ((tag & 0x80) == 0) {  // a small resource: length in the low three bits
            pos += 1 + (tag & 7u);
            continue;
        }
        if (pos + 3 > v.size()) break;
        const size_t len = v[pos + 1] | (v[pos + 2] << 8);
        const size_t end = pos + 3 + len;
        if (end > v.size()) break;
        if (tag == 0x90 || tag == 0x91)
            for (size_t f = pos + 3; f + 3 <= end && f + 3 + v[f + 2] <= end; f += 3 + v[f + 2])
                if (v[f] == k0 && v[f + 1] == k1) {
                    std::string sn(reinterpret_cast<const char *>(&v[f + 3]), v[f + 2]);
                    sn.resize(strnlen(sn.c_str(), sn.size()));
                    return sn;
                }
        pos = end;
    }
    return std::nullopt;
}

// The whole-flash row of the layout, then, through the driver node, on past it
// while the adapter answers. Through sysfs a window past the end is a
// malformed command to the driver, so only the row is read there.
bool read_flash(int h, bool sysfs, std::vector<uint8_t> &out, std::string &err) {
    HMX_OPT_ROM_LAYOUT probe{};
    uint32_t st = HmGetOptionRomLayout(h, 0, &probe);
    if (st != 0 && st != HMX_ERR_BUFFER_TOO_SMALL) {
        err = "flash layout: " + status_text(st);
        return false;
    }
    const uint32_t rows = std::max<uint32_t>(probe.NoOfRegions, 1);
    std::vector<uint8_t> room(sizeof(HMX_OPT_ROM_LAYOUT) + rows * sizeof(HMX_OPT_ROM_REGION));
    auto *layout = reinterpret_cast<HMX_OPT_ROM_LAYOUT *>(room.data());
    layout->NoOfRegions = rows;
    st = HmGetOptionRomLayout(h, 0, layout);
    if (st != 0) {
        err = "flash layout: " + status_text(st);
        return false;
    }
    const uint32_t whole = std::min(layout->Size, kMaxFlash);
    out.clear();
    std::vector<uint8_t> chunk(kReadChunk);
    const uint32_t limit = sysfs ? whole : kMaxFlash;
    for (uint32_t off = 0; off < limit; off += kReadChunk) {
        const uint32_t len = off < whole ? std::min(kReadChunk, whole - off) : kReadChunk;
        std::fill(chunk.begin(), chunk.end(), 0xFF);
        st = HmGetOptionRomOffset(h, 0, chunk.data(), len, off);
        if (st != 0) {
            if (off < whole) {
                char at[16];
                std::snprintf(at, sizeof at, "0x%X", off);
                err = std::string("flash read at ") + at + ": " + status_text(st);
                return false;
            }
            break;  // past the end of this adapter's flash
        }
        out.insert(out.end(), chunk.begin(), chunk.begin() + len);
    }
    return true;
}

// Writes a new file (never through something already there).
bool write_new(const std::string &path, const void *data, size_t size, std::string &err) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        err = path + ": " + std::strerror(errno);
        return false;
    }
    const auto *p = static_cast<const uint8_t *>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, p + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            err = path + ": write: " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    if (::close(fd) != 0) {
        err = path + ": close: " + std::strerror(errno);
        return false;
    }
    return true;
}

// DIR is created, or must be an empty directory of ours.
bool prepare_out(const std::string &dir, std::string &err) {
    if (::mkdir(dir.c_str(), 0755) == 0) return true;
    if (errno != EEXIST) {
        err = dir + ": " + std::strerror(errno);
        return false;
    }
    struct stat st {};
    if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        err = dir + ": not a directory";
        return false;
    }
    if (st.st_uid != ::geteuid() || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        err = dir + ": refusing a directory that another user owns or can write";
        return false;
    }
    std::error_code ec;
    if (std::filesystem::directory_iterator(dir, ec) != std::filesystem::directory_iterator() || ec) {
        err = dir + ": not empty";
        return false;
    }
    return true;
}

// "8.07.03-k" -> "8.7.3.0": the driver's version numbers as its text shows them.
std::optional<std::string> driver_numbers(const std::string &text) {
    unsigned a = 0, b = 0, c = 0;
    if (std::sscanf(text.c_str(), "%u.%u.%u", &a, &b, &c) != 3 || a > 255 || b > 255 || c > 255) return std::nullopt;
    return std::to_string(a) + "." + std::to_string(b) + "." + std::to_string(c) + ".0";
}

std::optional<Port> read_port(uint32_t instance, int h, std::string &err) {
    Port p;
    p.instance = instance;
    uint32_t st = HmGetHbaDeviceNodeProperty(h, &p.node);
    if (st == 0) st = HmGetHbaDevicePortProperty(h, 0, &p.port);
    if (st == 0) st = HmGetHbaDeviceChipProperty(h, &p.chip);
    if (st != 0) {
        err = "properties: " + status_text(st);
        return std::nullopt;
    }
    // The failover version request is refused only for ports the driver
    // serves through sysfs.
    HMFO_DRIVER_VERSION fo{};
    p.sysfs = IHmFoGetFoDriverVersion(h, &fo) == HMX_ERR_NOT_SUPPORTED;
    if (!read_nvram(h, p.nvram, err) || !read_vpd(h, p.vpd, err)) return std::nullopt;
    p.function = p.chip.PciSlotNumber & 7u;
    char pci[32];
    std::snprintf(pci, sizeof pci, "%04x:%02x:%02x.%u", p.chip.DomainNr, p.chip.PciBusNumber & 0xFF,
                  (p.chip.PciSlotNumber >> 3) & 0x1F, p.function);
    p.pci = pci;
    return p;
}

json function_json(const Port &p, const std::string &adapter) {
    json f;
    f["pci"] = p.pci;
    f["vendor_id"] = hex4(p.chip.VendorID);
    f["device_id"] = hex4(p.chip.DeviceID);
    f["ssvid"] = hex4(p.chip.SubVendorID);
    f["ssdid"] = hex4(p.chip.SubSystemID);
    unsigned host = 0;
    char tail = 0;
    const std::string dev = field_text(p.port.DeviceName);
    if (std::sscanf(dev.c_str(), "host%u%c", &host, &tail) == 1) f["host"] = host;
    f["wwnn"] = wwn_text(p.node.WWN);
    f["wwpn"] = wwn_text(p.port.WWN);
    char id[16];
    std::snprintf(id, sizeof id, "0x%02x%02x%02x", p.port.PortID[0], p.port.PortID[1], p.port.PortID[2]);
    f["port_id"] = id;
    // The port record reports 3 for a port that is up, 1 for one that is down.
    f["port_state"] = p.port.PortState == 3 ? 2 : p.port.PortState == 1 ? 0 : 1;
    if (p.port.PortState == 1) f["link_state"] = "Link Down";
    f["port_type"] = p.port.PortType;
    f["connection_mode"] = p.port.ConnectionMode;
    f["speed_code"] = p.port.PortSpeed;
    f["nvram_file"] = adapter + ".nvram." + std::to_string(p.function) + ".bin";
    f["vpd_file"] = adapter + ".vpd." + std::to_string(p.function) + ".bin";
    return f;
}

int capture(const std::string &out) {
    if (::geteuid() != 0) {
        fail("needs root: the adapter management library opens the driver as root only");
        return kExitFailed;
    }
    std::string err;
    std::vector<Adapter> adapters;
    std::map<std::string, size_t> by_slot;  // "dddd:bb:dd" -> adapter
    // Every handle stays open to the end: the last close unloads the library.
    std::vector<std::unique_ptr<Device>> open;
    for (uint32_t i = 0; i < kMaxInstances; ++i) {
        open.push_back(std::make_unique<Device>(i));
        const Device &dev = *open.back();
        if (dev.status() == HMX_ERR_DEVICE_NOT_FOUND) continue;
        if (dev.status() != 0) {
            fail("adapter instance " + std::to_string(i) + ": " + status_text(dev.status()));
            return kExitFailed;
        }
        auto port = read_port(i, dev.handle(), err);
        if (!port) {
            fail("adapter instance " + std::to_string(i) + ": " + err);
            return kExitFailed;
        }
        const std::string slot = port->pci.substr(0, port->pci.rfind('.'));
        auto it = by_slot.find(slot);
        if (it == by_slot.end()) {
            Adapter a;
            a.name = "hba-" + slot;
            std::replace(a.name.begin(), a.name.end(), ':', '-');
            const ChipClass *chip = FindChipClassByDeviceId(port->chip.DeviceID);
            if (chip == nullptr) {
                fail("adapter instance " + std::to_string(i) + ": PCI device ID " + hex4(port->chip.DeviceID) +
                     " is no chip vxemu knows");
                return kExitFailed;
            }
            a.chip = std::string(chip->name);
            if (!read_flash(dev.handle(), port->sysfs, a.flash, err)) {
                fail("adapter instance " + std::to_string(i) + ": " + err);
                return kExitFailed;
            }
            it = by_slot.emplace(slot, adapters.size()).first;
            adapters.push_back(std::move(a));
        }
        Adapter &a = adapters[it->second];
        // A port the driver reports under two instances is one function.
        if (std::none_of(a.ports.begin(), a.ports.end(), [&](const Port &q) { return q.pci == port->pci; }))
            a.ports.push_back(std::move(*port));
    }
    if (adapters.empty()) {
        fail("no adapters found (is the vxa2xxx driver loaded?)");
        return kExitFailed;
    }

    if (!prepare_out(out, err)) {
        fail(err);
        return kExitFailed;
    }
    json host;
    const DEVICENODEPROPERTY &first = adapters[0].ports[0].node;
    const std::string driver_text = field_text(first.DriverVersion);
    json driver;
    driver["name"] = "vxa2xxx";
    if (auto v = driver_numbers(driver_text)) driver["version"] = *v;
    driver["version_text"] = driver_text;
    char attrs[16];
    std::snprintf(attrs, sizeof attrs, "0x%X", first.DriverAttributes);
    driver["attributes"] = attrs;
    driver["transport"] = adapters[0].ports[0].sysfs ? "sysfs" : "ioctl";
    host["driver"] = driver;
    char ostype[64] = "";
    if (FILE *f = std::fopen("/proc/sys/kernel/ostype", "re")) {
        if (std::fgets(ostype, sizeof ostype, f) == nullptr) ostype[0] = '\0';
        std::fclose(f);
    }
    ostype[strcspn(ostype, "\n")] = '\0';
    if (ostype[0] != '\0') host["ostype"] = ostype;

    json list = json::array();
    for (const Adapter &a : adapters) {
        const Port &p0 = a.ports[0];
        json j;
        j["name"] = a.name;
        j["chip"] = a.chip;
        j["transport"] = p0.sysfs ? "sysfs" : "ioctl";
        if (field_text(p0.node.DriverVersion) != driver_text) j["driver_version"] = field_text(p0.node.DriverVersion);
        // The library cuts the model to 15 characters; the VPD part number
        // of a port usually holds it whole.
        std::string model = field_text(p0.node.Model);
        for (const Port &p : a.ports)
            if (auto pn = vpd_field(p.vpd, 'P', 'N'); pn && model.size() == 15 && pn->starts_with(model)) {
                model = *pn;
                break;
            }
        j["model"] = model;
        // The adapter's own serial number is the one in its VPD; the library
        // makes one up for chips whose VPD it does not read.
        j["serial"] = vpd_field(p0.vpd, 'S', 'N').value_or(field_text(p0.node.SerialNumber));
        j["flash"] = json{{"file", a.name + ".flash.bin"}};
        json fns = json::array();
        for (const Port &p : a.ports) fns.push_back(function_json(p, a.name));
        j["functions"] = fns;
        list.push_back(j);

        if (!write_new(out + "/" + a.name + ".flash.bin", a.flash.data(), a.flash.size(), err)) {
            fail(err);
            return kExitFailed;
        }
        for (const Port &p : a.ports) {
            const std::string fn = std::to_string(p.function);
            if (!write_new(out + "/" + a.name + ".nvram." + fn + ".bin", p.nvram.data(), p.nvram.size(), err) ||
                !write_new(out + "/" + a.name + ".vpd." + fn + ".bin", p.vpd.data(), p.vpd.size(), err)) {
                fail(err);
                return kExitFailed;
            }
        }
    }
    host["adapters"] = list;
    const std::string text = host.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
    if (!write_new(out + "/host.json", text.data(), text.size(), err)) {
        fail(err);
        return kExitFailed;
    }
    size_t ports = 0;
    for (const Adapter &a : adapters) ports += a.ports.size();
    std::printf("captured %zu adapter(s), %zu port(s) into %s/host.json\n", adapters.size(), ports, out.c_str());
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    static const option kLong[] = {{"out", required_argument, nullptr, 'o'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    std::string out;
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, ":o:h", kLong, nullptr);
        if (c == -1) break;
        if (c == 'h') {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (c == 'o') {
            out = optarg;
            continue;
        }
        const std::string written = optind >= 1 && optind - 1 < argc ? argv[optind - 1] : "";
        fail(c == ':' ? "option " + written.substr(0, written.find('=')) + " needs a value"
                      : "unknown option " + written.substr(0, written.find('=')));
        std::fputs("Try 'vxemu capture --help'.\n", stderr);
        return kExitUsage;
    }
    if (optind < argc) {
        fail(std::string("unexpected argument '") + argv[optind] + "'");
        std::fputs("Try 'vxemu capture --help'.\n", stderr);
        return kExitUsage;
    }
    if (out.empty()) {
        fail("--out DIR is needed");
        std::fputs("Try 'vxemu capture --help'.\n", stderr);
        return kExitUsage;
    }
    try {
        return capture(out);
    } catch (const std::exception &e) {
        fail(e.what());
    }
    return kExitFailed;
}

// SPDX-License-Identifier: MIT
// The sysfs transport: finds the ports the maker's drivers bound on the PCI
// bus, answers the node, port, chip and driver queries from their attribute
// files, and moves flash regions, the NVRAM block and the VPD block through
// the port's "optrom_ctl"/"optrom", "nvram" and "vpd" attributes.
//
// Every routine reports its outcome as a driver completion code behind
// `status` (0 success, 1 failure, 9 attribute missing, 16 buffer too small)
// and returns 0, so the public layer converts both transports alike.
#include "vx_sysfs.h"

#include <fcntl.h>
#include <unistd.h>

extern "C" {
#include <sysfs/dlist.h>
#include <sysfs/libsysfs.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "vx_chipdata.h"
#include "vx_global_layout.h"
#include "vx_instances.h"
#include "vx_database.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_layout.h"
#include "vx_os.h"
#include "vx_vpdimage.h"

namespace {

// Erase unit of the chips whose flash is written raw; the sysfs attributes
// do not report one.
constexpr uint32_t kRawFlashSectorSize = 0x10000;

// Chips whose flash is written raw, in whole sectors (FCX160, FCX180).
bool raw_flash_chip(int api_idx) {
    return vxapi_valid_index(api_idx) && vxhmx::has_adapter_layout(api_priv_data[api_idx].device_id);
}

// Driver names in probing order: one older driver per chip generation, then
// the common one.
constexpr const char *kSupportedDrivers[] = {"vxa110", "vxa120", "vxa123", "vxa126", "vxa140", "vxa2xxx"};

constexpr const char *kLinkStates[] = {"Link Down",         "Link Up - Loop",
                                       "Link Up - F_Port",  "Link Up - FL_Port",
                                       "Link Up - N_Port to N_Port", "Unknown Link State"};
struct SpeedWord {
    const char *text;
    uint32_t gbit;
};
constexpr SpeedWord kSpeeds[] = {{"1 Gbit", 1}, {"2 Gbit", 2}, {"4 Gbit", 4}, {"8 Gbit", 8}, {"10 Gbit", 10}};

void trace(const std::string &line) { VXDBG(VXDBG_SYSFS, ("> " + line).c_str()); }
void trace_num(const std::string &line, uint64_t n) { VXDBG_NUM(VXDBG_SYSFS, ("> " + line).c_str(), n, 10); }

struct AttrCloser {
    void operator()(sysfs_attribute *a) const { sysfs_close_attribute(a); }
};
using Attr = std::unique_ptr<sysfs_attribute, AttrCloser>;

struct BusCloser {
    void operator()(sysfs_bus *b) const { sysfs_close_bus(b); }
};
struct ListCloser {
    void operator()(dlist *l) const { sysfs_close_list(l); }
};

Attr open_attr(const std::string &path) {
    if (sysfs_path_is_file(path.c_str()) != 0) return Attr();
    return Attr(sysfs_open_attribute(path.c_str()));
}

// The attribute's text without its trailing newline; false when it is
// missing or unreadable.
bool read_text(const std::string &path, std::string &out) {
    Attr a = open_attr(path);
    if (!a || sysfs_read_attribute(a.get()) != 0 || a->value == nullptr) return false;
    out.assign(a->value, a->len);
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return true;
}

std::string mount_point() {
    char mnt[SYSFS_PATH_MAX] = {};
    if (sysfs_get_mnt_path(mnt, sizeof mnt) != 0) return {};
    return mnt;
}

std::string host_dir(const std::string &mnt, uint16_t host_no) {
    return mnt + "/class/scsi_host/host" + std::to_string(host_no) + "/";
}
std::string fc_host_dir(const std::string &mnt, uint16_t host_no) {
    return mnt + "/class/fc_host/host" + std::to_string(host_no) + "/";
}
// The attribute directory of a port's flash, NVRAM and VPD files.
std::string port_dir(int api_idx) {
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    return std::string(rec.phys_path, strnlen(rec.phys_path, sizeof rec.phys_path)) + "/host" +
           std::to_string(rec.host_no) + "/";
}

// String attribute into a fixed field of `cap` bytes (always terminated;
// the field stays an empty text when the attribute is missing).
void read_string_attr(const std::string &path, char *dst, std::size_t cap) {
    if (cap == 0) return;
    dst[0] = '\0';
    std::string text;
    if (read_text(path, text)) copy_text(dst, cap, text);
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

// Hexadecimal text to bytes, two digits per byte from the left, into at
// most `n` bytes; an optional "0x" is skipped and the bytes the text does
// not reach stay as they are. Returns the bytes converted.
std::size_t vxsysfs_hex_to_bytes(std::string_view text, uint8_t *dst, std::size_t n) {
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
    std::size_t i = 0;
    for (; i < n && text.size() >= 2 * (i + 1); ++i) {
        const int hi = hex_digit(text[2 * i]), lo = hex_digit(text[2 * i + 1]);
        if (hi < 0 || lo < 0) break;
        dst[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return i;
}

// PCI address "dddd:bb:dd.f" of a bus id; false when it does not parse.
bool vxsysfs_parse_pci_address(const char *bus_id, VxPciAddress *addr) {
    unsigned short domain = 0, bus = 0, dev = 0;
    short fn = 0;
    if (std::sscanf(bus_id, "%4hx : %2hx : %2hx . %hd", &domain, &bus, &dev, &fn) != 4) return false;
    *addr = {domain, bus, dev, static_cast<uint16_t>(fn)};
    return true;
}

namespace {

bool read_hex_attr(const std::string &path, uint8_t *dst, std::size_t n) {
    std::string text;
    if (!read_text(path, text)) return false;
    vxsysfs_hex_to_bytes(text, dst, n);
    return true;
}

uint16_t read_hex16_attr(const std::string &path) {
    std::string text;
    if (!read_text(path, text)) return 0;
    return static_cast<uint16_t>(std::strtoul(text.c_str(), nullptr, 16));
}

// Unsigned decimal; a missing or unreadable attribute counts as 0.
uint32_t read_uint_attr(const std::string &path) {
    std::string text;
    if (!read_text(path, text)) return 0;
    return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

// The bus id of a port: the last component of its phys_path.
const char *bus_id_of(const vxapi_priv_db_t &rec) {
    const char *slash = std::strrchr(rec.phys_path, '/');
    return slash != nullptr ? slash + 1 : rec.phys_path;
}

}  // namespace

int vxsysfs_smallest_host(const char *device_path) {
    std::unique_ptr<dlist, ListCloser> dirs(sysfs_open_directory_list(device_path));
    if (!dirs) return -1;
    int best = -1;
    char *name = nullptr;
    dlist_for_each_data(dirs.get(), name, char) {
        if (std::strncmp(name, "host", 4) != 0) continue;
        char *end = nullptr;
        const long n = std::strtol(name + 4, &end, 10);
        if (end == name + 4 || *end != '\0' || n < 0 || n > 0xFFFF) continue;
        if (best < 0 || n < best) best = static_cast<int>(n);
    }
    return best;
}

namespace {

void fill_port(int idx, const std::string &mnt, const char *driver_path, const char *driver_name,
               sysfs_device *dev, uint16_t port_no) {
    vxapi_clear_record(idx);
    vxapi_priv_db_t &rec = api_priv_data[idx];
    rec.features = VXF_SYSFS;
    std::snprintf(rec.phys_path, sizeof rec.phys_path, "%s/%s", driver_path, dev->bus_id);
    copy_text(rec.model, sizeof rec.model, driver_name);

    const int host = vxsysfs_smallest_host(dev->path);
    if (host >= 0) {
        rec.host_no = static_cast<uint16_t>(host);
        rec.drvr_inst = port_no;
        rec.port_cnt = 1;
    }

    // A driver that knows the offset and size forms refuses the old "4".
    char probe[SYSFS_PATH_MAX + 32];
    std::snprintf(probe, sizeof probe, "%s/host%d/%s", dev->path, static_cast<int>(rec.host_no), "optrom_ctl");
    if (Attr ctl = open_attr(probe)) {
        if (sysfs_write_attribute(ctl.get(), "4", 2) != 0) rec.features |= VXF_CHUNKED_FLASH;
    }

    const std::string devdir = std::string(dev->path) + "/";
    rec.vendor_id = read_hex16_attr(devdir + "vendor");
    rec.device_id = read_hex16_attr(devdir + "device");
    rec.ssvendor_id = read_hex16_attr(devdir + "subsystem_vendor");
    rec.ssdevice_id = read_hex16_attr(devdir + "subsystem_device");

    if (vxhmx::is_fcx14x_class(rec.device_id)) {
        uint8_t vpd[vxhmx::kVpdBlockSize] = {};
        Attr a = open_attr(port_dir(idx) + "vpd");
        if (a && sysfs_read_attribute(a.get()) == 0 && a->value != nullptr) {
            const std::size_t n = std::min<std::size_t>(a->len, sizeof vpd);
            std::memcpy(vpd, a->value, n);
            vxhmx::vxvpd_serial_number(std::span<const uint8_t>(vpd, n), rec.serial_num, sizeof rec.serial_num);
        }
    } else {
        read_string_attr(host_dir(mnt, rec.host_no) + "serial_num", rec.serial_num, sizeof rec.serial_num);
    }
    const std::string fc = fc_host_dir(mnt, rec.host_no);
    read_hex_attr(fc + "node_name", rec.wwnn, sizeof rec.wwnn);
    read_hex_attr(fc + "port_name", rec.wwpn, sizeof rec.wwpn);
    // The attribute holds the 24-bit address ("0x010200"): it fills the
    // three low bytes of the identifier, as the driver's port record does.
    read_hex_attr(fc + "port_id", rec.port_id + 1, 3);
}

}  // namespace

int vxsysfs_init() { return 0; }

int vxsysfs_supported_driver_exist(const char * /*drvname*/, int *index) {
    if (index == nullptr) return 1;
    const std::string mnt = mount_point();
    if (mnt.empty()) {
        trace("sysfs not mounted");
        return 0;
    }
    std::unique_ptr<sysfs_bus, BusCloser> bus(sysfs_open_bus("pci"));
    if (!bus) return 0;
    uint16_t port_no = 0;
    for (const char *name : kSupportedDrivers) {
        sysfs_driver *drv = sysfs_get_bus_driver(bus.get(), name);  // owned by the bus
        if (drv == nullptr) continue;
        dlist *devices = sysfs_get_driver_devices(drv);  // owned by the driver
        if (devices == nullptr) continue;
        sysfs_device *dev = nullptr;
        dlist_for_each_data(devices, dev, sysfs_device) {
            if (*index >= kMaxAdapters) return 0;
            fill_port(*index, mnt, drv->path, name, dev, port_no);
            ++*index;
            ++port_no;
        }
    }
    return 0;
}

void vxsysfs_map_region(int, uint32_t region, uint32_t *offset, uint32_t *size) {
    if (offset == nullptr || size == nullptr || region == vxhmx::kRegionRawFlash) return;
    const vxhmx::INT_OPT_ROM_LAYOUT *layout = vxapi_global_layout();
    if (layout == nullptr) {
        *offset = 0;
        *size = 0;
        return;
    }
    vxhmx::vxlayout_map_region(*layout, region, *offset, *size);
}

// ---- property records --------------------------------------------------------------

int vxsysfs_query_hbanode(int, int api_idx, EXT_HBA_NODE *node, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || node == nullptr) return 0;
    const std::string mnt = mount_point();
    if (mnt.empty()) return 0;
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    const std::string host = host_dir(mnt, rec.host_no);
    std::memset(node, 0, sizeof *node);
    std::memcpy(node->WWNN, rec.wwnn, sizeof node->WWNN);
    copy_text(node->Manufacturer, sizeof node->Manufacturer, "Varnix Corporation");
    read_string_attr(host + "model_name", node->Model, sizeof node->Model);
    read_string_attr(host + "serial_num", node->SerialNum, sizeof node->SerialNum);
    read_string_attr(host + "driver_version", node->DriverVersion, sizeof node->DriverVersion);
    read_string_attr(host + "fw_version", node->FWVersion, sizeof node->FWVersion);
    read_string_attr(host + "optrom_bios_version", node->OptRomVersion, sizeof node->OptRomVersion);

    std::string text;
    uint8_t v[3] = {};
    if (read_text(host + "optrom_fcode_version", text) && std::sscanf(text.c_str(), "%hhu.%hhu", &v[0], &v[1]) == 2) {
        node->BIFCodeVersion[0] = v[0];
        node->BIFCodeVersion[1] = v[1];
        node->BIValid |= 0x4;
    }
    if (read_text(host + "optrom_efi_version", text) && std::sscanf(text.c_str(), "%hhu.%hhu", &v[0], &v[1]) == 2) {
        node->BIEfiVersion[0] = v[0];
        node->BIEfiVersion[1] = v[1];
        node->BIValid |= 0x2;
    }
    if (read_text(host + "optrom_fw_version", text) &&
        std::sscanf(text.c_str(), "%hhu.%hhu.%hhu", &v[0], &v[1], &v[2]) == 3) {
        std::memcpy(node->BIFwVersion, v, 3);
        node->BIValid |= 0x1;
    }

    node->InterfaceType = 1;
    node->PortCount = 1;
    VxPciAddress me{};
    if (vxsysfs_parse_pci_address(bus_id_of(rec), &me)) {
        for (int i = 0; i < kMaxAdapters; ++i) {
            const vxapi_priv_db_t &other = api_priv_data[i];
            if (i == api_idx || other.phys_path[0] == '\0' || !(other.features & VXF_SYSFS)) continue;
            VxPciAddress them{};
            if (vxsysfs_parse_pci_address(bus_id_of(other), &them) && them.domain == me.domain && them.bus == me.bus &&
                them.device == me.device && them.function != me.function)
                ++node->PortCount;
        }
    }
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

uint16_t vxsysfs_link_state_index(std::string_view text) {
    for (std::size_t i = 0; i < std::size(kLinkStates); ++i)
        if (text == kLinkStates[i]) return static_cast<uint16_t>(i);
    return static_cast<uint16_t>(std::size(kLinkStates) - 1);  // "Unknown Link State"
}

uint32_t vxsysfs_speed_gbit(std::string_view text) {
    for (const SpeedWord &s : kSpeeds)
        if (text == s.text) return s.gbit;
    return 0;
}

int vxsysfs_query_hbaport(int, int api_idx, EXT_HBA_PORT *port, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || port == nullptr) return 0;
    const std::string mnt = mount_point();
    if (mnt.empty()) return 0;
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    const std::string fc = fc_host_dir(mnt, rec.host_no);
    std::memset(port, 0, sizeof *port);
    std::memcpy(port->WWPN, rec.wwpn, sizeof port->WWPN);
    std::memcpy(port->Id, rec.port_id, sizeof port->Id);
    std::string text;
    // The port type is the position of the state text in the driver's list
    // of link words (0 down ... 5 unknown).
    if (read_text(fc + "state", text)) port->Type = vxsysfs_link_state_index(text);
    if (read_text(fc + "speed", text)) port->PortSpeed = vxsysfs_speed_gbit(text);
    const uint32_t state = read_uint_attr(fc + "link_state");
    const uint32_t state2 = read_uint_attr(fc + "link_state2");
    port->State = static_cast<uint16_t>(state);
    port->Mode = static_cast<uint16_t>(state2);
    port->LinkState2 = static_cast<uint16_t>(state);
    port->LinkState3 = static_cast<uint16_t>(state2);
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

int vxsysfs_query_chip(int, int api_idx, EXT_CHIP *chip, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || chip == nullptr) return 0;
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    std::memset(chip, 0, sizeof *chip);
    chip->VendorId = rec.vendor_id;
    chip->DeviceId = rec.device_id;
    chip->SubVendorId = rec.ssvendor_id;
    chip->SubSystemId = rec.ssdevice_id;
    chip->ChipType = rec.device_id;
    VxPciAddress addr{};
    if (vxsysfs_parse_pci_address(bus_id_of(rec), &addr)) {
        chip->PciBusNumber = addr.bus;
        chip->PciDevFunc = static_cast<uint16_t>(addr.device * 8 + (addr.function & 7));
        chip->PciSlotNumber = chip->PciDevFunc;
        chip->DomainNr = addr.domain;
    }
    const std::string devdir = std::string(rec.phys_path, strnlen(rec.phys_path, sizeof rec.phys_path)) + "/";
    chip->InterruptLevel = static_cast<uint16_t>(read_uint_attr(devdir + "irq"));
    // BAR 0 (I/O) and BAR 1 (memory) of the configuration space.
    if (Attr cfg = open_attr(devdir + "config"); cfg && sysfs_read_attribute(cfg.get()) == 0 && cfg->value) {
        const ByteReader r(std::span<const uint8_t>(reinterpret_cast<const uint8_t *>(cfg->value), cfg->len));
        if (auto bar0 = r.le32(0x10)) chip->IoAddr = *bar0 & ~0x3u;
        if (auto bar1 = r.le32(0x14)) chip->MemAddr = *bar1 & ~0xFu;
    }
    if (raw_flash_chip(api_idx)) chip->FlashBlockSize = kRawFlashSectorSize;
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

int vxsysfs_query_driver(int, int api_idx, EXT_DRIVER *drv, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || drv == nullptr) return 0;
    const std::string mnt = mount_point();
    if (mnt.empty()) return 0;
    const std::string host = host_dir(mnt, api_priv_data[api_idx].host_no);
    std::memset(drv, 0, sizeof *drv);
    read_string_attr(host + "driver_version", drv->Version, sizeof drv->Version);
    drv->MaxDataSegments = read_uint_attr(host + "sg_tablesize");
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

int vxsysfs_query_fw(int, int api_idx, EXT_FW *fw, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || fw == nullptr) return 0;
    const std::string mnt = mount_point();
    if (mnt.empty()) return 0;
    std::memset(fw, 0, sizeof *fw);
    read_string_attr(host_dir(mnt, api_priv_data[api_idx].host_no) + "fw_version", fw->Version, sizeof fw->Version);
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

int vxsysfs_get_driver_specifics(int, int api_idx, EXT_LN_DRIVER_DATA *data, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || data == nullptr) return 0;
    const std::string mnt = mount_point();
    std::string text;
    if (mnt.empty() || !read_text(host_dir(mnt, api_priv_data[api_idx].host_no) + "driver_version", text)) return 0;
    std::memset(data, 0, sizeof *data);
    if (std::sscanf(text.c_str(), "%hhu.%hhu.%hhu", &data->Major, &data->Minor, &data->Patch) != 3) return 0;
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

// ---- attribute transfers ---------------------------------------------------------------

std::size_t vxsysfs_read_file(const std::string &path, uint8_t *buf, std::size_t size) {
    vxos::Fd fd(vxos::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return size;
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = vxos::read(fd.get(), buf + done, std::min(page, size - done));
        if (n < 1) break;
        done += static_cast<std::size_t>(n);
    }
    return size - done;
}

std::size_t vxsysfs_write_file(const std::string &path, const uint8_t *buf, std::size_t size) {
    vxos::Fd fd(vxos::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.ok()) return size;
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = vxos::write(fd.get(), buf + done, std::min(page, size - done));
        if (n < 1) break;
        done += static_cast<std::size_t>(n);
    }
    return size - done;
}

namespace {

// Holds the flash semaphore from the first control command to the closing
// "0", so two processes never interleave commands on one control file. A
// write holds it around its read of the surrounding flash as well; a
// nested hold on the same thread shares the outermost one.
class FlashLock {
public:
    FlashLock() : id_(depth_ == 0 ? api_flash_semid : -1) {
        if (id_ >= 0) vxapi_sem_wait(id_);
        ++depth_;
    }
    ~FlashLock() {
        --depth_;
        if (id_ >= 0) vxapi_sem_signal(id_);
    }
    FlashLock(const FlashLock &) = delete;
    FlashLock &operator=(const FlashLock &) = delete;

private:
    static thread_local int depth_;
    int id_;
};
thread_local int FlashLock::depth_ = 0;

// A control command, written with its terminating zero.
bool ctl_command(const std::string &dir, const std::string &cmd) {
    Attr ctl = open_attr(dir + "optrom_ctl");
    if (!ctl) return false;
    return sysfs_write_attribute(ctl.get(), cmd.c_str(), cmd.size() + 1) == 0;
}

// Ends a flash access with "0" whatever happened: the access succeeded only
// when its steps did and the driver took the "0".
void end_access(const std::string &dir, bool ok, uint32_t *status) {
    if (!ctl_command(dir, "0")) {
        trace("Failed reset");
        ok = false;
    }
    if (ok) vxapi_set_status(status, EXT_STATUS_OK);
}

std::string window_command(char verb, uint32_t offset, uint32_t size) {
    char text[32];
    std::snprintf(text, sizeof text, "%c:%x:%x", verb, offset, size);
    return text;
}

// Both flash files exist and open as attributes; the "optrom" one is
// returned for the writability check.
Attr open_flash_files(const std::string &dir) {
    Attr ctl = open_attr(dir + "optrom_ctl");
    if (!ctl) return Attr();
    return open_attr(dir + "optrom");
}

bool chunked(int api_idx) { return (api_priv_data[api_idx].features & VXF_CHUNKED_FLASH) != 0; }

// Whole-flash transfer buffer of a driver without the partial forms: the
// whole flash, grown when a region lies past it (the FCX160 table lists
// areas beyond its 1 MiB row), so the region's bytes are always inside.
// False (nothing to transfer) for an unknown whole flash or no memory.
bool whole_flash_buffer(int api_idx, uint32_t offset, uint32_t size, std::vector<uint8_t> &whole) {
    uint32_t all_offset = 0, all_size = 0;
    vxsysfs_map_region(api_idx, HMX_OPT_ROM_REGION_ALL, &all_offset, &all_size);
    const uint64_t end = uint64_t{offset} + size;
    if (all_size == 0 || end > UINT32_MAX) {
        trace("Zero size unknown region");
        return false;
    }
    try {
        whole.assign(static_cast<std::size_t>(std::max<uint64_t>(all_size, end)), 0);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

}  // namespace

int vxsysfs_read_optrom(int, int api_idx, uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                        uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_DEV_NOT_FOUND);
    if (!vxapi_valid_index(api_idx)) return 0;
    if (buf != nullptr) std::memset(buf, 0, len);
    const std::string dir = port_dir(api_idx);
    if (!open_flash_files(dir)) return 0;
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (buf == nullptr || len == 0) return 0;

    uint32_t map_offset = offset, map_size = len;
    vxsysfs_map_region(api_idx, region, &map_offset, &map_size);
    if (map_size == 0) {
        trace("Zero size unknown region");
        return 0;
    }
    // Never more than the caller's buffer holds.
    const uint32_t want = std::min(map_size, len);

    // A driver without the partial forms only moves the whole flash ("1"):
    // a region is then cut out of a whole-flash copy.
    std::vector<uint8_t> whole;
    std::string cmd = "1";
    if (chunked(api_idx)) {
        cmd = window_command('1', map_offset, want);
    } else if (region != HMX_OPT_ROM_REGION_ALL && !whole_flash_buffer(api_idx, map_offset, want, whole)) {
        return 0;
    }

    FlashLock lock;
    bool ok = false;
    if (!ctl_command(dir, cmd)) {
        trace("failed read enable");
    } else if (!whole.empty()) {
        if (vxsysfs_read_file(dir + "optrom", whole.data(), whole.size()) != 0) {
            trace("Failed underread");
        } else {
            std::memcpy(buf, whole.data() + map_offset, want);
            ok = true;
        }
    } else if (vxsysfs_read_file(dir + "optrom", buf, want) != 0) {
        trace("Failed underread");
    } else {
        ok = true;
    }
    end_access(dir, ok, status);
    return 0;
}

int vxsysfs_update_optrom(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                          uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_DEV_NOT_FOUND);
    if (!vxapi_valid_index(api_idx)) return 0;
    const std::string dir = port_dir(api_idx);
    Attr optrom = open_flash_files(dir);
    if (!optrom) return 0;
    vxapi_set_status(status, EXT_STATUS_ERR);
    if ((optrom->method & SYSFS_METHOD_STORE) == 0) {
        trace("Failed not writeable");
        return 0;
    }
    if (buf == nullptr || len == 0) return 0;

    uint32_t map_offset = offset, map_size = len;
    vxsysfs_map_region(api_idx, region, &map_offset, &map_size);
    if (map_size == 0) {
        trace("Zero size unknown region");
        return 0;
    }
    // The caller's buffer bounds the write; a region is never written past
    // its end.
    uint32_t size = std::min(map_size, len);
    const uint8_t *data = buf;

    // From the read of the surrounding flash to the closing "0": a writer
    // of another region in between would be overwritten by the stale copy
    // this write carries back.
    FlashLock lock;

    vxhmx::SectorAligned aligned;
    if (raw_flash_chip(api_idx)) {
        EXT_CHIP chip{};
        uint32_t chip_status = EXT_STATUS_ERR;
        vxsysfs_query_chip(fd, api_idx, &chip, &chip_status);
        const uint32_t sector = vxapi_status_usable(chip_status) ? chip.FlashBlockSize : 0;
        // The bytes around the caller's data go back to the flash: a short
        // read of them is a failure.
        const auto read = [&](uint32_t at, std::span<uint8_t> into) -> uint32_t {
            uint32_t st = EXT_STATUS_ERR;
            vxsysfs_read_optrom(fd, api_idx, into.data(), static_cast<uint32_t>(into.size()), vxhmx::kRegionRawFlash,
                                at, &st);
            return st;
        };
        const uint32_t align_status =
            vxhmx::vxlayout_align_write(map_offset, std::span<const uint8_t>(data, size), sector,
                                        vxapi_global_flash_end(sector), read, aligned);
        if (align_status != EXT_STATUS_OK) {
            trace("Sector aligned failed");
            vxapi_set_status(status, align_status);
            return 0;
        }
        if (!aligned.buffer.empty()) data = aligned.buffer.data();
        map_offset = aligned.offset;
        size = aligned.size;
    }

    std::vector<uint8_t> whole;
    std::string cmd = "2";
    if (chunked(api_idx)) {
        cmd = window_command('2', map_offset, size);
    } else if (region != HMX_OPT_ROM_REGION_ALL) {
        // Read the whole flash, patch the region in, write it all back.
        if (!whole_flash_buffer(api_idx, map_offset, size, whole)) return 0;
        const auto whole_size = static_cast<uint32_t>(whole.size());
        uint32_t read_status = EXT_STATUS_ERR;
        vxsysfs_read_optrom(fd, api_idx, whole.data(), whole_size, vxhmx::kRegionRawFlash, 0, &read_status);
        if (read_status != EXT_STATUS_OK) {
            trace("Read optrom failed -- DB");
            return 0;
        }
        std::memcpy(whole.data() + map_offset, data, size);
        data = whole.data();
        size = whole_size;
    }

    bool ok = false;
    if (!ctl_command(dir, cmd)) {
        trace("failed write enable");
    } else if (vxsysfs_write_file(dir + "optrom", data, size) != 0) {
        trace("Failed underwrite");
    } else if (!ctl_command(dir, "3")) {
        trace("Failed write apply");
    } else {
        ok = true;
    }
    end_access(dir, ok, status);
    return 0;
}

namespace {

// Reads an NVRAM or VPD block attribute: 9 when missing, 1 while failing.
// Copies the whole attribute (its full length, which callers size their
// buffers for) when it is at least `want` bytes long and fits `cap`.
void get_block(int api_idx, const char *file, uint8_t *buf, uint32_t want, uint32_t cap, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_DEV_NOT_FOUND);
    if (!vxapi_valid_index(api_idx)) return;
    Attr a = open_attr(port_dir(api_idx) + file);
    if (!a) return;
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (buf == nullptr || sysfs_read_attribute(a.get()) != 0 || a->value == nullptr) return;
    trace_num("attr->len==", a->len);
    if (a->len < want) {
        trace_num(" overread=+", want - a->len);
        return;
    }
    if (a->len > cap) {
        // The whole block is copied: a buffer smaller than the block is too small.
        trace_num(" overread=+", a->len - cap);
        vxapi_set_status(status, EXT_STATUS_BUFFER_TOO_SMALL);
        return;
    }
    std::memcpy(buf, a->value, a->len);
    vxapi_set_status(status, EXT_STATUS_OK);
}

// Writes an NVRAM or VPD block: as many bytes as the attribute holds, never
// more than the caller gave. Returns the attribute's length on success.
uint32_t set_block(int api_idx, const char *file, const uint8_t *buf, uint32_t size, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_DEV_NOT_FOUND);
    if (!vxapi_valid_index(api_idx)) return 0;
    const std::string path = port_dir(api_idx) + file;
    Attr a = open_attr(path);
    if (!a) return 0;
    vxapi_set_status(status, EXT_STATUS_ERR);
    if ((a->method & SYSFS_METHOD_STORE) == 0) {
        trace("not writeable");
        return 0;
    }
    if (buf == nullptr || sysfs_read_attribute(a.get()) != 0) return 0;
    trace_num("attr->len==", a->len);
    if (a->len < size) {
        trace_num(" overwrite +", size - a->len);
        return 0;
    }
    if (size < a->len) {
        // The driver takes the block whole; a shorter caller buffer is not read past.
        trace_num(" overwrite +", a->len - size);
        return 0;
    }
    if (vxsysfs_write_file(path, buf, a->len) != 0) {
        trace("failed underwrite");
        return 0;
    }
    vxapi_set_status(status, EXT_STATUS_OK);
    return a->len;
}

}  // namespace

int vxsysfs_get_block_capped(int api_idx, bool nvram, uint8_t *buf, uint32_t want, uint32_t cap, uint32_t *status) {
    get_block(api_idx, nvram ? "nvram" : "vpd", buf, want, cap, status);
    return 0;
}

int vxsysfs_get_nvram(int, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status) {
    get_block(api_idx, "nvram", buf, len, len, status);
    return 0;
}

int vxsysfs_set_nvram(int, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status) {
    set_block(api_idx, "nvram", buf, len, status);
    return 0;
}

int vxsysfs_get_vpd(int, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status) {
    get_block(api_idx, "vpd", buf, len, len, status);
    return 0;
}

int vxsysfs_set_vpd(int, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status) {
    set_block(api_idx, "vpd", buf, len, status);
    return 0;
}

int vxsysfs_set_vpd_size(int api_idx, const uint8_t *buf, uint32_t *size, uint32_t *status) {
    if (size == nullptr) {
        vxapi_set_status(status, EXT_STATUS_ERR);
        return 0;
    }
    const uint32_t written = set_block(api_idx, "vpd", buf, *size, status);
    if (status != nullptr && *status == EXT_STATUS_OK) *size = written;
    return 0;
}

// ---- layout and requests the attributes do not carry ---------------------------------------

int vxsysfs_get_optrom_layout(int, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (!vxapi_valid_index(api_idx) || buf == nullptr) return 0;
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    vxhmx::INT_OPT_ROM_LAYOUT layout{};
    const uint32_t code = vxhmx::vxlayout_fill_fixed(rec.device_id, rec.ssvendor_id, rec.ssdevice_id, layout, len);
    if (code != EXT_STATUS_OK) {
        vxapi_set_status(status, EXT_STATUS_BUFFER_TOO_SMALL);
        return 0;
    }
    // The reply form of the layout request: little-endian words, header and
    // one entry per region, inside the caller's `len` bytes.
    std::memset(buf, 0, len);
    auto put = [&](std::size_t off, uint32_t v) {
        if (off + 4 > len) return;
        for (int i = 0; i < 4; ++i) buf[off + static_cast<std::size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
    };
    put(0, layout.Size);
    put(4, layout.NoOfRegions);
    for (uint32_t i = 0; i < layout.NoOfRegions; ++i) {
        const std::size_t off = 8 + std::size_t{i} * sizeof(vxhmx::INT_OPT_ROM_REGION);
        put(off, layout.Region[i].Region);
        put(off + 4, layout.Region[i].Size);
        put(off + 8, layout.Region[i].Beg);
        put(off + 12, layout.Region[i].End);
    }
    vxapi_set_global_layout(layout);
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

namespace {
// Requests the driver answers only through its node.
int not_served(uint32_t *status) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    errno = ENOTSUP;
    return -1;
}
}  // namespace

int vxsysfs_activate_region(int, int, uint16_t, uint32_t *s) { return not_served(s); }
int vxsysfs_get_statistics(int, int, EXT_STATISTICS *, uint32_t *s) { return not_served(s); }
int vxsysfs_get_beacon(int, int, EXT_BEACON_CONTROL *, uint32_t *s) { return not_served(s); }
int vxsysfs_set_beacon(int, int, const EXT_BEACON_CONTROL *, uint32_t *s) { return not_served(s); }
int vxsysfs_async_event_reg(int, int, const EXT_REG_AEN *, uint32_t *s) { return not_served(s); }
int vxsysfs_port_param(int, int, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_loopback_test(int, int, const uint8_t *, uint32_t, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_tamar_mgmt(int, int, uint16_t, uint8_t *, uint32_t, uint32_t *s) { return not_served(s); }
int vxsysfs_async_event_get(int, int, EXT_ASYNC_EVENT *, uint32_t, uint32_t *s, uint32_t *returned_len) {
    if (returned_len != nullptr) *returned_len = 0;
    return not_served(s);
}

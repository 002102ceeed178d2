// SPDX-License-Identifier: MIT
// The load sequence: driver node discovery, the enumeration of the driver's
// instances into the adapter table, the helper module, then the sysfs
// transport, the shared state and netlink; and its undoing.
#include "vx_load.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "vx_chipdata.h"
#include "vx_database.h"
#include "vx_discovery_rules.h"
#include "vx_dispatch.h"
#include "vx_event.h"
#include "vx_hmdbg.h"
#include "vx_instances.h"
#include "vx_netlink.h"
#include "vx_os.h"
#include "vx_sysfs.h"
#include "vx_vpdimage.h"

namespace {

constexpr uint32_t kMaxProbedInstances = 2048;
constexpr const char *kEsxNode = "/dev/char/vmkdriver/vxa2xxx";

bool text_contains(const std::string &hay, std::string_view needle) { return hay.find(needle) != std::string::npos; }

bool node_matches(const char *path, unsigned major_no, unsigned minor_no) {
    struct stat st {};
    // Never follow a link planted at the node's name; only a character
    // device with the expected number is kept.
    if (vxos::lstat(path, &st) != 0 || !S_ISCHR(st.st_mode)) return false;
    vxos::Fd fd(vxos::open(path, O_RDWR | O_NOFOLLOW));
    if (!fd.ok()) return false;
    if (vxos::fstat(fd.get(), &st) != 0) return false;
    return S_ISCHR(st.st_mode) && ::major(st.st_rdev) == major_no && ::minor(st.st_rdev) == minor_no;
}

}  // namespace

static int vxapi_get_vpd_serialnum(int fd, int idx, char *out, std::size_t out_size) {
    uint8_t vpd[vxhmx::kVpdBlockSize] = {};
    uint32_t status = 0;
    if (vxapi_get_vpd(fd, idx, vpd, sizeof vpd, &status) != 0 || !vxapi_status_usable(status)) return 1;
    // A blank field counts as none: the computed number is better than nothing.
    return vxhmx::vxvpd_serial_number(vpd, out, out_size) && out[0] != '\0' ? 0 : 1;
}

// ---- node discovery ------------------------------------------------------------

int vxapi_charnode_exist(char *path, std::size_t path_size, const char *drvname) {
    unsigned major_no = 0, minor_no = 0;
    char sys_path[160];
    std::snprintf(sys_path, sizeof sys_path, "/sys/class/%s/%s/dev", drvname, drvname);
    vxos::Fd sys(vxos::open(sys_path, O_RDONLY));
    if (sys.ok()) {
        char text[81] = {};
        const ssize_t n = vxos::read(sys.get(), text, 80);
        if (n <= 0 || !vxhmx::parse_dev_numbers(text, &major_no, &minor_no)) {
            VXDBG(VXDBG_ERR, "vxapi_charnode_exist: bad device number in sysfs for ");
            return 0;
        }
    } else {
        FILE *devices = vxos::fopen_read("/proc/devices");
        if (devices != nullptr) {
            std::string text;
            char chunk[4096];
            std::size_t n;
            while (text.size() < 65536 && (n = std::fread(chunk, 1, sizeof chunk, devices)) > 0) text.append(chunk, n);
            std::fclose(devices);
            if (!vxhmx::proc_devices_major(text, kDriverName, &major_no)) {
                VXDBG(VXDBG_ERR, (std::string("vxapi_charnode_exist: entry not found in /proc/devices for") + drvname).c_str());
                return 0;
            }
            minor_no = 0;
        } else {
            char esx_path[128];
            std::snprintf(esx_path, sizeof esx_path, "/dev/char/vmkdriver/%s", drvname);
            vxos::Fd esx(vxos::open(esx_path, O_RDONLY));
            if (esx.ok() && OS_Type == kOsTypeEsx) {
                copy_text(path, path_size, kEsxNode);
                return 1;
            }
            VXDBG(VXDBG_ERR, (std::string("vxapi_charnode_exist: visor char file not found for ") + drvname).c_str());
            return 0;
        }
    }
    if (node_matches(path, major_no, minor_no)) return 1;

    // A missing or stale node is replaced, never reused.
    vxos::unlink(path);
    const dev_t dev = ::makedev(major_no, minor_no);
    if (dev == 0) return 0;
    if (vxos::mknod(path, S_IFCHR | 0600, dev) != 0) return 0;
    vxos::Fd proof(vxos::open(path, O_RDWR | O_NOFOLLOW));
    return proof.ok() ? 1 : 0;
}

namespace {

int open_device(bool current, uint16_t drvr_inst, int api_idx, int *fd, const char *path, uint16_t *host_no,
                uint32_t *instance_count) {
    *fd = -1;
    *host_no = 0;
    if (current)
        api_priv_data[api_idx].features |= VXF_NEW_LAYOUT;
    else
        api_priv_data[api_idx].features &= ~VXF_NEW_LAYOUT;
    vxos::Fd node(vxos::open(path, O_RDWR | O_NOFOLLOW));
    if (!node.ok()) return 0;  // a skipped instance, not an error

    uint32_t status = 0, count = 0;
    if (vxapi_get_instance_count(node.get(), api_idx, &status, &count) != 0 || status != 0) return 1;
    *instance_count = count;
    if (count <= drvr_inst) return 1;  // no more adapters

    uint16_t host = 0;
    if (vxapi_set_instance(node.get(), drvr_inst, api_idx, &status, &host) != 0) return 1;
    if (status != 0) return 0;  // will not bind: skip it
    *host_no = host;
    *fd = node.release();
    return 0;
}

void record_driver_version(int fd, int idx) {
    EXT_LN_DRIVER_DATA data{};
    uint32_t status = 0;
    if (vxapi_get_driver_specifics(fd, idx, &data, &status) == 0 && status == 0) {
        api_priv_data[idx].features |= VXF_IOCTL;
    } else {
        api_priv_data[idx].features &= ~VXF_IOCTL;
        return;
    }
    if (!vxapi_driver_new_enough({data.Major, data.Minor, data.Patch, data.Beta})) return;
    // Driver-wide capabilities live in record 0 whichever port answered.
    uint32_t &features = api_priv_data[0].features;
    features = (data.Flags & kDrvFlagLargeLun) ? (features | VXF_DRV_FLAG4) : (features & ~VXF_DRV_FLAG4);
    features = (data.Flags & kDrvFlag8) ? (features | VXF_DRV_FLAG8) : (features & ~VXF_DRV_FLAG8);
}

void record_identity(int fd, int idx) {
    vxapi_priv_db_t &rec = api_priv_data[idx];
    EXT_HBA_NODE node{};
    uint32_t status = 0;
    const bool node_ok = vxapi_query_hbanode(fd, idx, &node, &status) == 0 && vxapi_status_usable(status);
    if (node_ok) {
        rec.drvr_attr = node.DriverAttr;
        std::memcpy(rec.wwnn, node.WWNN, sizeof rec.wwnn);
        rec.port_cnt = node.PortCount;
    } else {
        rec.drvr_attr = 0;
    }
    EXT_HBA_PORT port{};
    if (vxapi_query_hbaport(fd, idx, &port, &status) == 0 && vxapi_status_usable(status)) {
        std::memcpy(rec.wwpn, port.WWPN, sizeof rec.wwpn);
        std::memcpy(rec.port_id, port.Id, sizeof rec.port_id);
    }
    EXT_CHIP chip{};
    if (vxapi_query_chip(fd, idx, &chip, &status) != 0 || !vxapi_status_usable(status)) return;
    rec.vendor_id = chip.VendorId;
    rec.device_id = chip.DeviceId;
    rec.ssvendor_id = chip.SubVendorId;
    rec.ssdevice_id = chip.SubSystemId;

    const vxhmx::ChipData *data = vxhmx::find_chip_by_device_id(chip.DeviceId);
    if (data != nullptr && data->vpd_serial) {
        if (vxapi_get_vpd_serialnum(fd, idx, rec.serial_num, sizeof rec.serial_num) != 0)
            vxapi_compute_serial(rec.wwnn, 0x3F, rec.serial_num, sizeof rec.serial_num);
    } else if (node_ok && vxhmx::is_listed_oem_model(chip.SubVendorId, chip.SubSystemId)) {
        copy_text(rec.serial_num, sizeof rec.serial_num,
                  std::string_view(reinterpret_cast<const char *>(node.Reserved),
                                   strnlen(reinterpret_cast<const char *>(node.Reserved), sizeof node.Reserved)));
    } else {
        vxapi_compute_serial(rec.wwnn, 0x1F, rec.serial_num, sizeof rec.serial_num);
    }
    if (data != nullptr && data->fcx12x) rec.features |= VXF_FCX12X;
}

int find_all_instances(bool current, const char *drvname, int *index) {
    const char *who = current ? "vxapi_find_all_instances_n" : "vxapi_find_all_instances_o";
    char path[80];
    std::snprintf(path, sizeof path, "/dev/%s", drvname);
    if (vxapi_charnode_exist(path, sizeof path, drvname) == 0) {
        VXDBG(VXDBG_ERR | VXDBG_TRACE, (std::string(who) + ": not found: " + path).c_str());
        return 0;
    }
    uint32_t instance_count = kMaxProbedInstances;
    int result = 0;
    int found = 0;
    for (uint32_t inst = 0; *index < kMaxAdapters && inst < instance_count && inst <= 0xFFFF; ++inst) {
        const int idx = *index;
        int fd = -1;
        uint16_t host_no = 0;
        result = open_device(current, static_cast<uint16_t>(inst), idx, &fd, path, &host_no, &instance_count);
        if (result != 0 || fd < 0) {
            if (static_cast<uint32_t>(idx) == instance_count) break;
            vxapi_clear_record(idx);
            continue;  // the same record is tried with the next instance
        }
        vxapi_priv_db_t &rec = api_priv_data[idx];
        copy_text(rec.phys_path, sizeof rec.phys_path, path);
        copy_text(rec.model, sizeof rec.model, drvname);
        rec.drvr_inst = static_cast<uint16_t>(inst);
        rec.host_no = host_no;
        rec.oshandle = -1;
        record_driver_version(fd, idx);
        record_identity(fd, idx);
        vxos::close(fd);  // a caller's open reopens the node
        ++*index;
        ++found;
    }
    VXDBG_NUM(VXDBG_TRACE, (std::string(who) + ": found ").c_str(), found, 10);
    return found > 0 ? 0 : result;
}

}  // namespace

int vxapi_open_device_n(uint16_t drvr_inst, int api_idx, int *fd, const char *path, uint16_t *host_no,
                        uint32_t *instance_count) {
    if (!vxapi_valid_index(api_idx) || fd == nullptr || path == nullptr || host_no == nullptr ||
        instance_count == nullptr)
        return 1;
    return open_device(true, drvr_inst, api_idx, fd, path, host_no, instance_count);
}

int vxapi_open_device_o(uint16_t drvr_inst, int api_idx, int *fd, const char *path, uint16_t *host_no,
                        uint32_t *instance_count) {
    if (!vxapi_valid_index(api_idx) || fd == nullptr || path == nullptr || host_no == nullptr ||
        instance_count == nullptr)
        return 1;
    return open_device(false, drvr_inst, api_idx, fd, path, host_no, instance_count);
}

int vxapi_find_all_instances_n(const char *drvname, int *index) {
    if (drvname == nullptr || index == nullptr) return 1;
    return find_all_instances(true, drvname, index);
}

int vxapi_find_all_instances_o(const char *drvname, int *index) {
    if (drvname == nullptr || index == nullptr) return 1;
    return find_all_instances(false, drvname, index);
}

// ---- helper module and host checks ------------------------------------------------

int vxapi_check_esx() {
    char ostype[256] = {};
    vxos::Fd fd(vxos::open("/proc/sys/kernel/ostype", O_RDONLY));
    if (fd.ok()) {
        const ssize_t n = vxos::read(fd.get(), ostype, sizeof ostype - 1);
        if (n > 0 && ostype[n - 1] == '\n') ostype[n - 1] = '\0';
    }
    OS_Type = std::strcmp(ostype, "VMkernel") == 0 ? kOsTypeEsx : kOsTypeOther;
    return OS_Type;
}

int vxapi_check_linux_version() {
    return text_contains(vxos::run_shell("uname -r 2> /dev/null | cut -d - -f 1"), "2.6.9") ? 0 : 1;
}

int vxapi_check_vxioctlmod() {
    if (!text_contains(vxos::run_shell("modinfo vxioctlmod 2> /dev/null | grep -o vxioctlmod"), "vxioctlmod")) {
        VXDBG(VXDBG_ERR, "vxapi_check_vxioctlmod: No vxioctlmod for OS version");
        return 1;
    }
    const std::string vermagic = vxos::run_shell("modinfo vxioctlmod 2> /dev/null | grep vermagic | cut -d E -f 1 ");
    const std::string release = vxos::run_shell("uname -r 2> /dev/null | cut -d E -f 1");
    if (!text_contains(vermagic, release)) {
        VXDBG(VXDBG_ERR, "vxapi_check_vxioctlmod: OS Version is not Matched with vxioctlmod");
        return 1;
    }
    if (!text_contains(vxos::run_shell("lsmod 2> /dev/null | grep -o ^vxa2xxx"), "vxa2xxx")) {
        VXDBG(VXDBG_ERR, "vxapi_check_vxioctlmod: vxa2xxx module is not loaded.");
        return 1;
    }
    const std::string version = vxos::run_shell(
        "cat /proc/scsi/vxa2xxx/* 2> /dev/null | grep -m 1 Driver | cut -d , -f 2 | cut -d - -f 2");
    if (!text_contains(version, "d")) {
        VXDBG(VXDBG_ERR, "vxapi_check_vxioctlmod: Inbox driver is not loaded.");
        return 1;
    }
    if (text_contains(version, "debug")) {
        VXDBG(VXDBG_ERR, "vxapi_check_vxioctlmod: Loaded driver is standard debug.");
        return 1;
    }
    VXDBG(VXDBG_TRACE, "vxapi_check_vxioctlmod: Inbox driver is loaded.");
    return 0;
}

void vxapi_load_vxioctlmod() {
    if (vxapi_check_linux_version() != 0) return;
    const std::string lsmod = vxos::run_shell("lsmod 2> /dev/null | grep vxioctlmod");
    // Only the last line read counts (lines of up to 128 bytes).
    std::string last;
    std::size_t start = 0;
    while (start < lsmod.size()) {
        std::size_t end = lsmod.find('\n', start);
        if (end == std::string::npos) end = lsmod.size();
        last = lsmod.substr(start, std::min<std::size_t>(end - start, 127));
        start = end + 1;
    }
    if (text_contains(last, "vxioctlmod")) {
        VXDBG(VXDBG_TRACE, "vxapi_load_vxioctlmod: vxioctlmod is already loaded");
        return;
    }
    if (vxapi_check_vxioctlmod() == 0) vxos::run_shell_status("modprobe vxioctlmod");
}

// ---- load and unload ----------------------------------------------------------------

int vxapi_load_lib() {
    if (::geteuid() != 0) {
        std::fputs("libvxhmx: ERROR - libvxhmx must be loaded with root privileges.\n", stderr);
        return 1;
    }
    if (vxapi_table_empty()) {
        vxapi_clear_table();
        vxapi_check_esx();
        if (OS_Type != kOsTypeEsx) vxapi_load_vxioctlmod();
    }
    int count = vxapi_get_hba_count();
    int rc = vxapi_find_all_instances_n(kDriverName, &count);
    const bool ioctl_found = count > 0;
    if (!ioctl_found && rc == 0) {
        // Older drivers only speak the older request layout.
        rc = vxapi_find_all_instances_o("vxa2x00", &count);
        if (rc == 0 && OS_Type != kOsTypeEsx) rc = vxapi_find_all_instances_o("vxa110", &count);
        if (rc == 0 && OS_Type != kOsTypeEsx) rc = vxapi_find_all_instances_o("vxa120", &count);
    }
    if (count < kMaxAdapters) api_priv_data[count].features &= ~VXF_SYSFS;
    vxsysfs_init();
    if (count == 0) vxsysfs_supported_driver_exist(kDriverName, &count);
    if (rc != 0) return rc;

    if (!vxapi_table_empty()) {
        vxapi_database_set_event_hooks({vxapi_event_start, vxapi_event_stop, vxapi_event_clear_stop});
        int fd = -1;
        if (vxapi_open_database(&fd) != 0) {
            if (errno != ENOSYS) return 1;
            api_use_database = 0;  // no System V semaphores: run without the file
        } else {
            api_use_database = 1;
        }
    }
    if (api_priv_data[0].features & VXF_SYSFS) vxapi_open_netlink_socket();
    return 0;
}

void vxapi_unload_lib() {
    if (api_use_database) vxapi_close_database(api_shm_fildes);
    api_use_database = 0;
    vxapi_close_netlink_socket();
    for (auto &rec : api_priv_data)
        if (rec.oshandle >= 0) vxos::close(rec.oshandle);
    vxapi_clear_table();
}

// ---- caller opens and closes -----------------------------------------------------------

// SPDX-License-Identifier: MIT
// The attribute files of the driver's sysfs ports as the library reads
// them: discovery of the ports bound to the driver (IDs, host directory,
// names, serial number or VPD), the node, port, chip, driver and firmware
// queries, and the NVRAM and VPD block reads. The tree is laid out afresh
// for every input in a scratch directory that libsysfs takes for /sys.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "scratch_dir.h"
#include "vx_instances.h"
#include "vx_sysfs.h"

namespace fs = std::filesystem;

namespace {

std::string g_root;

template <size_t N>
void expect_terminated(const char (&field)[N]) {
    if (std::memchr(field, '\0', N) == nullptr) std::abort();
}

// A name for a directory entry: no slash, not "." or "..", never empty.
std::string entry_name(std::string s, const char *fallback) {
    std::erase(s, '/');
    std::erase(s, '\0');
    if (s.empty() || s == "." || s == ".." || s.size() > 60) return fallback;
    return s;
}

// Hexadecimal text of exactly 2n digits (after an optional "0x"): the
// bytes it names, which the library must take as they stand.
bool plain_hex(std::string_view t, size_t n, uint8_t *out) {
    if (t.starts_with("0x")) t.remove_prefix(2);
    if (t.size() != 2 * n) return false;
    for (size_t i = 0; i < n; ++i) {
        unsigned v = 0;
        for (int k = 0; k < 2; ++k) {
            const char c = t[2 * i + k];
            const int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
            if (d < 0) return false;
            v = v << 4 | static_cast<unsigned>(d);
        }
        out[i] = static_cast<uint8_t>(v);
    }
    return true;
}

void put(const fs::path &p, std::string_view text) {
    fs::create_directories(p.parent_path());
    fuzz::put_file(p.string(), text);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_root = fuzz::scratch_dir() + "/sys";
    ::setenv("SYSFS_PATH", g_root.c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    std::error_code ec;
    fs::remove_all(g_root, ec);

    // Two functions of one adapter: the first one's bus id and host
    // directory names come from the input.
    const std::string bus_id = entry_name(in.ConsumeRandomLengthString(24), "0000:03:00.0");
    const std::string host_a = entry_name(in.ConsumeRandomLengthString(12), "host5");
    const std::string host_b = entry_name(in.ConsumeRandomLengthString(12), "host6");
    const fs::path devices = fs::path(g_root) / "devices/pci0000:03";
    const fs::path drivers = fs::path(g_root) / "bus/pci/drivers/vxa2xxx";
    fs::create_directories(drivers);
    const char *const dev_attrs[] = {"vendor", "device", "subsystem_vendor", "subsystem_device", "irq"};
    const char *const host_attrs[] = {"model_name",          "serial_num",          "driver_version",
                                      "fw_version",          "optrom_bios_version", "optrom_fcode_version",
                                      "optrom_efi_version",  "optrom_fw_version",   "sg_tablesize"};
    const char *const fc_attrs[] = {"node_name", "port_name", "port_id", "state", "speed", "link_state", "link_state2"};
    std::vector<std::string> texts;
    for (size_t i = 0; i < std::size(dev_attrs) + std::size(host_attrs) + std::size(fc_attrs); ++i)
        texts.push_back(in.ConsumeRandomLengthString(48));

    size_t t = 0;
    for (const std::string &id : {bus_id, std::string("0000:03:00.1")}) {
        const fs::path dev = devices / id;
        fs::create_directories(dev / host_a);
        fs::create_directories(dev / host_b);
        for (const char *a : dev_attrs) put(dev / a, texts[t++]);
        t -= std::size(dev_attrs);
        fs::create_symlink(fs::path("../../../../devices/pci0000:03") / id, drivers / id, ec);
    }
    t += std::size(dev_attrs);
    // Every host number the library may settle on shares one set of class
    // attributes: it reads them by the number it parsed.
    const std::vector<uint8_t> config = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 80));
    const std::vector<uint8_t> nvram = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 600));
    const uint32_t caps[2] = {in.ConsumeIntegralInRange<uint32_t>(0, 700), in.ConsumeIntegralInRange<uint32_t>(0, 700)};
    // An attribute gives at most one page per read.
    const std::vector<uint8_t> vpd = in.ConsumeBytes<uint8_t>(4096);
    for (const std::string &id : {bus_id, std::string("0000:03:00.1")}) {
        const fs::path dev = devices / id;
        fuzz::put_file((dev / "config").string(), std::span<const uint8_t>(config));
        for (const std::string &h : {host_a, host_b}) {
            fuzz::put_file((dev / h / "optrom_ctl").string(), std::string_view());
            fuzz::put_file((dev / h / "nvram").string(), std::span<const uint8_t>(nvram));
            fuzz::put_file((dev / h / "vpd").string(), std::span<const uint8_t>(vpd));
        }
    }
    std::vector<fs::path> class_dirs;
    for (const std::string &h : {host_a, host_b}) {
        const size_t th = t;
        for (const char *a : host_attrs) put(fs::path(g_root) / "class/scsi_host" / h / a, texts[t++]);
        for (const char *a : fc_attrs) put(fs::path(g_root) / "class/fc_host" / h / a, texts[t++]);
        t = th;
    }

    vxapi_clear_table();
    int count = 0;
    if (vxsysfs_supported_driver_exist("vxa2xxx", &count) != 0 || count < 0 || count > 2) std::abort();
    for (int i = 0; i < count; ++i) {
        const vxapi_priv_db_t &rec = api_priv_data[i];
        expect_terminated(rec.phys_path);
        expect_terminated(rec.model);
        expect_terminated(rec.serial_num);
        uint8_t want[8];
        const std::string &node_name = texts[std::size(dev_attrs) + std::size(host_attrs)];
        if (rec.host_no != 0 && plain_hex(node_name, 8, want) && std::memcmp(want, rec.wwnn, 8) != 0) std::abort();

        uint32_t status = 0;
        EXT_HBA_NODE node{};
        vxsysfs_query_hbanode(-1, i, &node, &status);
        expect_terminated(node.Model);
        expect_terminated(node.SerialNum);
        expect_terminated(node.DriverVersion);
        expect_terminated(node.FWVersion);
        expect_terminated(node.OptRomVersion);
        if (status == 0 && (node.PortCount < 1 || node.PortCount > count)) std::abort();
        EXT_HBA_PORT port{};
        vxsysfs_query_hbaport(-1, i, &port, &status);
        if (status == 0 && port.Type > 5) std::abort();
        EXT_CHIP chip{};
        vxsysfs_query_chip(-1, i, &chip, &status);
        EXT_DRIVER drv{};
        vxsysfs_query_driver(-1, i, &drv, &status);
        expect_terminated(drv.Version);
        EXT_FW fw{};
        vxsysfs_query_fw(-1, i, &fw, &status);
        expect_terminated(fw.Version);
        EXT_LN_DRIVER_DATA specifics{};
        vxsysfs_get_driver_specifics(-1, i, &specifics, &status);

        // Block reads into buffers of exactly the caller's size: an
        // attribute longer than the buffer must be refused, not copied.
        for (const bool is_nvram : {true, false}) {
            const std::vector<uint8_t> &block = is_nvram ? nvram : vpd;
            const uint32_t cap = caps[is_nvram ? 0 : 1];
            std::vector<uint8_t> buf(cap);
            vxsysfs_get_block_capped(i, is_nvram, buf.data(), 1, cap, &status);
            if (status == 0 && (block.size() > cap || std::memcmp(buf.data(), block.data(), block.size()) != 0)) std::abort();
        }
    }
    vxapi_clear_table();
    return 0;
}

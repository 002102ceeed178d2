// SPDX-License-Identifier: MIT
// vxemu host model: the emulated driver, its adapters and their PCI functions,
// the flash/NVRAM/VPD bytes each adapter holds, and the faults to inject.
// The runtime (sysfs service, request service, sandbox) reads and mutates this
// model; it is loaded from a JSON host description and can be saved to and
// restored from a state directory so that a second run boots from what the
// first one wrote.
//
// Host description reference (every field optional; numbers may be JSON
// numbers or strings such as "0x1DE5"; unknown fields are an error so that a
// typo does not silently fall back to a default):
//
// {
//   "driver": {
//     "name": "vxa2xxx",              // driver name in /sys and /proc/devices
//     "version": "8.7.3.0",           // Major.Minor.Patch.Beta (request 0xFC)
//     "version_text": "8.07.03-k",    // default: "%u.%02u.%02u-k" from version
//     "flags": "0x0",                 // Flags word of request 0xFC
//     "attributes": "0x0",            // driver attribute word of the adapter-node reply
//     "transport": "ioctl"            // default transport of adapters: sysfs|ioctl|ioctl_old
//   },
//   "ostype": "Linux",                // /proc/sys/kernel/ostype
//   "etc": { "/etc/redhat-release": "Red Hat Enterprise Linux release 9.2\n" },
//   "instances": {
//     "count": 3,                     // reply of 0xFF; default: ports served by ioctl
//     "refuse_bind": [2]              // driver instances whose 0xFE bind fails
//                                     // (faults may also name "command": "0xFF" or "0xFE";
//                                     // 0xFF is addressed to no adapter, so only faults
//                                     // without "adapter" meet it)
//   },
//   "node": {
//     "dev": "1:3",                   // major:minor the driver serves (keep 1:3)
//     "stale": "1:5",                 // plant /dev/vxa2xxx with this number first
//     "open_fails": false,            // the node will not open
//     "open_errno": "ENXIO"           // errno when it will not open
//   },
//   "faults": [ {
//     "adapter": "lab160",            // limit to one adapter ("" = any)
//     "function": 0,                  // limit to one PCI function (-1 = any)
//     "command": "0x0A",              // ioctl command code ...
//     "subcode": 7,                   // ... and sub-code (absent = any)
//     "attribute": "optrom_ctl",      // or a sysfs attribute name ...
//     "operation": "write",           // ... and open|read|write|any
//     "ctl": "3",                     // optrom_ctl command text to match (absent = any)
//     "kind": "status",               // status|errno|short|stop_after|busy
//     "status": 2, "detail": 0,       // for kind status (ioctl Status/DetailStatus)
//     "errno": "EIO",                 // for kind errno (name or number)
//     "bytes": 100,                   // for short / stop_after / partial
//     "bits": 1,                      // for bitflip: bits flipped per transfer
//     "store": "nothing",             // for lie: nothing|other
//     "chance": 1.0,                  // seeded odds that a matching transfer is hit
//     "times": 1                      // how many hits; absent or -1 = always
//   } ],
//   "seed": 1,                        // seed of every random choice (vxemu run --seed)
//   "power_cut": 3,                   // the power fails during the 3rd store into a
//                                     // flash, NVRAM or VPD (vxemu run --power-cut)
//   "adapters": [ {
//     "name": "lab160",               // state directory key; default "adapterN"
//     "chip": "FCX160",               // chip name; selects device ID, layout, NVRAM format
//     "transport": "sysfs",           // default: driver.transport
//     "chunked": true,                // sysfs: accepts "1:%x:%x"/"2:%x:%x"
//     "driver_version": "8.07.03-k",  // default: driver.version_text
//     "firmware_version": "8.02.01",  // running firmware; default: from flash
//     "model": "VX2162",              // default model of every function; default "VX" + chip number
//     "serial": "VXA4200160",         // serial of every function (one adapter, one serial)
//     "flash": {                      // either a file (padded with 0xFF to the chip's flash) ...
//       "file": "lab160.bin",         // relative to the host file's directory
//       // ... or built from versions: an absent version is 1.00 / 1.0.0,
//       // null or "" leaves that image out; chips without a firmware image
//       // (128 KiB flash) refuse "firmware"
//       "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1",
//       "common_bios": true,          // BIOS carries the "MODL" common marker
//       "firmware_family": "FCX16"    // default: from the chip
//     },
//     "layout": {                     // default: the chip's own table (FCX160,
//                                     // FCX180) or its fixed table; needs a 0xFF row
//       "sector_size": "0x10000",
//       "regions": [ { "code": "0x01", "beg": "0x80000", "size": "0x80000",
//                      "read_only": false, "activate": true } ]
//     },
//     "functions": [ {                // default: one function at 0000:05:00.0
//       "pci": "0000:05:00.0",
//       "vendor_id": "0x1DE5", "device_id": "0x1600",   // default: the chip's ID
//       "ssvid": "0x1DE5", "ssdid": "0x1600",           // default: maker / device ID
//       "host": 5,                    // SCSI host number; default: the next free one from 5
//       "wwnn": "20:00:00:24:ff:00:00:01", "wwpn": "21000024ff000001",
//       "port_id": "0x010200",
//       "link_state": "Link Up - F_Port", "speed": "8 Gbit",
//       "port_state": 2, "port_type": 1, "connection_mode": 1, "speed_code": 8,
//       // two functions with the same wwnn, wwpn and port_id: one port the
//       // driver reports under two instances
//       "model": "...", "serial": "...",      // "" serial: none in the node reply, empty VPD "SN"
//       "nvram_file": "n.bin", "vpd_file": "v.bin",    // else built from the above
//       // VPD fields: PN (default model), EC (default "A01"), SN (default serial),
//       // any other two-character keyword, and "id" for the identifier string
//       "vpd": { "pn": "VX2162", "ec": "A01", "sn": "...", "v0": "..." },
//       // SCSI targets the port sees; absent: the fabric's default two
//       // (a two-LUN array and a one-LUN disk that refuses REPORT LUNS)
//       "targets": [ {
//         "wwpn": "50:06:0e:80:10:00:01:00", "wwnn": "...", "port_id": "0x010300",
//         "report_luns": false,         // REPORT LUNS ends in ILLEGAL REQUEST
//         "luns": [ {
//           "lun": 0,
//           "type": "0x00",             // first INQUIRY byte (0x7F: no unit here)
//           "blocks": 2097152, "block_size": 512,   // READ CAPACITY
//           "sense": "06:29:00"         // every command ends in CHECK CONDITION
//         } ]                           // with this key:asc:ascq
//       } ]
//     } ]
//   } ]
// }
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flash_layout.h"
#include "imagekit.h"

namespace vxemu {

// Error, Status and Result<T> come from imagekit.h.

// ---------------------------------------------------------------- model

enum class Transport : uint8_t { sysfs, ioctl, ioctl_old };
[[nodiscard]] const char *transport_name(Transport t);

// A boot image revision as the PCI data structure holds it (major in the high
// byte of the revision word).
struct BootVersion {
    bool present = false;
    uint8_t major = 0;
    uint8_t minor = 0;
    [[nodiscard]] std::string text() const;  // "%u.%02u", "" when absent
    bool operator==(const BootVersion &) const = default;
};

struct FirmwareVersion {
    bool present = false;
    uint8_t major = 0;
    uint8_t minor = 0;
    uint8_t sub = 0;
    [[nodiscard]] std::string text() const;  // "%u.%02u.%02u", "" when absent
    bool operator==(const FirmwareVersion &) const = default;
};

// What the adapter reports about the images in its flash; derived from the
// flash at start (derive_versions) and again after every flash write.
struct AdapterVersions {
    BootVersion bios;
    BootVersion fcode;
    BootVersion efi;
    FirmwareVersion firmware;  // firmware image in the firmware region
    bool operator==(const AdapterVersions &) const = default;
};

struct Driver {
    std::string name = "vxa2xxx";
    uint8_t major = 8, minor = 7, patch = 3, beta = 0;  // request 0xFC
    uint32_t flags = 0;                                 // request 0xFC Flags word
    uint32_t attributes = 0;                            // DriverAttr of the adapter-node reply
    std::string version_text;                           // e.g. "8.07.03-k"
    Transport transport = Transport::ioctl;             // default for adapters
};

// A logical unit behind a target port. LUNs not listed answer INQUIRY with
// qualifier 1 (0x20, not connected) and every other command with ILLEGAL REQUEST.
struct LogicalUnit {
    uint16_t lun = 0;
    uint8_t inquiry_type = 0;   // first INQUIRY byte: qualifier and device type
    uint64_t blocks = 1u << 21; // READ CAPACITY: 1 GiB of 512-byte blocks
    uint32_t block_size = 512;
    std::optional<std::array<uint8_t, 3>> sense;  // key, asc, ascq of a CHECK CONDITION
};

struct TargetPort {
    std::array<uint8_t, 8> wwnn{};
    std::array<uint8_t, 8> wwpn{};
    uint32_t port_id = 0;
    bool report_luns = true;  // false: REPORT LUNS ends in ILLEGAL REQUEST
    std::vector<LogicalUnit> luns;
};

// A driver event record (code and 12 bytes of payload) waiting to be fetched.
using DriverEvent = std::array<uint8_t, 16>;

// One PCI function = one adapter port.
struct PortFunction {
    std::string pci_address = "0000:05:00.0";  // "dddd:bb:dd.f"
    uint16_t vendor_id = 0x1DE5;
    uint16_t device_id = 0;
    uint16_t ss_vendor_id = 0;
    uint16_t ss_device_id = 0;
    uint32_t host_no = 5;
    std::array<uint8_t, 8> wwnn{};
    std::array<uint8_t, 8> wwpn{};
    uint32_t port_id = 0;                          // 24-bit FC address
    std::string link_state = "Link Up - F_Port";   // fc_host "state"
    std::string speed = "8 Gbit";                  // fc_host "speed"
    uint8_t port_state = 2;                        // port record state (2 = up)
    uint8_t port_type = 1;
    uint8_t connection_mode = 1;
    uint32_t speed_code = 8;
    std::string model;
    std::string serial;
    // The NVRAM and VPD blocks of this function. On chips that keep them in
    // flash (FCX160, FCX180) the flash is authoritative and these are a
    // mirror: change them only through Adapter::write_* so both stay equal.
    std::vector<uint8_t> nvram;
    std::vector<uint8_t> vpd;
    // Targets from the host description; absent: the default fabric.
    std::optional<std::vector<TargetPort>> targets;
    // Runtime: event reporting registered (ioctl ports) and the events the
    // driver holds for the next fetch.
    bool events_registered = false;
    std::deque<DriverEvent> events;

    // PCI function number (the "f" of the address), 0 if unparsable.
    [[nodiscard]] unsigned function() const;
    [[nodiscard]] unsigned domain() const;
    [[nodiscard]] unsigned bus() const;
    [[nodiscard]] unsigned device() const;
};

struct Adapter {
    std::string name;                 // key in the state directory
    std::string chip = "FCX160";      // chip name
    Transport transport = Transport::ioctl;
    bool chunked = true;              // sysfs partial optrom forms accepted
    std::string model;
    std::vector<PortFunction> functions;
    std::vector<uint8_t> flash;       // one image per adapter, shared by its functions
    // The layout the adapter reports / the library uses. layout.size is the
    // 0xFF row: 1 MiB on an FCX160 although its flash holds 2 MiB (its table
    // lists areas beyond the 0xFF row); bounds always come from flash.size().
    FlashLayout layout;
    AdapterVersions versions;         // derived from `flash`
    std::string driver_version;       // "driver_version" attribute text
    std::string firmware_version;     // running firmware text ("fw_version")
    bool firmware_version_from_flash = true;  // not fixed by the host description: follows the flash at boot

    [[nodiscard]] NvramFormat nvram_format() const;
    [[nodiscard]] size_t nvram_size() const;  // 512 (FCX14x class) or 256
    [[nodiscard]] size_t vpd_size() const { return 512; }
    // True when the NVRAM/VPD blocks live in flash regions 0x14..0x17.
    [[nodiscard]] bool blocks_in_flash() const;

    // Mutators that keep flash and per-function blocks consistent. All are
    // bounds checked: out-of-range writes fail and change nothing. A flash
    // write re-derives the versions.
    Status write_flash(size_t offset, std::span<const uint8_t> bytes);
    Status write_nvram(size_t fn_index, std::span<const uint8_t> bytes);
    Status write_vpd(size_t fn_index, std::span<const uint8_t> bytes);
    // Flash bytes [offset, offset+size) or an empty span if out of range.
    [[nodiscard]] std::span<const uint8_t> flash_range(size_t offset, size_t size) const;
};

enum class FaultKind : uint8_t {
    status,      // ioctl: reply Status (+DetailStatus); sysfs: EIO
    error,       // the call fails with errno
    short_xfer,  // the transfer moves at most `bytes` bytes
    stop_after,  // a write that dies after `bytes` bytes (the rest is lost)
    busy,        // ioctl Status 2; sysfs EBUSY
    bitflip,     // read data arrives with `bits` bits flipped (seeded places)
    lie,         // a write reports success but stores nothing, or other bytes
    partial,     // a write stores a seeded prefix and reports failure
};
enum class LieStore : uint8_t { nothing, other };
[[nodiscard]] const char *fault_kind_name(FaultKind k);

enum class FaultOp : uint8_t { any, open, read, write };

struct Fault {
    // which request
    std::string adapter;               // "" = any adapter
    int function = -1;                 // -1 = any PCI function index
    std::optional<uint8_t> command;    // ioctl command code
    std::optional<uint16_t> subcode;   // ioctl sub-code
    std::string attribute;             // sysfs attribute name
    FaultOp op = FaultOp::any;
    std::optional<std::string> ctl;    // optrom_ctl command text
    // what
    FaultKind kind = FaultKind::status;
    uint32_t status = 1;
    uint32_t detail = 0;
    int err = 5;                       // EIO
    size_t bytes = 0;
    unsigned bits = 1;                 // for bitflip
    LieStore store = LieStore::nothing;  // for lie
    double chance = 1.0;               // seeded odds that a matching transfer is hit
    // how many times: -1 = always; counted down by the runtime
    int times = -1;
};

struct InstanceBehaviour {
    std::optional<uint16_t> count;        // reply of 0xFF; default: ports served by ioctl
    std::vector<uint16_t> refuse_bind;    // driver instances whose 0xFE bind fails
};

struct NodeBehaviour {
    uint32_t major = 1, minor = 3;        // served char device (harmless 1:3)
    std::optional<std::pair<uint32_t, uint32_t>> stale;  // plant this first, e.g. 1:5
    bool open_fails = false;
    int open_errno = 6;                   // ENXIO
};

struct Host {
    Driver driver;
    std::vector<Adapter> adapters;
    std::string ostype = "Linux";
    std::map<std::string, std::string> etc_files;  // absolute path under /etc -> content
    InstanceBehaviour instances;
    NodeBehaviour node;
    std::vector<Fault> faults;
    uint64_t seed = 0;                     // drives every seeded choice of the faults
    std::optional<uint64_t> power_cut;     // the store the power fails during (1 = first)
    std::string description;  // the JSON text the host was read from

    // Ports the driver serves through ioctl (transport ioctl or ioctl_old).
    [[nodiscard]] size_t ioctl_port_count() const;
    // Reply of request 0xFF.
    [[nodiscard]] uint16_t instance_count() const;
    // Whether the driver registers its management character device (class
    // "dev" file, /proc/devices line): a driver that serves all its adapters
    // through sysfs has none.
    [[nodiscard]] bool registers_char_device() const;
};

// ---------------------------------------------------------------- loading

// How the image files a description names (flash "file", "nvram_file",
// "vpd_file") are treated: required, or, for a description kept in a state
// directory whose adapter files replace them anyway, left out when they cannot
// be read (they were relative to a directory the state does not record).
enum class HostFiles : uint8_t { required, from_state };

// Parses a host description. `origin` names the source in error messages.
// Errors name the file and the JSON field ("host.json: adapters[1].chip: ...").
[[nodiscard]] Result<Host> parse_host_json(std::string_view text, const std::filesystem::path &origin,
                                           HostFiles files = HostFiles::required);
// Reads and parses a host file; relative image paths resolve against its directory.
[[nodiscard]] Result<Host> load_host_file(const std::filesystem::path &path);
// The built-in lab host (examples/lab/host.json, embedded at build time).
[[nodiscard]] Result<Host> builtin_host();

// If `dir` holds adapter files from an earlier run (DIR/adapters/<name>/
// flash.bin, nvram.<fn>.bin, vpd.<fn>.bin), they replace the initial contents
// of the adapters of that name; versions are derived again. A missing
// directory or missing files are not an error; a file of the wrong size is,
// and then nothing is applied. On chips that keep NVRAM/VPD in flash
// (FCX160, FCX180) flash.bin is authoritative and the block files, written
// only as a convenience copy, are not read back.
[[nodiscard]] Status load_state(Host &host, const std::filesystem::path &dir);
// Writes every adapter's flash, NVRAM and VPD under `dir` (created as needed);
// each file goes to a temporary name first and is renamed into place.
[[nodiscard]] Status save_state(const Host &host, const std::filesystem::path &dir);

// Walks the option ROM chain in the boot-code area for the BIOS/FCode/EFI
// revisions (the first image of each code type; data images with device ID
// 1..3 are skipped) and reads the firmware version (big-endian words 4, 5, 6)
// of the image in the firmware region (region 0x01, else 0x80000 on chips
// whose multiboot flash carries firmware). An image that is missing, broken
// or fails its segment checksums reports no version.
void derive_versions(Adapter &adapter);

}  // namespace vxemu

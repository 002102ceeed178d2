// SPDX-License-Identifier: MIT
// What an emulated adapter holds, read back from its bytes the way its driver
// and a flash tool see them: the versions the driver reports, what each flash
// region carries, the identity patched into the BIOS image, the adapter's own
// data (parameter block, "SSVID" bytes, NVRAM, VPD) and the comparison of two
// such views. Used by `vxemu show` and `vxemu diff`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host_model.h"

namespace vxemu {

struct RegionView {
    FlashRegion region;
    // What it carries: "BIOS 1.10", "firmware 8.02.01", "NVRAM", "VPD",
    // "erased" or "data" (in that order of precedence).
    std::vector<std::string> carries;
    std::vector<uint8_t> bytes;  // the region's flash bytes (clipped to the flash)
};

struct PortView {
    std::string pci;
    uint32_t host_no = 0;
    std::string wwnn, wwpn;  // "20:00:00:1d:e5:16:00:00"
    uint16_t ssvid = 0, ssdid = 0;  // NVRAM variables 127, 128
    bool nvram_checksum_ok = false;
    std::vector<std::pair<std::string, std::string>> vpd;  // fields in block order
    bool vpd_checksum_ok = false;
    std::vector<uint8_t> nvram_bytes, vpd_bytes;
};

struct AdapterView {
    std::string name, chip, model, serial, transport;
    uint16_t device_id = 0;
    uint32_t flash_size = 0;
    AdapterVersions versions;        // as the driver reports them
    std::string running_firmware;    // the driver's "fw_version"
    std::string driver_version;
    // From the first BIOS image of the boot code, when there is one.
    std::optional<std::string> bios_model;          // 0x44, up to the blank
    std::optional<std::string> bios_hardware_type;  // 0x09, four characters
    std::optional<std::vector<uint8_t>> parameter_block;  // after "MEFCX "
    std::optional<uint16_t> ssvid_bytes;                  // after "SSVID"
    std::vector<RegionView> regions;  // the layout's rows, the whole-flash row left out
    std::vector<PortView> ports;
};

[[nodiscard]] AdapterView view_adapter(const Adapter &a);

// "1.10"; "-" when the image is not there.
[[nodiscard]] std::string version_text(const BootVersion &v);
[[nodiscard]] std::string version_text(const FirmwareVersion &v);

struct VersionChange {
    std::string image;  // "BIOS", "FCode", "EFI", "firmware"
    std::string before, after;
};

struct RegionChange {
    uint32_t code = 0;
    std::vector<std::string> before, after;  // what it carries
};

struct AdapterDiff {
    std::string name;
    bool in_a = true, in_b = true;
    std::vector<VersionChange> versions;
    std::vector<RegionChange> regions;  // regions whose bytes differ
    std::vector<std::string> own_data_changed;  // "parameter block", "NVRAM of 0000:05:00.0", ...
    [[nodiscard]] bool unchanged() const {
        return in_a && in_b && versions.empty() && regions.empty() && own_data_changed.empty();
    }
};

// Adapters are matched by name, in A's order, then those only in B.
[[nodiscard]] std::vector<AdapterDiff> diff_adapters(const std::vector<AdapterView> &a, const std::vector<AdapterView> &b);

}  // namespace vxemu

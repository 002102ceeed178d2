// SPDX-License-Identifier: MIT
#include "adapter_view.h"

#include <algorithm>
#include <cstdio>

namespace vxemu {

namespace {

// The flash tool looks for the parameter block this far into the boot code.
constexpr size_t kParamSearchPositions = 0x1FFFA;

std::string wwn_text(const std::array<uint8_t, 8> &w) {
    char buf[3 * 8];
    for (size_t i = 0; i < w.size(); ++i) std::snprintf(buf + 3 * i, 4, i + 1 < w.size() ? "%02x:" : "%02x", w[i]);
    return buf;
}

std::span<const uint8_t> clipped(const std::vector<uint8_t> &flash, size_t beg, size_t size) {
    if (beg >= flash.size()) return {};
    return std::span<const uint8_t>(flash).subspan(beg, std::min(size, flash.size() - beg));
}

std::string code_type_name(uint8_t raw) {
    switch (raw) {
    case 0: return "BIOS";
    case 1: return "FCode";
    case 3: return "EFI";
    default: {
        char buf[24];
        std::snprintf(buf, sizeof buf, "image type %u", raw);
        return buf;
    }
    }
}

std::optional<std::string> firmware_at(std::span<const uint8_t> b) {
    auto fw = inspect_firmware(b);
    if (!fw || !fw->valid()) return std::nullopt;
    return "firmware " + FirmwareVersion{true, fw->major, fw->minor, fw->sub}.text();
}

std::vector<std::string> region_carries(const Adapter &a, const FlashRegion &r, std::span<const uint8_t> bytes) {
    const uint32_t code = r.code();
    if (code == kRegionNvram0 || code == kRegionNvram1) return {"NVRAM"};
    if (code == kRegionVpd0 || code == kRegionVpd1) return {"VPD"};
    std::vector<std::string> out;
    for (const RomImageInfo &img : walk_option_rom(bytes)) {
        // Device IDs 1..3 mark data images carried in the chain.
        if (img.device_id >= 1 && img.device_id <= 3) continue;
        out.push_back(code_type_name(img.raw_type) + " " + BootVersion{true, img.major, img.minor}.text());
    }
    if (auto fw = firmware_at(bytes)) out.push_back(*fw);
    // A multiboot region: boot code first, firmware at its usual offset.
    const ChipInfo *chip = find_chip(a.chip);
    if (out.size() == 0 || !out.back().starts_with("firmware"))
        if (chip && chip->has_firmware && bytes.size() > kMultibootFirmwareOffset)
            if (auto fw = firmware_at(bytes.subspan(kMultibootFirmwareOffset))) out.push_back(*fw);
    if (!out.empty()) return out;
    if (std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0xFF; })) return {"erased"};
    return {"data"};
}

// The first image of the boot code when it is an x86 BIOS image.
std::optional<size_t> bios_image(const Adapter &a) {
    const auto boot = a.layout.find(kRegionBootCode);
    const size_t at = boot ? boot->beg : 0;
    const auto images = walk_option_rom(a.flash, at, 1);
    if (images.empty() || images[0].raw_type != 0) return std::nullopt;
    return images[0].offset;
}

std::string text_field(std::span<const uint8_t> b, size_t off, size_t max, bool stop_at_blank) {
    std::string s;
    for (size_t i = off; i < b.size() && i < off + max; ++i) {
        if (b[i] == 0 || (stop_at_blank && b[i] == ' ')) break;
        s += b[i] >= 0x20 && b[i] < 0x7F ? static_cast<char>(b[i]) : '?';
    }
    return s;
}

}  // namespace

std::string version_text(const BootVersion &v) { return v.present ? v.text() : "-"; }
std::string version_text(const FirmwareVersion &v) { return v.present ? v.text() : "-"; }

AdapterView view_adapter(const Adapter &a) {
    AdapterView v;
    v.name = a.name;
    v.chip = a.chip;
    v.model = a.model;
    v.serial = a.functions.empty() ? "" : a.functions[0].serial;
    v.transport = transport_name(a.transport);
    v.device_id = a.functions.empty() ? 0 : a.functions[0].device_id;
    v.flash_size = static_cast<uint32_t>(a.flash.size());
    v.versions = a.versions;
    v.running_firmware = a.firmware_version;
    v.driver_version = a.driver_version;

    const ByteView flash(a.flash);
    if (auto bios = bios_image(a)) {
        v.bios_model = text_field(a.flash, *bios + kBiosModel, 18, true);
        v.bios_hardware_type = text_field(a.flash, *bios + kBiosHwType, 4, false);
        if (flash.matches(*bios + kBiosSsvidLabel, "SSVID"))
            if (auto id = flash.le16(*bios + kBiosSsvid)) v.ssvid_bytes = *id;
    }
    // The block the flash tool keeps across an update: its length by chip,
    // starting two bytes into the marker.
    const auto boot = a.layout.find(kRegionBootCode);
    const size_t boot_at = boot ? boot->beg : 0;
    if (boot_at < a.flash.size())
        if (auto m = find_text(a.flash, "MEFCX ", boot_at, kParamSearchPositions)) {
            const ChipInfo *chip = find_chip(a.chip);
            const size_t len = chip ? param_block_bytes(*chip) : kParamBlockBytes;
            const auto block = clipped(a.flash, *m + 2, len);
            v.parameter_block.emplace(block.begin(), block.end());
        }

    for (const FlashRegion &r : a.layout.regions) {
        if (r.code() == kRegionAll) continue;
        const auto bytes = clipped(a.flash, r.beg, r.size);
        v.regions.push_back(RegionView{r, region_carries(a, r, bytes), {bytes.begin(), bytes.end()}});
    }

    const NvramFormat fmt = a.nvram_format();
    for (const PortFunction &pf : a.functions) {
        PortView p;
        p.pci = pf.pci_address;
        p.host_no = pf.host_no;
        p.wwnn = wwn_text(pf.wwnn);
        p.wwpn = wwn_text(pf.wwpn);
        p.ssvid = static_cast<uint16_t>(nvram_get(pf.nvram, fmt, kNvVarSsVendor));
        p.ssdid = static_cast<uint16_t>(nvram_get(pf.nvram, fmt, kNvVarSsDevice));
        p.nvram_checksum_ok = nvram_checksum_ok(pf.nvram, fmt);
        p.vpd = vpd_fields(pf.vpd);
        p.vpd_checksum_ok = vpd_checksum_ok(pf.vpd);
        p.nvram_bytes = pf.nvram;
        p.vpd_bytes = pf.vpd;
        v.ports.push_back(std::move(p));
    }
    return v;
}

namespace {

void diff_versions(const AdapterVersions &a, const AdapterVersions &b, std::vector<VersionChange> &out) {
    auto boot = [&](const char *name, const BootVersion &x, const BootVersion &y) {
        if (!(x == y)) out.push_back({name, version_text(x), version_text(y)});
    };
    boot("BIOS", a.bios, b.bios);
    boot("FCode", a.fcode, b.fcode);
    boot("EFI", a.efi, b.efi);
    if (!(a.firmware == b.firmware)) out.push_back({"firmware", version_text(a.firmware), version_text(b.firmware)});
}

AdapterDiff diff_one(const AdapterView &a, const AdapterView &b) {
    AdapterDiff d;
    d.name = a.name;
    diff_versions(a.versions, b.versions, d.versions);
    for (const RegionView &ra : a.regions) {
        auto rb = std::find_if(b.regions.begin(), b.regions.end(), [&](const RegionView &r) { return r.region == ra.region; });
        if (rb == b.regions.end()) {
            d.regions.push_back({ra.region.code(), ra.carries, {}});
        } else if (ra.bytes != rb->bytes) {
            d.regions.push_back({ra.region.code(), ra.carries, rb->carries});
        }
    }
    for (const RegionView &rb : b.regions)
        if (std::none_of(a.regions.begin(), a.regions.end(), [&](const RegionView &r) { return r.region == rb.region; }))
            d.regions.push_back({rb.region.code(), {}, rb.carries});

    if (a.parameter_block != b.parameter_block) d.own_data_changed.emplace_back("parameter block");
    if (a.ssvid_bytes != b.ssvid_bytes) d.own_data_changed.emplace_back("SSVID bytes");
    for (const PortView &pa : a.ports) {
        auto pb = std::find_if(b.ports.begin(), b.ports.end(), [&](const PortView &p) { return p.pci == pa.pci; });
        if (pb == b.ports.end()) {
            d.own_data_changed.push_back("port " + pa.pci + " (gone)");
            continue;
        }
        if (pa.nvram_bytes != pb->nvram_bytes) d.own_data_changed.push_back("NVRAM of " + pa.pci);
        if (pa.vpd_bytes != pb->vpd_bytes) {
            // Name the fields that changed: an update may be meant to change some.
            std::vector<std::string> fields;
            for (const auto &[kw, value] : pa.vpd) {
                auto other = std::find_if(pb->vpd.begin(), pb->vpd.end(), [&](const auto &f) { return f.first == kw; });
                if (kw != "RV" && (other == pb->vpd.end() || other->second != value)) fields.push_back(kw);
            }
            for (const auto &[kw, value] : pb->vpd)
                if (std::none_of(pa.vpd.begin(), pa.vpd.end(), [&](const auto &f) { return f.first == kw; })) fields.push_back(kw);
            std::string what = "VPD of " + pa.pci;
            for (size_t i = 0; i < fields.size(); ++i) what += (i == 0 ? " (" : ", ") + fields[i];
            d.own_data_changed.push_back(what + (fields.empty() ? "" : ")"));
        }
    }
    for (const PortView &pb : b.ports)
        if (std::none_of(a.ports.begin(), a.ports.end(), [&](const PortView &p) { return p.pci == pb.pci; }))
            d.own_data_changed.push_back("port " + pb.pci + " (new)");
    return d;
}

}  // namespace

std::vector<AdapterDiff> diff_adapters(const std::vector<AdapterView> &a, const std::vector<AdapterView> &b) {
    std::vector<AdapterDiff> out;
    for (const AdapterView &x : a) {
        auto y = std::find_if(b.begin(), b.end(), [&](const AdapterView &v) { return v.name == x.name; });
        if (y == b.end()) {
            AdapterDiff d;
            d.name = x.name;
            d.in_b = false;
            out.push_back(std::move(d));
        } else {
            out.push_back(diff_one(x, *y));
        }
    }
    for (const AdapterView &y : b)
        if (std::none_of(a.begin(), a.end(), [&](const AdapterView &v) { return v.name == y.name; })) {
            AdapterDiff d;
            d.name = y.name;
            d.in_a = false;
            out.push_back(std::move(d));
        }
    return out;
}

}  // namespace vxemu

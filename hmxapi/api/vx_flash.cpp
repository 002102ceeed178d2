// SPDX-License-Identifier: MIT
// Public flash, NVRAM and VPD calls: the layout query, region reads and
// writes (with the adapter's own data kept across boot code writes and the
// activation of FCX180 regions), offset access and the NVRAM and VPD blocks.
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "vx_chipdata.h"
#include "vx_dispatch.h"
#include "vx_flash_layout.h"
#include "vx_global_layout.h"
#include "vx_instances.h"
#include "vx_load.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_hmnvr.h"
#include "vx_preserve.h"
#include "vx_public.h"
#include "vx_sysfs.h"
#include "vx_vpdimage.h"
#include "vxhmx.h"

namespace {

using namespace vxhmx::chipid;

constexpr uint32_t kWholeImageMinimum = 0x20000;
constexpr auto kVpdBlock = static_cast<uint32_t>(vxhmx::kVpdBlockSize);

// ---- NVRAM and VPD blocks -------------------------------------------------------------

enum class Block { Nvram, Vpd };

// Most bytes one block transfer moves: the chip's NVRAM block or the VPD block.
uint32_t block_size(const Port &port, Block b) {
    return b == Block::Nvram ? static_cast<uint32_t>(vxhmx::vxhmnvr_block_size(port.device_id)) : kVpdBlock;
}

// The FCX180 keeps both blocks of each PCI function in flash: NVRAM in
// region 0x15 (even function) or 0x17 (odd), VPD in 0x14 or 0x16. False
// when the chip query giving the function fails.
bool flash_block_region(const Port &port, Block b, uint32_t &region) {
    EXT_CHIP chip{};
    uint32_t st = 0;
    if (vxapi_query_chip(port.fd, port.idx, &chip, &st) != 0 || !vxapi_status_usable(st)) return false;
    const bool odd = (chip.PciDevFunc & 1u) != 0;
    region = b == Block::Nvram ? (odd ? 0x17 : 0x15) : (odd ? 0x16 : 0x14);
    return true;
}

uint32_t read_block(const Port &port, Block b, uint8_t *buf, uint32_t cap) {
    if (buf == nullptr || cap == 0) return HMX_ERR_INVALID_PARAMETER;
    const uint32_t size = std::min(cap, block_size(port, b));
    uint32_t st = 0, detail = 0;
    int rc = 0;
    if (port.device_id == FCX180) {
        uint32_t region = 0;
        if (!flash_block_region(port, b, region)) return HMX_ERR_UNKNOWN;
        rc = vxapi_read_optrom(port.fd, port.idx, buf, size, region, 0, &st, &detail);
    } else if (port.sysfs) {
        rc = vxsysfs_get_block_capped(port.idx, b == Block::Nvram, buf, size, cap, &st);
    } else {
        rc = b == Block::Nvram ? vxapi_get_nvram(port.fd, port.idx, buf, size, &st, &detail)
                               : vxapi_get_vpd(port.fd, port.idx, buf, size, &st, &detail);
    }
    return vxflash_status(rc, st, detail);
}

uint32_t write_block(const Port &port, Block b, const uint8_t *buf, uint32_t *size_io) {
    if (buf == nullptr || size_io == nullptr || *size_io == 0) return HMX_ERR_INVALID_PARAMETER;
    const uint32_t size = std::min(*size_io, block_size(port, b));
    uint32_t st = 0, detail = 0;
    int rc = 0;
    if (port.device_id == FCX180) {
        uint32_t region = 0;
        if (!flash_block_region(port, b, region)) return HMX_ERR_UNKNOWN;
        rc = vxapi_update_optrom(port.fd, port.idx, buf, size, region, 0, &st, &detail);
    } else if (port.sysfs) {
        // The attribute decides: an image larger than the block must fail
        // there, not be cut to the block and written.
        if (b == Block::Nvram) {
            rc = vxsysfs_set_nvram(port.fd, port.idx, buf, *size_io, &st);
        } else {
            uint32_t n = *size_io;
            rc = vxsysfs_set_vpd_size(port.idx, buf, &n, &st);
            if (rc == 0 && st == 0) *size_io = n;
        }
    } else {
        rc = b == Block::Nvram ? vxapi_set_nvram(port.fd, port.idx, buf, size, &st, &detail)
                               : vxapi_set_vpd(port.fd, port.idx, buf, size, &st, &detail);
    }
    return vxflash_status(rc, st, detail);
}

// Reads a block until two reads in a row agree (at most three): bytes that
// differ from one read to the next must not be written back as the adapter's.
uint32_t read_block_agreed(const Port &port, Block b, uint8_t *buf, uint32_t cap) {
    if (const uint32_t st = read_block(port, b, buf, cap); st != 0) return st;
    std::vector<uint8_t> again(cap);
    for (int k = 0; k < 2; ++k) {
        std::fill(again.begin(), again.end(), uint8_t{0});
        if (const uint32_t st = read_block(port, b, again.data(), cap); st != 0) return st;
        if (std::memcmp(again.data(), buf, cap) == 0) return HMX_STATUS_OK;
        std::memcpy(buf, again.data(), cap);
    }
    VXDBG(VXDBG_ERR, "read_block_agreed: the block reads back differently each time.");
    return HMX_ERR_UNKNOWN;
}

// ---- layout ---------------------------------------------------------------------------------

uint32_t get_layout(const Port &port, HMX_OPT_ROM_LAYOUT *pLayout) {
    bool have = false;
    if (vxhmx::has_adapter_layout(port.device_id)) {
        const uint32_t st = vxflash_load_adapter_layout(port.fd, port.idx);
        if (st == 0)
            have = true;
        else if (port.device_id == FCX180)
            return HMX_ERR_UNKNOWN;
    }
    if (!have) {
        const uint32_t st = vxflash_load_adapter_layout(port.fd, port.idx);
        if (st != 0) return st;
    }
    if (pLayout == nullptr) return HMX_STATUS_OK;
    return vxhmx::vxlayout_copy_out(*vxapi_global_layout(), pLayout->Size, pLayout->NoOfRegions, pLayout->Region);
}

// ---- region writes ---------------------------------------------------------------------------

uint32_t plain_write(const Port &port, const uint8_t *buf, uint32_t size, uint32_t region) {
    if (buf == nullptr) return HMX_ERR_INVALID_PARAMETER;
    uint32_t st = 0, detail = 0;
    const int rc = vxapi_update_optrom(port.fd, port.idx, buf, size, region, 0, &st, &detail);
    return vxflash_status(rc, st, detail);
}

// Reads `out.size()` bytes of a region until two reads in a row agree (at
// most three): bytes that differ from one read to the next must not become
// the adapter's data in a new image, nor pass for what was written.
uint32_t read_region_agreed(const Port &port, std::vector<uint8_t> &out, uint32_t region) {
    const auto size = static_cast<uint32_t>(out.size());
    uint32_t st = 0, detail = 0;
    int rc = vxapi_read_optrom(port.fd, port.idx, out.data(), size, region, 0, &st, &detail);
    if (const uint32_t s = vxflash_status(rc, st, detail); s != 0) return s;
    std::vector<uint8_t> again(out.size());
    for (int k = 0; k < 2; ++k) {
        rc = vxapi_read_optrom(port.fd, port.idx, again.data(), size, region, 0, &st, &detail);
        if (const uint32_t s = vxflash_status(rc, st, detail); s != 0) return s;
        if (again == out) return HMX_STATUS_OK;
        out.swap(again);
    }
    VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: the flash reads back differently each time.");
    return HMX_ERR_UNKNOWN;
}

// Brings the VPD's version fields in line with the boot images just written.
uint32_t update_vpd_versions(const Port &port, std::span<const uint8_t> image) {
    uint8_t vpd[kVpdBlock] = {};
    const uint32_t st = read_block_agreed(port, Block::Vpd, vpd, sizeof vpd);
    if (st != 0) return st;
    uint8_t previous[kVpdBlock];
    std::memcpy(previous, vpd, sizeof vpd);
    if (!vxhmx::vxvpd_update_ok(vxhmx::vxvpd_update_versions_from_image(vpd, image))) {
        VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: VPD version fields not updated.");
        return HMX_ERR_VPD_NOT_UPDATED;
    }
    uint32_t size = sizeof vpd;
    uint32_t wst = write_block(port, Block::Vpd, vpd, &size);
    if (wst == 0) {
        // The block must hold what was written: an adapter that acknowledged
        // a write it did not store would otherwise be reported as updated.
        uint8_t back[kVpdBlock] = {};
        if (read_block_agreed(port, Block::Vpd, back, sizeof back) == 0 && std::memcmp(back, vpd, sizeof vpd) == 0)
            return HMX_STATUS_OK;
        VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: the VPD does not hold what was written.");
        wst = HMX_ERR_UNKNOWN;
    }
    // A write that died midway leaves new version fields under the old
    // checksum, and a block that fails its checksum is refused by every
    // later update: put the previous block back whole.
    size = sizeof previous;
    if (write_block(port, Block::Vpd, previous, &size) != 0)
        VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: previous VPD could not be restored.");
    return wst;
}

// The preserving path: the adapter's parameter block, subsystem vendor
// bytes and VPD survive a boot code write.
uint32_t preserving_write(const Port &port, const uint8_t *buf, uint32_t size, uint32_t region) {
    if (buf == nullptr || size == 0) return HMX_ERR_INVALID_PARAMETER;
    std::vector<uint8_t> current(size);
    uint32_t st = 0, detail = 0;
    if (const uint32_t s = read_region_agreed(port, current, region); s != 0) return s;

    // The caller's image stays as given; the adapter's data goes into a copy.
    std::vector<uint8_t> image(buf, buf + size);
    const auto rep = vxhmx::vxpreserve_adapter_data(current, image, vxhmx::vxhmnvr_block_size(port.device_id));
    VXDBG_NUM(VXDBG_TRACE, "HmUpdateOptionRomCommon: parameter blocks kept=", rep.blocks_copied, 10);

    if (vxhmx::is_vpd_image_chip(port.device_id)) {
        const auto merged = vxhmx::vxvpd_merge_vpd_image(current, image);
        if (!vxhmx::vxvpd_merge_ok(merged)) {
            // Writing now would lose the adapter's VPD.
            VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: VPD image could not be kept, nothing written.");
            return HMX_ERR_VPD_NOT_UPDATED;
        }
    }
    if (vxhmx::vxpreserve_needs_boot_copy(port.device_id, region)) image = vxhmx::vxpreserve_double_boot_image(image);

    const int wrc = vxapi_update_optrom(port.fd, port.idx, image.data(), static_cast<uint32_t>(image.size()), region, 0,
                                        &st, &detail);
    if (const uint32_t s = vxflash_status(wrc, st, detail); s != 0) return s;
    // The region must hold what was written: an adapter that acknowledged a
    // write it did not store (or stored other bytes) is not updated, and the
    // contents read before go back, so it keeps its own data.
    std::vector<uint8_t> back(image.size());
    if (read_region_agreed(port, back, region) != 0 || back != image) {
        VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: the flash does not hold what was written; restoring it.");
        if (plain_write(port, current.data(), size, region) != 0)
            VXDBG(VXDBG_ERR, "HmUpdateOptionRomCommon: previous contents could not be restored.");
        return HMX_ERR_UNKNOWN;
    }
    if (vxhmx::is_fcx14x_class(port.device_id)) return update_vpd_versions(port, image);
    return HMX_STATUS_OK;
}

// The other port of the adapter (another PCI function of the same device).
int other_port_of(const Port &port) {
    EXT_CHIP me{};
    uint32_t st = 0;
    if (vxapi_query_chip(port.fd, port.idx, &me, &st) != 0 || !vxapi_status_usable(st)) return -1;
    for (int i = 0; i < kMaxAdapters; ++i) {
        const vxapi_priv_db_t &rec = api_priv_data[i];
        if (i == port.idx || rec.phys_path[0] == '\0' || rec.device_id != port.device_id) continue;
        if ((rec.features & (VXF_IOCTL | VXF_SYSFS)) == 0) continue;
        // Open it to ask where it sits; closed again by the caller or here.
        uint32_t handle = 0;
        int os_error = 0;
        if (vxapi_open_adapter(i, &handle, &os_error) != 0) continue;
        EXT_CHIP them{};
        const bool same = vxapi_query_chip(rec.oshandle, i, &them, &st) == 0 && vxapi_status_usable(st) &&
                          them.DomainNr == me.DomainNr && them.PciBusNumber == me.PciBusNumber &&
                          (them.PciDevFunc >> 3) == (me.PciDevFunc >> 3) && them.PciDevFunc != me.PciDevFunc;
        if (same) return i;
        vxapi_close_adapter(i, &os_error);
    }
    return -1;
}

uint32_t activate(int fd, int idx, uint32_t code) {
    uint32_t st = 0;
    // The request carries the code in its 16-bit sub-code field.
    const int rc = vxapi_activate_region(fd, idx, static_cast<uint16_t>(code), &st);
    return rc == 0 && st == 0 ? HMX_STATUS_OK : HMX_ERR_ACTIVATION_FAILED;
}

uint32_t activate_after_write(const Port &port, const vxhmx::INT_OPT_ROM_REGION &entry) {
    const uint32_t code = vxhmx::vxlayout_activation_code(port.device_id, entry.Region);
    if (code == 0) return HMX_STATUS_OK;
    if (activate(port.fd, port.idx, code) != 0) return HMX_ERR_ACTIVATION_FAILED;
    if ((entry.Region & vxhmx::kRegionCodeMask) != HMX_OPT_ROM_REGION_FW) return HMX_STATUS_OK;
    // Firmware runs on both ports: the other one is activated as well.
    const int other = other_port_of(port);
    if (other < 0) return HMX_STATUS_OK;
    const uint32_t st = activate(api_priv_data[other].oshandle, other, code);
    int os_error = 0;
    vxapi_close_adapter(other, &os_error);
    return st;
}

enum class WriteMode { ByRegion, PlainOnly };

uint32_t update_region(int Device, uint16_t port_no, uint8_t *buf, uint32_t size, uint32_t region, WriteMode mode) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    if (const uint32_t st = get_layout(port, nullptr); st != 0) return st;
    (void)port_no;

    const vxhmx::INT_OPT_ROM_REGION *entry = nullptr;
    const uint32_t check = vxhmx::vxlayout_check_region_write(*vxapi_global_layout(), region, size, &entry);
    if (check == HMX_ERR_NOT_SUPPORTED)
        VXDBG(VXDBG_ERR, "HmUpdateOptionRomEx: Read only Region, can't do write operation");
    if (check != 0) return check;
    // The entry lives in the global layout, which the activation of the
    // other port may replace: keep a copy.
    const vxhmx::INT_OPT_ROM_REGION region_entry = *entry;

    const auto path = mode == WriteMode::PlainOnly ? vxhmx::OptRomWritePath::Plain : vxhmx::vxlayout_write_path(region);
    uint32_t st = HMX_ERR_INVALID_PARAMETER;
    switch (path) {
    case vxhmx::OptRomWritePath::Preserving: st = preserving_write(port, buf, size, region); break;
    case vxhmx::OptRomWritePath::Plain: st = plain_write(port, buf, size, region); break;
    case vxhmx::OptRomWritePath::Refused: return HMX_ERR_INVALID_PARAMETER;
    }
    if (st != 0) return st;
    return activate_after_write(port, region_entry);
}

uint32_t offset_access(int Device, uint8_t *buf, uint32_t size, uint32_t offset, bool write) {
    Port port;
    if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
    if (buf == nullptr || size == 0) return HMX_ERR_INVALID_PARAMETER;
    uint32_t st = 0, detail = 0;
    constexpr uint32_t raw = vxhmx::kRegionRawFlash;
    const int rc = write ? vxapi_update_optrom(port.fd, port.idx, buf, size, raw, offset, &st, &detail)
                         : vxapi_read_optrom(port.fd, port.idx, buf, size, raw, offset, &st, &detail);
    return vxflash_status(rc, st, detail);
}

}  // namespace

// ---- public calls -------------------------------------------------------------------------------

extern "C" uint32_t HmGetOptionRomLayout(int Device, uint16_t, HMX_OPT_ROM_LAYOUT *pLayout) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        return get_layout(port, pLayout);
    });
}

extern "C" uint32_t HmGetOptionRomEx(int Device, uint16_t, uint8_t *pBuffer, uint32_t BufferSize, uint32_t Region) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pBuffer == nullptr || BufferSize == 0) return HMX_ERR_INVALID_PARAMETER;
        uint32_t st = 0, detail = 0;
        const int rc = vxapi_read_optrom(port.fd, port.idx, pBuffer, BufferSize, Region, 0, &st, &detail);
        return vxflash_status(rc, st, detail);
    });
}

extern "C" uint32_t HmUpdateOptionRomEx(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                        uint32_t Region) {
    return guarded([&] { return update_region(Device, HbaDevPortNum, pBuffer, BufferSize, Region, WriteMode::ByRegion); });
}

extern "C" uint32_t HmUpdateOptionRomEx2(int Device, uint16_t HbaDevPortNum, uint8_t *pBuffer, uint32_t BufferSize,
                                         uint32_t Region) {
    return guarded([&] { return update_region(Device, HbaDevPortNum, pBuffer, BufferSize, Region, WriteMode::PlainOnly); });
}

extern "C" uint32_t HmUpdateOptionRom(int Device, uint16_t, uint8_t *pBuffer, uint32_t BufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (BufferSize < kWholeImageMinimum) return HMX_ERR_INVALID_PARAMETER;
        if (const uint32_t st = get_layout(port, nullptr); st != 0) return st;
        return preserving_write(port, pBuffer, BufferSize, 0);
    });
}

extern "C" uint32_t HmGetOptionRomOffset(int Device, uint16_t, uint8_t *pBuffer, uint32_t BufferSize,
                                         uint32_t Offset) {
    return guarded([&] { return offset_access(Device, pBuffer, BufferSize, Offset, false); });
}

extern "C" uint32_t HmUpdateOptionRomOffset(int Device, uint16_t, uint8_t *pBuffer, uint32_t BufferSize,
                                            uint32_t Offset) {
    return guarded([&] { return offset_access(Device, pBuffer, BufferSize, Offset, true); });
}

extern "C" uint32_t HmGetNVRam(int Device, uint16_t, uint32_t /*Mode*/, uint8_t *pBuffer, uint32_t BufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        return read_block(port, Block::Nvram, pBuffer, BufferSize);
    });
}

extern "C" uint32_t HmUpdateNVRam(int Device, uint16_t, uint32_t /*Mode*/, uint8_t *pBuffer, uint32_t BufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        uint32_t size = BufferSize;
        return write_block(port, Block::Nvram, pBuffer, &size);
    });
}

extern "C" uint32_t HmGetVpd(int Device, uint16_t, uint8_t *pBuffer, uint32_t *pBufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        if (pBufferSize == nullptr) return HMX_ERR_INVALID_PARAMETER;
        return read_block(port, Block::Vpd, pBuffer, *pBufferSize);
    });
}

extern "C" uint32_t HmUpdateVpd(int Device, uint16_t, uint8_t *pBuffer, uint32_t *pBufferSize) {
    return guarded([&] {
        Port port;
        if (!resolve(Device, port)) return HMX_ERR_INVALID_HANDLE;
        return write_block(port, Block::Vpd, pBuffer, pBufferSize);
    });
}

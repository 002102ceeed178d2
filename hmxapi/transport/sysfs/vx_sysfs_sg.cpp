// SPDX-License-Identifier: MIT
// SCSI pass-through for sysfs ports. Such a port has no pass-through
// request: the target is found by its port name among the port's
// fc_transport targets, the LUN's SCSI generic node below its scsi_device,
// and the command runs with SG_IO on "/dev/sgN". The outcome is reported as
// the driver's pass-through reports it (completion code, SCSI status, sense
// in the descriptor, bytes moved), so the public layer treats both alike.
#include <fcntl.h>
#include <scsi/sg.h>

extern "C" {
#include <sysfs/dlist.h>
#include <sysfs/libsysfs.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "vx_instances.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_os.h"
#include "vx_sysfs.h"

namespace {

// SG_IO needs a bound; the driver's own request has none, and a target that
// does not answer in a minute is not coming back.
constexpr unsigned kSgTimeoutMs = 60000;
constexpr uint8_t kHostOk = 0;
constexpr uint8_t kDriverSense = 0x08;

struct ListCloser {
    void operator()(dlist *l) const { sysfs_close_list(l); }
};
using List = std::unique_ptr<dlist, ListCloser>;

void trace(const std::string &line) { VXDBG(VXDBG_SYSFS, ("> " + line).c_str()); }

std::string mount_point() {
    char mnt[SYSFS_PATH_MAX] = {};
    if (sysfs_get_mnt_path(mnt, sizeof mnt) != 0) return {};
    return mnt;
}

// Reads a world-wide name attribute ("0x" and 16 hexadecimal digits).
bool read_wwn(const std::string &path, uint8_t out[8]) {
    std::unique_ptr<sysfs_attribute, decltype(&sysfs_close_attribute)> a(sysfs_open_attribute(path.c_str()),
                                                                          &sysfs_close_attribute);
    if (!a || sysfs_read_attribute(a.get()) != 0 || a->value == nullptr) return false;
    std::memset(out, 0, 8);
    return vxsysfs_hex_to_bytes(std::string_view(a->value, a->len), out, 8) == 8;
}

// "targetH:C:T" of host `host_no` whose port name is `wwpn`: the "H:C:T"
// part, or an empty text.
std::string find_target(const std::string &mnt, uint16_t host_no, const uint8_t wwpn[8]) {
    const std::string cls = mnt + "/class/fc_transport";
    List links(sysfs_open_link_list(cls.c_str()));
    if (!links) return {};
    const std::string prefix = "target" + std::to_string(host_no) + ":";
    char *name = nullptr;
    dlist_for_each_data(links.get(), name, char) {
        if (std::strncmp(name, prefix.c_str(), prefix.size()) != 0) continue;
        uint8_t got[8];
        if (read_wwn(cls + "/" + name + "/port_name", got) && std::memcmp(got, wwpn, 8) == 0) return name + 6;
    }
    return {};
}

// "sgN" of LUN `lun` of target "H:C:T", or an empty text.
std::string find_generic(const std::string &mnt, const std::string &hct, uint16_t lun) {
    const std::string dir = mnt + "/class/scsi_device/" + hct + ":" + std::to_string(lun) + "/device/scsi_generic";
    List dirs(sysfs_open_directory_list(dir.c_str()));
    if (!dirs) return {};
    char *name = nullptr;
    dlist_for_each_data(dirs.get(), name, char) {
        if (std::strncmp(name, "sg", 2) == 0 && name[2] != '\0' && std::strchr(name, '/') == nullptr) return name;
    }
    return {};
}

}  // namespace

int vxsysfs_send_fc_scsipt(int, int api_idx, EXT_SCSI_PASSTHRU *pt, uint8_t *data, uint32_t len, uint32_t *status,
                           uint32_t *scsi_status, uint32_t *xferred) {
    vxapi_set_status(status, EXT_STATUS_ERR);
    if (scsi_status != nullptr) *scsi_status = 0;
    if (xferred != nullptr) *xferred = 0;
    if (!vxapi_valid_index(api_idx) || pt == nullptr || pt->CdbLength == 0 || pt->CdbLength > sizeof pt->Cdb)
        return 0;
    EXT_DEST_ADDR addr{};
    std::memcpy(&addr, pt->Addr, sizeof addr);
    const std::string mnt = mount_point();
    if (mnt.empty()) {
        trace("sysfs not mounted");
        return 0;
    }
    const std::string hct = find_target(mnt, api_priv_data[api_idx].host_no, addr.DestAddr);
    const std::string sg = hct.empty() ? std::string() : find_generic(mnt, hct, addr.Lun);
    if (sg.empty()) {
        vxapi_set_status(status, EXT_STATUS_DEV_NOT_FOUND);
        return 0;
    }
    vxos::Fd fd(vxos::open(("/dev/" + sg).c_str(), O_RDWR | O_CLOEXEC));
    if (!fd.ok()) {
        trace("Open generic failed");
        return 0;
    }

    sg_io_hdr_t h{};
    h.interface_id = 'S';
    h.dxfer_direction = pt->Direction == 1   ? SG_DXFER_FROM_DEV
                        : pt->Direction == 2 ? SG_DXFER_TO_DEV
                                             : SG_DXFER_NONE;
    h.cmd_len = pt->CdbLength;
    h.cmdp = pt->Cdb;
    // The descriptor holds up to 256 sense bytes; SG_IO counts them in one byte.
    h.mx_sb_len = static_cast<unsigned char>(std::min<unsigned>(pt->SenseLength, 255));
    h.sbp = pt->SenseData;
    h.dxfer_len = h.dxfer_direction == SG_DXFER_NONE ? 0 : len;
    h.dxferp = h.dxfer_len != 0 ? data : nullptr;
    h.timeout = kSgTimeoutMs;
    if (vxos::ioctl(fd.get(), SG_IO, &h) != 0) {
        const int err = errno;
        fd.reset();
        errno = err;
        return -1;
    }

    if (h.status != 0) {
        // The target answered with a status of its own; its sense is in the descriptor.
        vxapi_set_status(status, EXT_STATUS_SCSI_STATUS);
        if (scsi_status != nullptr) *scsi_status = h.status;
        return 0;
    }
    if (h.host_status != kHostOk || (h.driver_status & ~kDriverSense) != 0) return 0;
    const uint32_t resid = h.resid > 0 ? std::min<uint32_t>(static_cast<uint32_t>(h.resid), h.dxfer_len) : 0;
    if (xferred != nullptr) *xferred = h.dxfer_len - resid;
    vxapi_set_status(status, EXT_STATUS_OK);
    return 0;
}

// SPDX-License-Identifier: MIT
// The vxapi_* request wrappers: sysfs adapters go to the sysfs routine of
// the same name (or to netlink while its socket is open), every other
// adapter gets one driver request.
#include "vx_dispatch.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <string>

#include "vx_chipdata.h"
#include "vx_global_layout.h"
#include "vx_hmdbg.h"
#include "vx_instances.h"
#include "vx_ioctl.h"
#include "vx_netlink.h"
#include "vx_sysfs.h"

namespace {

bool is_sysfs(int api_idx) {
    return vxapi_valid_index(api_idx) && (api_priv_data[api_idx].features & VXF_SYSFS) != 0;
}

// The driver's netlink socket is open (recorded in record 0).
bool netlink_open() { return (api_priv_data[0].features & VXF_NL_MGMT) != 0 && gnl_fd >= 0; }

// The netlink result as a wrapper reports it: 0, or -1 with errno set.
int nl_result(int rc) {
    if (rc == 0) return 0;
    errno = EIO;
    return -1;
}

}  // namespace

int vxapi_query_hbanode(int fd, int api_idx, EXT_HBA_NODE *node, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_query_hbanode(fd, api_idx, node, status);
    const int rc = vxapi_send_whole_read(fd, api_idx,
                                   {"vxapi_query_hbanode", EXT_CC_QUERY, EXT_SC_QUERY_HBA_NODE, 0, nullptr, 0, node,
                                    sizeof *node},
                                   status, detail);
    if (rc == 0 && node != nullptr) {
        // Drivers for virtualised hosts report every port of the adapter;
        // the management view is one port per instance there.
        const std::string_view version(node->DriverVersion, strnlen(node->DriverVersion, sizeof node->DriverVersion));
        if (version.find("vm") != std::string_view::npos && node->InterfaceType != 3) node->PortCount = 1;
    }
    return rc;
}

int vxapi_query_hbaport(int fd, int api_idx, EXT_HBA_PORT *port, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_query_hbaport(fd, api_idx, port, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_hbaport", EXT_CC_QUERY, EXT_SC_QUERY_HBA_PORT, 0, nullptr, 0, port,
                            sizeof *port},
                           status, detail);
}

int vxapi_query_discport(int fd, int api_idx, uint16_t port_index, EXT_DISC_PORT *port, uint32_t *status,
                         uint32_t *detail) {
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_discport", EXT_CC_QUERY, EXT_SC_QUERY_DISC_PORT, port_index, nullptr, 0, port,
                            sizeof *port},
                           status, detail);
}

int vxapi_query_disctgt(int fd, int api_idx, uint16_t target_index, EXT_DISC_PORT *target, uint32_t *status,
                        uint32_t *detail) {
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_disctgt", EXT_CC_QUERY, EXT_SC_QUERY_DISC_TGT, target_index, nullptr, 0,
                            target, sizeof *target},
                           status, detail);
}

int vxapi_query_chip(int fd, int api_idx, EXT_CHIP *chip, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_query_chip(fd, api_idx, chip, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_chip", EXT_CC_QUERY, EXT_SC_QUERY_CHIP, 0, nullptr, 0, chip, sizeof *chip},
                           status, detail);
}

int vxapi_query_cnaport(int fd, int api_idx, uint8_t *buf128, uint32_t *status, uint32_t *detail) {
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_cnaport", EXT_CC_QUERY, EXT_SC_QUERY_CNA_PORT, 0, nullptr, 0, buf128, 128},
                           status, detail);
}

int vxapi_query_adapter_versions(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status) {
    return vxapi_send(fd, api_idx,
                      {"vxapi_query_adapter_versions", EXT_CC_QUERY, EXT_SC_QUERY_ADAPTER_VERSIONS, 0, nullptr, 0,
                       buf, len},
                      status);
}

int vxapi_async_event_reg(int fd, int api_idx, const EXT_REG_AEN *reg, uint32_t *status) {
    if (is_sysfs(api_idx)) return vxsysfs_async_event_reg(fd, api_idx, reg, status);
    return vxapi_send(fd, api_idx,
                      {"vxapi_async_event_reg", EXT_CC_REG_AEN, 0, 0, reg, sizeof *reg, nullptr, 0}, status);
}

int vxapi_async_event_get(int fd, int api_idx, EXT_ASYNC_EVENT *events, uint32_t len, uint32_t *status,
                          uint32_t *returned_len) {
    if (is_sysfs(api_idx)) {
        if (netlink_open())
            return vxapi_nl_get_aen(gnl_fd, api_priv_data[api_idx].host_no, events, len, status, returned_len);
        return vxsysfs_async_event_get(fd, api_idx, events, len, status, returned_len);
    }
    return vxapi_send(fd, api_idx, {"vxapi_async_event_get", EXT_CC_GET_AEN, 0, 0, nullptr, 0, events, len}, status,
                      nullptr, returned_len);
}

int vxapi_query_driver(int fd, int api_idx, EXT_DRIVER *drv, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_query_driver(fd, api_idx, drv, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_driver", EXT_CC_GET_DATA, EXT_SC_GET_DRIVER, 0, nullptr, 0, drv, sizeof *drv},
                           status, detail);
}

int vxapi_query_fw(int fd, int api_idx, EXT_FW *fw, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_query_fw(fd, api_idx, fw, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_query_fw", EXT_CC_GET_DATA, EXT_SC_GET_FW, 0, nullptr, 0, fw, sizeof *fw},
                           status, detail);
}

int vxapi_get_statistics(int fd, int api_idx, EXT_STATISTICS *stats, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_get_statistics(fd, api_idx, stats, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_get_statistics", EXT_CC_GET_DATA, EXT_SC_GET_STATISTICS, 0, nullptr, 0, stats,
                            sizeof *stats},
                           status, detail);
}

int vxapi_get_port_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                              uint32_t *status, uint32_t *detail) {
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_get_port_statistics", EXT_CC_GET_DATA, EXT_SC_GET_PORT_STATISTICS, 0, dest,
                            sizeof *dest, stats, sizeof *stats},
                           status, detail);
}

int vxapi_get_fc4_statistics(int fd, int api_idx, const EXT_DEST_ADDR *dest, EXT_STATISTICS *stats,
                             uint32_t *status, uint32_t *detail) {
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_get_fc4_statistics", EXT_CC_GET_DATA, EXT_SC_GET_FC4_STATISTICS, 0, dest,
                            sizeof *dest, stats, sizeof *stats},
                           status, detail);
}

int vxapi_get_beacon(int fd, int api_idx, EXT_BEACON_CONTROL *beacon, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_get_beacon(fd, api_idx, beacon, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_get_beacon", EXT_CC_GET_DATA, EXT_SC_GET_BEACON, 0, nullptr, 0, beacon,
                            sizeof *beacon},
                           status, detail);
}

int vxapi_set_beacon(int fd, int api_idx, const EXT_BEACON_CONTROL *beacon, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_set_beacon(fd, api_idx, beacon, status);
    return vxapi_send(fd, api_idx,
                      {"vxapi_set_beacon", EXT_CC_SET_DATA, EXT_SC_SET_BEACON, 0, beacon, sizeof *beacon, nullptr, 0},
                      status, detail);
}

bool vxapi_raw_flash_chip(int api_idx) {
    if (!vxapi_valid_index(api_idx)) return false;
    return vxhmx::has_adapter_layout(api_priv_data[api_idx].device_id);
}

namespace {

// Chips reached raw take every flash access as a raw window: a region is
// mapped to its place in the layout, and only the mapped window is moved,
// never past the caller's buffer. False (with `refusal` traced) for an
// empty request or an unknown region.
bool map_raw_window(int api_idx, uint32_t region, uint32_t &offset, uint32_t &len, const char *refusal) {
    uint32_t map_offset = offset, map_len = len;
    vxsysfs_map_region(api_idx, region, &map_offset, &map_len);
    if (map_len == 0 || len == 0) {
        VXDBG(VXDBG_ERR, refusal);
        return false;
    }
    if (region != EXT_SC_RAW_FLASH) {
        offset = map_offset;
        if (map_len < len) len = map_len;
    }
    return true;
}

}  // namespace

int vxapi_read_optrom(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                      uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_read_optrom(fd, api_idx, buf, len, region, offset, status);
    uint16_t subcode = static_cast<uint16_t>(region);
    if (vxapi_raw_flash_chip(api_idx)) {
        if (!map_raw_window(api_idx, region, offset, len,
                            "vxapi_read_optrom: zero size or unknown region, nothing read."))
            return 1;
        subcode = EXT_SC_RAW_FLASH;
    }
    return vxapi_send_whole_read(fd, api_idx,
                                {"vxapi_read_optrom", EXT_CC_READ_OPTION_ROM, subcode, 0, nullptr, len, buf, len,
                                 offset},
                                status, detail);
}

uint32_t vxapi_get_flash_sector_size(int fd, int api_idx) {
    EXT_CHIP chip{};
    uint32_t status = 0;
    if (vxapi_query_chip(fd, api_idx, &chip, &status) != 0 || !vxapi_status_usable(status)) return 0;
    return chip.FlashBlockSize;
}

int vxapi_sector_align(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t offset, uint32_t sector,
                       vxhmx::SectorAligned *out, uint32_t *status) {
    if (out == nullptr || buf == nullptr || sector == 0 || len == 0) {
        vxapi_set_status(status, EXT_STATUS_INVALID_PARAM);
        return 1;
    }
    // The bytes around the caller's data must survive the sector rewrite:
    // a short read of them is a failure.
    const auto read = [&](uint32_t at, std::span<uint8_t> into) -> uint32_t {
        uint32_t st = 0;
        const int rc = vxapi_read_optrom(fd, api_idx, into.data(), static_cast<uint32_t>(into.size()),
                                         EXT_SC_RAW_FLASH, at, &st);
        if (rc == 0 && st == EXT_STATUS_OK) return 0;
        return st != 0 ? st : 1;
    };
    const uint32_t code = vxhmx::vxlayout_align_write(offset, std::span<const uint8_t>(buf, len), sector,
                                                      vxapi_global_flash_end(sector), read, *out);
    if (code == EXT_STATUS_OK) return 0;
    vxapi_set_status(status, code);
    return 1;
}

int vxapi_update_optrom(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t region, uint32_t offset,
                        uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_update_optrom(fd, api_idx, buf, len, region, offset, status);
    uint16_t subcode = static_cast<uint16_t>(region);
    vxhmx::SectorAligned aligned;
    if (vxapi_raw_flash_chip(api_idx)) {
        if (!map_raw_window(api_idx, region, offset, len,
                            "vxapi_update_optrom: zero size or unknown region, nothing written."))
            return 1;
        const uint32_t sector = vxapi_get_flash_sector_size(fd, api_idx);
        if (vxapi_sector_align(fd, api_idx, buf, len, offset, sector, &aligned, status) != 0) {
            VXDBG(VXDBG_ERR, "vxapi_update_optrom: sector alignment failed.");
            return 1;
        }
        if (!aligned.buffer.empty()) buf = aligned.buffer.data();
        offset = aligned.offset;
        len = aligned.size;
        subcode = EXT_SC_RAW_FLASH;
    }
    return vxapi_send(fd, api_idx,
                      {"vxapi_update_optrom", EXT_CC_UPDATE_OPTION_ROM, subcode, 0, buf, len, nullptr, 0, offset},
                      status, detail);
}

int vxapi_get_nvram(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_get_nvram(fd, api_idx, buf, len, status);
    return vxapi_send_whole_read(fd, api_idx, {"vxapi_get_nvram", EXT_CC_GET_NVRAM, 0, 0, nullptr, 0, buf, len}, status,
                           detail);
}

int vxapi_set_nvram(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_set_nvram(fd, api_idx, buf, len, status);
    return vxapi_send(fd, api_idx, {"vxapi_set_nvram", EXT_CC_SET_NVRAM, 0, 0, buf, len, nullptr, 0}, status, detail);
}

int vxapi_get_vpd(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_get_vpd(fd, api_idx, buf, len, status);
    return vxapi_send_whole_read(fd, api_idx, {"vxapi_get_vpd", EXT_CC_GET_VPD, 0, 0, nullptr, 0, buf, len}, status, detail);
}

int vxapi_set_vpd(int fd, int api_idx, const uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_set_vpd(fd, api_idx, buf, len, status);
    return vxapi_send(fd, api_idx, {"vxapi_set_vpd", EXT_CC_SET_VPD, 0, 0, buf, len, nullptr, 0}, status, detail);
}

int vxapi_get_optrom_layout(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status, uint32_t *detail) {
    if (is_sysfs(api_idx)) return vxsysfs_get_optrom_layout(fd, api_idx, buf, len, status);
    return vxapi_send(fd, api_idx,
                      {"vxapi_get_optrom_layout", EXT_CC_GET_OPTION_ROM_LAYOUT, 0, 0, nullptr, 0, buf, len}, status,
                      detail);
}

int vxapi_activate_region(int fd, int api_idx, uint16_t region, uint32_t *status) {
    if (is_sysfs(api_idx)) return vxsysfs_activate_region(fd, api_idx, region, status);
    return vxapi_send(fd, api_idx, {"vxapi_activate_region", EXT_CC_ACTIVATE_REGION, region, 0, nullptr, 0, nullptr, 0},
                      status);
}

int vxapi_get_driver_specifics(int fd, int api_idx, EXT_LN_DRIVER_DATA *data, uint32_t *status) {
    if (is_sysfs(api_idx)) return vxsysfs_get_driver_specifics(fd, api_idx, data, status);
    return vxapi_send_whole_read(fd, api_idx,
                           {"vxapi_get_driver_specifics", EXT_CC_DRIVER_SPECIFIC, 0, 0, nullptr, 0, data,
                            sizeof *data},
                           status, nullptr);
}

int vxapi_send_fc_scsipt(int fd, int api_idx, EXT_SCSI_PASSTHRU *pt, uint8_t *data, uint32_t len, uint32_t *status,
                         uint32_t *scsi_status, uint32_t *xferred) {
    if (is_sysfs(api_idx)) return vxsysfs_send_fc_scsipt(fd, api_idx, pt, data, len, status, scsi_status, xferred);
    return vxapi_send(fd, api_idx,
                      {"vxapi_send_fc_scsipt", EXT_CC_SEND_SCSI_PASSTHRU, EXT_SC_SCSI_PT_BY_PORT_NAME, 0, pt,
                       sizeof *pt, data, len},
                      status, scsi_status, xferred);
}

int vxapi_port_param(int fd, int api_idx, uint8_t *buf, uint32_t len, uint32_t *status) {
    if (is_sysfs(api_idx)) {
        if (!netlink_open()) return vxsysfs_port_param(fd, api_idx, buf, len, status);
        return nl_result(vxapi_nl_port_param(gnl_fd, api_priv_data[api_idx].host_no, buf, len, status));
    }
    return vxapi_send(fd, api_idx, {"vxapi_port_param", EXT_CC_PORT_PARAM, 0, 0, buf, len, buf, len}, status);
}

// Over netlink the request is the pattern itself, sent twice in 64 KiB
// chunks; the driver compares the second pass with what went round the loop
// and answers each message with its verdict in `error` and the request's own
// parameters, no data and no reply record. There is nothing to give back in
// `resp` on that path, so it is left as the caller passed it.
int vxapi_loopback_test(int fd, int api_idx, const uint8_t *req, uint32_t req_len, uint8_t *resp, uint32_t resp_len,
                        uint32_t *status) {
    if (is_sysfs(api_idx)) {
        if (!netlink_open()) return vxsysfs_loopback_test(fd, api_idx, req, req_len, resp, resp_len, status);
        return nl_result(vxapi_nl_loopback_test(gnl_fd, api_priv_data[api_idx].host_no, req, req_len, status));
    }
    return vxapi_send(fd, api_idx, {"vxapi_loopback_test", EXT_CC_LOOPBACK, 0, 0, req, req_len, resp, resp_len}, status);
}

int vxapi_tamar_mgmt(int fd, int api_idx, uint16_t operation, uint8_t *buf, uint32_t len, uint32_t *status) {
    if (is_sysfs(api_idx)) {
        if (!netlink_open()) return vxsysfs_tamar_mgmt(fd, api_idx, operation, buf, len, status);
        const uint16_t host_no = api_priv_data[api_idx].host_no;
        switch (operation) {
        case vxnl::kBridgeReset: return nl_result(vxapi_nl_FCX15x_reset(gnl_fd, host_no, buf, len, status));
        case vxnl::kBridgeUpdateFw: return nl_result(vxapi_nl_FCX15x_updatefw(gnl_fd, host_no, buf, len, status));
        case vxnl::kBridgeMgmt: return nl_result(vxapi_nl_FCX15x_mgmt(gnl_fd, host_no, buf, len, status));
        default: vxapi_set_status(status, EXT_STATUS_INVALID_PARAM); return nl_result(1);
        }
    }
    return vxapi_send(fd, api_idx, {"vxapi_tamar_mgmt", EXT_CC_TAMAR_MGMT, operation, 0, buf, len, buf, len}, status);
}

int vxapi_wwpn_to_scsiaddr(int fd, int api_idx, const uint8_t wwpn[8], EXT_SCSI_ADDR *addr, uint32_t *status) {
    return vxapi_send(fd, api_idx,
                      {"vxapi_wwpn_to_scsiaddr", EXT_CC_WWPN_TO_SCSIADDR, 0, 0, wwpn, 8, addr, sizeof *addr}, status);
}

int vxapi_set_instance(int fd, uint16_t drvr_inst, int api_idx, uint32_t *status, uint16_t *host_no) {
    // The bound reply carries the port's SCSI host number in DetailStatus.
    uint32_t detail = 0;
    const int rc = vxapi_send(fd, api_idx, {"vxapi_set_instance", EXT_CC_SET_INSTANCE, 0, drvr_inst}, status, &detail);
    if (host_no != nullptr) *host_no = static_cast<uint16_t>(detail);
    return rc;
}

int vxapi_get_instance_count(int fd, int api_idx, uint32_t *status, uint32_t *count) {
    uint16_t instances = 0;
    const int rc = vxapi_send(fd, api_idx, {"vxapi_get_instance_count", EXT_CC_STARTIOCTL}, status, nullptr, nullptr,
                              &instances);
    if (count != nullptr) *count = instances;
    return rc;
}

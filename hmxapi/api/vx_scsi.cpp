// SPDX-License-Identifier: MIT
// Public SCSI pass-through calls: one general command to a target behind a
// port, addressed by the target's port name and a LUN, and the INQUIRY,
// READ CAPACITY and REPORT LUNS commands built on it.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "vx_instances.h"
#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_dispatch.h"
#include "vx_public.h"
#include "vxhmx.h"

static_assert(sizeof(DESTINATIONADDRESS) == 12 && offsetof(DESTINATIONADDRESS, AddressUsing) == 2);
static_assert(offsetof(DESTINATIONADDRESS, LunNumber) == 10);
static_assert(sizeof(ASYNCEVENT) == 16);

namespace {

constexpr uint16_t kAddressByPortName = 2;
constexpr uint32_t kMaxCdb = 16;
constexpr uint32_t kMaxSense = 256;
constexpr uint32_t kScsiCheckCondition = 2;
enum : uint8_t { kDirNone = 0, kDirRead = 1, kDirWrite = 2 };

uint32_t pass_through(int fd, DESTINATIONADDRESS *dest, const uint8_t *cdb, uint32_t cdb_len, uint8_t *req,
                      uint32_t req_size, uint8_t *resp, uint32_t resp_size, uint8_t *sense, uint32_t sense_size) {
    Port port;
    if (!resolve(fd, port)) return HMX_ERR_INVALID_HANDLE;
    const uint32_t sense_len = std::min(kMaxSense, sense_size);
    if (dest == nullptr || cdb == nullptr || cdb_len > kMaxCdb || dest->AddressType != kAddressByPortName)
        return HMX_ERR_INVALID_PARAMETER;

    EXT_SCSI_PASSTHRU pt{};
    EXT_DEST_ADDR addr{};
    std::memcpy(addr.DestAddr, dest->AddressUsing, sizeof addr.DestAddr);
    addr.DestType = dest->AddressType;
    addr.Lun = dest->LunNumber;
    std::memcpy(pt.Addr, &addr, sizeof addr);
    pt.CdbLength = static_cast<uint8_t>(cdb_len);
    std::memcpy(pt.Cdb, cdb, cdb_len);
    pt.SenseLength = static_cast<uint16_t>(sense_len);

    uint8_t *data = nullptr;
    uint32_t len = 0;
    if (req != nullptr && resp != nullptr) {
        VXDBG(VXDBG_ERR, "HmSendScsiPassThruFC: Invalid direction. No valid buffer pointers.");
        return HMX_ERR_INVALID_PARAMETER;
    }
    if (req != nullptr) {
        pt.Direction = kDirWrite;
        data = req;
        len = req_size;
    } else if (resp != nullptr) {
        pt.Direction = kDirRead;
        data = resp;
        len = resp_size;
    } else {
        pt.Direction = kDirNone;
    }

    uint32_t st = 0, scsi_status = 0, xferred = 0;
    const int rc = vxapi_send_fc_scsipt(port.fd, port.idx, &pt, data, len, &st, &scsi_status, &xferred);
    if (rc < 0) return errno != 0 ? static_cast<uint32_t>(errno) : HMX_ERR_UNKNOWN;
    if (rc != 0) return HMX_ERR_UNKNOWN;
    if (st == EXT_STATUS_SCSI_STATUS && (scsi_status & 0xFF) == kScsiCheckCondition) {
        if (sense != nullptr) std::memcpy(sense, pt.SenseData, sense_len);
        return HMX_ERR_SCSI_CHECK_CONDITION;
    }
    if (!vxapi_status_usable(st)) return HmXlateHMXErr(st, scsi_status);
    return HMX_STATUS_OK;
}

uint32_t inquiry(int fd, DESTINATIONADDRESS *dest, uint8_t *resp, uint32_t resp_size, uint8_t *sense,
                 uint32_t sense_size) {
    const uint8_t cdb[6] = {0x12, 0, 0, 0, static_cast<uint8_t>(std::min<uint32_t>(resp_size, 255)), 0};
    return pass_through(fd, dest, cdb, sizeof cdb, nullptr, 0, resp, resp_size, sense, sense_size);
}

uint32_t read_capacity(int fd, DESTINATIONADDRESS *dest, uint8_t *resp, uint32_t resp_size, uint8_t *sense,
                       uint32_t sense_size) {
    const uint8_t cdb[10] = {0x25};
    return pass_through(fd, dest, cdb, sizeof cdb, nullptr, 0, resp, resp_size, sense, sense_size);
}

// Probes LUNs 0 to 255 of a target that refuses REPORT LUNS and builds its
// answer: the list length, then one 8-byte entry per LUN found.
uint32_t probe_luns(int fd, DESTINATIONADDRESS *dest, uint8_t *resp, uint32_t resp_size) {
    std::array<uint16_t, 256> present{};
    std::size_t count = 0;
    for (uint16_t lun = 0; lun < 256; ++lun) {
        dest->LunNumber = lun;
        std::array<uint8_t, 36> inq{};
        std::array<uint8_t, kMaxSense> sense{};
        if (inquiry(fd, dest, inq.data(), inq.size(), sense.data(), sense.size()) == HMX_STATUS_OK) {
            if (inq[0] == 0x20) continue;  // nothing connected at this LUN
            if (inq[0] == 0x7F) break;     // no LUNs beyond
        }
        std::array<uint8_t, 8> cap{};
        if (read_capacity(fd, dest, cap.data(), cap.size(), sense.data(), sense.size()) == HMX_STATUS_OK)
            present[count++] = lun;
    }
    std::vector<uint8_t> list(8 + 8 * count, 0);
    const auto list_len = static_cast<uint32_t>(8 * count);
    for (int i = 0; i < 4; ++i) list[static_cast<std::size_t>(i)] = static_cast<uint8_t>(list_len >> (24 - 8 * i));
    for (std::size_t k = 0; k < count; ++k) {
        list[8 + 8 * k] = static_cast<uint8_t>((present[k] >> 8) & 0x3F);
        list[8 + 8 * k + 1] = static_cast<uint8_t>(present[k] & 0xFF);
    }
    // A short buffer gets what fits; the length still counts every LUN.
    if (resp != nullptr) std::memcpy(resp, list.data(), std::min<std::size_t>(list.size(), resp_size));
    return HMX_ERR_NOT_FROM_DEVICE;
}

uint32_t report_luns(int fd, DESTINATIONADDRESS *dest, uint8_t *resp, uint32_t resp_size, uint8_t *sense_out,
                     uint32_t sense_size) {
    uint8_t cdb[12] = {0xA0};
    for (int i = 0; i < 4; ++i) cdb[6 + i] = static_cast<uint8_t>(resp_size >> (24 - 8 * i));
    std::array<uint8_t, kMaxSense> sense{};
    const uint32_t status = pass_through(fd, dest, cdb, sizeof cdb, nullptr, 0, resp, resp_size, sense.data(), sense.size());
    if (sense_size != 0 && sense_out != nullptr) std::memcpy(sense_out, sense.data(), std::min(sense_size, kMaxSense));
    // Fixed-format sense, ILLEGAL REQUEST: the target predates the command.
    if (status == HMX_ERR_SCSI_CHECK_CONDITION && (sense[0] & 0x7F) == 0x70 && (sense[2] & 0x0F) == 0x05)
        return probe_luns(fd, dest, resp, resp_size);
    return status;
}

}  // namespace

extern "C" uint32_t HmSendScsiPassThruFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pCdbBuf, uint32_t ValidCdbLen,
                                         uint8_t *pReqBuf, uint32_t ReqBufSize, uint8_t *pRespBuf, uint32_t RespBufSize,
                                         uint8_t *pSenseBuf, uint32_t SenseBufSize) {
    return guarded([&] {
        return pass_through(fd, pDestAddr, pCdbBuf, ValidCdbLen, pReqBuf, ReqBufSize, pRespBuf, RespBufSize, pSenseBuf,
                            SenseBufSize);
    });
}

extern "C" uint32_t HmSendScsiInquiryCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pResp, uint32_t RespSize,
                                           uint8_t *pSense, uint32_t SenseSize) {
    return guarded([&] { return inquiry(fd, pDestAddr, pResp, RespSize, pSense, SenseSize); });
}

extern "C" uint32_t HmSendScsiReadCapacityCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pResp,
                                                uint32_t RespSize, uint8_t *pSense, uint32_t SenseSize) {
    return guarded([&] { return read_capacity(fd, pDestAddr, pResp, RespSize, pSense, SenseSize); });
}

extern "C" uint32_t HmSendScsiReportLunsCmdFC(int fd, DESTINATIONADDRESS *pDestAddr, uint8_t *pRespBuf,
                                              uint32_t RespBufSize, uint8_t *pSense, uint32_t SenseSize) {
    return guarded([&] { return report_luns(fd, pDestAddr, pRespBuf, RespBufSize, pSense, SenseSize); });
}

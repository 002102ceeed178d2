// SPDX-License-Identifier: MIT
// The ioctl transport: request headers of both layouts, sent on the node.
#include "vx_ioctl.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "vx_hmdbg.h"
#include "vx_hmerr.h"
#include "vx_instances.h"
#include "vx_os.h"

uint64_t vxapi_ptr_to_64bit(const void *p) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)); }

namespace {
uint16_t hba_select(int api_idx) { return vxapi_valid_index(api_idx) ? api_priv_data[api_idx].drvr_inst : 0; }
}  // namespace

int vxapi_init_ext_ioctl_n(EXT_IOCTL *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx) {
    if (hdr == nullptr) return 1;
    std::memset(hdr, 0, sizeof *hdr);
    std::memcpy(hdr->Signature, kExtSignature, sizeof hdr->Signature);
    hdr->AddrMode = kExtAddrMode;
    hdr->Version = kExtVersion;
    hdr->SubCode = subcode;
    hdr->Instance = instance;
    hdr->RequestLen = request_len;
    hdr->ResponseLen = response_len;
    hdr->RequestAdr = vxapi_ptr_to_64bit(request);
    hdr->ResponseAdr = vxapi_ptr_to_64bit(response);
    hdr->HbaSelect = hba_select(api_idx);
    hdr->VendorSpecificData = kExtVendorSpecificData;
    return 0;
}

int vxapi_init_ext_ioctl_o(EXT_IOCTL_O *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx) {
    if (hdr == nullptr) return 1;
    std::memset(static_cast<void *>(hdr), 0, sizeof *hdr);
    hdr->Signature = kExtSignature;
    hdr->AddrMode = kExtAddrMode;
    hdr->Version = kExtVersionOld;
    hdr->SubCode = subcode;
    hdr->Instance = instance;
    hdr->RequestLen = request_len;
    hdr->ResponseLen = response_len;
    hdr->RequestAdr = const_cast<void *>(request);  // the driver only reads it
    hdr->ResponseAdr = response;
    hdr->HbaSelect = hba_select(api_idx);
    hdr->VendorSpecificData = reinterpret_cast<void *>(static_cast<uintptr_t>(kExtVendorSpecificData));
    return 0;
}

int VxRequest::init(int api_idx, uint16_t subcode, uint16_t instance, const void *request, uint32_t request_len,
                    void *response, uint32_t response_len) {
    current = vxapi_valid_index(api_idx) && (api_priv_data[api_idx].features & VXF_NEW_LAYOUT) != 0;
    if (current) return vxapi_init_ext_ioctl_n(&n, subcode, instance, request, request_len, response, response_len, api_idx);
    return vxapi_init_ext_ioctl_o(&o, subcode, instance, request, request_len, response, response_len, api_idx);
}

int hmx_ioctl(int fd, uint32_t number, void *header, int api_idx) {
    const bool current = vxapi_valid_index(api_idx) && (api_priv_data[api_idx].features & VXF_NEW_LAYOUT) != 0;
    const uint32_t request = current ? number : vxapi_ioctl_number_old(number);
    return vxos::ioctl(fd, request, header);
}

int vxapi_send(int fd, int api_idx, const VxCall &call, uint32_t *status, uint32_t *detail, uint32_t *returned_len,
               uint16_t *reply_instance, uint16_t *reply_hba_select) {
    VxRequest req;
    if (req.init(api_idx, call.subcode, call.instance, call.request, call.request_len, call.response,
                 call.response_len) != 0) {
        VXDBG_NUM(VXDBG_ERR, (std::string(call.name) + ": init_ext_ioctl error ").c_str(), 1, 16);
        return 1;
    }
    req.set_reserved1(call.reserved1);
    const int rc = hmx_ioctl(fd, vxapi_ioctl_number(call.command), req.header(), api_idx);
    vxapi_set_status(status, req.status());
    if (detail != nullptr) *detail = req.detail_status();
    if (returned_len != nullptr) *returned_len = req.response_len();
    if (reply_instance != nullptr) *reply_instance = req.instance();
    if (reply_hba_select != nullptr) *reply_hba_select = req.current ? req.n.HbaSelect : req.o.HbaSelect;
    VXDBG_NUM(VXDBG_TRACE, (std::string(call.name) + ": exiting. status=").c_str(), req.status(), 16);
    return rc;
}

// A request whose reply must come back whole (a fixed-size record, a flash,
// NVRAM or VPD read): a reply that carries fewer bytes than asked leaves
// part of the buffer as it was, and nothing may be taken from it as
// complete (least of all written back to the adapter), so it is a data
// underrun (completion code 8) whatever status the driver gave.
int vxapi_send_whole_read(int fd, int api_idx, const VxCall &call, uint32_t *status, uint32_t *detail) {
    uint32_t returned = 0;
    const int rc = vxapi_send(fd, api_idx, call, status, detail, &returned);
    if (rc == 0 && status != nullptr && *status == EXT_STATUS_OK && returned < call.response_len) {
        VXDBG_NUM(VXDBG_ERR, (std::string(call.name) + ": short reply, bytes=").c_str(), returned, 10);
        *status = EXT_STATUS_DATA_UNDERRUN;
    }
    return rc;
}

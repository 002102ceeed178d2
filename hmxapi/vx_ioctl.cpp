// SPDX-License-Identifier: MIT
// Driver request headers and request dispatch.
#include "vx_ioctl.h"

#include <cstring>

#include "vx_core.h"
#include "vx_hmdbg.h"
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

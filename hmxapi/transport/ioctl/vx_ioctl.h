// SPDX-License-Identifier: MIT
// The ioctl transport: one request header of the layout the adapter takes,
// sent on the driver's node.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vx_ioctl_wire.h"

uint64_t vxapi_ptr_to_64bit(const void *p);

// Both fill a zeroed header; 1 only when no header is given.
int vxapi_init_ext_ioctl_n(EXT_IOCTL *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx);
int vxapi_init_ext_ioctl_o(EXT_IOCTL_O *hdr, uint16_t subcode, uint16_t instance, const void *request,
                           uint32_t request_len, void *response, uint32_t response_len, int api_idx);

// One header of whichever layout the adapter takes.
struct VxRequest {
    EXT_IOCTL n{};
    EXT_IOCTL_O o{};
    bool current = true;

    int init(int api_idx, uint16_t subcode, uint16_t instance, const void *request, uint32_t request_len,
             void *response, uint32_t response_len);
    void *header() { return current ? static_cast<void *>(&n) : static_cast<void *>(&o); }
    uint32_t status() const { return current ? n.Status : o.Status; }
    uint32_t detail_status() const { return current ? n.DetailStatus : o.DetailStatus; }
    uint16_t instance() const { return current ? n.Instance : o.Instance; }
    uint32_t response_len() const { return current ? n.ResponseLen : o.ResponseLen; }
    void set_reserved1(uint32_t v) {
        n.Reserved1 = v;
        o.Reserved1 = v;
    }
};

// Sends one request; chooses the request number by the adapter's layout.
int hmx_ioctl(int fd, uint32_t number, void *header, int api_idx);

// One request of any command; returns the ioctl result (0, or -1 with errno
// set), or 1 when no header could be built. The reply's Status goes to
// *status and, where asked, its DetailStatus to *detail.
struct VxCall {
    const char *name;      // wrapper name for the trace
    uint8_t command;
    uint16_t subcode = 0;
    uint16_t instance = 0;
    const void *request = nullptr;
    uint32_t request_len = 0;
    void *response = nullptr;
    uint32_t response_len = 0;
    uint32_t reserved1 = 0;
};
int vxapi_send(int fd, int api_idx, const VxCall &call, uint32_t *status, uint32_t *detail = nullptr,
               uint32_t *returned_len = nullptr, uint16_t *reply_instance = nullptr, uint16_t *reply_hba_select = nullptr);

// A request whose reply must come back whole: fewer bytes than asked
// complete with 8 (data underrun) whatever the driver said.
int vxapi_send_whole_read(int fd, int api_idx, const VxCall &call, uint32_t *status, uint32_t *detail);

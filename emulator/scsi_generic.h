// SPDX-License-Identifier: MIT
// The SCSI generic nodes of sysfs hosts. A port the driver serves through
// sysfs has no pass-through request; its targets are reached the way the
// kernel offers them: the fc_transport class names each target's port, the
// scsi_device class each LUN, and below a LUN "scsi_generic/sgN" names the
// node on which SG_IO runs. Every LUN a target lists gets a node (the ones
// that answer INQUIRY with 0x7F too, so that a probe sees what the driver's
// pass-through request shows); unlisted LUNs have none.
#pragma once

#include <sys/sysmacros.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "driver_service.h"
#include "host_model.h"
#include "traffic_log.h"

namespace vxemu {

struct ScsiGenericNode {
    unsigned index = 0;  // N of "sgN", numbered across the host
    size_t adapter = 0;
    size_t function = 0;
    unsigned host_no = 0;
    uint16_t target_id = 0;  // the T of "H:0:T:L"
    uint16_t lun = 0;
    [[nodiscard]] std::string name() const { return "sg" + std::to_string(index); }
};

// The nodes in adapter, function, target and LUN order.
[[nodiscard]] std::vector<ScsiGenericNode> scsi_generic_nodes(const Host &host);

// The device number of every node in the sandbox: the null device, so a
// read or write that slips past the emulation reaches nothing.
inline dev_t scsi_generic_dev() { return makedev(1, 3); }

class ScsiGenericService {
public:
    ScsiGenericService(Host &host, TrafficLog &log);

    // True when `path` (as the caller opened it) is one of our nodes.
    [[nodiscard]] bool serves(const std::string &path) const;
    // One SG_IO on the node at `path`, the sg_io_hdr at `hdr_addr` in the
    // caller's memory. Returns 0 or a positive errno for the caller.
    int handle_sg_io(const std::string &path, uint64_t hdr_addr, RemoteMemory &mem, unsigned pid);

private:
    [[nodiscard]] const ScsiGenericNode *find(const std::string &path) const;

    Host &host_;
    TrafficLog &log_;
    std::vector<ScsiGenericNode> nodes_;
};

}  // namespace vxemu

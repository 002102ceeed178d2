// SPDX-License-Identifier: MIT
#include "scsi_generic.h"

#include <scsi/sg.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace vxemu {

namespace {

constexpr unsigned kMaxCdb = 16;
constexpr uint8_t kDriverSense = 0x08;  // driver_status: sense data valid

// The sg_io_hdr as SG_IO carries it; read and written whole, in the
// caller's own layout (same machine, same ABI).
using SgHeader = std::array<uint8_t, sizeof(sg_io_hdr_t)>;

}  // namespace

std::vector<ScsiGenericNode> scsi_generic_nodes(const Host &host) {
    std::vector<ScsiGenericNode> out;
    for (size_t a = 0; a < host.adapters.size(); ++a) {
        const Adapter &ad = host.adapters[a];
        if (ad.transport != Transport::sysfs) continue;
        for (size_t f = 0; f < ad.functions.size(); ++f) {
            const PortFunction &fn = ad.functions[f];
            for (const EmulatedTarget &t : DriverService::targets_of(fn)) {
                std::vector<uint16_t> luns;
                for (const LogicalUnit &lu : t.luns) luns.push_back(lu.lun);
                std::sort(luns.begin(), luns.end());
                luns.erase(std::unique(luns.begin(), luns.end()), luns.end());
                for (uint16_t lun : luns) {
                    ScsiGenericNode n;
                    n.index = static_cast<unsigned>(out.size());
                    n.adapter = a;
                    n.function = f;
                    n.host_no = fn.host_no;
                    n.target_id = t.target_id;
                    n.lun = lun;
                    out.push_back(n);
                }
            }
        }
    }
    return out;
}

ScsiGenericService::ScsiGenericService(Host &host, TrafficLog &log)
    : host_(host), log_(log), nodes_(scsi_generic_nodes(host)) {}

const ScsiGenericNode *ScsiGenericService::find(const std::string &path) const {
    for (const ScsiGenericNode &n : nodes_)
        if (path == "/dev/" + n.name()) return &n;
    return nullptr;
}

bool ScsiGenericService::serves(const std::string &path) const { return find(path) != nullptr; }

int ScsiGenericService::handle_sg_io(const std::string &path, uint64_t hdr_addr, RemoteMemory &mem, unsigned pid) {
    const ScsiGenericNode *node = find(path);
    if (node == nullptr) return ENOTTY;
    const Adapter &ad = host_.adapters[node->adapter];
    const PortFunction &fn = ad.functions[node->function];

    TrafficEntry e;
    e.kind = "sg";
    e.pid = pid;
    e.adapter = ad.name;
    e.function = static_cast<unsigned>(node->function);
    e.attribute = node->name();
    e.op = "SG_IO";
    e.offset = node->lun;
    auto refuse = [&](int err, std::string why) {
        e.status = -err;
        e.violation = std::move(why);
        if (mem.gone()) {
            e.violation.clear();
            e.fault = "caller gone";
        }
        log_.record(e);
        return err;
    };

    SgHeader raw{};
    if (!mem.read(hdr_addr, raw)) return refuse(EFAULT, "sg_io_hdr not readable");
    sg_io_hdr_t h{};
    std::memcpy(&h, raw.data(), sizeof h);
    // The checks the sg driver makes before it queues a command.
    if (h.interface_id != 'S') return refuse(ENOSYS, "interface_id " + std::to_string(h.interface_id));
    if (h.iovec_count != 0) return refuse(EINVAL, "scatter list of " + std::to_string(h.iovec_count) + " pieces");
    if (h.cmd_len < 6 || h.cmd_len > kMaxCdb) return refuse(EMSGSIZE, "cmd_len " + std::to_string(h.cmd_len));
    const bool read_dir = h.dxfer_direction == SG_DXFER_FROM_DEV;
    const bool write_dir = h.dxfer_direction == SG_DXFER_TO_DEV;
    if (!read_dir && !write_dir && h.dxfer_direction != SG_DXFER_NONE)
        return refuse(EINVAL, "dxfer_direction " + std::to_string(h.dxfer_direction));
    if (h.dxfer_direction == SG_DXFER_NONE && h.dxfer_len != 0)
        return refuse(EINVAL, "dxfer_len " + std::to_string(h.dxfer_len) + " without a direction");
    if (h.dxfer_len > kMaxTransfer) return refuse(ENOMEM, "dxfer_len " + std::to_string(h.dxfer_len));
    e.length = h.dxfer_len;

    std::vector<uint8_t> cdb(h.cmd_len);
    if (!mem.read(reinterpret_cast<uintptr_t>(h.cmdp), cdb)) return refuse(EFAULT, "command bytes not readable");
    e.region = cdb[0];
    e.text = cdb_text(cdb);
    if (write_dir && h.dxfer_len != 0) {
        // Written data is taken from the caller and dropped, as the target does.
        std::vector<uint8_t> sink(h.dxfer_len);
        if (!mem.read(reinterpret_cast<uintptr_t>(h.dxferp), sink)) return refuse(EFAULT, "data buffer not readable");
    }

    const EmulatedTarget *target = nullptr;
    const auto targets = DriverService::targets_of(fn);
    for (const EmulatedTarget &t : targets)
        if (t.target_id == node->target_id) target = &t;
    if (target == nullptr) return refuse(ENXIO, "node without a target");  // the link went down under it

    const ScsiResult res = scsi_execute(*target, node->lun, cdb, read_dir ? h.dxfer_len : 0);
    uint32_t moved = 0;
    if (read_dir && !res.data.empty()) {
        if (!mem.write(reinterpret_cast<uintptr_t>(h.dxferp), res.data)) return refuse(EFAULT, "data buffer not writable");
        moved = static_cast<uint32_t>(res.data.size());
    }
    h.status = res.status;
    h.masked_status = static_cast<uint8_t>((res.status >> 1) & 0x7F);
    h.msg_status = 0;
    h.host_status = 0;
    h.driver_status = 0;
    h.sb_len_wr = 0;
    if (!res.sense.empty() && h.mx_sb_len != 0) {
        const size_t n = std::min<size_t>(res.sense.size(), h.mx_sb_len);
        if (!mem.write(reinterpret_cast<uintptr_t>(h.sbp), std::span<const uint8_t>(res.sense.data(), n)))
            return refuse(EFAULT, "sense buffer not writable");
        h.sb_len_wr = static_cast<uint8_t>(n);
        h.driver_status = kDriverSense;
    }
    h.resid = static_cast<int>(h.dxfer_len - (read_dir ? moved : write_dir ? h.dxfer_len : 0));
    h.duration = 0;
    h.info = res.status != 0 ? SG_INFO_CHECK : SG_INFO_OK;
    std::memcpy(raw.data(), &h, sizeof h);
    if (!mem.write(hdr_addr, raw)) return refuse(EFAULT, "sg_io_hdr not writable");
    e.status = res.status;
    log_.record(e);
    return 0;
}

}  // namespace vxemu

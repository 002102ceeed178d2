// SPDX-License-Identifier: MIT
// The emulated driver's management requests: one ioctl carrying the request
// header, answered the way the driver answers it, reading and writing the
// caller's buffers through a RemoteMemory (process_vm_readv/writev in the
// supervisor, a plain buffer in tests).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fault_injector.h"
#include "host_model.h"
#include "traffic_log.h"
#include "wire.h"

namespace vxemu {

// The caller's address space, as the driver's copy_from_user/copy_to_user see it.
class RemoteMemory {
public:
    virtual ~RemoteMemory() = default;
    [[nodiscard]] virtual bool read(uint64_t addr, std::span<uint8_t> out) = 0;
    [[nodiscard]] virtual bool write(uint64_t addr, std::span<const uint8_t> in) = 0;
    // True once the caller has been found gone (it died during its request).
    [[nodiscard]] virtual bool gone() const { return false; }
};

// A port the driver serves through ioctl: adapter and PCI function index.
struct PortRef {
    size_t adapter = 0;
    size_t function = 0;
};

// A SCSI target behind a port, as the driver's discovery numbers it.
struct EmulatedTarget : TargetPort {
    uint16_t target_id = 0;
};

// What a target answers to one command: SCSI status, data, sense.
struct ScsiResult {
    uint8_t status = 0;  // 0 GOOD, 2 CHECK CONDITION
    std::vector<uint8_t> data;
    std::vector<uint8_t> sense;
};
// "12 00 00 00 ff 00": the command bytes as the traffic log shows them.
[[nodiscard]] std::string cdb_text(std::span<const uint8_t> cdb);
// Runs one command against a target (also used for the SCSI generic node
// of sysfs hosts); data is cut at the command's allocation length and at
// xfer_len, the bytes the caller offers.
[[nodiscard]] ScsiResult scsi_execute(const TargetPort &t, uint16_t lun, std::span<const uint8_t> cdb, uint32_t xfer_len);

// One LUN (or target) of a port's failover tables.
struct FoEntry {
    uint16_t target_id = 0;
    uint16_t lun = 0;
    std::array<uint8_t, 8> port_name{};
    std::array<uint8_t, 8> node_name{};
    uint32_t flags = 0;
    uint16_t path_count = 0;
};

// A port's failover table: what the driver presents now, and what was saved
// through the write commands (empty until the first write of the run).
struct FoTable {
    bool seeded = false;
    std::vector<FoEntry> live;
    std::vector<FoEntry> saved;
};

// Most entries a port's table holds; a write that would grow it beyond is refused.
inline constexpr size_t kFoMaxTableEntries = 4096;

// Largest buffer a single request may move; beyond it the driver refuses the request.
inline constexpr uint32_t kMaxTransfer = 64u << 20;

class DriverService {
public:
    DriverService(Host &host, TrafficLog &log, FaultInjector &faults);

    // One intercepted ioctl. Returns 0 or a positive errno for the caller.
    int handle_ioctl(unsigned long request, uint64_t header_addr, RemoteMemory &mem, unsigned pid = 0);

    // Driver instances in the order the driver numbers them.
    [[nodiscard]] const std::vector<PortRef> &ports() const { return ports_; }
    // The targets every port of this driver discovers.
    [[nodiscard]] static std::vector<EmulatedTarget> targets_of(const PortFunction &fn);

private:
    struct Call;
    void dispatch(Call &c);
    // Applies the injected fault the request meets; true when it ends the request.
    bool apply_fault(Call &c, const std::string &adapter, int function);
    void record(Call &c);
    void query(Call &c);
    void get_data(Call &c);
    void set_data(Call &c);
    void read_optrom(Call &c);
    void update_optrom(Call &c);
    void optrom_layout(Call &c);
    void nvram_vpd(Call &c);
    void activate(Call &c);
    void aen(Call &c);
    void scsi_passthru(Call &c);
    void wwpn_to_scsiaddr(Call &c);
    void failover(Call &c);
    FoTable &fo_table(Call &c, bool targets);
    void fo_read_list(Call &c, std::span<const uint8_t> in, bool targets);
    void fo_write_list(Call &c, std::span<const uint8_t> in, bool targets);

    // Buffer helpers: false (and the request answered) when the buffer cannot be moved.
    bool fetch_request(Call &c, uint32_t need, std::vector<uint8_t> &out);
    bool need_response(Call &c, uint32_t need);
    bool put_response(Call &c, std::span<const uint8_t> bytes);
    // Every store into the adapter goes through the injector (faults, power).
    FaultInjector::Store store(Call &c, std::span<uint8_t> data);

    Host &host_;
    TrafficLog &log_;
    FaultInjector &faults_;
    std::vector<PortRef> ports_;
    std::map<std::string, uint32_t> beacon_;     // per adapter/function
    std::map<std::string, FoTable> fo_luns_;     // per adapter/function
    std::map<std::string, FoTable> fo_targets_;  // per adapter/function
};

}  // namespace vxemu

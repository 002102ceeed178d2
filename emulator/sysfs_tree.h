// SPDX-License-Identifier: MIT
// The emulated /sys: a static inode table built from the host model, and the
// driver's attribute semantics (text attributes, PCI config space, the
// optrom_ctl/optrom flash protocol, the nvram and vpd blocks). The FUSE glue
// (fuse_server) only translates kernel requests into calls on this class.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fault_injector.h"
#include "host_model.h"
#include "traffic_log.h"

namespace vxemu {

enum class NodeType : uint8_t { dir, link, file };
enum class AttrKind : uint8_t { text, pci_config, optrom_ctl, optrom, nvram, vpd };

struct SysfsNode {
    uint64_t ino = 0;
    uint64_t parent = 0;
    std::string name;
    NodeType type = NodeType::dir;
    mode_t mode = 0755;                       // permission bits
    std::string target;                       // symlink target (relative)
    std::map<std::string, uint64_t> children; // directory entries
    // files
    AttrKind kind = AttrKind::text;
    std::string attr;                         // attribute name (for logs and faults)
    int adapter = -1;                         // -1: not an adapter attribute
    int function = -1;
    std::string fixed_text;                   // text attributes that never change
    uint64_t size = 4096;                     // st_size as sysfs reports it
};

class SysfsTree {
public:
    static constexpr uint64_t kRootIno = 1;

    SysfsTree(Host &host, TrafficLog &log, FaultInjector &faults);

    [[nodiscard]] const SysfsNode *node(uint64_t ino) const;
    [[nodiscard]] std::optional<uint64_t> lookup(uint64_t parent, std::string_view name) const;
    // Follows a path below the root without resolving symlinks ("bus/pci/devices").
    [[nodiscard]] std::optional<uint64_t> walk(std::string_view path) const;

    // File access; each returns 0 or a positive errno.
    int open(uint64_t ino, int flags, uint64_t &fh);
    int read(uint64_t fh, uint64_t off, size_t size, std::vector<uint8_t> &out);
    // `caller` is the calling thread as this process sees it (0: unknown).
    int write(uint64_t fh, uint64_t off, std::span<const uint8_t> data, size_t &written, unsigned caller = 0);
    void release(uint64_t fh);

    [[nodiscard]] size_t node_count() const { return nodes_.size(); }

private:
    struct OpenFile {
        uint64_t ino = 0;
        uint64_t moved = 0;  // bytes moved through this open (short-transfer faults)
        std::optional<Fault> fault;
    };
    // A flash access on one function's optrom_ctl: the driver's staging state.
    struct OptromSession {
        enum class Mode : uint8_t { idle, reading, writing } mode = Mode::idle;
        uint64_t offset = 0;
        uint64_t size = 0;
        std::vector<uint8_t> staging;
        uint64_t staged = 0;  // bytes accepted into staging (stop-after faults)
        unsigned owner = 0;   // process that started the access (0: unknown)
    };

    uint64_t add(uint64_t parent, const std::string &name, NodeType type, mode_t mode);
    uint64_t add_dir_path(const std::string &path);  // creates missing directories
    uint64_t add_file(uint64_t dir, const std::string &name, mode_t mode, AttrKind kind, int adapter, int fn,
                      std::string text = {});
    void add_link(const std::string &path, const std::string &target);
    void build();
    void add_scsi_generic();

    [[nodiscard]] std::string text_of(const SysfsNode &n) const;
    int optrom_ctl(const SysfsNode &n, std::string_view cmd, TrafficEntry &e, unsigned owner);
    void log_attr(const SysfsNode &n, const char *op, uint64_t off, uint64_t len, int err, TrafficEntry e);
    // Every store into the adapter goes through the injector (faults, power).
    FaultInjector::Store store(const std::optional<Fault> &f, std::span<uint8_t> data, TrafficEntry &e);

    Host &host_;
    TrafficLog &log_;
    FaultInjector &faults_;
    std::vector<SysfsNode> nodes_;  // index = ino - 1
    std::map<uint64_t, OpenFile> open_;
    uint64_t next_fh_ = 1;
    std::map<std::pair<int, int>, OptromSession> sessions_;
};

// Texts the driver prints for a world-wide name and a port address.
[[nodiscard]] std::string wwn_text(const std::array<uint8_t, 8> &wwn);

}  // namespace vxemu

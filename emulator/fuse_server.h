// SPDX-License-Identifier: MIT
// Serves a SysfsTree over a /dev/fuse descriptor that the sandbox mounted on
// /sys. Single-threaded: the supervisor's poll loop calls process() whenever
// the descriptor is readable.
#pragma once

#include "sysfs_tree.h"

struct fuse_session;

namespace vxemu {

class FuseServer {
public:
    explicit FuseServer(SysfsTree &tree) : tree_(tree) {}
    ~FuseServer();
    FuseServer(const FuseServer &) = delete;
    FuseServer &operator=(const FuseServer &) = delete;

    // Takes over an open /dev/fuse descriptor whose mount already exists.
    [[nodiscard]] bool attach(int fuse_fd);
    [[nodiscard]] int fd() const;
    // Handles one request; false once the file system is gone.
    bool process();
    [[nodiscard]] SysfsTree &tree() { return tree_; }

private:
    SysfsTree &tree_;
    fuse_session *se_ = nullptr;
    void *buf_mem_ = nullptr;
    size_t buf_size_ = 0;
};

}  // namespace vxemu

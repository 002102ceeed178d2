// SPDX-License-Identifier: MIT
#define FUSE_USE_VERSION 34
#include "fuse_server.h"

#include <fuse_lowlevel.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace vxemu {

namespace {

SysfsTree &tree_of(fuse_req_t req) { return static_cast<FuseServer *>(fuse_req_userdata(req))->tree(); }

const time_t kBootTime = std::time(nullptr);

struct stat stat_of(const SysfsNode &n) {
    struct stat st {};
    st.st_ino = n.ino;
    st.st_uid = 0;
    st.st_gid = 0;
    st.st_atime = st.st_mtime = st.st_ctime = kBootTime;
    st.st_blksize = 4096;
    switch (n.type) {
    case NodeType::dir:
        st.st_mode = S_IFDIR | n.mode;
        st.st_nlink = 2;
        break;
    case NodeType::link:
        st.st_mode = S_IFLNK | 0777;
        st.st_nlink = 1;
        st.st_size = static_cast<off_t>(n.target.size());
        break;
    case NodeType::file:
        st.st_mode = S_IFREG | n.mode;
        st.st_nlink = 1;
        st.st_size = static_cast<off_t>(n.size);
        break;
    }
    return st;
}

void reply_entry(fuse_req_t req, const SysfsNode &n) {
    fuse_entry_param e{};
    e.ino = n.ino;
    e.attr = stat_of(n);
    e.attr_timeout = 0;
    e.entry_timeout = 0;
    fuse_reply_entry(req, &e);
}

void op_lookup(fuse_req_t req, fuse_ino_t parent, const char *name) {
    SysfsTree &t = tree_of(req);
    const auto ino = t.lookup(parent, name);
    if (!ino) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    reply_entry(req, *t.node(*ino));
}

void op_getattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info *) {
    const SysfsNode *n = tree_of(req).node(ino);
    if (n == nullptr) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    const struct stat st = stat_of(*n);
    fuse_reply_attr(req, &st, 0);
}

// Truncation from a shell redirect ("> optrom_ctl") is accepted and ignored, as sysfs does.
void op_setattr(fuse_req_t req, fuse_ino_t ino, struct stat *, int, fuse_file_info *fi) { op_getattr(req, ino, fi); }

void op_readlink(fuse_req_t req, fuse_ino_t ino) {
    const SysfsNode *n = tree_of(req).node(ino);
    if (n == nullptr || n->type != NodeType::link) {
        fuse_reply_err(req, EINVAL);
        return;
    }
    fuse_reply_readlink(req, n->target.c_str());
}

void op_opendir(fuse_req_t req, fuse_ino_t ino, fuse_file_info *fi) {
    const SysfsNode *n = tree_of(req).node(ino);
    if (n == nullptr) fuse_reply_err(req, ENOENT);
    else if (n->type != NodeType::dir) fuse_reply_err(req, ENOTDIR);
    else fuse_reply_open(req, fi);
}

void op_readdir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info *) {
    const SysfsTree &t = tree_of(req);
    const SysfsNode *n = t.node(ino);
    if (n == nullptr || n->type != NodeType::dir) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    std::vector<std::pair<std::string, const SysfsNode *>> entries;
    entries.emplace_back(".", n);
    entries.emplace_back("..", t.node(n->parent));
    for (const auto &[name, child] : n->children) entries.emplace_back(name, t.node(child));
    std::vector<char> buf(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(off); i < entries.size(); ++i) {
        struct stat st = stat_of(*entries[i].second);
        const size_t need = fuse_add_direntry(req, buf.data() + used, size - used, entries[i].first.c_str(), &st,
                                              static_cast<off_t>(i + 1));
        if (need > size - used) break;
        used += need;
    }
    fuse_reply_buf(req, buf.data(), used);
}

void op_open(fuse_req_t req, fuse_ino_t ino, fuse_file_info *fi) {
    uint64_t fh = 0;
    const int err = tree_of(req).open(ino, fi->flags, fh);
    if (err != 0) {
        fuse_reply_err(req, err);
        return;
    }
    fi->fh = fh;
    // Every read and write must reach the driver with the caller's offset and size.
    fi->direct_io = 1;
    fi->keep_cache = 0;
    fi->nonseekable = 0;
    fuse_reply_open(req, fi);
}

void op_read(fuse_req_t req, fuse_ino_t, size_t size, off_t off, fuse_file_info *fi) {
    std::vector<uint8_t> out;
    const int err = tree_of(req).read(fi->fh, static_cast<uint64_t>(off), size, out);
    if (err != 0) fuse_reply_err(req, err);
    else fuse_reply_buf(req, reinterpret_cast<const char *>(out.data()), out.size());
}

void op_write(fuse_req_t req, fuse_ino_t, const char *data, size_t size, off_t off, fuse_file_info *fi) {
    size_t written = 0;
    const int err = tree_of(req).write(
        fi->fh, static_cast<uint64_t>(off),
        std::span<const uint8_t>(reinterpret_cast<const uint8_t *>(data), size), written,
        static_cast<unsigned>(fuse_req_ctx(req)->pid));
    if (err != 0) fuse_reply_err(req, err);
    else fuse_reply_write(req, written);
}

void op_release(fuse_req_t req, fuse_ino_t, fuse_file_info *fi) {
    tree_of(req).release(fi->fh);
    fuse_reply_err(req, 0);
}

void op_statfs(fuse_req_t req, fuse_ino_t) {
    struct statvfs st {};
    st.f_bsize = 4096;
    st.f_namemax = 255;
    fuse_reply_statfs(req, &st);
}

const fuse_lowlevel_ops kOps = [] {
    fuse_lowlevel_ops ops{};
    ops.lookup = op_lookup;
    ops.getattr = op_getattr;
    ops.setattr = op_setattr;
    ops.readlink = op_readlink;
    ops.opendir = op_opendir;
    ops.readdir = op_readdir;
    ops.open = op_open;
    ops.read = op_read;
    ops.write = op_write;
    ops.release = op_release;
    ops.statfs = op_statfs;
    return ops;
}();

}  // namespace

FuseServer::~FuseServer() {
    if (se_ != nullptr) fuse_session_destroy(se_);
    std::free(buf_mem_);
}

bool FuseServer::attach(int fuse_fd) {
    char arg0[] = "vxemu";
    char *argv[] = {arg0, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, argv);
    se_ = fuse_session_new(&args, &kOps, sizeof kOps, this);
    fuse_opt_free_args(&args);
    if (se_ == nullptr) return false;
    // The sandbox did the mount itself; libfuse only takes the descriptor over.
    const std::string mp = "/dev/fd/" + std::to_string(fuse_fd);
    return fuse_session_mount(se_, mp.c_str()) == 0;
}

int FuseServer::fd() const { return se_ != nullptr ? fuse_session_fd(se_) : -1; }

bool FuseServer::process() {
    fuse_buf buf{};
    buf.mem = buf_mem_;
    buf.size = buf_size_;
    const int res = fuse_session_receive_buf(se_, &buf);
    buf_mem_ = buf.mem;
    buf_size_ = buf.size;
    if (res == -EINTR || res == -EAGAIN) return true;
    if (res <= 0) return false;
    fuse_session_process_buf(se_, &buf);
    return !fuse_session_exited(se_);
}

}  // namespace vxemu

// SPDX-License-Identifier: MIT
// The shared state file as another process (or an older library) left it:
// the attach of the library to whatever /tmp/vxhmx.dat holds (the adapter
// list, the instance flags, the event rings), a file of an older, shorter
// size, one that is missing, or one it must refuse (a link, a second name,
// another owner); then events queued and taken and the detach. The target
// runs in mount and IPC namespaces of its own, so /tmp and the semaphores
// are private to it; its corpus and findings must lie outside /tmp, which
// run-target.sh sees to.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "quiet.h"
#include "vx_instances.h"
#include "vx_database.h"
#include "vx_event.h"
#include "vx_event_ring.h"
#include "vx_shared_layout.h"

namespace {

void place(int fd, size_t off, const std::vector<uint8_t> &bytes) {
    if (!bytes.empty() && ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(off)) != static_cast<ssize_t>(bytes.size()))
        std::abort();
}

// Lays out the file the library will find; false when there is none.
void lay_out_file(FuzzedDataProvider &in) {
    const int how = in.ConsumeIntegralInRange(0, 7);
    if (how == 0) return;  // missing: the library creates it
    const int fd = ::open(kSharedFilePath, O_RDWR | O_CREAT | O_EXCL, 0644);
    if (fd < 0) std::abort();
    if (how == 1) {
        // An older, shorter file: its bytes are kept and the rest zeroed.
        const size_t n = in.ConsumeBool() ? kFirstVersionFileSize : in.ConsumeIntegralInRange<size_t>(0, 12000);
        std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(n);
        bytes.resize(n);
        place(fd, 0, bytes);
    } else {
        // Full size (sparse).
        if (::ftruncate(fd, static_cast<off_t>(kSharedFileSize)) != 0) std::abort();
        // The adapter list, the instance flags and the per-instance adapter
        // flags, then some event rings, from the input.
        place(fd, 0, in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, libinst_flags_offset(0))));
        place(fd, libinst_flags_offset(0),
              in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, hbaptevq_offset(0) - libinst_flags_offset(0))));
        for (int rings = in.ConsumeIntegralInRange(0, 4); rings > 0; --rings) {
            const int inst = in.ConsumeIntegralInRange(0, kSharedInstances - 1);
            const int slot = in.ConsumeIntegralInRange(0, kSharedAdapters - 1);
            place(fd, hbaptevq_offset(inst) + sizeof(vxapi_hbaptevq_t) * static_cast<size_t>(slot),
                  in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, sizeof(vxapi_hbaptevq_t))));
        }
    }
    ::close(fd);
    switch (how) {
    case 5: ::link(kSharedFilePath, "/tmp/second-name"); break;
    case 6:
        if (::chown(kSharedFilePath, 1234, 1234) != 0) std::abort();
        break;
    case 7:
        ::rename(kSharedFilePath, "/tmp/elsewhere");
        if (::symlink("/tmp/elsewhere", kSharedFilePath) != 0) std::abort();
        break;
    default: break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    for (int i = 1; i < *argc; ++i) {
        const std::string_view arg = (*argv)[i];
        if (arg.starts_with("/tmp/") || arg.starts_with("-artifact_prefix=/tmp/")) {
            std::fprintf(stderr, "shared_state: %s lies under /tmp, which this target replaces\n", (*argv)[i]);
            std::exit(1);
        }
    }
    fuzz::quiet(argc, argv);
    // A /tmp and semaphores of our own: the library's paths and keys are fixed.
    if (::unshare(CLONE_NEWNS | CLONE_NEWIPC) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("fwfuzz", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "size=256m,mode=1777") != 0) {
        std::perror("shared_state: needs root for private mount and IPC namespaces");
        std::exit(1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    for (const char *p : {kSharedFilePath, "/tmp/second-name", "/tmp/elsewhere"}) ::unlink(p);

    // This process's adapters, some of them already in the file.
    vxapi_clear_table();
    const int local = in.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < local; ++i) {
        vxapi_priv_db_t &rec = api_priv_data[i];
        std::snprintf(rec.phys_path, sizeof rec.phys_path, "/dev/vxa2xxx%s", in.ConsumeBool() ? "" : "-b");
        rec.host_no = in.ConsumeIntegralInRange<uint16_t>(0, 3);
        rec.features = VXF_IOCTL;
    }
    lay_out_file(in);

    int fd = -1;
    if (vxapi_open_database(&fd) != 0) {
        if (api_shared_data != nullptr || api_shm_fildes >= 0) std::abort();  // a failed attach maps nothing
        vxapi_clear_table();
        return 0;
    }
    struct stat st {};
    if (!vxapi_database_ready() || api_library_instance < 0 || api_library_instance >= kSharedInstances ||
        ::fstat(fd, &st) != 0 || static_cast<size_t>(st.st_size) < kSharedFileSize)
        std::abort();
    // Every adapter of this process has its entry.
    for (int i = 0; i < local; ++i)
        if (vxapi_db_find_entry(i) < 0) std::abort();

    // Events for an adapter, then taken back by this instance: never more
    // than the room given, and never without the last one queued.
    const int slot = in.ConsumeIntegralInRange(-1, kSharedAdapters);
    uint32_t last = 0;
    for (int n = in.ConsumeIntegralInRange(0, 70); n > 0; --n) {
        uint8_t record[16] = {};
        last = in.ConsumeIntegral<uint32_t>();
        std::memcpy(record, &last, sizeof last);
        vxapi_event_queue(api_shared_data, slot, record);
    }
    const size_t room = in.ConsumeIntegralInRange<size_t>(0, 70);
    std::vector<uint8_t> out(room * 16 + 1);
    const size_t taken = vxapi_event_take(api_shared_data, api_library_instance, slot, out.data(), room);
    const bool valid_slot = slot >= 0 && slot < kSharedAdapters;
    if (taken > room || (valid_slot && last != 0 && room > 0 && taken == 0)) std::abort();

    vxapi_close_database(fd);
    if (api_shared_data != nullptr || api_semid != -1 || api_library_instance != -1) std::abort();
    vxapi_clear_table();
    return 0;
}

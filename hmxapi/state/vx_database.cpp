// SPDX-License-Identifier: MIT
// The process-shared state file /tmp/vxhmx.dat and its two semaphores.
#include "vx_database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "vx_instances.h"
#include "vx_hmdbg.h"
#include "vx_os.h"
#include "vx_shared_layout.h"

int api_use_database = 0;
int api_semid = -1;
int api_flash_semid = -1;
int api_shm_fildes = -1;
uint8_t *api_shared_data = nullptr;
int api_library_instance = -1;

namespace {

const char *g_shared_path = kSharedFilePath;

// ---- bytewise access to the mapping ---------------------------------------

uint32_t get32(const uint8_t *base, std::size_t off) {
    uint32_t v;
    std::memcpy(&v, base + off, sizeof v);
    return v;
}
void put32(uint8_t *base, std::size_t off, uint32_t v) { std::memcpy(base + off, &v, sizeof v); }

uint16_t entry_host_no(const uint8_t *base, int i) {
    uint16_t v;
    std::memcpy(&v, base + hbainfo_offset(i) + offsetof(vxapi_hbainfo_t, host_no), sizeof v);
    return v;
}

bool entry_free(const uint8_t *base, int i) { return base[hbainfo_offset(i)] == '\0'; }

bool entry_matches(const uint8_t *base, int i, const vxapi_priv_db_t &rec) {
    const char *path = reinterpret_cast<const char *>(base + hbainfo_offset(i));
    return strnlen(path, 240) < 240 && std::strncmp(path, rec.phys_path, sizeof rec.phys_path) == 0 &&
           entry_host_no(base, i) == rec.host_no;
}

void fill_entry(uint8_t *base, int i, const vxapi_priv_db_t &rec) {
    uint8_t *e = base + hbainfo_offset(i);
    std::memset(e, 0, offsetof(vxapi_hbainfo_t, rsvd1));
    std::memcpy(e, rec.phys_path, strnlen(rec.phys_path, sizeof rec.phys_path));
    std::memcpy(e + offsetof(vxapi_hbainfo_t, host_no), &rec.host_no, sizeof rec.host_no);
}

int find_entry(const uint8_t *base, const vxapi_priv_db_t &rec) {
    for (int i = 0; i < kSharedAdapters; ++i)
        if (!entry_free(base, i) && entry_matches(base, i, rec)) return i;
    return -1;
}

void clear_instance_rows(uint8_t *base, int inst) {
    std::memset(base + libinst_hbaflags_offset(inst), 0, kHbaFlagsRowSize);
    std::memset(base + hbaptevq_offset(inst), 0, kEventQueuesRowSize);
}

// Every adapter of the local table gets its shared entry.
void register_local_adapters(uint8_t *base, bool fresh) {
    int next_fresh = 0;
    for (int a = 0; a < kMaxAdapters && api_priv_data[a].phys_path[0] != '\0'; ++a) {
        const vxapi_priv_db_t &rec = api_priv_data[a];
        if (fresh) {
            fill_entry(base, next_fresh++, rec);
            continue;
        }
        if (find_entry(base, rec) >= 0) continue;
        int slot = -1;
        for (int i = 0; i < kSharedAdapters && slot < 0; ++i)
            if (entry_free(base, i)) slot = i;
        if (slot < 0) vxapi_cleanup_and_get_new_idxs(&slot);
        if (slot < 0) continue;  // no entry can be freed: stays out of the list
        fill_entry(base, slot, rec);
    }
}

void claim_instance(uint8_t *base) {
    int inst = -1;
    for (int i = 0; i < kSharedInstances && inst < 0; ++i)
        if ((get32(base, libinst_flags_offset(i)) & kInstTaken) == 0) inst = i;
    if (inst < 0) {
        // Eight instances claimed: some died without closing. Start over at 0.
        for (int i = 1; i < kSharedInstances; ++i)
            put32(base, libinst_flags_offset(i), get32(base, libinst_flags_offset(i)) & ~kInstTaken);
        inst = 0;
        std::fputs("libvxhmx: INFO - Assigning lib instance number to 0.\n", stderr);
    }
    put32(base, libinst_flags_offset(inst), get32(base, libinst_flags_offset(inst)) | kInstTaken | kInstAlive);
    clear_instance_rows(base, inst);
    api_library_instance = inst;
}

// Prints a warning that carries errno, leaving errno as it was.
#define warn_errno(format_literal)                          \
    do {                                                    \
        const int saved_errno = errno;                      \
        std::fprintf(stderr, format_literal, saved_errno);  \
        errno = saved_errno;                                \
    } while (0)

// A file root will map and write must be ours: a regular file owned by
// root, and no other name of another file (a hard link would have root
// grow and overwrite that file).
bool shared_file_trusted(int fd) {
    struct stat st {};
    if (vxos::fstat(fd, &st) != 0) return false;
    if (!S_ISREG(st.st_mode) || st.st_uid != 0) {
        std::fprintf(stderr, "libvxhmx: ERROR - %s is not a regular file owned by root; not using it.\n", g_shared_path);
        errno = EPERM;
        return false;
    }
    if (st.st_nlink != 1) {
        std::fprintf(stderr, "libvxhmx: ERROR - %s has more than one name; not using it.\n", g_shared_path);
        errno = EPERM;
        return false;
    }
    return true;
}

// Grows an older, shorter file to the full size, keeping its bytes.
bool upgrade_file(int fd, std::size_t old_size) {
    std::unique_ptr<uint8_t[]> buf(new (std::nothrow) uint8_t[kSharedFileSize]());
    if (!buf) {
        errno = ENOMEM;
        warn_errno("libvxhmx: Unable to alloc new shared data buf. errno=%d.\n");
        return false;
    }
    if (vxos::lseek(fd, 0, SEEK_SET) != 0 || !vxos::read_full(fd, buf.get(), old_size)) {
        warn_errno("libvxhmx: Unable to read shared data file. errno=%d.\n");
        return false;
    }
    if (old_size == kFirstVersionFileSize) put32(buf.get(), libinst_flags_offset(0), kInstUpgraded);
    if (vxos::lseek(fd, 0, SEEK_SET) != 0) {
        warn_errno("libvxhmx: Unable to seek to beginning of shared data file. errno=%d.\n");
        return false;
    }
    if (!vxos::write_full(fd, buf.get(), kSharedFileSize)) {
        warn_errno("libvxhmx: Unable to upgrade shared data file. errno=%d.\n");
        return false;
    }
    return true;
}

bool create_file(vxos::Fd &fd) {
    fd = vxos::Fd(vxos::open(g_shared_path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0644));
    if (!fd.ok()) {
        warn_errno("libvxhmx: Unable to create shared data file. errno=%d.\n");
        return false;
    }
    // The size is written out, not just set: every page must exist on disk.
    std::unique_ptr<uint8_t[]> zeros(new (std::nothrow) uint8_t[65536]());
    if (!zeros) {
        errno = ENOMEM;
        return false;
    }
    std::size_t left = kSharedFileSize;
    while (left > 0) {
        const std::size_t n = left < 65536 ? left : 65536;
        if (!vxos::write_full(fd.get(), zeros.get(), n)) {
            warn_errno("libvxhmx: Unable to write completely to shared data file. errno=%d.\n");
            return false;
        }
        left -= n;
    }
    return true;
}

uint8_t *map_file(int fd) {
    const int flags = OS_Type == kOsTypeEsx ? MAP_PRIVATE : MAP_SHARED;
    void *p = vxos::mmap(kSharedFileSize, PROT_READ | PROT_WRITE, flags, fd);
    // A failed map must never be used as an address.
    if (p == nullptr || p == MAP_FAILED) return nullptr;
    return static_cast<uint8_t *>(p);
}

void release_mapping() {
    if (api_shared_data != nullptr) vxos::munmap(api_shared_data, kSharedFileSize);
    api_shared_data = nullptr;
    if (api_shm_fildes >= 0) vxos::close(api_shm_fildes);
    api_shm_fildes = -1;
}

// The body of the open, run with semaphore 829 held.
int open_locked(int *out_fd) {
    vxos::Fd fd(vxos::open(g_shared_path, O_RDWR | O_NOFOLLOW, 0644));
    bool fresh = false;
    if (fd.ok()) {
        if (!shared_file_trusted(fd.get())) return 1;
        struct stat st {};
        if (vxos::fstat(fd.get(), &st) != 0) return 1;
        if (static_cast<std::size_t>(st.st_size) < kSharedFileSize &&
            !upgrade_file(fd.get(), static_cast<std::size_t>(st.st_size)))
            return 1;
    } else if (errno == ENOENT) {
        if (!create_file(fd)) {
            const int saved = errno;
            vxos::unlink(g_shared_path);  // never leave a half-written file behind
            errno = saved;
            return 1;
        }
        fresh = true;
    } else {
        std::fprintf(stderr, "libvxhmx: ERROR - cannot open %s: %s\n", g_shared_path, std::strerror(errno));
        return 1;
    }
    // Every attached process holds the file shared: the instance flags alone
    // cannot tell, since a ninth process shares instance 0 with another.
    if (vxos::flock(fd.get(), LOCK_SH) != 0) return 1;
    uint8_t *base = map_file(fd.get());
    if (base == nullptr) return 1;
    api_shared_data = base;  // the clean-up of stale entries works on it
    register_local_adapters(base, fresh);
    claim_instance(base);
    vxos::msync(base, kSharedFileSize);
    api_shm_fildes = fd.release();
    *out_fd = api_shm_fildes;
    return 0;
}

}  // namespace

// ---- semaphores ------------------------------------------------------------------

// A set root waits on must be root's: one created by another user could be
// held at 0 and hang every caller, or be released under a writer.
bool sem_trusted(int key, int id) {
    uid_t uid = 0, cuid = 0;
    if (vxos::semctl_owner(id, &uid, &cuid) != 0) return false;
    if (uid == 0 && cuid == 0) return true;
    std::fprintf(stderr, "libvxhmx: ERROR - semaphore %d was not created by root; not using it.\n", key);
    errno = EPERM;
    return false;
}

int vxapi_sem_get(int key) {
    int id = vxos::semget(key, 1, 0644);
    if (id >= 0) return sem_trusted(key, id) ? id : -1;
    if (errno != ENOENT) return id;
    id = vxos::semget(key, 1, IPC_CREAT | IPC_EXCL | 0644);
    if (id < 0 && errno == EEXIST) {  // another process won the race
        id = vxos::semget(key, 1, 0644);
        return id >= 0 && !sem_trusted(key, id) ? -1 : id;
    }
    if (id < 0) return -1;
    if (vxos::semctl_setval(id, 1) != 0) {
        const int saved = errno;
        vxos::semctl_rmid(id);
        errno = saved;
        return -1;
    }
    return id;
}

void vxapi_sem_wait(int id) {
    if (vxos::semop_one(id, -1) != 0)
        std::fprintf(stderr, "libvxhmx: WARNING - semaphore wait operation failed. errno=%d.\n", errno);
}

void vxapi_sem_signal(int id) {
    if (vxos::semop_one(id, 1) != 0)
        std::fprintf(stderr, "libvxhmx: WARNING - semaphore signal operation failed. errno=%d.\n", errno);
}

int vxapi_sem_del(int id) { return id >= 0 ? vxos::semctl_rmid(id) : 0; }

DbLock::DbLock() : id_(api_semid) {
    if (id_ >= 0) vxapi_sem_wait(id_);
}
DbLock::~DbLock() {
    if (id_ >= 0) vxapi_sem_signal(id_);
}

// ---- the file ------------------------------------------------------------------------

bool vxapi_database_ready() { return api_semid != -1 && api_shm_fildes >= 0 && api_shared_data != nullptr; }

namespace {

constexpr int kAttachAttempts = 1000;

// Gets both semaphores and takes 829. The last process to leave removes
// the sets while it holds 829, so a set met just before it went is gone by
// the time this process waits on it: 1 asks the caller to start again.
// -1 on a failure that ends the attach (errno set, message printed).
int get_and_lock_semaphores() {
    api_semid = vxapi_sem_get(kDatabaseSemKey);
    if (api_semid < 0) {
        if (errno != EPERM)
            warn_errno("libvxhmx: WARNING - semget function not supported.\n          Each adapter instance should be opened at most one time. errno=%d.\n");
        return -1;
    }
    api_flash_semid = vxapi_sem_get(kFlashSemKey);
    if (api_flash_semid < 0) {
        if (errno != EPERM)
            warn_errno("libvxhmx: WARNING - semget function not supported.\nFailed creation of flash semaphore. errno=%d.\n");
        return -1;
    }
    if (vxos::semop_one(api_semid, -1) == 0) return 0;
    if (errno == EIDRM || errno == EINVAL) return 1;
    warn_errno("libvxhmx: WARNING - semaphore wait operation failed. errno=%d.\n");
    return -1;
}

}  // namespace

namespace {
VxEventThreadHooks g_event_hooks;
}  // namespace

void vxapi_database_set_event_hooks(const VxEventThreadHooks &hooks) { g_event_hooks = hooks; }

int vxapi_open_database(int *fd) {
    if (fd == nullptr) return 1;
    if (vxapi_database_ready() && api_flash_semid != -1) {
        if (g_event_hooks.clear_stop != nullptr) g_event_hooks.clear_stop();
        *fd = api_shm_fildes;
        return 0;
    }
    int got = 1;
    for (int attempt = 0; got == 1 && attempt < kAttachAttempts; ++attempt) got = get_and_lock_semaphores();
    if (got != 0) {
        if (got == 1) errno = EIDRM;
        api_semid = -1;
        api_flash_semid = -1;
        return 1;
    }
    const int rc = open_locked(fd);
    {
        const int saved = errno;
        vxapi_sem_signal(api_semid);
        errno = saved;
    }
    if (rc != 0) {
        const int saved = errno;
        release_mapping();
        errno = saved;
        return 1;
    }
    if (g_event_hooks.start != nullptr && g_event_hooks.start() != 0) {
        const int saved = errno;
        vxapi_close_database(*fd);
        errno = saved;
        return 1;
    }
    return 0;
}

int vxapi_close_database(int /*fd*/) {
    if (g_event_hooks.stop != nullptr) g_event_hooks.stop();
    if (api_semid != -1 && api_shared_data != nullptr && api_library_instance >= 0 &&
        api_library_instance < kSharedInstances) {
        vxapi_sem_wait(api_semid);
        uint8_t *base = api_shared_data;
        vxos::msync(base, kSharedFileSize);
        const std::size_t mine = libinst_flags_offset(api_library_instance);
        put32(base, mine, get32(base, mine) & ~(kInstAlive | kInstTaken));
        int present = 0;
        for (int i = 0; i < kSharedInstances; ++i)
            if (get32(base, libinst_flags_offset(i)) & kInstPresentMask) ++present;
        clear_instance_rows(base, api_library_instance);
        // Nobody else may hold the file either (an instance shared after the
        // recovery of dead slots shows no flags of its own).
        if (present > 0 || vxos::flock(api_shm_fildes, LOCK_EX | LOCK_NB) != 0) {
            vxapi_sem_signal(api_semid);
        } else {
            // The last process to leave removes everything while it still
            // holds 829: a process joining now either attached before (and
            // was counted) or finds the sets gone and starts again, so no
            // process is ever left with a file or a flash lock of its own.
            // Removing 829 releases the hold.
            vxos::unlink(g_shared_path);
            vxapi_sem_del(api_flash_semid);
            vxapi_sem_del(api_semid);
        }
    }
    release_mapping();
    api_semid = -1;
    api_flash_semid = -1;
    api_library_instance = -1;
    return 0;
}

int vxapi_cleanup_and_get_new_idxs(int *index) {
    if (index != nullptr) *index = -1;
    uint8_t *base = api_shared_data;
    if (base == nullptr) return 1;
    for (int i = 0; i < kSharedAdapters; ++i) {
        bool local = false;
        for (int a = 0; a < kMaxAdapters && !local; ++a)
            local = api_priv_data[a].phys_path[0] != '\0' && entry_matches(base, i, api_priv_data[a]);
        if (local) continue;
        std::memset(base + hbainfo_offset(i), 0, kHbaInfoSize);
        if (index != nullptr && *index < 0) *index = i;
    }
    return 0;
}

int vxapi_db_find_entry(int idx) {
    if (api_shared_data == nullptr || !vxapi_valid_index(idx)) return -1;
    return find_entry(api_shared_data, api_priv_data[idx]);
}

uint8_t vxapi_db_open_count(int entry) {
    if (api_shared_data == nullptr || entry < 0 || entry >= kSharedAdapters) return 0;
    return api_shared_data[hbainfo_offset(entry) + offsetof(vxapi_hbainfo_t, open_cnt)];
}

void vxapi_db_set_open_count(int entry, uint8_t count) {
    if (api_shared_data == nullptr || entry < 0 || entry >= kSharedAdapters) return;
    api_shared_data[hbainfo_offset(entry) + offsetof(vxapi_hbainfo_t, open_cnt)] = count;
}

// SPDX-License-Identifier: MIT
// The process-shared state file /tmp/vxhmx.dat and its two semaphores.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr const char *kSharedFilePath = "/tmp/vxhmx.dat";
inline constexpr int kDatabaseSemKey = 829;
inline constexpr int kFlashSemKey = 980;
inline constexpr int kMaxLibInstances = 8;

extern int api_use_database;
extern int api_semid;        // semaphore 829, -1 when absent
extern int api_flash_semid;  // semaphore 980, -1 when absent
extern int api_shm_fildes;
extern uint8_t *api_shared_data;
extern int api_library_instance;

// The event thread lives above the shared state, which starts it when the
// file is attached (and clears its stop flag on a second attach) and stops
// it first when the file is closed. The load sequence hands it over;
// without it nothing is started.
struct VxEventThreadHooks {
    int (*start)() = nullptr;  // 0 when started
    void (*stop)() = nullptr;
    void (*clear_stop)() = nullptr;
};
void vxapi_database_set_event_hooks(const VxEventThreadHooks &hooks);

int vxapi_open_database(int *fd);
int vxapi_close_database(int fd);
int vxapi_cleanup_and_get_new_idxs(int *index);
int vxapi_sem_get(int key);
void vxapi_sem_wait(int id);
void vxapi_sem_signal(int id);
int vxapi_sem_del(int id);
bool vxapi_database_ready();

// Shared-list entry of the local adapter idx (same path and host number); -1 if none.
int vxapi_db_find_entry(int idx);
// Open count of shared entry i (0..31); out-of-range reads 0.
uint8_t vxapi_db_open_count(int entry);
void vxapi_db_set_open_count(int entry, uint8_t count);

// Holds semaphore 829 for a scope.
class DbLock {
public:
    DbLock();
    ~DbLock();
    DbLock(const DbLock &) = delete;
    DbLock &operator=(const DbLock &) = delete;
private:
    int id_;
};

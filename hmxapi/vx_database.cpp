// SPDX-License-Identifier: MIT
// The process-shared state file and its semaphores.
#include "vx_database.h"

#include <cerrno>

int api_use_database = 0;
int api_semid = -1;
int api_flash_semid = -1;
int api_shm_fildes = -1;
uint8_t *api_shared_data = nullptr;
int api_library_instance = -1;

int vxapi_open_database(int *) {
    errno = ENOSYS;
    return 1;
}
int vxapi_close_database(int) { return 0; }
bool vxapi_database_ready() { return api_semid != -1 && api_shm_fildes >= 0 && api_shared_data != nullptr; }
int vxapi_db_instance_of_handle(uint32_t) { return -1; }

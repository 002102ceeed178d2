// SPDX-License-Identifier: MIT
// The event thread: ticks once a second and every 15th tick polls the
// adapters that have event delivery registered, under the shared-state
// semaphore.
#include "vx_event.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "vx_dispatch.h"
#include "vx_event_ring.h"
#include "vx_instances.h"
#include "vx_database.h"
#include "vx_hmdbg.h"
#include "vx_os.h"
#include "vx_shared_layout.h"

namespace {

constexpr int kTicksPerPoll = 15;

// Never destroyed: a process may exit with the thread still running, and
// neither it nor the exit path may meet a destroyed mutex or a joinable
// std::thread destructor.
std::mutex &g_lock = *new std::mutex;
std::condition_variable &g_wake = *new std::condition_variable;
bool g_stop = false;
std::thread *g_thread = nullptr;

void event_thread() {
    VXDBG(VXDBG_EVENT, "vxapi_event_thread: started.");
    int tick = 0;
    std::unique_lock lock(g_lock);
    while (!g_stop) {
        // A stop request wakes the tick at once instead of after a second.
        g_wake.wait_for(lock, std::chrono::seconds(1), [] { return g_stop; });
        if (g_stop) break;
        if (++tick < kTicksPerPoll) continue;
        tick = 0;
        lock.unlock();
        {
            DbLock db;
            vxapi_event_poll_adapters();
        }
        lock.lock();
    }
    VXDBG(VXDBG_EVENT, "vxapi_event_thread: terminated.");
}

}  // namespace

namespace {

constexpr std::size_t kRingEntries = 64;
constexpr std::size_t kEventSize = sizeof(EXT_ASYNC_EVENT);

// Fetches the port's events from the driver and queues them for every
// library instance on the host.
void poll_port(int idx, int slot) {
    std::array<EXT_ASYNC_EVENT, kRingEntries> events{};
    uint32_t status = 0, returned = 0;
    vxos::Fd node(vxos::open(api_priv_data[idx].phys_path, O_RDWR));
    if (!node.ok()) return;
    const int rc = vxapi_async_event_get(node.get(), idx, events.data(), sizeof events, &status, &returned);
    if (rc != 0 || !vxapi_status_usable(status)) return;
    const std::size_t count = std::min<std::size_t>(returned, sizeof events) / kEventSize;
    if (count > 0) VXDBG_NUM(VXDBG_EVENT, "vxapi_event_thread: events fetched: ", count, 10);
    for (std::size_t i = 0; i < count; ++i) {
        uint8_t record[kEventSize];
        std::memcpy(record, &events[i], kEventSize);
        vxapi_event_queue(api_shared_data, slot, record);
    }
}

}  // namespace

void vxapi_event_poll_adapters() {
    if (api_shared_data == nullptr) return;
    for (int i = 0; i < kMaxAdapters; ++i) {
        const vxapi_priv_db_t &rec = api_priv_data[i];
        if (rec.phys_path[0] == '\0') break;
        const int slot = vxapi_db_find_entry(i);
        if (slot < 0) continue;
        // Only ports served by driver requests are polled, and only those
        // whose event reporting this process registered.
        if ((rec.features & VXF_SYSFS) == 0 && (rec.features & VXF_AEN) != 0) {
            VXDBG_NUM(VXDBG_EVENT, "vxapi_event_thread: polling hba ", i, 10);
            poll_port(i, slot);
        }
        // No exported call registers a callback, so this instance's bits
        // stay clear (its row is zeroed when it is claimed and closed) and
        // there is nothing to invoke; a bit found set was written by a
        // stranger to the file and is only traced.
        if (vxapi_event_callbacks_wanted(api_shared_data, api_library_instance, slot))
            VXDBG_NUM(VXDBG_EVENT, "vxapi_event_thread: callbacks wanted, none registered, hba ", i, 10);
    }
}

int vxapi_event_start() {
    if (g_thread != nullptr) return 0;
    {
        std::lock_guard lock(g_lock);
        g_stop = false;
    }
    try {
        g_thread = new std::thread(event_thread);
    } catch (const std::system_error &e) {
        errno = e.code().value();
        return 1;
    } catch (...) {
        errno = ENOMEM;
        return 1;
    }
    return 0;
}

void vxapi_event_stop() {
    {
        std::lock_guard lock(g_lock);
        g_stop = true;
    }
    g_wake.notify_all();
    if (g_thread == nullptr) return;
    try {
        g_thread->join();
    } catch (const std::system_error &e) {
        std::fprintf(stderr, "thread not terminated error=%d\n", e.code().value());
        g_thread->detach();
    }
    delete g_thread;
    g_thread = nullptr;
}

void vxapi_event_clear_stop() {
    std::lock_guard lock(g_lock);
    g_stop = false;
}

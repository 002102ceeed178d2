// SPDX-License-Identifier: MIT
// The event thread: ticks once a second and every 15th tick polls the
// adapters that have event delivery registered, under the shared-state
// semaphore.
#include "vx_event.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

#include "vx_core.h"
#include "vx_database.h"
#include "vx_hmdbg.h"

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

void vxapi_event_poll_adapters() {
    for (int i = 0; i < kMaxAdapters; ++i) {
        const vxapi_priv_db_t &rec = api_priv_data[i];
        if (rec.phys_path[0] == '\0' || (rec.features & VXF_AEN) == 0) continue;
        // Event records are collected into the shared queues by the event
        // code once delivery is registered; nothing is registered yet.
        VXDBG_NUM(VXDBG_EVENT, "vxapi_event_thread: polling hba ", i, 10);
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

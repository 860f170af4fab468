#include "orvan_sdk/scpi-parser/scpi_lease.h"

#include <csignal>
#include <ctime>

#include <pthread.h>

#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"

namespace {

pthread_mutex_t g_mtx = PTHREAD_MUTEX_INITIALIZER; // guards everything below; never held across a handler
pthread_cond_t g_cv = PTHREAD_COND_INITIALIZER;    // the lease has become free
int g_owner_fd = -1;
bool g_owned = false;
timer_t g_wd_timer{}; // created at first use, never deleted
int g_wd_armed = 0;

class Lock {
public:
    Lock() { ::pthread_mutex_lock(&g_mtx); }
    ~Lock() { ::pthread_mutex_unlock(&g_mtx); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

bool owned_by(int fd)
{
    return g_owned && g_owner_fd == fd;
}

void set_free()
{
    g_owned = false;
    g_owner_fd = -1;
}

void scpi_watchdog_fired(sigval)
{
    const Lock lock;
    // An expiry that lost the race against a disarm finds the flag at 0.
    if (g_wd_armed == 0 || !g_owned) {
        return;
    }
    g_wd_armed = 0;
    set_free();
    SCPI_Reset(&scpi_context);
    ::pthread_cond_broadcast(&g_cv);
}

// --- the caller holds g_mtx

void scpi_watchdog_init_once()
{
    if (g_wd_timer != nullptr) {
        return;
    }
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_notify_function = scpi_watchdog_fired;
    if (::timer_create(CLOCK_MONOTONIC, &event, &g_wd_timer) != 0) {
        g_wd_timer = nullptr;
    }
}

void scpi_watchdog_arm_unlocked()
{
    if (g_wd_timer == nullptr) {
        scpi_watchdog_init_once();
    }
    if (g_wd_timer == nullptr) {
        return;
    }
    itimerspec once{};
    once.it_value.tv_sec = SCPI_WATCHDOG_MS / 1000;
    ::timer_settime(g_wd_timer, 0, &once, nullptr);
    g_wd_armed = 1;
}

void scpi_watchdog_disarm_unlocked()
{
    if (g_wd_timer != nullptr) {
        const itimerspec never{};
        ::timer_settime(g_wd_timer, 0, &never, nullptr);
    }
    g_wd_armed = 0;
}

// False if `fd` does not own the lease.
bool give_up_lease(int fd)
{
    if (!owned_by(fd)) {
        return false;
    }
    scpi_watchdog_disarm_unlocked();
    set_free();
    return true;
}

} // namespace

void scpi_lease_acquire(int fd)
{
    const Lock lock;
    while (g_owned && g_owner_fd != fd) {
        ::pthread_cond_wait(&g_cv, &g_mtx);
    }
    if (g_owned) {
        return;
    }
    g_owned = true;
    g_owner_fd = fd;
    scpi_watchdog_disarm_unlocked();
}

void scpi_lease_release(int fd)
{
    const Lock lock;
    if (give_up_lease(fd)) {
        ::pthread_cond_broadcast(&g_cv);
    }
}

void scpi_lease_abort_if_owner(int fd)
{
    const Lock lock;
    if (give_up_lease(fd)) {
        SCPI_Reset(&scpi_context);
        ::pthread_cond_broadcast(&g_cv);
    }
}

void scpi_watchdog_pet_owner(int fd)
{
    const Lock lock;
    if (owned_by(fd)) {
        scpi_watchdog_arm_unlocked();
    }
}

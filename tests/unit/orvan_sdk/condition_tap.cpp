#include "condition_tap.h"

#include <cerrno>
#include <cstdlib>

#include <dlfcn.h>
#include <pthread.h>

namespace orvan_test {
namespace {

thread_local ConditionTap* g_tap = nullptr;

template <typename Call>
Call* next(const char* name)
{
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
}

int take_wait(ConditionTap& tap)
{
    const auto wait = tap.waits.front();
    tap.waits.pop_front();
    return wait();
}

} // namespace

ConditionTap::ConditionTap()
{
    g_tap = this;
}

ConditionTap::~ConditionTap()
{
    g_tap = nullptr;
}

} // namespace orvan_test

using namespace orvan_test;

extern "C" {

int gettimeofday(timeval* now, void* zone) noexcept
{
    static auto* const real = next<int(timeval*, void*)>("gettimeofday");
    if (g_tap == nullptr) {
        return real(now, zone);
    }
    *now = g_tap->now;
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static auto* const real = next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    if (g_tap == nullptr) {
        return real(condition, mutex);
    }
    if (g_tap->waits.empty()) {
        std::abort();
    }
    return take_wait(*g_tap);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline)
{
    using TimedWait = int(pthread_cond_t*, pthread_mutex_t*, const timespec*);
    static auto* const real = next<TimedWait>("pthread_cond_timedwait");
    if (g_tap == nullptr) {
        return real(condition, mutex, deadline);
    }
    g_tap->deadlines.push_back(*deadline);
    return g_tap->waits.empty() ? ETIMEDOUT : take_wait(*g_tap);
}
}

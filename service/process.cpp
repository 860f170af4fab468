#include "process.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <signal.h>
#include <system_error>

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <syslog.h>

namespace orvan_service {
namespace {

constexpr int kStopSignals[] = {SIGTERM, SIGINT};

std::atomic<int> g_stop_event{-1};

void request_stop(int)
{
    const int saved_errno = errno;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written =
        ::write(g_stop_event.load(std::memory_order_relaxed), &one, sizeof one);
    errno = saved_errno;
}

} // namespace

void ignore_broken_pipes()
{
    ::signal(SIGPIPE, SIG_IGN);
}

size_t raise_descriptor_limit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, kMostDescriptors);
    if (limit.rlim_cur != wanted) {
        limit.rlim_cur = wanted;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ::syslog(LOG_WARNING, "limit of open descriptors: %s", std::strerror(errno));
            ::getrlimit(RLIMIT_NOFILE, &limit);
        }
    }
    return static_cast<size_t>(std::min<rlim_t>(limit.rlim_cur, SIZE_MAX));
}

void limit_thread_stacks()
{
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, kThreadStack);
    if (const int error = ::pthread_setattr_default_np(&attributes); error != 0) {
        ::syslog(LOG_WARNING, "stack of threads: %s", std::strerror(error));
    }
    ::pthread_attr_destroy(&attributes);
}

void open_log(int level, bool to_stderr)
{
    ::openlog("orvan-service", LOG_PID | (to_stderr ? LOG_PERROR : 0), LOG_DAEMON);
    ::setlogmask(LOG_UPTO(level));
}

StopRequest::StopRequest() : m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    g_stop_event = m_event.get();
    struct sigaction action {};
    action.sa_handler = request_stop;
    action.sa_flags = SA_RESTART;
    for (const int signal : kStopSignals) {
        ::sigaction(signal, &action, nullptr);
    }
}

void StopRequest::request()
{
    request_stop(0);
}

StopRequest::~StopRequest()
{
    for (const int signal : kStopSignals) {
        ::signal(signal, SIG_DFL);
    }
    g_stop_event = -1;
}

void leave(int exit_code)
{
    std::fflush(stdout);
    std::_Exit(exit_code);
}

} // namespace orvan_service

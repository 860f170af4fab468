#include "process/stop_request.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <signal.h>
#include <system_error>

#include <sys/eventfd.h>

namespace orvan_common {
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

} // namespace orvan_common

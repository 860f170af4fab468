#include "hang_watch.h"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <syslog.h>

#include "listener.h"
#include "notify.h"

namespace orvan_service {
namespace {

// Checks per limit. A hang is noticed at most a quarter of the limit late.
constexpr int kLooks = 8;
constexpr std::chrono::milliseconds kShortestPause{1};

std::string in_seconds(std::chrono::duration<double> time)
{
    char text[32];
    std::snprintf(text, sizeof text, time.count() < 10 ? "%.3g s" : "%.0f s", time.count());
    return text;
}

} // namespace

HangWatch::HangWatch(MessageSink& sink, Progress progress, std::chrono::milliseconds limit,
                     std::chrono::microseconds watchdog)
    : m_sink(sink), m_progress(progress), m_limit(limit), m_feeds(watchdog.count() > 0),
      m_pause(std::max<std::chrono::microseconds>(
          kShortestPause, m_feeds ? std::min<std::chrono::microseconds>(limit / kLooks, watchdog / 2)
                                  : std::chrono::microseconds(limit) / kLooks)),
      m_hang_over(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_due(Clock::now()), m_since(m_due)
{
    if (!m_hang_over) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void HangWatch::execute(int socket, char* data, size_t len)
{
    {
        const std::lock_guard lock(m_mutex);
        m_at_work = true;
        m_socket = socket;
        m_length = len;
        std::copy_n(data, std::min(len, m_begin.size()), m_begin.begin());
        ++m_messages;
    }
    m_sink.execute(socket, data, len);
    const std::lock_guard lock(m_mutex);
    m_at_work = false;
    if (!m_hang.empty()) {
        ::eventfd_write(m_hang_over.get(), 1);
    }
}

// Reports without the lock: a blocked log or service manager must not hold up a message.
void HangWatch::check(Clock::time_point now)
{
    eventfd_t taken;
    ::eventfd_read(m_hang_over.get(), &taken);
    m_due = now + m_pause;
    std::unique_lock lock(m_mutex);
    const std::optional<Report> report = look(now);
    const bool feeds = m_feeds && m_hang.empty();
    lock.unlock();
    if (report) {
        ::syslog(report->priority, "%s", report->text.c_str());
        notify_status(StatusPart::kHang, report->status);
    }
    if (feeds) {
        notify("WATCHDOG=1");
    }
}

std::optional<HangWatch::Report> HangWatch::look(Clock::time_point now)
{
    const uint32_t seen = m_messages + m_progress();
    const auto stalled = now - m_since;
    if (!m_at_work || seen != m_seen) {
        m_seen = seen;
        m_since = now;
        if (m_hang.empty()) {
            return std::nullopt;
        }
        return Report{LOG_NOTICE, std::exchange(m_hang, {}) + " resumed after " + in_seconds(stalled), ""};
    }
    if (!m_hang.empty() || stalled < m_limit) {
        return std::nullopt;
    }
    // The connection is open while its message is being executed.
    m_hang = "client " + std::to_string(m_socket) + " at " + peer_address(m_socket);
    const std::string text = m_hang + " hangs: no progress for " + in_seconds(m_limit) + " in \"" +
                             shown_message(begin(), m_length) + "\"";
    return Report{LOG_ERR, text, text};
}

std::string HangWatch::message() const
{
    const std::lock_guard lock(m_mutex);
    return shown_message(begin(), m_length);
}

} // namespace orvan_service

#ifndef ORVAN_WEB_EVENT_QUEUE_H
#define ORVAN_WEB_EVENT_QUEUE_H

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace orvan_web {

/** An event as a stream carries it; each line of `data` becomes one of the event's. */
std::string event_text(std::string_view event, std::string_view data);

/** The bytes of one event stream that were not sent yet. Any thread. */
class EventQueue {
public:
    using Clock = std::chrono::steady_clock;

    /** Bytes that a client may leave unread, in addition to what its connection holds. */
    static constexpr size_t kMostBytes = size_t{256} << 10;

    /** @param wake called, on any thread, when take() has something to return again after nothing */
    explicit EventQueue(std::function<void()> wake) : m_wake(std::move(wake)) {}

    /** @return false if the stream is closed, or is now because the bytes do not fit */
    bool add(std::string_view bytes, Clock::time_point now = Clock::now());

    /** Nothing more is added; what is there is still sent. */
    void end();

    /** As end(), and what is there is dropped: the client is gone or too slow. */
    void drop();

    bool closed() const;
    bool dropped() const;

    /** At most `size` bytes; none, when there is nothing for now; empty, when the stream is closed. */
    std::optional<std::string> take(size_t size, Clock::time_point now = Clock::now());

    /** Since when nothing was added. */
    Clock::time_point last_added() const;

    /** Since when bytes wait of which none was taken; empty if none wait. */
    std::optional<Clock::time_point> waiting_since() const;

private:
    void close(bool drop);

    const std::function<void()> m_wake;
    mutable std::mutex m_mutex;
    std::string m_bytes;
    bool m_closed = false;
    bool m_dropped = false;
    bool m_asleep = false;
    Clock::time_point m_last_added = Clock::now();
    Clock::time_point m_progress = Clock::now();
};

} // namespace orvan_web

#endif

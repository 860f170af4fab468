#ifndef ORVAN_SERVICE_HANG_WATCH_H
#define ORVAN_SERVICE_HANG_WATCH_H

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "message_sink.h"
#include "shown_text.h"
#include <unique_fd.h>

namespace orvan_service {

/**
 * Wraps a message sink and detects messages that hang, that is, make no progress for a given time.
 *
 * A hang is logged at error level with its client and the beginning of its message, and is reported as the
 * status of the service (notify) while it lasts. The service manager's watchdog is fed only while nothing
 * hangs.
 *
 * It has no thread: the watching thread calls check() at due() or when descriptor() is readable.
 */
class HangWatch : public MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    /** A counter that changes as the running message makes progress. Called by check(). */
    using Progress = uint32_t (*)();

    /**
     * @param sink     must outlive this object
     * @param limit    shortest time without progress that counts as a hang
     * @param watchdog period in which the service manager's watchdog expects to be fed; 0 for none
     */
    HangWatch(MessageSink& sink, Progress progress, std::chrono::milliseconds limit,
              std::chrono::microseconds watchdog);
    HangWatch(const HangWatch&) = delete;
    HangWatch& operator=(const HangWatch&) = delete;

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override { m_sink.client_lost(socket); }

    /** The message being executed, or else the last one, as it is shown. Any thread. */
    std::string message() const;

    /** Latest time for the next call of check(); initially in the past. */
    Clock::time_point due() const { return m_due; }
    /** Readable from the end of a message that hung until check() is called. */
    int descriptor() const { return m_hang_over.get(); }
    /** Checks the progress, reports a hang and its end, and feeds the watchdog. Called, like due(), on the
     * watching thread. */
    void check(Clock::time_point now);

private:
    struct Report {
        int priority;
        std::string text;
        std::string status;
    };

    std::optional<Report> look(Clock::time_point now);
    std::string_view begin() const { return {m_begin.data(), std::min(m_length, m_begin.size())}; }

    MessageSink& m_sink;
    const Progress m_progress;
    const std::chrono::milliseconds m_limit;
    const bool m_feeds;
    const std::chrono::microseconds m_pause;
    const orvan_common::UniqueFd m_hang_over; // an event descriptor

    // Watching thread only.
    Clock::time_point m_due;
    uint32_t m_seen = 0; // progress at the last check
    Clock::time_point m_since;

    mutable std::mutex m_mutex; // guards what follows
    bool m_at_work = false;
    int m_socket = -1;
    std::array<char, kShownBytes> m_begin{}; // of the message
    size_t m_length = 0;                     // of the message
    uint32_t m_messages = 0;                 // begun so far
    std::string m_hang;                      // its client; empty for none
};

} // namespace orvan_service

#endif

#ifndef ORVAN_SERVICE_HANG_WATCH_H
#define ORVAN_SERVICE_HANG_WATCH_H

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "message_sink.h"
#include <unique_fd.h>

namespace orvan_service {

/**
 * Stands before what executes messages, and notices one that hangs: that makes no progress for so long.
 *
 * A hang is logged at error level with its client and the beginning of its message, and is the status of the
 * service (notify) while it lasts. The service manager's watchdog is fed only while there is none.
 *
 * It has no thread: whoever watches calls check() when due() has come or descriptor() is readable.
 */
class HangWatch : public MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    /** What moves with the progress of the message at work. Called by check(). */
    using Progress = uint32_t (*)();

    /**
     * @param sink     must outlive this object
     * @param limit    a hang is noticed that much after the last progress at the earliest
     * @param watchdog period in which the service manager's watchdog expects to be fed; 0 for none
     */
    HangWatch(MessageSink& sink, Progress progress, std::chrono::milliseconds limit,
              std::chrono::microseconds watchdog);
    HangWatch(const HangWatch&) = delete;
    HangWatch& operator=(const HangWatch&) = delete;

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override { m_sink.client_lost(socket); }

    /** When check() is to be called at the latest; at once before the first time. */
    Clock::time_point due() const { return m_due; }
    /** Readable once a message that hung is done, until check() is called. */
    int descriptor() const { return m_hang_over.get(); }
    /** Looks at the progress, reports a hang and its end, and feeds the watchdog. Of the thread that watches,
     * as is due(). */
    void check(Clock::time_point now);

private:
    struct Report {
        int priority;
        std::string text;
        std::string status;
    };

    std::optional<Report> look(Clock::time_point now);
    std::string shown_message() const;

    MessageSink& m_sink;
    const Progress m_progress;
    const std::chrono::milliseconds m_limit;
    const bool m_feeds;
    const std::chrono::microseconds m_pause;
    const UniqueFd m_hang_over; // an event descriptor

    // The watching thread only.
    Clock::time_point m_due;
    uint32_t m_seen = 0; // progress at the last look
    Clock::time_point m_since;

    std::mutex m_mutex; // guards what follows
    bool m_at_work = false;
    int m_socket = -1;
    std::array<char, 60> m_begin{}; // of the message
    size_t m_length = 0;            // of the message
    uint32_t m_messages = 0;        // begun so far
    std::string m_hang;             // its client; empty for none
};

} // namespace orvan_service

#endif

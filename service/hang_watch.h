#ifndef ORVAN_SERVICE_HANG_WATCH_H
#define ORVAN_SERVICE_HANG_WATCH_H

#include "message_sink.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace orvan_service {

/**
 * Stands before what executes messages, and notices one that hangs: that makes no progress for so long.
 *
 * A hang is logged at error level with its client and the beginning of its message, and is the status of the
 * service (notify) while it lasts. The service manager's watchdog is fed only while there is none.
 */
class HangWatch : public MessageSink {
public:
    /** What moves with the progress of the message at work. Called on the watch's thread. */
    using Progress = uint32_t (*)();

    /**
     * @param sink     must outlive this object
     * @param limit    a hang is noticed that much after the last progress at the earliest
     * @param watchdog period in which the service manager's watchdog expects to be fed; 0 for none
     */
    HangWatch(MessageSink& sink, Progress progress, std::chrono::milliseconds limit,
              std::chrono::microseconds watchdog);
    ~HangWatch() override;
    HangWatch(const HangWatch&) = delete;
    HangWatch& operator=(const HangWatch&) = delete;

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override { m_sink.client_lost(socket); }

private:
    using Clock = std::chrono::steady_clock;

    struct Report {
        int priority;
        std::string text;
        std::string status;
    };

    void run();
    std::optional<Report> look(Clock::time_point now);
    std::string shown_message() const;

    MessageSink& m_sink;
    const Progress m_progress;
    const std::chrono::milliseconds m_limit;
    const bool m_feeds;
    const std::chrono::microseconds m_pause;

    std::mutex m_mutex; // guards all below
    std::condition_variable m_changed;
    bool m_ending = false;
    bool m_at_work = false;
    int m_socket = -1;
    std::array<char, 60> m_begin{}; // of the message
    size_t m_length = 0;            // of the message
    uint32_t m_messages = 0;        // begun so far

    uint32_t m_seen = 0; // progress at the last look
    Clock::time_point m_since;
    std::string m_hang; // its client; empty for none
    std::thread m_thread;
};

} // namespace orvan_service

#endif

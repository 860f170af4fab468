#ifndef ORVAN_SERVICE_HISLIP_ASYNC_CHANNEL_H
#define ORVAN_SERVICE_HISLIP_ASYNC_CHANNEL_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "connection.h"
#include "frame_reader.h"

namespace orvan_service::hislip {

/** The asynchronous channel of a connection, as the attendant serves it. Nothing in it blocks. */
class AsyncChannel {
public:
    using Clock = std::chrono::steady_clock;

    AsyncChannel(const Environment& environment, std::shared_ptr<Connection> connection)
        : m_environment(environment), m_connection(std::move(connection))
    {
    }
    ~AsyncChannel();
    AsyncChannel(AsyncChannel&&) = default;

    Connection& connection() { return *m_connection; }

    /** Receives once and answers. @return false when the connection is over */
    bool serve();
    /** What to wait for. */
    short events() const;

    /** Tries again what could not be answered yet: a lock that another session has, a release. */
    void retry(Clock::time_point now);

    /** When to call retry() without a change of the locks. */
    Clock::time_point due() const;

private:
    struct Request { // of a lock; unanswered
        std::string name;
        Clock::time_point deadline;
    };

    bool answer();
    void request_lock(uint32_t timeout_ms);
    void release_lock();
    void answer_lock(uint8_t result);
    void refuse(Fault fault, const char* reason);
    bool break_off(Fatal code, const char* reason);

    const Environment& m_environment;
    std::shared_ptr<Connection> m_connection;
    FrameReader m_reader;
    Header m_frame{Type::kData};
    bool m_in_frame = false;
    bool m_ended = false; // the client has closed this channel
    std::string m_payload;
    std::optional<Request> m_request;
    std::optional<Clock::time_point> m_releasing; // next attempt, once what was sent before has been executed
};

} // namespace orvan_service::hislip

#endif

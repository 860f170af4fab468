#ifndef ORVAN_SERVICE_SESSION_H
#define ORVAN_SERVICE_SESSION_H

#include <cstdint>
#include <utility>

#include "client.h"
#include "service_time.h"

namespace orvan_service {

/**
 * A client's stream of program messages, as the executor serves it.
 *
 * The executor calls advance() when the event that the session waits for has occurred, execute() when it is
 * the turn of the message found by advance(), and then advance() again. Everything is called on the
 * executor's thread, and only execute() may block.
 */
class Session {
public:
    enum class Wait {
        kTurn,   /**< a complete message is available: execute() is next */
        kInput,  /**< bytes from the descriptor */
        kRoom,   /**< the descriptor can accept a reply again */
        kRetry,  /**< another session or thread: a call of Executor::retry() */
        kMemory, /**< memory for a long message; the descriptor stays unread */
        kOver    /**< finished: the session is destroyed */
    };

    /** How a connection closed in both directions ended. */
    enum class HangUp {
        kReset,  /**< the peer aborted it; what it had sent is no longer executed */
        kOrderly /**< it had ended its input before; what it had sent is executed */
    };

    explicit Session(Client client) : m_client(std::move(client)) {}
    virtual ~Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Whose messages these are. Any thread. */
    const Client& client() const { return m_client; }

    /** The descriptor to wait for; fixed for the life of the session. Any thread. */
    virtual int descriptor() const = 0;

    /** @param readable the descriptor has bytes or is at its end: receive once */
    virtual Wait advance(ServiceTime now, bool readable) = 0;

    /** Executes one message and sends its reply. */
    virtual void execute() = 0;

    /** The peer has ended its input; what it sent before is still to be read. */
    virtual void input_ends() {}

    /** The connection was closed in both directions. One that waits for memory is destroyed in either case.
     */
    virtual HangUp hung_up() = 0;

    /** When to call expired(), unless advance() is called first. */
    virtual ServiceTime deadline() const { return kNever; }

    /** The deadline has passed; the session is destroyed next. */
    virtual void expired() {}

    /** Queried when the executor ends: whether the connection must stay open until the executor is destroyed.
     */
    virtual bool stays_open() const { return false; }

private:
    friend class Executor;
    const Client m_client;
    Wait m_wait = Wait::kInput;
    uint32_t m_events = 0; // that the executor waits for
    bool m_queued = false; // for a turn
    bool m_end_seen = false;
};

} // namespace orvan_service

#endif

#ifndef ORVAN_SERVICE_SESSION_H
#define ORVAN_SERVICE_SESSION_H

#include <cstdint>

#include "service_time.h"

namespace orvan_service {

/**
 * A client's stream of program messages, as the executor serves it.
 *
 * The executor calls advance() when what the session waits for has come, execute() when it is the turn of the
 * message that advance() found, and then advance() again. Everything is called on the executor's thread, and
 * nothing may block but the work of a message.
 */
class Session {
public:
    enum class Wait {
        kTurn,   /**< a whole message is there: execute() is next */
        kInput,  /**< bytes from the descriptor */
        kRoom,   /**< the descriptor takes a reply again */
        kMemory, /**< memory for a long message; the descriptor stays unread */
        kOver    /**< nothing more will come of it: the session is destroyed */
    };

    /** How a connection can end that no longer takes anything. */
    enum class HangUp {
        kReset,  /**< the peer gave it up; what it had sent is not executed any more */
        kOrderly /**< it had ended its input before; what it had sent is executed */
    };

    Session() = default;
    virtual ~Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** The descriptor that is waited for; the same for the life of the session. Any thread. */
    virtual int descriptor() const = 0;

    /** @param readable the descriptor has bytes, or its end: receive once */
    virtual Wait advance(ServiceTime now, bool readable) = 0;

    /** Executes one message, with its reply. */
    virtual void execute() = 0;

    /** The peer has ended its input; what it sent before is still to be read. */
    virtual void input_ends() {}

    /** The connection was closed in both directions. One that waits for memory is destroyed in either case.
     */
    virtual HangUp hung_up() = 0;

    /** When expired() is to be called, unless advance() is called before. */
    virtual ServiceTime deadline() const { return kNever; }

    /** The deadline has passed; the session is destroyed next. */
    virtual void expired() {}

    /** Asked when the executor ends: whether the connection is to stay open until the executor is destroyed.
     */
    virtual bool stays_open() const { return false; }

private:
    friend class Executor;
    Wait m_wait = Wait::kInput;
    uint32_t m_events = 0; // that the executor waits for
    bool m_queued = false; // for a turn
    bool m_end_seen = false;
};

} // namespace orvan_service

#endif

#ifndef ORVAN_SERVICE_MESSAGE_SINK_H
#define ORVAN_SERVICE_MESSAGE_SINK_H

#include <cstddef>

namespace orvan_service {

/** Executes program messages: the instrument, or a test double. */
class MessageSink {
public:
    virtual ~MessageSink() = default;

    /**
     * Executes one complete program message and writes its reply to `socket` before returning.
     *
     * @param data the message including its LF; may be modified.
     * Called on the executor's thread.
     */
    virtual void execute(int socket, char* data, size_t len) = 0;

    /**
     * A client that had a message executed is gone; `socket` is still open, so its number is not yet
     * another client's. Called on the executor's thread, not during an `execute`.
     */
    virtual void client_lost(int socket) = 0;
};

} // namespace orvan_service

#endif

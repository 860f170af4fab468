#ifndef ORVAN_SERVICE_MESSAGE_SINK_H
#define ORVAN_SERVICE_MESSAGE_SINK_H

#include <cstddef>

namespace orvan_service {

/** What executes program messages: the instrument, or a test's stand-in for it. */
class MessageSink {
public:
    virtual ~MessageSink() = default;

    /**
     * Executes one whole program message and writes its reply to `socket`, before it returns.
     *
     * @param data the message with the LF that ends it; may be changed.
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

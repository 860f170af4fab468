#ifndef ORVAN_SERVICE_VXI11_INTERRUPT_CHANNEL_H
#define ORVAN_SERVICE_VXI11_INTERRUPT_CHANNEL_H

#include <cstdint>
#include <string_view>

#include <netinet/in.h>
#include <poll.h>

#include <unique_fd.h>

namespace orvan_service {

/** A client's RPC server for service requests (VXI-11 B.5.2). */
struct InterruptTarget {
    in_addr_t address; /**< network byte order */
    uint16_t port;
    bool tcp; /**< otherwise UDP */
    uint32_t program;
    uint32_t version;
};

/** The connection to a client that reports its links' service requests to it. Nothing waits. One thread. */
class InterruptChannel {
public:
    /** Begins to connect. */
    explicit InterruptChannel(const InterruptTarget& target);

    enum class State { kConnecting, kOpen, kFailed };
    State state() const { return m_state; }

    /** To wait for; its descriptor is -1 when there is nothing. */
    pollfd waiting() const;
    /** Called when that has an event. */
    void serve();

    /** Calls the client's procedure, without waiting for its reply. The channel fails if it cannot be sent at
     *  once. @param handle at most 40 bytes */
    void request_service(std::string_view handle);

private:
    void fail();

    const InterruptTarget m_target;
    orvan_common::UniqueFd m_socket;
    State m_state = State::kConnecting;
    uint32_t m_xid = 0;
};

} // namespace orvan_service

#endif

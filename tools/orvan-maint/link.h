/**
 * The interface to the network: sends and receives datagrams.
 */
#ifndef ORVAN_MAINT_LINK_H
#define ORVAN_MAINT_LINK_H

#include <chrono>
#include <string>

#include <netinet/in.h>

#include "frame.h"

namespace orvan_maint {

using Clock = std::chrono::steady_clock;

/** A frame as received. */
struct Received {
    HALDE_PACKET frame{}; /**< zero after the bytes received */
    size_t length = 0;    /**< of the datagram, FRMHEADERLEN or more */
    sockaddr_in from{};
};

class Link {
public:
    virtual ~Link() = default;

    /** A datagram that the network refuses is lost; problem() says why. */
    virtual void send(std::span<const uint8_t> datagram) = 0;

    /** Waits for a frame; ignores datagrams shorter than a header. Throws Interrupted when the user
     * interrupts.
     *  @return false when the deadline passed */
    virtual bool receive(Received& received, Clock::time_point deadline) = 0;

    /** The network's last error, in parentheses and after a space; empty for none. */
    virtual std::string problem() const = 0;
};

} // namespace orvan_maint

#endif

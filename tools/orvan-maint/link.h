/**
 * The seam to the network: datagrams out, datagrams in.
 */
#ifndef ORVAN_MAINT_LINK_H
#define ORVAN_MAINT_LINK_H

#include <chrono>
#include <string>

#include <netinet/in.h>

#include "frame.h"

namespace orvan_maint {

using Clock = std::chrono::steady_clock;

/** A frame as it came. */
struct Received {
    HALDE_PACKET frame{}; /**< zero behind what came */
    size_t length = 0;    /**< of the datagram, FRMHEADERLEN or more */
    sockaddr_in from{};
};

class Link {
public:
    virtual ~Link() = default;

    /** A datagram that the network does not take is lost; problem() tells why. */
    virtual void send(std::span<const uint8_t> datagram) = 0;

    /** Waits for a frame; what is shorter than a header is none. Throws Interrupted when the user wants an
     * end.
     *  @return false when the deadline passed */
    virtual bool receive(Received& received, Clock::time_point deadline) = 0;

    /** What the network complained of last, in brackets and behind a space; empty for nothing. */
    virtual std::string problem() const = 0;
};

} // namespace orvan_maint

#endif

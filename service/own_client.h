#ifndef ORVAN_SERVICE_OWN_CLIENT_H
#define ORVAN_SERVICE_OWN_CLIENT_H

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include <netinet/in.h>

#include <unique_fd.h>

namespace orvan_service {

/**
 * The service as a client of itself: its messages take their turn among those of other clients, and count as
 * the instrument's own by their address.
 */
class OwnClient {
public:
    /** @param listeners those of the SCPI server; only IPv4 ones are used. They need not stay open. */
    explicit OwnClient(std::span<const orvan_common::UniqueFd> listeners);

    /**
     * Sends one program message over a new connection. Blocks, at most `patience` for the reply.
     *
     * @param message without its LF
     * @return the reply without its CR LF, or as much of it as was received; empty if the server can't be
     *         reached
     */
    std::string ask(const std::string& message, std::chrono::milliseconds patience) const;

private:
    orvan_common::UniqueFd connect_to_server() const;

    std::vector<sockaddr_in> m_addresses;
};

} // namespace orvan_service

#endif

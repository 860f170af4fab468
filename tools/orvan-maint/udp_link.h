#ifndef ORVAN_MAINT_UDP_LINK_H
#define ORVAN_MAINT_UDP_LINK_H

#include "interfaces.h"
#include "link.h"
#include <unique_fd.h>

namespace orvan_maint {

/** A link over UDP: to one address, or by broadcast on some interfaces. */
class UdpLink : public Link {
public:
    /** Datagrams from other addresses are not received.
     *  @param stop a descriptor that becomes readable when the user interrupts; negative for none */
    UdpLink(const sockaddr_in& peer, int stop);
    /** Broadcasts; receives from anywhere. */
    UdpLink(std::vector<Interface> interfaces, int port, int stop);

    void send(std::span<const uint8_t> datagram) override;
    bool receive(Received& received, Clock::time_point deadline) override;
    std::string problem() const override;

private:
    void broadcast(std::span<const uint8_t> datagram, const Interface& interface);

    orvan_common::UniqueFd m_socket;
    std::vector<Interface> m_interfaces;
    int m_port = 0;
    int m_stop;
    int m_error = 0;
};

/** An address from "10.0.0.2" or a host's name; throws Failure when there is none. */
sockaddr_in resolve(const std::string& host, int port);

/** "10.0.0.2" */
std::string address_text(const sockaddr_in& address);

} // namespace orvan_maint

#endif

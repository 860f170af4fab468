#ifndef ORVAN_SIM_LAUNCHER_UDP_RELAY_H
#define ORVAN_SIM_LAUNCHER_UDP_RELAY_H

#include <functional>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <poll.h>

#include <unique_fd.h>

namespace orvan_launcher {

/**
 * Relays datagrams between clients of a socket on the host and a server inside the sandbox. Each client has
 * its own socket to the server, so that replies can be returned to it; when there are too many clients, the
 * one idle longest is dropped. When the server's address changes, the clients' next datagrams go to the new
 * one.
 */
class UdpRelay {
public:
    static constexpr size_t kMaxClients = 32;

    /**
     * \param outer    bound socket on the host
     * \param where    the server's address; empty while it has none
     * \param connect  makes a socket connected to the server there; negative on failure
     */
    UdpRelay(orvan_common::UniqueFd outer, std::function<std::string()> where,
             std::function<int(const std::string&)> connect);

    /** Adds the descriptors to wait for. */
    void add_to(std::vector<pollfd>& waiting) const;
    /** Moves what has arrived on any of them. */
    void transfer();

private:
    struct Client {
        sockaddr_in address;
        orvan_common::UniqueFd server;
        std::string server_address;
        unsigned long last_used;
    };
    Client* client_at(const sockaddr_in& address);

    orvan_common::UniqueFd m_outer;
    std::function<std::string()> m_where;
    std::function<int(const std::string&)> m_connect;
    std::vector<Client> m_clients;
    unsigned long m_uses = 0;
};

} // namespace orvan_launcher

#endif

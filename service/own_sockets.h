#ifndef ORVAN_SERVICE_OWN_SOCKETS_H
#define ORVAN_SERVICE_OWN_SOCKETS_H

#include <set>
#include <string>
#include <utility>

namespace orvan_service {

/** The connected sockets of this process at construction, which examines every descriptor. */
class OwnSockets {
public:
    OwnSockets();

    /** Whether the other end of the connected TCP socket is one of them. */
    bool at_other_end_of(int socket) const;

private:
    using Name = std::string;                // a socket address as the system stores it
    std::set<std::pair<Name, Name>> m_names; // own and peer's
};

} // namespace orvan_service

#endif

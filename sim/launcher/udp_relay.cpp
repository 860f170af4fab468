#include "udp_relay.h"

#include <algorithm>

#include <sys/socket.h>

using orvan_common::UniqueFd;

namespace orvan_launcher {

namespace {

constexpr size_t kLargestDatagram = 65536;

/** Most datagrams moved from one socket at a time, so that a flood does not starve the caller. */
constexpr int kDatagramsInOneGo = 32;

} // namespace

UdpRelay::UdpRelay(UniqueFd outer, std::function<std::string()> where,
                   std::function<int(const std::string&)> connect)
    : m_outer(std::move(outer)), m_where(std::move(where)), m_connect(std::move(connect))
{
}

void UdpRelay::add_to(std::vector<pollfd>& waiting) const
{
    waiting.push_back({m_outer.get(), POLLIN, 0});
    for (const Client& client : m_clients) {
        waiting.push_back({client.server.get(), POLLIN, 0});
    }
}

void UdpRelay::transfer()
{
    std::vector<char> datagram(kLargestDatagram);
    for (int moved = 0; moved < kDatagramsInOneGo; ++moved) {
        sockaddr_in from = {};
        socklen_t size = sizeof from;
        const ssize_t count = ::recvfrom(m_outer.get(), datagram.data(), datagram.size(), MSG_DONTWAIT,
                                         reinterpret_cast<sockaddr*>(&from), &size);
        if (count < 0) {
            break;
        }
        if (const Client* client = client_at(from)) {
            ::send(client->server.get(), datagram.data(), static_cast<size_t>(count), MSG_DONTWAIT);
        }
    }
    for (const Client& client : m_clients) {
        for (int moved = 0; moved < kDatagramsInOneGo; ++moved) {
            const ssize_t count = ::recv(client.server.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
            if (count < 0) {
                break;
            }
            ::sendto(m_outer.get(), datagram.data(), static_cast<size_t>(count), MSG_DONTWAIT,
                     reinterpret_cast<const sockaddr*>(&client.address), sizeof client.address);
        }
    }
}

UdpRelay::Client* UdpRelay::client_at(const sockaddr_in& address)
{
    auto found = std::find_if(m_clients.begin(), m_clients.end(), [&](const Client& client) {
        return client.address.sin_port == address.sin_port &&
               client.address.sin_addr.s_addr == address.sin_addr.s_addr;
    });
    const std::string server_address = m_where();
    if (found != m_clients.end() && found->server_address != server_address) {
        m_clients.erase(found);
        found = m_clients.end();
    }
    if (found == m_clients.end()) {
        UniqueFd server(server_address.empty() ? -1 : m_connect(server_address));
        if (!server) {
            return nullptr;
        }
        if (m_clients.size() == kMaxClients) {
            m_clients.erase(
                std::min_element(m_clients.begin(), m_clients.end(),
                                 [](const Client& a, const Client& b) { return a.last_used < b.last_used; }));
        }
        found = m_clients.insert(m_clients.end(), Client{address, std::move(server), server_address, 0});
    }
    found->last_used = ++m_uses;
    return &*found;
}

} // namespace orvan_launcher

#include "support/maintenance_client.h"

#include <atomic>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

namespace orvan_test {
namespace {

constexpr size_t kRows = 17;
constexpr size_t kRowSize = 32;
constexpr size_t kLongestDatagram = 65536;

std::string big_endian(uint16_t value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

} // namespace

std::string FrameHeader::bytes() const
{
    std::string little_endian;
    for (int shift = 0; shift < 32; shift += 8) {
        little_endian += static_cast<char>(info >> shift & 0xFF);
    }
    return opcode + big_endian(block) + big_endian(size) + mac + big_endian(state_mode) + little_endian +
           unused;
}

std::string request_row(char letter, std::string_view value)
{
    std::string row = letter + std::string(value);
    row.resize(kRowSize);
    return row;
}

std::string request(FrameHeader header, const std::vector<std::string>& rows)
{
    std::string data;
    for (const std::string& row : rows) {
        data += row;
    }
    header.size = static_cast<uint16_t>(data.size());
    data.resize(kRows * kRowSize);
    return header.bytes() + data;
}

sockaddr_in ipv4(const std::string& address, int port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    result.sin_addr.s_addr = inet_addr(address.c_str());
    return result;
}

MaintenanceClient::MaintenanceClient(const std::string& address)
    : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in own = ipv4(address, 0);
    if (!m_socket || ::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        throw std::runtime_error("no socket on " + address);
    }
}

sockaddr_in MaintenanceClient::address() const
{
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    ::getsockname(m_socket.get(), reinterpret_cast<sockaddr*>(&own), &size);
    return own;
}

void MaintenanceClient::send(const std::string& datagram, int port) const
{
    const sockaddr_in to = ipv4("127.0.0.1", port);
    ::sendto(m_socket.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof to);
}

std::string MaintenanceClient::receive(std::chrono::milliseconds bound) const
{
    pollfd waiting = {m_socket.get(), POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(bound.count())) <= 0) {
        return {};
    }
    std::string datagram(kLongestDatagram, '\0');
    const ssize_t received = ::recv(m_socket.get(), datagram.data(), datagram.size(), 0);
    datagram.resize(received > 0 ? static_cast<size_t>(received) : 0);
    return datagram;
}

void end_with_frames(const std::function<void()>& end, int port, const std::function<bool()>& due)
{
    using std::chrono::steady_clock;
    const MaintenanceClient client;
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    std::atomic<bool> ended = false;
    std::thread ender([&] {
        end();
        ended = true;
    });
    while (due && !ended && !due() && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    // A frame that arrives before the end is served, which takes descriptors.
    while (!ended) {
        client.send(FrameHeader{"NONE"}.bytes(), port);
        client.receive(std::chrono::milliseconds(10));
    }
    ender.join();
}

} // namespace orvan_test

#include "support/tcp_capture.h"

namespace orvan_test {
namespace {

constexpr uint32_t kMagic = 0xA1B2C3D4; // written big-endian, with microseconds
constexpr uint32_t kLinkTypeRaw = 101;  // each packet begins with its IP header
constexpr uint32_t kSnapLength = 65535;
constexpr uint16_t kFirstClientPort = 50000;

constexpr uint16_t kIpHeader = 20;
constexpr uint16_t kTcpHeader = 20;
constexpr uint32_t kClient = 0x0A000001; // 10.0.0.1
constexpr uint32_t kServer = 0x0A000002;
constexpr uint8_t kTimeToLive = 64;
constexpr uint8_t kTcp = 6;

constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kPush = 0x08;
constexpr uint8_t kAck = 0x10;
constexpr size_t kMostInSegment = 1460;

template <class Number>
void put(std::string& out, Number value)
{
    for (size_t byte = sizeof value; byte-- > 0;) {
        out.push_back(static_cast<char>(value >> (8 * byte)));
    }
}

uint16_t checksum(std::string_view header)
{
    uint32_t sum = 0;
    for (size_t at = 0; at + 1 < header.size(); at += 2) {
        sum += static_cast<uint32_t>(static_cast<uint8_t>(header[at]) << 8 |
                                     static_cast<uint8_t>(header[at + 1]));
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

std::string ip_header(uint32_t from, uint32_t to, size_t payload)
{
    const auto build = [&](uint16_t sum) {
        std::string header;
        put<uint16_t>(header, 0x4500); // version 4, 5 words
        put<uint16_t>(header, static_cast<uint16_t>(kIpHeader + payload));
        put<uint32_t>(header, 0); // no fragments
        put<uint8_t>(header, kTimeToLive);
        put<uint8_t>(header, kTcp);
        put<uint16_t>(header, sum);
        put<uint32_t>(header, from);
        put<uint32_t>(header, to);
        return header;
    };
    return build(checksum(build(0)));
}

} // namespace

TcpCapture::TcpCapture(uint16_t server_port) : m_server_port(server_port)
{
    put<uint32_t>(m_file, kMagic);
    put<uint32_t>(m_file, 0x00020004); // version 2.4
    put<uint64_t>(m_file, 0);          // time zone and accuracy, always 0
    put<uint32_t>(m_file, kSnapLength);
    put<uint32_t>(m_file, kLinkTypeRaw);
}

size_t TcpCapture::connect()
{
    const size_t number = m_connections.size();
    m_connections.push_back({static_cast<uint16_t>(kFirstClientPort + number), 1000, 2000});
    Connection& connection = m_connections.back();
    add_segment(connection, true, kSyn, {});
    ++connection.next_of_client;
    add_segment(connection, false, kSyn | kAck, {});
    ++connection.next_of_server;
    add_segment(connection, true, kAck, {});
    return number;
}

void TcpCapture::from_client(size_t connection, std::string_view bytes)
{
    send(connection, true, bytes);
}

void TcpCapture::from_server(size_t connection, std::string_view bytes)
{
    send(connection, false, bytes);
}

void TcpCapture::send(size_t connection, bool by_client, std::string_view bytes)
{
    Connection& on = m_connections.at(connection);
    while (!bytes.empty()) {
        const std::string_view part = bytes.substr(0, kMostInSegment);
        add_segment(on, by_client, kPush | kAck, part);
        (by_client ? on.next_of_client : on.next_of_server) += static_cast<uint32_t>(part.size());
        bytes.remove_prefix(part.size());
    }
}

void TcpCapture::add_segment(const Connection& connection, bool by_client, uint8_t flags,
                             std::string_view bytes)
{
    std::string packet = by_client ? ip_header(kClient, kServer, kTcpHeader + bytes.size())
                                   : ip_header(kServer, kClient, kTcpHeader + bytes.size());
    put<uint16_t>(packet, by_client ? connection.client_port : m_server_port);
    put<uint16_t>(packet, by_client ? m_server_port : connection.client_port);
    const uint32_t theirs = by_client ? connection.next_of_server : connection.next_of_client;
    put<uint32_t>(packet, by_client ? connection.next_of_client : connection.next_of_server);
    put<uint32_t>(packet, (flags & kAck) != 0 ? theirs : 0);
    put<uint8_t>(packet, kTcpHeader / 4 << 4);
    put<uint8_t>(packet, flags);
    put<uint16_t>(packet, 0xFFFF); // window
    put<uint32_t>(packet, 0);      // no checksum, as where the network card computes it; no urgent data
    packet.append(bytes);

    ++m_segments;
    put<uint32_t>(m_file, m_segments / 1000);        // one segment each millisecond: seconds
    put<uint32_t>(m_file, m_segments % 1000 * 1000); // and microseconds
    put<uint32_t>(m_file, static_cast<uint32_t>(packet.size()));
    put<uint32_t>(m_file, static_cast<uint32_t>(packet.size()));
    m_file += packet;
}

} // namespace orvan_test

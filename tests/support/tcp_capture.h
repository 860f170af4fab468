/**
 * A capture file (pcap) of TCP connections, made from the bytes that a test has exchanged on sockets: what a
 * protocol analyser would have recorded, without the privileges for it.
 */
#ifndef ORVAN_TESTS_SUPPORT_TCP_CAPTURE_H
#define ORVAN_TESTS_SUPPORT_TCP_CAPTURE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvan_test {

class TcpCapture {
public:
    /** @param server_port of the server in the capture, by which an analyser chooses the protocol */
    explicit TcpCapture(uint16_t server_port);

    /** A new connection, with its handshake. @return its number */
    size_t connect();
    void from_client(size_t connection, std::string_view bytes);
    void from_server(size_t connection, std::string_view bytes);

    /** The file's contents so far. */
    const std::string& bytes() const { return m_file; }

private:
    struct Connection {
        uint16_t client_port;
        uint32_t next_of_client; /**< sequence numbers */
        uint32_t next_of_server;
    };
    void send(size_t connection, bool by_client, std::string_view bytes);
    void add_segment(const Connection& connection, bool by_client, uint8_t flags, std::string_view bytes);

    const uint16_t m_server_port;
    std::vector<Connection> m_connections;
    uint32_t m_segments = 0;
    std::string m_file;
};

} // namespace orvan_test

#endif

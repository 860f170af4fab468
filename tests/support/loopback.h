/**
 * Loopback sockets, and a count of open descriptors.
 */
#ifndef ORVAN_TESTS_SUPPORT_LOOPBACK_H
#define ORVAN_TESTS_SUPPORT_LOOPBACK_H

#include <chrono>
#include <string>

namespace orvan_test {

/** Listens on a free TCP port of a loopback address.
 *  @return the descriptor; throws std::runtime_error when the machine refuses. */
int listen_on_loopback(const std::string& address = "127.0.0.1", int backlog = 16);

/** Port that a socket is bound to. */
int local_port(int fd);

/** A blocking TCP connection to a loopback address; the local end is bound to `from` when that is given.
 *  @return the descriptor, or -1 with errno */
int connect_to_loopback(const std::string& address, int port, const std::string& from = {});

/** Bytes up to and including the first `end`, or what came until the peer closed or `bound` passed. */
std::string read_until(int fd, const std::string& end,
                       std::chrono::milliseconds bound = std::chrono::seconds(5));

/** Exactly `size` bytes, or what came until the peer closed or `bound` passed. */
std::string read_exactly(int fd, size_t size, std::chrono::milliseconds bound = std::chrono::seconds(5));

/** What can be read without waiting. */
std::string read_ready(int fd);

/** Descriptors that the process has open. */
size_t open_descriptors();

/** A connected TCP pair on the loopback: what a client and the service process hold. */
class TcpPair {
public:
    /** @param client_address address that the client's end is bound to */
    explicit TcpPair(const std::string& client_address = "127.0.0.1");
    ~TcpPair();
    TcpPair(const TcpPair&) = delete;
    TcpPair& operator=(const TcpPair&) = delete;

    int client() const { return m_client; }
    int server() const { return m_server; }
    void close_client();

private:
    int m_client = -1;
    int m_server = -1;
};

} // namespace orvan_test

#endif

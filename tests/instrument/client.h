/**
 * A SCPI client on a raw socket, with a bound on every wait.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_CLIENT_H
#define ORVAN_TESTS_INSTRUMENT_CLIENT_H

#include <chrono>
#include <string>
#include <string_view>

namespace orvan_test {

class Client {
public:
    static constexpr std::chrono::seconds kDefaultWait{20};

    /** Connects to 127.0.0.1:port; throws std::system_error. */
    explicit Client(int port);
    ~Client();
    Client(Client&& other) noexcept;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /** Sends all bytes; false when the peer is gone. */
    bool send(std::string_view bytes);

    /** Bytes up to and including the next LF, or those received before the end of the stream or the wait. */
    std::string read_line(std::chrono::milliseconds wait = kDefaultWait);

    /** `line` and "\n" out, one reply line in. */
    std::string ask(std::string_view line, std::chrono::milliseconds wait = kDefaultWait);

    /** Ends the sending direction; replies can still arrive. */
    void finish_sending();

    /** Closes with a RST instead of a FIN. */
    void reset();

    /** True when nothing arrives within the wait. */
    bool stays_silent(std::chrono::milliseconds wait);

    int fd() const { return m_fd; }

private:
    bool wait_readable(std::chrono::steady_clock::time_point deadline) const;

    int m_fd = -1;
    std::string m_received;
};

} // namespace orvan_test

#endif

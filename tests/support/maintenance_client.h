/**
 * A PC tool on the loopback: frames as byte strings, and the socket that sends them.
 */
#ifndef ORVAN_TESTS_SUPPORT_MAINTENANCE_CLIENT_H
#define ORVAN_TESTS_SUPPORT_MAINTENANCE_CLIENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <netinet/in.h>

#include "unique_fd.h"

namespace orvan_test {

/** A header of 22 bytes, in the byte order of the wire. */
struct FrameHeader {
    std::string opcode;
    uint16_t block = 0;
    uint16_t size = 0;
    std::string mac = std::string(6, '\0');
    uint16_t state_mode = 0; /**< high byte first */
    uint32_t info = 0;
    std::string unused = std::string(2, '\0');

    std::string bytes() const;
};

/** A row of 32 bytes; a longer value is cut. */
std::string request_row(char letter, std::string_view value);

/** A frame with these rows, and as many empty ones as make 17. */
std::string request(FrameHeader header, const std::vector<std::string>& rows);

sockaddr_in ipv4(const std::string& address, int port);

/** Nothing that it sends leaves the machine. */
class MaintenanceClient {
public:
    /** @param address of the loopback; frames from any but 127.0.0.1 need the right `mac` */
    explicit MaintenanceClient(const std::string& address = "127.0.0.1");

    sockaddr_in address() const;

    /** To a server on this port of 127.0.0.1. */
    void send(const std::string& datagram, int port) const;

    /** The next datagram; empty when none arrives. */
    std::string receive(std::chrono::milliseconds bound = std::chrono::seconds(5)) const;
    /** What has already arrived; does not wait. */
    std::string ready() const { return receive(std::chrono::milliseconds(0)); }

private:
    orvan_common::UniqueFd m_socket;
};

/**
 * Runs `end`, which ends a server on the port, and sends the frames that its end takes.
 *
 * @param due the first frame waits until this returns true, or 10 seconds have passed
 */
void end_with_frames(const std::function<void()>& end, int port = 7502,
                     const std::function<bool()>& due = {});

} // namespace orvan_test

#endif

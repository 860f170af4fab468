/**
 * A program that talks to an instrument's web process.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_WEB_CLIENT_H
#define ORVAN_TESTS_INSTRUMENT_WEB_CLIENT_H

#include <string>

#include "client.h"

namespace orvan_test {

struct WebReply {
    int status = 0; /**< 0: none */
    std::string body;
};

/** Sends a request as the instrument's own page does and reads its reply, on a connection of its own. */
WebReply web_request(int port, const std::string& method, const std::string& path,
                     const std::string& body = {});

/** The body of a GET. */
inline std::string web_get(int port, const std::string& path)
{
    return web_request(port, "GET", path).body;
}

/** A viewer of the live stream. */
class WebViewer {
public:
    explicit WebViewer(int port);

    /** Reads the stream until a line has all of this in it; empty if none has within 20 seconds. */
    std::string wait_for(const std::string& event_member);
    /** Everything read so far. */
    const std::string& received() const { return m_received; }

private:
    Client m_client;
    std::string m_received;
};

} // namespace orvan_test

#endif

#ifndef ORVAN_SERVICE_HISLIP_ENTRANT_H
#define ORVAN_SERVICE_HISLIP_ENTRANT_H

#include <chrono>
#include <string>

#include "frame_reader.h"
#include <unique_fd.h>

namespace orvan_service::hislip {

/** How long a new connection may take to say what it is, and a session to open its second channel. */
inline constexpr std::chrono::seconds kEntrancePatience{10};

/** A new connection, until its first message: Initialize or AsyncInitialize. */
class Entrant {
public:
    using Clock = std::chrono::steady_clock;

    enum class State {
        kOpen,  /**< the message is not complete */
        kWhole, /**< frame() and payload() are */
        kBroken /**< the connection is, or what it sent is no HiSLIP message */
    };

    explicit Entrant(orvan_common::UniqueFd socket);

    int socket() const { return m_socket.get(); }
    Clock::time_point deadline() const { return m_deadline; }

    /** Receives once, and no more than the first message. */
    State receive();

    const Header& frame() const { return m_frame; }
    const std::string& payload() const { return m_payload; }

    /** Reports a fatal error. */
    void refuse(Fatal code, const char* reason) const;
    void send(Header header) const;

    orvan_common::UniqueFd take_socket() { return std::move(m_socket); }

private:
    orvan_common::UniqueFd m_socket;
    Clock::time_point m_deadline;
    std::string m_header;
    Header m_frame{Type::kInitialize};
    std::string m_payload;
};

} // namespace orvan_service::hislip

#endif

#ifndef ORVAN_SERVICE_HISLIP_FRAME_QUEUE_H
#define ORVAN_SERVICE_HISLIP_FRAME_QUEUE_H

#include <deque>
#include <string>
#include <string_view>

#include "frame.h"

namespace orvan_service::hislip {

/** Messages on their way to a socket that may not take them all at once. */
class FrameQueue {
public:
    enum class Sent {
        kAll,
        kSome,  /**< the socket takes no more for now */
        kBroken /**< the connection is */
    };

    void push(Header header, std::string_view payload = {});

    /** Sends without blocking. */
    Sent flush(int socket);

    bool empty() const { return m_frames.empty(); }

    /** Drops the messages of which nothing has been sent. */
    void drop_unsent();

private:
    std::deque<std::string> m_frames;
    size_t m_sent = 0; // bytes of the first one
};

} // namespace orvan_service::hislip

#endif

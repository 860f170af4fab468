#include "frame_queue.h"

#include <cerrno>

#include <sys/socket.h>

namespace orvan_service::hislip {

void FrameQueue::push(Header header, std::string_view payload)
{
    append_frame(m_frames.emplace_back(), header, payload);
}

FrameQueue::Sent FrameQueue::flush(int socket)
{
    while (!m_frames.empty()) {
        const std::string& frame = m_frames.front();
        const ssize_t sent =
            ::send(socket, frame.data() + m_sent, frame.size() - m_sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            return errno == EAGAIN ? Sent::kSome : Sent::kBroken;
        }
        m_sent += static_cast<size_t>(sent);
        if (m_sent == frame.size()) {
            m_frames.pop_front();
            m_sent = 0;
        }
    }
    return Sent::kAll;
}

void FrameQueue::drop_unsent()
{
    m_frames.resize(m_sent != 0 ? 1 : 0);
}

} // namespace orvan_service::hislip

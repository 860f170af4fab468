#include "async_channel.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include "service/standard/remote_control.h"

namespace orvan_service::hislip {
namespace {

// A lock string has at most 256 characters (IVI-6.1, AsyncLock).
constexpr uint64_t kLongestPayload = 256;

enum LockResult : uint8_t { kFailed = 0, kSucceeded = 1, kSharedReleased = 2, kInvalid = 3 };

constexpr uint8_t kReleaseLock = 0;
constexpr uint8_t kRequestLock = 1;
// By the control code of AsyncRemoteLocalControl.
constexpr RemoteState kRemoteStates[] = {
    RemoteState::kLocal,     // disable remote
    RemoteState::kUnchanged, // enable remote
    RemoteState::kLocal,     // disable remote and go to local
    RemoteState::kRemote,    // enable remote and go to remote
    RemoteState::kLockout,   // enable remote and lock out local
    RemoteState::kLockout,   // the same, and go to remote
    RemoteState::kLocal      // go to local
};

// How often a release is tried again until what was sent before it has been executed.
constexpr std::chrono::milliseconds kReleaseStep{5};

} // namespace

AsyncChannel::~AsyncChannel()
{
    if (m_connection) {
        note_remote(m_connection.get(), RemoteState::kLocal);
        m_connection->close();
        // Not in close(): the executor may call that while a request of this channel is being granted.
        m_environment.locks.forget(m_connection.get());
    }
}

short AsyncChannel::events() const
{
    return m_ended ? short{0} : short{POLLIN}; // a hang-up is reported in any case
}

bool AsyncChannel::serve()
{
    const std::span<char> space = m_reader.space();
    const ssize_t received = ::recv(m_connection->async(), space.data(), space.size(), MSG_DONTWAIT);
    if (received == 0 && !m_ended) {
        m_ended = true;
        m_request.reset();
        m_connection->leave();
        return true;
    }
    if (received <= 0) {
        return received < 0 && (errno == EAGAIN || errno == EINTR);
    }
    m_reader.received(static_cast<size_t>(received));
    while (true) {
        if (!m_in_frame) {
            switch (m_reader.next(m_frame)) {
            case FrameReader::Next::kNeedMore:
                return true;
            case FrameReader::Next::kBad:
                return break_off(Fatal::kBadHeader, "poorly formed message header");
            case FrameReader::Next::kHeader:
                m_in_frame = true;
                m_payload.clear();
            }
        }
        for (std::string_view piece; !(piece = m_reader.piece(SIZE_MAX)).empty();) {
            m_payload.append(piece.substr(0, kLongestPayload + 1 - m_payload.size()));
        }
        if (m_reader.left() > 0) {
            return true;
        }
        m_in_frame = false;
        if (!answer()) {
            return false;
        }
    }
}

bool AsyncChannel::answer()
{
    if (m_frame.length > kLongestPayload) {
        refuse(Fault::kTooLarge, "message too large");
        return true;
    }
    switch (m_frame.type) {
    case Type::kAsyncLock:
        if (m_frame.control == kRequestLock) {
            request_lock(m_frame.parameter);
        } else if (m_frame.control == kReleaseLock) {
            release_lock();
        } else {
            refuse(Fault::kUnknownControlCode, "unrecognized control code");
        }
        return true;
    case Type::kAsyncLockInfo:
        m_connection->send_async({Type::kAsyncLockInfoResponse,
                                  static_cast<uint8_t>(m_environment.locks.exclusive() ? 1 : 0),
                                  static_cast<uint32_t>(m_environment.locks.holders())});
        return true;
    case Type::kAsyncRemoteLocalControl:
        if (m_frame.control >= std::size(kRemoteStates)) {
            refuse(Fault::kUnknownControlCode, "unrecognized control code");
        } else {
            note_remote(m_connection.get(), kRemoteStates[m_frame.control]);
            m_connection->send_async({Type::kAsyncRemoteLocalResponse});
        }
        return true;
    case Type::kAsyncMaximumMessageSize:
        if (m_payload.size() != sizeof(uint64_t)) {
            refuse(Fault::kUnidentified, "a maximum message size has 8 bytes");
            return true;
        }
        m_connection->set_client_maximum(decode_size(m_payload));
        m_connection->send_async({Type::kAsyncMaximumMessageSizeResponse}, encode_size(kLargestPayload));
        return true;
    case Type::kAsyncDeviceClear:
        m_connection->begin_clear();
        return true;
    case Type::kAsyncStatusQuery:
        m_connection->send_async({Type::kAsyncStatusResponse,
                                  m_connection->poll_status(m_frame.parameter, (m_frame.control & 1) != 0)});
        return true;
    case Type::kError:
        return true;
    case Type::kFatalError:
        return false;
    case Type::kInitialize:
    case Type::kAsyncInitialize:
        return break_off(Fatal::kBadInitialization, "the connection is already initialized");
    default:
        if (static_cast<uint8_t>(m_frame.type) >= kFirstVendorType) {
            refuse(Fault::kUnknownVendorType, "unrecognized vendor defined message");
        } else {
            refuse(Fault::kUnknownType, "unrecognized message type");
        }
        return true;
    }
}

void AsyncChannel::request_lock(uint32_t timeout_ms)
{
    const Connection* const holder = m_connection.get();
    Locks& locks = m_environment.locks;
    if (m_request || m_releasing ||
        (m_payload.empty() ? locks.has_exclusive(holder) : locks.has_shared(holder))) {
        answer_lock(kInvalid);
        return;
    }
    const auto now = Clock::now();
    m_request = Request{m_payload, now + std::chrono::milliseconds(timeout_ms)};
    retry(now);
}

void AsyncChannel::release_lock()
{
    const Connection* const holder = m_connection.get();
    if (!m_environment.locks.has_exclusive(holder) && !m_environment.locks.has_shared(holder)) {
        answer_lock(kInvalid);
        return;
    }
    m_releasing = Clock::now();
    retry(*m_releasing);
}

void AsyncChannel::retry(Clock::time_point now)
{
    Locks& locks = m_environment.locks;
    if (m_request) {
        const bool got = m_request->name.empty() ? locks.lock(m_connection.get())
                                                 : locks.lock_shared(m_connection.get(), m_request->name);
        if (got || now >= m_request->deadline) {
            m_request.reset();
            answer_lock(got ? kSucceeded : kFailed);
        }
    }
    if (m_releasing && !m_connection->is_idle()) {
        m_releasing = now + kReleaseStep;
    } else if (m_releasing) {
        m_releasing.reset();
        answer_lock(locks.unlock(m_connection.get()) == Locks::Released::kShared ? kSharedReleased
                                                                                 : kSucceeded);
    }
}

AsyncChannel::Clock::time_point AsyncChannel::due() const
{
    const auto request = m_request ? m_request->deadline : Clock::time_point::max();
    return m_releasing ? std::min(request, *m_releasing) : request;
}

void AsyncChannel::answer_lock(uint8_t result)
{
    m_connection->send_async({Type::kAsyncLockResponse, result});
}

void AsyncChannel::refuse(Fault fault, const char* reason)
{
    ::syslog(LOG_NOTICE, "hislip %u: %s", m_connection->id(), reason);
    m_connection->send_async({Type::kError, static_cast<uint8_t>(fault)}, reason);
}

bool AsyncChannel::break_off(Fatal code, const char* reason)
{
    ::syslog(LOG_NOTICE, "hislip %u: closed, %s", m_connection->id(), reason);
    m_connection->send_async({Type::kFatalError, static_cast<uint8_t>(code)}, reason);
    return false;
}

} // namespace orvan_service::hislip

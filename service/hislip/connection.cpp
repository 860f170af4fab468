#include "connection.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include "scpi/error.h"
#include "service/listener.h"

namespace orvan_service::hislip {
namespace {

constexpr uint8_t kDelivered = 1; // RMT-delivered, of Data, DataEND and Trigger
constexpr uint8_t kOverlap = 1;   // of the feature bitmap

// A payload of at least this many bytes is received where it is assembled.
constexpr uint64_t kLong = 4096;

// Within a message of several megabytes the executor is not woken for less than this.
constexpr uint64_t kBulk = 512 * 1024;

constexpr uint64_t kSmallestMaximum = 256;

bool is_data(Type type)
{
    return type == Type::kData || type == Type::kDataEnd;
}

} // namespace

Connection::Connection(const Environment& environment, uint16_t id, orvan_common::UniqueFd sync,
                       orvan_common::UniqueFd async)
    : m_environment(environment), m_id(id), m_sync(std::move(sync)), m_async(std::move(async)),
      m_client{Protocol::kHislip, peer_address(m_sync.get())},
      m_session(
          environment.instrument,
          [this](uint8_t status) {
              send_async({Type::kAsyncServiceRequest, status});
          },
          [this](const StandardError& error, std::string_view message) {
              m_environment.counters.count_error(m_client, error, message);
          })
{
    ::syslog(LOG_INFO, "hislip %u: connected from %s", m_id, m_client.address.c_str());
}

Connection::~Connection()
{
    ::syslog(LOG_INFO, "hislip %u: gone", m_id);
}

void Connection::close()
{
    if (!m_closed.exchange(true)) {
        for (const int socket : {m_sync.get(), m_async.get()}) {
            discard_input(socket);
            ::shutdown(socket, SHUT_RDWR);
        }
        m_environment.retry();
    }
}

Session::Wait Connection::advance(bool readable)
{
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        return Session::Wait::kOver;
    }
    if (m_clear != Clear::kNone) {
        return Session::Wait::kRetry;
    }
    FrameQueue::Sent sent = m_out.flush(m_sync.get());
    if (sent == FrameQueue::Sent::kSome) {
        return Session::Wait::kRoom;
    }
    Parsed parsed = parse();
    if (parsed == Parsed::kNeedMore && readable) {
        parsed = receive() ? parse() : Parsed::kBroken;
    }
    m_unparsed = false;
    sent = m_out.flush(m_sync.get());
    if (parsed == Parsed::kBroken || sent == FrameQueue::Sent::kBroken) {
        return Session::Wait::kOver;
    }
    if (sent == FrameQueue::Sent::kSome) {
        return Session::Wait::kRoom;
    }
    if (parsed == Parsed::kReady) {
        return m_environment.locks.admits(this) ? Session::Wait::kTurn
               : m_leaving                      ? Session::Wait::kOver
                                                : Session::Wait::kRetry;
    }
    receive_in_bulk(receives_message() && m_reader.left() >= kBulk);
    return Session::Wait::kInput;
}

void Connection::execute()
{
    uint32_t generation;
    std::string trigger = "*TRG\n";
    std::span<char> message;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_ready || !m_environment.locks.admits(this)) {
            return;
        }
        m_busy = true;
        generation = m_generation;
        message = m_trigger ? std::span<char>(trigger) : m_assembly.message();
    }
    std::string response;
    try {
        response = m_session.execute(message,
                                     [this, generation] { return m_generation == generation && !m_closed; });
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "hislip %u: %s", m_id, error.what());
        m_session.status().add(SCPI_ERROR_SYSTEM);
    }

    const std::lock_guard lock(m_mutex);
    m_busy = m_ready = m_trigger = false;
    m_unparsed = true;
    if (m_generation != generation) {
        m_assembly.clear();
    } else if (!response.empty() && !m_leaving) { // a closed channel would be reset, and with it the rest
        deliver(response);
    }
}

void Connection::deliver(std::string_view response)
{
    // In overlap mode a client may send the next message before it reads the response to this one.
    if (!m_overlap && (m_assembly.has_more() || m_reader.left() > 0)) {
        m_session.status().add(SCPI_ERROR_QUERY_INTERRUPTED);
        return;
    }
    m_response_id = m_message_id;
    if (m_overlap) {
        m_response_id = m_overlap_id;
        m_overlap_id += 2;
    }
    const auto most = static_cast<size_t>(std::min<uint64_t>(m_client_maximum - kHeaderSize, SIZE_MAX));
    for (; response.size() > most; response.remove_prefix(most)) {
        m_out.push({Type::kData, 0, m_response_id}, response.substr(0, most));
    }
    m_out.push({Type::kDataEnd, 0, m_response_id}, response);
    m_undelivered = true;
    m_session.status().set_message_available(true);
}

// ---- receiving

bool Connection::receives_message() const
{
    return m_in_frame && !m_discard && is_data(m_frame.type);
}

void Connection::receive_in_bulk(bool bulk)
{
    if (bulk != m_bulk) {
        m_bulk = bulk;
        const int least = bulk ? static_cast<int>(kBulk) : 1;
        ::setsockopt(m_sync.get(), SOL_SOCKET, SO_RCVLOWAT, &least, sizeof least);
    }
}

bool Connection::receive()
{
    const bool directly = receives_message() && m_reader.left() >= kLong;
    const std::span<char> space =
        directly ? m_assembly.space(static_cast<size_t>(std::min<uint64_t>(m_reader.left(), kLargestPayload)))
                 : m_reader.space();
    const ssize_t received = ::recv(m_sync.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (received <= 0) {
        return received < 0 && (errno == EAGAIN || errno == EINTR);
    }
    const auto count = static_cast<size_t>(received);
    if (directly) {
        m_assembly.received(count);
        m_reader.bypassed(count);
    } else {
        m_reader.received(count);
    }
    return true;
}

Connection::Parsed Connection::parse()
{
    while (!m_ready) {
        const bool clearing = m_clear != Clear::kNone;
        if (!clearing) {
            take(m_assembly.next());
            if (m_ready) {
                break;
            }
            if (std::exchange(m_ended, false)) {
                take(m_assembly.end());
                continue;
            }
        }
        if (!m_in_frame) {
            switch (m_reader.next(m_frame)) {
            case FrameReader::Next::kNeedMore:
                return Parsed::kNeedMore;
            case FrameReader::Next::kBad:
                break_off(Fatal::kBadHeader, "poorly formed message header");
                return Parsed::kBroken;
            case FrameReader::Next::kHeader:
                m_in_frame = true;
                break;
            }
            if (!begin_frame()) {
                return Parsed::kBroken;
            }
        }
        if (m_reader.left() > 0) {
            if (!take_payload()) {
                return Parsed::kNeedMore;
            }
            continue;
        }
        m_in_frame = false;
        end_frame();
        if (clearing && m_clear == Clear::kAnswering) {
            return Parsed::kNeedMore;
        }
    }
    return Parsed::kReady;
}

bool Connection::take_payload()
{
    if (m_discard) {
        return !m_reader.piece(SIZE_MAX).empty();
    }
    const std::span<char> space = m_assembly.space(kLong);
    const std::string_view piece = m_reader.piece(space.size());
    std::copy(piece.begin(), piece.end(), space.begin());
    m_assembly.received(piece.size());
    return !piece.empty();
}

void Connection::take(MessageAssembly::Found found)
{
    if (found == MessageAssembly::Found::kTooLong) {
        m_session.status().add(SCPI_ERROR_INPUT_BUFFER_OVERRUN);
    }
    m_ready = found == MessageAssembly::Found::kMessage;
}

bool Connection::begin_frame()
{
    m_discard = true;
    switch (m_frame.type) {
    case Type::kData:
    case Type::kDataEnd:
    case Type::kTrigger:
        if (m_clear != Clear::kNone) {
            return true;
        }
        note_delivery();
        m_message_id = m_frame.parameter;
        m_refused = true;
        if ((m_frame.control & ~kDelivered) != 0) {
            refuse(Fault::kUnknownControlCode, "unrecognized control code");
        } else if (m_frame.length > kLargestPayload) {
            refuse(Fault::kTooLarge, "message too large");
        } else {
            m_refused = false;
        }
        m_incomplete = m_incomplete || m_refused;
        if (m_incomplete) {
            m_assembly.clear();
        }
        m_discard = m_incomplete || m_frame.type == Type::kTrigger;
        m_incomplete = m_incomplete && m_frame.type == Type::kData;
        return true;
    case Type::kDeviceClearComplete:
        return true;
    case Type::kError:
        ::syslog(LOG_NOTICE, "hislip %u: the client reports error %u", m_id, m_frame.control);
        return true;
    case Type::kFatalError:
        ::syslog(LOG_NOTICE, "hislip %u: the client reports fatal error %u", m_id, m_frame.control);
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

void Connection::end_frame()
{
    if (m_frame.type == Type::kDeviceClearComplete) {
        m_overlap = (m_frame.control & kOverlap) != 0;
        m_out.push({Type::kDeviceClearAcknowledge, static_cast<uint8_t>(m_overlap ? kOverlap : 0)});
        m_overlap_id = 0xFFFF'FF00;
        if (m_clear == Clear::kDiscarding) {
            m_clear = Clear::kAnswering;
        }
    } else if (m_frame.type == Type::kDataEnd && !m_discard) {
        m_ended = true;
    } else if (m_frame.type == Type::kTrigger && !m_refused && m_clear == Clear::kNone) {
        if (m_assembly.unfinished()) {
            m_assembly.clear();
            m_session.status().add(SCPI_ERROR_GET_NOT_ALLOWED);
        } else {
            m_ready = m_trigger = true;
        }
    }
}

/** Whether the client has read the last response; if not, this message interrupts it (IEEE 488.2 6.3.2.3). */
void Connection::note_delivery()
{
    if ((m_frame.control & kDelivered) == 0 && m_undelivered && !m_overlap) {
        m_out.drop_unsent();
        m_out.push({Type::kInterrupted, 0, m_frame.parameter});
        send_async({Type::kAsyncInterrupted, 0, m_frame.parameter});
        m_session.status().add(SCPI_ERROR_QUERY_INTERRUPTED);
    } else if ((m_frame.control & kDelivered) == 0) {
        return;
    }
    m_undelivered = false;
    m_session.status().set_message_available(false);
}

void Connection::refuse(Fault fault, const char* reason)
{
    ::syslog(LOG_NOTICE, "hislip %u: %s", m_id, reason);
    m_out.push({Type::kError, static_cast<uint8_t>(fault)}, reason);
}

/** Reports a fatal error. @return false */
bool Connection::break_off(Fatal code, const char* reason)
{
    ::syslog(LOG_NOTICE, "hislip %u: closed, %s", m_id, reason);
    m_out.drop_unsent();
    m_out.push({Type::kFatalError, static_cast<uint8_t>(code)}, reason);
    return false;
}

// ---- the attendant's thread

void Connection::begin_clear()
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_generation;
        if (!m_busy) { // otherwise execute() does this
            m_assembly.clear();
        }
        m_ready = m_trigger = m_ended = m_undelivered = m_incomplete = false;
        m_discard = true;
        m_out.drop_unsent();
        m_session.status().set_message_available(false);
        m_clear = Clear::kDiscarding;
        receive_in_bulk(false);
    }
    send_async({Type::kAsyncDeviceClearAcknowledge, 0});
    m_environment.retry(); // so that the executor leaves the channel alone
}

void Connection::leave()
{
    {
        const std::lock_guard lock(m_mutex);
        m_leaving = m_clear == Clear::kNone;
        receive_in_bulk(false);
    }
    if (m_leaving) {
        // What has arrived can still be received, and then the executor finds the end.
        ::shutdown(m_sync.get(), SHUT_RD);
        m_environment.retry();
    } else {
        close();
    }
}

short Connection::clear_events() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed || m_clear == Clear::kNone ? short{0}
           : m_clear == Clear::kDiscarding     ? short{POLLIN}
                                               : short{POLLOUT};
}

void Connection::continue_clear()
{
    bool over = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_clear == Clear::kDiscarding) {
            over = parse() == Parsed::kBroken;
            if (!over && m_clear == Clear::kDiscarding) {
                over = !receive() || parse() == Parsed::kBroken;
            }
        }
        const FrameQueue::Sent sent = m_out.flush(m_sync.get());
        over = over || sent == FrameQueue::Sent::kBroken;
        if (m_clear == Clear::kAnswering && sent == FrameQueue::Sent::kAll) {
            m_clear = Clear::kNone;
        }
    }
    if (over) {
        close();
    }
    m_environment.retry();
}

uint8_t Connection::poll_status(uint32_t message_id, bool delivered)
{
    bool available;
    {
        const std::lock_guard lock(m_mutex);
        const bool is_last = m_overlap || m_response_id == message_id;
        if (delivered && is_last) {
            m_undelivered = false;
            m_session.status().set_message_available(false);
        }
        available = m_undelivered && is_last;
    }
    const uint8_t status = m_session.status().serial_poll();
    return available ? status : static_cast<uint8_t>(status & ~kStatusMessageAvailable);
}

void Connection::set_client_maximum(uint64_t bytes)
{
    const std::lock_guard lock(m_mutex);
    m_client_maximum = std::max(bytes, kSmallestMaximum);
}

bool Connection::is_idle() const
{
    const std::lock_guard lock(m_mutex);
    pollfd sync{m_sync.get(), POLLIN, 0};
    return !m_busy && !m_ready && !m_unparsed && ::poll(&sync, 1, 0) == 0;
}

void Connection::send_async(Header header, std::string_view payload)
{
    if (m_leaving) {
        return;
    }
    std::string frame;
    append_frame(frame, header, payload);
    const std::lock_guard lock(m_async_mutex);
    const ssize_t sent = ::send(m_async.get(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(frame.size())) {
        // Not close(), which must not be called with the session's lock held. Both threads notice this.
        ::shutdown(m_sync.get(), SHUT_RDWR);
        ::shutdown(m_async.get(), SHUT_RDWR);
    }
}

} // namespace orvan_service::hislip

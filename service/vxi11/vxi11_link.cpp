#include "vxi11_link.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <span>
#include <system_error>

#include <sys/eventfd.h>
#include <syslog.h>
#include <vxi11.h>

#include "scpi/error.h"
#include "service/standard/remote_control.h"

namespace orvan_service {

using Found = MessageAssembly::Found;

namespace {

// Messages of one link that may wait for execution before its next write has to wait.
constexpr size_t kMostMessages = 16;
constexpr size_t kMostWaiting = size_t{1} << 20; // bytes

// What a message takes beside its bytes.
constexpr size_t kPerMessage = 64;

// Bytes that are searched for messages at a time: what follows one is moved.
constexpr size_t kPiece = 1024;

orvan_common::UniqueFd new_event()
{
    orvan_common::UniqueFd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

/** An empty message is none: clients end lines with both LF and END, in one write or in two. */
bool is_blank(std::string_view message)
{
    return message.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

void add_one(int event)
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(event, &one, sizeof one);
}

} // namespace

Vxi11Shared::Vxi11Shared() : m_wake(new_event()) {}

void Vxi11Shared::wake() const
{
    add_one(m_wake.get());
}

Vxi11Link::Vxi11Link(StandardInstrument& instrument, std::shared_ptr<Vxi11Shared> shared, Counters& counters,
                     Client client)
    : m_shared(std::move(shared)), m_event(new_event()), m_client(std::move(client)),
      m_session(
          instrument,
          [this](uint8_t) {
              m_service_request = true;
              m_shared->wake();
          },
          [this, &counters](const StandardError& error, std::string_view message) {
              counters.count_error(m_client, error, message);
          })
{
    ++m_shared->links;
}

Vxi11Link::~Vxi11Link()
{
    set_remote(false);
    clear();
    --m_shared->links;
}

void Vxi11Link::signal() const
{
    add_one(m_event.get());
}

bool Vxi11Link::has_room(size_t bytes, size_t memory) const
{
    const std::lock_guard lock(m_mutex);
    return m_messages.size() < kMostMessages && m_waiting < kMostWaiting &&
           m_shared->memory + bytes <= memory;
}

void Vxi11Link::write(std::string_view data, bool end)
{
    const std::lock_guard lock(m_mutex);
    if (!m_response.empty() && !is_blank(data)) {
        drop_response();
        status().add(SCPI_ERROR_QUERY_INTERRUPTED);
    }
    while (!data.empty()) {
        const std::span<char> space = m_input.space(std::min(data.size(), kPiece));
        data.copy(space.data(), space.size());
        data.remove_prefix(space.size());
        m_input.received(space.size());
        for (auto found = m_input.next(); found != Found::kNothing; found = m_input.next()) {
            take(found);
        }
    }
    if (end) {
        take(m_input.end());
        m_input.next(); // drops it
    }
    account();
}

void Vxi11Link::take(Found found)
{
    if (found == Found::kTooLong) {
        status().add(SCPI_ERROR_INPUT_BUFFER_OVERRUN);
    } else if (const std::span<char> message = m_input.message();
               !is_blank({message.data(), message.size()})) {
        m_messages.emplace_back(message.data(), message.size());
        m_waiting += message.size() + kPerMessage;
        signal();
    }
}

void Vxi11Link::account()
{
    const size_t memory = m_waiting + m_input.pending();
    m_shared->memory += memory - m_memory; // wraps around to become less
    m_memory = memory;
}

void Vxi11Link::trigger()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_input.unfinished()) {
            status().add(SCPI_ERROR_GET_NOT_ALLOWED);
            return;
        }
    }
    write("*TRG\n", true);
}

std::optional<Vxi11Link::Part> Vxi11Link::read(size_t requested, std::optional<char> end_char)
{
    const std::lock_guard lock(m_mutex);
    if (m_response.empty()) {
        return std::nullopt;
    }
    const std::string_view rest = std::string_view(m_response).substr(m_read);
    std::string_view part = rest.substr(0, std::min(requested, size_t{VXI11_MOST_DATA}));
    int reasons = 0;
    if (end_char) {
        const size_t found = part.find(*end_char);
        if (found != std::string_view::npos) {
            part = part.substr(0, found + 1);
            reasons |= Part::kCharacter;
        }
    }
    reasons |= part.size() == requested ? Part::kCount : 0;
    reasons |= part.size() == rest.size() ? Part::kEnd : 0;
    Part result{std::string(part), reasons};
    m_read += part.size();
    if (m_read == m_response.size()) {
        drop_response();
    }
    return result;
}

void Vxi11Link::set_remote(bool remote)
{
    note_remote(this, remote ? RemoteState::kRemote : RemoteState::kLocal);
}

bool Vxi11Link::is_asked() const
{
    const std::lock_guard lock(m_mutex);
    return !m_response.empty() || !m_messages.empty() || m_running;
}

void Vxi11Link::drop_response()
{
    m_response = {};
    m_read = 0;
    status().set_message_available(false);
}

void Vxi11Link::clear()
{
    const std::lock_guard lock(m_mutex);
    ++m_cleared;
    m_input = MessageAssembly(); // its memory is returned, too
    m_messages.clear();
    m_waiting = 0;
    account();
    drop_response();
}

void Vxi11Link::close()
{
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_input = MessageAssembly();
    account();
    drop_response();
    signal();
}

Session::Wait Vxi11Link::next(bool signalled)
{
    if (signalled) {
        uint64_t count;
        [[maybe_unused]] const ssize_t read = ::read(m_event.get(), &count, sizeof count);
    }
    const std::lock_guard lock(m_mutex);
    if (!m_messages.empty()) {
        return Session::Wait::kTurn;
    }
    return m_closed ? Session::Wait::kOver : Session::Wait::kInput;
}

void Vxi11Link::execute()
{
    std::string message;
    unsigned cleared = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (m_messages.empty()) { // cleared meanwhile
            return;
        }
        message = std::move(m_messages.front());
        m_messages.pop_front();
        m_waiting -= message.size() + kPerMessage;
        account();
        m_running = true;
        cleared = m_cleared;
    }
    m_shared->wake(); // a write may wait for room
    const auto continues = [&] {
        const std::lock_guard lock(m_mutex);
        return m_cleared == cleared;
    };
    std::string response;
    try {
        response = m_session.execute(message, continues);
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "VXI-11: %s", error.what());
        status().add(SCPI_ERROR_SYSTEM);
    }
    {
        const std::lock_guard lock(m_mutex);
        m_running = false;
        if (m_cleared == cleared && !m_closed && !response.empty()) {
            if (m_messages.empty() && !m_input.has_more()) {
                m_response = std::move(response);
                status().set_message_available(true);
            } else { // the next message came before this response could be read
                status().add(SCPI_ERROR_QUERY_INTERRUPTED);
            }
        }
    }
    m_shared->wake();
}

} // namespace orvan_service

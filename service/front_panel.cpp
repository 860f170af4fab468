#include "front_panel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>

#include "key_map.h"

using orvan_common::UniqueFd;

namespace orvan_service {
namespace {

// Queued by the service to indicate remote control; no key has it.
constexpr uint8_t kRemoteCode = 0xff;

// Pause when the process is out of descriptors: the connection stays pending, so poll() would not block.
constexpr int kOutOfDescriptorsPauseMs = 100;

UniqueFd make_event()
{
    UniqueFd event(::eventfd(0, EFD_CLOEXEC));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

} // namespace

FrontPanel::FrontPanel(UniqueFd listener, int channels, Execute execute, std::chrono::milliseconds patience)
    : m_listener(std::move(listener)), m_channels(channels), m_execute(std::move(execute)),
      m_patience(patience), m_end(make_event()), m_thread([this] { run(); })
{
}

FrontPanel::~FrontPanel()
{
    end();
    m_thread.join();
}

void FrontPanel::end()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_end.get(), &one, sizeof one);
}

bool FrontPanel::ended(int timeout_ms) const
{
    pollfd waiting{m_end.get(), POLLIN, 0};
    return ::poll(&waiting, 1, timeout_ms) > 0;
}

void FrontPanel::run()
{
    while (!ended(0)) {
        pollfd waiting[] = {{m_end.get(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
        if (::poll(waiting, 2, -1) <= 0 || waiting[0].revents != 0) {
            continue;
        }
        const UniqueFd connection(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection) {
            serve(connection);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            ::syslog(LOG_ERR, "front panel: accept: %s", std::strerror(errno));
            ended(kOutOfDescriptorsPauseMs);
        }
    }
}

void FrontPanel::serve(const UniqueFd& connection)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + m_patience;
    uint8_t received[2]; // one more than allowed
    size_t size = 0;
    while (size < sizeof received) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting[] = {{m_end.get(), POLLIN, 0}, {connection.get(), POLLIN, 0}};
        const int ready = ::poll(waiting, 2, static_cast<int>(std::max<int64_t>(left, 0)));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (waiting[0].revents != 0) {
            return;
        }
        if (ready <= 0) {
            ::syslog(LOG_WARNING, "front panel: connection not closed in time");
            return;
        }
        const ssize_t count = ::recv(connection.get(), received + size, sizeof received - size, 0);
        if (count <= 0) {
            break;
        }
        size += static_cast<size_t>(count);
    }
    if (size == 1) {
        obey(received[0]);
    } else {
        ::syslog(LOG_WARNING, "front panel: a connection with %s",
                 size == 0 ? "no code" : "more than a code");
    }
}

void FrontPanel::obey(uint8_t code)
{
    if (code == kRemoteCode) {
        ::syslog(LOG_NOTICE, "front panel: remote");
        return;
    }
    const KeyAction* const key = find_key(code, m_channels);
    if (key == nullptr) {
        ::syslog(LOG_INFO, "front panel: key 0x%02x is not in use", code);
        return;
    }
    ::syslog(LOG_NOTICE, "front panel: %s", key->name);
    const std::string reply = m_execute(key->message);
    if (reply.empty() || reply.find("-ERR") != std::string::npos) {
        ::syslog(LOG_WARNING, "front panel: %s: %s: %s", key->name, key->message,
                 reply.empty() ? "no reply" : reply.c_str());
    }
}

} // namespace orvan_service

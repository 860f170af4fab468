#include "process/notify.h"

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <unique_fd.h>

namespace orvan_common {
namespace {

constexpr timeval kPatience{1, 0};

bool is_number(const char* text, int64_t& number)
{
    const char* const end = text + std::strlen(text);
    const auto [last, error] = std::from_chars(text, end, number);
    return error == std::errc() && last == end && number > 0;
}

} // namespace

bool notify(const char* state)
{
    const char* const name = std::getenv("NOTIFY_SOCKET");
    if (!name || (name[0] != '/' && name[0] != '@')) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(name);
    if (length >= sizeof address.sun_path) {
        ::syslog(LOG_WARNING, "NOTIFY_SOCKET is too long: %s", name);
        return false;
    }
    std::memcpy(address.sun_path, name, length);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (::sendto(socket.get(), state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
                 size) < 0) {
        ::syslog(LOG_WARNING, "notify %s: %s", name, std::strerror(errno));
        return false;
    }
    return true;
}

std::chrono::microseconds watchdog_period()
{
    const char* const period = std::getenv("WATCHDOG_USEC");
    const char* const pid = std::getenv("WATCHDOG_PID");
    int64_t number = 0;
    if (period == nullptr || (pid != nullptr && is_number(pid, number) && number != ::getpid())) {
        return {};
    }
    if (!is_number(period, number)) {
        ::syslog(LOG_WARNING, "WATCHDOG_USEC is not a number of microseconds: %s", period);
        return {};
    }
    return std::chrono::microseconds(number);
}

} // namespace orvan_common

#include "board_client.h"

#include <sys/socket.h>

#include "sockets.h"

namespace orvan_launcher {

namespace {

constexpr int kPatience = 2;

} // namespace

std::string ask_board(const std::filesystem::path& socket, const std::string& verb)
{
    const orvan_common::UniqueFd fd(connect_unix(socket));
    if (!fd) {
        return "";
    }
    const std::string line = verb + "\n";
    if (::send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        return "";
    }
    // The reply does not say how many lines it has; closing the socket marks its end.
    ::shutdown(fd.get(), SHUT_WR);
    return exchange(fd.get(), "", "", kPatience);
}

} // namespace orvan_launcher

#include "module_control.h"

#include <sys/socket.h>

#include "sockets.h"

using orvan_common::UniqueFd;

namespace orvan_launcher {

namespace {

constexpr int kPatience = 1;

} // namespace

std::string ask_module(const std::filesystem::path& socket, const std::string& command)
{
    const UniqueFd fd(connect_unix(socket));
    if (!fd) {
        return "";
    }
    std::string reply = exchange(fd.get(), command + "\n", "\n", kPatience);
    if (command == "log" || command.starts_with("log ")) {
        // The first line has the number of lines; closing the socket marks the end.
        ::shutdown(fd.get(), SHUT_WR);
        reply += exchange(fd.get(), "", "", kPatience);
    }
    return reply;
}

bool module_answers(const std::filesystem::path& socket)
{
    return static_cast<bool>(UniqueFd(connect_unix(socket)));
}

} // namespace orvan_launcher

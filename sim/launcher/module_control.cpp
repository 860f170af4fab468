#include "module_control.h"

#include <sys/socket.h>

#include "sockets.h"

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
        // How many lines there are stands in the first; the socket's end marks that of the last.
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

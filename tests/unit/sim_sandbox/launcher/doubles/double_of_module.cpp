// Replaces a module: listens at its TCP address, closing each connection, and on its control socket echoes
// each command after "ok ", except "silence", which it never answers, and "log", answered by "ok 2" and two
// lines. With ORVAN_DOUBLE_MODULE_EXIT=N it ends at once with N.

#include <cstdlib>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::string option(char** argv, const char* name)
{
    for (; *argv != nullptr; ++argv) {
        if (strcmp(*argv, name) == 0 && argv[1] != nullptr) {
            return argv[1];
        }
    }
    return "";
}

int listen_tcp(const std::string& text, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool good = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return good && ::listen(fd, 8) == 0 ? fd : -1;
}

int listen_unix(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ::unlink(path.c_str());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool good = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return good && ::listen(fd, 8) == 0 ? fd : -1;
}

void obey(int client)
{
    std::string line;
    char letter = 0;
    while (::read(client, &letter, 1) == 1 && letter != '\n') {
        line += letter;
    }
    std::string reply = line.empty() || line == "silence" ? "" : "ok " + line + "\n";
    if (line == "log") {
        reply = "ok 2\nfirst\nsecond\n";
    }
    ::send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
    if (line != "silence") {
        ::close(client);
    }
}

} // namespace

int main(int, char** argv)
{
    if (const char* status = getenv("ORVAN_DOUBLE_MODULE_EXIT")) {
        return atoi(status);
    }
    pollfd waiting[] = {
        {listen_tcp(option(argv, "--address"), atoi(option(argv, "--port").c_str())), POLLIN, 0},
        {listen_unix(option(argv, "--control")), POLLIN, 0},
    };
    if (waiting[0].fd < 0 || waiting[1].fd < 0) {
        return 3;
    }
    while (::poll(waiting, 2, -1) > 0) {
        if (waiting[0].revents != 0) {
            ::close(::accept(waiting[0].fd, nullptr, nullptr));
        }
        if (waiting[1].revents != 0) {
            obey(::accept(waiting[1].fd, nullptr, nullptr));
        }
    }
}

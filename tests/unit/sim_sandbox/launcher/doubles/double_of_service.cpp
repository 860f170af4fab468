// Replaces the service and the web process: takes listening sockets over, in a sandbox a service listens at
// TCP port 5025 too, reports that it is ready, and answers each line of a client.
//   env NAME     value of an environment variable          fds      number of listening sockets
//   args         command line                              pid      process id
//   run TEXT     exit status of a shell command            exit N   ends with that status
//   abort        ends by a signal                          hide     ignores SIGTERM from now on
//   note FILE    makes that file when it is ended by SIGTERM
//   fed          how often it has fed its watchdog         listener descriptor on which the client came
// With ORVAN_DOUBLE_MUTE set it never reports; with ORVAN_DOUBLE_EXIT=N it ends at once with N, and while
// the state directory has a file `fails`, with 1. In production mode it prints its command line and ends,
// with N of ORVAN_DOUBLE_PRODUCE_EXIT=N.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int g_fed = 0;
std::string g_note;

void report(const char* text)
{
    const char* path = getenv("NOTIFY_SOCKET");
    if (path == nullptr || getenv("ORVAN_DOUBLE_MUTE") != nullptr) {
        return;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::sendto(fd, text, strlen(text), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(fd);
}

std::string answer(const std::string& line, int fds, int listener, char** argv)
{
    const size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "env") {
        const char* value = getenv(rest.c_str());
        return value != nullptr ? value : "(none)";
    }
    if (word == "fds") {
        return std::to_string(fds);
    }
    if (word == "listener") {
        return std::to_string(listener);
    }
    if (word == "args") {
        std::string text;
        for (char** argument = argv + 1; *argument != nullptr; ++argument) {
            text += std::string(text.empty() ? "" : " ") + *argument;
        }
        return text;
    }
    if (word == "pid") {
        return std::to_string(::getpid());
    }
    if (word == "run") {
        const int status = system(rest.c_str());
        return std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    if (word == "exit") {
        ::_exit(atoi(rest.c_str()));
    }
    if (word == "abort") {
        abort();
    }
    if (word == "fed") {
        return std::to_string(g_fed);
    }
    if (word == "note") {
        g_note = rest;
        signal(SIGTERM, [](int) {
            ::creat(g_note.c_str(), 0644);
            ::_exit(0);
        });
        return "noted";
    }
    if (word == "hide") {
        signal(SIGTERM, SIG_IGN);
        return "hidden";
    }
    return "?";
}

void serve(int listener, int fds, char** argv)
{
    const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    std::string text;
    char part[512];
    for (ssize_t count = 0; (count = ::read(client, part, sizeof part)) > 0;) {
        text.append(part, static_cast<size_t>(count));
        for (size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            const std::string reply = answer(text.substr(0, end), fds, listener, argv) + "\n";
            ::send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }
    ::close(client);
}

int listen_at_own_port()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(5025);
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool good = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return good && ::listen(fd, 8) == 0 ? fd : -1;
}

} // namespace

int main(int, char** argv)
{
    const std::string command_line = answer("args", 0, -1, argv);
    if (command_line.find("--produce") != std::string::npos) {
        puts(command_line.c_str());
        const char* status = getenv("ORVAN_DOUBLE_PRODUCE_EXIT");
        return status != nullptr ? atoi(status) : 0;
    }
    if (const char* status = getenv("ORVAN_DOUBLE_EXIT")) {
        fputs("double: ends at once\n", stderr);
        return atoi(status);
    }
    if (const char* state = getenv("ORVAN_STATE");
        state != nullptr && ::access((std::string(state) + "/fails").c_str(), F_OK) == 0) {
        return 1;
    }
    const char* pid = getenv("LISTEN_PID");
    const char* count = getenv("LISTEN_FDS");
    const int fds = pid != nullptr && count != nullptr && atoi(pid) == ::getpid() ? atoi(count) : 0;
    std::vector<pollfd> waiting;
    for (int index = 0; index < fds; ++index) {
        waiting.push_back({3 + index, POLLIN, 0});
    }
    if (command_line.find("--platform") != std::string::npos) {
        waiting.push_back({listen_at_own_port(), POLLIN, 0});
    }
    report("STATUS=well\nREADY=1");
    const char* period = getenv("WATCHDOG_USEC");
    const int half = period != nullptr ? atoi(period) / 2000 : -1;
    for (int ready = 0; (ready = ::poll(waiting.data(), waiting.size(), half)) >= 0;) {
        if (period != nullptr) {
            report("WATCHDOG=1");
            ++g_fed;
        }
        if (ready == 0) {
            continue;
        }
        for (const pollfd& listener : waiting) {
            if (listener.revents != 0) {
                serve(listener.fd, fds, argv);
            }
        }
    }
}

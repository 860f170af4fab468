#include "password_prompt.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "process/stop_request.h"

namespace orvan_web {
namespace {

constexpr const char* kNothing = "no password was entered";

/** A terminal that does not show what is typed; it does again after Ctrl-C, too. */
class HiddenInput {
public:
    HiddenInput()
    {
        ::tcgetattr(STDIN_FILENO, &m_before);
        termios hidden = m_before;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    ~HiddenInput() { ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before); }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;

    std::string read_line() const
    {
        constexpr size_t kLongest = 4096; // of a terminal, which hands out a line at a time
        pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {m_stop.descriptor(), POLLIN, 0}};
        while (::poll(waiting, 2, -1) < 0) {
        }
        std::string line(kLongest, '\0');
        const ssize_t count = waiting[1].revents != 0 ? 0 : ::read(STDIN_FILENO, line.data(), line.size());
        if (count <= 0) {
            throw std::runtime_error(kNothing);
        }
        line.resize(static_cast<size_t>(count));
        return line.substr(0, line.find('\n'));
    }

private:
    const orvan_common::StopRequest m_stop;
    termios m_before{};
};

std::string read_line()
{
    std::string line;
    if (!std::getline(std::cin, line)) {
        throw std::runtime_error(kNothing);
    }
    return line;
}

std::string ask(const HiddenInput& input, const char* question)
{
    std::fputs(question, stderr);
    std::string line = input.read_line();
    std::fputc('\n', stderr);
    return line;
}

} // namespace

std::string read_new_password()
{
    if (::isatty(STDIN_FILENO) == 0) {
        return read_line();
    }
    const HiddenInput hidden;
    std::string password = ask(hidden, "New password: ");
    if (ask(hidden, "Again: ") != password) {
        throw std::runtime_error("the two passwords differ");
    }
    return password;
}

} // namespace orvan_web

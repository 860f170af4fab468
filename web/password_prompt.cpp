#include "password_prompt.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include <termios.h>
#include <unistd.h>

namespace orvan_web {
namespace {

/** A terminal that does not show what is typed. */
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

private:
    termios m_before{};
};

std::string read_line()
{
    std::string line;
    if (!std::getline(std::cin, line)) {
        throw std::runtime_error("no password was entered");
    }
    return line;
}

std::string ask(const char* question)
{
    std::fputs(question, stderr);
    std::string line = read_line();
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
    std::string password = ask("New password: ");
    if (ask("Again: ") != password) {
        throw std::runtime_error("the two passwords differ");
    }
    return password;
}

} // namespace orvan_web

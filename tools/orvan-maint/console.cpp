#include "console.h"

#include <cerrno>
#include <cstdio>

#include <poll.h>
#include <unistd.h>

#include "failure.h"

namespace orvan_maint {
namespace {

// A line of standard input; end of file without one is not an answer.
std::string read_answer(int stop)
{
    std::string answer;
    for (;;) {
        pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {stop, POLLIN, 0}};
        if (::poll(waiting, 2, -1) < 0 && errno != EINTR) {
            return {};
        }
        if (waiting[1].revents != 0) {
            throw Interrupted();
        }
        if (waiting[0].revents == 0) {
            continue;
        }
        char c = '\0';
        if (::read(STDIN_FILENO, &c, 1) != 1) {
            return {};
        }
        if (c == '\n') {
            return answer;
        }
        answer += c;
    }
}

} // namespace

void say(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

void complain(const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "orvan-maint: %s\n", text.c_str());
}

void agree(const std::vector<std::string>& plan, bool yes, int stop)
{
    for (const std::string& line : plan) {
        say(line);
    }
    if (yes) {
        return;
    }
    std::fputs("Continue? [y/N] ", stdout);
    std::fflush(stdout);
    const std::string answer = read_answer(stop);
    if (::isatty(STDIN_FILENO) == 0) {
        say("");
    }
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw Failure(kExitNotDone, "not confirmed, nothing was sent; --yes skips the question");
    }
}

} // namespace orvan_maint

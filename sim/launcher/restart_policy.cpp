#include "restart_policy.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iterator>

#include <sys/wait.h>

namespace orvan_launcher {

namespace {

constexpr int kBadOptions = 2;
constexpr int kCleanSignals[] = {SIGHUP, SIGINT, SIGTERM, SIGPIPE};

} // namespace

bool is_restarted_after(int status)
{
    if (WIFSIGNALED(status)) {
        return std::ranges::find(kCleanSignals, WTERMSIG(status)) == std::end(kCleanSignals);
    }
    return WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != kBadOptions;
}

std::string seconds_text(std::chrono::duration<double> time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", time.count());
    return text;
}

} // namespace orvan_launcher

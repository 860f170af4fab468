#include <csignal>
#include <cstdio>

#include <sys/signalfd.h>

#include "verbs.h"

namespace orvan_launcher {

int run_instance(const RunOptions& options)
{
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t ending;
    ::sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaddset(&ending, number);
    }
    ::sigprocmask(SIG_BLOCK, &ending, nullptr);
    const orvan_common::UniqueFd signals(::signalfd(-1, &ending, SFD_CLOEXEC));

    Instance instance(options, signals.get());
    if (const auto started = instance.start(); !started) {
        std::fprintf(stderr, "orvan-sim: %s\n", started.error().text().c_str());
        return 1;
    }
    return instance.loop();
}

} // namespace orvan_launcher

#include <signal.h>

#include <sys/signalfd.h>

#include "command_line.h"

int main(int argc, char** argv)
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &ends, nullptr);
    return orvan_maint::run(argc, argv, ::signalfd(-1, &ends, SFD_CLOEXEC));
}

#include "spinning_child.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace orvan_test {
namespace {

using std::chrono::milliseconds;

constexpr int kCameBack = 42;
constexpr milliseconds kEnoughProcessorTime(200);
constexpr auto kBound = std::chrono::seconds(20);

milliseconds processor_time(pid_t child)
{
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(child, &clock) != 0 || clock_gettime(clock, &used) != 0)
        return milliseconds(0);
    return milliseconds(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

} // namespace

bool spins(const std::function<void()>& call)
{
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("cannot fork");
    if (child == 0) {
        call();
        _exit(kCameBack);
    }
    const milliseconds at_start = processor_time(child);
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        const bool burnt = processor_time(child) - at_start >= kEnoughProcessorTime;
        if (burnt || std::chrono::steady_clock::now() >= deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            if (!burnt)
                throw std::runtime_error("the child neither came back nor spun");
            return true;
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != kCameBack)
        throw std::runtime_error("the child died");
    return false;
}

} // namespace orvan_test

#include "spinning_child.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace orvan_test {
namespace {

using std::chrono::milliseconds;

constexpr int kCameBack = 42;
constexpr milliseconds kEnoughProcessorTime(200);
constexpr auto kEnoughTimeReady = std::chrono::seconds(5);
constexpr auto kBound = std::chrono::seconds(20);

milliseconds processor_time(pid_t child)
{
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(child, &clock) != 0 || ::clock_gettime(clock, &used) != 0) {
        return milliseconds(0);
    }
    return milliseconds(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

// Runs or waits for a processor; a blocked thread sleeps.
bool is_ready_to_run(pid_t child)
{
    std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), {});
    const size_t end_of_name = text.rfind(") ");
    return end_of_name != std::string::npos && text[end_of_name + 2] == 'R';
}

} // namespace

bool spins(const std::function<void()>& call)
{
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (child == 0) {
        call();
        ::_exit(kCameBack);
    }
    const milliseconds at_start = processor_time(child);
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    auto slept_last = std::chrono::steady_clock::now();
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        const auto now = std::chrono::steady_clock::now();
        if (!is_ready_to_run(child)) {
            slept_last = now;
        }
        // A yielding loop gets hardly any time on a busy machine.
        const bool spun =
            processor_time(child) - at_start >= kEnoughProcessorTime || now - slept_last >= kEnoughTimeReady;
        if (spun || now >= deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            if (!spun) {
                throw std::runtime_error("the child neither came back nor spun");
            }
            return true;
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != kCameBack) {
        throw std::runtime_error("the child died");
    }
    return false;
}

} // namespace orvan_test

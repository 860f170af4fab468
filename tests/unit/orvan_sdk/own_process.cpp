#include "own_process.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/output_capture.h"

namespace orvan_test {
namespace {

bool shares_its_process()
{
    return testing::UnitTest::GetInstance()->test_to_run_count() > 1 || GTEST_FLAG_GET(repeat) != 1;
}

std::string running_case()
{
    const testing::TestInfo& info = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(info.test_suite_name()) + "." + info.name();
}

// This process's environment, without the variables that select cases, such as those of shards.
std::vector<char*> environment()
{
    std::vector<char*> kept;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (std::strncmp(*variable, "GTEST_", 6) != 0) {
            kept.push_back(*variable);
        }
    }
    kept.push_back(nullptr);
    return kept;
}

// Returns its wait status; -1 if it could not be started.
int run(const std::string& name)
{
    std::string program = program_invocation_name;
    std::string filter = "--gtest_filter=" + name;
    char* arguments[] = {program.data(), filter.data(), nullptr};
    pid_t child = 0;
    int status = -1;
    if (::posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, arguments, environment().data()) == 0) {
        ::waitpid(child, &status, 0);
    }
    return status;
}

} // namespace

void run_in_own_process()
{
    if (!shares_its_process()) {
        return;
    }
    int status = -1;
    std::string printed;
    {
        const OutputCapture out(STDOUT_FILENO);
        const OutputCapture err(STDERR_FILENO);
        status = run(running_case());
        printed = out.text() + err.text();
    }
    if (status != 0) {
        FAIL() << "in a separate process, with wait status " << status << ":\n" << printed;
    }
    GTEST_SKIP() << "passed in a separate process";
}

} // namespace orvan_test

// Runs each case of a suite in a fork of this process: as separate as in a process of its own, without the
// half second that starting one under an emulator takes. GTEST_TOTAL_SHARDS and GTEST_SHARD_INDEX share the
// cases out. With arguments, as a death test has them or who looks into a failure, it is a suite like any
// other.
//
// ORVAN_NOT_RUN names the file of the cases that cannot run here: the suite's program, a pattern of names,
// the reason. They are reported, and a row that fits no case is a failure.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fnmatch.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr unsigned kLongestCase = 240; // seconds

struct NotRun {
    std::string pattern;
    std::string reason;
};

bool matches(const std::string& name, const std::string& pattern)
{
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

std::string name_of(const testing::TestSuite& suite, int index)
{
    return std::string(suite.name()) + "." + suite.GetTestInfo(index)->name();
}

int number_of(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    const int number = text != nullptr ? std::atoi(text) : otherwise;
    // The child that runs the one case must not leave it to another shard.
    unsetenv(variable);
    return number;
}

std::vector<std::string> cases_of_this_shard()
{
    const int shards = std::max(number_of("GTEST_TOTAL_SHARDS", 1), 1);
    const int shard = number_of("GTEST_SHARD_INDEX", 0);
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    std::vector<std::string> names;
    int index = 0;
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            if (index++ % shards == shard) {
                names.push_back(name_of(suite, j));
            }
        }
    }
    return names;
}

std::vector<NotRun> read_not_run(const std::string& program)
{
    std::vector<NotRun> table;
    const char* const path = std::getenv("ORVAN_NOT_RUN");
    std::ifstream file(path != nullptr ? path : "/dev/null");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string of_program;
        NotRun row;
        words >> of_program >> row.pattern >> std::ws;
        if (std::getline(words, row.reason) && of_program == program) {
            table.push_back(row);
        }
    }
    return table;
}

bool fits_a_case(const NotRun& row)
{
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            if (matches(name_of(suite, j), row.pattern)) {
                return true;
            }
        }
    }
    return false;
}

bool passes(const std::string& name)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        std::perror("fork");
        return false;
    }
    if (child == 0) {
        GTEST_FLAG_SET(filter, name);
        const int result = RUN_ALL_TESTS();
        std::fflush(nullptr);
        std::exit(result);
    }
    alarm(kLongestCase); // interrupts the wait
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        std::printf("%s: killed after %u s\n", name.c_str(), kLongestCase);
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    } else if (WIFSIGNALED(status)) {
        std::printf("%s: ended by signal %d\n", name.c_str(), WTERMSIG(status));
    }
    alarm(0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

int main(int argc, char** argv)
{
    const bool has_arguments = argc > 1;
    testing::InitGoogleMock(&argc, argv);
    if (has_arguments) {
        return RUN_ALL_TESTS();
    }
    struct sigaction on_alarm {};
    on_alarm.sa_handler = [](int) {};
    sigaction(SIGALRM, &on_alarm, nullptr);
    const std::string path = argv[0];
    const std::vector<NotRun> not_run = read_not_run(path.substr(path.rfind('/') + 1));
    std::vector<std::string> failed;
    for (const NotRun& row : not_run) {
        if (!fits_a_case(row)) {
            failed.push_back("no case is called " + row.pattern);
        }
    }
    for (const std::string& name : cases_of_this_shard()) {
        const auto found = std::find_if(not_run.begin(), not_run.end(),
                                        [&](const NotRun& row) { return matches(name, row.pattern); });
        if (found != not_run.end()) {
            std::printf("[ NOT RUN  ] %s %s\n", name.c_str(), found->reason.c_str());
        } else if (!passes(name)) {
            failed.push_back(name);
        }
    }
    for (const std::string& name : failed) {
        std::printf("FAILED: %s\n", name.c_str());
    }
    std::printf("%zu failed\n", failed.size());
    return failed.empty() ? 0 : 1;
}

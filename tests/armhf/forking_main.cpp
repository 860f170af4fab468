// Runs each case of a suite in a fork of this process: as separate as in a new process, without the
// half second that starting one under an emulator takes. GTEST_TOTAL_SHARDS and GTEST_SHARD_INDEX divide the
// cases. With --gtest_shuffle the cases share a process, as they do on other machines; with a filter, as
// used by a death test or to investigate a failure, this is a suite like any other.
//
// ORVAN_NOT_RUN names the file of the cases that cannot run here: the suite's program, a pattern of names,
// the reason. They are reported; a row that matches no case is a failure.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fnmatch.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr unsigned kLongestCase = 240; // seconds

struct NotRun {
    std::string pattern;
    std::string reason;
    bool fits_a_case = false;
};

bool matches(const std::string& name, const std::string& pattern)
{
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

int number_of(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

std::vector<std::string> all_cases()
{
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    std::vector<std::string> names;
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(j)->name());
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

// Once for all shards. False if a row matches no case.
bool report_not_run(std::vector<NotRun> table, const std::vector<std::string>& cases)
{
    for (const std::string& name : cases) {
        bool reported = false;
        for (NotRun& row : table) {
            if (matches(name, row.pattern)) {
                if (!std::exchange(reported, true)) {
                    std::printf("[ NOT RUN  ] %s %s\n", name.c_str(), row.reason.c_str());
                }
                row.fits_a_case = true;
            }
        }
    }
    bool all_fit = true;
    for (const NotRun& row : table) {
        if (!row.fits_a_case) {
            std::printf("FAILED: no case is called %s\n", row.pattern.c_str());
            all_fit = false;
        }
    }
    return all_fit;
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

int run_each(const std::vector<std::string>& cases)
{
    struct sigaction on_alarm {};
    on_alarm.sa_handler = [](int) {};
    sigaction(SIGALRM, &on_alarm, nullptr);
    const size_t shards = static_cast<size_t>(std::max(number_of("GTEST_TOTAL_SHARDS", 1), 1));
    const size_t shard = static_cast<size_t>(number_of("GTEST_SHARD_INDEX", 0));
    // The fork that runs one case must not leave it to another shard.
    unsetenv("GTEST_TOTAL_SHARDS");
    unsetenv("GTEST_SHARD_INDEX");
    // The forks inherit the code that the emulator has already translated.
    GTEST_FLAG_SET(filter, "-*");
    [[maybe_unused]] const int of_none = RUN_ALL_TESTS();
    std::vector<std::string> failed;
    for (size_t index = shard; index < cases.size(); index += shards) {
        if (!passes(cases[index])) {
            failed.push_back(cases[index]);
        }
    }
    for (const std::string& name : failed) {
        std::printf("FAILED: %s\n", name.c_str());
    }
    return failed.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string path = argv[0];
    const bool shared = argc > 1;
    testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(filter) != "*" || GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    const std::vector<NotRun> not_run = read_not_run(path.substr(path.rfind('/') + 1));
    std::vector<std::string> cases = all_cases();
    int result = 0;
    if (number_of("GTEST_SHARD_INDEX", 0) == 0 && !report_not_run(not_run, cases)) {
        result = 1;
    }
    if (shared) {
        std::string filter = "-";
        for (const NotRun& row : not_run) {
            filter += row.pattern + ":";
        }
        GTEST_FLAG_SET(filter, filter);
        return std::max(result, RUN_ALL_TESTS());
    }
    std::erase_if(cases, [&](const std::string& name) {
        return std::any_of(not_run.begin(), not_run.end(),
                           [&](const NotRun& row) { return matches(name, row.pattern); });
    });
    return std::max(result, run_each(cases));
}

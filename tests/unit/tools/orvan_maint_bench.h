/**
 * orvan-maint run in the test's process, with text on its standard input.
 */
#ifndef ORVAN_TESTS_ORVAN_MAINT_BENCH_H
#define ORVAN_TESTS_ORVAN_MAINT_BENCH_H

#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "orvan-maint/command_line.h"
#include "support/output_capture.h"
#include "test_folder.h"

namespace orvan_test {

struct MaintOutcome {
    int status;
    std::string out;
    std::string err;
};

inline MaintOutcome run_maint(std::vector<std::string> arguments, const std::string& input = {},
                              int stop = -1)
{
    arguments.insert(arguments.begin(), "orvan-maint");
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0 || ::write(ends[1], input.data(), input.size()) < 0) {
        return {-1, "", "no pipe"};
    }
    ::close(ends[1]);
    const int own_input = ::dup(STDIN_FILENO);
    ::dup2(ends[0], STDIN_FILENO);
    ::close(ends[0]);
    std::fflush(stdout);
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    const int status = orvan_maint::run(static_cast<int>(argv.size()), argv.data(), stop);
    std::fflush(stdout);
    ::dup2(own_input, STDIN_FILENO);
    ::close(own_input);
    return {status, out.text(), err.text()};
}

} // namespace orvan_test

#endif

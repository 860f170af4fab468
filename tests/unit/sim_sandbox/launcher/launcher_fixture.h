#ifndef ORVAN_TESTS_UNIT_SIM_SANDBOX_LAUNCHER_LAUNCHER_FIXTURE_H
#define ORVAN_TESTS_UNIT_SIM_SANDBOX_LAUNCHER_LAUNCHER_FIXTURE_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "sandbox_fixture.h"

namespace launcher_test {

using orvan_common::UniqueFd;
using sandbox_test::TemporaryDirectory;

/** What the launcher prints before the port of the page. */
inline constexpr const char* kPage = "page         http://127.0.0.1:";

struct Outcome {
    int status = -1;
    std::string output; /**< standard output and error */
};

/**
 * The launcher in a private folder, laid out as an installation, with doubles of service, web process and
 * module. Its
 * registry and its temporary files are in that folder as well.
 */
class LauncherTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /** Starts `orvan-sim run` on free ports with these options and environment. */
    void start(const std::vector<std::string>& options = {},
               const orvan_sandbox::Environment& environment = {});
    /**
     * The same, and waits until it is ready. Skips the test where the kernel refuses a sandbox, so the
     * caller must return if this is false.
     */
    bool start_ready(const std::vector<std::string>& options = {},
                     const orvan_sandbox::Environment& environment = {});
    /** Sends a signal to the launcher started last and waits for it. */
    int stop(int signal);
    int wait();
    std::string output() const { return sandbox_test::read_file(m_folder.path() / "output"); }

    /** Runs `orvan-sim` to completion. */
    Outcome sim(const std::vector<std::string>& words);
    /** Sends a line to the service on the host's port printed after `before` and returns its answer. */
    std::string ask(const std::string& line, const std::string& before = "SCPI         TCP 127.0.0.1:");

    std::string printed(const std::string& before) const; /**< the word after a text in the output */
    std::string port_of_page() const;
    std::filesystem::path state() const { return m_folder.path() / "state"; }
    /** Names of the files left in the temporary and the registry folder. */
    std::string left_over() const;

    TemporaryDirectory m_folder;
    pid_t m_launcher = -1;
    std::vector<std::string> m_page_options = {"--http-port", "0"}; /**< unless the options have others */
    std::vector<std::string> m_before; /**< a program that runs the launcher, and its arguments */

private:
    pid_t run(const std::vector<std::string>& words, const std::filesystem::path& output,
              const orvan_sandbox::Environment& environment);
};

/** `orvan-sim run`. */
class OrvanSimRun : public LauncherTest {};

} // namespace launcher_test

#endif

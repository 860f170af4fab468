/**
 * A private virtual instrument: `orvan-sim run` as a child process, on free ports, with its state
 * in a temporary folder. It ends when its service fails, unless started with "--restart".
 */
#ifndef ORVAN_TESTS_INSTRUMENT_INSTRUMENT_H
#define ORVAN_TESTS_INSTRUMENT_INSTRUMENT_H

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "client.h"
#include "support/eventually.h"

namespace orvan_test {

struct Outcome {
    int status = -1;    /**< exit code, or 128 plus the signal's number */
    std::string output; /**< standard output and standard error together */
};

/** Runs a program to completion, found through PATH if its name has no slash. */
Outcome run_program(const std::vector<std::string>& arguments);

/** Path of one of the project's programs. */
std::string program(std::string_view name);

/** Empty if the kernel allows a sandbox; otherwise the reason to skip a test. */
std::string why_no_sandbox();

class Instrument {
public:
    /** Fills the instrument's state directory, which is empty. */
    using Preparation = std::function<void(const std::filesystem::path& state)>;

    /** Starts and waits until it is ready; throws std::runtime_error with the launcher's output when it ends
     * first. */
    explicit Instrument(const std::vector<std::string>& options = {}, const Preparation& prepare = {});
    /** Ends it and removes its state. */
    ~Instrument();
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    int port() const { return m_port; }
    int hislip_port() const { return m_hislip_port; }
    /** Of the page; 0 unless started with "--http-port", "0". */
    int http_port() const { return m_http_port; }
    Client client() const { return Client(m_port); }
    pid_t launcher() const { return m_launcher; }
    /** Process id of the service, from `ctl status`; throws std::runtime_error without one. */
    pid_t service() const;
    const std::filesystem::path& state() const { return m_state; }

    /** Output of the launcher so far. */
    std::string output() const;
    /** Waits until `text` appears in the output. */
    bool wait_for_output(std::string_view text,
                         std::chrono::milliseconds wait = std::chrono::seconds(20)) const;

    /** Log of the service and the library so far. */
    std::string service_log() const;

    /** Reboots the controller; true once the service is ready again. */
    bool reboot() const;

    Outcome ctl(const std::vector<std::string>& arguments) const;
    Outcome exec(std::string_view role, const std::vector<std::string>& command) const;

    /** Queries a module over its own link, bypassing the service. @return the reply without its line end */
    std::string ask_module(int module, const std::string& query) const;

    /** The requests that a module got since its log was cleared, control characters escaped; without the
     *  temperature queries, which the service sends on its own. */
    std::vector<std::string> requests(int module) const;
    void clear_requests(int module) const;

    /** Sends the signal and waits for the launcher to exit. */
    int stop(int signal);
    /** Waits for the launcher to exit by itself. */
    int wait_for_end();

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_state;
    pid_t m_launcher = -1;
    int m_port = 0;
    int m_hislip_port = 0;
    int m_http_port = 0;
};

} // namespace orvan_test

/** For the first line of a test that needs namespaces. */
#define ORVAN_NEEDS_SANDBOX()                                                                                \
    if (const std::string reason = orvan_test::why_no_sandbox(); !reason.empty())                            \
    GTEST_SKIP() << reason

#endif

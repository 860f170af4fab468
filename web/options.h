#ifndef ORVAN_WEB_OPTIONS_H
#define ORVAN_WEB_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvan_web {

/** Exit codes of the program. */
enum ExitCode : int {
    kExitDone = 0,      /**< ended on request; the password or token is stored; --help and --version */
    kExitFailed = 1,    /**< could not start or store */
    kExitBadOptions = 2 /**< the command line is wrong */
};

/** What the program is to do before it exits, if anything. */
enum class Task { kServe, kSetPassword, kNewToken, kRemoveToken };

struct Options {
    Task task = Task::kServe;
    std::string token_name;
    std::string address; /**< empty: all */
    uint16_t port = 80;  /**< 0: a free one */
    std::string local_dir = "/run/orvan";
    std::string page; /**< folder; empty: the installed one */
    std::string charts = "/usr/share/javascript/chart.js/chart.min.js";
    std::string setups = "/home/orvan/halde";
    std::string state = "/var/lib/orvan-web";
    std::vector<std::string> names;
    bool read_only = false;
    bool changes_without_password = false;
    bool mdns = true;
    bool foreground = false;
    int log_level = 5; /**< of syslog: LOG_NOTICE */
};

/**
 * Reads the command line. Help and version are printed to standard output, errors to standard error.
 *
 * @return empty if the program is to exit with `exit_code`.
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace orvan_web

#endif

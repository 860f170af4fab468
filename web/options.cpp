#include "options.h"

#include <syslog.h>

#include <CLI/CLI.hpp>

namespace orvan_web {
namespace {

const std::map<std::string, int> kLogLevels{{"err", LOG_ERR},
                                            {"warning", LOG_WARNING},
                                            {"notice", LOG_NOTICE},
                                            {"info", LOG_INFO},
                                            {"debug", LOG_DEBUG}};

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    std::string log_level = "notice";
    bool no_mdns = false;
    bool set_password = false;
    std::string new_token;
    std::string old_token;
    CLI::App app("Serves the instrument's page and its HTTP interface.", "orvan-web");
    app.set_version_flag("--version", std::string("orvan-web ") + ORVAN_VERSION);
    app.add_option("--address", options.address,
                   "Listen only on this address instead of on all IPv4 and IPv6 addresses");
    app.add_option("--port", options.port, "TCP port, 0 selects a free one and logs it")
        ->capture_default_str();
    app.add_option("--local-dir", options.local_dir, "Folder of the service's Unix sockets")
        ->capture_default_str();
    app.add_option("--page", options.page, "Folder of the page's files; default: the installed ones");
    app.add_option("--charts", options.charts, "The charts' library, served as /charts/chart.js")
        ->capture_default_str();
    app.add_option("--setups", options.setups, "Folder of the stored setups")->capture_default_str();
    app.add_option("--state", options.state, "Folder of the password and the tokens")->capture_default_str();
    app.add_option(
           "--name", options.names,
           "A further name or address under which the instrument is reached, such as that of a proxy; "
           "may be given several times")
        ->allow_extra_args(false);
    app.add_flag("--read-only", options.read_only, "Nobody may change anything");
    app.add_flag("--changes-without-password", options.changes_without_password,
                 "The page may change settings while no password is set");
    app.add_flag("--no-mdns", no_mdns, "Do not announce the instrument by mDNS");
    app.add_flag("--foreground", options.foreground, "Also log to standard error");
    app.add_option("--log-level", log_level, "err, warning, notice, info or debug")
        ->check(CLI::IsMember(kLogLevels))
        ->capture_default_str();
    auto* const tasks = app.add_option_group("Tasks", "The program does one of these and exits");
    tasks->add_flag("--set-password", set_password,
                    "Set the password for changes, read from the terminal or standard input");
    tasks->add_option("--new-token", new_token, "Make a token of this name for a program, and print it");
    tasks->add_option("--remove-token", old_token, "Remove the token of this name");
    tasks->require_option(0, 1);
    app.footer(
        "The parent process may pass listening sockets (LISTEN_FDS, LISTEN_PID), which are served instead.\n"
        "Exit codes: 0 ended on request, 1 could not start or store, 2 bad options.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitDone : kExitBadOptions;
        return std::nullopt;
    }
    options.mdns = !no_mdns;
    options.log_level = kLogLevels.at(log_level);
    options.token_name = new_token + old_token;
    if (set_password) {
        options.task = Task::kSetPassword;
    } else if (tasks->count("--new-token") != 0) {
        options.task = Task::kNewToken;
    } else if (tasks->count("--remove-token") != 0) {
        options.task = Task::kRemoveToken;
    }
    return options;
}

} // namespace orvan_web

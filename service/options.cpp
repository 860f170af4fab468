#include "options.h"

#include <CLI/CLI.hpp>

#include <syslog.h>

namespace orvan_service {
namespace {

// The library's module link waits with select(), which knows descriptors below 1024 only.
constexpr int kMostClients = 512;

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
    CLI::App app("Serves the instrument's SCPI commands over TCP.", "orvan-service");
    app.set_version_flag("--version", std::string("orvan-service ") + ORVAN_VERSION);
    app.add_option("--port", options.port, "TCP port of the SCPI server; 0 takes a free one and logs it")
        ->capture_default_str();
    app.add_option("--address", options.address, "Listen on this address only, not on all of IPv4 and IPv6");
    app.add_option("--max-clients", options.max_clients, "Clients served at once; one more is refused")
        ->check(CLI::Range(1, kMostClients))
        ->capture_default_str();
    app.add_option("--channels", options.channels, "Channel modules fitted")
        ->check(CLI::Range(1, 4))
        ->capture_default_str();
    app.add_option("--module-wait", options.module_wait, "Seconds to wait for the modules at start-up")
        ->check(CLI::Range(0, 600))
        ->capture_default_str();
    app.add_flag("--modules-on-loopback", options.modules_on_loopback,
                 "Module n is at 127.0.(6 + n).1, not 192.168.(6 + n).1; no channel records are kept");
    app.add_flag("--foreground", options.foreground, "Log to standard error too");
    app.add_option(
           "--log-level", log_level,
           "err, warning, notice, info or debug; info adds every message in and out, which costs two log "
           "calls a message")
        ->check(CLI::IsMember(kLogLevels))
        ->capture_default_str();
    app.footer(
        "The parent process may pass listening sockets (LISTEN_FDS, LISTEN_PID); none is opened then.\n"
        "Exit codes: 0 ended on request, 1 could not start, 2 bad options, 3 outside the sandbox.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitDone : kExitBadOptions;
        return std::nullopt;
    }
    options.log_level = kLogLevels.at(log_level);
    return options;
}

} // namespace orvan_service

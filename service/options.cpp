#include "options.h"

#include <charconv>
#include <cstdio>

#include <syslog.h>

#include <CLI/CLI.hpp>

namespace orvan_service {
namespace {

// Each uses a descriptor, and most descriptors are needed for the maintenance protocol.
constexpr int kMostClients = 512;

// A message may be 3 MB long.
constexpr int kLeastMessageMemory = 3;
constexpr int kMostMessageMemory = 1024;

const std::map<std::string, Platform> kPlatforms{{"factory", Platform::kFactory},
                                                 {"portable", Platform::kPortable},
                                                 {"benchtop", Platform::kBenchtop},
                                                 {"ksr7000", Platform::kKsr7000}};

const std::map<std::string, int> kLogLevels{{"err", LOG_ERR},
                                            {"warning", LOG_WARNING},
                                            {"notice", LOG_NOTICE},
                                            {"info", LOG_INFO},
                                            {"debug", LOG_DEBUG}};

constexpr const char* kOff = "off";

void set_hislip_port(const std::string& text, Options& options)
{
    if (text == kOff) {
        options.hislip = false;
        options.hislip_port.reset();
        return;
    }
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw CLI::ValidationError("--hislip-port", text + " is neither a port nor off");
    }
    options.hislip = true;
    options.hislip_port = port;
}

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    std::string log_level = "notice";
    std::string platform = "factory";
    CLI::App app("Serves the instrument's SCPI commands over TCP.", "orvan-service");
    app.set_version_flag("--version", std::string("orvan-service ") + ORVAN_VERSION);
    app.add_option("--platform", platform,
                   "factory, portable, benchtop or ksr7000; factory: the platform chosen by the library")
        ->check(CLI::IsMember(kPlatforms))
        ->capture_default_str();
    app.add_option(
        "--port", options.port,
        "TCP port of the SCPI server, 0 selects a free one and logs it; default: the port in the settings");
    app.add_option_function<std::string>(
        "--hislip-port", [&](const std::string& text) { set_hislip_port(text, options); },
        "TCP port of the HiSLIP server, 0 selects a free one and logs it, off: none; default: 4880, or none "
        "if that is in use");
    bool no_vxi11 = false;
    app.add_flag(
        "--no-vxi11", no_vxi11,
        "Do not serve VXI-11, which needs an rpcbind on this machine; --modules-on-loopback implies it");
    app.add_option("--address", options.address,
                   "Listen only on this address instead of on all IPv4 and IPv6 addresses");
    app.add_option("--max-clients", options.max_clients, "Maximum number of clients; any more are refused")
        ->check(CLI::Range(1, kMostClients))
        ->capture_default_str();
    app.add_option(
           "--message-memory", options.message_memory,
           "MB of memory for incoming messages over 16 kB, all clients together; messages that do not "
           "fit wait")
        ->check(CLI::Range(kLeastMessageMemory, kMostMessageMemory))
        ->capture_default_str();
    CLI::Option* const loopback =
        app.add_flag("--modules-on-loopback", options.modules_on_loopback,
                     "For a machine that is not an instrument: module n is at 127.0.(6 + n).1, not "
                     "192.168.(6 + n).1; there is no device and no channel record");
    app.add_option("--channels", options.channels, "Channel modules fitted, without a device")
        ->check(CLI::Range(1, 4))
        ->needs(loopback)
        ->capture_default_str();
    app.add_option("--module-wait", options.module_wait,
                   "Seconds to wait for the modules at start-up, without a device")
        ->check(CLI::Range(0, 600))
        ->needs(loopback)
        ->capture_default_str();
    CLI::Option* const produce =
        app.add_option("--produce", options.produce,
                       "Production: write the settings of a new instrument of this model, then exit")
            ->excludes(loopback);
    app.add_option("--serial", options.serial, "Its serial number, 1 to 30 characters")
        ->check([](const std::string& text) {
            return !text.empty() && text.size() < 31 ? "" : "1 to 30 characters expected";
        })
        ->needs(produce);
    app.add_option(
           "--hang-limit", options.hang_limit,
           "Seconds without progress after which a command counts as hung: it is logged, and the service "
           "manager's watchdog is no longer fed; a request to a silent module takes 15")
        ->envname("ORVAN_HANG_LIMIT")
        ->check(CLI::Range(0.05, 86400.0))
        ->capture_default_str();
    app.add_flag("--foreground", options.foreground, "Also log to standard error");
    app.add_option(
           "--log-level", log_level,
           "err, warning, notice, info or debug; info adds every message in and out, which costs two log "
           "calls per message")
        ->check(CLI::IsMember(kLogLevels))
        ->capture_default_str();
    app.footer("The parent process may pass listening sockets (LISTEN_FDS, LISTEN_PID); they are served in\n"
               "addition or, with --modules-on-loopback, instead. Those named hislip in LISTEN_FDNAMES are "
               "for HiSLIP.\n"
               "Exit codes: 0 ended on request, 1 could not start, 2 bad options, 3 outside the sandbox,\n"
               "4 the device did not start.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitDone : kExitBadOptions;
        return std::nullopt;
    }
    if (!options.produce.empty() && options.serial.empty()) {
        std::fputs("orvan-service: --produce requires --serial\n", stderr);
        exit_code = kExitBadOptions;
        return std::nullopt;
    }
    // The machine's rpcbind is for the machine's own services.
    options.vxi11 = !no_vxi11 && !options.modules_on_loopback;
    options.log_level = kLogLevels.at(log_level);
    options.platform = kPlatforms.at(platform);
    return options;
}

} // namespace orvan_service

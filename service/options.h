#ifndef ORVAN_SERVICE_OPTIONS_H
#define ORVAN_SERVICE_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "platform.h"

namespace orvan_service {

/** Exit codes of the program. */
enum ExitCode : int {
    kExitDone = 0,           /**< ended on request; --help and --version */
    kExitFailed = 1,         /**< could not start: no port, bad inherited sockets */
    kExitBadOptions = 2,     /**< the command line is wrong */
    kExitOutsideSandbox = 3, /**< would access real module addresses */
    kExitNotInitialized = 4  /**< the device's start-up did not complete */
};

struct Options {
    Platform platform = Platform::kFactory;
    std::string produce; /**< model to produce; empty: serve */
    std::string serial;
    std::string address;
    std::optional<uint16_t> port;         /**< default: the one in the settings */
    bool hislip = true;                   /**< whether to listen for HiSLIP */
    std::optional<uint16_t> hislip_port;  /**< default: the standard one, if it is free */
    bool vxi11 = true;                    /**< whether to serve VXI-11, if there is an rpcbind */
    std::string local_dir = "/run/orvan"; /**< folder of the Unix sockets; empty: none */
    int max_clients = 256;
    int message_memory = 64; /**< MB */
    int channels = 4;
    int module_wait = 60;
    bool modules_on_loopback = false;
    bool foreground = false;
    double hang_limit = 120; /**< seconds */
    int log_level = 5;       /**< of syslog: LOG_NOTICE */
};

/**
 * Reads the command line. Help and version are printed to standard output, errors to standard error.
 *
 * @return empty if the program is to exit with `exit_code`.
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace orvan_service

#endif

/** The command line of `orvan-module`. */
#ifndef ORVAN_SIM_MODULE_OPTIONS_H
#define ORVAN_SIM_MODULE_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "model.h"
#include "temperature.h"

namespace sim_module {

struct Options {
    int channel = 1;
    std::string address;                            /**< dotted IPv4 */
    uint16_t port = 0;                              /**< 0: a free one */
    std::optional<uint16_t> firmware_port;          /**< UDP, 0 as above; empty: none */
    std::chrono::milliseconds restart_time{1000};   /**< how long it is away */
    std::string control_path;                       /**< empty: no control socket */
    double temperature = Temperature::kDefaultBase; /**< the base of the drift, degrees Celsius */
    uint64_t seed = 0;                              /**< of the drift */
    Identity identity;
};

/** Default loopback address and port of channel `channel` (1 to 4). */
std::string default_address(int channel);
uint16_t default_port(int channel);

/**
 * Parses the command line. Help and version go to standard output, errors to standard error; the result is
 * then empty, and `exit_code` is set.
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace sim_module

#endif

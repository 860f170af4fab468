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
    uint16_t port = 0;                              /**< 0: one that the system chooses */
    std::optional<uint16_t> firmware_port;          /**< UDP, 0 as above; nothing: none */
    std::chrono::milliseconds restart_time{1000};   /**< for which it is gone */
    std::string control_path;                       /**< empty: no control socket */
    double temperature = Temperature::kDefaultBase; /**< the base of the drift, degrees Celsius */
    uint64_t seed = 0;                              /**< of the drift */
    Identity identity;
};

/** Loopback address and port that stand for those of channel `channel` (1 to 4) where neither is given. */
std::string default_address(int channel);
uint16_t default_port(int channel);

/**
 * Reads the command line. Help, version and mistakes are told on standard output and error; the result is
 * then empty, and `exit_code` what the program ends with.
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace sim_module

#endif

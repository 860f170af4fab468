#ifndef ORVAN_MAINT_OPTIONS_H
#define ORVAN_MAINT_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "instrument.h"
#include "settings.h"

namespace orvan_maint {

/** The command line. A field that the command has not is as it stands here. */
struct Options {
    std::string command; /**< its name */
    Reach reach;
    bool json = false;
    bool yes = false; /**< agreed to in advance */

    SettingValues settings;         /**< set-network, set-factory */
    std::vector<std::string> set;   /**< options */
    std::vector<std::string> clear; /**< options */

    std::string file;              /**< update, program; pack: the package to make */
    bool no_identify = false;      /**< program: to an instrument that answers nothing else */
    int channels = 0;              /**< program: 0 to go by the model */
    std::chrono::seconds after{0}; /**< update: for which the instrument may be at work */
    std::string platform;          /**< pack */
    std::string module;            /**< pack */
    std::string patch;             /**< pack */
    bool force = false;            /**< pack: over an existing file */
};

/**
 * Reads the command line. Help and version go to standard output, complaints to standard error.
 *
 * @return empty when the program is to end with `exit_code`
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace orvan_maint

#endif

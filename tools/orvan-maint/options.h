#ifndef ORVAN_MAINT_OPTIONS_H
#define ORVAN_MAINT_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "instrument.h"
#include "settings.h"

namespace orvan_maint {

/** The command line. Fields that the command does not have keep these defaults. */
struct Options {
    std::string command; /**< its name */
    Reach reach;
    bool json = false;
    bool yes = false; /**< confirmed in advance */

    SettingValues settings;         /**< set-network, set-factory */
    std::vector<std::string> set;   /**< options */
    std::vector<std::string> clear; /**< options */

    std::string file;              /**< update, program; pack: the package to make */
    bool no_identify = false;      /**< program: for an instrument that answers nothing else */
    int channels = 0;              /**< program: 0 to derive it from the model */
    std::chrono::seconds after{0}; /**< update: how long the instrument may take */
    std::string platform;          /**< pack */
    std::string module;            /**< pack */
    std::string patch;             /**< pack */
    bool force = false;            /**< pack: over an existing file */
};

/**
 * Parses the command line. Help and version go to standard output, errors to standard error.
 *
 * @return empty when the program is to end with `exit_code`
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace orvan_maint

#endif

#ifndef ORVAN_DB_OPTIONS_H
#define ORVAN_DB_OPTIONS_H

#include <chrono>
#include <optional>
#include <string>

namespace orvan_db {

/** Exit codes of the program. */
enum ExitCode : int {
    kExitDone = 0,         /**< printed; --help and --version */
    kExitNoInstrument = 1, /**< no instrument keeps records, or it does not have the channel */
    kExitBadOptions = 2,   /**< usage error */
    kExitBadSetup = 3,     /**< the setup file cannot be used or recalled */
};

struct Options {
    int channel = 0;                         /**< 0 for all */
    int tag = -1;                            /**< negative for all */
    bool json = false;                       /**< else a table */
    bool watch = false;                      /**< keep running and print changes */
    std::chrono::milliseconds interval{200}; /**< between two polls */
    std::string setup;                       /**< a setup file instead of the live records; empty for none */
    bool diff = false;                       /**< what a recall of the setup file would change */
};

/** The tag of this name, with or without "ODT_", case-insensitive; -1 when there is none. */
int tag_of_name(const std::string& name);

/**
 * Parses the command line. Help and version go to standard output, errors to standard error.
 *
 * @return empty when the program is to end with `exit_code`
 */
std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code);

} // namespace orvan_db

#endif

#ifndef ORVAN_MAINT_FAILURE_H
#define ORVAN_MAINT_FAILURE_H

#include <stdexcept>
#include <string>

namespace orvan_maint {

/** Exit codes of the program. */
enum ExitCode : int {
    kExitDone = 0,        /**< done; --help and --version */
    kExitNoAnswer = 1,    /**< no instrument answers, or it stopped answering */
    kExitBadOptions = 2,  /**< bad options, or unsuitable for the instrument */
    kExitBadFile = 3,     /**< a package or an image that cannot be used */
    kExitRefused = 4,     /**< refused by the instrument, or it reports a failure */
    kExitUnconfirmed = 5, /**< everything was sent; the outcome is not known */
    kExitNotDone = 6,     /**< not confirmed, or interrupted */
};

/** Ends the command with a text for standard error and the program's exit code. */
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exit_code, const std::string& text) : std::runtime_error(text), code(exit_code) {}

    ExitCode code;
};

/** The user has interrupted the program. */
class Interrupted : public Failure {
public:
    Interrupted() : Failure(kExitNotDone, "interrupted") {}
};

} // namespace orvan_maint

#endif

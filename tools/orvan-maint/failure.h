#ifndef ORVAN_MAINT_FAILURE_H
#define ORVAN_MAINT_FAILURE_H

#include <stdexcept>
#include <string>

namespace orvan_maint {

/** Exit codes of the program. */
enum ExitCode : int {
    kExitDone = 0,        /**< done; --help and --version */
    kExitNoAnswer = 1,    /**< no instrument answers, or it stopped answering */
    kExitBadOptions = 2,  /**< the command line is wrong, or does not fit the instrument */
    kExitBadFile = 3,     /**< a package or an image that cannot be used */
    kExitRefused = 4,     /**< the instrument has refused it, or reports a failure */
    kExitUnconfirmed = 5, /**< all is sent, and what became of it is not known */
    kExitNotDone = 6,     /**< not agreed to, or interrupted */
};

/** Ends the command: the text goes to standard error, the code is the program's. */
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exit_code, const std::string& text) : std::runtime_error(text), code(exit_code) {}

    ExitCode code;
};

/** The user wants an end. */
class Interrupted : public Failure {
public:
    Interrupted() : Failure(kExitNotDone, "interrupted") {}
};

} // namespace orvan_maint

#endif

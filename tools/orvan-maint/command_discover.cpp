#include "commands.h"
#include "console.h"
#include "failure.h"
#include "output.h"

namespace orvan_maint {

void discover_instruments(const Options& options, int stop)
{
    std::string problem;
    const std::vector<Identity> found = discover(options.reach, stop, problem);
    if (options.json) {
        say(instruments_json(found));
    } else if (!found.empty()) {
        say(instrument_table(found));
    }
    if (found.empty()) {
        throw Failure(kExitNoAnswer, no_answer(options.reach, problem));
    }
}

} // namespace orvan_maint

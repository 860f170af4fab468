#include "commands.h"
#include "console.h"
#include "output.h"

namespace orvan_maint {

void show_instrument(const Options& options, int stop)
{
    const Target target = choose_instrument(options.reach, stop);
    say(options.json ? identity_json(target.identity) : identity_text(target.identity));
}

} // namespace orvan_maint

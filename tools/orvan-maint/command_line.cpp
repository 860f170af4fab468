#include "command_line.h"

#include <exception>

#include "commands.h"
#include "console.h"
#include "failure.h"

namespace orvan_maint {
namespace {

constexpr struct {
    const char* name;
    Command run;
} kCommands[] = {
    {"discover", discover_instruments},  {"show", show_instrument},
    {"set-network", set_network},        {"set-factory", set_factory},
    {"options", show_or_change_options}, {"update", update_software},
    {"program", program_modules},        {"pack", pack_software},
};

} // namespace

int run(int argc, const char* const* argv, int stop)
try {
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (options) {
        for (const auto& command : kCommands) {
            if (options->command == command.name) {
                command.run(*options, stop);
            }
        }
    }
    return exit_code;
} catch (const Failure& failure) {
    complain(failure.what());
    return failure.code;
} catch (const std::exception& error) {
    complain(error.what());
    return kExitBadFile;
}

} // namespace orvan_maint

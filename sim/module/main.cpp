#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "module.h"
#include "options.h"

namespace {

// Null while there is no module to stop.
std::atomic<sim_module::Module*> g_module = nullptr;
static_assert(std::atomic<sim_module::Module*>::is_always_lock_free);

void stop_module(int)
{
    if (sim_module::Module* module = g_module) {
        module->stop();
    }
}

void catch_signals()
{
    struct sigaction action = {};
    action.sa_handler = stop_module;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    int exit_code = EXIT_SUCCESS;
    const auto options = sim_module::parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    try {
        sim_module::Module module(*options);
        g_module = &module;
        catch_signals();
        // The parent process waits for this line; the ports are open by then.
        std::printf("orvan-module: channel %d, %s, %s:%u\n", options->channel,
                    options->identity.model.c_str(), module.address().c_str(),
                    static_cast<unsigned>(module.port()));
        std::fflush(stdout);
        module.run();
        g_module = nullptr;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "orvan-module: %s\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

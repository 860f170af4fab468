#include <cstdio>

#include "registry.h"
#include "sockets.h"
#include "verbs.h"

namespace orvan_launcher {

namespace {

/** Long enough for a module to start up. */
constexpr int kPatience = 15;

} // namespace

int control_instance(const std::string& named_state, const std::vector<std::string>& words)
{
    const auto state = choose_instance(named_state);
    if (!state) {
        std::fprintf(stderr, "orvan-sim: %s\n", state.error().text().c_str());
        return 1;
    }
    const orvan_common::UniqueFd launcher(connect_unix(state.value() / "run/control"));
    if (!launcher) {
        std::perror("orvan-sim: connecting to the launcher");
        return 1;
    }
    std::string request;
    for (const std::string& word : words) {
        request += (request.empty() ? "" : " ") + word;
    }
    const std::string reply = exchange(launcher.get(), request + "\n", "", kPatience);
    if (reply.empty() || reply.starts_with("error ")) {
        std::fprintf(stderr, "orvan-sim: %s", reply.empty() ? "no reply\n" : reply.c_str() + 6);
        return 1;
    }
    std::fputs(reply.starts_with("ok\n") ? reply.c_str() + 3 : reply.c_str(), stdout);
    return 0;
}

} // namespace orvan_launcher

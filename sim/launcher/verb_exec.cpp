#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "instance_record.h"
#include "registry.h"
#include "verbs.h"

namespace orvan_launcher {

using namespace orvan_sandbox;

namespace {

constexpr int kNotRun = 127;

int complain(const std::string& text)
{
    std::fprintf(stderr, "orvan-sim: %s\n", text.c_str());
    return kNotRun;
}

} // namespace

int execute_inside(const std::string& named_state, const std::string& role,
                   const std::vector<std::string>& words)
{
    const auto state = choose_instance(named_state);
    if (!state) {
        return complain(state.error().text());
    }
    const auto record = read_record(state.value());
    if (!record) {
        return complain("the instance in " + state.value().string() + " is not set up yet");
    }
    if (record->init < 0) {
        return complain("this instance has no sandbox");
    }
    const auto network = record->networks.find(role);
    if (network == record->networks.end()) {
        return complain("this instance has no " + role);
    }
    const Result<Membership> membership = open_membership(record->init, network->second);
    if (!membership) {
        return complain(membership.error().text());
    }
    Command command;
    command.argv = words;
    command.environment = record->environment;
    // The stand-ins stay first; then the caller's PATH, for its own programs.
    if (const char* own = std::getenv("PATH"); own != nullptr && *own != '\0') {
        command.environment["PATH"] += std::string(":") + own;
    }
    // The caller's own tools run on the LAN, with the files that they read and write.
    std::error_code code;
    const std::filesystem::path folder = std::filesystem::current_path(code);
    if (role == Role::lan().name() && !code && folder != "/") {
        command.own_folder = folder;
    }
    const Result<pid_t> pid = spawn(membership.value(), command);
    if (!pid) {
        return complain(pid.error().text());
    }
    // The terminal sends these to the command as well, which decides what to do.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    return wait_for(pid.value());
}

} // namespace orvan_launcher

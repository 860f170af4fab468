#include "browser.h"

#include <cstdlib>

#include <fcntl.h>

#include "orvan_sandbox/child_process.h"
#include "orvan_sandbox/sandbox.h"
#include <unique_fd.h>

namespace orvan_launcher {

using namespace orvan_sandbox;

namespace {

bool is_set(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

} // namespace

std::string open_in_browser(const std::string& url)
{
    if (!is_set("DISPLAY") && !is_set("WAYLAND_DISPLAY")) {
        return "no desktop to open " + url + " on: neither DISPLAY nor WAYLAND_DISPLAY is set";
    }
    const std::string program = find_system_program("xdg-open");
    if (program.empty()) {
        return "no program xdg-open to open " + url + " with; install the package xdg-utils";
    }
    const orvan_common::UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    Command command;
    // A browser that it starts must not end with the instrument.
    command.argv = {"setsid", "--fork", program, url};
    command.input = null.get();
    command.output = null.get();
    command.error = null.get();
    const Result<pid_t> pid = spawn(Membership(), command);
    if (!pid) {
        return pid.error().text();
    }
    return wait_for(pid.value()) == 0 ? "" : "opening " + url + " has failed";
}

} // namespace orvan_launcher

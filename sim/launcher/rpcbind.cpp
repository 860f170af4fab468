#include "rpcbind.h"

#include <cerrno>
#include <chrono>

#include <poll.h>

#include "sockets.h"

using orvan_common::UniqueFd;

namespace orvan_launcher {

using namespace orvan_sandbox;
using namespace std::chrono_literals;

namespace {

constexpr auto kStart = 10s;
constexpr auto kEnd = 1s;

constexpr const char* kStep = "starting rpcbind";

} // namespace

Result<Child> start_rpcbind(Ground& ground, const std::filesystem::path& notify, int log)
{
    Command command;
    command.argv = {find_system_program("rpcbind"), "-f"};
    if (command.argv[0].empty()) {
        return Error{"looking for the program rpcbind", 0, "not found", "install the package rpcbind", false};
    }
    command.environment = {{"NOTIFY_SOCKET", notify.string()},
                           // It would end if it could not become another user.
                           {"LD_PRELOAD", "libuid_wrapper.so"},
                           {"UID_WRAPPER", "1"},
                           {"UID_WRAPPER_ROOT", "1"}};
    command.output = log;
    command.error = log;
    command.own_group = true;
    const UniqueFd notifications(bind_unix_datagrams(notify));
    if (!notifications) {
        return Error{kStep, errno, notify.string(), "", false};
    }
    const Result<pid_t> pid = ground.spawn(Role::controller(), command);
    if (!pid) {
        return pid.error();
    }
    Child rpcbind(pid.value());
    pollfd waiting[] = {{notifications.get(), POLLIN, 0}, {rpcbind.descriptor(), POLLIN, 0}};
    while (::poll(waiting, 2, static_cast<int>(std::chrono::milliseconds(kStart).count())) < 0 &&
           errno == EINTR) {
    }
    std::error_code code;
    std::filesystem::remove(notify, code);
    if (rpcbind.reap(0ms)) {
        return Error{kStep, 0, "it ended with " + rpcbind.how_it_ended(), "", false};
    }
    if (waiting[0].revents == 0) {
        rpcbind.end(kEnd);
        return Error{kStep, 0, "it does not become ready", "", false};
    }
    return rpcbind;
}

} // namespace orvan_launcher

#include "instrument.h"
#include "listener.h"
#include "notify.h"
#include "options.h"
#include "process.h"
#include "server.h"
#include "settings.h"

#include "orvan_sdk/scpi-parser/scpi-def.h"

#ifndef ORVAN_TARGET_PI
#include "orvan_sandbox/guard.h"
#endif

#include <poll.h>
#include <sys/eventfd.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <thread>

using namespace orvan_service;

namespace {

// What one request to a silent module takes: 5 s to connect and 10 s for its reply.
constexpr std::chrono::seconds kEndPatience{15};

bool may_reach_modules([[maybe_unused]] const Options& options)
{
#ifdef ORVAN_TARGET_PI
    return true;
#else
    return options.modules_on_loopback || orvan_sandbox::in_sandbox();
#endif
}

// Threads of the library or of a client may be at work still; they must not see objects destroyed.
[[noreturn]] void leave_at_once()
{
    std::fflush(nullptr);
    std::_Exit(kExitDone);
}

// Ends the process when a stop is requested first: the library's wait cannot be cut short.
void start_instrument(Instrument& instrument, const Options& options, int stop)
{
    const FileDescriptor done(::eventfd(0, EFD_CLOEXEC));
    std::thread starter([&] {
        instrument.wait_for_modules(options.module_wait);
        // On a machine that is no instrument the records would stand in everybody's shared memory.
        if (!options.modules_on_loopback) {
            instrument.load_records();
        }
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(done.get(), &one, sizeof one);
    });
    pollfd waiting[] = {{stop, POLLIN, 0}, {done.get(), POLLIN, 0}};
    while (::poll(waiting, 2, -1) < 0 && errno == EINTR) {
    }
    if (waiting[0].revents != 0) {
        ::syslog(LOG_NOTICE, "ended during start-up");
        leave_at_once();
    }
    starter.join();
}

int serve(const Options& options)
{
    ignore_broken_pipes();
    const StopRequest stop;
    ::syslog(LOG_DEBUG, "at most %zu descriptors", raise_descriptor_limit());

    auto listeners = inherited_listeners();
    if (listeners.empty()) {
        listeners = open_listeners(options.address, options.port);
    }
    for (const auto& listener : listeners) {
        ::syslog(LOG_NOTICE, "listening on %s", local_address(listener.get()).c_str());
    }

    // On a machine that is no instrument the backup file's folder would be made in somebody's /home.
    std::optional<Settings> settings;
    if (!options.modules_on_loopback) {
        settings.emplace();
    }
    Instrument instrument(options.channels, options.modules_on_loopback);
    ServerLimits limits;
    limits.max_message = kScpiInputBufferSize;
    limits.max_clients = static_cast<size_t>(options.max_clients);
    Server server(std::move(listeners), instrument, limits);
    start_instrument(instrument, options, stop.descriptor());

    notify("READY=1");
    ::syslog(LOG_NOTICE, "ready");
    server.run(stop.descriptor());
    notify("STOPPING=1");
    ::syslog(LOG_NOTICE, "ending with %zu clients", server.clients());
    if (!server.end(kEndPatience)) {
        ::syslog(LOG_WARNING, "ended in the midst of a command");
        leave_at_once();
    }
    return kExitDone;
}

} // namespace

int main(int argc, char** argv)
{
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    if (!may_reach_modules(*options)) {
        std::fputs("orvan-service: refusing to start: it would reach for real module addresses (192.168.7.1 "
                   "and up).\n"
                   "Run it in a sandbox, or with --modules-on-loopback.\n",
                   stderr);
        return kExitOutsideSandbox;
    }
    open_log(options->log_level, options->foreground);
    try {
        return serve(*options);
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "%s", error.what());
        if (!options->foreground) {
            std::fprintf(stderr, "orvan-service: %s\n", error.what());
        }
        return kExitFailed;
    }
}

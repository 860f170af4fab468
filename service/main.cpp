#include <cerrno>
#include <cstdio>
#include <exception>
#include <optional>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <syslog.h>

#include "counters/counters_document.h"
#include "counters/counters_server.h"
#include "counters/library_errors.h"
#include "front_panel.h"
#include "hang_watch.h"
#include "hislip/hislip_server.h"
#include "hw/hw.h"
#include "instrument.h"
#include "listener.h"
#include "local/local_server.h"
#include "notify.h"
#include "options.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/production.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"
#include "own_client.h"
#include "platform.h"
#include "power_button.h"
#include "process.h"
#include "server.h"
#include "standard/library_instrument.h"
#include "vxi11/vxi11_server.h"

using namespace orvan_service;
using HaldeElec::Orvan::IOrvanDeviceManager;
using orvan_common::UniqueFd;

namespace {

// Duration of one request to a silent module: 5 s to connect and 10 s for its reply.
constexpr std::chrono::seconds kEndPatience{15};

// A preset resets all modules and reloads them.
constexpr std::chrono::seconds kKeyPatience{120};

/** Keeps the board's control socket open for its lifetime. */
class BoardControl {
public:
    BoardControl() { hw_control_open(); }
    ~BoardControl() { hw_control_close(); }
    BoardControl(const BoardControl&) = delete;
    BoardControl& operator=(const BoardControl&) = delete;
};

// The library's start-up and its waits cannot be cut short: a stop requested during them ends the process.
template <class Start>
void start_or_leave(int stop, Start start)
{
    const UniqueFd done(::eventfd(0, EFD_CLOEXEC));
    std::thread starter([&] {
        start();
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(done.get(), &one, sizeof one);
    });
    pollfd waiting[] = {{stop, POLLIN, 0}, {done.get(), POLLIN, 0}};
    while (::poll(waiting, 2, -1) < 0 && errno == EINTR) {
    }
    if (waiting[0].revents != 0) {
        ::syslog(LOG_NOTICE, "ended during start-up");
        leave(kExitDone);
    }
    starter.join();
}

// On a machine that is not an instrument another program may own the port; an instrument is also served
// without keys.
void start_front_panel(std::optional<FrontPanel>& panel, const OwnClient& own_client)
{
    try {
        auto listeners = open_listeners(kFrontPanelAddress, kFrontPanelPort);
        panel.emplace(
            std::move(listeners.front()), Scpi_Orvanx::getInstance()->getNumberofChannels(),
            [&own_client](const std::string& message) { return own_client.ask(message, kKeyPatience); });
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "front panel: %s", error.what());
    }
}

// Logs them, too.
void add(Listeners& listeners, Listeners more)
{
    for (auto& listener : more.raw) {
        ::syslog(LOG_NOTICE, "listening on %s", local_address(listener.get()).c_str());
        listeners.raw.push_back(std::move(listener));
    }
    for (auto& listener : more.hislip) {
        ::syslog(LOG_NOTICE, "HiSLIP: listening on %s", local_address(listener.get()).c_str());
        listeners.hislip.push_back(std::move(listener));
    }
}

std::vector<UniqueFd> open_hislip(const Options& options)
{
    if (!options.hislip) {
        return {};
    }
    return options.hislip_port ? open_listeners(options.address, *options.hislip_port)
                               : open_usual_hislip_listeners(options.address);
}

// What the parent process has passed is served instead.
Listeners open_without_device(const Options& options, const Listeners& inherited)
{
    Listeners own;
    if (inherited.raw.empty()) {
        own.raw = open_listeners(options.address, options.port.value_or(kUsualPort));
    }
    if (inherited.hislip.empty()) {
        own.hislip = open_hislip(options);
    }
    return own;
}

// The library queries the selected channel's temperature through the port set here.
Listeners open_with_device(const Options& options, IOrvanDeviceManager& device)
{
    uint16_t port = kUsualPort;
    device.GetScpiPort(&port);
    Listeners own{options.port ? open_listeners(options.address, *options.port)
                               : open_listeners_of_settings(options.address, port),
                  open_hislip(options)};
    Scpi_Orvanx::getInstance()->setScpiPort(port_of(own.raw.front().get()));
    return own;
}

Vxi11Options vxi11_options(const Options& options)
{
    Vxi11Options result;
    if (!options.address.empty()) {
        result.address = options.address;
    }
    result.message_memory = static_cast<size_t>(options.message_memory) << 20;
    return result;
}

// Exits the process on request; returns an exit code or throws if it could not start.
int serve(const Options& options)
{
    ignore_broken_pipes();
    const BoardControl board_control;
    const StopRequest stop;
    ::syslog(LOG_DEBUG, "at most %zu descriptors", raise_descriptor_limit());

    Listeners listeners;
    add(listeners, inherited_listeners());
    IOrvanDeviceManager* device = nullptr;
    if (options.modules_on_loopback) {
        add(listeners, open_without_device(options, listeners));
        start_or_leave(stop.descriptor(),
                       [&] { start_without_device(options.channels, options.module_wait); });
    } else {
        start_or_leave(stop.descriptor(), [&] { device = start_device(options.platform); });
        if (!device->Initialized()) {
            ::syslog(LOG_ERR, "the device did not start; the messages before this one say why");
            return kExitNotInitialized;
        }
        add(listeners, open_with_device(options, *device));
    }
    log_modules();
    Instrument instrument;
    ServerLimits limits;
    limits.max_message = kScpiInputBufferSize;
    limits.max_clients = static_cast<size_t>(options.max_clients);
    limits.message_budget = static_cast<size_t>(options.message_memory) << 20;
    const OwnClient own_client(listeners.raw);
    HangWatch watch(instrument, scpi_progress,
                    std::chrono::milliseconds(static_cast<int64_t>(options.hang_limit * 1000)),
                    watchdog_period());
    LibraryInstrument standard_instrument(watch);
    Locks locks;
    Server server(std::move(listeners.raw), watch, limits);
    HislipServer hislip(std::move(listeners.hislip), server.executor(), standard_instrument, locks);
    Vxi11Server vxi11(server.executor(), standard_instrument, locks, vxi11_options(options));
    LocalServer local(options.local_dir, server.executor(), standard_instrument, locks);
    const LibraryErrors library_errors(server.executor(), watch);
    CountersServer counters(options.local_dir, [&] {
        return counters_document(server.executor(), watch, Scpi_Orvanx::getInstance()->getNumberofChannels());
    });
    locks.on_change([&] {
        server.executor().retry();
        hislip.wake();
        vxi11.wake();
    });
    Attended* const others[] = {&hislip, &local, &counters};
    std::optional<FrontPanel> panel;
    std::optional<PowerButton> power_button;
    // From here on no exception may escape: the destructors would wait for the running command or key.
    try {
        if (device != nullptr) {
            start_front_panel(panel, own_client);
            device->RunKbdServer();
            power_button.emplace(*device);
        }
        if (options.vxi11) {
            vxi11.start();
        }

        notify("READY=1");
        ::syslog(LOG_NOTICE, "ready");
        server.run(stop.descriptor(), &watch, others);
        notify("STOPPING=1");
        vxi11.end();
        local.end();
        counters.end();
        if (panel) {
            panel->end();
        }
        ::syslog(LOG_NOTICE, "ending with %zu clients", server.clients());
        if (!server.end(kEndPatience, &watch)) {
            // By now the button is released, and the command may hold the bus needed to read it.
            ::syslog(LOG_WARNING, "ended during a command");
        } else if (power_button) {
            // The last time: from then on the watchdog allows as much time as the service manager does for
            // stopping.
            watch.check(HangWatch::Clock::now());
            power_button->wait_for_release();
        }
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "%s", error.what());
        local.end();
        counters.end();
        leave(kExitFailed);
    }
    leave(kExitDone);
}

int produce(const Options& options)
{
    using HaldeElec::Orvan::ProductionResult;
    switch (HaldeElec::Orvan::ProduceInstrument(options.produce, options.serial)) {
    case ProductionResult::kMade:
        return kExitDone;
    case ProductionResult::kUnknownModel:
        return kExitBadOptions;
    case ProductionResult::kFailed:
        break;
    }
    return kExitFailed;
}

} // namespace

int main(int argc, char** argv)
{
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    if (!options->modules_on_loopback && !hw_may_reach_modules()) {
        std::fputs("orvan-service: refusing to start: it would reach for real module addresses (192.168.7.1 "
                   "and up).\n"
                   "Run it in a sandbox, or with --modules-on-loopback.\n",
                   stderr);
        return kExitOutsideSandbox;
    }
    // Production is run at a terminal, whose user must see the outcome.
    limit_thread_stacks();
    open_log(options->log_level, options->foreground || !options->produce.empty());
    try {
        exit_code = options->produce.empty() ? serve(*options) : produce(*options);
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "%s", error.what());
        if (!options->foreground && options->produce.empty()) {
            std::fprintf(stderr, "orvan-service: %s\n", error.what());
        }
        exit_code = kExitFailed;
    }
    leave(exit_code);
}

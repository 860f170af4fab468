#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <syslog.h>

#include "announce_instrument.h"
#include "api/api.h"
#include "guard/guard.h"
#include "http/server.h"
#include "options.h"
#include "password_prompt.h"
#include "process/listening.h"
#include "process/notify.h"
#include "process/stop_request.h"

using namespace orvan_web;
using orvan_common::UniqueFd;

namespace {

constexpr const char* kChartsPath = "/charts/chart.js";

// Until then requests wait for the instrument to be known, in the sockets' queues.
constexpr std::chrono::seconds kFirstContact{2};

std::vector<UniqueFd> listeners(const Options& options)
{
    std::vector<UniqueFd> sockets;
    for (auto& inherited : orvan_common::inherited_sockets()) {
        sockets.push_back(std::move(inherited.socket));
    }
    return sockets.empty() ? orvan_common::open_listeners(options.address, options.port) : std::move(sockets);
}

std::filesystem::path installed_page()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / ORVAN_PAGE_FOLDER;
}

StaticFiles read_files(const Options& options)
{
    StaticFiles files;
    files.add_folder(options.page.empty() ? installed_page() : std::filesystem::path(options.page));
    try {
        files.add_file(kChartsPath, options.charts);
    } catch (const std::runtime_error& error) {
        ::syslog(LOG_WARNING, "no charts: %s", error.what());
    }
    return files;
}

/** The loop's thread, for the lifetime of this object. */
class InstrumentThread {
public:
    explicit InstrumentThread(InstrumentLoop& loop) : m_loop(loop), m_thread([&loop] { loop.run(); })
    {
        ::pthread_setname_np(m_thread.native_handle(), "instrument");
    }
    ~InstrumentThread()
    {
        m_loop.stop();
        m_thread.join();
    }
    InstrumentThread(const InstrumentThread&) = delete;
    InstrumentThread& operator=(const InstrumentThread&) = delete;

    bool responds(std::chrono::milliseconds patience)
    {
        const auto responded = std::make_shared<std::promise<void>>();
        auto response = responded->get_future();
        m_loop.post([responded] { responded->set_value(); });
        return response.wait_for(patience) == std::future_status::ready;
    }

private:
    InstrumentLoop& m_loop;
    std::thread m_thread;
};

// Feeds the service manager's watchdog while all threads respond.
template <typename Responds>
void wait_for(int stop, Responds responds)
{
    const auto period =
        std::chrono::duration_cast<std::chrono::milliseconds>(orvan_common::watchdog_period()) / 3;
    const bool has_watchdog = period.count() > 0;
    pollfd waiting{stop, POLLIN, 0};
    for (;;) {
        const int ready = ::poll(&waiting, 1, has_watchdog ? static_cast<int>(period.count()) : -1);
        if (ready > 0) {
            return;
        }
        if (ready == 0 && responds(period / 2)) {
            orvan_common::notify("WATCHDOG=1");
        }
    }
}

void serve(const Options& options)
{
    orvan_common::ignore_broken_pipes();
    const orvan_common::StopRequest stop;
    ServerParts parts;
    parts.listeners = listeners(options);
    parts.files = read_files(options);
    const uint16_t announced_port = port_for_others(parts.listeners);
    std::vector<std::string> addresses;
    std::transform(parts.listeners.begin(), parts.listeners.end(), std::back_inserter(addresses),
                   [](const UniqueFd& listener) { return orvan_common::local_address(listener.get()); });

    const HostNames names(options.names);
    Guard guard({options.state, options.read_only, options.changes_without_password}, names);

    InstrumentLoop loop;
    Instrument instrument(loop, {.local_dir = options.local_dir, .setups = options.setups});
    Api api(loop, instrument, {ORVAN_VERSION, [&guard] { return guard.access(); }});
    parts.routes = api.routes();
    for (Route& route : guard.routes()) {
        parts.routes.push_back(std::move(route));
    }
    api.describe(parts.routes);
    parts.on_stream = [&api](std::shared_ptr<EventStream> stream) { api.on_stream(std::move(stream)); };
    std::optional<Announcer> announcer;
    if (options.mdns) {
        announce_instrument(instrument, announcer.emplace(), announced_port);
    }
    std::promise<void> identity;
    auto known = identity.get_future();
    Instrument::Events first_contact;
    first_contact.identity = [&identity, first = true]() mutable {
        if (std::exchange(first, false)) {
            identity.set_value();
        }
    };
    instrument.on_events(std::move(first_contact));
    instrument.start();
    InstrumentThread thread(loop);
    known.wait_for(kFirstContact);
    HttpServer server(std::move(parts), guard);

    for (const std::string& address : addresses) {
        ::syslog(LOG_NOTICE, "listening on http://%s/", address.c_str());
    }
    orvan_common::notify("READY=1");
    ::syslog(LOG_NOTICE, "ready");
    wait_for(stop.descriptor(), [&](std::chrono::milliseconds patience) {
        return server.responds(patience) && thread.responds(patience);
    });
    orvan_common::notify("STOPPING=1");
    ::syslog(LOG_NOTICE, "ending");
    server.end(); // while there still is who answers
}

void run(const Options& options)
{
    Credentials credentials(options.state);
    switch (options.task) {
    case Task::kServe:
        return serve(options);
    case Task::kSetPassword:
        credentials.set_password(read_new_password());
        std::puts("The password is set.");
        return;
    case Task::kNewToken:
        std::puts(credentials.add_token(options.token_name).c_str());
        return;
    case Task::kRemoveToken:
        credentials.remove_token(options.token_name);
        std::puts("The token is removed.");
        return;
    }
}

} // namespace

int main(int argc, char** argv)
{
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    ::openlog("orvan-web", LOG_PID | (options->foreground ? LOG_PERROR : 0), LOG_DAEMON);
    ::setlogmask(LOG_UPTO(options->log_level));
    try {
        run(*options);
    } catch (const std::exception& error) {
        if (options->task == Task::kServe) {
            ::syslog(LOG_ERR, "%s", error.what());
        }
        if (options->task != Task::kServe || !options->foreground) {
            std::fprintf(stderr, "orvan-web: %s\n", error.what());
        }
        return kExitFailed;
    }
    return kExitDone;
}

#include "instance.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "board_client.h"
#include "browser.h"
#include "restart_policy.h"
#include "sockets.h"

namespace orvan_launcher {

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using namespace std::chrono_literals;

namespace {

constexpr auto kHelperEnd = 3s;   /**< from SIGTERM to SIGKILL, of a module or rpcbind */
constexpr auto kServiceEnd = 20s; /**< the same; the service may have to wait for a silent module first */

constexpr int kFailed = 1;

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::string_view kStatus = "\nSTATUS=";

} // namespace

void Instance::show_log_that_goes(const std::string& name) const
{
    if (m_temporary) {
        std::ifstream log(m_state / "log" / name);
        std::cerr << log.rdbuf();
        std::cerr.clear(); // of an empty log
    }
}

void Instance::announce_ready()
{
    const int port = port_of(m_listener.get());
    std::printf("ready: %s, %d channel%s, %zu module%s\n", m_options.model.c_str(), m_model.channels,
                m_model.channels == 1 ? "" : "s", m_modules.size(), m_modules.size() == 1 ? "" : "s");
    if (m_ground->has_sandbox()) {
        m_lan_address = lan_address();
    }
    announce_page();
    std::printf("  SCPI         TCP %s:%d", kLoopback, port);
    if (m_ground->has_sandbox()) {
        std::printf(", and %s, port of its settings, from its LAN (orvan-sim exec --in lan)",
                    m_lan_address.c_str());
    }
    std::printf("\n  HiSLIP       TCP %s:%d", kLoopback, port_of(m_hislip_listener.get()));
    if (m_ground->has_sandbox()) {
        std::printf(", and %s:%d from its LAN\n", m_lan_address.c_str(), kHislipPort);
        if (m_rpcbind.is_running()) {
            std::printf("  VXI-11       %s from its LAN\n", m_lan_address.c_str());
        }
        std::printf("  maintenance  UDP %s:%d", kLoopback, m_options.maintenance_port);
    }
    std::printf("\n  state        %s%s\n", m_state.c_str(), m_temporary ? " (removed at the end)" : "");
    std::printf("  stop         Ctrl-C, or kill %d\n", ::getpid());
}

void Instance::announce_page() const
{
    if (!m_web || !m_web->is_running()) {
        return;
    }
    std::printf("  page         %s", m_web->url().c_str());
    if (m_ground->has_sandbox()) {
        std::printf(", and http://%s/ from its LAN", m_lan_address.c_str());
    }
    std::puts("");
    if (m_options.open_page) {
        if (const std::string failure = open_in_browser(m_web->url()); !failure.empty()) {
            say_error(failure);
        }
    }
}

void Instance::announce_new_address()
{
    const std::string address = m_ground->has_sandbox() ? lan_address() : m_lan_address;
    if (std::exchange(m_lan_address, address) != address) {
        std::printf("address on the LAN is now %s\n", address.c_str());
    }
}

void Instance::read_notifications()
{
    char text[1024];
    for (ssize_t count = 0; (count = ::recv(m_notifications.get(), text, sizeof text, MSG_DONTWAIT)) >= 0;) {
        const std::string message = "\n" + std::string(text, static_cast<size_t>(count)) + "\n";
        if (const size_t status = message.find(kStatus); status != std::string::npos) {
            const size_t begin = status + kStatus.size();
            m_status = message.substr(begin, message.find('\n', begin) - begin);
        }
        m_ending = m_ending || message.find("\nSTOPPING=1\n") != std::string::npos;
        if (message.find("\nWATCHDOG=1\n") != std::string::npos) {
            m_fed = Clock::now();
        }
        if (message.find("\nREADY=1\n") != std::string::npos && !m_ready && !m_rebooting) {
            m_ready = true;
            m_fed = Clock::now();
            m_deadline = Clock::time_point::max();
            // Before the announcement, since a client that waits for it may rely on the clock.
            ask_board(board_socket(), "serving");
            if (std::exchange(m_announced, true)) {
                std::puts("the service is ready again");
                announce_new_address();
            } else {
                start_web(); // now, so that its first answers are about an instrument
                announce_ready();
            }
        }
    }
}

void Instance::reboot()
{
    char text[256];
    bool asked = false;
    while (::read(m_reboots.get(), text, sizeof text) > 0) {
        asked = true;
    }
    if (asked && !m_rebooting) {
        std::puts("reboot requested, restarting the service");
        m_rebooting = true;
        m_deadline = Clock::now() + kServiceEnd;
        m_service.signal(SIGTERM);
    }
}

/** Handles processes that have ended. Returns an exit status when the program is to end. */
std::optional<int> Instance::note_ended()
{
    for (size_t index = 0; index < m_modules.size(); ++index) {
        Child& process = m_modules[index].process;
        if (process.is_running() && process.reap(0ms)) {
            std::printf("module %zu ended with %s; 'orvan-sim ctl module %zu start' brings it back\n",
                        index + 1, process.how_it_ended().c_str(), index + 1);
        }
    }
    if (m_rpcbind.is_running() && m_rpcbind.reap(0ms)) {
        std::printf("rpcbind ended with %s; VXI-11 clients no longer find the instrument\n",
                    m_rpcbind.how_it_ended().c_str());
    }
    if (m_web) {
        if (const std::string text = m_web->note_ended(*m_ground); !text.empty()) {
            say_error(text);
        }
    }
    if (m_restart <= Clock::now()) {
        if (const Result<bool> done = restart_service(); !done) {
            return say_error(done.error().text());
        }
    }
    if (!m_service.reap(0ms)) {
        return std::nullopt;
    }
    // The request may have been written just before the process ended.
    reboot();
    if (m_rebooting) {
        m_rebooting = false;
        m_ground->clear_shared_memory();
        if (m_web) {
            if (const Result<bool> done = m_web->reboot(*m_ground); !done) {
                say_error("no page: " + done.error().text());
            }
        }
        if (const Result<bool> done = restart_service(); !done) {
            return say_error(done.error().text());
        }
        return std::nullopt;
    }
    if (m_restart != Clock::time_point::max()) {
        return std::nullopt;
    }
    const int exit_code = exit_code_of(m_service.status());
    if (m_ready && exit_code == 0) {
        std::puts("the service has ended in order, as by its power button");
        return 0;
    }
    // A service that was never ready will not be the next time either.
    if (m_options.restart && m_announced && is_restarted_after(m_service.status())) {
        restart_service_later();
        return std::nullopt;
    }
    if (!m_announced) {
        show_log_that_goes("service.log");
    }
    say_error("the service ended with " + m_service.how_it_ended() +
              (m_temporary ? "" : "; see " + (m_state / "log/service.log").string()));
    return exit_code != 0 ? exit_code : kFailed;
}

void Instance::restart_service_later()
{
    const std::chrono::duration<double> delay =
        std::chrono::duration<double>(kRestartDelay) / m_options.clock_rate;
    ++m_restarts;
    m_ready = false;
    m_deadline = Clock::time_point::max();
    m_restart = Clock::now() + std::chrono::duration_cast<Clock::duration>(delay);
    say_error("the service ended with " + m_service.how_it_ended() + "; see " +
              (m_state / "log/service.log").string() + "; starting it again in " + seconds_text(delay));
}

/** What the service manager does with a service that does not feed its watchdog. */
void Instance::abort_service()
{
    say_error("the service has not fed its watchdog for " +
              seconds_text(std::chrono::duration<double>(m_options.watchdog)) + "; ending it with SIGABRT");
    m_aborted = true;
    m_deadline = Clock::now() + kServiceEnd;
    m_service.signal(SIGABRT);
    m_service.signal(SIGCONT); // or a stopped process would not notice
}

/** Only a service that is ready and not being stopped has to feed it. */
Instance::Clock::time_point Instance::watchdog_deadline() const
{
    if (m_options.watchdog <= 0 || !m_ready || m_ending || m_rebooting || m_aborted) {
        return Clock::time_point::max();
    }
    return m_fed +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_options.watchdog));
}

Result<bool> Instance::restart_service()
{
    m_restart = Clock::time_point::max();
    return start_service();
}

/** Time-out for poll() in milliseconds: until the next deadline. */
int Instance::timeout() const
{
    const Clock::time_point next = std::min({m_deadline, m_restart, watchdog_deadline(),
                                             m_web ? m_web->restart_time() : Clock::time_point::max()});
    if (next == Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

int Instance::loop()
{
    while (true) {
        std::fflush(stdout);
        std::vector<pollfd> waiting = {{m_signals, POLLIN, 0},
                                       {m_notifications.get(), POLLIN, 0},
                                       {m_reboots.get(), POLLIN, 0},
                                       {m_control.get(), POLLIN, 0},
                                       {m_power_switches.get(), POLLIN, 0},
                                       {m_service.descriptor(), POLLIN, 0},
                                       {m_rpcbind.descriptor(), POLLIN, 0},
                                       {m_web ? m_web->descriptor() : -1, POLLIN, 0}};
        for (const Module& module : m_modules) {
            waiting.push_back({module.process.descriptor(), POLLIN, 0});
        }
        if (m_relay) {
            m_relay->add_to(waiting);
        }
        if (::poll(waiting.data(), waiting.size(), timeout()) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return say_error(std::string("poll: ") + std::strerror(errno));
        }
        if (waiting[0].revents != 0) {
            return 0;
        }
        read_notifications();
        reboot();
        follow_module_power();
        if (const std::optional<int> status = note_ended()) {
            return *status;
        }
        if (waiting[3].revents != 0) {
            serve_control();
        }
        if (m_relay) {
            m_relay->transfer();
        }
        if (Clock::now() >= watchdog_deadline()) {
            abort_service();
        }
        if (Clock::now() >= m_deadline) {
            if (!m_rebooting && !m_aborted) {
                say_error("the service has not become ready in time");
                if (!m_options.restart || !m_announced) {
                    show_log_that_goes("service.log");
                    return kFailed;
                }
            }
            m_service.signal(SIGKILL);
            m_deadline = Clock::time_point::max();
        }
    }
}

int Instance::say_error(const std::string& text) const
{
    std::fflush(stdout);
    std::fprintf(stderr, "orvan-sim: %s\n", text.c_str());
    return kFailed;
}

Instance::~Instance()
{
    if (m_web) {
        m_web->end();
    }
    m_service.end(kServiceEnd);
    m_rpcbind.end(kHelperEnd);
    for (const Module& module : m_modules) {
        module.process.signal(SIGTERM);
    }
    for (Module& module : m_modules) {
        module.process.end(kHelperEnd);
    }
    if (m_ground) {
        m_ground->end();
    }
    if (m_registry) {
        m_registry->remove();
    }
    std::error_code code;
    if (m_temporary) {
        fs::remove_all(m_state, code);
    } else if (m_lock) {
        // Also what killed modules have left; the lock file is removed last.
        fs::remove_all(m_state / "run", code);
    }
}

} // namespace orvan_launcher

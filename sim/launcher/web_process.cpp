#include "web_process.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "restart_policy.h"
#include "sockets.h"

using orvan_common::UniqueFd;

namespace orvan_launcher {

using namespace orvan_sandbox;
using namespace std::chrono_literals;

namespace {

constexpr int kControllerPort = 80;
constexpr int kNice = 10;
constexpr auto kEnd = 3s; /**< from SIGTERM to SIGKILL */

/** A process that ends soon after its start is restarted this often in succession, as one in its unit is. */
constexpr auto kQuick = 10s;
constexpr int kMostQuickEnds = 5;

} // namespace

Result<bool> WebProcess::start(Ground& ground, Settings settings)
{
    m_settings = std::move(settings);
    if (Sandbox* sandbox = ground.sandbox()) {
        Result<UniqueFd> listener = sandbox->make_descriptor(
            Role::controller(), [] { return listen_tcp("0.0.0.0", kControllerPort); });
        if (!listener) {
            return listener.error();
        }
        m_lan_listener = std::move(*listener);
    }
    return start_process(ground);
}

Result<bool> WebProcess::start_process(Ground& ground)
{
    m_restart = Clock::time_point::max();
    const std::filesystem::path own = m_settings.state / "web";
    ::mkdir(own.c_str(), 0700);
    const UniqueFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const UniqueFd log(
        ::open((m_settings.state / "log/web.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    Command command;
    command.argv = {m_settings.program, "--foreground", "--state", own.string(),
                    "--changes-without-password"};
    command.listen_fds = {{m_listener.get(), "host"}};
    if (ground.has_sandbox()) {
        command.listen_fds.push_back({m_lan_listener.get(), "lan"});
    } else {
        // The machine's own network is not to hear of a virtual instrument.
        command.argv.insert(command.argv.end(),
                            {"--local-dir", (m_settings.state / "run").string(), "--no-mdns"});
    }
    command.input = null.get();
    command.output = log.get();
    command.error = log.get();
    command.own_group = true;
    const Result<pid_t> pid = ground.spawn(Role::controller(), command);
    if (!pid) {
        return pid.error();
    }
    // As in its unit: the page must not delay the instrument's clients.
    ::setpriority(PRIO_PGRP, static_cast<id_t>(pid.value()), kNice);
    m_process = Child(pid.value());
    m_started = Clock::now();
    return true;
}

Result<bool> WebProcess::reboot(Ground& ground)
{
    end();
    return m_listener ? start_process(ground) : Result<bool>(true);
}

void WebProcess::end()
{
    m_process.end(kEnd);
    m_restart = Clock::time_point::max();
}

std::string WebProcess::note_ended(Ground& ground)
{
    if (m_restart <= Clock::now()) {
        ++m_restarts;
        const Result<bool> done = start_process(ground);
        return done ? "" : "no page: " + done.error().text();
    }
    if (!m_process.is_running() || !m_process.reap(0ms)) {
        return {};
    }
    const bool quick = Clock::now() - m_started < kQuick;
    m_quick_ends = quick ? m_quick_ends + 1 : 0;
    std::string text = "the web process ended with " + m_process.how_it_ended() + "; see " +
                       (m_settings.state / "log/web.log").string();
    const bool restarted = m_settings.restart && is_restarted_after(m_process.status());
    if (!restarted || m_quick_ends > kMostQuickEnds) {
        // A browser is to be refused, and not to wait.
        m_listener.reset();
        m_lan_listener.reset();
        return text + "; there is no page any more" +
               (restarted ? ", after " + std::to_string(m_quick_ends) + " failures in a row" : "");
    }
    m_restart = Clock::now() + m_settings.delay;
    return text + "; starting it again in " + seconds_text(m_settings.delay);
}

int WebProcess::port() const
{
    return port_of(m_listener.get());
}

std::string WebProcess::url() const
{
    return "http://127.0.0.1:" + std::to_string(port()) + "/";
}

std::string WebProcess::status() const
{
    if (!m_process.is_running()) {
        return m_restart != Clock::time_point::max() ? "failed, restarting" : "not running";
    }
    std::string text = "running, process " + std::to_string(m_process.pid());
    if (m_restarts > 0) {
        text += ", " + std::to_string(m_restarts) + (m_restarts == 1 ? " restart" : " restarts");
    }
    return text + ", " + url();
}

} // namespace orvan_launcher

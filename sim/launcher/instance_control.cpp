#include <csignal>
#include <sstream>

#include <sys/socket.h>

#include "board_client.h"
#include "instance.h"
#include "module_control.h"
#include "sockets.h"

namespace orvan_launcher {

using namespace orvan_sandbox;
using namespace std::chrono_literals;

namespace {

constexpr int kPatience = 1;

std::string error_reply(const std::string& text)
{
    return "error " + text + "\n";
}

} // namespace

/**
 * One connection carries one request, a line, and its reply, which ends with the connection. A slow client is
 * dropped, as everything else waits meanwhile.
 */
void Instance::serve_control()
{
    const orvan_common::UniqueFd client(::accept4(m_control.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) {
        return;
    }
    std::string line = exchange(client.get(), "", "\n", kPatience);
    if (!line.ends_with('\n')) {
        return;
    }
    line.pop_back();
    const std::string reply = obey(line);
    const timeval patience = {kPatience, 0};
    ::setsockopt(client.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    ::send(client.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
}

std::string Instance::obey(const std::string& line)
{
    std::istringstream words(line);
    std::string subject;
    words >> subject;
    if (subject == "status") {
        return status();
    }
    if (subject != "module") {
        return obey_for_board(line);
    }
    int number = 0;
    if (!(words >> number)) {
        return error_reply("unknown request '" + line + "'");
    }
    if (number < 1 || number > static_cast<int>(m_modules.size())) {
        return error_reply("there is no module " + std::to_string(number));
    }
    std::string command;
    std::getline(words >> std::ws, command);
    return obey_for_module(number, command);
}

std::string Instance::obey_for_module(int number, const std::string& command)
{
    Module& module = m_modules[static_cast<size_t>(number) - 1];
    if (!m_module_power) {
        return error_reply("it has no power");
    }
    if (command == "start") {
        if (module.process.is_running()) {
            return error_reply("it is running");
        }
        const Result<bool> done = start_module(number);
        return done ? "ok\n" : error_reply(done.error().text());
    }
    if (!module.process.is_running()) {
        return error_reply("it is not running; 'start' starts it");
    }
    if (command == "kill") {
        module.process.signal(SIGKILL);
        module.process.reap(1s);
        return "ok\n";
    }
    if (command == "drop" || command == "up") {
        const bool up = command == "up";
        if (up != module.linked) {
            if (const Result<bool> done = m_ground->set_link(number, up); !done) {
                return error_reply(done.error().text());
            }
            module.linked = up;
        }
        if (!up) {
            return "ok\n";
        }
    }
    const std::string reply = ask_module(module_socket(number), command);
    return reply.empty() ? error_reply("it does not answer") : reply;
}

std::string Instance::obey_for_board(const std::string& verb) const
{
    const std::string reply = ask_board(board_socket(), verb);
    return reply.empty() ? error_reply("the service's board does not answer") : reply;
}

std::string Instance::service_state() const
{
    if (!m_service.is_running()) {
        return "failed, restarting";
    }
    const char* const state = m_rebooting ? "rebooting"
                              : m_ending  ? "ending"
                              : m_ready   ? "ready"
                                          : "starting";
    std::string text = std::string(state) + ", process " + std::to_string(m_service.pid());
    if (m_restarts > 0) {
        text += ", " + std::to_string(m_restarts) + (m_restarts == 1 ? " restart" : " restarts");
    }
    return text + (m_status.empty() ? "" : ", ") + m_status;
}

std::string Instance::status() const
{
    std::ostringstream text;
    text << "ok\nmodel     " << m_options.model << ", " << m_model.channels
         << (m_model.channels == 1 ? " channel" : " channels") << "\nstate     " << m_state.string()
         << "\nSCPI      127.0.0.1:" << port_of(m_listener.get())
         << "\nHiSLIP    127.0.0.1:" << port_of(m_hislip_listener.get()) << "\nsandbox   "
         << (m_ground->has_sandbox() ? "yes" : "no") << "\nservice   " << service_state() << "\nweb       "
         << (m_web ? m_web->status() : "none") << '\n';
    if (m_ground->has_sandbox()) {
        text << "rpcbind   "
             << (m_rpcbind.is_running() ? "running, process " + std::to_string(m_rpcbind.pid())
                                        : "not running")
             << '\n';
    }
    for (size_t index = 0; index < m_modules.size(); ++index) {
        const Module& module = m_modules[index];
        text << "module " << index + 1 << "  ";
        if (module.process.is_running()) {
            text << "running, process " << module.process.pid() << ", link "
                 << (module.linked ? "up" : "down");
        } else {
            text << (m_module_power ? "ended" : "no power");
        }
        text << '\n';
    }
    return text.str();
}

} // namespace orvan_launcher

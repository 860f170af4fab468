/** The control socket: any number of connections on a path, commands by line. */
#pragma once

#include "control_commands.h"
#include "event_loop.h"
#include "unique_fd.h"

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>

namespace sim_module {

class ControlConnection;

class ControlServer : private EventSink {
public:
    /** Longest command line in bytes; a connection that sends a longer one is ended. */
    static constexpr std::size_t kMaxLine = 1024;

    /**
     * Listens on the path. A socket that a dead process left there is replaced; one that answers is not.
     *
     * @throws std::system_error when the path cannot be listened on
     */
    ControlServer(EventLoop& loop, const std::string& path, ControlCommands& commands);

    /** Removes the path. */
    ~ControlServer() override;

    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    friend class ControlConnection;

    void on_ready(short revents) override;
    void remove(const ControlConnection& connection);

    EventLoop& m_loop;
    std::string m_path;
    ControlCommands& m_commands;
    UniqueFd m_listener;
    std::unordered_map<const ControlConnection*, std::unique_ptr<ControlConnection>> m_connections;
};

} // namespace sim_module

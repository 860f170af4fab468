/** A control socket: any number of connections on a path, one command per line. */
#ifndef ORVAN_SIM_CONTROL_CONTROL_SERVER_H
#define ORVAN_SIM_CONTROL_CONTROL_SERVER_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "event_loop.h"
#include "unique_fd.h"

namespace sim_control {

class ControlConnection;

class ControlServer : private EventSink {
public:
    /** Executes one line, without its line end. Each line of the reply ends in LF. */
    using Execute = std::function<std::string(std::string_view line)>;

    /** Longest command line in bytes; a connection that sends a longer one is closed. */
    static constexpr size_t kMaxLine = 1024;

    /**
     * Listens on the path; commands are executed on the loop's thread. A stale socket of a dead process is
     * replaced; one that answers is not.
     *
     * @throws std::system_error when the path cannot be listened on
     */
    ControlServer(EventLoop& loop, const std::string& path, Execute execute);

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
    const Execute m_execute;
    orvan_common::UniqueFd m_listener;
    std::unordered_map<const ControlConnection*, std::unique_ptr<ControlConnection>> m_connections;
};

} // namespace sim_control

#endif

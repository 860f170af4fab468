/**
 * The module's SCPI port: any number of connections, requests in, one write for each reply.
 */
#ifndef ORVAN_SIM_MODULE_SCPI_SERVER_H
#define ORVAN_SIM_MODULE_SCPI_SERVER_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "control/event_loop.h"
#include "faults.h"
#include "request_log.h"
#include "unique_fd.h"

namespace sim_module {

/** Executes requests. */
class RequestExecutor {
public:
    virtual ~RequestExecutor() = default;

    /** Executes a request and returns the whole reply, both including the line end. */
    virtual std::string execute(std::string_view request) = 0;

    /** The reply to a request that is too long. */
    virtual std::string refuse_overrun() = 0;

    /** How long the reply to the last request is delayed; empty when it is not to be sent. */
    virtual std::optional<std::chrono::milliseconds> reply_delay() const = 0;
};

class ScpiConnection;

class ScpiServer : private sim_control::EventSink {
public:
    /**
     * Opens the port, unless the faults keep it closed.
     *
     * @param address dotted IPv4
     * @param port 0 for a free one
     * @throws std::system_error when the address cannot be listened on
     */
    ScpiServer(sim_control::EventLoop& loop, const std::string& address, uint16_t port,
               RequestExecutor& executor, const Faults& faults, RequestLog& log);
    ~ScpiServer() override;

    ScpiServer(const ScpiServer&) = delete;
    ScpiServer& operator=(const ScpiServer&) = delete;

    const std::string& address() const { return m_address; }

    /** The port listened on; unchanged while a fault keeps it closed. */
    uint16_t port() const { return m_port; }

    size_t connections() const { return m_connections.size(); }

    /** Opens or closes the port according to the faults. Throws as the constructor does. */
    void apply_faults();

    /** While away the port and all connections are closed. Throws as the constructor does. */
    void set_away(bool away);
    bool is_away() const { return m_away; }

private:
    friend class ScpiConnection;

    void on_ready(short revents) override;
    void open_port();
    void close_port();
    void remove(const ScpiConnection& connection);

    sim_control::EventLoop& m_loop;
    std::string m_address;
    uint16_t m_port;
    RequestExecutor& m_executor;
    const Faults& m_faults;
    RequestLog& m_log;
    orvan_common::UniqueFd m_listener;
    bool m_away = false;
    sim_control::EventLoop::TimerId m_accept_pause = 0;
    std::unordered_map<const ScpiConnection*, std::unique_ptr<ScpiConnection>> m_connections;
    std::array<char, 65536> m_receive_buffer; // of the current connection
};

} // namespace sim_module

#endif

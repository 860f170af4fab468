/** A whole module: the instrument, its SCPI and firmware ports, its faults and its control socket. */
#ifndef ORVAN_SIM_MODULE_MODULE_H
#define ORVAN_SIM_MODULE_MODULE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "control/control_server.h"
#include "control/event_loop.h"
#include "control_commands.h"
#include "faults.h"
#include "firmware_port.h"
#include "instrument.h"
#include "options.h"
#include "request_log.h"
#include "scpi_server.h"

namespace sim_module {

class Module {
public:
    /** Opens the ports; clients can connect from then on, and are served while `run` runs.
     *
     * @throws std::system_error when one of the addresses cannot be listened on
     * @throws std::invalid_argument for an unknown model
     */
    explicit Module(const Options& options);

    /** Serves until `stop`. */
    void run() { m_loop.run(); }

    /** From any thread and from a signal handler. */
    void stop() noexcept { m_loop.stop(); }

    const std::string& address() const { return m_server.address(); }
    uint16_t port() const { return m_server.port(); }

    /** 0 when there is none. */
    uint16_t firmware_port() const { return m_firmware_port ? m_firmware_port->port() : 0; }

private:
    void go_away();
    void come_back();

    sim_control::EventLoop m_loop;
    Faults m_faults;
    RequestLog m_log;
    Instrument m_instrument;
    ScpiServer m_server;
    std::optional<FirmwarePort> m_firmware_port;
    std::chrono::milliseconds m_restart_time;
    ControlCommands m_commands;
    std::optional<sim_control::ControlServer> m_control;
};

} // namespace sim_module

#endif

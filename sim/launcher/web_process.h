#ifndef ORVAN_SIM_LAUNCHER_WEB_PROCESS_H
#define ORVAN_SIM_LAUNCHER_WEB_PROCESS_H

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "child.h"
#include "ground.h"
#include <unique_fd.h>

namespace orvan_launcher {

/**
 * The web process of an instrument and its listening sockets, which stay open while it is restarted: one on
 * the host's loopback and, in a sandbox, port 80 of the controller.
 */
class WebProcess {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string program;
        std::filesystem::path state; /**< state directory of the instrument */
        bool restart = true;         /**< whether it is restarted when it fails */
        Clock::duration delay{};     /**< before that */
    };

    /** \param listener  on the host's loopback */
    explicit WebProcess(orvan_common::UniqueFd listener) : m_listener(std::move(listener)) {}

    /** Opens the controller's port, and starts the process. */
    orvan_sandbox::Result<bool> start(Ground& ground, Settings settings);

    /** Ends it, and starts it again, as a reboot of the controller does; not one that was given up. */
    orvan_sandbox::Result<bool> reboot(Ground& ground);

    void end();

    /**
     * Handles an end of the process, and restarts it when that is due. One that is not restarted, as it has
     * ended in order or failed six times soon after its start, is given up, and its sockets are closed.
     * \return what is to be reported; empty if nothing has happened
     */
    std::string note_ended(Ground& ground);

    /** When it is to be restarted. */
    Clock::time_point restart_time() const { return m_restart; }
    /** Readable once it has ended; -1 when it does not run. */
    int descriptor() const { return m_process.descriptor(); }

    bool is_running() const { return m_process.is_running(); }
    int port() const;
    /** Of the page, on the host. */
    std::string url() const;
    /** For `ctl status`. */
    std::string status() const;

private:
    orvan_sandbox::Result<bool> start_process(Ground& ground);

    orvan_common::UniqueFd m_listener;
    orvan_common::UniqueFd m_lan_listener;
    Settings m_settings;
    Child m_process;
    Clock::time_point m_started;
    Clock::time_point m_restart = Clock::time_point::max();
    int m_quick_ends = 0; /**< in succession */
    int m_restarts = 0;
};

} // namespace orvan_launcher

#endif

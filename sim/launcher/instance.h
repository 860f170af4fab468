#ifndef ORVAN_SIM_LAUNCHER_INSTANCE_H
#define ORVAN_SIM_LAUNCHER_INSTANCE_H

#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "child.h"
#include "ground.h"
#include "instance_record.h"
#include "models.h"
#include "registry.h"
#include "udp_relay.h"
#include "web_process.h"

namespace orvan_launcher {

inline constexpr int kPagePort = 8080;

struct RunOptions {
    std::string model;                        /**< empty: the state directory's, or kNewModel for a new one */
    std::string state;                        /**< empty: a temporary directory */
    int scpi_port = orvan_sandbox::kScpiPort; /**< on the host's loopback, 0 takes a free one */
    int hislip_port = orvan_sandbox::kHislipPort;           /**< the same */
    int maintenance_port = orvan_sandbox::kMaintenancePort; /**< the same */
    std::optional<int> http_port; /**< the same; default: kPagePort, or a free one if that is in use */
    bool web = true;              /**< whether there is a page */
    bool open_page = false;       /**< open it in a browser */
    std::optional<int> modules;   /**< number of modules fitted; default: one for each channel */
    bool use_sandbox = true;
    bool fallback = false;          /**< go on without a sandbox where the kernel refuses one */
    std::string log_level;          /**< passed to the service when not empty */
    std::vector<std::string> board; /**< verbs for the board at power-on */
    bool restart = true;            /**< restart a service that has failed */
    double watchdog = 30;           /**< of the service, seconds of real time; 0: none */
    int clock_rate = 1;             /**< how many times faster than real time the board's clock runs */
};

inline constexpr const char* kNewModel = "OVX3654B";

/**
 * One running virtual instrument: the sandbox, a process for each module, rpcbind, the service, the web
 * process, and the sockets to reach and control them. Runs on one thread, which must outlive it. SIGINT,
 * SIGTERM, SIGHUP and SIGPIPE have to be blocked or ignored; the first three arrive through `signals`, a
 * signalfd.
 */
class Instance {
public:
    Instance(RunOptions options, int signals) : m_options(std::move(options)), m_signals(signals) {}
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    /**
     * Ends everything in order: web process, service, rpcbind, modules, sandbox, then removes the files. Only
     * a state directory given by the user is left.
     */
    ~Instance();

    /** Sets up everything and starts the processes. It returns without waiting for the service. */
    orvan_sandbox::Result<bool> start();

    /**
     * Runs until it is asked to stop, or the service ends cleanly, or fails and is not restarted. Returns the
     * exit status of the program.
     */
    int loop();

private:
    using Clock = std::chrono::steady_clock;

    struct Module {
        Child process;
        bool linked = true;
    };

    // instance_start.cpp: set-up
    orvan_sandbox::Result<bool> prepare_state();
    orvan_sandbox::Result<bool> choose_model();
    orvan_sandbox::Result<bool> produce();
    orvan_sandbox::Result<bool> open_listeners();
    orvan_sandbox::Result<bool> open_page_listener();
    orvan_sandbox::Result<bool> open_ground();
    orvan_sandbox::Result<bool> open_sockets();
    orvan_sandbox::Result<bool> start_relay();
    orvan_sandbox::Result<bool> start_module(int number);
    void start_rpcbind();
    void start_web();
    orvan_sandbox::Command service_command() const;
    orvan_sandbox::Result<bool> start_service();
    bool publish_record();
    // instance.cpp: life
    /** The logs of a temporary state directory are lost with it, so they are shown. */
    void show_log_that_goes(const std::string& name) const;
    void announce_ready();
    void announce_page() const;
    void announce_new_address();
    std::string lan_address() const;
    void read_notifications();
    void reboot();
    std::optional<int> note_ended();
    void restart_service_later();
    void abort_service();
    Clock::time_point watchdog_deadline() const;
    orvan_sandbox::Result<bool> restart_service();
    int timeout() const;
    int say_error(const std::string& text) const;
    std::filesystem::path run_file(const std::string& name) const { return m_state / "run" / name; }
    std::filesystem::path module_socket(int number) const;
    std::filesystem::path board_socket() const { return run_file("board.sock"); }
    std::filesystem::path module_power_pipe() const { return run_file("module-power"); }
    orvan_common::UniqueFd open_log(const std::string& name) const;

    // instance_power.cpp: power of the modules, which the service's board switches
    void follow_module_power();
    void power_modules(bool on);

    // instance_control.cpp: requests of `ctl`
    void serve_control();
    std::string obey(const std::string& line);
    std::string obey_for_module(int number, const std::string& command);
    std::string obey_for_board(const std::string& verb) const;
    std::string service_state() const;
    std::string status() const;

    RunOptions m_options;
    int m_signals;
    Model m_model{};
    bool m_temporary = false;
    std::filesystem::path m_state;
    std::optional<Registry> m_registry;
    orvan_common::UniqueFd m_lock;
    std::optional<Ground> m_ground;
    orvan_common::UniqueFd m_listener;        /**< on the host's loopback */
    orvan_common::UniqueFd m_hislip_listener; /**< the same */
    orvan_common::UniqueFd m_notifications;
    orvan_common::UniqueFd m_reboots;
    orvan_common::UniqueFd m_power_switches;
    orvan_common::UniqueFd m_control;
    orvan_common::UniqueFd m_controller_network; /**< a socket in it, to look at its interfaces */
    std::string m_lan_address;                   /**< as last announced */
    std::optional<UdpRelay> m_relay;
    std::vector<Module> m_modules;
    bool m_module_power = true;
    std::optional<WebProcess> m_web;
    Child m_rpcbind; /**< only in a sandbox, and where it is installed */
    Child m_service;
    bool m_ready = false;
    bool m_announced = false;
    bool m_rebooting = false;
    bool m_ending = false;   /**< the service reported that it ends */
    bool m_aborted = false;  /**< the service was ended by its watchdog */
    std::string m_status;    /**< last reported by the service */
    Clock::time_point m_fed; /**< when the service last fed its watchdog */
    int m_restarts = 0;      /**< of services that failed */
    Clock::time_point m_deadline =
        Clock::time_point::max(); /**< deadline for the service to be ready, or to have ended */
    Clock::time_point m_restart =
        Clock::time_point::max(); /**< when a service that has failed is restarted */
};

} // namespace orvan_launcher

#endif

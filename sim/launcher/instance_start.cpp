#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "instance.h"
#include "models.h"
#include "module_control.h"
#include "power_on_verbs.h"
#include "restart_policy.h"
#include "rpcbind.h"
#include "sockets.h"
#include "state_lock.h"

using orvan_common::UniqueFd;

namespace orvan_launcher {

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using namespace std::chrono_literals;

namespace {

constexpr auto kModuleStart = 10s; /**< until a module's control socket answers */
/**
 * Until the service is ready, as in its unit: it waits a minute for its modules, then sends each four
 * queries, which takes 40 s for a silent one.
 */
constexpr auto kServiceStart = 300s;
constexpr auto kPollStep = 10ms;

constexpr const char* kTypePlate = "board/model"; /**< of the state directory */
constexpr const char* kSerial = "100001";         /**< of a new instrument; the factory default is empty */

constexpr const char* kLoopback = "127.0.0.1";
constexpr size_t kMaxSocketPath = sizeof(sockaddr_un::sun_path);

/** An installation and a build tree both have the programs in one folder. */
std::string program(const char* name)
{
    std::error_code code;
    return (fs::read_symlink("/proc/self/exe", code).parent_path() / name).string();
}

Error system_error(std::string step)
{
    return Error{std::move(step), errno, "", "", false};
}

/** A named pipe, also open for writing so that it never reaches end of file; none if it can't be made.
 */
UniqueFd make_pipe(const fs::path& path)
{
    ::unlink(path.c_str());
    return UniqueFd(::mkfifo(path.c_str(), 0600) == 0 ? ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)
                                                      : -1);
}

} // namespace

Result<bool> Instance::start()
{
    for (const auto step : {&Instance::prepare_state, &Instance::choose_model, &Instance::open_listeners,
                            &Instance::open_ground, &Instance::produce, &Instance::open_sockets}) {
        if (Result<bool> done = (this->*step)(); !done) {
            return done;
        }
    }
    if (!publish_record()) {
        return system_error("writing " + run_file("instance.json").string());
    }
    for (size_t index = 0; index < m_modules.size(); ++index) {
        if (Result<bool> done = start_module(static_cast<int>(index) + 1); !done) {
            return done;
        }
    }
    // Before the service, which registers there.
    start_rpcbind();
    return start_service();
}

Result<bool> Instance::prepare_state()
{
    m_temporary = m_options.state.empty();
    if (m_temporary) {
        std::string name = (temporary_folder() / (std::string(kTemporaryPrefix) + "XXXXXX")).string();
        if (::mkdtemp(name.data()) == nullptr) {
            return system_error("making a temporary state directory " + name);
        }
        m_state = name;
    }
    Result<fs::path> state = make_state_directory(m_temporary ? m_state : fs::path(m_options.state));
    if (!state) {
        return state.error();
    }
    if ((*state / "run" / (Role::module(kMaxModules).name() + ".sock")).string().size() >= kMaxSocketPath) {
        return Error{"using " + state->string() + " as state directory", ENAMETOOLONG,
                     "its sockets' names would be too long", "", false};
    }
    m_lock = lock_state(*state);
    if (!m_lock) {
        if (errno == EWOULDBLOCK) {
            return Error{"using " + state->string() + " as state directory", 0,
                         "another instance is running in it", "", false};
        }
        return system_error("locking " + state->string());
    }
    m_state = *state;
    Result<Registry> registry = Registry::open();
    if (!registry) {
        return registry.error();
    }
    m_registry = *registry;
    m_registry->sweep(m_state);
    return true;
}

/** An instrument keeps the model it was made with, in the file board/model. */
Result<bool> Instance::choose_model()
{
    std::string made;
    std::ifstream(m_state / kTypePlate) >> made;
    if (m_options.model.empty()) {
        m_options.model = made.empty() ? kNewModel : made;
    }
    const std::optional<Model> model = find_model(m_options.model);
    if (!model) {
        return Error{"unknown model " + m_options.model, 0, "known models:\n" + list_of_models(), "", false};
    }
    if (!made.empty() && made != m_options.model) {
        return Error{"using " + m_state.string() + " as state directory", 0, "it belongs to a model " + made,
                     "omit --model, or use another directory", false};
    }
    m_model = *model;
    if (Result<bool> good = check_power_on_verbs(m_model.platform, m_options.board); !good) {
        return good;
    }
    m_modules.resize(static_cast<size_t>(m_options.modules.value_or(m_model.channels)));
    return true;
}

/**
 * Produces a new controller in the same way as the factory: settings with its model and a serial number. A
 * controller that has any settings is not new.
 */
Result<bool> Instance::produce()
{
    const bool is_new = !fs::exists(m_state / kTypePlate) && !fs::exists(m_state / "board/eeprom.bin") &&
                        !fs::exists(m_state / "halde/config/flash.ini");
    if (is_new && m_ground->has_sandbox()) {
        Command command = service_command();
        command.argv.insert(command.argv.end(), {"--produce", m_options.model, "--serial", kSerial});
        const UniqueFd log = open_log("production.log");
        command.output = log.get();
        command.error = log.get();
        const Result<pid_t> pid = m_ground->spawn(Role::controller(), command);
        if (!pid) {
            return pid.error();
        }
        if (const int status = wait_for(pid.value()); status != 0) {
            show_log_that_goes("production.log");
            return Error{"writing the settings of a new " + m_options.model, 0,
                         "orvan-service --produce ended with status " + std::to_string(status),
                         "see " + (m_state / "log/production.log").string(), false};
        }
    }
    std::ofstream plate(m_state / kTypePlate);
    plate << m_options.model << '\n';
    plate.close();
    return plate.good() ? Result<bool>(true) : system_error("writing " + (m_state / kTypePlate).string());
}

/** Before anything else is set up, as a busy port is the most likely failure. */
Result<bool> Instance::open_listeners()
{
    struct Wanted {
        UniqueFd& listener;
        int port;
        const char* option;
    };
    for (const Wanted& wanted : {Wanted{m_listener, m_options.scpi_port, "--scpi-port"},
                                 Wanted{m_hislip_listener, m_options.hislip_port, "--hislip-port"}}) {
        wanted.listener.reset(listen_tcp(kLoopback, wanted.port));
        if (!wanted.listener) {
            Error error = system_error("listening on " + std::string(kLoopback) + " port " +
                                       std::to_string(wanted.port));
            error.hint = "choose another with " + std::string(wanted.option) + "; 0 takes a free one";
            return error;
        }
    }
    return m_options.web ? open_page_listener() : Result<bool>(true);
}

/** Only the default port is replaced by a free one. */
Result<bool> Instance::open_page_listener()
{
    const int port = m_options.http_port.value_or(kPagePort);
    UniqueFd listener(listen_tcp(kLoopback, port));
    if (!listener && !m_options.http_port && errno == EADDRINUSE) {
        std::printf("port %d of %s is in use, so the page takes a free one\n", port, kLoopback);
        listener.reset(listen_tcp(kLoopback, 0));
    }
    if (!listener) {
        Error error =
            system_error("listening on " + std::string(kLoopback) + " port " + std::to_string(port));
        error.hint = "choose another with --http-port; 0 takes a free one";
        return error;
    }
    m_web.emplace(std::move(listener));
    return true;
}

Result<bool> Instance::open_ground()
{
    if (m_options.use_sandbox) {
        Result<Ground> ground = Ground::sandboxed(m_state, static_cast<int>(m_modules.size()));
        if (ground) {
            m_ground = std::move(*ground);
            return true;
        }
        if (!m_options.fallback || !ground.error().refused) {
            Error error = ground.error();
            if (error.refused) {
                error.hint += (error.hint.empty() ? "" : "; ") + std::string("or run with --fallback");
            }
            return error;
        }
        say_error(ground.error().text());
    }
    Result<Ground> ground = Ground::on_host(m_state);
    if (!ground) {
        return ground.error();
    }
    m_ground = std::move(*ground);
    std::puts(
        "without a sandbox: missing are the device with its board and front panel, "
        "/home/orvan/halde, the channel records, USB links, module addresses 192.168.x.1, the LAN side, "
        "the maintenance port, VXI-11");
    return true;
}

Result<bool> Instance::open_sockets()
{
    if (m_ground->has_sandbox()) {
        if (Result<bool> done = start_relay(); !done) {
            return done;
        }
    }
    m_notifications.reset(bind_unix_datagrams(run_file("notify")));
    m_control.reset(listen_unix(run_file("control")));
    if (!m_notifications || !m_control) {
        return system_error("making sockets in " + (m_state / "run").string());
    }
    m_reboots = make_pipe(run_file("reboot"));
    m_power_switches = make_pipe(module_power_pipe());
    if (!m_reboots || !m_power_switches) {
        return system_error("making pipes in " + (m_state / "run").string());
    }
    return true;
}

Result<bool> Instance::start_relay()
{
    UniqueFd outer(bind_udp(kLoopback, m_options.maintenance_port));
    if (!outer) {
        Error error = system_error("using " + std::string(kLoopback) + " UDP port " +
                                   std::to_string(m_options.maintenance_port));
        error.hint = "choose another with --maint-port; 0 takes a free one";
        return error;
    }
    m_options.maintenance_port = port_of(outer.get());
    Result<UniqueFd> controller =
        m_ground->sandbox()->make_descriptor(Role::controller(), [] { return bind_udp("0.0.0.0", 0); });
    if (!controller) {
        return controller.error();
    }
    m_controller_network = std::move(*controller);
    m_relay.emplace(
        std::move(outer), [this] { return lan_address(); },
        [this](const std::string& address) {
            Result<UniqueFd> server = m_ground->sandbox()->make_descriptor(
                Role::lan(), [&] { return connect_udp(address, kMaintenancePort); });
            return server ? server->release() : -1;
        });
    return true;
}

std::string Instance::lan_address() const
{
    return interface_address(m_controller_network.get(), kLanInterface);
}

fs::path Instance::module_socket(int number) const
{
    return run_file(Role::module(number).name() + ".sock");
}

UniqueFd Instance::open_log(const std::string& name) const
{
    return UniqueFd(
        ::open((m_state / "log" / name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
}

Result<bool> Instance::start_module(int number)
{
    const std::string name = Role::module(number).name();
    const UniqueFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const UniqueFd log = open_log(name + ".log");
    Command command;
    command.argv = {program("orvan-module"),
                    "--channel",
                    std::to_string(number),
                    "--address",
                    m_ground->module_address(number),
                    "--port",
                    std::to_string(module_port(number)),
                    "--control",
                    module_socket(number).string(),
                    "--model",
                    m_options.model};
    // On the host there is only one such port: the service binds it on every address.
    if (m_ground->has_sandbox()) {
        command.argv.insert(command.argv.end(), {"--firmware-port", std::to_string(kMaintenancePort)});
    }
    command.input = null.get();
    command.output = log.get();
    command.error = log.get();
    command.own_group = true;
    const Result<pid_t> pid = m_ground->spawn(Role::module(number), command);
    if (!pid) {
        return pid.error();
    }
    Module& module = m_modules[static_cast<size_t>(number) - 1];
    module.process = Child(pid.value());
    const auto deadline = Clock::now() + kModuleStart;
    while (!module_answers(module_socket(number))) {
        if (module.process.reap(kPollStep)) {
            return Error{"starting module " + std::to_string(number), 0,
                         "it ended with " + module.process.how_it_ended(),
                         "see " + (m_state / "log" / (name + ".log")).string(), false};
        }
        if (Clock::now() > deadline) {
            return Error{"starting module " + std::to_string(number), 0, "it does not answer", "", false};
        }
    }
    return true;
}

/** Without it the instrument has its other protocols. */
void Instance::start_rpcbind()
{
    if (!m_ground->has_sandbox()) {
        return;
    }
    const UniqueFd log = open_log("rpcbind.log");
    Result<Child> rpcbind = orvan_launcher::start_rpcbind(*m_ground, run_file("rpcbind"), log.get());
    if (!rpcbind) {
        show_log_that_goes("rpcbind.log");
        Error error = rpcbind.error();
        if (error.hint.empty() && !m_temporary) {
            error.hint = "see " + (m_state / "log/rpcbind.log").string();
        }
        say_error("no VXI-11: " + error.text());
        return;
    }
    m_rpcbind = std::move(*rpcbind);
}

/** Without it the instrument has everything but its page. */
void Instance::start_web()
{
    if (!m_web) {
        return;
    }
    const auto delay = std::chrono::duration<double>(kRestartDelay) / m_options.clock_rate;
    const Result<bool> done =
        m_web->start(*m_ground, {.program = program("orvan-web"),
                                 .state = m_state,
                                 .restart = m_options.restart,
                                 .delay = std::chrono::duration_cast<WebProcess::Clock::duration>(delay)});
    if (!done) {
        say_error("no page: " + done.error().text());
        m_web.reset();
    }
}

/** The command of the service on this instrument's board, without faults or options. */
Command Instance::service_command() const
{
    Command command;
    command.argv = {program("orvan-service"), "--foreground"};
    command.environment = {{"ORVAN_BOARD", m_model.platform},
                           {"ORVAN_BOARD_CLOCK_RATE", std::to_string(m_options.clock_rate)}};
    command.own_group = true;
    return command;
}

Result<bool> Instance::start_service()
{
    const UniqueFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const UniqueFd log = open_log("service.log");
    Command command = service_command();
    if (m_ground->has_sandbox()) {
        command.argv.insert(command.argv.end(), {"--platform", m_model.platform});
    } else {
        command.argv.insert(command.argv.end(),
                            {"--modules-on-loopback", "--channels", std::to_string(m_model.channels),
                             "--local-dir", (m_state / "run").string()});
    }
    if (!m_options.log_level.empty()) {
        command.argv.insert(command.argv.end(), {"--log-level", m_options.log_level});
    }
    command.environment["NOTIFY_SOCKET"] = run_file("notify").string();
    if (m_options.watchdog > 0) {
        command.environment["WATCHDOG_USEC"] = std::to_string(std::llround(m_options.watchdog * 1e6));
    }
    std::string& verbs = command.environment["ORVAN_BOARD_AT_POWER_ON"];
    for (const std::string& verb : m_options.board) {
        verbs += (verbs.empty() ? "" : ";") + verb;
    }
    command.environment["ORVAN_BOARD_START_UP"] = "1";
    command.environment["ORVAN_BOARD_CONTROL"] = board_socket().string();
    command.environment["ORVAN_BOARD_MODULE_POWER"] = module_power_pipe().string();
    // In addition to its own ports, which lie in the controller's network.
    command.listen_fds = {{m_listener.get(), "raw"}, {m_hislip_listener.get(), "hislip"}};
    command.input = null.get();
    command.output = log.get();
    command.error = log.get();
    const Result<pid_t> pid = m_ground->spawn(Role::controller(), command);
    if (!pid) {
        return pid.error();
    }
    m_service = Child(pid.value());
    m_ready = false;
    m_ending = false;
    m_aborted = false;
    m_status.clear();
    m_deadline = Clock::now() + kServiceStart;
    return true;
}

bool Instance::publish_record()
{
    InstanceRecord record;
    record.launcher = ::getpid();
    record.model = m_options.model;
    record.channels = m_model.channels;
    record.modules = static_cast<int>(m_modules.size());
    record.scpi_port = port_of(m_listener.get());
    record.hislip_port = port_of(m_hislip_listener.get());
    record.http_port = m_web ? m_web->port() : 0;
    record.temporary = m_temporary;
    record.environment = m_ground->environment();
    if (const Sandbox* sandbox = m_ground->sandbox()) {
        record.init = sandbox->init_pid();
        record.maintenance_port = m_options.maintenance_port;
        for (int index = 0; index < role_count(record.modules); ++index) {
            record.networks[Role::at(index).name()] = sandbox->network_path(Role::at(index));
        }
    }
    return write_record(m_state, record) && m_registry->add(m_state);
}

} // namespace orvan_launcher

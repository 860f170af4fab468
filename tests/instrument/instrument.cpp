#include "instrument.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/files.h"

namespace orvan_test {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

pid_t spawn(const std::vector<std::string>& arguments, const std::filesystem::path& output)
{
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = -1;
    const int error = ::posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error(arguments[0] + ": " + std::strerror(error));
    }
    return child;
}

int exit_status(int wait_status)
{
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

int wait_for(pid_t child)
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return exit_status(status);
}

int number_after(const std::string& text, const std::string& before)
{
    const size_t at = text.find(before);
    return at == std::string::npos ? 0 : std::atoi(text.c_str() + at + before.size());
}

std::filesystem::path temporary_folder()
{
    std::string name = (std::filesystem::temp_directory_path() / "orvan-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    return name;
}

} // namespace

Outcome run_program(const std::vector<std::string>& arguments)
{
    const std::filesystem::path folder = temporary_folder();
    Outcome outcome;
    outcome.status = wait_for(spawn(arguments, folder / "output"));
    outcome.output = read_file(folder / "output");
    std::filesystem::remove_all(folder);
    return outcome;
}

std::string program(std::string_view name)
{
    return std::string(ORVAN_BIN_DIR "/").append(name);
}

std::string why_no_sandbox()
{
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        ::_exit(::unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) == 0 ? 0 : errno);
    }
    const int error = wait_for(child);
    return error == 0 ? "" : std::string("the kernel refuses namespaces: ") + std::strerror(error);
}

Instrument::Instrument(const std::vector<std::string>& options, const Preparation& prepare)
    : m_folder(temporary_folder()), m_state(m_folder / "state")
{
    if (prepare) {
        std::filesystem::create_directory(m_state);
        prepare(m_state);
    }
    std::vector<std::string> arguments{
        program("orvan-sim"), "run", "--clock-rate", "20",   "--scpi-port", "0",     "--hislip-port", "0",
        "--maint-port",       "0",   "--http-port",  "none", "--state",     m_state, "--no-restart"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    m_launcher = spawn(arguments, m_folder / "output");

    static const std::regex ready_line("(^|\n)ready");
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    for (std::string text = output(); !std::regex_search(text, ready_line); text = output()) {
        int status = 0;
        const bool ended = ::waitpid(m_launcher, &status, WNOHANG) == m_launcher;
        if (ended || Clock::now() > deadline) {
            if (!ended) {
                stop(SIGKILL);
            }
            std::filesystem::remove_all(m_folder);
            throw std::runtime_error("the instrument did not start:\n" + text);
        }
        std::this_thread::sleep_for(milliseconds(10));
    }
    const std::string text = output();
    m_port = number_after(text, "SCPI         TCP 127.0.0.1:");
    m_hislip_port = number_after(text, "HiSLIP       TCP 127.0.0.1:");
    if (text.find("page ") != std::string::npos) {
        m_http_port = number_after(text, "page         http://127.0.0.1:");
    }
}

Instrument::~Instrument()
{
    if (m_launcher > 0) {
        stop(SIGTERM);
    }
    std::filesystem::remove_all(m_folder);
}

pid_t Instrument::service() const
{
    static const std::regex line("\nservice .*, process ([0-9]+)");
    const std::string status = ctl({"status"}).output;
    std::smatch match;
    if (!std::regex_search(status, match, line)) {
        throw std::runtime_error("no service:\n" + status);
    }
    return std::stoi(match[1]);
}

std::string Instrument::output() const
{
    return read_file(m_folder / "output");
}

bool Instrument::wait_for_output(std::string_view text, milliseconds wait) const
{
    const auto deadline = Clock::now() + wait;
    while (output().find(text) == std::string::npos) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

std::string Instrument::service_log() const
{
    return read_file(m_state / "log/service.log");
}

bool Instrument::reboot() const
{
    static const std::string kReadyAgain = "the service is ready again\n";
    const size_t before = output().size();
    if (exec("controller", {"sudo", "reboot"}).status != 0) {
        return false;
    }
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (output().find(kReadyAgain, before) == std::string::npos) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

Outcome Instrument::ctl(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> all{program("orvan-sim"), "ctl", "--state", m_state};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_program(all);
}

Outcome Instrument::exec(std::string_view role, const std::vector<std::string>& command) const
{
    std::vector<std::string> all{program("orvan-sim"), "exec", "--state", m_state, "--in",
                                 std::string(role),    "--"};
    all.insert(all.end(), command.begin(), command.end());
    return run_program(all);
}

std::string Instrument::ask_module(int module, const std::string& query) const
{
    const std::string place =
        "/dev/tcp/192.168." + std::to_string(6 + module) + ".1/" + std::to_string(6000 + module);
    const Outcome reply = exec("controller", {"bash", "-c",
                                              "exec 3<>" + place +
                                                  " && printf '%s\\r\\n' \"$1\" >&3 && "
                                                  "read -r -t 10 line <&3 && printf %s \"${line%$'\\r'}\"",
                                              "ask", query});
    return reply.output;
}

std::vector<std::string> Instrument::requests(int module) const
{
    // The temperature monitor's may come at any time.
    static const std::string kTemperatureQuery = ":SYST:TEMP?\\r\\n";
    std::istringstream lines(ctl({"module", std::to_string(module), "log"}).output);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("ok", 0) != 0 && line != kTemperatureQuery) {
            found.push_back(line);
        }
    }
    return found;
}

void Instrument::clear_requests(int module) const
{
    ctl({"module", std::to_string(module), "clear"});
}

int Instrument::stop(int signal)
{
    if (m_launcher < 1) {
        throw std::logic_error("the instrument has ended");
    }
    ::kill(m_launcher, signal);
    return wait_for_end();
}

int Instrument::wait_for_end()
{
    if (m_launcher < 1) {
        throw std::logic_error("the instrument has ended");
    }
    const int status = wait_for(m_launcher);
    m_launcher = -1;
    return status;
}

} // namespace orvan_test

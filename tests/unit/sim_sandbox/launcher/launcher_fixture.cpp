#include "launcher_fixture.h"

#include <algorithm>
#include <csignal>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sockets.h"

using orvan_common::UniqueFd;

namespace launcher_test {

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using sandbox_test::eventually;
using sandbox_test::read_file;

void LauncherTest::SetUp()
{
    fs::create_directories(m_folder.path() / "bin");
    fs::create_directories(m_folder.path() / "tmp");
    fs::copy_file(ORVAN_SIM_PROGRAM, m_folder.path() / "bin/orvan-sim");
    fs::copy_file(DOUBLE_OF_SERVICE, m_folder.path() / "bin/orvan-service");
    fs::copy_file(DOUBLE_OF_SERVICE, m_folder.path() / "bin/orvan-web");
    fs::copy_file(DOUBLE_OF_MODULE, m_folder.path() / "bin/orvan-module");
}

void LauncherTest::TearDown()
{
    if (m_launcher > 0) {
        stop(SIGTERM);
    }
}

pid_t LauncherTest::run(const std::vector<std::string>& words, const fs::path& output,
                        const Environment& environment)
{
    const UniqueFd file(::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    Command command;
    command.argv = m_before;
    command.argv.push_back(m_folder.path() / "bin/orvan-sim");
    command.argv.insert(command.argv.end(), words.begin(), words.end());
    command.environment = environment;
    command.environment["TMPDIR"] = (m_folder.path() / "tmp").string();
    command.environment["XDG_RUNTIME_DIR"] = (m_folder.path() / "tmp").string();
    command.output = file.get();
    command.error = file.get();
    const Result<pid_t> pid = spawn(Membership(), command);
    EXPECT_TRUE(pid.ok()) << pid.error().text();
    return pid ? pid.value() : -1;
}

void LauncherTest::start(const std::vector<std::string>& options, const Environment& environment)
{
    std::vector<std::string> words = {"run", "--maint-port", "0"};
    for (const char* const port : {"--scpi-port", "--hislip-port"}) {
        if (std::find(options.begin(), options.end(), port) == options.end()) {
            words.insert(words.end(), {port, "0"});
        }
    }
    words.insert(words.end(), m_page_options.begin(), m_page_options.end());
    words.insert(words.end(), options.begin(), options.end());
    m_launcher = run(words, m_folder.path() / "output", environment);
    ASSERT_GT(m_launcher, 0);
}

bool LauncherTest::start_ready(const std::vector<std::string>& options, const Environment& environment)
{
    start(options, environment);
    if (HasFatalFailure()) {
        return false;
    }
    bool ended = false;
    eventually([&] {
        ended = ::kill(m_launcher, 0) != 0 || ::waitpid(m_launcher, nullptr, WNOHANG) == m_launcher;
        return ended || output().find("  stop  ") != std::string::npos;
    });
    if (ended) {
        m_launcher = -1;
        // Only a sandbox of the same kind distinguishes refusal from failure.
        const TemporaryDirectory folder;
        const auto probe = Sandbox::start({folder.path(), 0});
        if (!probe && probe.error().refused) {
            [&] { GTEST_SKIP() << probe.error().text(); }();
            return false;
        }
    }
    EXPECT_NE(output().find("  stop  "), std::string::npos) << output();
    return !HasFailure();
}

int LauncherTest::wait()
{
    return wait_for(std::exchange(m_launcher, -1));
}

int LauncherTest::stop(int signal)
{
    // Numbers below 1 are process groups, -1 all processes.
    if (m_launcher < 1) {
        ADD_FAILURE() << "no launcher to stop";
        return -1;
    }
    ::kill(m_launcher, signal);
    return wait();
}

Outcome LauncherTest::sim(const std::vector<std::string>& words)
{
    const fs::path file = m_folder.path() / "sim-output";
    Outcome outcome;
    outcome.status = wait_for(run(words, file, {}));
    outcome.output = read_file(file);
    return outcome;
}

std::string LauncherTest::printed(const std::string& before) const
{
    const std::string text = output();
    const size_t at = text.find(before);
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + before.size();
    return text.substr(begin, text.find_first_of(" ,\n", begin) - begin);
}

std::string LauncherTest::port_of_page() const
{
    const std::string text = printed(kPage);
    return text.substr(0, text.find('/'));
}

std::string LauncherTest::ask(const std::string& line, const std::string& before)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::atoi(printed(before).c_str())));
    ::inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return "no connection";
    }
    return orvan_launcher::exchange(fd.get(), line + "\n", "\n", 10);
}

std::string LauncherTest::left_over() const
{
    std::string names;
    for (const auto& entry : fs::recursive_directory_iterator(m_folder.path() / "tmp")) {
        names += entry.path().string() + "\n";
    }
    return names;
}

} // namespace launcher_test

/** The program as it is built, in its own process. */
#include <csignal>
#include <cstdlib>
#include <regex>

#include <poll.h>
#include <pty.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>

#include "http_fixture.h"
#include "support/eventually.h"
#include "support/files.h"

using namespace orvan_test;
using namespace std::chrono_literals;
using orvan_common::UniqueFd;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

/** orvan-web as a child that announces nothing, with its state in a folder of its own. */
class WebProgram {
public:
    struct Start {
        std::vector<std::string> arguments;
        std::vector<std::pair<std::string, std::string>> environment = {};
        std::string input = {};
        int listener = -1; /**< becomes descriptor 3, announced by LISTEN_FDS */
    };

    explicit WebProgram(const Start& start)
    {
        int input[2];
        int errors[2];
        int output[2];
        EXPECT_EQ(::pipe2(input, O_CLOEXEC) + ::pipe2(errors, O_CLOEXEC) + ::pipe2(output, O_CLOEXEC), 0);
        m_errors = UniqueFd(errors[0]);
        m_output = UniqueFd(output[0]);
        const UniqueFd ends[] = {UniqueFd(input[0]), UniqueFd(errors[1]), UniqueFd(output[1])};
        const UniqueFd writing(input[1]);
        EXPECT_EQ(::write(writing.get(), start.input.data(), start.input.size()),
                  static_cast<ssize_t>(start.input.size()));
        std::vector<std::string> arguments{ORVAN_WEB_PROGRAM, "--foreground", "--no-mdns"};
        arguments.insert(arguments.end(), start.arguments.begin(), start.arguments.end());
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        m_pid = ::fork();
        if (m_pid != 0) {
            return;
        }
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::dup2(errors[1], STDERR_FILENO);
        for (const auto& [name, value] : start.environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        if (start.listener >= 0) {
            ::dup2(start.listener, 3);
            ::fcntl(3, F_SETFD, 0);
            ::setenv("LISTEN_FDS", "1", 1);
            ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        }
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ~WebProgram()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    WebProgram(const WebProgram&) = delete;
    WebProgram& operator=(const WebProgram&) = delete;

    void signal(int number) const { ::kill(m_pid, number); }
    pid_t pid() const { return m_pid; }
    std::string errors_until(const std::string& end) { return until(m_errors, end); }
    std::string output() { return until(m_output, "\1never\1"); }
    int port()
    {
        const std::string text = errors_until("ready\n");
        std::smatch match;
        return std::regex_search(text, match, std::regex(R"(listening on http://127\.0\.0\.1:(\d+)/)"))
                   ? std::stoi(match[1])
                   : 0;
    }
    /** Exit code; -1 if it does not exit by itself. */
    int exit_code()
    {
        int status = -1;
        const bool ended = eventually([&] { return ::waitpid(m_pid, &status, WNOHANG) == m_pid; });
        m_pid = ended ? -1 : m_pid;
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    static std::string until(const UniqueFd& fd, const std::string& end)
    {
        std::string text;
        pollfd waiting{fd.get(), POLLIN, 0};
        while (text.find(end) == std::string::npos && ::poll(&waiting, 1, 20'000) > 0) {
            char piece[1024];
            const ssize_t size = ::read(fd.get(), piece, sizeof piece);
            if (size <= 0) {
                break;
            }
            text.append(piece, static_cast<size_t>(size));
        }
        return text;
    }

    pid_t m_pid = -1;
    UniqueFd m_errors;
    UniqueFd m_output;
};

/** What a service manager listens on. */
class NotifySocket {
public:
    explicit NotifySocket(const std::filesystem::path& path)
        : m_path(path), m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    std::string path() const { return m_path; }
    std::string next() const
    {
        pollfd waiting{m_socket.get(), POLLIN, 0};
        char text[100];
        const ssize_t size =
            ::poll(&waiting, 1, 20'000) > 0 ? ::recv(m_socket.get(), text, sizeof text, 0) : 0;
        return {text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

private:
    const std::filesystem::path m_path;
    const UniqueFd m_socket;
};

class WebProgramTest : public ::testing::Test {
protected:
    std::vector<std::string> serving(std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments{"--address", "127.0.0.1", "--port",      "0",
                                           "--state",   state(),     "--local-dir", m_folder.path() / "run"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    std::string state() const { return m_folder.path() / "state"; }
    static std::string ask(int port, const std::string& request, const std::string& from = {})
    {
        const WebClient client(port, from);
        client.send(request);
        return client.reply();
    }

    ScratchFolder m_folder;
};

} // namespace

TEST_F(WebProgramTest, ServesThePageUntilItIsTerminated)
{
    const NotifySocket manager(m_folder.path() / "notify");
    WebProgram program({serving(), {{"NOTIFY_SOCKET", manager.path()}}});
    const int port = program.port();
    EXPECT_EQ(manager.next(), "READY=1");
    const std::string page = ask(port, get("/"));
    EXPECT_EQ(status_of(page), 200);
    EXPECT_THAT(page, HasSubstr("<!DOCTYPE html>"));
    EXPECT_EQ(status_of(ask(port, get("/js/main.js"))), 200);
    program.signal(SIGTERM);
    EXPECT_EQ(program.exit_code(), 0);
    EXPECT_EQ(manager.next(), "STOPPING=1");
}

TEST_F(WebProgramTest, EndsWhileAViewerAndARequestWait)
{
    WebProgram program({serving()});
    const int port = program.port();
    const WebClient idle(port);
    const WebClient half(port);
    half.send("GET / HTTP/1.1\r\nHo");
    const WebClient viewer(port);
    viewer.send(get("/api/v1/events"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.exit_code(), 0);
}

TEST_F(WebProgramTest, FeedsTheWatchdog)
{
    const NotifySocket manager(m_folder.path() / "notify");
    WebProgram program({serving(), {{"NOTIFY_SOCKET", manager.path()}, {"WATCHDOG_USEC", "60000"}}});
    program.port();
    EXPECT_EQ(manager.next(), "READY=1");
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

TEST_F(WebProgramTest, ServesTheSocketThatItsParentPasses)
{
    const UniqueFd listener(listen_on_loopback());
    const int port = local_port(listener.get());
    WebProgram program({{"--state", state(), "--port", "1"}, {}, {}, listener.get()});
    EXPECT_EQ(program.port(), port);
    EXPECT_EQ(status_of(ask(port, get("/"))), 200);
}

TEST_F(WebProgramTest, SaysWhyItDoesNotStart)
{
    const UniqueFd taken(listen_on_loopback());
    WebProgram without_port({{"--address", "127.0.0.1", "--port", std::to_string(local_port(taken.get()))}});
    EXPECT_EQ(without_port.exit_code(), 1);
    EXPECT_THAT(without_port.errors_until("\n"), HasSubstr("cannot listen on 127.0.0.1 port"));
    WebProgram without_page({serving({"--page", "/nowhere"})});
    EXPECT_EQ(without_page.exit_code(), 1);
    EXPECT_THAT(without_page.errors_until("\n"),
                HasSubstr("cannot read /nowhere: No such file or directory"));
    EXPECT_EQ(WebProgram({{"--nonsense"}}).exit_code(), 2);
}

TEST_F(WebProgramTest, ServesTheChartsIfTheyAreInstalled)
{
    write_file(m_folder.path() / "chart.js", "charts");
    WebProgram program({serving({"--charts", m_folder.path() / "chart.js"})});
    EXPECT_THAT(ask(program.port(), get("/charts/chart.js")), HasSubstr("\r\n\r\ncharts"));
    WebProgram without({serving({"--charts", "/nowhere/chart.js"})});
    EXPECT_THAT(without.errors_until("/chart.js\n"), HasSubstr("no charts: cannot read /nowhere/chart.js"));
    EXPECT_EQ(status_of(ask(without.port(), get("/"))), 200);
}

TEST_F(WebProgramTest, ThePasswordAndTokensOfTheCommandLineAreThoseOfTheRunningServer)
{
    WebProgram server({serving()});
    const int port = server.port();
    const std::string log_in =
        post("/api/v1/session", R"({"password":"correct horse"})", "Content-Type: application/json\r\n");
    EXPECT_EQ(status_of(ask(port, log_in)), 409);
    WebProgram setting({{"--state", state(), "--set-password"}, {}, "correct horse\n"});
    EXPECT_EQ(setting.output(), "The password is set.\n");
    EXPECT_EQ(setting.exit_code(), 0);
    EXPECT_EQ(status_of(ask(port, log_in)), 200);
    WebProgram making({{"--state", state(), "--new-token", "line-3"}});
    EXPECT_THAT(making.output(), MatchesRegex("[0-9a-f]{64}\n"));
    EXPECT_EQ(making.exit_code(), 0);
    WebProgram again({{"--state", state(), "--new-token", "line-3"}});
    EXPECT_EQ(again.exit_code(), 1);
    EXPECT_EQ(again.errors_until("\n"), "orvan-web: there is a token line-3 already\n");
    WebProgram removing({{"--state", state(), "--remove-token", "line-3"}});
    EXPECT_EQ(removing.output(), "The token is removed.\n");
    WebProgram short_one({{"--state", state(), "--set-password"}, {}, "short\n"});
    EXPECT_EQ(short_one.exit_code(), 1);
    EXPECT_EQ(short_one.errors_until("\n"), "orvan-web: a password has 8 to 256 characters\n");
    WebProgram none({{"--state", state(), "--set-password"}});
    EXPECT_EQ(none.exit_code(), 1);
    EXPECT_EQ(none.errors_until("\n"), "orvan-web: no password was entered\n");
}

TEST_F(WebProgramTest, ATerminalShowsAgainWhatIsTypedAfterCtrlC)
{
    const std::string folder = state();
    int master = -1;
    const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        ::execl(ORVAN_WEB_PROGRAM, "orvan-web", "--state", folder.c_str(), "--set-password", nullptr);
        ::_exit(127);
    }
    const UniqueFd terminal(master);
    const UniqueFd slave(::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const auto is_shown = [&] {
        termios settings{};
        return ::tcgetattr(slave.get(), &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    };
    EXPECT_TRUE(eventually([&] { return !is_shown(); }));
    EXPECT_EQ(::write(terminal.get(), "\x03", 1), 1);
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_NE(status, 0);
    EXPECT_TRUE(is_shown());
    EXPECT_FALSE(std::filesystem::exists(folder + "/password"));
}

TEST_F(WebProgramTest, AnswersOnlyToItsNames)
{
    WebProgram program({serving({"--name", "bench.example"})});
    const int port = program.port();
    const auto status = [&](const std::string& host) {
        return status_of(ask(port, "GET / HTTP/1.1\r\nHost: " + host + "\r\n\r\n"));
    };
    EXPECT_EQ(status("127.0.0.1:" + std::to_string(port)), 200);
    EXPECT_EQ(status("bench.example"), 200);
    EXPECT_EQ(status("evil.example"), 421);
}

TEST_F(WebProgramTest, ServesTheInterfaceForProgramsWithoutTheService)
{
    WebProgram program({serving()});
    const int port = program.port();
    const std::string openapi = ask(port, get("/api/v1/openapi.json"));
    EXPECT_THAT(openapi, HasSubstr("/api/v1/session"));
    EXPECT_THAT(openapi, HasSubstr("/api/v1/channels/{channel}"));
    EXPECT_THAT(
        ask(port, get("/api/v1/instrument")),
        HasSubstr(R"("access":{"changes":false,"password_set":false,"reason":"changes are off until)"));
    const std::string line = R"({"channel":1,"line":":FREQ?"})";
    EXPECT_EQ(status_of(ask(port, post("/api/v1/scpi", line, "Content-Type: application/json\r\n"))), 403);
    WebProgram open({serving({"--changes-without-password"})});
    const int open_port = open.port();
    EXPECT_EQ(
        status_of(ask(open_port, post("/api/v1/scpi", line,
                                      "Content-Type: application/json\r\nOrigin: http://127.0.0.1\r\n"))),
        503);
    const WebClient viewer(open_port);
    viewer.send(get("/api/v1/events"));
    EXPECT_THAT(viewer.until("event: instrument"), HasSubstr("event: instrument"));
}

TEST_F(WebProgramTest, SurvivesAGigabyteAndAThousandConnections)
{
    WebProgram program({serving()});
    const int port = program.port();
    const WebClient sender(port);
    sender.send("POST /api/v1/session HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                "Transfer-Encoding: chunked\r\n\r\n");
    const std::string chunk = "10000\r\n" + std::string(0x10000, 'x') + "\r\n";
    int sent = 0;
    while (sent < 16'384 && sender.send(chunk)) { // 1 GB
        ++sent;
    }
    EXPECT_LT(sent, 1000);
    std::vector<std::unique_ptr<WebClient>> crowd;
    for (int i = 0; i < 1000; ++i) {
        crowd.push_back(std::make_unique<WebClient>(port));
        crowd.back()->send("GET / HTTP/1.1\r\n");
    }
    EXPECT_EQ(status_of(ask(port, get("/"), "127.0.0.2")), 200);
    const std::string memory = read_file("/proc/" + std::to_string(program.pid()) + "/status");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(memory, match, std::regex(R"(VmHWM:\s+(\d+) kB)")));
    EXPECT_LT(std::stoi(match[1]), 256 * 1024) << "kB, far less than was sent";
}

// The web process of a run: its sockets, its end, and what is said of it.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "launcher_fixture.h"
#include "sockets.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;
using sandbox_test::read_file;

namespace {

using OrvanSimWeb = LauncherTest;

bool is_refused(const std::string& answer)
{
    return answer == "no connection";
}

} // namespace

TEST_F(OrvanSimWeb, ServesTheHostsPortAndPort80OfTheLan)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("fds", kPage), "2\n");
    EXPECT_EQ(ask("env LISTEN_FDNAMES", kPage), "host:lan\n");
    EXPECT_EQ(ask("listener", kPage), "3\n");
    EXPECT_EQ(ask("args", kPage),
              "--foreground --state " + state().string() + "/web --changes-without-password\n");
    EXPECT_TRUE(fs::is_directory(state() / "web"));
    EXPECT_EQ(ask("run test -d /home/orvan/halde/preset -a -w /run", kPage), "0\n");
    EXPECT_NE(ask("pid", kPage), ask("pid"));
    const std::string inside = "exec 3<>/dev/tcp/10.0.0.2/80; echo pid >&3; head -n 1 <&3";
    EXPECT_EQ(sim({"exec", "--in", "lan", "--", "bash", "-c", inside}).output, ask("pid", kPage));
    EXPECT_NE(read_file(state() / "run/instance.json").find("\"http_port\":\t" + port_of_page()),
              std::string::npos);
}

TEST_F(OrvanSimWeb, GivesWayToTheService)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const std::string page = ask("pid", kPage);
    EXPECT_EQ(ask("run test $(ps -o ni= -p $PPID) -eq 10", kPage), "0\n") << page;
    EXPECT_EQ(ask("run test $(ps -o ni= -p $PPID) -lt 10"), "0\n");
}

TEST_F(OrvanSimWeb, AGivenPortIsServedAndABusyOneIsAnError)
{
    std::string port;
    {
        const UniqueFd free_one(orvan_launcher::listen_tcp("127.0.0.1", 0));
        port = std::to_string(orvan_launcher::port_of(free_one.get()));
    }
    if (!start_ready({"--modules", "none", "--http-port", port})) {
        return;
    }
    EXPECT_EQ(port_of_page(), port);
    EXPECT_EQ(sim({"run", "--scpi-port", "0", "--hislip-port", "0", "--http-port", port}).output,
              "orvan-sim: listening on 127.0.0.1 port " + port +
                  ": Address already in use (choose another with --http-port; 0 takes a free one)\n");
}

TEST_F(OrvanSimWeb, WithoutAPageThereIsNoProcess)
{
    if (!start_ready({"--modules", "none", "--http-port", "none"})) {
        return;
    }
    EXPECT_EQ(output().find("page"), std::string::npos) << output();
    EXPECT_NE(sim({"ctl", "status"}).output.find("\nweb       none\n"), std::string::npos);
    EXPECT_EQ(ask("run pgrep -x orvan-web", "SCPI         TCP 127.0.0.1:"), "1\n");
}

TEST_F(OrvanSimWeb, AMissingProgramCostsThePageOnly)
{
    fs::remove(m_folder.path() / "bin/orvan-web");
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    EXPECT_TRUE(std::regex_search(output(), std::regex("orvan-sim: no page: [^\n]*/orvan-web[^\n]*\n")))
        << output();
    EXPECT_EQ(output().find("page         "), std::string::npos);
    EXPECT_NE(sim({"ctl", "status"}).output.find("\nweb       none\n"), std::string::npos);
    EXPECT_EQ(ask("fds"), "2\n");
}

TEST_F(OrvanSimWeb, AProcessThatFailsIsStartedAgainWhileBrowsersWait)
{
    if (!start_ready({"--modules", "none", "--state", state(), "--clock-rate", "10"})) {
        return;
    }
    const std::string service = ask("pid");
    const std::string before = ask("pid", kPage);
    ask("abort", kPage);
    EXPECT_TRUE(eventually([&] {
        return output().ends_with("orvan-sim: the web process ended with signal 6 (Aborted); see " +
                                  (state() / "log/web.log").string() + "; starting it again in 0.5 s\n");
    })) << output();
    const std::string after = ask("pid", kPage); // connects before it runs
    EXPECT_TRUE(std::regex_match(after, std::regex("[0-9]+\n"))) << after;
    EXPECT_NE(after, before);
    EXPECT_EQ(ask("pid"), service);
    EXPECT_TRUE(std::regex_search(sim({"ctl", "status"}).output,
                                  std::regex("\nweb       running, process [0-9]+, 1 restart, http:")));
}

TEST_F(OrvanSimWeb, AfterSixFailuresInARowItIsGivenUpAndBrowsersAreRefused)
{
    if (!start_ready({"--modules", "none", "--state", state(), "--clock-rate", "100"})) {
        return;
    }
    std::ofstream(state() / "fails") << "at each start";
    ask("exit 1", kPage);
    EXPECT_TRUE(eventually([&] {
        return output().ends_with("orvan-sim: the web process ended with status 1; see " +
                                  (state() / "log/web.log").string() +
                                  "; there is no page any more, after 6 failures in a row\n");
    })) << output();
    EXPECT_TRUE(is_refused(ask("pid", kPage)));
    EXPECT_NE(sim({"ctl", "status"}).output.find("\nweb       not running\n"), std::string::npos);
    EXPECT_EQ(ask("fds"), "2\n");
}

TEST_F(OrvanSimWeb, OneThatEndsInOrderOrWithoutRestartsIsNotStartedAgain)
{
    for (const auto& [option, end, how] : {std::tuple{"--restart", "exit 0", "status 0"},
                                           {"--restart", "exit 2", "status 2"},
                                           {"--no-restart", "abort", "signal 6 (Aborted)"}}) {
        if (!start_ready({"--modules", "none", "--state", state(), option})) {
            return;
        }
        ask(end, kPage);
        EXPECT_TRUE(eventually([&] {
            return output().ends_with(std::string("orvan-sim: the web process ended with ") + how + "; see " +
                                      (state() / "log/web.log").string() + "; there is no page any more\n");
        })) << output();
        EXPECT_TRUE(is_refused(ask("pid", kPage)));
        EXPECT_EQ(ask("fds"), "2\n");
        EXPECT_EQ(stop(SIGTERM), 0);
    }
}

TEST_F(OrvanSimWeb, ARebootRestartsItTooOnTheSamePort)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const std::string before = ask("pid", kPage);
    ask("run sudo reboot");
    EXPECT_TRUE(eventually([&] { return output().ends_with("the service is ready again\n"); })) << output();
    EXPECT_NE(ask("pid", kPage), before);
    EXPECT_EQ(output().find("the web process"), std::string::npos) << output();
}

TEST_F(OrvanSimWeb, ItIsEndedInOrderWithTheInstrument)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("note " + (state() / "ended").string(), kPage), "noted\n");
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_TRUE(fs::exists(state() / "ended"));
    EXPECT_TRUE(is_refused(ask("pid", kPage)));
    EXPECT_EQ(output().find("the web process"), std::string::npos) << output();
}

class OrvanSimOpen : public LauncherTest {
protected:
    /** A desktop whose browser writes down what it is given. */
    orvan_sandbox::Environment desktop(const char* display) const
    {
        const fs::path program = m_folder.path() / "bin/xdg-open";
        std::ofstream(program) << "#!/bin/sh\necho \"$@\" >" << opened().string() << "\n";
        fs::permissions(program, fs::perms(0755));
        const char* const rest = std::getenv("PATH");
        orvan_sandbox::Environment environment = nowhere();
        environment[display] = "0";
        environment["PATH"] =
            program.parent_path().string() + ":" + (rest != nullptr ? rest : "/usr/bin:/bin");
        return environment;
    }

    static orvan_sandbox::Environment nowhere() { return {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}}; }

    fs::path opened() const { return m_folder.path() / "opened"; }
};

TEST_F(OrvanSimOpen, OnADesktopThePageIsOpenedOnce)
{
    for (const char* display : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        if (!start_ready({"--modules", "none", "--open"}, desktop(display))) {
            return;
        }
        const std::string expected = "http://127.0.0.1:" + port_of_page() + "/\n";
        EXPECT_TRUE(eventually([&] { return read_file(opened()) == expected; })) << output();
        fs::remove(opened());
        ask("run sudo reboot");
        EXPECT_TRUE(eventually([&] { return output().ends_with("the service is ready again\n"); }));
        EXPECT_FALSE(fs::exists(opened()));
        stop(SIGTERM);
    }
}

TEST_F(OrvanSimOpen, WithoutADesktopThereIsALine)
{
    if (!start_ready({"--modules", "none", "--open"}, nowhere())) {
        return;
    }
    EXPECT_NE(output().find("orvan-sim: no desktop to open http://127.0.0.1:" + port_of_page() +
                            "/ on: neither DISPLAY nor WAYLAND_DISPLAY is set\n"),
              std::string::npos)
        << output();
}

TEST_F(OrvanSimOpen, NothingIsOpenedUnlessAskedFor)
{
    if (!start_ready({"--modules", "none"}, desktop("DISPLAY"))) {
        return;
    }
    EXPECT_FALSE(fs::exists(opened()));
}

TEST_F(OrvanSimOpen, ItNeedsAPage)
{
    const Outcome refused = sim({"run", "--open", "--http-port", "none"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.output, "orvan-sim: --open needs a page, and --http-port none leaves it out\n");
}

/** The default port, in a network that has no other instruments. */
class OrvanSimDefaultPort : public LauncherTest {
protected:
    void SetUp() override
    {
        const auto inside = orvan_sandbox::enter({m_outer.path(), 0});
        if (!inside && inside.error().refused) {
            GTEST_SKIP() << inside.error().text();
        }
        ASSERT_TRUE(inside.ok()) << inside.error().text();
        ::unsetenv(orvan_sandbox::kSandboxVariable);
        LauncherTest::SetUp();
        m_page_options.clear();
    }
    TemporaryDirectory m_outer;
};

TEST_F(OrvanSimDefaultPort, Is8080AndAFreeOneIfThatIsInUse)
{
    if (!start_ready({"--no-sandbox", "--modules", "none"})) {
        return;
    }
    EXPECT_EQ(port_of_page(), "8080");
    EXPECT_EQ(output().find("in use"), std::string::npos);
    stop(SIGTERM);

    const UniqueFd busy(orvan_launcher::listen_tcp("127.0.0.1", 8080));
    ASSERT_TRUE(busy);
    ASSERT_TRUE(start_ready({"--no-sandbox", "--modules", "none"}));
    EXPECT_NE(output().find("port 8080 of 127.0.0.1 is in use, so the page takes a free one\n"),
              std::string::npos)
        << output();
    EXPECT_NE(port_of_page(), "8080");
    EXPECT_EQ(ask("fds", kPage), "1\n");
    stop(SIGTERM);

    start({"--no-sandbox", "--modules", "none", "--http-port", "8080"});
    EXPECT_EQ(wait(), 1);
}

// The controller's rpcbind: where it runs, and what a run without it is like.
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>

#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include "launcher_fixture.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;
using sandbox_test::read_file;

class OrvanSimRpcbind : public LauncherTest {
protected:
    /** A script that is found instead of rpcbind; its folder comes first in PATH. */
    orvan_sandbox::Environment replaced_by(const std::string& script) const
    {
        const fs::path path = m_folder.path() / "bin/rpcbind";
        std::ofstream(path) << "#!/bin/sh\n" << script << '\n';
        fs::permissions(path, fs::perms(0755));
        const char* const rest = std::getenv("PATH");
        return {{"PATH", path.parent_path().string() + ":" + (rest != nullptr ? rest : "/usr/bin:/bin")}};
    }

    /** As `ctl status` has it; empty when it does not run. */
    std::string process()
    {
        const std::string status = sim({"ctl", "status"}).output;
        std::smatch match;
        std::regex_search(status, match, std::regex("\nrpcbind   running, process ([0-9]+)\n"));
        return match[1];
    }
};

TEST_F(OrvanSimRpcbind, ServesTheControllerAndTheLan)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    for (const auto& [role, address] : {std::pair{"controller", "127.0.0.1"}, {"lan", "10.0.0.2"}}) {
        const Outcome programs = sim({"exec", "--in", role, "--", "rpcinfo", "-p", address});
        EXPECT_EQ(programs.status, 0);
        EXPECT_NE(programs.output.find("100000    2   udp    111  portmapper\n"), std::string::npos)
            << programs.output;
    }
    EXPECT_EQ(output().find("no VXI-11"), std::string::npos);
}

TEST_F(OrvanSimRpcbind, RunsForAUserWithoutOtherAccounts)
{
    // As an ordinary user's sandbox: one account, and no change of groups.
    m_before = {"unshare", "--user", "--map-root-user"};
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    EXPECT_NE(output().find("  VXI-11       10.0.0.2 from its LAN\n"), std::string::npos) << output();
}

TEST_F(OrvanSimRpcbind, WhenItEndsTheInstrumentContinuesAndALineReportsIt)
{
    // Without a watchdog nothing else wakes the launcher.
    if (!start_ready({"--modules", "none", "--watchdog", "0"})) {
        return;
    }
    ASSERT_NE(process(), "");
    ::kill(std::stoi(process()), SIGKILL);
    EXPECT_TRUE(eventually([&] {
        return output().ends_with(
            "rpcbind ended with signal 9 (Killed); VXI-11 clients no longer find the instrument\n");
    })) << output();
    EXPECT_NE(sim({"ctl", "status"}).output.find("\nrpcbind   not running\n"), std::string::npos);
    EXPECT_EQ(ask("pid").find_first_not_of("0123456789\n"), std::string::npos);
}

TEST_F(OrvanSimRpcbind, WhenItDoesNotStartALineGivesTheReasonAndTheInstrumentServes)
{
    if (!start_ready({"--modules", "none"}, replaced_by("echo cannot >&2; exit 3"))) {
        return;
    }
    EXPECT_EQ(
        output().find("cannot\norvan-sim: no VXI-11: starting rpcbind: it ended with status 3\nready: "), 0u)
        << output();
    EXPECT_EQ(output().find("  VXI-11 "), std::string::npos);
    EXPECT_EQ(process(), "");
    EXPECT_EQ(sim({"exec", "--", "ls", fs::path(printed("state        ")) / "run/rpcbind"}).status, 2);
}

TEST_F(OrvanSimRpcbind, WhenItIsNotReadyInTenSecondsTheInstrumentServesWithoutIt)
{
    if (!start_ready({"--modules", "none", "--state", state()}, replaced_by("exec sleep 60"))) {
        return;
    }
    EXPECT_EQ(output().find("orvan-sim: no VXI-11: starting rpcbind: it does not become ready (see " +
                            (fs::canonical(state()) / "log/rpcbind.log").string() + ")\nready: "),
              0u)
        << output();
}

TEST_F(OrvanSimRpcbind, WhereItIsNotInstalledALineNamesThePackageAndTheInstrumentServes)
{
    const TemporaryDirectory outer;
    START_SANDBOX(sandbox, (orvan_sandbox::Options{outer.path(), 0}));
    fs::copy(m_folder.path() / "bin", outer.path() / "bin"); // what the outer sandbox shows
    const fs::path program = outer.path() / "bin/orvan-sim";
    const fs::path text = outer.path() / "text";
    const fs::path inner = outer.path() / "inner";
    const auto launcher = sandbox.spawn(orvan_sandbox::Role::controller(), [&] {
        for (std::string path; !(path = orvan_sandbox::find_system_program("rpcbind")).empty();) {
            if (::mount("/dev/null", path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
                return 1;
            }
        }
        const int file = ::open(text.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(file, 1);
        ::dup2(file, 2);
        ::setenv("TMPDIR", "/dev/shm", 1);
        ::setenv("XDG_RUNTIME_DIR", "/dev/shm", 1);
        return ::execl(program.c_str(), program.c_str(), "run", "--modules", "none", "--state", inner.c_str(),
                       nullptr);
    });
    ASSERT_TRUE(launcher.ok());
    EXPECT_TRUE(eventually([&] { return read_file(text).find("  stop  ") != std::string::npos; }));
    EXPECT_EQ(
        read_file(text).find("orvan-sim: no VXI-11: looking for the program rpcbind: not found (install "
                             "the package rpcbind)\nready: "),
        0u)
        << read_file(text);
    ::kill(launcher.value(), SIGTERM);
    EXPECT_EQ(orvan_sandbox::wait_for(launcher.value()), 0);
}

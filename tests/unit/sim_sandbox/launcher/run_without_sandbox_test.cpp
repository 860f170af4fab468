// A run without a sandbox, on request and where the kernel refuses one.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "launcher_fixture.h"

namespace fs = std::filesystem;
using namespace launcher_test;
using sandbox_test::eventually;

/**
 * Modules without a sandbox have fixed addresses and ports on the host's loopback; so the test itself first
 * enters a sandbox, which has a private loopback.
 */
class OrvanSimRunOnHost : public LauncherTest {
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
    }
    TemporaryDirectory m_outer;
};

TEST_F(OrvanSimRunOnHost, WithoutASandboxModulesAreOnLoopbackAndAMessageNamesWhatIsMissing)
{
    if (!start_ready({"--no-sandbox", "--modules", "1"})) {
        return;
    }
    EXPECT_EQ(output().find(
                  "without a sandbox: missing are the device with its board and front panel, "
                  "/home/orvan/halde, the channel records, USB links, module addresses 192.168.x.1, the LAN "
                  "side, the maintenance port, VXI-11\n"
                  "ready: OVX3654B, 4 channels, 1 module\n"),
              0u)
        << output();
    const std::string state_folder = printed("state        ");
    EXPECT_EQ(ask("args"),
              "--foreground --modules-on-loopback --channels 4 --local-dir " + state_folder + "/run\n");
    EXPECT_EQ(ask("args", kPage), "--foreground --state " + state_folder +
                                      "/web --changes-without-password --local-dir " + state_folder +
                                      "/run --no-mdns\n");
    EXPECT_EQ(ask("fds", kPage), "1\n");
    EXPECT_EQ(ask("fds"), "2\n");
    EXPECT_EQ(ask("env ORVAN_SANDBOX"), "(none)\n");
    ask("run sudo reboot");
    EXPECT_TRUE(
        eventually([&] { return output().find("the service is ready again\n") != std::string::npos; }));
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "drop"}).output,
              "orvan-sim: changing the link of module 1: there are no links without a sandbox\n");
    EXPECT_EQ(sim({"exec", "--", "true"}).output, "orvan-sim: this instance has no sandbox\n");
}

TEST_F(OrvanSimRunOnHost, KilledLauncherEndsAllProcessesWithoutASandboxToo)
{
    if (!start_ready({"--no-sandbox", "--modules", "1"})) {
        return;
    }
    const pid_t service = std::stoi(ask("pid"));
    stop(SIGKILL);
    EXPECT_TRUE(eventually([&] { return kill(service, 0) != 0; }));
}

TEST_F(OrvanSimRun, FallbackIsTakenWhereTheKernelRefusesASandbox)
{
    const TemporaryDirectory outer;
    START_SANDBOX(sandbox, (orvan_sandbox::Options{outer.path(), 0}));
    fs::copy(m_folder.path() / "bin", outer.path() / "bin"); // what the outer sandbox shows
    const fs::path program = outer.path() / "bin/orvan-sim";
    const auto run = [&](const char* option) {
        const orvan_common::UniqueFd text(::memfd_create("output", 0));
        const auto status = sandbox.run(orvan_sandbox::Role::controller(), [&] {
            std::ofstream("/proc/sys/user/max_net_namespaces") << "0\n";
            ::dup2(text.get(), 1);
            ::dup2(text.get(), 2);
            // The service ends at once; the test checks that it started.
            ::setenv("ORVAN_DOUBLE_EXIT", "6", 1);
            ::setenv("TMPDIR", "/dev/shm", 1);
            ::setenv("XDG_RUNTIME_DIR", "/dev/shm", 1);
            return ::execl(program.c_str(), program.c_str(), "run", "--modules", "1", "--state",
                           "/home/orvan/halde/inner", option, nullptr);
        });
        char part[4096] = {};
        EXPECT_GE(pread(text.get(), part, sizeof part - 1, 0), 0);
        return std::to_string(status ? status.value() : -1) + " " + part;
    };
    const std::string refusal = "orvan-sim: creating the network namespace: No space left on device (";
    const std::string plain = run("--log-level=err");
    EXPECT_EQ(plain.find("1 " + refusal), 0u) << plain;
    EXPECT_NE(plain.find("; or run with --fallback)\n"), std::string::npos) << plain;
    const std::string fallen = run("--fallback");
    EXPECT_EQ(fallen.find("6 " + refusal), 0u) << fallen;
    EXPECT_NE(fallen.find("without a sandbox: missing are"), std::string::npos) << fallen;
}

#include <fstream>

#include <sys/mount.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

/**
 * Starts a sandbox inside a sandbox after `spoil` has changed kernel settings there. Returns the text of the
 * error, after "refused: " if it is a refusal.
 */
std::string error_after(Sandbox& sandbox, const std::filesystem::path& state,
                        const std::function<void()>& spoil)
{
    const auto result = sandbox.run(Role::controller(), [&] {
        spoil();
        const auto inner = Sandbox::start({"/home/orvan/halde/inner", 1});
        std::ofstream("/home/orvan/halde/error")
            << (inner ? "none" : (inner.error().refused ? "refused: " : "") + inner.error().text());
        return 0;
    });
    return result ? read_file(state / "halde/error") : result.error().text();
}

} // namespace

TEST(Refusal, ErrorTextNamesStepErrnoDetailAndHint)
{
    EXPECT_EQ((Error{"doing this", EPERM, "that", "try it", true}).text(),
              "doing this: Operation not permitted: that (try it)");
    EXPECT_EQ((Error{"doing this", 0, "", "", false}).text(), "doing this");
}

TEST(Refusal, EachRefusedNamespaceIsNamed)
{
    const std::pair<const char*, const char*> rows[] = {
        {"max_user_namespaces", "user and PID namespaces"},
        {"max_pid_namespaces", "user and PID namespaces"},
        {"max_mnt_namespaces", "mount namespace"},
        {"max_ipc_namespaces", "IPC namespace"},
        {"max_uts_namespaces", "UTS namespace"},
        {"max_net_namespaces", "network namespace"},
    };
    for (const auto& [setting, name] : rows) {
        const TemporaryDirectory state;
        START_SANDBOX(sandbox, (Options{state.path(), 0}));
        const std::string text = error_after(
            sandbox, state.path(), [&] { std::ofstream("/proc/sys/user/" + std::string(setting)) << "0\n"; });
        EXPECT_EQ(text.find("refused: creating the " + std::string(name) + ": No space left on device"), 0u)
            << text;
    }
}

TEST(Refusal, HintComesFromTheSettingThatRefuses)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(error_after(sandbox, state.path(),
                          [] { std::ofstream("/proc/sys/user/max_user_namespaces") << "0\n"; }),
              "refused: creating the user and PID namespaces: No space left on device (set sysctl "
              "user.max_user_namespaces above 0)");
}

TEST(Refusal, MissingIpProgramIsAnErrorThatNamesThePackage)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(error_after(sandbox, state.path(),
                          [] {
                              for (std::string ip; !(ip = find_system_program("ip")).empty();) {
                                  if (mount("/dev/null", ip.c_str(), nullptr, MS_BIND, nullptr) != 0) {
                                      return;
                                  }
                              }
                          }),
              "looking for the program ip: not found (install the package iproute2)");
}

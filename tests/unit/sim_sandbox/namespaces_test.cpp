#include <cstdlib>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

int status_of(Sandbox& sandbox, Role role, const std::function<int()>& body)
{
    const Result<int> status = sandbox.run(role, body);
    return status ? status.value() : -1;
}

} // namespace

TEST(Guard, TrueInTheControllerRoleOnly)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    const auto answer = [] { return in_sandbox() ? 1 : 0; };
    EXPECT_EQ(status_of(sandbox, Role::controller(), answer), 1);
    EXPECT_EQ(status_of(sandbox, Role::lan(), answer), 0);
    EXPECT_EQ(status_of(sandbox, Role::module(1), answer), 0);
    EXPECT_FALSE(in_sandbox());
}

TEST(Guard, InheritedVariableAloneIsNotTrusted)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ::setenv(kSandboxVariable, std::to_string(sandbox.network_id()).c_str(), 1);
    EXPECT_FALSE(in_sandbox());
    ::setenv(kSandboxVariable, "", 1);
    EXPECT_FALSE(in_sandbox());
    ::unsetenv(kSandboxVariable);
}

TEST(SandboxNamespaces, HostNameCanBeSetWithoutChangingTheMachines)
{
    char before[256] = {};
    ::gethostname(before, sizeof before - 1);
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(status_of(sandbox, Role::controller(), [] { return sethostname("orvan-7", 7) == 0 ? 0 : 1; }),
              0);
    EXPECT_EQ(shell(sandbox, Role::controller(), "uname -n"), "orvan-7\n");
    char after[256] = {};
    ::gethostname(after, sizeof after - 1);
    EXPECT_STREQ(after, before);
}

TEST(SandboxNamespaces, SystemVSharedMemoryIsPrivate)
{
    const key_t key = 0x4f525600 + ::getpid() % 256;
    const int outside = ::shmget(key, 4096, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GE(outside, 0);
    const TemporaryDirectory state;
    const auto check = [&] {
        START_SANDBOX(sandbox, (Options{state.path(), 0}));
        EXPECT_EQ(status_of(sandbox, Role::controller(), [&] { return shmget(key, 4096, 0600) < 0 ? 0 : 1; }),
                  0);
    };
    check();
    ::shmctl(outside, IPC_RMID, nullptr);
}

TEST(SandboxNamespaces, UserIsRootInsideAndTheCallerOutside)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(), "id -u; id -g; touch /home/orvan/halde/made"), "0\n0\n");
    struct stat status = {};
    ASSERT_EQ(stat((state.path() / "halde/made").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, getuid());
    EXPECT_EQ(status.st_gid, getgid());
}

TEST(SandboxNamespaces, ProcessesOfTheMachineAreInvisible)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(), "cat /proc/1/comm"), "orvan-sandbox\n");
    EXPECT_EQ(status_of(sandbox, Role::controller(), [] { return getppid(); }), 0);
}

#include <csignal>
#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;
using orvan_common::UniqueFd;

namespace {

constexpr int kRefused = 77;

/** Enters a sandbox in a child and runs `body` there. @return the child's wait status */
int entered(const Options& options, const std::function<int(const Inside&)>& body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const pid_t before = ::getpid();
        const Result<Inside> inside = enter(options);
        if (!inside) {
            std::fputs(inside.error().text().c_str(), stderr);
            ::_exit(inside.error().refused ? kRefused : 78);
        }
        if (::getpid() == before) {
            ::_exit(79);
        }
        ::_exit(body(inside.value()));
    }
    int status = -1;
    if (child > 0) {
        ::waitpid(child, &status, 0);
    }
    return status;
}

#define SKIP_IF_REFUSED(status)                                                                              \
    if (WIFEXITED(status) && WEXITSTATUS(status) == kRefused) {                                              \
        GTEST_SKIP() << "the kernel refuses a sandbox; the reason is above";                                 \
    }

int open_listener(const std::string& text, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const bool good = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return good && ::listen(fd, 4) == 0 ? fd : -1;
}

bool connects(const std::string& text, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM, 0));
    return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

} // namespace

TEST(Enter, ProgramContinuesInTheControllerRole)
{
    const TemporaryDirectory state;
    const int status = entered({state.path(), 2}, [](const Inside& inside) {
        const bool good = in_sandbox() && inside.modules() == 2 &&
                          std::filesystem::exists("/home/orvan/halde/json") &&
                          std::filesystem::exists("/sys/class/net/usb1") && getenv("ORVAN_STATE") != nullptr;
        return good && std::system("reboot") == 0 ? 0 : 1;
    });
    SKIP_IF_REFUSED(status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(read_file(state.path() / "log/calls.log").find(" reboot\n"), std::string::npos);
}

TEST(Enter, OriginalProcessEndsWithTheStatusOfTheInnerOne)
{
    const TemporaryDirectory state;
    const int status = entered({state.path(), 0}, [](const Inside&) { return 23; });
    SKIP_IF_REFUSED(status);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 23);
}

TEST(Enter, OriginalProcessEndsByTheSignalOfTheInnerOne)
{
    const TemporaryDirectory state;
    const int status = entered({state.path(), 0}, [](const Inside&) { return std::raise(SIGTERM); });
    SKIP_IF_REFUSED(status);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(Enter, SandboxEndsWithTheProgram)
{
    const TemporaryDirectory state;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    const int status = entered({state.path(), 0}, [](const Inside&) {
        if (::fork() == 0) {
            ::setsid();
            ::pause();
        }
        return 0;
    });
    SKIP_IF_REFUSED(status);
    writing.reset();
    char byte = 0;
    // The end of the pipe: the remaining process held it as well.
    EXPECT_EQ(read(reading.get(), &byte, 1), 0);
}

TEST(Enter, RoleScopeOpensSocketsInAnotherRoleAndReturns)
{
    const TemporaryDirectory state;
    const int status = entered({state.path(), 2}, [](const Inside& inside) {
        UniqueFd listener;
        {
            const RoleScope scope(inside, Role::module(2));
            if (!scope.entered()) {
                return 1;
            }
            listener.reset(open_listener(module_address(2), module_port(2)));
        }
        if (!listener || open_listener(module_address(2), module_port(2)) >= 0) {
            return 2;
        }
        if (!connects(module_address(2), module_port(2))) {
            return 3;
        }
        const RoleScope none(inside, Role::module(3));
        return none.entered() ? 4 : 0;
    });
    SKIP_IF_REFUSED(status);
    EXPECT_EQ(status, 0);
}

TEST(Enter, FailureLeavesTheCallerWhereItWas)
{
    const TemporaryDirectory state;
    const pid_t before = ::getpid();
    const auto inside = enter({state.path(), 9});
    EXPECT_FALSE(inside.ok());
    EXPECT_FALSE(inside.error().refused);
    EXPECT_EQ(getpid(), before);
    EXPECT_FALSE(in_sandbox());
}

#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "service/notify.h"
#include "support/log_capture.h"
#include <unique_fd.h>

using namespace orvan_service;
using orvan_common::UniqueFd;

namespace {

// A datagram socket bound to a name; a leading '@' makes it abstract.
UniqueFd bound_to(const std::string& name)
{
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    return socket;
}

std::string datagram(const UniqueFd& socket)
{
    char text[100];
    const ssize_t n = ::recv(socket.get(), text, sizeof text, MSG_DONTWAIT);
    return n < 0 ? "nothing came" : std::string(text, static_cast<size_t>(n));
}

} // namespace

TEST(Notify, SendsTheStateToAPath)
{
    const std::string path = ::testing::TempDir() + "orvan-notify-" + std::to_string(::getpid());
    const auto socket = bound_to(path);
    EXPECT_TRUE(notify("READY=1"));
    EXPECT_EQ(datagram(socket), "READY=1");
    ::unlink(path.c_str());
}

TEST(Notify, SendsTheStateToAnAbstractName)
{
    const auto socket = bound_to("@orvan-notify-" + std::to_string(::getpid()));
    EXPECT_TRUE(notify("STOPPING=1"));
    EXPECT_EQ(datagram(socket), "STOPPING=1");
}

TEST(Notify, WithoutAServiceManagerItDoesNothing)
{
    orvan_test::LogCapture log;
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(notify("READY=1"));
    ::setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_FALSE(notify("READY=1"));
    ::setenv("NOTIFY_SOCKET", "relative", 1);
    EXPECT_FALSE(notify("READY=1"));
    EXPECT_TRUE(log.lines().empty());
}

TEST(Notify, ANameTooLongOrAMissingSocketIsLogged)
{
    orvan_test::LogCapture log;
    ::setenv("NOTIFY_SOCKET", ("/" + std::string(200, 'x')).c_str(), 1);
    EXPECT_FALSE(notify("READY=1"));
    ::setenv("NOTIFY_SOCKET", "@orvan-nobody-listens-here", 1);
    EXPECT_FALSE(notify("READY=1"));
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.count(LOG_WARNING, "notify @orvan-nobody-listens-here: Connection refused"), 1u);
}

TEST(Notify, DoesNotWaitForAManagerThatDoesNotRead)
{
    orvan_test::LogCapture log;
    const std::string name = "@orvan-notify-" + std::to_string(::getpid());
    const auto socket = bound_to(name);
    ::alarm(30);
    while (notify("WATCHDOG=1")) {
    }
    ::alarm(0);
    EXPECT_EQ(log.count(LOG_WARNING, "notify " + name + ": Resource temporarily unavailable"), 1u);
}

TEST(WatchdogPeriod, IsThatOfTheEnvironmentForThisProcess)
{
    ::unsetenv("WATCHDOG_PID");
    ::unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(watchdog_period().count(), 0);
    ::setenv("WATCHDOG_USEC", "30000000", 1);
    EXPECT_EQ(watchdog_period(), std::chrono::seconds(30));
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    EXPECT_EQ(watchdog_period(), std::chrono::seconds(30));
    ::setenv("WATCHDOG_PID", std::to_string(::getppid()).c_str(), 1);
    EXPECT_EQ(watchdog_period().count(), 0);
}

TEST(WatchdogPeriod, AValueThatIsNotANumberIsLogged)
{
    orvan_test::LogCapture log;
    ::unsetenv("WATCHDOG_PID");
    for (const std::string text : {"", "0", "-5", "3s", "99999999999999999999"}) {
        ::setenv("WATCHDOG_USEC", text.c_str(), 1);
        EXPECT_EQ(watchdog_period().count(), 0) << text;
        EXPECT_EQ(log.count(LOG_WARNING, "WATCHDOG_USEC is not a number of microseconds: " + text), 1u);
    }
}

#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using orvan_common::UniqueFd;

namespace {

int option(int socket, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(socket, level, name, &value, &size);
    return value;
}

bool machine_has_ipv6()
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const UniqueFd socket(::socket(AF_INET6, SOCK_STREAM, 0));
    return ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

void set_listen_variables(const std::string& pid, const std::string& fds)
{
    ::setenv("LISTEN_PID", pid.c_str(), 1);
    ::setenv("LISTEN_FDS", fds.c_str(), 1);
}

std::string complaint_of_inherited_listeners()
{
    try {
        inherited_listeners();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no complaint";
}

} // namespace

TEST(Listeners, AnAddressOpensOneListeningSocketThatNoChildInherits)
{
    const auto listeners = open_listeners("127.0.0.1", 0);
    ASSERT_EQ(listeners.size(), 1u);
    const int fd = listeners[0].get();
    EXPECT_EQ(option(fd, SOL_SOCKET, SO_ACCEPTCONN), 1);
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(local_address(fd), "127.0.0.1:" + std::to_string(local_port(fd)));
}

TEST(Listeners, WithoutAnAddressThereIsOneSocketForEachFamilyOnOnePort)
{
    LogCapture log;
    const auto listeners = open_listeners("", 0);
    EXPECT_EQ(option(listeners.at(0).get(), SOL_SOCKET, SO_DOMAIN), AF_INET);
    if (!machine_has_ipv6()) {
        EXPECT_EQ(listeners.size(), 1u);
        GTEST_SKIP() << "the machine has no IPv6, so only the IPv4 socket could be checked";
    }
    ASSERT_EQ(listeners.size(), 2u);
    EXPECT_EQ(option(listeners[1].get(), SOL_SOCKET, SO_DOMAIN), AF_INET6);
    EXPECT_EQ(option(listeners[1].get(), IPPROTO_IPV6, IPV6_V6ONLY), 1);
    EXPECT_EQ(local_port(listeners[0].get()), local_port(listeners[1].get()));
}

TEST(Listeners, AnIpv6AddressIsTaken)
{
    if (!machine_has_ipv6()) {
        GTEST_SKIP() << "the machine has no IPv6";
    }
    const auto listeners = open_listeners("::1", 0);
    EXPECT_EQ(local_address(listeners.at(0).get()).substr(0, 6), "[::1]:");
}

TEST(Listeners, APeersAddressIsKnownWhileItIsConnected)
{
    const TcpPair pair("127.0.0.5");
    EXPECT_EQ(peer_address(pair.server()), "127.0.0.5:" + std::to_string(local_port(pair.client())));
    const UniqueFd alone(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(peer_address(alone.get()), "?");
}

TEST(Listeners, TheErrorForAPortInUseNamesThePort)
{
    const auto taken = open_listeners("127.0.0.1", 0);
    const auto port = static_cast<uint16_t>(local_port(taken[0].get()));
    try {
        open_listeners("127.0.0.1", port);
        FAIL() << "two sockets on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(),
                  "cannot listen on 127.0.0.1 port " + std::to_string(port) + ": Address already in use");
    }
}

TEST(Listeners, AHostNameIsRefused)
{
    EXPECT_THROW(open_listeners("localhost", 0), std::runtime_error);
    EXPECT_THROW(open_listeners("127.0.0", 0), std::runtime_error);
}

// A private address: an instrument may use the usual ports of 127.0.0.1.
class ListenersOnUsualPorts : public ::testing::Test {
protected:
    const std::string address =
        "127.5." + std::to_string(::getpid() / 250 % 250) + "." + std::to_string(1 + ::getpid() % 250);
    const LogCapture log;
};

TEST_F(ListenersOnUsualPorts, ThePortOfTheSettingsIsUsed)
{
    const int port = port_of(open_listeners(address, 0).front().get()); // free again
    EXPECT_EQ(local_address(open_listeners_of_settings(address, static_cast<uint16_t>(port)).at(0).get()),
              address + ":" + std::to_string(port));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ListenersOnUsualPorts, TheUsualPortReplacesPortZero)
{
    EXPECT_EQ(local_address(open_listeners_of_settings(address, 0).at(0).get()), address + ":5025");
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{
                               {LOG_ERR, "SCPI port 0 of the settings is not set; using 5025 instead"}}));
}

TEST_F(ListenersOnUsualPorts, TheUsualPortReplacesAPortInUse)
{
    const auto other = open_listeners(address, 0);
    const std::string port = std::to_string(port_of(other.front().get()));
    EXPECT_EQ(local_address(
                  open_listeners_of_settings(address, static_cast<uint16_t>(std::stoi(port))).at(0).get()),
              address + ":5025");
    EXPECT_EQ(
        log.lines(),
        (std::vector<LogLine>{
            {LOG_ERR, "SCPI port " + port + " of the settings cannot be used: cannot listen on " + address +
                          " port " + port + ": Address already in use; using 5025 instead"}}));
}

TEST_F(ListenersOnUsualPorts, FailsWhenTheUsualPortIsInUseToo)
{
    const auto other = open_listeners(address, 5025);
    EXPECT_THROW(open_listeners_of_settings(address, 0), std::runtime_error);
}

TEST_F(ListenersOnUsualPorts, HislipHasItsUsualPort)
{
    EXPECT_EQ(local_address(open_usual_hislip_listeners(address).at(0).get()), address + ":4880");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ListenersOnUsualPorts, WithHislipsUsualPortInUseThereIsNoHislipAndTheLogSaysWhy)
{
    const auto other = open_listeners(address, 4880);
    EXPECT_TRUE(open_usual_hislip_listeners(address).empty());
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{LOG_WARNING, "no HiSLIP: cannot listen on " + address +
                                                                   " port 4880: Address already in use"}}));
}

TEST(InheritedListeners, WithoutVariablesThereAreNone)
{
    ::unsetenv("LISTEN_PID");
    ::unsetenv("LISTEN_FDS");
    EXPECT_TRUE(inherited_listeners().raw.empty());
    ::setenv("LISTEN_FDS", "1", 1);
    EXPECT_TRUE(inherited_listeners().raw.empty());
}

TEST(InheritedListeners, OfAnotherProcessAreIgnored)
{
    set_listen_variables(std::to_string(::getpid() + 1), "1");
    EXPECT_TRUE(inherited_listeners().raw.empty());
    EXPECT_STREQ(::getenv("LISTEN_FDS"), "1");
}

TEST(InheritedListeners, VariablesThatAreNotNumbersAreRefused)
{
    for (const char* bad : {"", "x", "1x", "-1", " 1"}) {
        set_listen_variables(std::to_string(::getpid()), bad);
        EXPECT_EQ(complaint_of_inherited_listeners(), std::string("LISTEN_FDS is not a number: ") + bad);
        set_listen_variables(bad, "1");
        EXPECT_EQ(complaint_of_inherited_listeners(), std::string("LISTEN_PID is not a number: ") + bad);
    }
}

// Each case is a separate process, so descriptors 3 and 4 can be set up as the parent would pass them.
TEST(InheritedListeners, AreTheDescriptorsFromThreeUpAndTheVariablesAreUnset)
{
    const auto made = open_listeners("127.0.0.1", 0);
    const int port = local_port(made[0].get());
    ASSERT_EQ(::dup2(made[0].get(), 3), 3);
    ASSERT_EQ(::dup2(made[0].get(), 4), 4);
    ::fcntl(3, F_SETFD, 0); // it may be the descriptor just created
    set_listen_variables(std::to_string(::getpid()), "2");
    const auto listeners = inherited_listeners();
    ASSERT_EQ(listeners.raw.size(), 2u);
    EXPECT_EQ(listeners.raw[0].get(), 3);
    EXPECT_EQ(listeners.raw[1].get(), 4);
    EXPECT_TRUE(listeners.hislip.empty());
    EXPECT_EQ(local_port(3), port);
    EXPECT_NE(::fcntl(3, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(4, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(3, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(::getenv("LISTEN_PID"), nullptr);
    EXPECT_EQ(::getenv("LISTEN_FDS"), nullptr);
}

TEST(InheritedListeners, ThoseNamedHislipAreForHislip)
{
    const auto made = open_listeners("127.0.0.1", 0);
    for (const int fd : {3, 4, 5, 6, 7}) {
        ASSERT_EQ(::dup2(made[0].get(), fd), fd);
    }
    set_listen_variables(std::to_string(::getpid()), "5");
    ::setenv("LISTEN_FDNAMES", "orvan.socket:hislip::hislip:", 1);
    const auto listeners = inherited_listeners();
    ASSERT_EQ(listeners.raw.size(), 3u);
    EXPECT_EQ(listeners.raw[0].get(), 3);
    EXPECT_EQ(listeners.raw[1].get(), 5);
    EXPECT_EQ(listeners.raw[2].get(), 7);
    ASSERT_EQ(listeners.hislip.size(), 2u);
    EXPECT_EQ(listeners.hislip[0].get(), 4);
    EXPECT_EQ(listeners.hislip[1].get(), 6);
    EXPECT_NE(::fcntl(6, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(::getenv("LISTEN_FDNAMES"), nullptr);
}

TEST(InheritedListeners, EachDescriptorNeedsANameIfAnyHasOne)
{
    set_listen_variables(std::to_string(::getpid()), "2");
    for (const char* bad : {"hislip", "hislip:raw:raw"}) {
        ::setenv("LISTEN_FDNAMES", bad, 1);
        EXPECT_EQ(complaint_of_inherited_listeners(),
                  std::string("LISTEN_FDNAMES does not have 2 names: ") + bad);
    }
}

TEST(InheritedListeners, ADescriptorThatDoesNotListenIsRefused)
{
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(::dup2(socket.get(), 3), 3);
    set_listen_variables(std::to_string(::getpid()), "1");
    EXPECT_EQ(complaint_of_inherited_listeners(), "descriptor 3 of LISTEN_FDS is not a listening socket");
}

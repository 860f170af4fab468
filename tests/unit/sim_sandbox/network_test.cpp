#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;
using orvan_common::UniqueFd;

namespace {

sockaddr_in address_of(const std::string& text, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

/** A listening socket in a role; the test accepts on it from outside. */
UniqueFd listen_in(Sandbox& sandbox, Role role, const std::string& text, int port)
{
    Result<UniqueFd> fd = sandbox.make_descriptor(role, [&] {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = address_of(text, port);
        const bool good = ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        return good && ::listen(listener, 4) == 0 ? listener : -1;
    });
    EXPECT_TRUE(fd.ok()) << (fd ? "" : fd.error().text());
    return fd ? std::move(*fd) : UniqueFd();
}

/** errno of a connection made in a role within a second; 0 on success, ETIMEDOUT without an answer. */
int connect_from(Sandbox& sandbox, Role role, const std::string& text, int port)
{
    const Result<int> code = sandbox.run(role, [&] {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        const sockaddr_in address = address_of(text, port);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return 0;
        }
        if (errno != EINPROGRESS) {
            return errno;
        }
        pollfd waiting = {fd, POLLOUT, 0};
        if (::poll(&waiting, 1, 1000) == 0) {
            return ETIMEDOUT;
        }
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
        return error;
    });
    return code ? code.value() : -1;
}

std::string interface_address(Sandbox& sandbox, Role role, const std::string& name)
{
    const Result<UniqueFd> fd =
        sandbox.make_descriptor(role, [] { return ::socket(AF_INET, SOCK_DGRAM, 0); });
    if (!fd) {
        return fd.error().text();
    }
    ifreq request = {};
    std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    if (::ioctl(fd.value().get(), SIOCGIFADDR, &request) != 0) {
        return "none";
    }
    sockaddr_in address = {};
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    char text[INET_ADDRSTRLEN];
    return ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
}

} // namespace

TEST(SandboxNetwork, InterfacesHaveTheInstrumentsAddresses)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    for (int module = 1; module <= 4; ++module) {
        EXPECT_EQ(interface_address(sandbox, Role::controller(), module_interface(module)),
                  "192.168." + std::to_string(6 + module) + ".2");
        EXPECT_EQ(interface_address(sandbox, Role::module(module), "usb0"),
                  "192.168." + std::to_string(6 + module) + ".1");
    }
    EXPECT_EQ(interface_address(sandbox, Role::controller(), "eth0"), "10.0.0.2");
    EXPECT_EQ(interface_address(sandbox, Role::lan(), "eth0"), "10.0.0.1");
    for (int index = 0; index < role_count(4); ++index) {
        EXPECT_EQ(interface_address(sandbox, Role::at(index), "lo"), "127.0.0.1");
    }
}

// A link whose ends have the same number may come up a second late.
TEST(SandboxNetwork, TheTwoEndsOfALinkHaveDifferentNumbers)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    const auto number = [&](Role role, const std::string& name) {
        const Result<int> index =
            sandbox.run(role, [&] { return static_cast<int>(::if_nametoindex(name.c_str())); });
        return index ? index.value() : 0;
    };
    const int lan = number(Role::controller(), kLanInterface);
    EXPECT_GT(lan, 0);
    EXPECT_NE(lan, number(Role::lan(), kLanInterface));
    for (int module = 1; module <= 4; ++module) {
        const int near = number(Role::controller(), module_interface(module));
        EXPECT_GT(near, 0);
        EXPECT_NE(near, number(Role::module(module), kModuleOwnInterface)) << "module " << module;
    }
}

TEST(SandboxNetwork, SubnetsAre24BitsWide)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "PATH=$PATH:/usr/sbin:/sbin; ip -o -4 addr show | awk '{print $2, $4}'"),
              "lo 127.0.0.1/8\neth0 10.0.0.2/24\nusb0 192.168.7.2/24\n");
}

TEST(SandboxNetwork, BothEndsOfTheLanKnowItsBroadcastAddress)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (const Role role : {Role::controller(), Role::lan()}) {
        EXPECT_EQ(shell(sandbox, role,
                        "PATH=$PATH:/usr/sbin:/sbin; ip -o -4 addr show dev eth0 | awk '{print $5, $6}'"),
                  "brd 10.0.0.255\n")
            << role.name();
    }
}

TEST(SandboxNetwork, EachModuleAnswersTheControllerAtItsAddressAndPort)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    for (int module = 1; module <= 4; ++module) {
        const UniqueFd listener =
            listen_in(sandbox, Role::module(module), module_address(module), module_port(module));
        EXPECT_EQ(connect_from(sandbox, Role::controller(), module_address(module), module_port(module)), 0);
        const UniqueFd accepted(::accept(listener.get(), nullptr, nullptr));
        EXPECT_TRUE(accepted);
        EXPECT_EQ(connect_from(sandbox, Role::controller(), module_address(module), 6100), ECONNREFUSED);
    }
}

TEST(SandboxNetwork, ControllerAndLanReachEachOther)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const UniqueFd at_controller = listen_in(sandbox, Role::controller(), "0.0.0.0", kScpiPort);
    const UniqueFd at_lan = listen_in(sandbox, Role::lan(), kLanAddress, 8000);
    EXPECT_EQ(connect_from(sandbox, Role::lan(), kControllerLanAddress, kScpiPort), 0);
    EXPECT_EQ(connect_from(sandbox, Role::controller(), kLanAddress, 8000), 0);
}

TEST(SandboxNetwork, LoopbackWorksInEachRole)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    for (int index = 0; index < role_count(2); ++index) {
        const UniqueFd listener = listen_in(sandbox, Role::at(index), "127.0.0.1", 9000);
        EXPECT_EQ(connect_from(sandbox, Role::at(index), "127.0.0.1", 9000), 0) << Role::at(index).name();
    }
}

TEST(SandboxNetwork, ModulesAreReachableFromTheControllerOnly)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    const UniqueFd first = listen_in(sandbox, Role::module(1), module_address(1), 6001);
    EXPECT_EQ(connect_from(sandbox, Role::lan(), module_address(1), 6001), ENETUNREACH);
    EXPECT_EQ(connect_from(sandbox, Role::module(2), module_address(1), 6001), ENETUNREACH);
}

TEST(SandboxNetwork, NothingReachesTheOutside)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    EXPECT_EQ(connect_from(sandbox, Role::lan(), "198.51.100.1", 80), ENETUNREACH);
    EXPECT_EQ(connect_from(sandbox, Role::module(1), "198.51.100.1", 80), ENETUNREACH);
    // The controller has a route to the LAN, but the LAN forwards nothing.
    EXPECT_EQ(connect_from(sandbox, Role::controller(), "198.51.100.1", 80), ETIMEDOUT);
}

TEST(SandboxNetwork, TwoSandboxesShareNothingButTheirAddresses)
{
    const TemporaryDirectory first_state;
    const TemporaryDirectory second_state;
    START_SANDBOX(first, (Options{first_state.path(), 1}));
    START_SANDBOX(second, (Options{second_state.path(), 1}));
    EXPECT_NE(first.network_id(), second.network_id());
    const UniqueFd listener = listen_in(first, Role::module(1), module_address(1), 6001);
    EXPECT_EQ(connect_from(first, Role::controller(), module_address(1), 6001), 0);
    EXPECT_EQ(connect_from(second, Role::controller(), module_address(1), 6001), ECONNREFUSED);
    shell(first, Role::controller(), "echo mine >/dev/shm/x; echo mine >/home/orvan/halde/config/x");
    EXPECT_EQ(shell(second, Role::controller(), "ls -A /dev/shm /home/orvan/halde/config"),
              "/dev/shm:\n\n/home/orvan/halde/config:\n");
}

TEST(SandboxNetwork, InterfacesOfTheMachineAreUntouched)
{
    const auto names = [] {
        std::string text;
        struct if_nameindex* list = if_nameindex();
        for (struct if_nameindex* entry = list; entry->if_index != 0; ++entry) {
            text += std::string(entry->if_name) + " ";
        }
        if_freenameindex(list);
        return text;
    };
    const std::string names_before = names();
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    EXPECT_EQ(names(), names_before);
}

TEST(SandboxNetwork, DescriptorThatCannotBeCreatedReportsErrno)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const auto fd = sandbox.make_descriptor(Role::lan(), [] {
        errno = EADDRINUSE;
        return -1;
    });
    ASSERT_FALSE(fd.ok());
    EXPECT_EQ(fd.error().code, EADDRINUSE);
}

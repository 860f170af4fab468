// The stand-ins of the scripts that set the host name and the LAN interface.
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

constexpr const char* kAddress = "PATH=$PATH:/usr/sbin:/sbin; ip -o -4 address show dev eth0; ";

std::string machine_name()
{
    char name[256] = {};
    EXPECT_EQ(gethostname(name, sizeof name - 1), 0);
    return name;
}

/** The output of a call, followed by its exit status. */
std::string outcome(Sandbox& sandbox, const std::string& call, Role role = Role::controller())
{
    return shell(sandbox, role, call + "; echo $?");
}

/** The six words of he_get_net_config.sh, without the hardware address. */
std::string network(Sandbox& sandbox)
{
    return shell(sandbox, Role::controller(), "he_get_net_config.sh | cut -d' ' -f1-5");
}

std::string last_call(const TemporaryDirectory& state)
{
    std::string lines = read_file(state.path() / "log/calls.log");
    lines.pop_back();
    return lines.substr(lines.rfind('\n') + 1).substr(lines.find(' ') + 1);
}

} // namespace

TEST(HostNameScript, SetsTheSandboxsNameAndLeavesTheMachinesAlone)
{
    const std::string before = machine_name();
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    EXPECT_EQ(outcome(sandbox, "sudo /usr/local/bin/he_set_hostname.sh OVX3651P-230042"), "0\n");
    for (const Role role : {Role::controller(), Role::lan(), Role::module(1)}) {
        EXPECT_EQ(shell(sandbox, role, "hostname"), "OVX3651P-230042\n");
    }
    EXPECT_EQ(machine_name(), before);
    EXPECT_EQ(last_call(state), "he_set_hostname.sh OVX3651P-230042");
}

TEST(HostNameScript, AcceptsTheLongestNameAndDots)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (const std::string& name : {std::string("x"), std::string(63, 'h'), std::string("a1.b-2.c")}) {
        EXPECT_EQ(outcome(sandbox, "he_set_hostname.sh " + name), "0\n");
        EXPECT_EQ(shell(sandbox, Role::controller(), "hostname"), name + "\n");
    }
}

TEST(HostNameScript, RefusesInvalidHostNamesAndKeepsTheCurrentOne)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(outcome(sandbox, "he_set_hostname.sh as-it-was"), "0\n");
    const struct {
        std::string arguments;
        std::string complaint;
    } refused[] = {
        {"", "one argument is wanted, the host name; there are 0"},
        {"two words", "one argument is wanted, the host name; there are 2"},
        {"''", "'' is no host name"},
        {"'two words'", "'two words' is no host name"},
        {"-x", "'-x' is no host name"},
        {"x-", "'x-' is no host name"},
        {".x", "'.x' is no host name"},
        {"x.", "'x.' is no host name"},
        {"x..y", "'x..y' is no host name"},
        {"x.-y", "'x.-y' is no host name"},
        {"x-.y", "'x-.y' is no host name"},
        {"x_y", "'x_y' is no host name"},
        {"'x\ny'", "'x\ny' is no host name"},
        {"x\xC3\xA4", "'x\xC3\xA4' is no host name"},
        {std::string(64, 'h'), "a host name has at most 63 characters, this one 64"},
    };
    for (const auto& [arguments, complaint] : refused) {
        EXPECT_EQ(outcome(sandbox, "he_set_hostname.sh " + arguments),
                  "he_set_hostname.sh: " + complaint + "\n1\n");
        EXPECT_EQ(shell(sandbox, Role::controller(), "hostname"), "as-it-was\n") << arguments;
    }
}

TEST(NetworkScript, StaticSetsAddressMaskAndGateway)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const struct {
        const char* arguments;
        const char* network;
    } accepted[] = {
        {"-a 10.0.0.9 -n 255.255.255.0 -g 10.0.0.1", "10.0.0.9 255.255.255.0 10.0.0.1"},
        {"-g 172.16.0.1 -a 172.16.200.7 -n 255.255.0.0", "172.16.200.7 255.255.0.0 172.16.0.1"},
        {"-a 192.168.0.100 -n 255.255.255.0 -g 10.0.0.138", "192.168.0.100 255.255.255.0 10.0.0.138"},
        {"-a 10.0.0.9 -n 255.255.255.252 -g 0.0.0.0", "10.0.0.9 255.255.255.252 0.0.0.0"},
        {"-a 10.0.0.9 -n 255.255.255.255 -g 10.0.0.1", "10.0.0.9 255.255.255.255 10.0.0.1"},
        {"-a 223.255.255.1 -n 128.0.0.0 -g 1.0.0.1", "223.255.255.1 128.0.0.0 1.0.0.1"},
    };
    for (const auto& [arguments, expected] : accepted) {
        const std::string call = std::string("he_orvan_network_config.sh static ") + arguments;
        EXPECT_EQ(outcome(sandbox, "sudo /usr/local/bin/" + call), "0\n") << arguments;
        EXPECT_EQ(last_call(state), call);
        EXPECT_EQ(network(sandbox), std::string("Static eth0 ") + expected + "\n");
    }
}

TEST(NetworkScript, OnlyTheNewAddressIsReachableFromTheLan)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(outcome(sandbox, "he_orvan_network_config.sh static -a 10.0.0.9 -n 255.255.255.0 -g 10.0.0.1"),
              "0\n");
    // A closed port of an existing host refuses at once.
    EXPECT_NE(
        shell(sandbox, Role::lan(), "bash -c 'exec 3<>/dev/tcp/10.0.0.9/9' 2>&1").find("Connection refused"),
        std::string::npos);
    EXPECT_EQ(shell(sandbox, Role::controller(), std::string(kAddress) + "true").find("10.0.0.2/"),
              std::string::npos);
}

TEST(NetworkScript, DynamicAlwaysLeasesTheSameAddressFromThePool)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(outcome(sandbox, "sudo /usr/local/bin/he_orvan_network_config.sh dynamic"), "0\n");
        EXPECT_EQ(network(sandbox), "Dynamic eth0 10.0.0.102 255.255.255.0 10.0.0.1\n");
        EXPECT_EQ(outcome(sandbox, "he_orvan_network_config.sh static -a 10.9.0.9 -n 255.0.0.0 -g 10.0.0.1"),
                  "0\n");
        EXPECT_EQ(network(sandbox), "Static eth0 10.9.0.9 255.0.0.0 10.0.0.1\n");
    }
}

TEST(NetworkScript, TheLeaseDependsOnTheHardwareAddress)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const struct {
        const char* last_byte;
        const char* address;
    } leases[] = {{"00", "10.0.0.100"}, {"63", "10.0.0.199"}, {"64", "10.0.0.100"}, {"ff", "10.0.0.155"}};
    for (const auto& [last_byte, address] : leases) {
        EXPECT_EQ(outcome(sandbox, std::string("PATH=$PATH:/usr/sbin:/sbin; ip link set eth0 address "
                                               "02:00:0a:00:00:") +
                                       last_byte + " && he_orvan_network_config.sh dynamic"),
                  "0\n");
        EXPECT_EQ(network(sandbox), std::string("Dynamic eth0 ") + address + " 255.255.255.0 10.0.0.1\n");
    }
}

TEST(NetworkScript, DynamicFindsNoServerWithoutALinkAndKeepsTheAddress)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(shell(sandbox, Role::lan(), "PATH=$PATH:/usr/sbin:/sbin; ip link set eth0 down"), "");
    EXPECT_EQ(outcome(sandbox, "he_orvan_network_config.sh dynamic"),
              "he_orvan_network_config.sh: no DHCP server answers, eth0 has no link\n1\n");
    EXPECT_EQ(network(sandbox), "NoLink eth0 10.0.0.2 255.255.255.0 10.0.0.1\n");
}

TEST(NetworkScript, RefusesBadArgumentsAndLeavesTheNetworkUnchanged)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string before = network(sandbox);
    const auto with = [](const char* address, const char* mask, const char* gateway) {
        return std::string("static -a '") + address + "' -n '" + mask + "' -g '" + gateway + "'";
    };
    const auto no_address = [](const std::string& text) {
        return "'" + text + "' is no address of a host (-a)";
    };
    const auto no_mask = [](const std::string& text) { return "'" + text + "' is no net mask (-n)"; };
    const auto no_gateway = [](const std::string& text) {
        return "'" + text + "' is no address of a gateway (-g)";
    };
    struct Refused {
        std::string arguments;
        std::string complaint;
    };
    std::vector<Refused> refused = {
        {"", "'' is neither static nor dynamic"},
        {"Dynamic", "'Dynamic' is neither static nor dynamic"},
        {"dynamic now", "unknown argument 'now'"},
        {"static", no_address("")},
        {"static 10.0.0.9", "unknown argument '10.0.0.9'"},
        {"static -x 1", "unknown argument '-x'"},
        {"static -a 10.0.0.9 -n 255.255.255.0", no_gateway("")},
        {"static -a 10.0.0.9 -g 10.0.0.1", no_mask("")},
        {"static -n 255.255.255.0 -g 10.0.0.1", no_address("")},
        {"static -a", "-a needs a value"},
        {"static -a 10.0.0.9 -n 255.255.255.0 -g", "-g needs a value"},
        // An empty field of the settings leaves its option without a value.
        {"static -a  -n 255.255.255.0 -g 10.0.0.1", "unknown argument '255.255.255.0'"},
    };
    for (const char* text : {"", "10.0.0", "10.0.0.0.9", "10.0.0.256", "10.0.0.-1", "10.0.0.09", "10.0.0.9 ",
                             "10..0.9", ".10.0.9", "10.0.9.", "0.0.0.0", "127.0.0.1", "224.0.0.1",
                             "255.255.255.255", "host", "10.0.0.9999999999999999999", "10.0.0.*"}) {
        refused.push_back({with(text, "255.255.255.0", "10.0.0.1"), no_address(text)});
    }
    for (const char* text : {"", "0.0.0.0", "255.0.255.0", "255.255.255.1", "0.255.255.255", "24", "/24"}) {
        refused.push_back({with("10.0.0.9", text, "10.0.0.1"), no_mask(text)});
    }
    for (const char* text : {"", "10.0.0", "224.0.0.1", "10.0.0.256"}) {
        refused.push_back({with("10.0.0.9", "255.255.255.0", text), no_gateway(text)});
    }
    for (const auto& [arguments, complaint] : refused) {
        EXPECT_EQ(outcome(sandbox, "he_orvan_network_config.sh " + arguments),
                  "he_orvan_network_config.sh: " + complaint + "\n1\n")
            << arguments;
    }
    EXPECT_EQ(network(sandbox), before);
}

// The stand-ins are also in the PATH of the suites and of an instrument without a sandbox.
TEST(NetworkScripts, ChangeNothingOutsideASandboxsController)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string before = shell(sandbox, Role::lan(), std::string(kAddress) + "hostname");
    for (const std::string& call :
         {std::string("he_set_hostname.sh x"), std::string("he_orvan_network_config.sh dynamic"),
          std::string("he_orvan_network_config.sh static -a 10.0.0.9 -n 255.255.255.0 -g 10.0.0.1")}) {
        const std::string refusal =
            call.substr(0, call.find(' ')) + ": not on the controller of a sandbox, nothing is changed\n1\n";
        EXPECT_EQ(outcome(sandbox, call, Role::lan()), refusal);
        EXPECT_EQ(outcome(sandbox, "export ORVAN_SANDBOX=1; " + call), refusal);
        EXPECT_EQ(outcome(sandbox, "unset ORVAN_SANDBOX; " + call), refusal);
    }
    EXPECT_EQ(shell(sandbox, Role::lan(), std::string(kAddress) + "hostname"), before);
}

// The search of orvan-maint on private networks.
#include <cstdlib>

#include <gtest/gtest.h>

#include "maintenance_peer.h"
#include "orvan_maint_bench.h"
#include "support/private_network.h"

using namespace orvan_test;

namespace {

constexpr int kPort = 7502;

/** A network with two instruments at this machine's address. */
class MaintSearch : public testing::Test {
protected:
    void SetUp() override
    {
        if (!m_network.refusal().empty()) {
            GTEST_SKIP() << m_network.refusal();
        }
        add_interface("lan0", "10.9.9.1/24");
        second.mac.b[5] = 0x03;
        second.rows['S'] = "241108";
    }

    void TearDown() override
    {
        for (const std::string& name : m_interfaces) {
            EXPECT_EQ(std::system(("ip link del " + name).c_str()), 0);
        }
    }

    void add_interface(const std::string& name, const std::string& address)
    {
        const std::string link = "ip link add " + name + " type veth peer name " + name +
                                 "p && ip link set " + name + "p up && ip link set " + name +
                                 " up && ip addr add " + address + " dev " + name;
        ASSERT_EQ(std::system(link.c_str()), 0);
        m_interfaces.push_back(name);
    }

    static std::vector<std::string> lines_of(const std::string& text)
    {
        std::vector<std::string> lines;
        for (size_t begin = 0; begin < text.size();) {
            const size_t end = text.find('\n', begin);
            lines.push_back(text.substr(begin, end - begin));
            begin = end + 1;
        }
        return lines;
    }

    InstrumentModel first;
    InstrumentModel second;

private:
    PrivateNetwork m_network;
    std::vector<std::string> m_interfaces;
};

bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST_F(MaintSearch, FindsAllInstrumentsAndListsEachOnce)
{
    // Each answers three requests, and each answer arrives twice.
    const MaintenancePeer one(
        first, [](size_t) { return 2; }, kPort);
    const MaintenancePeer two(
        second, [](size_t) { return 2; }, kPort);
    const MaintOutcome outcome = run_maint({"discover", "--wait", "300"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(lines_of(outcome.out).size(), 3U) << outcome.out;
    EXPECT_TRUE(has(outcome.out, "10.9.9.1  02:00:0a:00:00:02  OVX3654B  241107"));
    EXPECT_TRUE(has(outcome.out, "10.9.9.1  02:00:0a:00:00:03  OVX3654B  241108"));
}

TEST_F(MaintSearch, ListsAnInstrumentOnSeveralNetworksOnce)
{
    add_interface("lan1", "10.9.8.1/24");
    MaintenancePeer one(first, {}, kPort);
    const MaintOutcome outcome = run_maint({"discover", "--wait", "300"});
    EXPECT_EQ(lines_of(outcome.out).size(), 2U) << outcome.out;
    one.stop();
    EXPECT_EQ(one.requests.size(), 6U) << "three on each";
}

TEST_F(MaintSearch, SeveralInstrumentsNeedASelection)
{
    const MaintenancePeer one(first, {}, kPort);
    const MaintenancePeer two(second, {}, kPort);
    const MaintOutcome several = run_maint({"set-factory", "--yes", "--serial-number", "1", "--wait", "200"});
    EXPECT_EQ(several.status, 2);
    EXPECT_TRUE(has(several.err, "several instruments answer; choose one:")) << several.err;
    EXPECT_TRUE(has(several.err, "  --mac 02:00:0a:00:00:03  OVX3654B 241108 at 10.9.9.1"));
    EXPECT_TRUE(first.written.empty());
    EXPECT_TRUE(second.written.empty());
    const MaintOutcome named = run_maint({"show", "--mac", "02:00:0a:00:00:03", "--wait", "500"});
    EXPECT_EQ(named.status, 0) << named.err;
    EXPECT_TRUE(has(named.out, "serial number     241108"));
}

TEST_F(MaintSearch, StaysOnTheNamedInterface)
{
    add_interface("lan1", "10.9.8.1/24");
    MaintenancePeer one(first, {}, kPort);
    const MaintOutcome outcome = run_maint({"discover", "--interface", "lan1", "--wait", "300"});
    EXPECT_TRUE(has(outcome.out, "10.9.8.1  02:00:0a:00:00:02")) << outcome.out << outcome.err;
    one.stop();
    EXPECT_EQ(one.requests.size(), 3U);
}

TEST_F(MaintSearch, AnUnusableInterfaceIsDistinguishedFromAMissingOne)
{
    add_interface("dark", "10.9.8.1/24");
    ASSERT_EQ(std::system("ip link set dark down"), 0);
    const MaintOutcome dark = run_maint({"discover", "--interface", "dark"});
    EXPECT_EQ(dark.status, 2);
    EXPECT_TRUE(
        has(dark.err, "interface dark is down, has no IPv4 address or takes no broadcasts; usable: lan0"))
        << dark.err;
    EXPECT_TRUE(
        has(run_maint({"discover", "--interface", "none"}).err, "there is no interface none; usable: lan0"));
    ASSERT_EQ(std::system("ip link set lan0 down"), 0);
    EXPECT_TRUE(has(run_maint({"discover"}).err, "no network interface is up and has an IPv4 address"));
}

TEST_F(MaintSearch, WithoutAnAnswerListsPossibleReasons)
{
    const MaintOutcome outcome = run_maint({"discover", "--wait", "150"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.err.starts_with("orvan-maint: no instrument answers\n")) << outcome.err;
}

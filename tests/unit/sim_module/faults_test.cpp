#include <cerrno>
#include <chrono>
#include <string>

#include <sys/socket.h>

#include "module/faults.h"
#include "module_fixture.h"
#include "support/loopback.h"

using namespace std::chrono_literals;
using sim_module::FaultMode;
using sim_module::Faults;

namespace {

using FaultyModule = ModuleTest;

} // namespace

TEST(Faults, UpSendsTheReplyInOnePieceAtOnce)
{
    const Faults faults;
    EXPECT_TRUE(faults.port_open() && faults.executes() && !faults.ends_connections());
    const auto pieces = faults.shape("abc");
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].bytes, "abc");
    EXPECT_EQ(pieces[0].delay, 0ms);
}

TEST(Faults, EachModeHasANameAndIsFoundByIt)
{
    for (const FaultMode mode : {FaultMode::kUp, FaultMode::kSilent, FaultMode::kRefuse, FaultMode::kClose,
                                 FaultMode::kSlow, FaultMode::kSplit, FaultMode::kLong}) {
        EXPECT_EQ(sim_module::fault_by_name(sim_module::fault_name(mode)), mode);
    }
    EXPECT_EQ(sim_module::fault_by_name("drop"), FaultMode::kClose);
    EXPECT_EQ(sim_module::fault_by_name("drop-connection"), FaultMode::kClose);
    EXPECT_EQ(sim_module::fault_by_name("broken"), std::nullopt);
    EXPECT_EQ(sim_module::fault_name(FaultMode::kClose), "close");
}

TEST(Faults, ALongReplyIsLongerThanAControllersBufferAndEndsAsAReply)
{
    Faults faults;
    faults.set(FaultMode::kLong);
    for (const std::string reply : {"+OK\r\n", "1;+OK\r\n"}) {
        const auto pieces = faults.shape(reply);
        ASSERT_EQ(pieces.size(), 1U);
        EXPECT_EQ(pieces[0].bytes.size(), Faults::kLongReply);
        EXPECT_TRUE(pieces[0].bytes.ends_with("x;+OK\r\n"));
        EXPECT_TRUE(pieces[0].bytes.starts_with(reply.substr(0, reply.size() - 5)));
    }
    const std::string whole(Faults::kLongReply, 'y');
    EXPECT_EQ(faults.shape(whole)[0].bytes, whole);
}

TEST_F(FaultyModule, SilentTakesRequestsAndNeitherExecutesNorAnswersThem)
{
    EXPECT_EQ(control("silent"), "ok");
    const Client client(module());
    client.send(":FREQ 5GHz\r\n");
    EXPECT_TRUE(eventually([&] { return control("requests") == "ok 1"; }));
    EXPECT_EQ(control("log"), "ok 1\n:FREQ 5GHz\\r\\n");
    EXPECT_EQ(orvan_test::read_ready(client.fd()), "");
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(client.ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
}

TEST_F(FaultyModule, RefuseClosesThePortAndUpReopensIt)
{
    const Client open_before(module());
    EXPECT_EQ(open_before.ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(control("refuse"), "ok");
    EXPECT_EQ(control("refuse"), "ok");
    {
        const Client client(module());
        EXPECT_EQ(client.fd(), -1);
        EXPECT_EQ(errno, ECONNREFUSED);
    }
    EXPECT_EQ(open_before.ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(FaultyModule, CloseEndsConnectionsWithoutAReply)
{
    const Client open_before(module());
    EXPECT_EQ(open_before.ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(control("close"), "ok");
    for (int i = 0; i < 20; ++i) {
        const Client client(module());
        client.send(":FREQ 5GHz\r\n");
        EXPECT_TRUE(client.ended_by_peer()) << "a plain end, not a reset";
    }
    const Client says_nothing(module());
    EXPECT_TRUE(says_nothing.ended_by_peer());
    open_before.send(":FREQ 5GHz\r\n");
    EXPECT_TRUE(open_before.ended_by_peer());
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
}

TEST_F(FaultyModule, SlowIsLateForOneClientAndInTimeForTheControlSocket)
{
    EXPECT_EQ(control("slow 300"), "ok");
    const Client client(module());
    const auto start = std::chrono::steady_clock::now();
    client.send(":FREQ 5GHz\r\n:FREQ?\r\n");
    EXPECT_NE(control("status").find("\"mode\":\"slow\",\"delay_ms\":300"), std::string::npos);
    EXPECT_EQ(client.reply(), "+OK\r\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_EQ(client.reply(), "5000000000;+OK\r\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 600ms);
}

TEST_F(FaultyModule, AClientThatLeavesWhileItsReplyIsLateIsForgotten)
{
    EXPECT_EQ(control("slow 200"), "ok");
    {
        const Client client(module());
        client.send(":FREQ?\r\n");
        EXPECT_TRUE(eventually([&] { return control("requests") == "ok 1"; }));
        const linger at_once{1, 0};
        ::setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    EXPECT_TRUE(eventually([&] { return control("status").find("\"connections\":0") != std::string::npos; }));
    // This reply is due after that of the client that left.
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(FaultyModule, SplitSendsTwoSegmentsWithAPause)
{
    EXPECT_EQ(control("split 100"), "ok");
    const Client client(module());
    client.send(":FREQ?\r\n");
    const std::string reply = "1000000000;+OK\r\n";
    EXPECT_EQ(orvan_test::read_exactly(client.fd(), reply.size() / 2), reply.substr(0, reply.size() / 2));
    EXPECT_EQ(client.segments_received(), 1U);
    EXPECT_EQ(client.reply(), reply.substr(reply.size() / 2));
    EXPECT_EQ(client.segments_received(), 2U);
    EXPECT_EQ(client.ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(FaultyModule, LongRepliesMoreThanOneReadOfAController)
{
    EXPECT_EQ(control("long"), "ok");
    const std::string reply = ask(":FREQ?\r\n");
    EXPECT_EQ(reply.size(), 5000U);
    EXPECT_TRUE(reply.starts_with("1000000000;xxx"));
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
}

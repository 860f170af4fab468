// The core and the abort channel, as libtirpc's client sees them.
#include <future>
#include <string>

#include <gtest/gtest.h>

#include "vxi11_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr int kRequest = 64;
constexpr int kAvailable = 16;
constexpr int kErrorAvailable = 4;

class Vxi11ServerTest : public ::testing::Test {
protected:
    /** A client with a link. */
    std::unique_ptr<Vxi11Client> linked(const std::string& from = "127.0.0.1")
    {
        auto client = std::make_unique<Vxi11Client>(vxi11.port(), from);
        EXPECT_EQ(client->create().error, 0);
        return client;
    }
    bool busy()
    {
        return eventually([&] { return vxi11.instrument.at_work() > 0; });
    }

    LogCapture log;
    RunningVxi11 vxi11;
};

} // namespace

TEST_F(Vxi11ServerTest, AnswersAQuery)
{
    const auto client = linked();
    EXPECT_EQ(client->write("FREQ?\n").size, 6u);
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "FREQ?\n"}));
    EXPECT_EQ(client->ask("A?"), "A?\n");
    EXPECT_EQ(client->destroy(), 0);
}

TEST_F(Vxi11ServerTest, CreatesLinksOfInst0Only)
{
    Vxi11Client client(vxi11.port());
    const Create_LinkResp first = client.create("inst0");
    EXPECT_EQ(first.error, 0);
    EXPECT_GT(first.abortPort, 0);
    EXPECT_NE(first.abortPort, vxi11.port());
    EXPECT_EQ(first.maxRecvSize, 1048576u);
    const Create_LinkResp second = client.create("INST0");
    EXPECT_EQ(second.error, 0);
    EXPECT_NE(second.lid, first.lid);
    for (const char* other : {"", "gpib0,0", "inst1", "inst0,1", "inst", "hislip0"}) {
        EXPECT_EQ(client.create(other).error, 3) << other;
    }
}

TEST_F(Vxi11ServerTest, HasLinksFor32AndRefusesTheNext)
{
    Vxi11Client one(vxi11.port());
    for (int i = 0; i < 31; ++i) {
        EXPECT_EQ(one.create().error, 0);
    }
    Vxi11Client other(vxi11.port());
    EXPECT_EQ(other.create().error, 0);
    EXPECT_EQ(one.create().error, 9);
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11: link refused: there are 32"), 1u);
    EXPECT_EQ(other.destroy(), 0);
    EXPECT_EQ(one.create().error, 0);
}

TEST_F(Vxi11ServerTest, ClosedLinksThatStillExecuteAreBoundedToo)
{
    vxi11.instrument.shut();
    Vxi11Client client(vxi11.port());
    int made = 0;
    for (; made < 100 && client.create().error == 0; ++made) {
        EXPECT_EQ(client.write("A").error, 0);
        EXPECT_EQ(client.destroy(), 0);
    }
    EXPECT_EQ(made, 64);
    vxi11.instrument.open();
    EXPECT_TRUE(eventually([&] { return client.create().error == 0; }));
    EXPECT_TRUE(eventually([&] { return vxi11.instrument.texts().size() == 64; }));
}

TEST_F(Vxi11ServerTest, UnknownLinksAreRefusedByEveryProcedure)
{
    const auto owner = linked();
    Vxi11Client client(vxi11.port());
    for (const int link : {owner->link, 0, -1, 12345}) { // another connection's, too
        client.link = link;
        EXPECT_EQ(client.write("A").error, 4);
        EXPECT_EQ(client.read(), (ReadResult{4, 0, ""}));
        EXPECT_EQ(client.read_status(), std::pair(4, 0));
        for (const int procedure : {DEVICE_TRIGGER, DEVICE_CLEAR, DEVICE_REMOTE, DEVICE_LOCAL}) {
            EXPECT_EQ(client.act(static_cast<uint32_t>(procedure)), 4);
        }
        EXPECT_EQ(client.lock(), 4);
        EXPECT_EQ(client.unlock(), 4);
        EXPECT_EQ(client.enable_requests(true, "x"), 4);
        EXPECT_EQ(client.destroy(), 4);
    }
    EXPECT_EQ(owner->ask("A?"), "A?\n");
    EXPECT_EQ(owner->destroy(), 0);
    EXPECT_EQ(owner->destroy(), 4);
}

TEST_F(Vxi11ServerTest, AReadWaitsForTheResponse)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A?").error, 0);
    ASSERT_TRUE(busy());
    auto result = std::async(std::launch::async, [&] { return client->read(); });
    // Others are served meanwhile.
    const auto other = linked();
    EXPECT_EQ(other->read_status(), std::pair(0, 0));
    vxi11.instrument.open();
    EXPECT_EQ(result.get(), (ReadResult{0, 4, "A?\n"}));
}

TEST_F(Vxi11ServerTest, AReadTimesOutAndTheResponseCanBeReadLater)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A?").error, 0);
    const auto begin = Clock::now();
    EXPECT_EQ(client->read(200), (ReadResult{15, 0, ""}));
    EXPECT_GE(Clock::now() - begin, milliseconds(200));
    EXPECT_EQ(client->read(0).error, 15);
    EXPECT_EQ(client->read_status().second, 0); // it was asked, so no -420
    vxi11.instrument.open();
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "A?\n"}));
}

TEST_F(Vxi11ServerTest, ReadingWithNothingAskedIsAnErrorAndTimesOut)
{
    const auto client = linked();
    const auto begin = Clock::now();
    EXPECT_EQ(client->read(100).error, 15);
    EXPECT_GE(Clock::now() - begin, milliseconds(100));
    EXPECT_EQ(client->read_status(), std::pair(0, kErrorAvailable));
    EXPECT_EQ(client->ask(":SYST:ERR?"), "-420,\"Query UNTERMINATED\"\n");
    EXPECT_EQ(client->read_status(), std::pair(0, 0));
}

TEST_F(Vxi11ServerTest, ACommandThatReturnsNothingLeavesAReadUnterminated)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A").error, 0);
    ASSERT_TRUE(busy());
    auto result = std::async(std::launch::async, [&] { return client->read(2000); });
    vxi11.instrument.open();
    EXPECT_EQ(result.get().error, 15);
    EXPECT_EQ(client->ask(":SYST:ERR?"), "-420,\"Query UNTERMINATED\"\n");
}

TEST_F(Vxi11ServerTest, PassesReasonsAndTerminationCharacters)
{
    const auto client = linked();
    EXPECT_EQ(client->write("ABCDEF?").error, 0);
    EXPECT_EQ(client->read(60'000, 2), (ReadResult{0, 1, "AB"}));
    EXPECT_EQ(client->read(60'000, 100, 0, 'D'), (ReadResult{0, 4, "CDEF?\n"})); // the flag is not set
    EXPECT_EQ(client->write("ABCDEF?").error, 0);
    EXPECT_EQ(client->read(60'000, 100, kEndCharSet, 'D'), (ReadResult{0, 2, "ABCD"}));
    EXPECT_EQ(client->read(60'000, 4, kEndCharSet, '\n'), (ReadResult{0, 7, "EF?\n"}));
}

TEST_F(Vxi11ServerTest, EndIsAFlagOfTheWrite)
{
    const auto client = linked();
    EXPECT_EQ(client->write("A", 0).error, 0);
    EXPECT_EQ(client->write("B?", 0).error, 0);
    EXPECT_EQ(client->read(0).error, 15);
    EXPECT_EQ(client->write("", kEnd).error, 0);
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "AB?\n"}));
    EXPECT_EQ(client->write("C?\n", 0).error, 0);
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "C?\n"}));
}

TEST_F(Vxi11ServerTest, AMessageOverTheLimitIsAnErrorInTheQueue)
{
    const auto client = linked();
    const std::string megabyte(1 << 20, 'x');
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client->write(megabyte, 0).error, 0);
    }
    EXPECT_EQ(client->write("?").error, 0);
    EXPECT_EQ(client->ask(":SYST:ERR?"), "-363,\"Input buffer overrun\"\n");
    EXPECT_EQ(vxi11.instrument.texts(), std::vector<std::string>());
}

TEST_F(Vxi11ServerTest, StatusIsPolledWhileACommandRuns)
{
    const auto client = linked();
    EXPECT_EQ(client->write("*SRE 16").error, 0);
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A?").error, 0);
    ASSERT_TRUE(busy());
    EXPECT_EQ(client->read_status(), std::pair(0, 0));
    vxi11.instrument.open();
    EXPECT_TRUE(eventually([&] { return client->read_status().second == (kRequest | kAvailable); }));
    EXPECT_EQ(client->read_status(), std::pair(0, kAvailable)); // a poll clears RQS
    EXPECT_EQ(client->read().data, "A?\n");
    EXPECT_EQ(client->read_status(), std::pair(0, 0));
}

TEST_F(Vxi11ServerTest, ClearsAtOnceWhileACommandRuns)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("OLD?;*ESE 4").error, 0);
    EXPECT_EQ(client->write("OLDER?").error, 0);
    ASSERT_TRUE(busy());
    EXPECT_EQ(client->act(DEVICE_CLEAR), 0);
    EXPECT_EQ(client->write("NEW?").error, 0);
    EXPECT_EQ(client->read(50).error, 15);
    EXPECT_EQ(vxi11.instrument.at_work(), 1u);
    vxi11.instrument.open();
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "NEW?\n"}));
    EXPECT_EQ(client->ask("*ESE?"), "0\n");
    EXPECT_EQ(vxi11.instrument.texts().at(1), "NEW?");
    EXPECT_EQ(client->read_status(), std::pair(0, 0));
}

TEST_F(Vxi11ServerTest, ADeletedLinksMessagesAreExecuted)
{
    auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A").error, 0);
    EXPECT_EQ(client->write("B").error, 0);
    EXPECT_EQ(client->destroy(), 0);
    EXPECT_EQ(client->create().error, 0);
    EXPECT_EQ(client->write("C").error, 0);
    client.reset();
    vxi11.instrument.open();
    EXPECT_TRUE(eventually([&] { return vxi11.instrument.texts().size() == 3; }));
    EXPECT_TRUE(eventually([&] { return vxi11.executor.sessions() == 0; }));
}

TEST_F(Vxi11ServerTest, ALinkEndsWithItsConnection)
{
    auto client = linked();
    EXPECT_EQ(client->create().error, 0);
    EXPECT_EQ(vxi11.executor.sessions(), 2u);
    EXPECT_EQ(client->lock(), 0);
    client->close();
    EXPECT_TRUE(eventually([&] { return vxi11.executor.sessions() == 0; }));
    EXPECT_FALSE(vxi11.locks.exclusive());
}

TEST_F(Vxi11ServerTest, EachLinkHasItsOwnSession)
{
    Vxi11Client client(vxi11.port());
    const int first = client.create().lid;
    const int second = client.create().lid;
    client.link = first;
    EXPECT_EQ(client.write("*ESE 4").error, 0);
    EXPECT_EQ(client.write("A?").error, 0);
    client.link = second;
    EXPECT_EQ(client.ask("*ESE?"), "0\n");
    client.link = first;
    EXPECT_EQ(client.read().data, "A?\n");
    EXPECT_EQ(client.ask("*ESE?"), "4\n");
}

TEST_F(Vxi11ServerTest, AWriteWaitsForRoom)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A").error, 0);
    ASSERT_TRUE(busy());
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(client->write("B").error, 0);
    }
    const Device_WriteResp refused = client->write("C", kEnd, 100);
    EXPECT_EQ(refused.error, 15);
    EXPECT_EQ(refused.size, 0u);
    auto accepted = std::async(std::launch::async, [&] { return client->write("D").error; });
    vxi11.instrument.open();
    EXPECT_EQ(accepted.get(), 0);
    EXPECT_TRUE(eventually([&] { return vxi11.instrument.texts().size() == 18; }));
    EXPECT_EQ(vxi11.instrument.texts().back(), "D");
}

TEST_F(Vxi11ServerTest, AbortEndsAWaitingCall)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A?").error, 0);
    const uint16_t port = client->created.abortPort;
    EXPECT_EQ(abort_link(port, client->link), 0); // nothing waits
    auto result = std::async(std::launch::async, [&] { return client->read(); });
    EXPECT_EQ(abort_link(port, client->link + 1), 4);
    EXPECT_EQ(abort_link(port, client->link, "127.0.0.9"), 4);
    EXPECT_EQ(result.wait_for(milliseconds(20)), std::future_status::timeout);
    // The read may not have arrived yet.
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(abort_link(port, client->link), 0);
        return result.wait_for(milliseconds(0)) == std::future_status::ready;
    }));
    EXPECT_EQ(result.get(), (ReadResult{23, 0, ""}));
    vxi11.instrument.open();
    EXPECT_EQ(client->read(), (ReadResult{0, 4, "A?\n"})); // only the call was ended
}

TEST_F(Vxi11ServerTest, TriggersAndNotesRemoteAndLocal)
{
    const auto client = linked();
    EXPECT_EQ(client->act(DEVICE_TRIGGER), 0);
    EXPECT_TRUE(eventually([&] { return vxi11.instrument.texts() == std::vector<std::string>{"*TRG"}; }));
    EXPECT_EQ(client->act(DEVICE_REMOTE), 0);
    EXPECT_EQ(client->act(DEVICE_LOCAL), 0);
}

TEST_F(Vxi11ServerTest, RefusesDocmd)
{
    const auto client = linked();
    Device_DocmdParms parameters{};
    parameters.lid = client->link;
    parameters.cmd = 0x20000;
    Device_DocmdResp result{};
    EXPECT_EQ(client->call(DEVICE_DOCMD, ::xdr_Device_DocmdParms, parameters, ::xdr_Device_DocmdResp, result),
              RPC_SUCCESS);
    EXPECT_EQ(result.error, 8);
    EXPECT_EQ(result.data_out.data_out_len, 0u);
}

TEST_F(Vxi11ServerTest, KnowsOnlyItsOwnProgramsAndProcedures)
{
    const auto ping = [](XDR*, int*) -> bool_t { return 1; };
    int none = 0;
    EXPECT_EQ(RpcClient(vxi11.port(), DEVICE_CORE).call(NULLPROC, +ping, 0, +ping, none), RPC_SUCCESS);
    EXPECT_EQ(RpcClient(vxi11.port(), DEVICE_CORE).call(21, +ping, 0, +ping, none), RPC_PROCUNAVAIL);
    EXPECT_EQ(RpcClient(vxi11.port(), DEVICE_CORE).call(DEVICE_LOCK, +ping, 0, +ping, none),
              RPC_CANTDECODEARGS);
    EXPECT_EQ(RpcClient(vxi11.port(), DEVICE_INTR).call(30, +ping, 0, +ping, none), RPC_PROGUNAVAIL);
    const uint16_t abort_port = linked()->created.abortPort;
    EXPECT_EQ(RpcClient(abort_port, DEVICE_ASYNC).call(2, +ping, 0, +ping, none), RPC_PROCUNAVAIL);
    EXPECT_EQ(RpcClient(abort_port, DEVICE_ASYNC).call(DEVICE_ABORT, +ping, 0, +ping, none),
              RPC_CANTDECODEARGS);
    EXPECT_EQ(RpcClient(abort_port, DEVICE_CORE).call(DEVICE_ABORT, +ping, 0, +ping, none), RPC_PROGUNAVAIL);
}

TEST_F(Vxi11ServerTest, MayEndWhileACommandRuns)
{
    const auto client = linked();
    vxi11.instrument.shut();
    EXPECT_EQ(client->write("A?").error, 0);
    ASSERT_TRUE(busy());
    vxi11.server.end();
    EXPECT_EQ(client->read().error, -1);
    vxi11.instrument.open();
    EXPECT_TRUE(eventually([&] { return vxi11.executor.sessions() == 0; }));
}

TEST(Vxi11Start, FailsWithALineInTheLog)
{
    LogCapture log;
    Vxi11Options options = RunningVxi11::loopback();
    options.address = "127.0.0.1.5";
    const RunningVxi11 vxi11(options);
    EXPECT_FALSE(vxi11.started);
    EXPECT_EQ(vxi11.port(), 0);
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11 is off: not an IPv4 or IPv6 address: 127.0.0.1.5"), 1u);
}

TEST(Vxi11Start, NeedsIpv4)
{
    LogCapture log;
    Vxi11Options options = RunningVxi11::loopback();
    options.address = "::1";
    EXPECT_FALSE(RunningVxi11(options).started);
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11 is off: it has no IPv6"), 1u);
}

TEST(Vxi11Start, NamesItsPort)
{
    LogCapture log;
    const RunningVxi11 vxi11;
    EXPECT_TRUE(vxi11.started);
    EXPECT_EQ(log.count(LOG_NOTICE, "VXI-11: listening on 127.0.0.1:" + std::to_string(vxi11.port())), 1u);
}

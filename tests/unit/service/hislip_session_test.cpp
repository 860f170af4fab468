// HiSLIP sessions: messages, responses and their ids, as IVI-6.1 has them.
#include <stdexcept>

#include "hislip_fixture.h"

using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr auto kNothing = 200ms; // in which nothing may arrive

class HislipSession : public HislipTest {};

} // namespace

TEST_F(HislipSession, AQueryIsAnsweredWithDataOnly)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.version(), 0x0200);
    EXPECT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
    EXPECT_EQ(client.ask("*IDN?"), "*IDN?\n");
}

TEST_F(HislipSession, AMessageWithoutAQueryHasNoResponse)
{
    HislipClient client(server.port());
    client.write(":FREQ 1e9\n");
    EXPECT_EQ(client.ask("*IDN?\n"), "*IDN?\n");
    EXPECT_EQ(instrument.messages().front().second, ":FREQ 1e9");
    EXPECT_FALSE(client.sync().has_input(kNothing));
}

TEST_F(HislipSession, AResponseHasTheIdOfItsQuery)
{
    HislipClient client(server.port());
    const uint32_t id = client.write(":A?\n");
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, id, ":A?\n"}));
}

TEST_F(HislipSession, MessageIdsWrapAround)
{
    HislipClient client(server.port());
    client.sync().send({7, 0, 0xFFFF'FFFE, ":A?\n"});
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FFFE, ":A?\n"}));
    client.sync().send({7, 1, 0, ":B?\n"});
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0, ":B?\n"}));
    EXPECT_EQ(client.ask_async({21, 0, 0}), (HislipFrame{22, 16, 0, {}}));
    EXPECT_EQ(client.ask_async({21, 0, 0xFFFF'FFFE}), (HislipFrame{22, 0, 0, {}}));
    EXPECT_EQ(client.ask_async({21, 1, 0}), (HislipFrame{22, 0, 0, {}}));
}

TEST_F(HislipSession, AMessageArrivesInAnyPieces)
{
    HislipClient client(server.port());
    const std::string bytes = HislipFrame{6, 0, 0xFFFF'FF00, ":FREQ"}.bytes() +
                              HislipFrame{6, 0, 0xFFFF'FF02, " 1e9;:A"}.bytes() +
                              HislipFrame{7, 0, 0xFFFF'FF04, "?"}.bytes();
    for (const char byte : bytes) {
        client.sync().send_bytes(std::string(1, byte));
    }
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF04, ":FREQ 1e9;:A?\n"}));
}

TEST_F(HislipSession, SeveralMessagesInOnePacketAreAnsweredInTurn)
{
    HislipClient client(server.port());
    client.sync().send_bytes(HislipFrame{7, 0, 0xFFFF'FF00, ":A 1\n"}.bytes() +
                             HislipFrame{7, 0, 0xFFFF'FF02, ":B?\n"}.bytes());
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF02, ":B?\n"}));
}

TEST_F(HislipSession, ALineFeedInTheMidstEndsAMessage)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask(":A 1\n:B?\n"), ":B?\n");
    ASSERT_EQ(instrument.messages().size(), 2u);
    EXPECT_EQ(instrument.messages()[0].second, ":A 1");
}

TEST_F(HislipSession, AResponseBeforeAnotherLineIsInterrupted)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask(":A?\n:B?\n"), ":B?\n");
    EXPECT_EQ(client.ask(":SYST:ERR?\n"), "-410,\"Query INTERRUPTED\"\n");
}

TEST_F(HislipSession, AMessageBeforeTheResponseIsReadInterruptsIt)
{
    HislipClient client(server.port());
    client.write(":A?\n");
    ASSERT_TRUE(client.sync().has_input(20s));
    const uint32_t id = client.write(":B?\n");
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, id - 2, ":A?\n"}));
    EXPECT_EQ(client.sync().receive(), (HislipFrame{13, 0, id, {}}));
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, id, ":B?\n"}));
    EXPECT_EQ(client.async().receive(), (HislipFrame{14, 0, id, {}}));
    client.sync().send({7, 1, id + 2, ":SYST:ERR?\n"});
    EXPECT_EQ(client.sync().receive()->payload, "-410,\"Query INTERRUPTED\"\n");
}

TEST_F(HislipSession, AClientThatTimedOutGetsTheAnswerToItsNextQuery)
{
    HislipClient client(server.port());
    instrument.shut();
    client.write(":SLOW?\n");
    EXPECT_EQ(client.read(50ms), "none");
    client.write(":NEXT?\n");
    instrument.open();
    EXPECT_EQ(client.read(), ":NEXT?\n");
}

TEST_F(HislipSession, InOverlapModeResponsesHaveTheServersIdsAndAreNotInterrupted)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.clear(1), 1);
    client.write(":A?\n");
    client.write(":B?\n");
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF00, ":A?\n"}));
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF02, ":B?\n"}));
    EXPECT_EQ(client.clear(0), 0);
    EXPECT_EQ(client.ask(":C?\n"), ":C?\n");
}

TEST_F(HislipSession, ATriggerIsExecutedInItsTurn)
{
    HislipClient client(server.port());
    client.sync().send({7, 0, 0xFFFF'FF00, ":A 1\n"});
    client.sync().send({12, 0, 0xFFFF'FF02});
    client.sync().send({7, 0, 0xFFFF'FF04, ":B?\n"});
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF04, ":B?\n"}));
    ASSERT_EQ(instrument.messages().size(), 3u);
    EXPECT_EQ(instrument.messages()[1].second, "*TRG");
}

TEST_F(HislipSession, ALongResponseIsSentInMessagesThatTheClientTakes)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask_async({15, 0, 0, std::string("\0\0\0\0\0\0\1\x20", 8)}),
              (HislipFrame{16, 0, 0, std::string("\0\0\0\0\0\x30\0\0", 8)}));
    const std::string query = ":A '" + std::string(400, 'x') + "'?";
    const uint32_t id = client.write(query);
    EXPECT_EQ(client.sync().receive(), (HislipFrame{6, 0, id, query.substr(0, 272)}));
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, id, query.substr(272) + "\n"}));
}

TEST_F(HislipSession, ABlockOfThreeMegabytesArrivesWhole)
{
    HislipClient client(server.port());
    std::string block(3'000'000, '\n');
    const std::string message = ":DATA #73000000" + block;
    client.write(message);
    EXPECT_EQ(client.ask(":A?"), ":A?\n");
    ASSERT_EQ(instrument.messages().size(), 2u);
    EXPECT_EQ(instrument.messages()[0].second, ":DATA #73000000");
    client.sync().send({6, 1, 0xFFFF'FF04, message.substr(0, 1'000'000)});
    client.sync().send({6, 0, 0xFFFF'FF06, message.substr(1'000'000, 100)});
    client.sync().send({7, 0, 0xFFFF'FF08, message.substr(1'000'100) + ";:B?"});
    size_t size = 0;
    for (std::optional<HislipFrame> frame; (frame = client.sync().receive()); size += frame->payload.size()) {
        EXPECT_EQ(frame->parameter, 0xFFFF'FF08);
        if (frame->type == 7) {
            EXPECT_EQ(size + frame->payload.size(), message.size() + 5);
            return;
        }
    }
    FAIL() << "no end";
}

TEST_F(HislipSession, AMessageThatIsTooLongIsQueuedAsAnErrorInAnyNumberOfFrames)
{
    constexpr size_t kLongest = 3'145'727;
    HislipClient client(server.port());
    const std::string fits = ":A '" + std::string(kLongest - 6, 'x') + "'?";
    EXPECT_EQ(client.ask(fits + '\n').size(), kLongest + 1);
    client.write(fits + 'x'); // a byte more than a message may have
    EXPECT_EQ(client.ask(":SYST:ERR?;:SYST:ERR?"), "-363,\"Input buffer overrun\";:SYST:ERR?\n");
    client.sync().send({6, 1, 0xFFFF'FF06, fits});
    client.sync().send({6, 0, 0xFFFF'FF08, fits});
    client.sync().send({7, 0, 0xFFFF'FF0A, "x"});
    client.sync().send({7, 0, 0xFFFF'FF0C, ":SYST:ERR?;:SYST:ERR?"});
    EXPECT_EQ(client.sync().receive()->payload, "-363,\"Input buffer overrun\";:SYST:ERR?\n");
}

TEST_F(HislipSession, WhatAClientSentBeforeItClosedIsExecuted)
{
    HislipClient other(server.port());
    HislipClient client(server.port());
    instrument.shut();
    other.write(":SLOW?\n");
    ASSERT_TRUE(eventually([this] { return instrument.at_work() == 1; }));
    client.sync().send({7, 0, 0xFFFF'FF00, ":A 1\n"});
    client.sync().send({7, 0, 0xFFFF'FF02, ":B?\n"});
    client.sync().send({7, 0, 0xFFFF'FF04, ":C 1\n:D 1\n"});
    client.sync().close();
    client.async().close();
    // The round of the attendant that answers this one also notices the end, but perhaps after it; the next
    // one is answered in a later round.
    other.poll();
    other.poll();
    instrument.open();
    EXPECT_TRUE(eventually([this] { return log.count(LOG_INFO, "hislip 2: gone") == 1; }));
    EXPECT_EQ(instrument.texts(), (std::vector<std::string>{":SLOW?", ":A 1", ":B?", ":C 1", ":D 1"}));
    EXPECT_EQ(other.read(), ":SLOW?\n");
}

TEST_F(HislipSession, AClientThatClosedWaitsForNobodysLock)
{
    HislipClient other(server.port());
    HislipClient client(server.port());
    other.ask_async({4, 1, 0, {}});
    client.write(":A 1\n");
    client.async().close();
    EXPECT_TRUE(client.sync().sees_end());
    EXPECT_EQ(other.ask(":B?\n"), ":B?\n");
    EXPECT_EQ(instrument.texts(), std::vector<std::string>{":B?"});
}

TEST_F(HislipSession, AnExceptionBecomesAnErrorOfTheDevice)
{
    HislipClient client(server.port());
    instrument.answer_with(
        [](int&, const std::string&) -> std::string { throw std::runtime_error("no socket"); });
    client.write(":A?\n");
    EXPECT_TRUE(log.wait_for(LOG_ERR, "hislip 1: no socket"));
    instrument.answer_with({});
    EXPECT_EQ(client.ask(":SYST:ERR?\n"), "-310,\"System error\"\n");
}

TEST_F(HislipSession, EachSessionSelectsItsOwnChannel)
{
    ScriptedInstrument selecting([](int& channel, const std::string& message) {
        if (message.starts_with(":INST ")) {
            channel = message.back() - '0';
            return std::string("+OK\r\n");
        }
        return std::to_string(channel) + ";+OK\r\n";
    });
    RunningHislip own(selecting);
    HislipClient first(own.port());
    HislipClient second(own.port());
    first.write(":INST 2\n");
    second.write(":INST 3\n");
    EXPECT_EQ(first.ask(":FREQ?\n"), "2\n");
    EXPECT_EQ(second.ask(":FREQ?\n"), "3\n");
    EXPECT_EQ(HislipClient(own.port()).ask(":FREQ?\n"), "1\n");
}

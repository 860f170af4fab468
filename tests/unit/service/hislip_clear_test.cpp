// HiSLIP while a command runs: device clear, serial poll, service requests.
#include "hislip_fixture.h"

using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr auto kNothing = 200ms; // in which nothing may arrive

class HislipClear : public HislipTest {
protected:
    /** A message that waits inside the instrument until it is opened. */
    void start_command(HislipClient& client, const std::string& message)
    {
        instrument.shut();
        client.write(message);
        ASSERT_TRUE(eventually([this] { return instrument.at_work() == 1; }));
    }
};

class HislipStatus : public HislipClear {};

} // namespace

TEST_F(HislipClear, IsCompleteWhileACommandRunsAndItsResponseIsDropped)
{
    HislipClient client(server.port());
    start_command(client, ":SLOW?\n");
    EXPECT_EQ(client.clear(), 0);
    EXPECT_EQ(instrument.at_work(), 1u);
    client.write(":NEXT?\n");
    instrument.open();
    EXPECT_EQ(client.read(), ":NEXT?\n");
    EXPECT_FALSE(client.sync().has_input(kNothing));
}

TEST_F(HislipClear, IsCompleteWhileAnotherClientsCommandRuns)
{
    HislipClient slow(server.port());
    HislipClient client(server.port());
    start_command(slow, ":SLOW?\n");
    client.write(":WAITING?\n");
    EXPECT_EQ(client.clear(), 0);
    client.write(":NEXT?\n");
    instrument.open();
    EXPECT_EQ(client.read(), ":NEXT?\n");
    EXPECT_EQ(slow.read(), ":SLOW?\n");
    for (const auto& [channel, message] : instrument.messages()) {
        EXPECT_NE(message, ":WAITING?");
    }
}

TEST_F(HislipClear, DropsTheRestOfTheRunningMessage)
{
    HislipClient client(server.port());
    start_command(client, ":A 1;*ESE 1;:B 2;*ESE 2;:C 3\n");
    EXPECT_EQ(client.clear(), 0);
    instrument.open();
    EXPECT_EQ(client.ask("*ESE?;:NEXT?\n"), "0;:NEXT?\n");
    ASSERT_EQ(instrument.messages().size(), 2u);
    EXPECT_EQ(instrument.messages()[1].second, ":NEXT?");
}

TEST_F(HislipClear, DiscardsWhatIsOnItsWay)
{
    HislipClient client(server.port());
    start_command(client, ":SLOW?\n");
    client.async().send({19});
    EXPECT_EQ(client.async().receive()->type, 23);
    const std::string bytes = HislipFrame{6, 0, 0xFFFF'FF02, ":LOST"}.bytes() +
                              HislipFrame{7, 0, 0xFFFF'FF04, std::string(100'000, 'x')}.bytes() +
                              HislipFrame{12, 0, 0xFFFF'FF06}.bytes() + HislipFrame{8}.bytes();
    client.sync().send_bytes(bytes.substr(0, 30));
    client.sync().send_bytes(bytes.substr(30));
    EXPECT_EQ(client.sync().receive(), (HislipFrame{9, 0, 0, {}}));
    instrument.open();
    client.sync().send({7, 0, 0xFFFF'FF00, ":NEXT?"});
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF00, ":NEXT?\n"}));
    EXPECT_EQ(instrument.messages().size(), 2u);
}

TEST_F(HislipClear, DropsAMessageThatIsNotComplete)
{
    HislipClient client(server.port());
    client.sync().send({6, 0, 0xFFFF'FF00, ":HALF "});
    client.sync().send_bytes(HislipFrame{6, 0, 0xFFFF'FF02, std::string(100, 'x')}.bytes().substr(0, 50));
    client.async().send({19});
    EXPECT_EQ(client.async().receive()->type, 23);
    client.sync().send_bytes(std::string(66, 'x') + HislipFrame{8}.bytes());
    EXPECT_EQ(client.sync().receive()->type, 9);
    client.sync().send({7, 0, 0xFFFF'FF00, ":NEXT?"});
    EXPECT_EQ(client.sync().receive(), (HislipFrame{7, 0, 0xFFFF'FF00, ":NEXT?\n"}));
}

TEST_F(HislipClear, KeepsTheStatusRegistersAndTheErrorQueue)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask("*ESE 36;*ESE 256;*ESE?\n"), "36\n");
    EXPECT_EQ(client.clear(), 0);
    EXPECT_EQ(client.ask("*ESE?;:SYST:ERR?\n"), "36;-222,\"Data out of range\"\n");
}

TEST_F(HislipClear, AThousandTimesWithQueriesBetweenNeverReturnsAStaleResponse)
{
    HislipClient client(server.port());
    for (int i = 0; i < 1000; ++i) {
        const std::string number = std::to_string(i);
        client.write(":LOST" + number + "?\n");
        if (i % 3 != 0) {
            ASSERT_EQ(client.clear(), 0);
        }
        ASSERT_EQ(client.ask(":Q" + number + "?\n"), ":Q" + number + "?\n");
    }
}

TEST_F(HislipStatus, ASerialPollIsAnsweredWhileACommandRuns)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask("*SRE 4;*SRE?\n"), "4\n");
    start_command(client, ":SLOW?\n");
    EXPECT_EQ(client.poll(), 0);
    instrument.open();
    EXPECT_EQ(client.read(), ":SLOW?\n");
}

TEST_F(HislipStatus, MessageAvailableIsSetUntilTheClientHasReadTheResponse)
{
    HislipClient client(server.port());
    client.write(":A?\n");
    ASSERT_TRUE(client.sync().has_input(20s));
    EXPECT_EQ(client.poll(), 16);
    EXPECT_EQ(client.read(), ":A?\n");
    EXPECT_EQ(client.poll(), 0);
}

TEST_F(HislipStatus, AServiceRequestIsSentOnceAndTheSerialPollClearsIt)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask("*SRE 4;*SRE?\n"), "4\n");
    client.write("*ESE 256\n");
    EXPECT_EQ(client.async().receive(), (HislipFrame{20, 68, 0, {}}));
    EXPECT_EQ(client.poll(), 68);
    EXPECT_EQ(client.poll(), 4);
    client.write("*ESE 257\n");
    EXPECT_FALSE(client.async().has_input(kNothing));
}

TEST_F(HislipStatus, TheResponseItselfCanRequestService)
{
    HislipClient client(server.port());
    EXPECT_EQ(client.ask("*SRE 16;*SRE?\n"), "16\n");
    EXPECT_EQ(client.async().receive()->type, 20);
    client.write(":A?\n");
    EXPECT_EQ(client.async().receive(), (HislipFrame{20, 80, 0, {}}));
}

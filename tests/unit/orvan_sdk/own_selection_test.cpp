#include <future>
#include <vector>

#include "orvan_sdk/scpi-parser/scpi_selection.h"
#include "temperature_bench.h"

using namespace orvan_test;
using HaldeElec::Orvan::OwnSelection;

namespace {

/** Channel 1 is what all clients share. */
class OwnSelectionTest : public TemperatureMonitor {
protected:
    OwnSelectionTest() { EXPECT_EQ(ask(":INST 1"), "+OK\r\n"); }

    /** The selection as any other thread sees it. */
    int shared()
    {
        return std::async(std::launch::async, [this] { return orvanx->getSelectedChannel(); }).get();
    }

    /** What the records show: "0100" if channel 2 is selected. */
    std::string shown()
    {
        std::string channels;
        for (int ch = 1; ch <= kMaxChannels; ++ch) {
            channels += record(ch).CHANNEL.Enabled != 0 ? '1' : '0';
        }
        return channels;
    }
};

TEST_F(OwnSelectionTest, CommandsOfItsThreadGoToItsChannel)
{
    {
        const OwnSelection selection(*orvanx, 2);
        EXPECT_EQ(ask(":FREQ 1000000000"), "30.0;+OK\r\n");
        EXPECT_EQ(ask(":INST?"), "2;+OK\r\n");
        EXPECT_EQ(orvanx->get_channelDB(), orvanx->get_channelDB(2));
    }
    EXPECT_EQ(module_of(2).requests().size(), 1u);
    EXPECT_EQ(module_of(1).connections(), 0u);
    EXPECT_EQ(record(2).ANALOGOUTPUT.Frequency, 1e9);
    ask(":POW 7");
    EXPECT_EQ(ask(":INST?"), "1;+OK\r\n");
    EXPECT_EQ(module_of(1).requests().size(), 1u);
    EXPECT_EQ(record(1).ANALOGOUTPUT.Power, 7.0);
    EXPECT_EQ(record(2).ANALOGOUTPUT.Power, 5.0);
}

TEST_F(OwnSelectionTest, InstrumentSelectChangesItAndNotTheSharedOne)
{
    {
        const OwnSelection selection(*orvanx, 2);
        EXPECT_EQ(ask(":INST 4"), "+OK\r\n");
        EXPECT_EQ(selection.channel(), 4);
        EXPECT_EQ(orvanx->getSelectedChannel(), 4);
        EXPECT_EQ(shared(), 1);
        EXPECT_NE(ask(":INST 5"), "+OK\r\n");
        EXPECT_EQ(selection.channel(), 4) << "a refused choice changes nothing";
    }
    EXPECT_EQ(orvanx->getSelectedChannel(), 1);
}

TEST_F(OwnSelectionTest, OtherThreadsKeepTheSharedOne)
{
    const OwnSelection selection(*orvanx, 3);
    EXPECT_EQ(shared(), 1);
    std::async(std::launch::async, [this] {
        orvanx->setSelectedChannel(4);
        const OwnSelection another(*orvanx, 2);
        EXPECT_EQ(orvanx->getSelectedChannel(), 2);
        orvanx->setSelectedChannel(1);
        EXPECT_EQ(another.channel(), 1);
    }).get();
    EXPECT_EQ(orvanx->getSelectedChannel(), 3);
    EXPECT_EQ(shared(), 4);
}

TEST_F(OwnSelectionTest, TheRecordsShowItAndAfterwardsTheSharedOne)
{
    EXPECT_EQ(shown(), "1000");
    {
        const OwnSelection selection(*orvanx, 3);
        EXPECT_EQ(shown(), "0010");
        ask(":INST 2");
        EXPECT_EQ(shown(), "0100");
    }
    EXPECT_EQ(shown(), "1000");
    {
        const OwnSelection selection(*orvanx, 1);
        EXPECT_EQ(shown(), "1000");
        ask(":INST 4");
        EXPECT_EQ(shown(), "0001");
    }
    EXPECT_EQ(shown(), "1000");
    {
        const OwnSelection selection(*orvanx, 4);
        ask(":INST 1");
        EXPECT_EQ(shown(), "1000");
    }
    EXPECT_EQ(shown(), "1000");
}

TEST_F(OwnSelectionTest, ATemperaturePollKeepsTheSharedOne)
{
    const OwnSelection selection(*orvanx, 2);
    own_server.always(ModuleAnswer::reply("42;+OK\r\n"));
    std::async(std::launch::async, [this] { poll(); }).get();
    EXPECT_EQ(own_server.connections(), 1u);
    EXPECT_EQ(module_of(1).connections(), 0u);
    EXPECT_EQ(module_of(2).connections(), 1u);
}

TEST_F(OwnSelectionTest, APollPublishesTheChannelThatItAsksTheInstrumentsServerFor)
{
    std::vector<int> at_server;
    std::vector<int> at_modules;
    own_server.on_request([&](const std::string&) {
        orvanx->setSelectedChannel(4); // a client is faster
        at_server.push_back(orvanx->getPolledChannel());
    });
    for (const int ch : {1, 2, 3, 4}) {
        module_of(ch).on_request(
            [&](const std::string&) { at_modules.push_back(orvanx->getPolledChannel()); });
    }
    own_server.always(ModuleAnswer::reply("42;+OK\r\n"));
    orvanx->setSelectedChannel(3);
    EXPECT_EQ(orvanx->getPolledChannel(), 0);
    poll();
    EXPECT_EQ(orvanx->getPolledChannel(), 0);
    EXPECT_EQ(at_server, std::vector<int>{3});
    EXPECT_EQ(at_modules, (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(text(3, ODT_TEMP), "42");
}

} // namespace

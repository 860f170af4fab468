#include <string>

#include <gmock/gmock.h>

#include "handler_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

class ChannelSelector : public HandlerBench {
protected:
    explicit ChannelSelector(int channels = kMaxChannels) : HandlerBench(channels) {}

    std::string enabled()
    {
        std::string marks;
        for (int channel = 1; channel <= orvanx->getNumberofChannels(); ++channel) {
            marks += record(channel).CHANNEL.Enabled == On ? '1' : '0';
        }
        return marks;
    }
};

TEST_F(ChannelSelector, TakesTheNameAndNumberOfEachChannel)
{
    for (const char* prefix : {":INST CH", ":INST ", ":INST:SEL ch", ":INSTrument:SELect "}) {
        for (int channel = 1; channel <= 4; ++channel) {
            EXPECT_EQ(ask(prefix + std::to_string(channel)), "+OK\r\n");
            EXPECT_EQ(orvanx->getSelectedChannel(), channel) << prefix;
        }
    }
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(ChannelSelector, MarksTheChosenChannelInEveryRecord)
{
    ask(":INST 3");
    EXPECT_EQ(enabled(), "0010");
    ask(":INST CH1");
    EXPECT_EQ(enabled(), "1000");
}

TEST_F(ChannelSelector, AnUnknownChannelIsRefused)
{
    const std::string before = all_bytes();
    EXPECT_EQ(ask(":INST 5"), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-224 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{missing("OrvanX_setChannel", "channel parameter")});
    EXPECT_EQ(ask(":INST"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{missing("OrvanX_setChannel", "channel parameter")});
    EXPECT_EQ(orvanx->getSelectedChannel(), 1);
    EXPECT_EQ(all_bytes(), before);
}

TEST_F(ChannelSelector, TheQueryCorrectsTheMirror)
{
    for (int channel = 1; channel <= 4; ++channel) {
        record(channel).CHANNEL.Enabled = On;
    }
    orvanx->setSelectedChannel(2);
    EXPECT_EQ(ask(":INST?"), "2;+OK\r\n");
    EXPECT_EQ(enabled(), "0100");
}

TEST_F(ChannelSelector, WithoutAServiceNothingIsSelected)
{
    take_service_away();
    EXPECT_EQ(ask(":INST 2"), "+OK\r\n");
    EXPECT_EQ(orvanx->getSelectedChannel(), 1);
    EXPECT_EQ(ask(":INST?"), kExecutionError);
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

class ChannelSelectorOfOne : public ChannelSelector {
protected:
    ChannelSelectorOfOne() : ChannelSelector(1) {}
};

TEST_F(ChannelSelectorOfOne, AChannelThatIsNotInstalledIsAcceptedAndNotMarked)
{
    EXPECT_EQ(ask(":INST 2"), "+OK\r\n");
    EXPECT_EQ(orvanx->getSelectedChannel(), 2);
    EXPECT_EQ(enabled(), "0");
    EXPECT_EQ(ask(":INST?"), "2;+OK\r\n");
}

TEST_F(ChannelSelectorOfOne, AChannelThatIsNotInstalledHasNoMirror)
{
    const std::string before = bytes(1).substr(sizeof(int)); // after the mark of the selection
    for (const char* channel : {"2", "3", "4"}) {
        EXPECT_EQ(ask(std::string(":INST ") + channel), "+OK\r\n");
        EXPECT_EQ(ask(":SYST:COMM:LAN:HOST box"), "+OK\r\n");
        EXPECT_EQ(ask(":FREQ 7"), "+OK\r\n");
    }
    EXPECT_EQ(bytes(1).substr(sizeof(int)), before);
}

} // namespace

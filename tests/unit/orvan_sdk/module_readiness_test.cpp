#include <chrono>

#include "front_end_bench.h"
#include "support/rendezvous.h"

using namespace orvan_test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class ModuleReadiness : public FrontEndBench {
protected:
    std::vector<bool> live() const
    {
        return std::vector<bool>(std::begin(orvanx->m_isLive), std::end(orvanx->m_isLive));
    }

    template <typename Call>
    milliseconds time_of(Call call)
    {
        const auto start = steady_clock::now();
        call();
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    }
};

TEST_F(ModuleReadiness, EveryModuleThatAnswersIsLive)
{
    orvanx->wait_for_channels_ready(4, 5);
    EXPECT_EQ(live(), (std::vector<bool>{true, true, true, true}));
    EXPECT_EQ(module.requests(), std::vector<std::string>(4, "*TST?\r\n"));
}

TEST_F(ModuleReadiness, OnlyTheRequestedChannelsArePolled)
{
    orvanx->wait_for_channels_ready(2, 5);
    EXPECT_EQ(live(), (std::vector<bool>{true, true, false, false}));
    EXPECT_EQ(module.connections(), 2u);
}

TEST_F(ModuleReadiness, AChannelsOwnModuleIsPolled)
{
    const ScriptedModule second("127.0.8.1");
    connect_module(2, second);
    orvanx->wait_for_channels_ready(2, 5);
    EXPECT_EQ(module.connections(), 1u);
    EXPECT_EQ(second.requests(), std::vector<std::string>{"*TST?\r\n"});
}

TEST_F(ModuleReadiness, AnyReplyWithoutAnErrorIsReady)
{
    module.then(ModuleAnswer::reply("1;+OK\r\n")); // a self-test that found faults
    orvanx->wait_for_channels_ready(1, 5);
    EXPECT_TRUE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 1u);
}

TEST_F(ModuleReadiness, AModuleThatClosesAtOnceIsLive)
{
    module.always(ModuleAnswer::close_at_once());
    orvanx->wait_for_channels_ready(1, 5);
    EXPECT_TRUE(orvanx->m_isLive[0]);
}

TEST_F(ModuleReadiness, NumbersOutsideOneToFourDoNothing)
{
    for (int channels : {0, 5, -1}) {
        EXPECT_LT(time_of([&] { orvanx->wait_for_channels_ready(channels, 60); }), std::chrono::seconds(30));
    }
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_EQ(live(), (std::vector<bool>{false, false, false, false}));
}

TEST_F(ModuleReadiness, WithoutTimeNoQueryIsSent)
{
    orvanx->wait_for_channels_ready(4, 0);
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_EQ(live(), (std::vector<bool>{false, false, false, false}));
}

TEST_F(ModuleReadiness, AModuleThatRefusesStaysNotLiveAndIsPolledWithGrowingWaits)
{
    // Polled at 0, 100, 300, 700, 1500, 3100 and 4700 ms: the waits double to 1600 and stay there. A sleep is
    // never shorter than requested, and the last one runs past the deadline.
    module.always(ModuleAnswer::reply("-ERR -330, \"Self-test failed\"\r\n"));
    const milliseconds taken = time_of([&] { orvanx->wait_for_channels_ready(1, 6); });
    EXPECT_FALSE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 7u);
    EXPECT_GE(taken, milliseconds(6300));
}

TEST_F(ModuleReadiness, AModuleThatStartsLaterBecomesLive)
{
    module.then(ModuleAnswer::reply("-ERR\r\n"));
    module.then(ModuleAnswer::reset());
    orvanx->wait_for_channels_ready(1, 10);
    EXPECT_TRUE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 3u);
}

TEST_F(ModuleReadiness, ADeadModuleDoesNotDelayTheOthers)
{
    ScriptedModule dead;
    dead.always(ModuleAnswer::reply("-ERR\r\n"));
    connect_module(1, dead);
    orvanx->wait_for_channels_ready(4, 1);
    EXPECT_EQ(live(), (std::vector<bool>{false, true, true, true}));
    EXPECT_EQ(module.connections(), 3u);
}

TEST_F(ModuleReadiness, AllChannelsArePolledAtOnce)
{
    Rendezvous all(4);
    module.always(ModuleAnswer::reply_after([&] { all.meet(); }, "+OK\r\n"));
    orvanx->wait_for_channels_ready(4, 5);
    EXPECT_TRUE(all.everybody_met());
}

TEST_F(ModuleReadiness, ALiveChannelStaysLiveWhenItsDeadlinePasses)
{
    orvanx->m_isLive[0] = true;
    module.always(ModuleAnswer::reply("-ERR\r\n"));
    orvanx->wait_for_channels_ready(1, 1);
    EXPECT_TRUE(orvanx->m_isLive[0]);
}

} // namespace

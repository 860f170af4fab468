#include "front_end_bench.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "support/rendezvous.h"

using namespace orvan_test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// Reaches the private field: the service has its parser from its construction on, and only a service that
// lost it shows what the calls do without one.
template <ScpiParser* Scpi_Orvanx::*kField>
struct ParserField {
    friend ScpiParser*& parser_of(Scpi_Orvanx& service) { return service.*kField; }
};
ScpiParser*& parser_of(Scpi_Orvanx& service);
template struct ParserField<&Scpi_Orvanx::p_scpi_parser>;

class ModuleService : public FrontEndBench {
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

TEST_F(ModuleService, ThereIsOneObject)
{
    EXPECT_EQ(Scpi_Orvanx::getInstance(), orvanx);
    EXPECT_EQ(logs.count(LOG_USER | LOG_ERR, "Scpi_Orvanx :: getInstance"), 1u);
}

TEST_F(ModuleService, BuildingTheObjectIsLoggedInOrder)
{
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_USER | LOG_ERR, "Scpi_Orvanx :: getInstance"},
                                                  {LOG_INFO, "ScpiParser::init_new_scpi done"},
                                                  {LOG_DEBUG, "Singleton instance created"}}));
}

TEST(ModuleServiceTable, ModuleNListensAtItsOwnAddressAndPort)
{
    LogCapture logs;
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();
    for (int n = 1; n <= 4; ++n) {
        EXPECT_EQ(orvanx->m_orvanXIp[n - 1], "192.168." + std::to_string(6 + n) + ".1");
        EXPECT_EQ(orvanx->m_OrvanXport[n - 1], static_cast<uint32_t>(6000 + n));
    }
    delete orvanx;
    SCPI_Deinit(&scpi_context);
    EXPECT_EQ(logs.count(LOG_DEBUG, "Singleton instance destroy"), 1u);
}

TEST(ModuleServiceTable, FieldsAfterConstruction)
{
    LogCapture logs;
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();
    EXPECT_FALSE(orvanx->get_powerOnRestore());
    EXPECT_EQ(orvanx->getTrigSourceCouple(), 0);
    EXPECT_EQ(orvanx->getNumberofChannels(), 0);
    EXPECT_FALSE(orvanx->isExternalCommand());
    for (bool live : orvanx->m_isLive)
        EXPECT_FALSE(live);
    delete orvanx;
    SCPI_Deinit(&scpi_context);
}

TEST_F(ModuleService, AccessorsKeepWhatTheyAreGivenUnchecked)
{
    orvanx->setSelectedChannel(77);
    EXPECT_EQ(orvanx->getSelectedChannel(), 77);
    orvanx->setTrigSourceCouple(200);
    EXPECT_EQ(orvanx->getTrigSourceCouple(), 200);
    orvanx->setNumberofChannels(-3);
    EXPECT_EQ(orvanx->getNumberofChannels(), -3);
    orvanx->setRfOnOff(true);
    EXPECT_TRUE(orvanx->getRfOnOff());
    orvanx->setScpiPort(5025);
    EXPECT_EQ(orvanx->getScpiPort(), 5025);
    orvanx->set_powerOnRestore(true);
    EXPECT_TRUE(orvanx->get_powerOnRestore());
}

TEST_F(ModuleService, DeviceIsHandedToTheHandlers)
{
    int device = 0;
    orvanx->setDevicePtr(&device);
    EXPECT_EQ(user().ptrDevice, &device);
}

TEST_F(ModuleService, WithoutAParserTheRelaysDoNothing)
{
    logs.clear();
    ScpiParser* const parser = std::exchange(parser_of(*orvanx), nullptr);
    int device = 0;
    char line[] = "*IDN?\n";
    orvanx->setDevicePtr(&device);
    orvanx->connection_abort(client.server());
    EXPECT_EQ(orvanx->sendScpiToNewParser(line, 6), 0);
    EXPECT_FALSE(orvanx->isExternalCommand());
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(orvanx->setCallerSocket(99, 1), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "setCallerSocket: cannot get SCPI"}}));
    parser_of(*orvanx) = parser;
    EXPECT_EQ(user().socket, client.server());
    EXPECT_EQ(user().ptrDevice, nullptr);
}

// ---- waiting for the modules

TEST_F(ModuleService, EveryModuleThatAnswersIsLive)
{
    orvanx->wait_for_channels_ready(4, 5);
    EXPECT_EQ(live(), (std::vector<bool>{true, true, true, true}));
    EXPECT_EQ(module.requests(), std::vector<std::string>(4, "*TST?\r\n"));
}

TEST_F(ModuleService, OnlyTheChannelsAskedForArePolled)
{
    orvanx->wait_for_channels_ready(2, 5);
    EXPECT_EQ(live(), (std::vector<bool>{true, true, false, false}));
    EXPECT_EQ(module.connections(), 2u);
}

TEST_F(ModuleService, AChannelIsPolledAtItsOwnModule)
{
    const ScriptedModule second("127.0.8.1");
    put_module_behind(2, second);
    orvanx->wait_for_channels_ready(2, 5);
    EXPECT_EQ(module.connections(), 1u);
    EXPECT_EQ(second.requests(), std::vector<std::string>{"*TST?\r\n"});
}

TEST_F(ModuleService, AnyReplyWithoutAnErrorIsReady)
{
    module.then(ModuleAnswer::reply("1;+OK\r\n")); // a self-test that found faults
    orvanx->wait_for_channels_ready(1, 5);
    EXPECT_TRUE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 1u);
}

TEST_F(ModuleService, AModuleThatClosesAtOnceIsLive)
{
    module.always(ModuleAnswer::close_at_once());
    orvanx->wait_for_channels_ready(1, 5);
    EXPECT_TRUE(orvanx->m_isLive[0]);
}

TEST_F(ModuleService, NumbersOutsideOneToFourDoNothing)
{
    for (int channels : {0, 5, -1})
        EXPECT_LT(time_of([&] { orvanx->wait_for_channels_ready(channels, 60); }), std::chrono::seconds(30));
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_EQ(live(), (std::vector<bool>{false, false, false, false}));
}

TEST_F(ModuleService, WithoutTimeNoQueryIsSent)
{
    orvanx->wait_for_channels_ready(4, 0);
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_EQ(live(), (std::vector<bool>{false, false, false, false}));
}

TEST_F(ModuleService, AModuleThatRefusesStaysNotLiveAndIsAskedWithGrowingWaits)
{
    // Asked at 0, 100, 300, 700, 1500, 3100 and 4700 ms: the waits double to 1600 and stay there. A sleep is
    // never shorter than asked for, and the last one runs on past the deadline.
    module.always(ModuleAnswer::reply("-ERR -330, \"Self-test failed\"\r\n"));
    const milliseconds taken = time_of([&] { orvanx->wait_for_channels_ready(1, 6); });
    EXPECT_FALSE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 7u);
    EXPECT_GE(taken, milliseconds(6300));
}

TEST_F(ModuleService, AModuleThatComesUpLaterBecomesLive)
{
    module.then(ModuleAnswer::reply("-ERR\r\n"));
    module.then(ModuleAnswer::reset());
    orvanx->wait_for_channels_ready(1, 10);
    EXPECT_TRUE(orvanx->m_isLive[0]);
    EXPECT_EQ(module.connections(), 3u);
}

TEST_F(ModuleService, ADeadModuleDoesNotHoldTheOthersUp)
{
    ScriptedModule dead;
    dead.always(ModuleAnswer::reply("-ERR\r\n"));
    put_module_behind(1, dead);
    orvanx->wait_for_channels_ready(4, 1);
    EXPECT_EQ(live(), (std::vector<bool>{false, true, true, true}));
    EXPECT_EQ(module.connections(), 3u);
}

TEST_F(ModuleService, AllChannelsArePolledAtOnce)
{
    Rendezvous all(4);
    module.always(ModuleAnswer::reply_behind([&] { all.meet(); }, "+OK\r\n"));
    orvanx->wait_for_channels_ready(4, 5);
    EXPECT_TRUE(all.everybody_met());
}

TEST_F(ModuleService, ALiveChannelStaysLiveWhenItsDeadlinePasses)
{
    orvanx->m_isLive[0] = true;
    module.always(ModuleAnswer::reply("-ERR\r\n"));
    orvanx->wait_for_channels_ready(1, 1);
    EXPECT_TRUE(orvanx->m_isLive[0]);
}

} // namespace

#include <utility>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"

using namespace orvan_test;

namespace {

// Reaches the private field: the service has its parser from its construction on, and only a service that
// lost it shows what the calls do without one.
template <ScpiParser* Scpi_Orvanx::*kField>
struct ParserField {
    friend ScpiParser*& parser_of(Scpi_Orvanx& service) { return service.*kField; }
};
ScpiParser*& parser_of(Scpi_Orvanx& service);
template struct ParserField<&Scpi_Orvanx::p_scpi_parser>;

class ModuleService : public FrontEndBench {};

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

TEST(ModuleServiceTable, EachModuleHasItsOwnAddressAndPort)
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
    for (bool live : orvanx->m_isLive) {
        EXPECT_FALSE(live);
    }
    delete orvanx;
    SCPI_Deinit(&scpi_context);
}

TEST_F(ModuleService, AccessorsStoreAnyValueUnchecked)
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

} // namespace

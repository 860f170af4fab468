// What the module service reads from the network and from its modules.
#include <fstream>
#include <sstream>

#include "orvan_sdk/lxi/PersistentData.h"
#include "records_bench.h"

using namespace orvan_test;
using HaldeElec::Orvan::CPersistentData;

namespace {

class ModuleData : public RecordsBench {
protected:
    ModuleData() : RecordsBench(2)
    {
        // The settings never look at the connection handler here.
        static char no_handler;
        persistent = CPersistentData::Init(
            reinterpret_cast<HaldeElec::Orvan::IDeviceConnectionHandler*>(&no_handler), nullptr);
        settings = persistent->getSettings();
        std::strcpy(settings->scpiPort, "5025");
        std::strcpy(settings->dns1, "10.0.0.53");
        std::strcpy(settings->dns2, "10.0.0.54");
        network = persistent->getNetIfConfig();
    }

    void script_prints(const std::string& words)
    {
        files.stand_in_for_sudo("echo \"$*\" >> " + (files.halde() / "calls").string() + "\necho " + words);
    }
    std::string calls() const
    {
        std::ostringstream all;
        all << std::ifstream(files.halde() / "calls").rdbuf();
        return all.str();
    }
    bool network_is_cleared() const
    {
        const HaldeElec::Orvan::sNetCfg_t none = {};
        return std::memcmp(network->addr, none.addr, sizeof none.addr) == 0 && network->gw[0] == 0 &&
               network->mask[0] == 0 && network->mac[0] == 0 && network->nic[0] == 0 && !network->dhcp;
    }
    void fill_network()
    {
        std::strcpy(network->addr, "old");
        network->dhcp = true;
    }

    CPersistentData* persistent;
    HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS* settings;
    HaldeElec::Orvan::sNetCfg_t* network;
};

TEST_F(ModuleData, TheNetworkReachesSettingsAndEveryRecord)
{
    script_prints("Dynamic eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:01");
    EXPECT_EQ(orvanx->network_if_detect(), 0);
    EXPECT_EQ(calls(), "/usr/local/bin/he_get_net_config.sh\n");
    EXPECT_STREQ(network->nic, "eth0");
    EXPECT_STREQ(network->addr, "10.0.0.2");
    EXPECT_STREQ(network->mask, "255.255.255.0");
    EXPECT_STREQ(network->gw, "10.0.0.1");
    EXPECT_STREQ(network->mac, "02:00:00:00:00:01");
    EXPECT_TRUE(network->dhcp);
    for (int channel = 1; channel <= 2; ++channel) {
        EXPECT_EQ(text(channel, ODT_IF_DHCP), "ON");
        EXPECT_EQ(text(channel, ODT_IF_NAME), "eth0");
        EXPECT_EQ(text(channel, ODT_IF_ADDR), "10.0.0.2");
        EXPECT_EQ(text(channel, ODT_IF_MASK), "255.255.255.0");
        EXPECT_EQ(text(channel, ODT_IF_GATE), "10.0.0.1");
        EXPECT_EQ(text(channel, ODT_IF_MAC), "02:00:00:00:00:01");
        EXPECT_EQ(text(channel, ODT_IF_PORT), "5025");
        EXPECT_EQ(text(channel, ODT_IF_DNS1), "10.0.0.53");
        EXPECT_EQ(text(channel, ODT_IF_DNS2), "10.0.0.54");
    }
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_ERR, "[Orvan Service]: Network configuration: Dynamic eth0 10.0.0.2 "
                                              "255.255.255.0 10.0.0.1 02:00:00:00:00:01\n"}}));
}

TEST_F(ModuleData, AnyOtherWordIsAFixedAddress)
{
    for (const char* word : {"Static", "dynamic", "DHCP"}) {
        script_prints(std::string(word) + " eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:01");
        network->dhcp = true;
        EXPECT_EQ(orvanx->network_if_detect(), 0);
        EXPECT_FALSE(network->dhcp) << word;
        EXPECT_EQ(text(1, ODT_IF_DHCP), "OFF") << word;
    }
}

TEST_F(ModuleData, NoLinkIsASuccessWithItsOwnLogLine)
{
    script_prints("NoLink eth0 0.0.0.0 0.0.0.0 0.0.0.0 02:00:00:00:00:01");
    EXPECT_EQ(orvanx->network_if_detect(), 0);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_ERR, "NO LINK detected!.\n"},
                                    {LOG_ERR, "[Orvan Service]: Network configuration: NoLink eth0 0.0.0.0 "
                                              "0.0.0.0 0.0.0.0 02:00:00:00:00:01\n"}}));
    EXPECT_STREQ(network->addr, "0.0.0.0");
    EXPECT_EQ(text(2, ODT_IF_NAME), "eth0");
}

TEST_F(ModuleData, FiveWordsClearTheNetworkAndFail)
{
    fill_network();
    script_prints("Static eth0 10.0.0.2 255.255.255.0 10.0.0.1");
    std::strcpy(settings->scpiPort, "6025");
    EXPECT_EQ(orvanx->network_if_detect(), -1);
    EXPECT_TRUE(network_is_cleared());
    EXPECT_EQ(orvanx->getScpiPort(), 6025); // applied before the script
    EXPECT_EQ(text(1, ODT_IF_NAME), "");
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_ERR, "[Orvan Service]: Invalid network configuration response: Static "
                                          "eth0 10.0.0.2 255.255.255.0 10.0.0.1\n\n"}}));
}

TEST_F(ModuleData, NoWordsClearTheNetworkAndFail)
{
    fill_network();
    script_prints("");
    EXPECT_EQ(orvanx->network_if_detect(), -1);
    EXPECT_TRUE(network_is_cleared());
    EXPECT_EQ(logs.count(LOG_ERR, "[Orvan Service]: Invalid network configuration response: \n\n"), 1u);
}

TEST_F(ModuleData, AFailedScriptLeavesTheNetworkAndLogsNothing)
{
    fill_network();
    files.stand_in_for_sudo("echo Static eth0 1 2 3 4; exit 3");
    std::strcpy(settings->scpiPort, "7025");
    EXPECT_EQ(orvanx->network_if_detect(), -1);
    EXPECT_STREQ(network->addr, "old");
    EXPECT_TRUE(network->dhcp);
    EXPECT_EQ(orvanx->getScpiPort(), 7025);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ModuleData, AWordIsCutTo31Characters)
{
    script_prints("Static eth0 " + std::string(31, 'a') + " m g x");
    EXPECT_EQ(orvanx->network_if_detect(), 0);
    EXPECT_EQ(network->addr, std::string(31, 'a'));
    EXPECT_EQ(text(1, ODT_IF_ADDR), std::string(31, 'a'));
}

TEST_F(ModuleData, APortThatIsNoNumberIsZero)
{
    std::strcpy(settings->scpiPort, "none");
    script_prints("Static eth0 a m g x");
    EXPECT_EQ(orvanx->network_if_detect(), 0);
    EXPECT_EQ(orvanx->getScpiPort(), 0);
    EXPECT_EQ(text(1, ODT_IF_PORT), "none");
}

TEST_F(ModuleData, LoadingTheDatabaseQueriesTheNetwork)
{
    delete orvanx;
    SCPI_Deinit(&scpi_context);
    orvanx = Scpi_Orvanx::getInstance();
    speak_as(client);
    orvanx->setNumberofChannels(1);
    script_prints("Static eth7 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:01");
    EXPECT_EQ(orvanx->load_database(0), 0);
    EXPECT_EQ(text(1, ODT_IF_NAME), "eth7");
    // Its failure is not the database's.
    delete orvanx;
    SCPI_Deinit(&scpi_context);
    orvanx = Scpi_Orvanx::getInstance();
    speak_as(client);
    orvanx->setNumberofChannels(1);
    files.stand_in_for_sudo("exit 1");
    EXPECT_EQ(orvanx->load_database(0), 0);
}

// ---- getModuleData

TEST_F(ModuleData, AModuleGetsFourQueries)
{
    module.then(ModuleAnswer::reply("20260131;+OK\r\n"));
    module.then(ModuleAnswer::reply("1.0.7;+OK\r\n"));
    module.then(ModuleAnswer::reply("1999.0;+OK\r\n"));
    module.then(ModuleAnswer::reply("100MHz;+OK\r\n"));
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(module.requests(), (std::vector<std::string>{":SYST:INF:CAL?\r\n", ":SYST:INF:FPGA?\r\n",
                                                           ":SYST:INF:SCPI?\r\n", ":ROSC:OUTP:FREQ?\r\n"}));
    EXPECT_EQ(text(1, ODT_CALIB_DATE), "20260131");
    EXPECT_EQ(text(1, ODT_FPGA), "1.0.7");
    EXPECT_EQ(text(1, ODT_SCPI), "1999.0");
    EXPECT_EQ(text(1, ODT_REF_OSC_FREQ), "100MHz");
    EXPECT_STREQ(settings->calibrationDate, "20260131");
    EXPECT_STREQ(settings->fpgaVersion, "1.0.7");
    EXPECT_STREQ(settings->scpiRevision, "1999.0");
    EXPECT_EQ(text(2, ODT_FPGA), "");
}

TEST_F(ModuleData, OnlyTheFirstModuleReachesTheSettings)
{
    const ScriptedModule second("127.0.8.1");
    connect_module(2, second);
    std::strcpy(settings->fpgaVersion, "kept");
    EXPECT_TRUE(orvanx->getModuleData(2));
    EXPECT_EQ(second.connections(), 4u);
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_STREQ(settings->fpgaVersion, "kept");
}

TEST_F(ModuleData, ARefusedQueryIsLoggedAndTheOthersContinue)
{
    module.then(ModuleAnswer::reply("-ERR -113, \"Undefined header\";+OK\r\n"));
    module.always(ModuleAnswer::reply("1;+OK\r\n"));
    std::strcpy(settings->calibrationDate, "kept");
    EXPECT_FALSE(orvanx->getModuleData(1));
    EXPECT_EQ(module.connections(), 4u);
    EXPECT_EQ(
        logs.lines(),
        (std::vector<LogLine>{
            {LOG_INFO, "checkOrvanReply: -ERR -113, \"Undefined header\";+OK\r\n"},
            {LOG_ERR, "getModuleData: :SYST:INF:CAL?\r\n reply: -ERR -113, \"Undefined header\";+OK\r\n"}}));
    EXPECT_EQ(text(1, ODT_CALIB_DATE), "");
    EXPECT_STREQ(settings->calibrationDate, "kept");
    EXPECT_EQ(text(1, ODT_FPGA), "1");
}

TEST_F(ModuleData, AValueWithoutASeparatorLosesItsLastByte)
{
    module.always(ModuleAnswer::reply("1.2.3"));
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(text(1, ODT_FPGA), "1.2.");
    EXPECT_STREQ(settings->fpgaVersion, "1.2.");
}

TEST_F(ModuleData, AModuleThatClosesWithoutAReplyYieldsAnEmptyAnswer)
{
    std::strcpy(settings->fpgaVersion, "old");
    module.always(ModuleAnswer::close_mute());
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(logs.count(LOG_ERR, "invalid input: base=ok, buff = ok, size = 0"), 4u);
    EXPECT_STREQ(settings->fpgaVersion, "");
}

TEST_F(ModuleData, ALongAnswerFillsItsFieldsAndIsTerminated)
{
    module.always(ModuleAnswer::reply(std::string(60, 'v') + ";+OK\r\n"));
    std::memset(settings->fpgaVersion, 'x', sizeof settings->fpgaVersion);
    settings->bootDBConfig = 3; // directly after the field
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(settings->fpgaVersion, std::string(30, 'v'));
    EXPECT_EQ(settings->bootDBConfig, 3);
    EXPECT_EQ(text(1, ODT_FPGA), std::string(31, 'v'));
}

TEST_F(ModuleData, LivenessIsIgnored)
{
    orvanx->m_isLive[0] = false;
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(module.connections(), 4u);
}

TEST_F(FrontEndBench, WithoutRecordsAndSettingsAModuleIsStillQueried)
{
    module.always(ModuleAnswer::reply("1;+OK\r\n"));
    EXPECT_TRUE(orvanx->getModuleData(1));
    EXPECT_EQ(module.connections(), 4u);
}

TEST_F(FrontEndBench, WithoutSettingsTheNetworkIsNotQueried)
{
    EXPECT_EQ(CPersistentData::GetInstance(), nullptr);
    EXPECT_EQ(orvanx->network_if_detect(), -1);
}

} // namespace

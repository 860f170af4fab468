#include <gmock/gmock.h>

#include "handler_bench.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "result_tap.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

const std::string kRefusal = "-ERR -222, \"Data out of range\"\r\n";

// ---- handlers that ask the module, mirror the value and make the device follow

struct RoutedRow {
    const char* name;
    const char* command;
    const char* handler;
    const char* missing;   // the parameter in the log
    const char* to_module; // without its line end
    int tag;
    const char* mirrored;
    const char* on_device; // with its value; empty when the device is not called
};

void PrintTo(const RoutedRow& row, std::ostream* out)
{
    *out << row.command;
}

class RoutedSetting : public HandlerBench, public testing::WithParamInterface<RoutedRow> {
protected:
    RoutedSetting()
    {
        orvanx->setSelectedChannel(3);
        connect_module(3, third);
        char other[] = "7"; // is no valid value, and reads as off
        orvanx->update_db(3, GetParam().tag, other, sizeof other);
        if (std::string(GetParam().mirrored) == "OFF") {
            record(3).ANALOGOUTPUT.RfOutput = On;
        }
        before = all_bytes();
    }

    Lines device_calls() const
    {
        return std::string(GetParam().on_device).empty() ? Lines{}
                                                         : Lines{"SetSelectChannel 3", GetParam().on_device};
    }
    std::string operation() const
    {
        const std::string call = GetParam().on_device;
        return call.substr(0, call.find(' '));
    }

    void expect_mirrored_in_third()
    {
        EXPECT_EQ(text(3, GetParam().tag), GetParam().mirrored);
        for (int other : {1, 2, 4}) {
            EXPECT_EQ(bytes(other), before.substr(sizeof(ORVAN_CONFIG) * static_cast<size_t>(other - 1),
                                                  sizeof(ORVAN_CONFIG)));
        }
        EXPECT_NE(all_bytes(), before);
    }

    void expect_communication_error(const std::string& said)
    {
        const bool stood = std::string(GetParam().mirrored) == "OFF";
        orvanx->setRfOnOff(stood);
        EXPECT_EQ(ask(GetParam().command), kCommunicationError);
        EXPECT_EQ(take_errors(), Lines{"-360 Module communication error"});
        EXPECT_EQ(take_error_lines(), Lines{std::string(GetParam().handler) + ": " + said + "\n"});
        EXPECT_THAT(device.calls, IsEmpty());
        EXPECT_EQ(all_bytes(), before);
        EXPECT_EQ(orvanx->getRfOnOff(), stood);
    }

    ScriptedModule third;
    std::string before;
};

TEST_P(RoutedSetting, SetsModuleMirrorAndDevice)
{
    EXPECT_EQ(ask(GetParam().command), "+OK\r\n");
    EXPECT_EQ(third.requests(), Lines{std::string(GetParam().to_module) + "\r\n"});
    EXPECT_EQ(module.connections(), 0u);
    expect_mirrored_in_third();
    EXPECT_EQ(device.calls, device_calls());
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_P(RoutedSetting, ARefusalByTheModuleChangesNothing)
{
    third.always(ModuleAnswer::reply(kRefusal));
    expect_communication_error(kRefusal);
}

TEST_P(RoutedSetting, ADeadModuleChangesNothing)
{
    orvanx->m_OrvanXport[2] = 1; // refuses connections
    expect_communication_error("-ERR Unable to connect");
}

TEST_P(RoutedSetting, ARefusalByTheDeviceIsReportedAfterTheModuleIsSet)
{
    if (operation().empty()) {
        return;
    }
    device.refused.insert(operation());
    EXPECT_EQ(ask(GetParam().command), kExecutionError);
    EXPECT_EQ(third.requests().size(), 1u);
    expect_mirrored_in_third();
    EXPECT_EQ(device.calls, device_calls());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_P(RoutedSetting, TheResultOfSelectingTheChannelIsIgnored)
{
    device.refused.insert("SetSelectChannel");
    EXPECT_EQ(ask(GetParam().command), "+OK\r\n");
    EXPECT_EQ(device.calls, device_calls());
}

TEST_P(RoutedSetting, WithoutADeviceTheModuleIsStillQueried)
{
    put_device(nullptr);
    EXPECT_EQ(ask(GetParam().command), "+OK\r\n");
    EXPECT_EQ(third.requests().size(), 1u);
    expect_mirrored_in_third();
}

TEST_P(RoutedSetting, WithoutAServiceNothingIsQueriedOrRouted)
{
    take_service_away();
    EXPECT_EQ(ask(GetParam().command), "+OK\r\n");
    EXPECT_EQ(third.connections(), 0u);
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

TEST_P(RoutedSetting, AMissingParameterReachesNeitherDeviceNorModule)
{
    const std::string command = GetParam().command;
    EXPECT_EQ(ask(command.substr(0, command.find(' '))), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{std::string(GetParam().handler) +
                                        ": Failed to retrieve a mandatory " + GetParam().missing + "\n"});
    EXPECT_EQ(third.connections(), 0u);
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, RoutedSetting, testing::Values(
    RoutedRow{"OutputOn",     ":OUTP ON",      "OrvanX_setOutputOnOff",     "parameter 0",          ":OUTP ON",                 ODT_RF_OUT,  "ON",       "SetRFOutput 1"},
    RoutedRow{"OutputOff",    ":OUTP:STAT 0",  "OrvanX_setOutputOnOff",     "parameter 0",          ":OUTP OFF",                ODT_RF_OUT,  "OFF",      "SetRFOutput 0"},
    RoutedRow{"TriggerExt",   ":TRIG:SOUR ext","OrvanX_setTriggerSource",   "clk source parameter", ":TRIGger:SOURce EXTernal", ODT_TRG_SRC, "EXTernal", ""},
    RoutedRow{"TriggerBus",   ":TRIG:SOUR BUS","OrvanX_setTriggerSource",   "clk source parameter", ":TRIGger:SOURce BUS",      ODT_TRG_SRC, "BUS",      ""},
    RoutedRow{"TriggerTimer", ":TRIG:SOUR TIM","OrvanX_setTriggerSource",   "clk source parameter", ":TRIGger:SOURce TIMer",    ODT_TRG_SRC, "TIMer",    ""},
    RoutedRow{"TriggerSpi",   ":TRIG:SOUR SPI","OrvanX_setTriggerSource",   "clk source parameter", ":TRIGger:SOURce SPI",      ODT_TRG_SRC, "SPI",      ""},
    RoutedRow{"AmInternal",   ":AM:SOUR INT",  "OrvanX_setAMTriggerSource", "clk source parameter", ":AM:SOURce INTernal",      ODT_AM_SRC,  "INTernal", "SetAMModulationSource 0"},
    RoutedRow{"AmExternal",   ":AM:SOUR external","OrvanX_setAMTriggerSource","clk source parameter",":AM:SOURce EXTernal",     ODT_AM_SRC,  "EXTernal", "SetAMModulationSource 1"},
    RoutedRow{"FmInternal",   ":SOUR:FM:SOUR INT","OrvanX_setFMTriggerSource","clk source parameter",":FM:SOURce INTernal",     ODT_FM_SRC,  "INTernal", "SetFMModulationSource 0"},
    RoutedRow{"FmExternal",   ":FM:SOUR EXT",  "OrvanX_setFMTriggerSource", "clk source parameter", ":FM:SOURce EXTernal",      ODT_FM_SRC,  "EXTernal", "SetFMModulationSource 1"}),
    [](const testing::TestParamInfo<RoutedRow>& row) { return std::string(row.param.name); });
// clang-format on

class OutputHandlers : public HandlerBench {
protected:
    static std::string line(const std::string& handler, const std::string& said)
    {
        return handler + ": " + said + "\n";
    }
};

TEST_F(OutputHandlers, ChoicesNotInTheListAreRefusedLocally)
{
    for (const char* command :
         {":TRIG:SOUR IMM", ":AM:SOUR BUS", ":FM:SOUR 1", ":TRIG:COUP 1", ":TRIG:COUP 5"}) {
        EXPECT_EQ(ask(command), "-ERR -224, \"Illegal parameter value\";+OK\r\n") << command;
        EXPECT_EQ(take_errors(), Lines{"-224 Param 0"}) << command;
    }
    EXPECT_EQ(ask(":OUTP MAYBE"), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_THAT(device.calls, IsEmpty());
}

// ---- RF output

TEST_F(OutputHandlers, OutputStateIsKeptInTheServiceOnceTheModuleAgrees)
{
    orvanx->setRfOnOff(false);
    module.then(ModuleAnswer::reply(kRefusal));
    ask(":OUTP ON");
    EXPECT_FALSE(orvanx->getRfOnOff());
    device.refused.insert("SetRFOutput");
    ask(":OUTP ON");
    EXPECT_TRUE(orvanx->getRfOnOff());
    ask(":OUTP OFF");
    EXPECT_FALSE(orvanx->getRfOnOff());
}

TEST_F(OutputHandlers, WithNoSelectedChannelTheModuleCannotBeReached)
{
    orvanx->setSelectedChannel(0);
    EXPECT_EQ(ask(":OUTP ON"), kCommunicationError);
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(OutputHandlers, TheOutputQueryMakesTheDeviceFollowTheModule)
{
    const struct {
        const char* from_module;
        const char* reply;
        const char* on_device;
        OnOff mirrored;
    } rows[] = {
        {"1;+OK\r\n", "1;+OK\r\n", "SetRFOutput 1", Off}, // mirrored with its success word, which is not "1"
        {"0;+OK\r\n", "0;+OK\r\n", "SetRFOutput 0", Off}, {"1", "1;+OK\r\n", "SetRFOutput 1", On},
        {"ON", "0;+OK\r\n", "SetRFOutput 0", On},         {"10", "1;+OK\r\n", "SetRFOutput 1", Off},
    };
    orvanx->setSelectedChannel(4);
    for (const auto& row : rows) {
        for (OnOff stood : {Off, On}) {
            record(4).ANALOGOUTPUT.RfOutput = stood;
            module.then(ModuleAnswer::reply(row.from_module));
            EXPECT_EQ(ask(":OUTP?"), row.reply) << row.from_module;
            EXPECT_EQ(device.take_calls(), (Lines{"SetSelectChannel 4", row.on_device}));
            EXPECT_EQ(record(4).ANALOGOUTPUT.RfOutput, row.mirrored) << row.from_module;
        }
    }
    EXPECT_EQ(module.requests().front(), ":OUTP?\r\n");
}

TEST_F(OutputHandlers, TheOutputQueryRepliesWithTheParserLibrarysBoolean)
{
    module.then(ModuleAnswer::reply("1;+OK\r\n"));
    module.then(ModuleAnswer::reply("0;+OK\r\n"));
    ResultTap results;
    ask(":OUTP?;:OUTP?");
    EXPECT_EQ(results.calls, (Lines{"SCPI_ResultBool 1", "SCPI_ResultBool 0"}));
}

TEST_F(OutputHandlers, ASilentModuleCountsAsOff)
{
    module.then(ModuleAnswer::close_mute());
    EXPECT_EQ(ask(":OUTP?"), "0;+OK\r\n");
}

TEST_F(OutputHandlers, TheOutputQueryWithoutItsModuleChangesNothing)
{
    const std::string before = all_bytes();
    module.then(ModuleAnswer::reply(kRefusal));
    EXPECT_EQ(ask(":OUTP?"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module communication error"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getOutputOnOff", kRefusal)});
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

TEST_F(OutputHandlers, ARefusalByTheDeviceFollowsTheOutputQuerysReply)
{
    module.always(ModuleAnswer::reply("1;+OK\r\n"));
    device.refused.insert("SetRFOutput");
    EXPECT_EQ(ask(":OUTP?"), "1;" + kExecutionError);
    put_device(nullptr);
    EXPECT_EQ(ask(":OUTP?"), "1;+OK\r\n");
}

TEST_F(OutputHandlers, TheOutputQueryWithoutAServiceIsOff)
{
    take_service_away();
    EXPECT_EQ(ask(":OUTP?"), "0;+OK\r\n");
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(OutputHandlers, AReplyThatCannotBeStoredIsAFailure)
{
    EXPECT_EQ(call_without_user_record(OrvanX_getOutputOnOff), SCPI_RES_ERR);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getOutputOnOff", "Failed to copy output data")});
    EXPECT_THAT(device.calls, IsEmpty());
}

// ---- trigger coupling

TEST_F(OutputHandlers, TriggerCouplingSetsTheDeviceAndReadsBack)
{
    const struct {
        const char* choice;
        int value;
        const char* reads_back;
    } rows[] = {
        {"NONE", 0, "NONE"}, {"4", 3, "4"}, {"0", 0, "NONE"}, {"2", 1, "2"}, {"3", 2, "3"}, {"all", 4, "ALL"},
    };
    const std::string before = all_bytes();
    for (const auto& row : rows) {
        EXPECT_EQ(ask(std::string(":TRIG:COUP ") + row.choice), "+OK\r\n");
        EXPECT_EQ(device.take_calls(), Lines{"SetTriggerCouple 4 " + std::to_string(row.value)});
        EXPECT_EQ(orvanx->getTrigSourceCouple(), row.value);
        EXPECT_EQ(ask(":TRIG:COUP?"), row.reads_back + std::string(";+OK\r\n"));
    }
    EXPECT_EQ(all_bytes(), before);
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(OutputHandlers, ARefusedTriggerCouplingIsNotKept)
{
    device.refused.insert("SetTriggerCouple");
    EXPECT_EQ(ask(":TRIG:COUP ALL"), kExecutionError);
    EXPECT_EQ(orvanx->getTrigSourceCouple(), 0);
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_F(OutputHandlers, TriggerCouplingNeedsDeviceAndService)
{
    put_device(nullptr);
    EXPECT_EQ(ask(":TRIG:COUP 2"), kExecutionError);
    EXPECT_EQ(orvanx->getTrigSourceCouple(), 0);
    put_device(&device);
    take_service_away();
    EXPECT_EQ(ask(":TRIG:COUP 2"), kExecutionError);
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_F(OutputHandlers, TriggerCouplingNeedsItsParameter)
{
    EXPECT_EQ(ask(":TRIG:COUP"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(),
              Lines{line("OrvanX_setTriggerCoupling", "Failed to retrieve a mandatory channel parameter")});
}

TEST_F(OutputHandlers, ATriggerCouplingNotInTheListIsNotSet)
{
    const std::string not_set = "-ERR -220, \"Parameter error\";+OK\r\n";
    orvanx->setTrigSourceCouple(5);
    EXPECT_EQ(ask(":TRIG:COUP?"), not_set);
    EXPECT_EQ(take_errors(), Lines{"-220 trigger source coupling not set"});
    EXPECT_EQ(take_error_lines(),
              Lines{line("OrvanX_getTriggerCoupling", "trigger source coupling not set")});
    orvanx->setTrigSourceCouple(255);
    EXPECT_EQ(ask(":TRIG:COUP?"), not_set);
    orvanx->setTrigSourceCouple(0);
    take_service_away();
    EXPECT_EQ(ask(":TRIG:COUP?"), not_set);
}

// ---- modulation mask

TEST_F(OutputHandlers, TheModulationMaskIsStoredInTheRecordOnly)
{
    orvanx->setSelectedChannel(2);
    EXPECT_EQ(ask(":INT:MOD:ENAB:MASK 4294967295"), "+OK\r\n");
    EXPECT_EQ(record(2).CHANNEL.modulateCfg, 4294967295u);
    EXPECT_EQ(record(1).CHANNEL.modulateCfg, 0u);
    EXPECT_EQ(ask(":MOD:ENAB:MASK #H0F"), "+OK\r\n");
    EXPECT_EQ(record(2).CHANNEL.modulateCfg, 15u);
    EXPECT_EQ(module.connections(), 0u);
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(OutputHandlers, TheModulationMaskNeedsItsParameterAndAService)
{
    const std::string before = all_bytes();
    EXPECT_EQ(ask(":INT:MOD:ENAB:MASK"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(),
              Lines{line("OrvanX_setModulCfg", "Failed to retrieve a mandatory parameter 0")});
    take_service_away();
    EXPECT_EQ(ask(":INT:MOD:ENAB:MASK 1"), kExecutionError);
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

TEST_F(OutputHandlers, TheModulationMaskWithoutAUserRecordIsNotInitialized)
{
    char parameter[] = "5";
    scpi_context.param_list.lex_state = {parameter, parameter, 1};
    EXPECT_EQ(call_without_user_record(OrvanX_setModulCfg), SCPI_RES_ERR);
    scpi_context.param_list.lex_state = {};
    EXPECT_EQ(take_errors(), Lines{"-310 Target is not initialized"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_setModulCfg", "Target is not initialized")});
}

// ---- the module's firmware version

TEST_F(OutputHandlers, TheModulesVersionIsReturnedWithoutItsSuccessWord)
{
    for (const char* query : {":INT:INF:SLAV?", ":INF:SLAV?"}) {
        module.then(ModuleAnswer::reply("2.14;+OK\r\n"));
        EXPECT_EQ(ask(query), "2.14;+OK\r\n");
    }
    module.then(ModuleAnswer::reply("2.15"));
    EXPECT_EQ(ask(":INF:SLAV?"), "2.15;+OK\r\n");
    EXPECT_EQ(module.requests(), Lines(3, ":SYSTem:INFormation:FIRMware?\r\n"));
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(OutputHandlers, TheModulesVersionIsThatOfTheSelectedChannel)
{
    ScriptedModule third;
    connect_module(3, third);
    module.always(ModuleAnswer::reply("1.1;+OK\r\n"));
    third.always(ModuleAnswer::reply("3.3;+OK\r\n"));
    orvanx->setSelectedChannel(3);
    EXPECT_EQ(ask(":INF:SLAV?"), "3.3;+OK\r\n");
    EXPECT_EQ(module.connections(), 0u);
    orvanx->setSelectedChannel(1);
    EXPECT_EQ(ask(":INF:SLAV?"), "1.1;+OK\r\n");
    EXPECT_EQ(third.connections(), 1u);
}

TEST_F(OutputHandlers, TheModulesVersionFailsAsTheModuleDoes)
{
    module.then(ModuleAnswer::reply(kRefusal));
    EXPECT_EQ(ask(":INF:SLAV?"), kCommunicationError);
    EXPECT_EQ(take_errors(), Lines{"-360 Module communication error"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getSlave", kRefusal)});
    module.then(ModuleAnswer::reply(";+OK\r\n"));
    EXPECT_EQ(ask(":INF:SLAV?"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getSlave", "Failed to copy output data")});
}

TEST_F(OutputHandlers, TheModulesVersionWithoutAServiceIsASuccessWithoutAReply)
{
    take_service_away();
    EXPECT_EQ(ask(":INF:SLAV?"), "+OK\r\n");
    EXPECT_EQ(call_without_user_record(OrvanX_getSlave), SCPI_RES_ERR);
    EXPECT_EQ(take_errors(), Lines{"-310 Target is not initialized"});
    EXPECT_EQ(take_error_lines(), Lines{line("OrvanX_getSlave", "Target is not initialized")});
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(OutputHandlers, TriggerCouplingCountsTheInstalledChannels)
{
    orvanx->setNumberofChannels(2);
    EXPECT_EQ(ask(":TRIG:COUP 2"), "+OK\r\n");
    orvanx->setNumberofChannels(4); // as mapped
    EXPECT_EQ(device.calls, Lines{"SetTriggerCouple 2 1"});
}

} // namespace

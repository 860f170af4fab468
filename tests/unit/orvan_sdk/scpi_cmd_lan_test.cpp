#include <gmock/gmock.h>

#include "handler_bench.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "result_tap.h"

using namespace orvan_test;
using HaldeElec::Orvan::sDevArch_t;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kLan = ":SYST:COMM:LAN:";

std::string missing(const std::string& handler, const std::string& what)
{
    return handler + ": Failed to retrieve a mandatory " + what + "\n";
}

std::string not_copied(const std::string& handler)
{
    return handler + ": Failed to copy output data\n";
}

// ---- channel selector

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

TEST_F(ChannelSelector, TakesNameAndNumberOfEachChannel)
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
        EXPECT_EQ(ask(kLan + "HOST box"), "+OK\r\n");
        EXPECT_EQ(ask(":FREQ 7"), "+OK\r\n");
    }
    EXPECT_EQ(bytes(1).substr(sizeof(int)), before);
}

// ---- set handlers with the common shape

struct SetRow {
    const char* command; // with its value
    const char* handler;
    const char* call; // what the device sees
    int tag;          // ODT_NO_TAG: not mirrored
    const char* mirrored;
};

void PrintTo(const SetRow& row, std::ostream* out)
{
    *out << row.command;
}

std::string name_of(const testing::TestParamInfo<SetRow>& info)
{
    return std::string(info.param.handler) + std::to_string(info.index);
}

class SetHandler : public HandlerBench, public testing::WithParamInterface<SetRow> {
protected:
    SetHandler() { orvanx->setSelectedChannel(2); }

    std::string command() const { return kLan + GetParam().command; }
    std::string operation() const
    {
        return std::string(GetParam().call).substr(0, std::string(GetParam().call).find(' '));
    }

    void expect_mirrored(const std::string& before)
    {
        if (GetParam().tag == ODT_NO_TAG) {
            EXPECT_EQ(all_bytes(), before);
            return;
        }
        EXPECT_EQ(text(2, GetParam().tag), GetParam().mirrored);
        EXPECT_NE(bytes(2), before.substr(sizeof(ORVAN_CONFIG), sizeof(ORVAN_CONFIG)));
        for (int other : {1, 3, 4}) {
            EXPECT_EQ(bytes(other), before.substr(sizeof(ORVAN_CONFIG) * static_cast<size_t>(other - 1),
                                                  sizeof(ORVAN_CONFIG)));
        }
    }
};

TEST_P(SetHandler, SetsTheDeviceAndMirrorsInTheSelectedChannel)
{
    const std::string before = all_bytes();
    EXPECT_EQ(ask(command()), "+OK\r\n");
    EXPECT_EQ(device.calls, Lines{GetParam().call});
    expect_mirrored(before);
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(module.connections(), 0u);
}

TEST_P(SetHandler, ARefusedValueIsASuccessAndMirrored)
{
    const std::string before = all_bytes();
    device.refused.insert(operation());
    EXPECT_EQ(ask(command()), "+OK\r\n");
    EXPECT_EQ(device.calls, Lines{GetParam().call});
    expect_mirrored(before);
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_P(SetHandler, WithoutAServiceOnlyTheDeviceIsSet)
{
    const std::string before = all_bytes();
    take_service_away();
    EXPECT_EQ(ask(command()), "+OK\r\n");
    EXPECT_EQ(device.calls, Lines{GetParam().call});
    EXPECT_EQ(all_bytes(), before);
}

TEST_P(SetHandler, AMissingParameterChangesNothing)
{
    const std::string before = all_bytes();
    const std::string header = command().substr(0, command().find(' '));
    EXPECT_EQ(ask(header), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{missing(GetParam().handler, "parameter 0")});
    EXPECT_THAT(device.calls, IsEmpty());
    EXPECT_EQ(all_bytes(), before);
}

TEST_P(SetHandler, WithoutADeviceTheValueIsStillMirrored)
{
    const std::string before = all_bytes();
    put_device(nullptr);
    EXPECT_EQ(ask(command()), "+OK\r\n");
    if (GetParam().tag == ODT_IF_PORT) {
        EXPECT_EQ(all_bytes(), before); // a port counts only once the device was called
    } else {
        expect_mirrored(before);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Lan, SetHandler, testing::Values(
    SetRow{"DHCP ON",               "OrvanX_setDHCP",          "SetDHCP 1",                ODT_IF_DHCP, "ON"},
    SetRow{"IPAD \"300.1.1.1\"",    "OrvanX_setIpAddress",     "SetIPAddress 300.1.1.1",   ODT_IF_ADDR, "300.1.1.1"},
    SetRow{"IPADdress 10.0.0.5",    "OrvanX_setIpAddress",     "SetIPAddress 10.0.0.5",    ODT_IF_ADDR, "10.0.0.5"},
    SetRow{"MASK \"255.255.0.0\"",  "OrvanX_setNetworkMask",   "SetNetMask 255.255.0.0",   ODT_IF_MASK, "255.255.0.0"},
    SetRow{"GAT \"10.0.0.1\"",      "Orvan_setDefaultGateway", "SetGateway 10.0.0.1",      ODT_IF_GATE, "10.0.0.1"},
    SetRow{"HOST \"bench 7\"",      "OrvanX_setHostname",      "SetHostname bench 7",      ODT_HOST,    "bench 7"},
    SetRow{"PORT 5099",             "OrvanX_setPortNumber",    "SetScpiPort 5099",         ODT_IF_PORT, "5099"},
    SetRow{"PORT 70000",            "OrvanX_setPortNumber",    "SetScpiPort 4464",         ODT_IF_PORT, "70000"},
    SetRow{"DNS 1,\"8.8.4.4\"",     "OrvanX_setNetworkDNS",    "SetDNS1 8.8.4.4",          ODT_NO_TAG,  ""},
    SetRow{"DNS 2,\"9.9.9.9\"",     "OrvanX_setNetworkDNS",    "SetDNS2 9.9.9.9",          ODT_NO_TAG,  ""}),
    name_of);
// clang-format on

class LanSettings : public HandlerBench {};

TEST_F(LanSettings, DhcpOffIsMirroredAsOff)
{
    record(1).SYSTEM.DHCP = On;
    EXPECT_EQ(ask(kLan + "DHCP 0"), "+OK\r\n");
    EXPECT_EQ(device.calls, Lines{"SetDHCP 0"});
    EXPECT_EQ(record(1).SYSTEM.DHCP, Off);
}

TEST_F(LanSettings, ATextOf255BytesIsTakenAndOneMoreIsNot)
{
    const std::string longest(255, 'h');
    EXPECT_EQ(ask(kLan + "HOST " + longest), "+OK\r\n");
    EXPECT_EQ(device.take_calls(), Lines{"SetHostname " + longest});
    EXPECT_EQ(text(1, ODT_HOST), std::string(31, 'h'));
    EXPECT_EQ(ask(kLan + "HOST " + longest + "h"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 Param 0"});
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(LanSettings, ASecondExtraParameterIsRefusedAfterExecuting)
{
    EXPECT_EQ(ask(kLan + "HOST a,b"), "-ERR -108, \"Parameter not allowed\";+OK\r\n");
    EXPECT_EQ(device.calls, Lines{"SetHostname a"});
}

TEST_F(LanSettings, ANameServerNeedsItsAddress)
{
    EXPECT_EQ(ask(kLan + "DNS 2"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 1"});
    EXPECT_EQ(take_error_lines(), Lines{missing("OrvanX_setNetworkDNS", "parameter 1")});
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(LanSettings, ThereAreTwoNameServers)
{
    EXPECT_EQ(ask(kLan + "DNS 3,\"8.8.8.8\""), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-224 Param 0"});
    EXPECT_EQ(ask(kLan + "DNS? 0"), "-ERR -224, \"Illegal parameter value\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-224 Param 0"});
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(LanSettings, TheQueryOfANameServerNeedsItsNumber)
{
    EXPECT_EQ(ask(kLan + "DNS?"), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Param 0"});
    EXPECT_EQ(take_error_lines(), Lines{missing("OrvanX_getNetworkDNS", "parameter 0")});
    EXPECT_THAT(device.calls, IsEmpty());
}

// ---- get handlers

// The effect of a failing or missing device: for the usual get handler, and for the three others.
enum class OnFailure { kOwnError, kEmptyReply, kReplyThenOwnError };

struct GetRow {
    const char* query;
    const char* handler;
    const char* call;
    const char* value; // of the device
    const char* reply;
    int tag;
    const char* mirrored;
    OnFailure on_failure = OnFailure::kOwnError;
    bool is_number = false;
};

void PrintTo(const GetRow& row, std::ostream* out)
{
    *out << row.query;
}

std::string name_of_get(const testing::TestParamInfo<GetRow>& info)
{
    return std::string(info.param.handler) + std::to_string(info.index);
}

class GetHandler : public HandlerBench, public testing::WithParamInterface<GetRow> {
protected:
    GetHandler()
    {
        orvanx->setSelectedChannel(2);
        if (GetParam().is_number) {
            device.numbers[operation()] = std::stoi(GetParam().value);
        } else {
            device.texts[operation()] = GetParam().value;
        }
        update_marker();
    }

    std::string operation() const
    {
        return std::string(GetParam().call).substr(0, std::string(GetParam().call).find(' '));
    }

    // The mirror holds another value before.
    void update_marker()
    {
        char marker[] = "7";
        for (int channel = 1; channel <= 4; ++channel) {
            orvanx->update_db(channel, GetParam().tag, marker, sizeof marker);
        }
        m_marked = all_bytes();
    }

    void expect_mirrored()
    {
        EXPECT_EQ(text(2, GetParam().tag), GetParam().mirrored);
        for (int other : {1, 3, 4}) {
            EXPECT_EQ(bytes(other), m_marked.substr(sizeof(ORVAN_CONFIG) * static_cast<size_t>(other - 1),
                                                    sizeof(ORVAN_CONFIG)));
        }
    }

    std::string m_marked;
};

TEST_P(GetHandler, RepliesAndMirrorsInTheSelectedChannel)
{
    EXPECT_EQ(ask(GetParam().query), std::string(GetParam().reply) + ";+OK\r\n");
    EXPECT_EQ(device.calls, Lines{GetParam().call});
    expect_mirrored();
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_EQ(module.connections(), 0u);
}

TEST_P(GetHandler, WithoutAServiceStillReplies)
{
    take_service_away();
    EXPECT_EQ(ask(GetParam().query), std::string(GetParam().reply) + ";+OK\r\n");
    EXPECT_EQ(all_bytes(), m_marked);
}

TEST_P(GetHandler, WithoutADeviceFails)
{
    put_device(nullptr);
    if (GetParam().on_failure == OnFailure::kOwnError) {
        EXPECT_EQ(ask(GetParam().query), kExecutionError);
        EXPECT_EQ(take_errors(), Lines{"-200 "});
        EXPECT_THAT(take_error_lines(), IsEmpty());
    } else {
        EXPECT_EQ(ask(GetParam().query), kTooMuchData);
        EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
        EXPECT_EQ(take_error_lines(), Lines{not_copied(GetParam().handler)});
    }
    EXPECT_EQ(all_bytes(), m_marked);
}

TEST_P(GetHandler, ADeviceThatFailsWithoutAWordIsAFailure)
{
    if (operation() == "GetScpiPort") {
        device.numbers.clear(); // its result does not count
    } else {
        device.refused.insert(operation());
    }
    device.texts.clear();
    if (GetParam().on_failure == OnFailure::kOwnError) {
        EXPECT_EQ(ask(GetParam().query), kExecutionError);
        EXPECT_THAT(take_error_lines(), IsEmpty());
    } else {
        EXPECT_EQ(ask(GetParam().query), kTooMuchData);
        EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
        EXPECT_EQ(take_error_lines(), Lines{not_copied(GetParam().handler)});
    }
    EXPECT_EQ(all_bytes(), m_marked);
}

TEST_P(GetHandler, ADeviceThatFailsAfterAValueIsHandledByItsShape)
{
    device.refused.insert(operation());
    const std::string reply = GetParam().reply;
    if (operation() == "GetScpiPort" || GetParam().on_failure == OnFailure::kEmptyReply) {
        EXPECT_EQ(ask(GetParam().query), reply + ";+OK\r\n");
        expect_mirrored();
    } else if (GetParam().on_failure == OnFailure::kReplyThenOwnError) {
        EXPECT_EQ(ask(GetParam().query), reply + ";" + kExecutionError);
        EXPECT_EQ(all_bytes(), m_marked);
    } else {
        EXPECT_EQ(ask(GetParam().query), kExecutionError);
        EXPECT_EQ(all_bytes(), m_marked);
    }
}

TEST_P(GetHandler, AnEmptyTextIsNoReply)
{
    if (GetParam().is_number) {
        return; // a number is never empty
    }
    device.texts.clear();
    EXPECT_EQ(ask(GetParam().query), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{not_copied(GetParam().handler)});
    if (GetParam().tag == ODT_FPGA) {
        EXPECT_EQ(text(2, ODT_FPGA), ""); // mirrored before the reply
    } else {
        EXPECT_EQ(all_bytes(), m_marked);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Lan, GetHandler, testing::Values(
    GetRow{":SYST:COMM:LAN:DHCP?", "OrvanX_getDHCP",               "GetDHCP",          "1",           "ON",          ODT_IF_DHCP, "ON",  OnFailure::kOwnError, true},
    GetRow{":SYST:COMM:LAN:DHCP?", "OrvanX_getDHCP",               "GetDHCP",          "0",           "OFF",         ODT_IF_DHCP, "OFF", OnFailure::kOwnError, true},
    GetRow{":SYST:COMM:LAN:IPAD?", "OrvanX_getIpAddress",          "GetIPAddress",     "10.0.0.5",    "10.0.0.5",    ODT_IF_ADDR, "10.0.0.5"},
    GetRow{":SYST:COMM:LAN:MASK?", "OrvanX_getNetworkMask",        "GetNetMask",       "255.0.0.0",   "255.0.0.0",   ODT_IF_MASK, "255.0.0.0", OnFailure::kReplyThenOwnError},
    GetRow{":SYST:COMM:LAN:GAT?",  "Orvan_getDefaultGateway",      "GetGateway",       "10.0.0.1",    "10.0.0.1",    ODT_IF_GATE, "10.0.0.1"},
    GetRow{":SYST:COMM:LAN:HOST?", "OrvanX_getHostname",           "GetHostname",      "bench",       "bench",       ODT_HOST,    "bench"},
    GetRow{":SYST:COMM:LAN:PORT?", "OrvanX_getPortNumber",         "GetScpiPort",      "5025",        "5025",        ODT_IF_PORT, "5025", OnFailure::kOwnError, true},
    GetRow{":SYST:COMM:LAN:PORT?", "OrvanX_getPortNumber",         "GetScpiPort",      "65535",       "65535",       ODT_IF_PORT, "65535", OnFailure::kOwnError, true},
    GetRow{":SYST:COMM:LAN:DNS? 1","OrvanX_getNetworkDNS",         "GetDNS1",          "8.8.4.4",     "8.8.4.4",     ODT_IF_DNS1, "8.8.4.4"},
    GetRow{":SYST:COMM:LAN:DNS? 2","OrvanX_getNetworkDNS",         "GetDNS2",          "9.9.9.9",     "9.9.9.9",     ODT_IF_DNS2, "9.9.9.9"}),
    name_of_get);
INSTANTIATE_TEST_SUITE_P(Identity, GetHandler, testing::Values(
    GetRow{":SYST:INF:MOD?",       "OrvanX_getModel",              "GetModel 256",     "OVX3654B",    "OVX3654B",    ODT_INF_MODEL,  "OVX3654B"},
    GetRow{":SYST:INF:SER?",       "OrvanX_getSerial",             "GetSerial",        "1234",        "1234",        ODT_INF_SERIAL, "1234"},
    GetRow{":SYST:INF:HARD?",      "OrvanX_getHardwareVersion",    "GetHardware",      "D",           "D",           ODT_HARD,       "D"},
    GetRow{":SYST:INF:FIRM?",      "OrvanX_getFirmware",           "GetFirmware",      "1.19.145",    "1.19.145",    ODT_FIRM,       "1.19.145", OnFailure::kEmptyReply},
    GetRow{":SYST:INF:FPGA?",      "OrvanX_getFPGAVersion",        "GetFpga",          "3.7",         "3.7",         ODT_FPGA,       "3.7"},
    GetRow{":SYST:BAT?",           "OrvanX_getBatteryChargeLevel", "GetBatteryCharge", "87",          "87",          ODT_BATT,       "87", OnFailure::kOwnError, true},
    GetRow{":SYST:BAT?",           "OrvanX_getBatteryChargeLevel", "GetBatteryCharge", "0",           "0",           ODT_BATT,       "0", OnFailure::kOwnError, true},
    GetRow{"*OPT?",                "OrvanX_getOptions",            "GetOption 256",    "B20,LIST",    "B20,LIST",    ODT_OPT,        "B20,LIST", OnFailure::kEmptyReply}),
    name_of_get);
// clang-format on

class Identity : public HandlerBench {};

TEST_F(Identity, AQueryWithoutAUserRecordFails)
{
    for (scpi_command_callback_t handler : {OrvanX_getChannel, OrvanX_getIpAddress, OrvanX_getFirmware,
                                            OrvanX_getDeviceArch, OrvanX_getDeviceOptTable}) {
        EXPECT_EQ(call_without_user_record(handler), SCPI_RES_ERR);
    }
    EXPECT_THAT(device.calls, IsEmpty());
}

TEST_F(Identity, ATextThatFillsItsRoomEndsThere)
{
    device.texts["GetOption"] = std::string(256, 'o');
    EXPECT_EQ(ask("*OPT?"), std::string(256, 'o') + ";+OK\r\n");
    EXPECT_EQ(text(1, ODT_OPT), std::string(31, 'o'));
}

TEST_F(Identity, TheBatteryChargeIsANumberOfTheParserLibraryAndMirroredFirst)
{
    device.numbers["GetBatteryCharge"] = 65535;
    ResultTap results;
    EXPECT_EQ(ask(":SYST:BAT?"), "65535;+OK\r\n");
    EXPECT_EQ(results.calls, Lines{"SCPI_ResultUInt32Base 65535 to the base 10"});
    device.numbers["GetBatteryCharge"] = 41;
    results.refuses = true;
    EXPECT_EQ(ask(":SYST:BAT?"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{not_copied("OrvanX_getBatteryChargeLevel")});
    EXPECT_EQ(text(1, ODT_BATT), "41");
}

TEST_F(Identity, AResultSharesItsLineWithOthers)
{
    device.texts["GetSerial"] = "1234";
    device.texts["GetModel"] = "OVX3654B";
    EXPECT_EQ(ask(":SYST:INF:SER?;:FOO;:SYST:INF:MOD?"),
              "1234;-ERR -113, \"Undefined header\";OVX3654B;+OK\r\n");
}

// ---- architecture and options table

TEST_F(Identity, ArchitectureNamesWhatTheModelIs)
{
    // clang-format off
    const struct { sDevArch_t arch; const char* reply; } rows[] = {
        {{"OVX3651P", 20000000000, 1, 1, 0x3651, 0x168c, 0}, "OVX3651P,20000,1,usb,3651,168c,portable"},
        {{"OVX5354R", 40000000000, 4, 1, 0x53a4, 0x168c, 1}, "OVX5354R,40000,4,usb,53a4,168c,benchtop"},
        {{"KSR-7061",  8000999999, 2, 0, 0x7061, 0xb001, 2}, "KSR-7061,8000,2,spi,7061,b001,ksr7000"},
    };
    // clang-format on
    const std::string before = all_bytes();
    for (const auto& row : rows) {
        device.arch = &row.arch;
        EXPECT_EQ(ask(":INT:INF:DEV:ARCH?"), std::string(row.reply) + ";+OK\r\n");
        EXPECT_EQ(ask(":INF:DEV:ARCH?"), std::string(row.reply) + ";+OK\r\n");
    }
    EXPECT_EQ(all_bytes(), before);
}

TEST_F(Identity, AnUnknownModelHasNoArchitecture)
{
    EXPECT_EQ(ask(":INF:DEV:ARCH?"), kExecutionError);
    put_device(nullptr);
    EXPECT_EQ(ask(":INF:DEV:ARCH?"), kExecutionError);
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_F(Identity, TheOptionsTableIsABlock)
{
    device.option_table = std::string(126, '\0') + "\r\n";
    EXPECT_EQ(ask(":INT:INF:DEV:OPT?"), "#3128" + device.option_table + ";+OK\r\n");
    EXPECT_EQ(device.calls, Lines{"GetOptionsTable"});
}

TEST_F(Identity, AnUnavailableOptionsTableIsAFailure)
{
    device.option_table = "table";
    device.refused.insert("GetOptionsTable");
    EXPECT_EQ(ask(":INF:DEV:OPT?"), "-ERR -230, \"Data corrupt or stale\";+OK\r\n");
    EXPECT_EQ(take_errors(), Lines{"-230 Failed retrieving options table"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getDeviceOptTable: Failed retrieving options table\n"});
}

TEST_F(Identity, WithoutADeviceTheNullTableIsNotTaken)
{
    put_device(nullptr);
    EXPECT_EQ(ask(":INF:DEV:OPT?"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy binay data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getDeviceOptTable: copy binay data out failed\n"});
}

} // namespace

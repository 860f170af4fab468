#include <string>

#include <gmock/gmock.h>

#include "handler_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

const std::string kLan = ":SYST:COMM:LAN:";

struct SetRow {
    const char* command; // with its value
    const char* handler;
    const char* call; // the call that the device receives
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
        EXPECT_EQ(all_bytes(), before); // a port is mirrored only if the device was called
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

} // namespace

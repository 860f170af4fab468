#include <string>

#include <gmock/gmock.h>

#include "handler_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

// The effect of a failing or missing device on the usual get handlers, and on the three others.
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

    // The mirror holds another value first.
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

TEST_P(GetHandler, ADeviceThatFailsWithoutATextIsAFailure)
{
    if (operation() == "GetScpiPort") {
        device.numbers.clear(); // its result is ignored
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

TEST_P(GetHandler, AFailureAfterAValueDependsOnTheHandlersKind)
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

} // namespace

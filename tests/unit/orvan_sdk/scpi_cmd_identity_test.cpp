#include <string>

#include <gmock/gmock.h>

#include "handler_bench.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "result_tap.h"

using namespace orvan_test;
using HaldeElec::Orvan::sDevArch_t;
using testing::IsEmpty;

namespace {

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

TEST_F(Identity, TheBatteryChargeIsMirroredFirstAndFormattedByTheParserLibrary)
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

TEST_F(Identity, ArchitectureNamesTheKindOfModel)
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

TEST_F(Identity, WithoutADeviceTheNullTableIsNotUsed)
{
    put_device(nullptr);
    EXPECT_EQ(ask(":INF:DEV:OPT?"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 copy binay data out failed"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_getDeviceOptTable: copy binay data out failed\n"});
}

} // namespace

/**
 * Parameters, results, errors and status through the parser, as a client sees them.
 */
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scpi/scpi.h"

namespace {

scpi_result_t echo_text(scpi_t* context)
{
    char text[256];
    size_t len = 0;
    if (!SCPI_ParamCopyText(context, text, sizeof text, &len, true)) {
        SCPI_ErrorUpdateEx(context, "Param 0", 7);
        return SCPI_RES_ERR;
    }
    return SCPI_ResultText(context, text) != 0 ? SCPI_RES_OK : SCPI_RES_ERR;
}

scpi_result_t echo_server(scpi_t* context)
{
    static constexpr scpi_choice_def_t kServers[] = {{"1", 1}, {"2", 2}, {nullptr, -1}};
    int32_t server = 0;
    if (!SCPI_ParamChoice(context, kServers, &server, true)) {
        return SCPI_RES_ERR;
    }
    SCPI_ResultInt32(context, server);
    return echo_text(context);
}

scpi_result_t echo_block(scpi_t* context)
{
    const char* data = nullptr;
    size_t len = 0;
    if (!SCPI_ParamArbitraryBlock(context, &data, &len, true)) {
        return SCPI_RES_ERR;
    }
    return SCPI_ResultArbitraryBlock(context, data, len) != 0 ? SCPI_RES_OK : SCPI_RES_ERR;
}

scpi_result_t echo_frequency(scpi_t* context)
{
    scpi_number_t number;
    if (!SCPI_ParamNumber(context, scpi_special_numbers_def, &number, true)) {
        return SCPI_RES_ERR;
    }
    if (number.special) {
        return SCPI_ResultMnemonic(context, "special") != 0 ? SCPI_RES_OK : SCPI_RES_ERR;
    }
    return SCPI_ResultDouble(context, number.value) != 0 ? SCPI_RES_OK : SCPI_RES_ERR;
}

scpi_result_t echo_optional(scpi_t* context)
{
    int32_t value = 5;
    if (!SCPI_ParamInt32(context, &value, false)) {
        value = SCPI_ParamErrorOccurred(context) ? -1 : -2;
    }
    return SCPI_ResultInt32(context, value) != 0 ? SCPI_RES_OK : SCPI_RES_ERR;
}

constexpr scpi_command_t kCommands[] = {
    {":TEXT", echo_text, 0},
    {":DNS", echo_server, 0},
    {":BLOCk", echo_block, 0},
    {":FREQuency", echo_frequency, 0},
    {":OPTional", echo_optional, 0},
    {"*CLS", SCPI_CoreCls, 0},
    {"*ESE", SCPI_CoreEse, 0},
    {"*ESE?", SCPI_CoreEseQ, 0},
    {"*ESR?", SCPI_CoreEsrQ, 0},
    {"*IDN?", SCPI_CoreIdnQ, 0},
    {"*STB?", SCPI_CoreStbQ, 0},
    {":SYSTem:ERRor[:NEXT]?", SCPI_SystemErrorNextQ, 0},
    {":SYSTem:ERRor:COUNt?", SCPI_SystemErrorCountQ, 0},
    {":SYSTem:VERSion?", SCPI_SystemVersionQ, 0},
    {":STATus:OPERation:ENABle", SCPI_StatusOperationEnable, 0},
    {":STATus:OPERation:ENABle?", SCPI_StatusOperationEnableQ, 0},
    {nullptr, nullptr, 0},
};

class DataSession : public ::testing::Test {
protected:
    DataSession()
    {
        SCPI_Init(&m_context, kCommands, &kInterface, scpi_units_def, "MAKER", "MODEL", nullptr, "1.0",
                  m_input, sizeof m_input, m_queue, 4);
        m_context.user_context = this;
    }
    ~DataSession() override { SCPI_Deinit(&m_context); }

    /** What was written for one line, its end left out. */
    std::string reply(std::string_view line)
    {
        m_output.clear();
        SCPI_Input(&m_context, line.data(), line.size());
        SCPI_Input(&m_context, "\r\n", 2);
        EXPECT_TRUE(m_output.ends_with("\r\n"));
        return m_output.substr(0, m_output.size() - 2);
    }

    std::string error_of(std::string_view line)
    {
        reply("*CLS");
        reply(line);
        return reply(":SYST:ERR?");
    }

private:
    static size_t on_write(scpi_t* context, const char* data, size_t len)
    {
        static_cast<DataSession*>(context->user_context)->m_output.append(data, len);
        return len;
    }

    static constexpr scpi_interface_t kInterface = {nullptr, on_write, nullptr, nullptr, nullptr};

    scpi_t m_context;
    char m_input[8192];
    scpi_error_t m_queue[4];
    std::string m_output;
};

TEST_F(DataSession, AddressNeedsNoQuotes)
{
    EXPECT_EQ(reply(":TEXT 192.168.0.5"), "\"192.168.0.5\"");
    EXPECT_EQ(reply(":TEXT \"192.168.0.5\""), "\"192.168.0.5\"");
    EXPECT_EQ(reply(":TEXT orvan-3.lab"), "\"orvan-3.lab\"");
    EXPECT_EQ(reply(":DNS 2,10.0.0.1"), "2,\"10.0.0.1\"");
    EXPECT_EQ(reply(":DNS 1 , '10.0.0.1'"), "1,\"10.0.0.1\"");
}

TEST_F(DataSession, TextIsFollowedByTheNextUnit)
{
    EXPECT_EQ(reply(":TEXT 10.0.0.1;:TEXT \"a;b\""), "\"10.0.0.1\"\"a;b\"");
}

TEST_F(DataSession, TextErrorsCarryTheHandlersText)
{
    EXPECT_EQ(error_of(":TEXT"), "-109,\"Missing parameter;Param 0\"");
    EXPECT_EQ(error_of(":TEXT my host"), "-103,\"Invalid separator;Param 0\"");
    EXPECT_EQ(error_of(":TEXT " + std::string(256, 'x')), "-223,\"Too much data;Param 0\"");
    EXPECT_EQ(error_of(":TEXT " + std::string(255, 'x')), "0,\"No error\"");
}

TEST_F(DataSession, LeftOverParametersAreNotAllowed)
{
    EXPECT_EQ(error_of(":TEXT 1,2"), "-108,\"Parameter not allowed\"");
    EXPECT_EQ(error_of("*IDN? 1"), "-108,\"Parameter not allowed\"");
}

TEST_F(DataSession, BlockMayHoldLineEndsAndSeparators)
{
    using namespace std::string_literals;
    EXPECT_EQ(reply(":BLOC #18a\n;\"'\r\0,"s), "#18a\n;\"'\r\0,"s);
    EXPECT_EQ(reply(":BLOC #10"), "#10");
    EXPECT_EQ(reply(":BLOC #0abc;d"), "#15abc;d");
    EXPECT_EQ(error_of(":BLOC #2x"), "-161,\"Invalid block data\"");
    EXPECT_EQ(error_of(":BLOC 12"), "-128,\"Numeric data not allowed\"");
}

TEST_F(DataSession, NumbersHaveUnitsAndWords)
{
    EXPECT_EQ(reply(":FREQ 1.001 kHz;FREQ MAX;FREQ #H10;FREQ 2 E 3"), "1001special162000");
    EXPECT_EQ(error_of(":FREQ 1 XHZ"), "-131,\"Invalid suffix\"");
    EXPECT_EQ(error_of(":FREQ FAST"), "-224,\"Illegal parameter value\"");
}

TEST_F(DataSession, AbsentOptionalParameterIsDistinguishedFromAnError)
{
    EXPECT_EQ(reply(":OPT 7"), "7");
    EXPECT_EQ(reply(":OPT"), "-2");
    EXPECT_EQ(reply(":OPT ABC"), "-1");
}

TEST_F(DataSession, CountsOfOneCommandDoNotReachTheNext)
{
    EXPECT_EQ(reply(":DNS 1,a;:OPT 3;*IDN?"), "1,\"a\"3MAKER,MODEL,0,1.0");
}

TEST_F(DataSession, ErrorsReachTheQueueAndTheStatusByte)
{
    EXPECT_EQ(reply("*ESE 32;*ESE?"), "32");
    EXPECT_EQ(reply(":FOO"), "");
    EXPECT_EQ(reply("*STB?"), "36");
    EXPECT_EQ(reply(":SYST:ERR:COUN?"), "1");
    EXPECT_EQ(reply(":SYST:ERR?"), "-113,\"Undefined header\"");
    EXPECT_EQ(reply("*STB?"), "32");
    EXPECT_EQ(reply("*ESR?"), "32");
    EXPECT_EQ(reply("*STB?"), "0");
    EXPECT_EQ(reply(":SYST:ERR?"), "0,\"No error\"");
}

TEST_F(DataSession, QueueOverflowIsReported)
{
    for (int i = 0; i < 6; ++i) {
        reply(":FOO");
    }
    EXPECT_EQ(reply(":SYST:ERR:COUN?"), "4");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(reply(":SYST:ERR?"), "-113,\"Undefined header\"");
    }
    EXPECT_EQ(reply(":SYST:ERR?"), "-350,\"Queue overflow\"");
}

TEST_F(DataSession, MandatoryCommandsAnswer)
{
    EXPECT_EQ(reply(":SYST:VERS?"), "1999.0");
    EXPECT_EQ(reply(":STAT:OPER:ENAB #H8011;:STAT:OPER:ENAB?"), "17");
}

} // namespace

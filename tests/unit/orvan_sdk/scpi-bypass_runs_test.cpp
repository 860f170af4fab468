// How a line is split into exchanges with the module, seen from the module and from the client.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "dataorvan.h"
#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"

using namespace orvan_test;
using std::vector;

namespace {

class BypassRuns : public FrontEndBench {
protected:
    /** Sends a line and returns what the module received. */
    vector<std::string> requests_of(const std::string& line)
    {
        const size_t before = module.requests().size();
        reply = ask(line);
        const vector<std::string> all = module.requests();
        return {all.begin() + static_cast<std::ptrdiff_t>(before), all.end()};
    }

    std::string error_line(int code)
    {
        return "-ERR " + std::to_string(code) + ", \"" + SCPI_ErrorTranslate(code) + "\"";
    }

    std::string reply;
};

using Requests = vector<std::string>;

TEST_F(BypassRuns, ConsecutiveForwardedSubCommandsShareOneConversation)
{
    module.always(ModuleAnswer::reply("1;+OK\r\n"));
    EXPECT_EQ(requests_of(":FREQ 1;:POW 2;:FREQ?"), Requests{":FREQ 1;:POW 2;:FREQ?;\r\n"});
    EXPECT_EQ(reply, "1;+OK\r\n");
}

TEST_F(BypassRuns, ALocalQueryCutsTheRun)
{
    EXPECT_EQ(requests_of(":FREQ?;*IDN?;:POW?"), (Requests{":FREQ?;\r\n", ":POW?;\r\n"}));
}

TEST_F(BypassRuns, ALocalSetCutsTheRun)
{
    EXPECT_EQ(requests_of(":FREQ 1;:STAT:PRES;:POW 2"), (Requests{":FREQ 1;\r\n", ":POW 2;\r\n"}));
    EXPECT_EQ(reply, "+OK\r\n");
}

TEST_F(BypassRuns, ARelativeHeaderStartsItsOwnRun)
{
    EXPECT_EQ(requests_of(":SOUR:FREQ 1;POW 2"), (Requests{":SOUR:FREQ 1;\r\n", ":SOUR:POW 2;\r\n"}));
}

TEST_F(BypassRuns, AbsoluteHeadersJoinTheRunOfARelativeOne)
{
    EXPECT_EQ(requests_of(":SOUR:FREQ 1;POW 2;:PHAS 3;:POW?"),
              (Requests{":SOUR:FREQ 1;\r\n", ":SOUR:POW 2;:PHAS 3;:POW?;\r\n"}));
}

TEST_F(BypassRuns, AFirstHeaderWithoutAColonIsForwardedAsWritten)
{
    EXPECT_EQ(requests_of("freq 1"), Requests{"freq 1;\r\n"});
}

TEST_F(BypassRuns, CommonCommandsShareTheRun)
{
    EXPECT_EQ(requests_of("*CLS;:FREQ 1;*OPC?"), Requests{"*CLS;:FREQ 1;*OPC?;\r\n"});
}

TEST_F(BypassRuns, SpacesBetweenSubCommandsAreSkippedAndOneSeparatorIsKept)
{
    EXPECT_EQ(requests_of("  :FREQ   1  ; \t :POW\t\t2 "), Requests{":FREQ 1;:POW\t2;\r\n"});
}

TEST_F(BypassRuns, ACarriageReturnBeforeTheSeparatorEndsTheRun)
{
    EXPECT_EQ(requests_of(":FREQ?\r;:POW?"), (Requests{":FREQ?;\r\n", ":POW?;\r\n"}));
}

TEST_F(BypassRuns, ASubCommandWithoutParametersCopiesNoSeparator)
{
    EXPECT_EQ(requests_of(":FREQ?"), Requests{":FREQ?;\r\n"});
    EXPECT_EQ(requests_of(":FREQ? "), Requests{":FREQ?;\r\n"});
    EXPECT_EQ(requests_of(":LIST:DEL:ALL"), Requests{":LIST:DEL:ALL;\r\n"});
}

TEST_F(BypassRuns, ParametersAreForwardedAsText)
{
    EXPECT_EQ(requests_of(":FREQ 1GHz;:LIST:DEF \"a;b?\" , 2"),
              Requests{":FREQ 1GHz;:LIST:DEF \"a;b?\" , 2;\r\n"});
}

TEST_F(BypassRuns, EveryParameterCountsAsRead)
{
    EXPECT_EQ(requests_of(":FREQ 1,2,3,4"), Requests{":FREQ 1,2,3,4;\r\n"});
    EXPECT_EQ(reply, "+OK\r\n");
    EXPECT_EQ(SCPI_ErrorCount(&scpi_context), 0);
}

TEST_F(BypassRuns, TheCarriageReturnIsOptional)
{
    feed(":FREQ 1\n");
    EXPECT_EQ(module.requests(), Requests{":FREQ 1;\r\n"});
}

TEST_F(BypassRuns, TwoLinesInOneCallAreTwoRuns)
{
    feed(":FREQ 1\n:POW 2\n");
    EXPECT_EQ(module.requests(), (Requests{":FREQ 1;\r\n", ":POW 2;\r\n"}));
    EXPECT_EQ(read_ready(client.client()), "+OK\r\n+OK\r\n");
}

TEST_F(BypassRuns, AnArbitraryBlockReachesTheModuleWhole)
{
    std::string block(1'000'000, '\0');
    for (size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>(i * 31); // zeros and line feeds among them
    }
    const std::string command = ":LIST:DATA #71000000" + block;
    module.always(ModuleAnswer::reply_to_block(command.size() + 3, "+OK\r\n"));
    EXPECT_TRUE(feed(command + "\n"));
    EXPECT_EQ(read_ready(client.client()), "+OK\r\n");
    ASSERT_EQ(module.requests().size(), 1u);
    EXPECT_TRUE(module.requests()[0] == command + ";\r\n");
}

TEST_F(BypassRuns, SelectedChannelsModuleIsQueried)
{
    const ScriptedModule third("127.0.9.1");
    connect_module(3, third);
    orvanx->setSelectedChannel(3);
    ask(":FREQ 1");
    EXPECT_EQ(third.requests(), Requests{":FREQ 1;\r\n"});
    EXPECT_EQ(module.connections(), 0u);
}

// ---- what is rejected in the middle of a line

TEST_F(BypassRuns, AnUndefinedRelativeHeaderFailsAfterTheSentRun)
{
    EXPECT_EQ(requests_of(":FREQ 1;FOO"), Requests{":FREQ 1;\r\n"});
    EXPECT_EQ(reply, error_line(-113) + ";+OK\r\n");
}

TEST_F(BypassRuns, AnUndefinedAbsoluteHeaderFailsAfterTheSentRun)
{
    EXPECT_EQ(requests_of(":FREQ 1;:FOO 2"), Requests{":FREQ 1;\r\n"});
    EXPECT_EQ(reply, error_line(-113) + ";+OK\r\n");
}

TEST_F(BypassRuns, ARunWhoseNextSubCommandNeverArrivesIsLostAtTheFlush)
{
    EXPECT_EQ(requests_of(":FREQ 1;:POW \"open"), Requests{});
    EXPECT_EQ(reply, error_line(-151) + ";+OK\r\n");
    EXPECT_EQ(user().bypass_accum_active, 0);
    EXPECT_EQ(requests_of(":PHAS 3"), Requests{":PHAS 3;\r\n"});
}

// ---- items

TEST_F(BypassRuns, ItemsKeepTagKindAndParameter)
{
    // The faulty last sub-command keeps the run open until the flush, and the second of the two errors is
    // the moment to look: the error callback runs while the run is open.
    static userContext_t seen;
    static scpi_interface_t watching;
    watching = scpi_interface;
    watching.error = [](scpi_t* context, int_fast16_t) {
        seen = *static_cast<userContext_t*>(context->user_context);
        return 0;
    };
    ask(":FREQ 1;:POW 2;:PHAS 3"); // the items of an earlier run must not show through
    scpi_context.interface = &watching;
    const std::string longest(200, '7');
    ask(":FREQ " + longest + ";:POW? MAX;:LIST:DEL:ALL;:INIT:GATE   ON ;:POW \"open");
    scpi_context.interface = &scpi_interface;

    ASSERT_EQ(seen.bypass_item_count, 4);
    const bypassItem_t* const item = seen.bypass_items;
    EXPECT_EQ(item[0].tag, ODT_FREQ);
    EXPECT_EQ(item[0].is_query, 0);
    EXPECT_EQ(item[0].param_len, 127);
    EXPECT_EQ(item[0].param, std::string(127, '7'));
    EXPECT_EQ(item[1].tag, ODT_PWR);
    EXPECT_EQ(item[1].is_query, 1);
    EXPECT_EQ(item[1].param_len, 0);
    EXPECT_STREQ(item[1].param, "");
    EXPECT_EQ(item[2].tag, ODT_NO_TAG);
    EXPECT_EQ(item[2].is_query, 0);
    EXPECT_EQ(item[2].param_len, 0);
    EXPECT_STREQ(item[2].param, "");
    EXPECT_EQ(item[3].tag, ODT_NO_TAG);
    EXPECT_EQ(item[3].param_len, 2);
    EXPECT_STREQ(item[3].param, "ON");
}

TEST_F(BypassRuns, ALongParameterIsSentWholeToTheModule)
{
    const std::string longest(200, '7');
    EXPECT_EQ(requests_of(":FREQ " + longest), Requests{":FREQ " + longest + ";\r\n"});
}

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST_F(BypassRuns, SixtyFourSubCommandsAreOneRun)
{
    const std::string run = repeated(":FREQ 1;", 64);
    EXPECT_EQ(requests_of(run), Requests{run + "\r\n"});
    EXPECT_EQ(reply, "+OK\r\n");
}

TEST_F(BypassRuns, TheSixtyFifthSubCommandLosesTheRun)
{
    EXPECT_EQ(requests_of(repeated(":FREQ 1;", 65)), Requests{});
    EXPECT_EQ(reply, error_line(-223) + ";+OK\r\n");
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: bypass_items overflow"), 1u);
    EXPECT_EQ(SCPI_ErrorCount(&scpi_context), 1);
}

TEST_F(BypassRuns, AfterALostRunANewOneStarts)
{
    EXPECT_EQ(requests_of(repeated(":FREQ 1;", 65) + ":POW 2;:PHAS 3"), Requests{":POW 2;:PHAS 3;\r\n"});
    EXPECT_EQ(reply, error_line(-223) + ";+OK\r\n");
}

// ---- failures of the engine

TEST_F(BypassRuns, WithoutAModuleServiceTheSubCommandFails)
{
    user().ptrParser = nullptr;
    EXPECT_EQ(ask(":FREQ 1"), error_line(-230) + ";+OK\r\n");
    user().ptrParser = orvanx;
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: bad parser handle"), 1u);
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(BypassRuns, WithoutAUserRecordTheSubCommandFails)
{
    scpi_t bare{};
    EXPECT_EQ(OrvanX_cmdBypass(&bare), SCPI_RES_ERR);
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: bad parser handle"), 1u);
}

TEST_F(BypassRuns, ABatchWithoutAModuleServiceFails)
{
    EXPECT_EQ(send_bypass_batch(&scpi_context, nullptr, ":FREQ 1;", 8), SCPI_RES_ERR);
    EXPECT_EQ(write_and_flush({}), error_line(-230) + ";+OK\r\n");
}

TEST_F(BypassRuns, NoMemoryForTheRunFailsTheSubCommand)
{
    std::string input = ":FREQ 1\n";
    scpi_t& context = scpi_context;
    const scpi_buffer_t buffer = context.buffer;
    context.param_list.cmd_raw = {0, 5, input.data()};
    context.param_list.lex_state = {input.data() + 6, input.data() + 6, 1};
    // More than there is, of 32 bits too, and not past the end of the address space where a sanitizer looks.
    const auto too_much = static_cast<size_t>(std::min<uint64_t>(uint64_t{1} << 46, SIZE_MAX / 16 * 15));
    context.buffer = {too_much, too_much, input.data()};
    EXPECT_EQ(OrvanX_cmdBypass(&context), SCPI_RES_ERR);
    context.buffer = buffer;
    context.param_list = {};
    EXPECT_EQ(write_and_flush({}), error_line(-310) + ";+OK\r\n");
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: alloc B-run failed"), 1u);
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(BypassRuns, AMessageEndedWithoutALineFeedLeavesNoRoomForTheSeparator)
{
    EXPECT_FALSE(feed(":FREQ?"));
    char none = '\0';
    EXPECT_EQ(orvanx->sendScpiToNewParser(&none, 0), 0);
    EXPECT_EQ(read_ready(client.client()), error_line(-223) + ";+OK\r\n");
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: B-run buffer overflow"), 1u);
    EXPECT_EQ(user().bypass_accum_active, 0);
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(BypassRuns, ASubCommandThatDoesNotFitClosesTheRunAtOnce)
{
    std::string input = ":FREQ 1"; // one byte short of the ";"
    scpi_t& context = scpi_context;
    const scpi_buffer_t buffer = context.buffer;
    context.param_list.cmd_raw = {0, 5, input.data()};
    context.param_list.lex_state = {input.data() + 6, input.data() + 6, 1};
    context.buffer = {input.size(), input.size(), input.data()};
    EXPECT_EQ(OrvanX_cmdBypass(&context), SCPI_RES_ERR);
    context.buffer = buffer;
    context.param_list = {};
    EXPECT_EQ(user().bypass_accum_active, 0);
    EXPECT_EQ(user().bypass_accum_buf, nullptr);
    EXPECT_EQ(write_and_flush({}), error_line(-223) + ";+OK\r\n");
    EXPECT_EQ(logs.count(LOG_ERR, "OrvanX_cmdBypass: B-run buffer overflow"), 1u);
}

TEST_F(BypassRuns, AResultThatIsNotTakenFailsTheBatch)
{
    static scpi_interface_t deaf;
    deaf = scpi_interface;
    deaf.write = [](scpi_t*, const char*, size_t) -> size_t { return 0; };
    scpi_context.interface = &deaf;
    module.always(ModuleAnswer::reply("5;+OK\r\n"));
    feed(":FREQ?\n");
    scpi_context.interface = &scpi_interface;
    EXPECT_EQ(read_ready(client.client()), error_line(-223) + ";+OK\r\n");
    EXPECT_EQ(logs.count(LOG_ERR, "send_bypass_batch: emit failed"), 1u);
    EXPECT_EQ(module.requests(), Requests{":FREQ?;\r\n"});
}

TEST_F(BypassRuns, BatchTextGetsItsLineEnd)
{
    for (const std::string text : {":FREQ 1;", ":FREQ 1;\r", ":FREQ 1;\r\n", ":FREQ 1;\n"}) {
        EXPECT_EQ(send_bypass_batch(&scpi_context, orvanx, text.data(), text.size()), SCPI_RES_OK);
    }
    EXPECT_EQ(module.requests(), (Requests{":FREQ 1;\r\n", ":FREQ 1;\r\n", ":FREQ 1;\r\n", ":FREQ 1;\n"}));
}

// ---- the module's replies

TEST_F(BypassRuns, AModulesRefusalIsAResultAndNoErrorOfTheController)
{
    module.always(ModuleAnswer::reply("-ERR -222, \"Data out of range\";+OK\r\n"));
    EXPECT_TRUE(feed(":FREQ 1\n"));
    EXPECT_EQ(read_ready(client.client()), "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(SCPI_ErrorCount(&scpi_context), 0);
}

TEST_F(BypassRuns, AnErrorReplyWithoutASuccessWordKeepsItsLineEnd)
{
    module.always(ModuleAnswer::reply("-ERR x\r\n"));
    EXPECT_EQ(ask(":FREQ 1"), "-ERR x\r\n;+OK\r\n");
}

TEST_F(BypassRuns, AModuleThatClosesWithoutReplyingYieldsNoResult)
{
    module.always(ModuleAnswer::close_mute());
    EXPECT_EQ(ask(":FREQ?"), "+OK\r\n");
}

TEST_F(BypassRuns, ResultsOfARunKeepTheModulesSeparators)
{
    module.then(ModuleAnswer::reply("1;2,3;+OK\r\n"));
    module.then(ModuleAnswer::reply("4;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?;:POW?;:SYST:VERS?;:PHAS?"), "1;2,3;1999.0;4;+OK\r\n");
}

TEST_F(BypassRuns, AnUnreachableModuleIsNoErrorOfTheController)
{
    const int listener = listen_on_loopback();
    orvanx->m_OrvanXport[0] = static_cast<uint32_t>(local_port(listener));
    ::close(listener);
    EXPECT_TRUE(feed(":FREQ 1;:POW 2\n"));
    EXPECT_EQ(read_ready(client.client()), "-ERR Unable to connect;+OK\r\n");
    EXPECT_EQ(SCPI_ErrorCount(&scpi_context), 0);
}

} // namespace

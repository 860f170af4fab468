// The text of a reply.
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "reply_bench.h"
#include "spinning_child.h"

using namespace orvan_test;

namespace {

// ---- what a client sees

TEST_F(ReplyPath, EmptyBufferAtFlushSendsOnlyOk)
{
    EXPECT_EQ(flush(), "+OK\r\n");
}

TEST_F(ReplyPath, AResultIsFollowedByTheSuccessWord)
{
    EXPECT_EQ(write_and_flush({"1234"}), "1234;+OK\r\n");
}

TEST_F(ReplyPath, ResultsOfSubCommandsAreSeparated)
{
    EXPECT_EQ(write_and_flush({"1", "2", "3"}), "1;2;3;+OK\r\n");
}

TEST_F(ReplyPath, ResultsOfOneCommandStayTogether)
{
    EXPECT_EQ(write_and_flush({"a", ",", "b"}), "a,b;+OK\r\n");
}

TEST_F(ReplyPath, AWriteThatStartsWithACommaIsUnchanged)
{
    EXPECT_EQ(write_and_flush({"a", ",b", "c"}), "a,b;c;+OK\r\n");
}

TEST_F(ReplyPath, LineEndOfTheLibraryIsDropped)
{
    EXPECT_EQ(put("a"), 1u);
    EXPECT_EQ(put("\r\n"), 2u);
    EXPECT_EQ(flush(), "a;+OK\r\n");
}

TEST_F(ReplyPath, TwoLineEndsInOneWriteAreStored)
{
    EXPECT_EQ(put("\r\n\r\n"), 4u);
    EXPECT_EQ(flush(), "\r\n\r\n;+OK\r\n");
}

TEST_F(ReplyPath, OneTrailingSeparatorIsRemovedAndASecondKept)
{
    EXPECT_EQ(write_and_flush({"a;"}), "a;+OK\r\n");
    EXPECT_EQ(write_and_flush({"a;;"}), "a;;+OK\r\n");
}

TEST_F(ReplyPath, ALoneSeparatorLeavesAnEmptyReply)
{
    EXPECT_EQ(write_and_flush({";"}), "+OK\r\n");
}

TEST_F(ReplyPath, NothingIsStoredWithoutDataLengthOrRecord)
{
    EXPECT_EQ(SCPI_Write(&scpi_context, nullptr, 3), 0u);
    EXPECT_EQ(SCPI_Write(&scpi_context, "abc", 0), 0u);
    scpi_t bare{};
    EXPECT_EQ(SCPI_Write(&bare, "abc", 3), 0u);
    EXPECT_EQ(SCPI_Write(nullptr, "abc", 3), 0u);
    EXPECT_EQ(flush(), "+OK\r\n");
}

TEST_F(ReplyPath, WithoutARecordFlushLeavesTheReplyAlone)
{
    put("kept");
    scpi_t bare{};
    EXPECT_EQ(SCPI_Flush(&bare), SCPI_RES_OK);
    EXPECT_EQ(SCPI_Flush(nullptr), SCPI_RES_OK);
    EXPECT_EQ(SCPI_FlushRaw(&bare), 0u);
    EXPECT_EQ(SCPI_FlushRaw(nullptr), 0u);
    EXPECT_EQ(read_ready(client.client()), "");
    EXPECT_EQ(flush(), "kept;+OK\r\n");
}

TEST_F(ReplyPath, SuccessWordFollowsAnErrorLine)
{
    EXPECT_EQ(ask(":FOO"), "-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST_F(ReplyPath, ErrorTextInsideAResultSetsTheMarkWithoutEffectOnTheReply)
{
    put("a text with -ERR in it");
    EXPECT_EQ(user().had_error_line, 1);
    EXPECT_EQ(flush(), "a text with -ERR in it;+OK\r\n");
    EXPECT_EQ(user().had_error_line, 0);
}

TEST_F(ReplyPath, OrdinaryTextLeavesTheErrorMark)
{
    put("-ER");
    EXPECT_EQ(user().had_error_line, 0);
}

TEST_F(ReplyPath, FlushDropsAnOpenRun)
{
    user().bypass_accum_active = 1;
    user().bypass_accum_buf = static_cast<char*>(std::malloc(8));
    user().bypass_accum_cap = 8;
    user().bypass_item_count = 1;
    flush();
    EXPECT_EQ(user().bypass_accum_active, 0);
    EXPECT_EQ(user().bypass_accum_buf, nullptr);
    EXPECT_EQ(user().bypass_item_count, 0);
}

TEST_F(ReplyPath, SuccessWordCanBeSwitchedOff)
{
    user().adding_ok = 0;
    EXPECT_EQ(write_and_flush({"a"}), "a\r\n");
    EXPECT_EQ(flush(), "\r\n");
}

TEST_F(ReplyPath, ForwardedSetRepliesTheSuccessWordAlone)
{
    module.always(ModuleAnswer::reply("+OK\r\n"));
    EXPECT_EQ(ask(":FREQ 1000000000"), "+OK\r\n");
}

TEST_F(ReplyPath, ForwardedQueryRepliesTheModulesValue)
{
    module.always(ModuleAnswer::reply("1000000000;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?"), "1000000000;+OK\r\n");
}

TEST_F(ReplyPath, IdentificationIsFourFields)
{
    EXPECT_EQ(ask("*IDN?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(ReplyPath, MixedLineKeepsItsOrder)
{
    module.then(ModuleAnswer::reply("1000000000;+OK\r\n"));
    module.then(ModuleAnswer::reply("5.0;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?;*IDN?;:POW?"),
              "1000000000;Halde Electronics Ltd.,OVX3651P,230000,01.0.001;5.0;+OK\r\n");
}

TEST_F(ReplyPath, QueryThenBadHeader)
{
    module.always(ModuleAnswer::reply("1000000000;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ?;:FOO"), "1000000000;-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST_F(ReplyPath, UnreachableModuleYieldsItsErrorTextAndTheSuccessWord)
{
    const int listener = listen_on_loopback();
    orvanx->m_OrvanXport[0] = static_cast<uint32_t>(local_port(listener));
    ::close(listener);
    EXPECT_EQ(ask(":FREQ 1"), "-ERR Unable to connect;+OK\r\n");
}

// ---- the end of the buffer

TEST_F(ReplyPath, ReplyOf2048BytesWithItsWordsIsWhole)
{
    const std::string text(2048 - 6, 'x');
    EXPECT_EQ(write_and_flush({text}), text + ";+OK\r\n");
}

TEST_F(ReplyPath, LineEndIsLeftOutWhenItDoesNotFit)
{
    const std::string text(2048 - 5, 'x');
    EXPECT_EQ(write_and_flush({text}), text + ";+OK");
    const std::string longer(2048 - 4, 'x');
    EXPECT_EQ(write_and_flush({longer}), longer + ";+OK");
}

TEST_F(ReplyPath, SuccessWordIsLeftOutWhenItDoesNotFitAndTheLineEndMayStillFit)
{
    for (size_t size : {2045u, 2046u}) {
        const std::string text(size, 'x');
        EXPECT_EQ(write_and_flush({text}), text + "\r\n");
    }
    for (size_t size : {2047u, 2048u}) {
        const std::string text(size, 'x');
        EXPECT_EQ(write_and_flush({text}), text);
    }
}

TEST_F(ReplyPath, SeparatedWriteMayEndWithTheBuffer)
{
    const std::string first(2000, 'a');
    const std::string second(47, 'b');
    EXPECT_EQ(write_and_flush({first, second}), first + ";" + second);
}

TEST_F(ReplyPath, TextBeyondTheBufferBlocksItsThreadForever)
{
    EXPECT_TRUE(spins([&] { put(std::string(2049, 'x')); }));
    EXPECT_FALSE(spins([&] { put(std::string(2048, 'x')); }));
}

TEST_F(ReplyPath, TextWithoutRoomForItsSeparatorBlocksItsThreadForever)
{
    put(std::string(2000, 'x'));
    EXPECT_TRUE(spins([&] { put(std::string(48, 'y')); }));
    EXPECT_FALSE(spins([&] { put(std::string(47, 'y')); }));
}

TEST_F(ReplyPath, AnyTextAtAFullBufferBlocksItsThreadForever)
{
    put(std::string(2048, 'x'));
    EXPECT_TRUE(spins([&] { put("y"); }));
    EXPECT_TRUE(spins([&] { put(","); }));
    EXPECT_FALSE(spins([&] { put("\r\n"); }));
}

TEST_F(ReplyPath, ModulesAnswerBeyondTheBufferBlocksItsThreadForever)
{
    module.always(ModuleAnswer::reply(std::string(3000, 'x') + ";+OK\r\n"));
    EXPECT_TRUE(spins([&] { feed(":SYST:FILE:CAT:LIST?\n"); }));
    ASSERT_TRUE(module.wait_finished(1));
}

} // namespace

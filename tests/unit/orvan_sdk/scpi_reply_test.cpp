#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include "socket_tap.h"
#include "spinning_child.h"
#include "support/output_capture.h"

using namespace orvan_test;

namespace {

class ReplyPath : public FrontEndBench {
protected:
    size_t put(const std::string& piece) { return SCPI_Write(&scpi_context, piece.data(), piece.size()); }

    /** Announces a block of `size` bytes to the transmit path, and writes header and data. */
    size_t put_block(const std::string& data)
    {
        const size_t n = SCPI_ResultArbitraryBlock(&scpi_context, data.data(), data.size());
        scpi_context.output_count = 0;
        return n;
    }

    std::string flush()
    {
        EXPECT_EQ(SCPI_Flush(&scpi_context), SCPI_RES_OK);
        return read_ready(client.client());
    }
};

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

TEST_F(ReplyPath, NothingIsTakenWithoutDataLengthOrRecord)
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

TEST_F(ReplyPath, TextBeyondTheBufferKeepsItsThreadForEver)
{
    EXPECT_TRUE(spins([&] { put(std::string(2049, 'x')); }));
    EXPECT_FALSE(spins([&] { put(std::string(2048, 'x')); }));
}

TEST_F(ReplyPath, TextThatLeavesNoByteForItsSeparatorKeepsItsThreadForEver)
{
    put(std::string(2000, 'x'));
    EXPECT_TRUE(spins([&] { put(std::string(48, 'y')); }));
    EXPECT_FALSE(spins([&] { put(std::string(47, 'y')); }));
}

TEST_F(ReplyPath, AnyTextAtAFullBufferKeepsItsThreadForEver)
{
    put(std::string(2048, 'x'));
    EXPECT_TRUE(spins([&] { put("y"); }));
    EXPECT_TRUE(spins([&] { put(","); }));
    EXPECT_FALSE(spins([&] { put("\r\n"); }));
}

TEST_F(ReplyPath, ModulesAnswerBeyondTheBufferKeepsItsThreadForEver)
{
    module.always(ModuleAnswer::reply(std::string(3000, 'x') + ";+OK\r\n"));
    EXPECT_TRUE(spins([&] { feed(":SYST:FILE:CAT:LIST?\n"); }));
    ASSERT_TRUE(module.wait_finished(1));
}

// ---- blocks

TEST_F(ReplyPath, BlockIsFollowedByTheSuccessWord)
{
    const std::string data(300, '\x01');
    EXPECT_EQ(put_block(data), 305u);
    EXPECT_EQ(flush(), "#3300" + data + ";+OK\r\n");
}

TEST_F(ReplyPath, AfterABlockNoSeparatorIsAddedOrTakenBack)
{
    put_block("12;");
    EXPECT_EQ(user().binary_block_active, 1);
    put("x;");
    EXPECT_EQ(flush(), "#1312;x;;+OK\r\n");
    EXPECT_EQ(user().binary_block_active, 0);
}

TEST_F(ReplyPath, BlockAfterTextHasNoSeparator)
{
    put("a");
    put_block("1");
    EXPECT_EQ(flush(), "a#111;+OK\r\n");
}

TEST_F(ReplyPath, TextThatStartsWithAHashIsTextWhileNoBlockIsDue)
{
    put("a");
    put("#H1F");
    EXPECT_EQ(user().binary_block_active, 0);
    EXPECT_EQ(flush(), "a;#H1F;+OK\r\n");
}

TEST_F(ReplyPath, TextWithoutAHashIsTextAlsoWhileABlockIsDue)
{
    put("a");
    scpi_context.arbitrary_remaining = 5;
    put("b");
    EXPECT_EQ(user().binary_block_active, 0);
    scpi_context.arbitrary_remaining = 0;
    EXPECT_EQ(flush(), "a;b;+OK\r\n");
}

TEST_F(ReplyPath, BlockEndingAtTheBuffersEdgeLeavesTheSuccessWordAlone)
{
    const std::string data(2048 - 6, 'd');
    SocketTap tap(client.server());
    EXPECT_EQ(put_block(data), 2048u);
    EXPECT_EQ(read_ready(client.client()), "#42042" + data);
    EXPECT_EQ(flush(), "+OK\r\n");
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"write 2048", "TCP_CORK=1", "write 5", "TCP_CORK=0"}));
}

TEST_F(ReplyPath, LongBlockLeavesInUncorkedChunksOf2048)
{
    std::string data(5000, '\0');
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>(i * 7);
    }
    SocketTap tap(client.server());
    EXPECT_EQ(put_block(data), 5006u);
    EXPECT_EQ(flush(), "#45000" + data + ";+OK\r\n");
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"write 2048", "write 2048", "TCP_CORK=1", "write 916",
                                                     "TCP_CORK=0"}));
}

TEST_F(ReplyPath, BlockOnADeadSocketIsTakenOnlyAsFarAsTheBuffer)
{
    ::shutdown(client.server(), SHUT_WR);
    OutputCapture errors(STDERR_FILENO);
    scpi_context.arbitrary_remaining = 5000;
    EXPECT_EQ(put("#45000" + std::string(5000, 'd')), 2048u);
    EXPECT_EQ(errors.text(), "socket closed unexpectedly. aborting\n");
    SCPI_Flush(&scpi_context);
    EXPECT_EQ(errors.text(), "socket closed unexpectedly. aborting\n"
                             "socket closed unexpectedly. aborting\n");
    const TcpPair next;
    speak_as(next);
    SCPI_Flush(&scpi_context);
    EXPECT_EQ(read_ready(next.client()), "+OK\r\n");
    speak_as(client);
}

TEST_F(ReplyPath, RawFlushSendsTheBufferAndAddsNothing)
{
    EXPECT_EQ(SCPI_FlushRaw(&scpi_context), 0u);
    put("a;");
    SocketTap tap(client.server());
    EXPECT_EQ(SCPI_FlushRaw(&scpi_context), 2u);
    EXPECT_EQ(read_ready(client.client()), "a;");
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"write 2"}));
    EXPECT_EQ(flush(), "+OK\r\n");
}

TEST_F(ReplyPath, RawFlushKeepsTheBufferUnlessAllWentOut)
{
    put("0123456789");
    OutputCapture errors(STDERR_FILENO);
    SocketTap tap(client.server());
    tap.shorten_write(4);
    tap.fail_write(EIO);
    EXPECT_EQ(SCPI_FlushRaw(&scpi_context), 4u);
    EXPECT_EQ(errors.text(), "Failed to send reply: Input/output error\n");
    EXPECT_EQ(read_ready(client.client()), "0123");
    EXPECT_EQ(SCPI_FlushRaw(&scpi_context), 10u);
    EXPECT_EQ(read_ready(client.client()), "0123456789");
}

// ---- the socket

TEST_F(ReplyPath, ReplyLeavesInOneCorkedWrite)
{
    SocketTap tap(client.server());
    write_and_flush({"a", "b"});
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"TCP_CORK=1", "write 9", "TCP_CORK=0"}));
}

TEST_F(ReplyPath, InterruptedAndPartialWritesGoOn)
{
    SocketTap tap(client.server());
    tap.fail_write(EINTR);
    tap.shorten_write(3);
    tap.fail_write(EINTR);
    EXPECT_EQ(write_and_flush({"abcdef"}), "abcdef;+OK\r\n");
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"TCP_CORK=1", "write -1", "write 3", "write -1",
                                                     "write 9", "TCP_CORK=0"}));
}

TEST_F(ReplyPath, ClosedSocketIsReportedOnStandardErrorAndTheNextClientGetsACleanBuffer)
{
    put("lost");
    user().binary_block_active = 1;
    ::shutdown(client.server(), SHUT_WR);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(SCPI_Flush(&scpi_context), SCPI_RES_OK);
    EXPECT_EQ(errors.text(), "socket closed unexpectedly. aborting\n");
    EXPECT_EQ(user().binary_block_active, 0);
    const TcpPair next;
    speak_as(next);
    SCPI_Flush(&scpi_context);
    EXPECT_EQ(read_ready(next.client()), "+OK\r\n");
    speak_as(client);
}

TEST_F(ReplyPath, EveryFailureOfTheSocketIsReportedAndTheFlushContinues)
{
    put("lost");
    orvanx->setCallerSocket(-1, 0);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(SCPI_Flush(&scpi_context), SCPI_RES_OK);
    EXPECT_EQ(errors.text(), "setsockopt(TCP_CORK=1) failed: Bad file descriptor\n"
                             "Failed to send reply: Bad file descriptor\n"
                             "setsockopt(TCP_CORK=0) failed: Bad file descriptor\n");
    speak_as(client);
    EXPECT_EQ(flush(), "+OK\r\n");
}

TEST_F(ReplyPath, SocketThatCannotBeCorkedStillGetsTheReply)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    orvanx->setCallerSocket(pair[0], 0);
    OutputCapture errors(STDERR_FILENO);
    SCPI_Flush(&scpi_context);
    EXPECT_EQ(read_ready(pair[1]), "+OK\r\n");
    EXPECT_EQ(errors.text(), "setsockopt(TCP_CORK=1) failed: Operation not supported\n"
                             "setsockopt(TCP_CORK=0) failed: Operation not supported\n");
    speak_as(client);
    ::close(pair[0]);
    ::close(pair[1]);
}

// ---- tokens and logs

TEST(HasToken, IsFoundAnywhere)
{
    EXPECT_NE(has_token("-ERR", 4, "-ERR", 4), 0);
    EXPECT_NE(has_token("abc-ERR", 7, "-ERR", 4), 0);
    EXPECT_NE(has_token("a-ERRb", 6, "-ERR", 4), 0);
    EXPECT_NE(has_token("--ERR", 5, "-ERR", 4), 0);
    EXPECT_NE(has_token("a\0-ERR", 6, "-ERR", 4), 0);
    EXPECT_EQ(has_token("a-ERRb", 4, "-ERR", 4), 0);
    EXPECT_EQ(has_token("-err", 4, "-ERR", 4), 0);
}

TEST(HasToken, NullEmptyAndLongerTokensAreNotThere)
{
    EXPECT_EQ(has_token(nullptr, 4, "-ERR", 4), 0);
    EXPECT_EQ(has_token("-ERR", 4, nullptr, 4), 0);
    EXPECT_EQ(has_token("-ERR", 4, "", 0), 0);
    EXPECT_EQ(has_token("-ER", 3, "-ERR", 4), 0);
    EXPECT_EQ(has_token("", 0, "-ERR", 4), 0);
}

struct SendLogCase {
    const char* name;
    std::string bytes;
    int socket;
    const char* text;

    friend void PrintTo(const SendLogCase& tested, std::ostream* out) { *out << tested.name; }
};

class LogSend : public testing::TestWithParam<SendLogCase> {};

TEST_P(LogSend, LogsWhatIsSent)
{
    LogCapture logs;
    log_send(GetParam().bytes.data(), GetParam().bytes.size(), GetParam().socket);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, GetParam().text}}));
}

using namespace std::string_literals;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Bytes, LogSend, testing::Values(
    SendLogCase{"Empty",             "",                     7, "sending (empty) soc:07 len:0"},
    SendLogCase{"Text",              "+OK\r\n",              7, "sending \"+OK\" soc:07 len:5"},
    SendLogCase{"HighSocket",        "+OK",                123, "sending \"+OK\" soc:123 len:3"},
    SendLogCase{"AllLineEnds",       "\r\n\n\r",             7, "sending \"\" soc:07 len:4"},
    SendLogCase{"InnerLineEnd",      "a\r\nb\n\r\n",         7, "sending \"a\r\nb\" soc:07 len:7"},
    SendLogCase{"TextUpToNul",       "a\0b"s,                7, "sending \"a\" soc:07 len:3"},
    SendLogCase{"Block",             "#15abcde",             7, "sending #<1 digits> len=5 <binary data> soc:07 total=8"},
    SendLogCase{"BlockHeaderAlone",  "#3300",                7, "sending #<3 digits> len=300 <binary data> soc:07 total=5"},
    SendLogCase{"NineDigits",        "#9123456789x",         7, "sending #<9 digits> len=123456789 <binary data> soc:07 total=12"},
    SendLogCase{"NoDigits",          "#0abc",                7, "sending #<0 digits> len=0 <binary data> soc:07 total=5"},
    SendLogCase{"HeaderCutShort",    "#330",                 7, "sending <binary block> soc:07 len:4"},
    SendLogCase{"HashAndLetter",     "#H1F",                 7, "sending <binary block> soc:07 len:4"},
    SendLogCase{"HashAlone",         "#",                    7, "sending <binary block> soc:07 len:1"}),
    [](const auto& tested) { return tested.param.name; });
// clang-format on

TEST(LogSendNull, ANullBufferIsEmpty)
{
    LogCapture logs;
    log_send(nullptr, 5, 4);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "sending (empty) soc:04 len:0"}}));
}

TEST_F(ReplyPath, ReplyIsLoggedWithItsWords)
{
    write_and_flush({"5.0"});
    char text[64];
    std::snprintf(text, sizeof text, "sending \"5.0;+OK\" soc:%02d len:9", client.server());
    EXPECT_EQ(logs.count(LOG_INFO, text), 1u);
}

TEST_F(ReplyPath, LaterChunksOfABlockAreLoggedAsText)
{
    put_block(std::string(3000, 'd'));
    flush();
    char first[96];
    std::snprintf(first, sizeof first, "sending #<4 digits> len=3000 <binary data> soc:%02d total=2048",
                  client.server());
    char second[1200];
    std::snprintf(second, sizeof second, "sending \"%s;+OK\" soc:%02d len:964",
                  std::string(3006 - 2048, 'd').c_str(), client.server());
    EXPECT_EQ(logs.count(LOG_INFO, first), 1u);
    EXPECT_EQ(logs.count(LOG_INFO, second), 1u);
}

} // namespace

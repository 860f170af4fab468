// Blocks, and sending a reply through the socket.
#include <cerrno>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "reply_bench.h"
#include "socket_tap.h"
#include "support/output_capture.h"

using namespace orvan_test;

namespace {

// ---- blocks

TEST_F(ReplyPath, BlockIsFollowedByTheSuccessWord)
{
    const std::string data(300, '\x01');
    EXPECT_EQ(put_block(data), 305u);
    EXPECT_EQ(flush(), "#3300" + data + ";+OK\r\n");
}

TEST_F(ReplyPath, AfterABlockNoSeparatorIsAddedOrRemoved)
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

TEST_F(ReplyPath, TextThatStartsWithAHashIsTextUnlessABlockIsExpected)
{
    put("a");
    put("#H1F");
    EXPECT_EQ(user().binary_block_active, 0);
    EXPECT_EQ(flush(), "a;#H1F;+OK\r\n");
}

TEST_F(ReplyPath, TextWithoutAHashIsTextEvenIfABlockIsExpected)
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

TEST_F(ReplyPath, LongBlockIsSentInUncorkedChunksOf2048)
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

TEST_F(ReplyPath, BlockOnADeadSocketIsAcceptedOnlyUpToTheBuffer)
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

TEST_F(ReplyPath, RawFlushKeepsTheBufferUnlessAllWasSent)
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

TEST_F(ReplyPath, ReplyIsSentInOneCorkedWrite)
{
    SocketTap tap(client.server());
    write_and_flush({"a", "b"});
    EXPECT_EQ(tap.calls(), (std::vector<std::string>{"TCP_CORK=1", "write 9", "TCP_CORK=0"}));
}

TEST_F(ReplyPath, InterruptedAndPartialWritesContinue)
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

} // namespace

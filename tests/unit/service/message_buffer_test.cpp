#include "service/message_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using namespace orvan_service;
using Event = MessageBuffer::Event;

namespace {

constexpr size_t kLimit = 100'000;

class MessageBufferTest : public ::testing::Test {
protected:
    // Receives `bytes` in pieces of at most `piece` bytes; "<overrun>" stands for an overrun.
    void feed(const std::string& bytes, size_t piece = SIZE_MAX)
    {
        for (size_t at = 0; at < bytes.size();) {
            const auto space = buffer.space();
            ASSERT_FALSE(space.empty());
            const size_t n = std::min({piece, space.size(), bytes.size() - at});
            std::memcpy(space.data(), bytes.data() + at, n);
            buffer.received(n);
            at += n;
            for (auto cut = buffer.next(); cut.event != Event::kNeedMore; cut = buffer.next()) {
                messages.push_back(cut.event == Event::kMessage
                                       ? std::string(cut.message.data(), cut.message.size())
                                       : "<overrun>");
            }
        }
    }

    using Texts = std::vector<std::string>;
    LargeBufferPool pool{kLimit};
    MessageBuffer buffer{pool};
    Texts messages;
};

std::string block_message(size_t bytes, char fill = '\n')
{
    const std::string digits = std::to_string(bytes);
    return ":DATA #" + std::to_string(digits.size()) + digits + std::string(bytes, fill) + "\n";
}

} // namespace

TEST_F(MessageBufferTest, NothingReceivedIsNoMessage)
{
    EXPECT_EQ(buffer.next().event, Event::kNeedMore);
}

TEST_F(MessageBufferTest, OneByteAtATimeGivesTheWholeMessage)
{
    feed(":FREQ 1\r\n*IDN?\n", 1);
    EXPECT_EQ(messages, (Texts{":FREQ 1\r\n", "*IDN?\n"}));
}

TEST_F(MessageBufferTest, TenMessagesInOnePieceComeOneByOneInOrder)
{
    std::string bytes;
    Texts expected;
    for (int i = 0; i < 10; ++i) {
        expected.push_back(":FREQ " + std::to_string(i) + "\n");
        bytes += expected.back();
    }
    feed(bytes);
    EXPECT_EQ(messages, expected);
}

TEST_F(MessageBufferTest, TheTailBehindAMessageStartsTheNextOne)
{
    feed("*IDN?\n:FR");
    EXPECT_EQ(messages, Texts{"*IDN?\n"});
    feed("EQ 1\n");
    EXPECT_EQ(messages, (Texts{"*IDN?\n", ":FREQ 1\n"}));
}

TEST_F(MessageBufferTest, EmptyLinesAreMessages)
{
    feed("\n\r\n");
    EXPECT_EQ(messages, (Texts{"\n", "\r\n"}));
}

TEST_F(MessageBufferTest, LineFeedsInADefiniteBlockDoNotEndTheMessage)
{
    for (const size_t piece : {size_t{1}, size_t{3}, size_t{1460}, SIZE_MAX}) {
        messages.clear();
        const std::string message = block_message(5000);
        feed(message + "*IDN?\n", piece);
        EXPECT_EQ(messages, (Texts{message, "*IDN?\n"})) << piece;
    }
}

TEST_F(MessageBufferTest, AMessageAroundTheSmallBuffersSizeComesWhole)
{
    for (size_t size = MessageBuffer::kSmallSize - 2; size <= MessageBuffer::kSmallSize + 2; ++size) {
        for (const size_t piece : {size_t{1}, size_t{1460}, SIZE_MAX}) {
            messages.clear();
            const std::string message = std::string(size - 1, 'x') + "\n";
            feed("a\n" + message + "b\n", piece);
            EXPECT_EQ(messages, (Texts{"a\n", message, "b\n"})) << size << " in " << piece;
        }
    }
}

TEST_F(MessageBufferTest, ABlockAroundTheSmallBuffersSizeComesWhole)
{
    for (size_t size = MessageBuffer::kSmallSize - 20; size <= MessageBuffer::kSmallSize + 2; ++size) {
        messages.clear();
        const std::string message = block_message(size);
        feed("a\n" + message + "b\n", 700);
        EXPECT_EQ(messages, (Texts{"a\n", message, "b\n"})) << size;
    }
}

TEST_F(MessageBufferTest, AMessageOfExactlyTheLimitPasses)
{
    const std::string message = std::string(kLimit - 1, 'x') + "\n";
    feed(message + "b\n");
    EXPECT_EQ(messages, (Texts{message, "b\n"}));
}

TEST_F(MessageBufferTest, AMessageOneByteLongerOverrunsOnceAndTheNextOneWorks)
{
    for (const size_t piece : {size_t{1}, size_t{1460}, SIZE_MAX}) {
        messages.clear();
        feed(std::string(kLimit, 'x') + "\nb\n", piece);
        EXPECT_EQ(messages, (Texts{"<overrun>", "b\n"})) << piece;
    }
}

TEST_F(MessageBufferTest, AMessageOfManyTimesTheLimitOverrunsOnce)
{
    feed("a\n" + std::string(10 * kLimit, 'x') + "\nb\n");
    EXPECT_EQ(messages, (Texts{"a\n", "<overrun>", "b\n"}));
}

TEST_F(MessageBufferTest, TheOverrunComesBeforeTheMessagesEnd)
{
    feed(std::string(kLimit, 'x'));
    EXPECT_EQ(messages, Texts{"<overrun>"});
}

TEST_F(MessageBufferTest, ABlockThatFitsExactlyPasses)
{
    const size_t header = block_message(10000).size() - 10000;
    const std::string message = block_message(kLimit - header);
    ASSERT_EQ(message.size(), kLimit);
    feed(message + "b\n", 1460);
    EXPECT_EQ(messages, (Texts{message, "b\n"}));
}

TEST_F(MessageBufferTest, ABlockThatCannotFitOverrunsAtItsHeader)
{
    const size_t header = block_message(10000).size() - 10000;
    const std::string message = block_message(kLimit - header + 1);
    feed(message.substr(0, header));
    EXPECT_EQ(messages, Texts{"<overrun>"});
    feed(message.substr(header) + "b\n");
    EXPECT_EQ(messages, (Texts{"<overrun>", "b\n"}));
}

TEST_F(MessageBufferTest, TheLineFeedsOfADroppedBlockDoNotEndIt)
{
    feed(block_message(3 * kLimit) + "b\n", 1460);
    EXPECT_EQ(messages, (Texts{"<overrun>", "b\n"}));
}

TEST_F(MessageBufferTest, TwoOverrunsInARowAreToldOneByOne)
{
    const std::string message = std::string(kLimit, 'x') + "\n";
    feed(message + message + "b\n");
    EXPECT_EQ(messages, (Texts{"<overrun>", "<overrun>", "b\n"}));
}

TEST_F(MessageBufferTest, ALargeMessageGivesItsBufferBackBeforeTheNextReceive)
{
    feed(std::string(50'000, 'x') + "\n");
    (void)buffer.space();
    // The pool keeps what came back: the next borrower gets the very bytes.
    const LargeBuffer borrowed = pool.borrow();
    ASSERT_TRUE(borrowed);
    EXPECT_EQ(std::string(borrowed.data(), 10), "xxxxxxxxxx");
}

TEST_F(MessageBufferTest, ATailAroundTheSmallBuffersSizeBehindALargeMessageGoesOn)
{
    const std::string large = std::string(50'000, 'x') + "\n";
    for (size_t size = MessageBuffer::kSmallSize - 1; size <= MessageBuffer::kSmallSize + 1; ++size) {
        messages.clear();
        const std::string tail(size, 'y');
        feed(large.substr(0, 40'000));
        feed(large.substr(40'000) + tail);
        feed("\nb\n");
        EXPECT_EQ(messages, (Texts{large, tail + "\n", "b\n"})) << size;
    }
}

TEST_F(MessageBufferTest, LargeMessagesInARowComeWhole)
{
    Texts expected;
    std::string bytes;
    for (char c = 'a'; c < 'k'; ++c) {
        expected.push_back(std::string(40'000, c) + "\n");
        bytes += expected.back();
    }
    for (const size_t piece : {size_t{1460}, size_t{65536}, SIZE_MAX}) {
        messages.clear();
        feed(bytes, piece);
        EXPECT_EQ(messages, expected) << piece;
    }
}

TEST(LargeBufferPool, KeepsOneBufferAndReusesIt)
{
    LargeBufferPool pool(kLimit);
    char* first;
    {
        const LargeBuffer buffer = pool.borrow();
        first = buffer.data();
        std::memset(first, 'x', kLimit);
    }
    const LargeBuffer again = pool.borrow();
    EXPECT_EQ(again.data(), first);
    const LargeBuffer other = pool.borrow();
    EXPECT_NE(other.data(), first);
    std::memset(other.data(), 'y', kLimit);
    EXPECT_EQ(first[kLimit - 1], 'x');
}

TEST(LargeBufferPool, NoMemoryGivesAnEmptyBuffer)
{
    LargeBufferPool pool(SIZE_MAX / 16 * 15);
    EXPECT_FALSE(pool.borrow());
}

TEST(MessageBuffer, WithoutMemoryALargeMessageIsDroppedAndTheNextOneWorks)
{
    LargeBufferPool pool(SIZE_MAX / 16 * 15);
    MessageBuffer buffer(pool);
    auto space = buffer.space();
    std::memset(space.data(), 'x', space.size());
    buffer.received(space.size());
    EXPECT_EQ(buffer.next().event, Event::kOverrun);
    EXPECT_EQ(buffer.next().event, Event::kNeedMore);
    space = buffer.space();
    std::memcpy(space.data(), "\nb\n", 3);
    buffer.received(3);
    const auto cut = buffer.next();
    EXPECT_EQ(cut.event, Event::kMessage);
    EXPECT_EQ(std::string(cut.message.data(), cut.message.size()), "b\n");
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/raw/message_buffer.h"

using namespace orvan_service;
using Event = MessageBuffer::Event;

namespace {

constexpr size_t kLimit = 100'000;

class MessageBufferTest : public ::testing::Test {
protected:
    // Receives `bytes` in pieces of at most `piece` bytes; "<overrun>" marks an overrun.
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
    MessageMemory memory{kLimit, 3 * kLimit};
    MessageBuffer buffer{memory};
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

TEST_F(MessageBufferTest, SingleBytesMakeAWholeMessage)
{
    feed(":FREQ 1\r\n*IDN?\n", 1);
    EXPECT_EQ(messages, (Texts{":FREQ 1\r\n", "*IDN?\n"}));
}

TEST_F(MessageBufferTest, TenMessagesInOnePieceAreReturnedOneByOneInOrder)
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

TEST_F(MessageBufferTest, TheTailAfterAMessageStartsTheNextOne)
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

TEST_F(MessageBufferTest, AMessageAroundTheSmallBuffersSizeIsIntact)
{
    for (size_t size = MessageMemory::kShort - 2; size <= MessageMemory::kShort + 2; ++size) {
        for (const size_t piece : {size_t{1}, size_t{1460}, SIZE_MAX}) {
            messages.clear();
            const std::string message = std::string(size - 1, 'x') + "\n";
            feed("a\n" + message + "b\n", piece);
            EXPECT_EQ(messages, (Texts{"a\n", message, "b\n"})) << size << " in " << piece;
        }
    }
}

TEST_F(MessageBufferTest, ABlockAroundTheSmallBuffersSizeIsIntact)
{
    for (size_t size = MessageMemory::kShort - 20; size <= MessageMemory::kShort + 2; ++size) {
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

TEST_F(MessageBufferTest, TwoOverrunsInARowAreReportedOneByOne)
{
    const std::string message = std::string(kLimit, 'x') + "\n";
    feed(message + message + "b\n");
    EXPECT_EQ(messages, (Texts{"<overrun>", "<overrun>", "b\n"}));
}

TEST_F(MessageBufferTest, ALongMessageReturnsItsMemoryWhenItIsDone)
{
    feed(std::string(50'000, 'x') + "\n");
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(memory.reserved(), 0u);
}

TEST_F(MessageBufferTest, ABlockReservesItsLengthAtItsHeaderAndAnEndlessTextTheLimit)
{
    feed(block_message(50'000).substr(0, 100));
    EXPECT_GE(memory.reserved(), 50'000u);
    EXPECT_LE(memory.reserved(), 50'000u + 2 * MessageMemory::kShort);
    MessageBuffer other(memory);
    const auto space = other.space();
    std::memset(space.data(), 'x', space.size());
    other.received(space.size());
    const size_t before = memory.reserved();
    EXPECT_EQ(other.next().event, Event::kNeedMore);
    EXPECT_EQ(memory.reserved(), before + kLimit);
}

TEST_F(MessageBufferTest, TheLengthIsWhatWasReceivedOrAnnounced)
{
    EXPECT_FALSE(buffer.unfinished());
    feed("*ID");
    EXPECT_TRUE(buffer.unfinished());
    EXPECT_EQ(buffer.length(), 3u);
    feed("N?\n");
    EXPECT_FALSE(buffer.unfinished());
    EXPECT_EQ(buffer.length(), 0u);
    const std::string message = block_message(50'000);
    feed(message.substr(0, 20'000));
    EXPECT_EQ(buffer.length(), message.size() - 1);
    feed(message.substr(20'000));
    // Also of a dropped message.
    const std::string dropped = block_message(3 * kLimit);
    feed(dropped.substr(0, 150'000), 1000);
    EXPECT_TRUE(buffer.unfinished());
    EXPECT_EQ(buffer.length(), dropped.size() - 1);
}

TEST_F(MessageBufferTest, AMessageThatWaitsForMemoryContinuesOnceThereIsSome)
{
    MessagePiece taken = memory.borrow();
    ASSERT_EQ(memory.reserve(this, taken, kLimit, 0, 0), MessageMemory::Answer::kGranted);
    MessagePiece more = memory.borrow();
    ASSERT_EQ(memory.reserve(this, more, kLimit, 0, 0), MessageMemory::Answer::kGranted);
    MessagePiece most = memory.borrow();
    ASSERT_EQ(memory.reserve(this, most, kLimit, 0, 0), MessageMemory::Answer::kGranted);
    const std::string message = block_message(40'000);
    const auto space = buffer.space();
    std::memcpy(space.data(), message.data(), 1000);
    buffer.received(1000);
    EXPECT_EQ(buffer.next().event, Event::kWait);
    EXPECT_EQ(buffer.next().event, Event::kWait);
    most = {};
    EXPECT_EQ(buffer.next().event, Event::kNeedMore);
    feed(message.substr(1000) + "b\n");
    EXPECT_EQ(messages, (Texts{message, "b\n"}));
}

TEST_F(MessageBufferTest, ADestroyedBufferLeavesTheQueue)
{
    MessagePiece pieces[3];
    for (MessagePiece& piece : pieces) {
        piece = memory.borrow();
        ASSERT_EQ(memory.reserve(this, piece, kLimit, 0, 0), MessageMemory::Answer::kGranted);
    }
    {
        MessageBuffer waiting(memory);
        const std::string header = block_message(40'000).substr(0, 100);
        std::memcpy(waiting.space().data(), header.data(), header.size());
        waiting.received(header.size());
        EXPECT_EQ(waiting.next().event, Event::kWait);
    }
    pieces[0] = {};
    feed(block_message(40'000));
    EXPECT_EQ(messages, Texts{block_message(40'000)});
}

TEST_F(MessageBufferTest, ATailAroundTheSmallBuffersSizeAfterALargeMessageIsKept)
{
    const std::string large = std::string(50'000, 'x') + "\n";
    for (size_t size = MessageMemory::kShort - 1; size <= MessageMemory::kShort + 1; ++size) {
        messages.clear();
        const std::string tail(size, 'y');
        feed(large.substr(0, 40'000));
        feed(large.substr(40'000) + tail);
        feed("\nb\n");
        EXPECT_EQ(messages, (Texts{large, tail + "\n", "b\n"})) << size;
    }
}

TEST_F(MessageBufferTest, ConsecutiveLargeMessagesAreIntact)
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

TEST(MessageBuffer, WithoutMemoryALongMessageIsDroppedAndTheNextOneWorks)
{
    MessageMemory memory(SIZE_MAX / 16 * 15, SIZE_MAX); // more than there is, even with 32 bits
    MessageBuffer buffer(memory);
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

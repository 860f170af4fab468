#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "service/message_memory.h"

using namespace orvan_service;
using Answer = MessageMemory::Answer;

namespace {

constexpr size_t kLongest = 100'000;

class MessageMemoryTest : public ::testing::Test {
protected:
    Answer reserve(const void* owner, MessagePiece& piece, size_t bytes)
    {
        if (!piece) {
            piece = memory.borrow();
        }
        return memory.reserve(owner, piece, bytes, 0, 0);
    }

    MessageMemory memory{kLongest, 2 * kLongest};
    MessagePiece a, b, c, d;
};

} // namespace

TEST_F(MessageMemoryTest, AShortPieceIsReused)
{
    a = memory.borrow();
    EXPECT_EQ(a.size(), MessageMemory::kShort);
    EXPECT_FALSE(a.is_long());
    const char* const data = a.data();
    a = {};
    b = memory.borrow();
    EXPECT_EQ(b.data(), data);
    EXPECT_EQ(memory.reserved(), 0u);
}

TEST_F(MessageMemoryTest, ShortPiecesDoNotOverlap)
{
    std::vector<MessagePiece> pieces;
    for (int i = 0; i < 40; ++i) {
        pieces.push_back(memory.borrow());
        std::memset(pieces.back().data(), i, MessageMemory::kShort);
    }
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(pieces[static_cast<size_t>(i)].data()[MessageMemory::kShort - 1], i);
    }
}

TEST_F(MessageMemoryTest, ALongPieceKeepsTheContents)
{
    a = memory.borrow();
    std::memcpy(a.data(), "xxabc", 5);
    ASSERT_EQ(memory.reserve(&a, a, 50'000, 2, 5), Answer::kGranted);
    EXPECT_TRUE(a.is_long());
    EXPECT_EQ(a.size(), 50'000u);
    EXPECT_EQ(std::string(a.data(), 3), "abc");
    EXPECT_EQ(memory.reserved(), 50'000u);
    a.data()[49'999] = 'z';
    a = {};
    EXPECT_EQ(memory.reserved(), 0u);
}

TEST_F(MessageMemoryTest, ALongPieceGrowsInPlaceAndNeverShrinks)
{
    ASSERT_EQ(reserve(&a, a, 30'000), Answer::kGranted);
    const char* const data = a.data();
    a.data()[0] = 'a';
    ASSERT_EQ(reserve(&a, a, kLongest), Answer::kGranted);
    EXPECT_EQ(a.data(), data);
    EXPECT_EQ(a.data()[0], 'a');
    EXPECT_EQ(memory.reserved(), kLongest);
    ASSERT_EQ(reserve(&a, a, 20'000), Answer::kGranted);
    EXPECT_EQ(a.size(), kLongest);
}

TEST_F(MessageMemoryTest, ThePagesOfTheLastLongPieceAreKept)
{
    ASSERT_EQ(reserve(&a, a, kLongest), Answer::kGranted);
    const char* const data = a.data();
    a.data()[kLongest - 1] = 'x';
    a = {};
    ASSERT_EQ(reserve(&b, b, kLongest), Answer::kGranted);
    EXPECT_EQ(b.data(), data);
    EXPECT_EQ(b.data()[kLongest - 1], 'x');
}

TEST_F(MessageMemoryTest, APieceBeyondTheBudgetWaitsItsTurn)
{
    ASSERT_EQ(reserve(&a, a, kLongest), Answer::kGranted);
    ASSERT_EQ(reserve(&b, b, 60'000), Answer::kGranted);
    EXPECT_EQ(reserve(&c, c, 50'000), Answer::kWait);
    EXPECT_FALSE(c.is_long());
    // This one would fit, but another is waiting.
    EXPECT_EQ(reserve(&d, d, 20'000), Answer::kWait);
    b = {};
    EXPECT_EQ(reserve(&d, d, 20'000), Answer::kWait);
    EXPECT_EQ(reserve(&c, c, 50'000), Answer::kGranted);
    EXPECT_EQ(reserve(&d, d, 20'000), Answer::kGranted);
    EXPECT_EQ(memory.reserved(), kLongest + 70'000);
}

TEST_F(MessageMemoryTest, APieceThatLeavesTheQueueLetsTheNextOnePass)
{
    ASSERT_EQ(reserve(&a, a, kLongest), Answer::kGranted);
    ASSERT_EQ(reserve(&b, b, kLongest), Answer::kGranted);
    EXPECT_EQ(reserve(&c, c, kLongest), Answer::kWait);
    EXPECT_EQ(reserve(&d, d, 20'000), Answer::kWait);
    memory.leave_line(&c);
    b = {};
    EXPECT_EQ(reserve(&d, d, 20'000), Answer::kGranted);
}

TEST_F(MessageMemoryTest, AGrowingPieceReservesOnlyTheRest)
{
    ASSERT_EQ(reserve(&a, a, 60'000), Answer::kGranted);
    ASSERT_EQ(reserve(&b, b, kLongest), Answer::kGranted);
    EXPECT_EQ(reserve(&a, a, kLongest), Answer::kGranted);
    EXPECT_EQ(memory.reserved(), 2 * kLongest);
}

TEST(MessageMemory, NoneIsReservedWhenTheSystemHasNone)
{
    MessageMemory memory(SIZE_MAX / 16 * 15, SIZE_MAX);
    MessagePiece piece = memory.borrow();
    EXPECT_EQ(memory.reserve(&piece, piece, 1 << 20, 0, 0), MessageMemory::Answer::kNone);
    EXPECT_FALSE(piece.is_long());
    EXPECT_EQ(memory.reserved(), 0u);
}

#include "service/turn_queue.h"

#include "service_fixture.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace orvan_service;
using orvan_test::eventually;

namespace {

constexpr size_t kThreadsAtMost = 32;

} // namespace

TEST(TurnQueue, AFreeTurnIsTakenAtOnceAndAgain)
{
    TurnQueue queue(kThreadsAtMost);
    for (int i = 0; i < 3; ++i) {
        const Turn turn(queue);
        EXPECT_EQ(queue.waiting(), 0u);
    }
}

TEST(TurnQueue, WaitersGetTheirTurnsInTheOrderOfTheirComing)
{
    constexpr size_t kWaiters = 20;
    TurnQueue queue(kThreadsAtMost);
    std::vector<size_t> order;
    std::vector<std::thread> threads;
    queue.take();
    for (size_t i = 0; i < kWaiters; ++i) {
        threads.emplace_back([&queue, &order, i] {
            const Turn turn(queue);
            order.push_back(i);
        });
        ASSERT_TRUE(eventually([&] { return queue.waiting() == i + 1; }));
    }
    EXPECT_TRUE(order.empty());
    queue.give();
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(order.size(), kWaiters);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(queue.waiting(), 0u);
}

TEST(TurnQueue, TheGiverDoesNotGetItBackAheadOfAWaiter)
{
    TurnQueue queue(kThreadsAtMost);
    std::vector<char> order;
    queue.take();
    std::thread waiter([&] {
        const Turn turn(queue);
        order.push_back('w');
    });
    ASSERT_TRUE(eventually([&] { return queue.waiting() == 1; }));
    queue.give();
    {
        const Turn turn(queue);
        order.push_back('g');
    }
    waiter.join();
    EXPECT_EQ(order, (std::vector<char>{'w', 'g'}));
}

TEST(TurnQueue, OneThreadAtATimeHasTheTurn)
{
    constexpr int kThreads = 8;
    constexpr int kTurns = 2000;
    TurnQueue queue(kThreads);
    long count = 0; // no atomic: the turn is what guards it
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int turn_number = 0; turn_number < kTurns; ++turn_number) {
                const Turn turn(queue);
                ++count;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, kThreads * kTurns);
}

// Ticket numbers wrap around after some hours of full load, in two ways: at 2^31 and at 2^32.
TEST(TurnQueue, TicketsMayWrapAround)
{
    for (const uint32_t first : {0x7FFFFFF0u, 0xFFFFFFF0u}) {
        constexpr int kThreads = 3; // the places are four then
        constexpr int kTurns = 50;
        TurnQueue queue(kThreads, first);
        long count = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&] {
                for (int turn_number = 0; turn_number < kTurns; ++turn_number) {
                    const Turn turn(queue);
                    ++count;
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(count, kThreads * kTurns);
        EXPECT_EQ(queue.waiting(), 0u);
    }
}

TEST(TurnQueue, OneThreadAloneNeedsOnePlace)
{
    TurnQueue queue(1);
    for (int i = 0; i < 5; ++i) {
        const Turn turn(queue);
    }
    EXPECT_EQ(queue.waiting(), 0u);
}

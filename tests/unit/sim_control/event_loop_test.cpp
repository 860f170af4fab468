#include <array>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "control/event_loop.h"

using namespace std::chrono_literals;
using orvan_common::UniqueFd;
using sim_control::EventLoop;
using sim_control::EventSink;

namespace {

struct Pair {
    Pair()
    {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        near = UniqueFd(fds[0]);
        far = UniqueFd(fds[1]);
    }
    void poke() const { EXPECT_EQ(write(far.get(), "x", 1), 1); }
    void drain() const
    {
        char byte;
        EXPECT_EQ(read(near.get(), &byte, 1), 1);
    }
    UniqueFd near;
    UniqueFd far;
};

class Calls : public EventSink {
public:
    explicit Calls(std::function<void(short)> action) : m_action(std::move(action)) {}
    void on_ready(short revents) override { m_action(revents); }

private:
    std::function<void(short)> m_action;
};

} // namespace

TEST(EventLoop, AStopBeforeTheRunEndsItAtOnce)
{
    EventLoop loop;
    loop.stop();
    loop.stop();
    loop.run();
}

TEST(EventLoop, AStopFromAnotherThreadEndsTheRun)
{
    EventLoop loop;
    std::thread other([&] { loop.stop(); });
    loop.run();
    other.join();
}

TEST(EventLoop, TimersFireInOrderAndCancelledTimersDoNot)
{
    const auto start = EventLoop::Clock::now();
    EventLoop loop;
    std::vector<int> order;
    loop.after(400ms, [&] {
        order.push_back(3);
        loop.stop();
    });
    loop.after(0ms, [&] { order.push_back(1); });
    const auto cancelled = loop.after(5ms, [&] { order.push_back(99); });
    loop.after(200ms, [&] { order.push_back(2); }); // far enough apart for a busy machine
    loop.cancel(cancelled);
    loop.cancel(12345);
    loop.run();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_GE(EventLoop::Clock::now() - start, 400ms);
}

TEST(EventLoop, AnUnwatchedSinkIsNotCalled)
{
    EventLoop loop;
    Pair first;
    Pair second;
    int calls = 0;
    std::unique_ptr<Calls> victim;
    Calls killer([&](short) {
        ++calls;
        loop.unwatch(second.near.get());
        victim.reset();
        loop.stop();
    });
    victim = std::make_unique<Calls>([&](short) { calls += 100; });
    loop.watch(first.near.get(), POLLIN, killer);
    loop.watch(second.near.get(), POLLIN, *victim);
    first.poke();
    second.poke();
    loop.run();
    EXPECT_EQ(calls, 1);
}

TEST(EventLoop, ASinkMayWatchOthersAndUnwatchItself)
{
    EventLoop loop;
    std::array<Pair, 20> pairs;
    int calls = 0;
    Calls last([&](short) {
        if (++calls == 20) {
            loop.stop();
        }
        pairs[static_cast<size_t>(calls - 1)].drain();
    });
    Pair start;
    Calls first([&](short) {
        loop.unwatch(start.near.get());
        for (const Pair& pair : pairs) {
            loop.watch(pair.near.get(), POLLIN, last);
        }
        pairs[0].poke();
        for (size_t i = 1; i < pairs.size(); ++i) {
            pairs[i].poke();
        }
    });
    loop.watch(start.near.get(), POLLIN, first);
    start.poke();
    loop.run();
    EXPECT_EQ(calls, 20);
}

TEST(EventLoop, NoEventsMeansNoCallsUntilTheyAreRequestedAgain)
{
    EventLoop loop;
    Pair pair;
    bool wanted = false;
    Calls sink([&](short) {
        EXPECT_TRUE(wanted);
        loop.stop();
    });
    loop.watch(pair.near.get(), 0, sink);
    pair.poke();
    loop.after(10ms, [&] {
        wanted = true;
        loop.change(pair.near.get(), POLLIN);
    });
    loop.run();
    EXPECT_TRUE(wanted);
}

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "service/vxi11/waiting_call.h"
#include "support/eventually.h"

using namespace orvan_service;
using namespace orvan_test;
using Event = WaitingCall::Event;
using std::chrono::milliseconds;

namespace {

const auto kNever = WaitingCall::Clock::time_point::max();

struct Recorder {
    std::vector<Event> events;
    bool ready = false;

    WaitingCall::Attempt attempt()
    {
        return [this](Event event) {
            events.push_back(event);
            return ready || event != Event::kTry;
        };
    }
};

} // namespace

TEST(WaitingCall, IsNotKeptIfItNeedNotWait)
{
    Recorder recorder{{}, true};
    WaitingCall call;
    call.start(1000, recorder.attempt());
    EXPECT_EQ(recorder.events, std::vector<Event>{Event::kTry});
    EXPECT_EQ(call.deadline(), kNever);
    call.try_again();
    call.abort();
    EXPECT_EQ(recorder.events.size(), 1u);
}

TEST(WaitingCall, TimesOutAtOnceWithoutATimeLimit)
{
    Recorder recorder;
    WaitingCall call;
    call.start(0, recorder.attempt());
    EXPECT_EQ(recorder.events, (std::vector{Event::kTry, Event::kTimedOut}));
}

TEST(WaitingCall, EndsAtItsTimeLimitToTheMillisecond)
{
    Recorder recorder;
    WaitingCall call;
    const auto before = WaitingCall::Clock::now();
    call.start(100'000, recorder.attempt());
    EXPECT_GE(call.deadline(), before + milliseconds(100'000));
    EXPECT_LE(call.deadline(), WaitingCall::Clock::now() + milliseconds(100'000));
    call.try_again();
    EXPECT_EQ(recorder.events, (std::vector{Event::kTry, Event::kTry}));
    EXPECT_NE(call.deadline(), kNever);
}

TEST(WaitingCall, TimesOutAfterALastTry)
{
    Recorder recorder;
    WaitingCall call;
    call.start(1, recorder.attempt());
    const auto deadline = call.deadline();
    ASSERT_TRUE(eventually([&] { return WaitingCall::Clock::now() >= deadline; }));
    call.try_again();
    EXPECT_EQ(recorder.events, (std::vector{Event::kTry, Event::kTry, Event::kTimedOut}));
    EXPECT_EQ(call.deadline(), kNever);
    call.try_again();
    EXPECT_EQ(recorder.events.size(), 3u);
}

TEST(WaitingCall, IsAbortedOnce)
{
    Recorder recorder;
    WaitingCall call;
    call.start(1000, recorder.attempt());
    call.abort();
    call.abort();
    EXPECT_EQ(recorder.events, (std::vector{Event::kTry, Event::kAborted}));
    EXPECT_EQ(call.deadline(), kNever);
}

TEST(WaitingCall, MayGoOnWaitingForSomethingElse)
{
    Recorder first;
    Recorder second;
    WaitingCall call;
    call.start(1000, [&](Event event) {
        first.events.push_back(event);
        if (!first.ready) {
            return false;
        }
        call.start(500'000, second.attempt());
        return true;
    });
    first.ready = true;
    call.try_again();
    EXPECT_EQ(second.events, std::vector<Event>{Event::kTry});
    EXPECT_GT(call.deadline(), WaitingCall::Clock::now() + milliseconds(400'000));
    second.ready = true;
    call.try_again();
    EXPECT_EQ(first.events.size(), 2u);
    EXPECT_EQ(second.events.size(), 2u);
}

TEST(WaitingCall, MayDestroyItsOwner)
{
    auto call = std::make_unique<WaitingCall>();
    call->start(0, [&](Event event) {
        if (event == Event::kTry) {
            return false;
        }
        call.reset();
        return true;
    });
    EXPECT_EQ(call, nullptr);
    call = std::make_unique<WaitingCall>();
    bool ready = false;
    call->start(1000, [&](Event) {
        if (ready) {
            call.reset();
        }
        return ready;
    });
    ready = true;
    call->try_again();
    EXPECT_EQ(call, nullptr);
}

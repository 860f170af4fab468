#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_service.h"
#include "instrument/counters.h"
#include "instrument/scpi_link.h"
#include "loop_thread.h"
#include "support/eventually.h"

using namespace orvan_web;
using orvan_test::eventually;
using orvan_test::FakeService;
using orvan_test::LoopThread;

namespace {

using testing::ElementsAre;

class LinkTest : public testing::Test {
protected:
    LinkTest()
    {
        loop.post([this] { link.start(); });
    }

    Answer ask(const std::string& message, std::chrono::seconds patience = ScpiLink::kPatience)
    {
        auto answer = std::make_shared<std::promise<Answer>>();
        thread.call([&] {
            link.ask(
                message, [answer](Answer got) { answer->set_value(std::move(got)); }, patience);
        });
        return answer->get_future().get();
    }

    bool wait_reachable(bool wanted)
    {
        return eventually([&] { return reachable == wanted; });
    }

    FakeService service;
    InstrumentLoop loop;
    std::atomic<bool> reachable = false;
    ScpiLink link{loop, service.folder() + "/scpi.sock", [this](bool is) { reachable = is; }};
    CountersClient counters{loop, service.folder() + "/counters.sock"};
    LoopThread thread{loop};
};

} // namespace

TEST_F(LinkTest, AnswerHasTheResponseAndTheErrorsOfItsMessage)
{
    ASSERT_TRUE(wait_reachable(true));
    const Answer answer = ask(":INST 2;:FREQ 50 GHz;:FREQ?;:FOO");
    EXPECT_EQ(answer.outcome, Answer::Outcome::kAnswered);
    EXPECT_EQ(answer.response, "1000000000");
    EXPECT_THAT(answer.errors,
                ElementsAre(ScpiError{-222, "Data out of range"}, ScpiError{-113, "Undefined header"}));
    EXPECT_TRUE(ask(":INST 2;:FREQ?").errors.empty());
}

TEST_F(LinkTest, AnswersToMessagesSentAheadComeInOrder)
{
    ASSERT_TRUE(wait_reachable(true));
    service.bytewise = true;
    std::vector<std::string> responses;
    std::promise<void> last;
    thread.call([&] {
        for (int i = 1; i <= 20; ++i) {
            link.ask(":INST 1;:TRIG:COUN " + std::to_string(i) + ";:TRIG:COUN?",
                     [&responses, &last, i](Answer answer) {
                         responses.push_back(answer.response);
                         if (i == 20) {
                             last.set_value();
                         }
                     });
        }
    });
    last.get_future().get();
    for (int i = 1; i <= 20; ++i) {
        EXPECT_EQ(responses[static_cast<size_t>(i) - 1], std::to_string(i));
    }
}

TEST_F(LinkTest, OnlySomeMessagesAreSentAhead)
{
    ASSERT_TRUE(wait_reachable(true));
    service.silent = true;
    thread.call([&] {
        for (size_t i = 0; i < 2 * ScpiLink::kInFlight; ++i) {
            link.ask(":FREQ?", [](const Answer&) {});
        }
    });
    EXPECT_TRUE(eventually([&] { return service.messages().size() == ScpiLink::kInFlight; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // more would have come
    EXPECT_EQ(service.messages().size(), ScpiLink::kInFlight);
}

TEST_F(LinkTest, ResponseMayHaveABlockWithLineFeeds)
{
    ASSERT_TRUE(wait_reachable(true));
    service.respond(":INST 1;:INT:INF:DEV:OPT?", "#15a\nb\nc;1");
    EXPECT_EQ(ask(":INST 1;:INT:INF:DEV:OPT?").response, "#15a\nb\nc;1");
    EXPECT_EQ(ask(":INST 1;:FREQ?").response, "1000000000");
}

TEST_F(LinkTest, SilentServiceIsATimeoutAndTheNextConnectionWorks)
{
    ASSERT_TRUE(wait_reachable(true));
    service.silent = true;
    EXPECT_EQ(ask(":FREQ?", std::chrono::seconds(1)).outcome, Answer::Outcome::kTimeout);
    service.silent = false;
    ASSERT_TRUE(wait_reachable(true));
    EXPECT_EQ(ask(":FREQ?").response, "1000000000");
}

TEST_F(LinkTest, ServiceThatEndsAnswersWhatWaitsAndIsFoundAgain)
{
    ASSERT_TRUE(wait_reachable(true));
    service.silent = true;
    auto waiting = std::async(std::launch::async, [this] { return ask(":FREQ?"); });
    ASSERT_TRUE(eventually([&] { return thread.call([&] { return link.reachable(); }); }));
    service.stop();
    EXPECT_EQ(waiting.get().outcome, Answer::Outcome::kUnreachable);
    ASSERT_TRUE(wait_reachable(false));
    EXPECT_EQ(ask(":FREQ?").outcome, Answer::Outcome::kUnreachable);
    service.silent = false;
    service.start();
    ASSERT_TRUE(wait_reachable(true));
    EXPECT_EQ(ask(":FREQ?").response, "1000000000");
}

TEST_F(LinkTest, TooManyWaitingMessagesAreRefused)
{
    ASSERT_TRUE(wait_reachable(true));
    service.silent = true;
    std::atomic<int> refused = 0;
    thread.call([&] {
        for (size_t i = 0; i < ScpiLink::kMostWaiting + 3; ++i) {
            link.ask(":FREQ?", [&refused](const Answer& answer) {
                refused += answer.outcome == Answer::Outcome::kBusy ? 1 : 0;
            });
        }
    });
    EXPECT_TRUE(eventually([&] { return refused == 3; }));
    thread.call([&] { return 0; });
    service.silent = false;
    service.stop(); // answers the others
    ASSERT_TRUE(wait_reachable(false));
    EXPECT_EQ(refused, 3);
}

TEST_F(LinkTest, CountersAreReadUpToTheEnd)
{
    const auto fetch = [this] {
        auto result = std::make_shared<std::promise<std::shared_ptr<const Counters>>>();
        thread.call([&] { counters.fetch([result](auto got) { result->set_value(std::move(got)); }); });
        return result->get_future().get();
    };
    service.fail(2, true);
    const auto got = fetch();
    ASSERT_NE(got, nullptr);
    ASSERT_EQ(got->modules.size(), 2U);
    EXPECT_FALSE(got->module(1)->failed);
    EXPECT_TRUE(got->module(2)->failed);
    EXPECT_EQ(got->module(2)->requests, 1);
    EXPECT_EQ(got->module(3), nullptr);
    EXPECT_EQ(number_member(got->document.get(), "uptime_s"), 12.5);
    service.stop();
    EXPECT_EQ(fetch(), nullptr);
}

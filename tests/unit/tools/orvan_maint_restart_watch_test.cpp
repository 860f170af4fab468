// How orvan-maint follows an instrument that has received a package.
#include <gtest/gtest.h>

#include "direct_link.h"
#include "orvan-maint/restart_watch.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr WatchTiming kQuick{2ms, 30ms};
/** So long that an answering instrument never counts as one that did not restart. */
constexpr WatchTiming kPatient{2ms, 10min};

/** An instrument that receives the end of a package, and the watch. */
struct Watch {
    explicit Watch(const WatchTiming& timing = kQuick)
        : watch(link, model.mac, {{FLASH_CSCIVER, model.rows[FLASH_CSCIVER]}}, timing)
    {
    }
    /** Ends the package; without `mark` the end was not acknowledged. */
    void update(bool mark = true)
    {
        watch.prepare();
        model.serve(wire_bytes(make_frame(kOpcodeSoftware, model.mac), 0));
        HALDE_PACKET end = make_frame(kOpcodeIdentify, model.mac);
        put_block(end, 1);
        put_size(end, EOD);
        put_info(end, 1);
        model.serve(wire_bytes(end, 0));
        if (mark) {
            watch.mark();
        }
        marked = mark;
    }
    Aftermath follow(std::chrono::milliseconds time = 10s)
    {
        return watch.follow(Clock::now() + time, [this] { ++answers; });
    }
    /** Another PC's request, with this `info`; waiting requests are answered first. */
    void ask_from_elsewhere(uint32_t info)
    {
        HALDE_PACKET frame = make_frame(kOpcodeIdentify, eth_brdcast_addr);
        put_info(frame, info);
        std::vector<Bytes> replies = model.serve(wire_bytes(frame, 0));
        replies.pop_back();
        link.waiting.insert(link.waiting.end(), replies.begin(), replies.end());
    }

    InstrumentModel model;
    DirectLink link{model};
    RestartWatch watch;
    int answers = 0;
    bool marked = false;
};

} // namespace

TEST(MaintWatch, SeesARestartBeforeAnyAnswer)
{
    Watch watch(kPatient);
    watch.model.busy = 20;
    watch.model.restarts = true;
    watch.model.away = 5;
    watch.update();
    EXPECT_EQ(watch.follow(), Aftermath::kRestarted);
    EXPECT_EQ(watch.answers, 0);
}

TEST(MaintWatch, SeesARestartAfterSomeAnswers)
{
    Watch watch(kPatient);
    watch.model.busy = 20;
    watch.model.restarts = true;
    watch.model.answers_before = 4;
    watch.model.away = 5;
    watch.update();
    EXPECT_EQ(watch.follow(), Aftermath::kRestarted);
    EXPECT_EQ(watch.answers, 1);
}

TEST(MaintWatch, AnotherVersionProvesARestartHoweverShort)
{
    Watch watch(kPatient);
    watch.model.restarts = true;
    watch.model.answers_before = 4;
    watch.model.software_after = "1.20.3";
    watch.update();
    EXPECT_EQ(watch.follow(), Aftermath::kRestarted);
    EXPECT_EQ(text_of(watch.watch.rows(), FLASH_CSCIVER), "1.20.3");
}

TEST(MaintWatch, ARestartBetweenTwoAnswersIsNotMissed)
{
    Watch watch;
    watch.model.restarts = true;
    watch.model.answers_before = 3; // the marks
    watch.update();
    EXPECT_EQ(watch.follow(), Aftermath::kUnknown);
}

TEST(MaintWatch, SeesThatItDidNotRestart)
{
    for (const int busy : {0, 1, 20}) {
        Watch watch;
        watch.model.busy = busy;
        watch.update();
        const auto start = Clock::now();
        EXPECT_EQ(watch.follow(), Aftermath::kStayed) << busy;
        EXPECT_GE(Clock::now() - start, kQuick.settled);
        EXPECT_EQ(watch.answers, 1);
    }
}

TEST(MaintWatch, LostFramesAreNoRestart)
{
    for (const bool requests : {true, false}) {
        Watch watch;
        watch.update();
        const size_t before = watch.link.sent.size();
        const auto loses = [&watch, before](const HALDE_PACKET&, size_t) {
            return (watch.link.sent.size() - before) % 3 == 0 ? 1 : 0;
        };
        (requests ? watch.link.requests : watch.link.replies) = loses;
        const Aftermath aftermath = watch.follow();
        EXPECT_NE(aftermath, Aftermath::kRestarted);
        EXPECT_NE(aftermath, Aftermath::kUnknown);
    }
}

TEST(MaintWatch, InstrumentThatDoesNotAnswerIsSilent)
{
    Watch watch;
    watch.update();
    watch.model.is_silent = true;
    watch.link.waiting.clear();
    EXPECT_EQ(watch.follow(20ms), Aftermath::kSilent);
    EXPECT_EQ(watch.answers, 0);
    EXPECT_LE(watch.link.sent.size(), 30U);
}

TEST(MaintWatch, WaitsToTheEndForAnInstrumentThatDisappears)
{
    Watch watch(kPatient);
    watch.model.restarts = true;
    watch.model.answers_before = 4;
    watch.model.away = 1'000'000;
    watch.update();
    const auto start = Clock::now();
    EXPECT_EQ(watch.follow(1s), Aftermath::kWentAway);
    EXPECT_GE(Clock::now() - start, 1s);
    EXPECT_EQ(watch.answers, 1);
}

TEST(MaintWatch, WaitsPastTheDeadlineForAnInstrumentThatIsAway)
{
    Watch watch({2ms, 1s});
    watch.model.restarts = true;
    watch.model.answers_before = 4;
    watch.model.away = 700; // longer than that time
    watch.update();
    EXPECT_EQ(watch.follow(30s), Aftermath::kRestarted);
}

TEST(MaintWatch, IsNotCertainBeforeTheDeadline)
{
    Watch watch(kPatient);
    watch.update();
    EXPECT_EQ(watch.follow(10ms), Aftermath::kUnknown);
}

TEST(MaintWatch, AnotherPcsRequestLeavesItUncertain)
{
    for (const uint32_t info : {0U, 1U, 7U}) {
        Watch watch;
        watch.model.busy = 5; // the marks and two requests, which are answered before it is known
        watch.link.meanwhile = [&watch, info, asked = false](size_t) mutable {
            if (watch.marked && watch.model.busy == 0 && !std::exchange(asked, true)) {
                watch.ask_from_elsewhere(info);
            }
        };
        watch.update();
        EXPECT_EQ(watch.follow(), Aftermath::kUnknown) << info;
    }
}

TEST(MaintWatch, AnotherPcsRequestDoesNotHideALaterRestart)
{
    Watch watch(kPatient);
    watch.model.restarts = true;
    watch.model.answers_before = 6;
    watch.model.away = 5;
    watch.update();
    watch.ask_from_elsewhere(7);
    EXPECT_EQ(watch.follow(), Aftermath::kRestarted);
}

TEST(MaintWatch, AFrameLostAfterAnotherPcsRequestIsNoRestart)
{
    Watch watch;
    watch.update();
    watch.ask_from_elsewhere(0);
    const size_t before = watch.link.sent.size();
    watch.link.requests = [before](const HALDE_PACKET&, size_t number) {
        return (number - before) % 3 == 1 ? 0 : 1;
    };
    EXPECT_EQ(watch.follow(), Aftermath::kUnknown);
}

TEST(MaintWatch, AnotherPcsRunningRequestIsNoRestartWithoutTheMark)
{
    Watch watch;
    watch.model.busy = 2;
    watch.update(false);
    watch.link.meanwhile = [&watch, asked = false](size_t) mutable {
        if (watch.model.busy == 0 && !std::exchange(asked, true)) {
            watch.ask_from_elsewhere(0);
        }
    };
    EXPECT_EQ(watch.follow(), Aftermath::kUnknown);
}

TEST(MaintWatch, WithoutAnAcknowledgedEndItNeverRulesOutARestart)
{
    Watch watch;
    watch.update(false);
    EXPECT_EQ(watch.follow(), Aftermath::kUnknown);
    Watch restarted(kPatient);
    restarted.model.restarts = true;
    restarted.model.away = 5;
    restarted.update(false);
    EXPECT_EQ(restarted.follow(), Aftermath::kRestarted);
}

TEST(MaintWatch, AnInstrumentWithoutAMarkIsJudgedByItsVersionOnly)
{
    Watch watch;
    watch.model.clears_buffer = true;
    watch.model.busy = 20;
    watch.update(false);
    EXPECT_EQ(watch.follow(), Aftermath::kUnknown);
    Watch updated(kPatient);
    updated.model.clears_buffer = true;
    updated.model.restarts = true;
    updated.model.software_after = "1.20.3";
    updated.update();
    EXPECT_EQ(updated.follow(), Aftermath::kRestarted);
}

TEST(MaintWatch, AnotherPcsSearchDuringPreparationDoesNotPreventTheMark)
{
    Watch watch;
    watch.link.meanwhile = [&watch](size_t number) {
        if (number == 1) {
            watch.ask_from_elsewhere(1);
        }
    };
    watch.update();
    EXPECT_EQ(watch.follow(), Aftermath::kStayed);
}

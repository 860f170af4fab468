#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <thread>

#include <dlfcn.h>

#include "hw/hw.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"
#include "temperature_bench.h"

using namespace orvan_test;

namespace {

std::atomic<bool> g_delay_throws = false;

} // namespace

// Overrides the board's: a poll throws only the conversion's exceptions, and the
// thread has to handle any other as well.
extern "C" void hw_delay_us(uint64_t us)
{
    if (g_delay_throws) {
        throw 42;
    }
    static const auto next = reinterpret_cast<void (*)(uint64_t)>(dlsym(RTLD_NEXT, "hw_delay_us"));
    next(us);
}

namespace {

const LogLine kRunning = {LOG_INFO, "ThreadRunTempratureFunction: thread running\n"};
const LogLine kExit = {LOG_INFO, "ThreadRunTempratureFunction: thread exit\n"};

class TemperatureThread : public TemperatureMonitor {
protected:
    ~TemperatureThread() override { g_delay_throws = false; }

    /** The thread at the beginning of its first pause. */
    void start()
    {
        orvanx->startTempratureThread();
        ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    }
    /** Advances the clock by a pause, and waits for the poll after it. */
    void next_poll()
    {
        board->clock().advance(kPause);
        ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    }
};

TEST_F(TemperatureThread, TheFirstPollIsThirtySecondsAfterTheStart)
{
    logs.clear();
    start();
    EXPECT_EQ(logs.lines(), std::vector<LogLine>{kRunning});
    board->clock().advance(kPause - 1);
    EXPECT_EQ(board->clock().sleepers(), 1u);
    EXPECT_EQ(module_of(1).connections(), 0u);
    EXPECT_EQ(greatest(), 0.0);
    board->clock().advance(1);
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    EXPECT_EQ(module_of(1).connections(), 1u);
    EXPECT_EQ(greatest(), 30.0);
}

TEST_F(TemperatureThread, ThirtySecondsPassAfterEachPoll)
{
    start();
    for (size_t polls = 1; polls <= 3; ++polls) {
        next_poll();
        EXPECT_EQ(module_of(4).connections(), polls);
    }
    EXPECT_EQ(board->trace().lines(), std::vector<std::string>(4, "delay 30000000"));
}

// They would hide that a message hangs.
TEST_F(TemperatureThread, ThePollsOfTheThreadDoNotCountAsProgress)
{
    start();
    const uint32_t before = scpi_progress();
    next_poll();
    EXPECT_EQ(module_of(1).connections(), 1u);
    EXPECT_EQ(scpi_progress(), before);
    poll();
    EXPECT_NE(scpi_progress(), before) << "one that a caller makes is the caller's";
}

TEST_F(TemperatureThread, TheThreadPollsTheInstalledChannels)
{
    orvanx->setNumberofChannels(2);
    start();
    next_poll();
    EXPECT_EQ(module_of(2).connections(), 1u);
    EXPECT_EQ(module_of(3).connections(), 0u);
    orvanx->setNumberofChannels(kMaxChannels);
}

TEST_F(TemperatureThread, AStopTakesEffectAfterTheSleepAndTheFollowingPoll)
{
    start();
    run_flag(*orvanx) = false;
    EXPECT_EQ(logs.count(kExit.priority, kExit.text), 0u);
    board->clock().advance(kPause);
    EXPECT_TRUE(logs.wait_for(kExit.priority, kExit.text));
    EXPECT_EQ(module_of(1).connections(), 1u);
    EXPECT_EQ(board->clock().sleepers(), 0u);
}

TEST_F(TemperatureThread, TheBodySetsItsOwnFlag)
{
    run_flag(*orvanx) = false;
    std::thread body(&Scpi_Orvanx::ThreadRunTempratureFunction, orvanx);
    const bool asleep = board->clock().wait_for_sleepers(1);
    EXPECT_TRUE(asleep);
    EXPECT_TRUE(run_flag(*orvanx));
    run_flag(*orvanx) = false;
    board->clock().advance(kPause);
    body.join();
}

TEST_F(TemperatureThread, TheDestructorWaitsForTheThread)
{
    start();
    std::thread clock([this] {
        while (run_flag(*orvanx)) {
            std::this_thread::yield();
        }
        board->clock().advance(kPause);
    });
    delete orvanx;
    clock.join();
    EXPECT_EQ(logs.lines().back(), (LogLine{LOG_DEBUG, "Singleton instance destroy"}));
    EXPECT_EQ(logs.count(kExit.priority, kExit.text), 1u);
    SCPI_Deinit(&scpi_context);
    orvanx = Scpi_Orvanx::getInstance();
    orvanx->setSelectedChannel(1);
}

TEST_F(TemperatureThread, AnAnswerWithoutANumberEndsTheThreadForGood)
{
    start();
    next_poll();
    module_of(2).always(ModuleAnswer::close_mute()); // an empty reply is a good one
    logs.clear();
    board->clock().advance(kPause);
    const auto exception = [&] {
        const auto lines = logs.lines();
        return std::find_if(lines.begin(), lines.end(), [](const LogLine& line) {
                   return line.priority == LOG_ERR && line.text.starts_with("Temperature thread exception: ");
               }) != lines.end();
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!exception() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(exception());
    EXPECT_TRUE(logs.lines().back().text.ends_with("\n"));
    EXPECT_TRUE(run_flag(*orvanx));
    EXPECT_EQ(logs.count(kExit.priority, kExit.text), 0u);
    EXPECT_EQ(module_of(1).connections(), 2u);
    EXPECT_EQ(module_of(3).connections(), 1u) << "the channels after it are not polled";
    EXPECT_EQ(board->clock().sleepers(), 0u);
    EXPECT_EQ(greatest(), 30.0);
}

TEST_F(TemperatureThread, AThrownNonExceptionEndsTheThreadToo)
{
    logs.clear();
    g_delay_throws = true;
    orvanx->startTempratureThread();
    EXPECT_TRUE(logs.wait_for(LOG_ERR, "Temperature thread unknown exception!\n"));
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{kRunning, {LOG_ERR, "Temperature thread unknown exception!\n"}}));
    EXPECT_TRUE(run_flag(*orvanx));
}

TEST_F(TemperatureThread, TheServiceAndTheThreadMayPollAtTheSameTime)
{
    start();
    std::thread service([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(orvanx->getTempratureForOrvanXResponse(), "30.000000");
        }
    });
    for (int i = 0; i < 20; ++i) {
        next_poll();
        EXPECT_EQ(greatest(), 30.0);
    }
    service.join();
    EXPECT_EQ(module_of(1).connections(), 40u);
}

/** The expected state after one poll, computed from each module's answer. */
struct Expected {
    std::array<bool, kMaxChannels> live{};
    double greatest = -1e9;
    int too_hot = 0;
};

TEST_F(TemperatureThread, TenHoursOfModulesThatComeAndGo)
{
    constexpr int kPolls = 10 * 60 * 2;
    constexpr int kInstalled = 2;
    std::mt19937 dice(20260);
    orvanx->setNumberofChannels(kInstalled);
    orvanx->setSelectedChannel(2);
    logs.clear();
    start();
    std::map<int, std::string> last_good;
    size_t failures = 0;
    for (int poll_number = 1; poll_number <= kPolls; ++poll_number) {
        Expected expected;
        for (int ch = 1; ch <= kInstalled; ++ch) {
            ScriptedModule* const asked = ch == 2 ? &own_server : modules[index(ch)].get();
            const unsigned fate = dice() % 16;
            if (asked != &own_server && (asked == nullptr || fate == 0)) {
                // A module is away for some polls and returns at another address and port.
                if (asked == nullptr && fate < 8) {
                    modules[index(ch)] =
                        std::make_unique<ScriptedModule>("127.0." + std::to_string(6 + ch) + ".1");
                    connect_module(ch, module_of(ch));
                } else {
                    modules[index(ch)] = nullptr;
                    expected.greatest = std::max(expected.greatest, 100.0);
                    ++failures;
                    continue;
                }
            }
            ScriptedModule& answering = ch == 2 ? own_server : module_of(ch);
            if (fate == 1 || fate == 2) {
                answering.then(fate == 1 ? ModuleAnswer::reset() : ModuleAnswer::reply("-ERR -350\r\n"));
                expected.greatest = std::max(expected.greatest, 100.0);
                ++failures;
                continue;
            }
            const int quarters = static_cast<int>(dice() % 400);
            const std::string celsius =
                std::to_string(quarters / 4) + "." + std::to_string(quarters % 4 * 25);
            answering.then(ModuleAnswer::reply(celsius + ";+OK\r\n"));
            expected.live[index(ch)] = true;
            expected.greatest = std::max(expected.greatest, quarters / 4.0);
            if (quarters >= 65 * 4) {
                expected.too_hot |= 1 << (ch - 1);
            }
            char shown[32];
            std::snprintf(shown, sizeof shown, "%.12g", quarters / 4.0);
            last_good[ch] = shown;
        }
        next_poll();
        ASSERT_EQ(live(), expected.live) << poll_number;
        ASSERT_EQ(greatest(), expected.greatest) << poll_number;
        ASSERT_EQ(verdict(kTempTest),
                  (Verdict{expected.too_hot != 0 ? BIT_FAIL : BIT_PASS, expected.too_hot}))
            << poll_number;
        for (const auto& [ch, shown] : last_good) {
            ASSERT_EQ(text(ch, ODT_TEMP), shown) << poll_number;
        }
    }
    EXPECT_EQ(board->clock().now_us(), kPolls * kPause);
    size_t warnings = 0;
    for (const LogLine& line : logs.lines()) {
        warnings += line.priority == LOG_WARNING ? 1 : 0;
    }
    EXPECT_EQ(warnings, failures);
    EXPECT_GT(failures, 250u);
    EXPECT_TRUE(run_flag(*orvanx));
    orvanx->setNumberofChannels(kMaxChannels); // as many as the records to be unmapped
}

} // namespace

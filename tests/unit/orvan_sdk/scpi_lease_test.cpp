// The lease of the parser by a client, and its watchdog.
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "lease_bench.h"
#include "orvan_sdk/scpi-parser/scpi_lease.h"
#include "own_process.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "timer_tap.h"

using namespace orvan_test;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

// A client's thread that requests the lease when constructed, and keeps it.
class Waiter {
public:
    explicit Waiter(int fd) : m_entered(std::async(std::launch::async, scpi_lease_acquire, fd)) {}

    bool enters() const { return m_entered.wait_for(kBound) == std::future_status::ready; }
    bool stays_out() const { return m_entered.wait_for(kStaysOut) == std::future_status::timeout; }
    bool is_in() const { return m_entered.wait_for(0s) == std::future_status::ready; }

private:
    std::future<void> m_entered;
};

class Lease : public testing::Test {
protected:
    void SetUp() override { run_in_own_process(); } // the timer stays the substitute
    bool was_reset() const { return errors.text() == "**Reset\r\n"; }
    bool nothing_reset() const { return errors.text().empty(); }

    TimerTap timer;
    OutputCapture errors{STDERR_FILENO};
};

TEST_F(Lease, AFreeParserIsTakenAtOnceWithoutATimer)
{
    scpi_lease_acquire(kFirst);
    EXPECT_TRUE(timer.calls().empty());
    scpi_lease_release(kFirst);
}

TEST_F(Lease, TheOwnerMayTakeItAgain)
{
    scpi_lease_acquire(kFirst);
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kFirst);
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kFirst);
}

TEST_F(Lease, OneReleaseFreesItHoweverOftenItWasTaken)
{
    scpi_lease_acquire(kFirst);
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kFirst);
    const Waiter second(kSecond);
    EXPECT_TRUE(second.enters());
    scpi_lease_release(kSecond);
}

TEST_F(Lease, AWaitingClientIsWokenByTheReleaseAndTakesIt)
{
    scpi_lease_acquire(kFirst);
    const Waiter second(kSecond);
    EXPECT_TRUE(second.stays_out());
    scpi_lease_release(kFirst);
    EXPECT_TRUE(second.enters());
    const Waiter first_again(kFirst);
    EXPECT_TRUE(first_again.stays_out());
    scpi_lease_release(kSecond);
    EXPECT_TRUE(first_again.enters());
    scpi_lease_release(kFirst);
}

TEST_F(Lease, OneOfTwoWaitersGetsItAndTheOtherKeepsWaiting)
{
    scpi_lease_acquire(kFirst);
    const Waiter second(kSecond);
    const Waiter third(kThird);
    EXPECT_TRUE(second.stays_out());
    EXPECT_TRUE(third.stays_out());
    scpi_lease_release(kFirst);
    const auto deadline = steady_clock::now() + kBound;
    while (!second.is_in() && !third.is_in() && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    const bool second_won = second.is_in();
    const Waiter& loser = second_won ? third : second;
    EXPECT_TRUE(loser.stays_out());
    scpi_lease_release(second_won ? kSecond : kThird);
    EXPECT_TRUE(loser.enters());
    scpi_lease_release(second_won ? kThird : kSecond);
}

// Both connections have the same number, so neither waits for the other.
TEST_F(Lease, EveryWayToFreeItWakesAllWaiters)
{
    const auto release = [] { scpi_lease_release(kFirst); };
    const auto abort = [] { scpi_lease_abort_if_owner(kFirst); };
    const auto expire = [this] { timer.fire(); };
    for (const std::function<void()>& free : {std::function<void()>(release), {abort}, {expire}}) {
        scpi_lease_acquire(kFirst);
        scpi_watchdog_pet_owner(kFirst);
        const Waiter one(kSecond);
        const Waiter other(kSecond);
        EXPECT_TRUE(one.stays_out());
        EXPECT_TRUE(other.stays_out());
        free();
        EXPECT_TRUE(one.enters() && other.enters());
        while (!one.is_in() || !other.is_in()) { // lets the case end
            scpi_lease_release(kSecond);
        }
        scpi_lease_release(kSecond);
    }
}

TEST_F(Lease, AReleaseByAnotherChangesNothing)
{
    scpi_lease_release(kSecond); // it is not held
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kSecond);
    const Waiter third(kThird);
    EXPECT_TRUE(third.stays_out());
    scpi_lease_release(kFirst);
    EXPECT_TRUE(third.enters());
    scpi_lease_release(kThird);
}

TEST_F(Lease, AReleaseDoesNotReset)
{
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kFirst);
    EXPECT_TRUE(nothing_reset());
}

TEST_F(Lease, ALostOwnerResetsTheInputAndAdmitsTheNext)
{
    scpi_lease_acquire(kFirst);
    const Waiter second(kSecond);
    EXPECT_TRUE(second.stays_out());
    scpi_lease_abort_if_owner(kFirst);
    EXPECT_TRUE(second.enters());
    EXPECT_TRUE(was_reset());
    scpi_lease_release(kSecond);
}

TEST_F(Lease, ALostClientThatDoesNotHoldItChangesNothing)
{
    scpi_lease_abort_if_owner(kFirst); // it is not held
    scpi_lease_acquire(kFirst);
    scpi_lease_abort_if_owner(kSecond);
    const Waiter third(kThird);
    EXPECT_TRUE(third.stays_out());
    EXPECT_TRUE(nothing_reset());
    scpi_lease_release(kFirst);
    EXPECT_TRUE(third.enters());
    scpi_lease_release(kThird);
}

TEST_F(Lease, AConnectionWithARecycledNumberIsTheSameOwner)
{
    scpi_lease_acquire(kFirst);
    std::thread([] { scpi_lease_acquire(kFirst); }).join();
    std::thread([] { scpi_lease_release(kFirst); }).join();
    const Waiter second(kSecond);
    EXPECT_TRUE(second.enters());
    scpi_lease_release(kSecond);
}

// ---- the watchdog

TEST(LeaseConstant, TheWatchdogTimeIsThreeSeconds)
{
    EXPECT_EQ(SCPI_WATCHDOG_MS, 3000);
}

TEST_F(Lease, TheFirstPetMakesAOneShotTimerOfThreeSeconds)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    EXPECT_EQ(timer.calls(), kFirstArming);
    EXPECT_TRUE(timer.armed());
    scpi_lease_release(kFirst);
}

TEST_F(Lease, EachPetRestartsTheTimeOnTheSameTimer)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    timer.clear();
    scpi_watchdog_pet_owner(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    EXPECT_EQ(timer.calls(), (std::vector<std::string>{"set 3.000000000", "set 3.000000000"}));
    scpi_lease_release(kFirst);
}

TEST_F(Lease, APetOfAClientThatDoesNotHoldItArmsNothing)
{
    scpi_watchdog_pet_owner(kFirst);
    scpi_watchdog_pet_owner(-1); // the number that means no owner
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kSecond);
    EXPECT_TRUE(timer.calls().empty());
    scpi_lease_release(kFirst);
}

TEST_F(Lease, AReleaseDisarms)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    scpi_lease_release(kFirst);
    EXPECT_EQ(timer.calls().back(), "disarm");
    EXPECT_FALSE(timer.armed());
}

TEST_F(Lease, ALostOwnerDisarms)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    scpi_lease_abort_if_owner(kFirst);
    EXPECT_FALSE(timer.armed());
}

TEST_F(Lease, TakingTheFreeParserDisarms)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    scpi_lease_release(kFirst);
    timer.clear();
    scpi_lease_acquire(kSecond);
    EXPECT_EQ(timer.calls(), std::vector<std::string>{"disarm"});
    scpi_lease_release(kSecond);
}

TEST_F(Lease, TheOwnersNextBytesLeaveTheTimerRunning)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    timer.clear();
    scpi_lease_acquire(kFirst);
    EXPECT_TRUE(timer.calls().empty());
    EXPECT_TRUE(timer.armed());
    scpi_lease_release(kFirst);
}

TEST_F(Lease, ExpiryFreesTheParserResetsTheInputAndWakesTheNext)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    const Waiter second(kSecond);
    EXPECT_TRUE(second.stays_out());
    timer.fire();
    EXPECT_TRUE(second.enters());
    EXPECT_TRUE(was_reset());
    scpi_lease_release(kFirst); // no longer the owner
    const Waiter third(kThird);
    EXPECT_TRUE(third.stays_out());
    scpi_lease_release(kSecond);
    EXPECT_TRUE(third.enters());
    scpi_lease_release(kThird);
}

TEST_F(Lease, AnExpiryThatLosesTheRaceWithTheReleaseDoesNothing)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    scpi_lease_release(kFirst);
    timer.fire();
    EXPECT_TRUE(nothing_reset());
}

TEST_F(Lease, ALateExpiryDoesNotTouchTheNextOwner)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    scpi_lease_release(kFirst);
    scpi_lease_acquire(kSecond);
    timer.fire();
    EXPECT_TRUE(nothing_reset());
    const Waiter third(kThird);
    EXPECT_TRUE(third.stays_out());
    scpi_lease_release(kSecond);
    EXPECT_TRUE(third.enters());
    scpi_lease_release(kThird);
}

TEST_F(Lease, AnExpiryCountsOnce)
{
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    timer.fire();
    std::thread([] { scpi_lease_acquire(kSecond); }).join();
    timer.fire();
    EXPECT_TRUE(was_reset()); // but not twice
    const Waiter third(kThird);
    EXPECT_TRUE(third.stays_out());
    scpi_lease_release(kSecond);
    EXPECT_TRUE(third.enters());
    scpi_lease_release(kThird);
}

TEST_F(Lease, WithoutATimerTheWatchdogStaysOffAndNothingIsReported)
{
    const LogCapture logs;
    timer.fail_create(EAGAIN);
    scpi_lease_acquire(kFirst);
    scpi_watchdog_pet_owner(kFirst);
    EXPECT_EQ(timer.calls(), std::vector<std::string>{kFirstArming[0]});
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_TRUE(nothing_reset());
    const Waiter second(kSecond);
    EXPECT_TRUE(second.stays_out());

    timer.fail_create(0);
    timer.clear();
    scpi_watchdog_pet_owner(kFirst); // tries again
    EXPECT_EQ(timer.calls(), kFirstArming);
    scpi_lease_release(kFirst);
    EXPECT_TRUE(second.enters());
    scpi_lease_release(kSecond);
}

} // namespace

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_lease.h"
#include "own_process.h"
#include "support/output_capture.h"
#include "support/rendezvous.h"
#include "timer_tap.h"

using namespace orvan_test;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

constexpr int kFirst = 1001; // no descriptors of this process: the lease knows numbers only
constexpr int kSecond = 1002;
constexpr int kThird = 1003;

// Long enough to see that a thread has entered.
constexpr auto kStaysOut = 100ms;
constexpr auto kBound = 10s;

const std::vector<std::string> kFirstArming = {"create CLOCK_MONOTONIC SIGEV_THREAD", "set 3.000000000"};

// A client's thread that requests the lease on construction and keeps it.
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
    void SetUp() override { run_in_own_process(); } // the timer stays a tapped one
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

TEST_F(Lease, TheOwnerGetsThroughAgain)
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

TEST_F(Lease, OfTwoThatWaitOneGetsItAndTheOtherWaitsOn)
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
TEST_F(Lease, EveryWayToFreeItWakesAllThatWait)
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

TEST_F(Lease, AReleaseIsNoReset)
{
    scpi_lease_acquire(kFirst);
    scpi_lease_release(kFirst);
    EXPECT_TRUE(nothing_reset());
}

TEST_F(Lease, ALostOwnerResetsTheInputAndLetsTheNextIn)
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
    scpi_watchdog_pet_owner(-1); // the owner's number while there is none
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

TEST_F(Lease, AnExpiryThatLostTheRaceAgainstTheReleaseDoesNothing)
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
    EXPECT_TRUE(was_reset()); // and not twice
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

// ---- the lease of a message

class MessageLease : public FrontEndBench {
protected:
    void SetUp() override { run_in_own_process(); } // the timer stays a tapped one

    class Waiter {
    public:
        explicit Waiter(int fd) : m_fd(fd), m_entered(std::async(std::launch::async, scpi_lease_acquire, fd))
        {
        }
        // Releases what it gets; a case must not end while this still waits.
        ~Waiter()
        {
            m_entered.wait();
            scpi_lease_release(m_fd);
        }
        bool enters_within(std::chrono::milliseconds bound) const
        {
            return m_entered.wait_for(bound) == std::future_status::ready;
        }

    private:
        int m_fd;
        std::future<void> m_entered;
    };

    TimerTap timer;
};

TEST_F(MessageLease, ACompleteLineReleasesItAndMakesNoTimer)
{
    EXPECT_EQ(ask(":SYST:VERS?"), "1999.0;+OK\r\n");
    const Waiter other(kSecond);
    EXPECT_TRUE(other.enters_within(kBound));
    EXPECT_TRUE(timer.calls().empty());
}

TEST_F(MessageLease, ACompleteLineThatFailsArmsNothing)
{
    EXPECT_FALSE(feed(":FOO\n"));
    EXPECT_TRUE(timer.calls().empty());
    const Waiter other(kSecond);
    EXPECT_TRUE(other.enters_within(kBound));
}

TEST_F(MessageLease, AnIncompleteLineKeepsItAndArmsTheWatchdog)
{
    EXPECT_FALSE(feed(":SYST:"));
    EXPECT_EQ(timer.calls(), kFirstArming);
    const Waiter other(kSecond);
    EXPECT_FALSE(other.enters_within(kStaysOut));
    EXPECT_TRUE(feed("VERS?\n"));
    EXPECT_TRUE(other.enters_within(kBound));
    EXPECT_EQ(read_ready(client.client()), "1999.0;+OK\r\n");
    EXPECT_FALSE(timer.armed());
}

TEST_F(MessageLease, EachFurtherPieceRestartsTheTime)
{
    feed(":SY");
    feed("ST:");
    feed("VE");
    EXPECT_EQ(timer.calls(), (std::vector<std::string>{kFirstArming[0], "set 3.000000000", "set 3.000000000",
                                                       "set 3.000000000"}));
    feed("RS?\n");
    EXPECT_EQ(read_ready(client.client()), "1999.0;+OK\r\n");
}

TEST_F(MessageLease, AClientThatStopsGetsNoReplyAndLosesItsMessage)
{
    const OutputCapture errors(STDERR_FILENO);
    feed(":SYST:VERS?;:FOO");
    timer.fire();
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_EQ(read_ready(client.client()), "");
    const TcpPair second;
    speak_as(second);
    feed("\n");
    EXPECT_EQ(read_ready(second.client()), "+OK\r\n"); // on an empty input buffer
    speak_as(client);
    EXPECT_EQ(ask(":SYST:VERS?"), "1999.0;+OK\r\n"); // its next bytes start a new message
}

TEST_F(MessageLease, AStoppedBlockIsDroppedAsAWhole)
{
    const OutputCapture errors(STDERR_FILENO);
    feed(":LIST:DATA #3100abc\n");
    timer.fire();
    EXPECT_EQ(ask(":SYST:VERS?"), "1999.0;+OK\r\n");
}

TEST_F(MessageLease, ALostClientReleasesIt)
{
    const OutputCapture errors(STDERR_FILENO);
    feed(":FOO;");
    orvanx->connection_abort(client.server());
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_FALSE(timer.armed());
    const Waiter other(kSecond);
    EXPECT_TRUE(other.enters_within(kBound));
}

TEST_F(MessageLease, ALostClientWithoutAMessageResetsNothing)
{
    const OutputCapture errors(STDERR_FILENO);
    ask(":SYST:VERS?");
    orvanx->connection_abort(client.server());
    const TcpPair other;
    feed(":FOO;");
    orvanx->connection_abort(other.server());
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(ask(":SYST:VERS?"), "-ERR -113, \"Undefined header\";1999.0;+OK\r\n");
}

TEST_F(MessageLease, ASocketClosedBeforeTheReplyReleasesItAndClearsTheBuffer)
{
    const OutputCapture errors(STDERR_FILENO);
    const TcpPair gone;
    ::shutdown(gone.server(), SHUT_WR);
    speak_as(gone);
    feed(":FOO\n");
    EXPECT_EQ(errors.text(), "socket closed unexpectedly. aborting\n");
    speak_as(client);
    EXPECT_EQ(ask(":SYST:VERS?"), "1999.0;+OK\r\n");
}

TEST_F(MessageLease, AFlushWithoutAUserRecordDoesNotTouchIt)
{
    scpi_lease_acquire(client.server());
    void* const record = scpi_context.user_context;
    scpi_context.user_context = nullptr;
    EXPECT_EQ(SCPI_Flush(&scpi_context), SCPI_RES_OK);
    scpi_context.user_context = record;
    const Waiter other(kSecond);
    EXPECT_FALSE(other.enters_within(kStaysOut));
    scpi_lease_release(client.server());
}

TEST_F(MessageLease, ALongCommandHoldsTheOthersOffWithoutATimer)
{
    Rendezvous answer(2);
    module.then(ModuleAnswer::reply_behind([&] { answer.meet(kBound); }, "1;+OK\r\n"));
    const TcpPair second;
    std::thread first([this] { feed(":FREQ?\n"); });
    ASSERT_TRUE(module.wait_requests(1));
    const Waiter other(kSecond);
    EXPECT_FALSE(other.enters_within(kStaysOut));
    EXPECT_TRUE(answer.meet());
    first.join();
    EXPECT_TRUE(other.enters_within(kBound));
    EXPECT_TRUE(timer.calls().empty());
    EXPECT_EQ(read_ready(client.client()), "1;+OK\r\n");
}

TEST_F(MessageLease, AWatchdogLeftFromThePiecesFiresIntoTheCommand)
{
    const OutputCapture errors(STDERR_FILENO);
    Rendezvous answer(2);
    module.then(ModuleAnswer::reply_behind([&] { answer.meet(kBound); }, "1;+OK\r\n"));
    feed(":FRE");
    std::thread first([this] { feed("Q?\n"); });
    ASSERT_TRUE(module.wait_requests(1));
    EXPECT_TRUE(timer.armed());
    timer.fire();
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    {
        std::promise<void> entered;
        std::thread next([&] {
            scpi_lease_acquire(kSecond);
            entered.set_value();
        });
        EXPECT_EQ(entered.get_future().wait_for(kBound), std::future_status::ready);
        next.join();
    }
    EXPECT_TRUE(answer.meet());
    first.join(); // its release is a no-op: the next client holds the lease
    const Waiter third(kThird);
    EXPECT_FALSE(third.enters_within(kStaysOut));
    scpi_lease_release(kSecond);
    EXPECT_TRUE(third.enters_within(kBound));
    EXPECT_EQ(read_ready(client.client()), "1;+OK\r\n");
}

TEST_F(MessageLease, NamingAnotherClientDuringACommandSendsTheReplyThereAndLeavesItHeld)
{
    Rendezvous answer(2);
    module.then(ModuleAnswer::reply_behind([&] { answer.meet(kBound); }, "1;+OK\r\n"));
    const TcpPair second;
    std::thread first([this] { feed(":FREQ?\n"); });
    ASSERT_TRUE(module.wait_requests(1));
    speak_as(second);
    EXPECT_TRUE(answer.meet());
    first.join();
    EXPECT_EQ(read_ready(client.client()), "");
    EXPECT_EQ(read_ready(second.client()), "1;+OK\r\n");
    const Waiter other(kSecond);
    EXPECT_FALSE(other.enters_within(kStaysOut));
    const OutputCapture errors(STDERR_FILENO);
    orvanx->connection_abort(client.server());
    EXPECT_TRUE(other.enters_within(kBound));
}

// ---- the time itself

TEST_F(FrontEndBench, ThreeSecondsOfSilenceAfterTheLastPieceEndAMessage)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer crashes in the threads on which POSIX timers expire";
#endif
    const OutputCapture errors(STDERR_FILENO);
    feed(":FO");
    std::this_thread::sleep_for(2s);
    const auto last_piece = steady_clock::now();
    feed("O;:FO");
    const TcpPair second;
    // Set before the wait, as the reply goes to the client that was set last.
    speak_as(second);
    EXPECT_TRUE(feed(":SYST:VERS?\n"));
    EXPECT_GE(steady_clock::now() - last_piece, 3s);
    EXPECT_EQ(read_ready(second.client()), "1999.0;+OK\r\n");
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_EQ(read_ready(client.client()), "");
}

} // namespace

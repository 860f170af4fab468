// The lease of the parser during a message.
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "front_end_bench.h"
#include "lease_bench.h"
#include "orvan_sdk/scpi-parser/scpi_lease.h"
#include "own_process.h"
#include "support/output_capture.h"
#include "support/rendezvous.h"
#include "timer_tap.h"

using namespace orvan_test;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

class MessageLease : public FrontEndBench {
protected:
    void SetUp() override { run_in_own_process(); } // the timer stays the substitute

    class Waiter {
    public:
        explicit Waiter(int fd) : m_fd(fd), m_entered(std::async(std::launch::async, scpi_lease_acquire, fd))
        {
        }
        // Releases the lease once it has it; a case must not end while this still waits.
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

TEST_F(MessageLease, ACompleteLineReleasesItWithoutATimer)
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
    EXPECT_EQ(read_ready(second.client()), "+OK\r\n"); // with an empty input buffer
    speak_as(client);
    EXPECT_EQ(ask(":SYST:VERS?"), "1999.0;+OK\r\n"); // its next bytes start a new message
}

TEST_F(MessageLease, AnUnfinishedBlockIsDroppedAsAWhole)
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

TEST_F(MessageLease, ALongCommandMakesTheOthersWaitWithoutATimer)
{
    Rendezvous answer(2);
    module.then(ModuleAnswer::reply_after([&] { answer.meet(kBound); }, "1;+OK\r\n"));
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

TEST_F(MessageLease, AWatchdogArmedByThePiecesFiresDuringTheCommand)
{
    const OutputCapture errors(STDERR_FILENO);
    Rendezvous answer(2);
    module.then(ModuleAnswer::reply_after([&] { answer.meet(kBound); }, "1;+OK\r\n"));
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
    module.then(ModuleAnswer::reply_after([&] { answer.meet(kBound); }, "1;+OK\r\n"));
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

// ---- the time-out itself

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
    // Set before the wait, as the reply is sent to the client that was set last.
    speak_as(second);
    EXPECT_TRUE(feed(":SYST:VERS?\n"));
    EXPECT_GE(steady_clock::now() - last_piece, 3s);
    EXPECT_EQ(read_ready(second.client()), "1999.0;+OK\r\n");
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_EQ(read_ready(client.client()), "");
}

} // namespace

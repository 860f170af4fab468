// HiSLIP locks, and what a lock holds back.
#include <sys/socket.h>

#include "hislip_fixture.h"

using namespace orvan_service::hislip;
using namespace orvan_test;
using namespace std::chrono_literals;
using orvan_common::UniqueFd;

namespace {

constexpr auto kNothing = 200ms; // in which nothing may arrive

class HislipLock : public HislipTest {
protected:
    static HislipFrame request(const std::string& name = {}, uint32_t timeout_ms = 0)
    {
        return {4, 1, timeout_ms, name};
    }
    static HislipFrame release() { return {4, 0, 0, {}}; }
    static HislipFrame answer(int result) { return {5, result, 0, {}}; }

    HislipClient first{server.port()};
    HislipClient second{server.port()};
};

/** A connection by itself: the test is its executor and its attendant. */
class HislipConnection : public ::testing::Test {
protected:
    HislipConnection()
    {
        const auto pair = [](UniqueFd& client) {
            int ends[2] = {-1, -1};
            EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
            client = UniqueFd(ends[1]);
            return UniqueFd(ends[0]);
        };
        UniqueFd own_sync = pair(sync);
        connection = std::make_shared<Connection>(environment, 1, std::move(own_sync), pair(async));
    }
    static void send(const UniqueFd& socket, const HislipFrame& frame)
    {
        const std::string bytes = frame.bytes();
        ASSERT_EQ(::send(socket.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

    LogCapture log;
    ScriptedInstrument instrument;
    orvan_service::Locks locks;
    orvan_service::Counters counters;
    const Environment environment{instrument, locks, counters, [] {}};
    UniqueFd sync; // the client's ends
    UniqueFd async;
    std::shared_ptr<Connection> connection;
};

} // namespace

TEST_F(HislipLock, AnExclusiveLockHoldsTheMessagesOfOthersUntilItsRelease)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    second.write(":SECOND?\n");
    EXPECT_EQ(first.ask(":FIRST?\n"), ":FIRST?\n");
    EXPECT_FALSE(second.sync().has_input(kNothing));
    EXPECT_EQ(first.ask_async(release()), answer(1));
    EXPECT_EQ(second.read(), ":SECOND?\n");
}

TEST_F(HislipLock, ARequestFailsAfterItsTimeOutAndNotBefore)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(second.ask_async(request({}, 300)), answer(0));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    EXPECT_EQ(second.ask_async(request()), answer(0));
}

TEST_F(HislipLock, ARequestSucceedsWhenTheLockIsReleased)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    second.async().send(request({}, 60'000));
    EXPECT_FALSE(second.async().has_input(kNothing));
    EXPECT_EQ(first.ask_async(release()), answer(1));
    EXPECT_EQ(second.async().receive(), answer(1));
}

TEST_F(HislipLock, ALostClientReleasesItsLocks)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    second.write(":SECOND?\n");
    first.async().close();
    EXPECT_EQ(second.read(), ":SECOND?\n");
    EXPECT_TRUE(first.sync().sees_end());
}

TEST_F(HislipConnection, KeepsNoLockThatIsGrantedAtItsEnd)
{
    const int other = 0;
    ASSERT_TRUE(locks.lock(&other));
    {
        AsyncChannel channel(environment, connection);
        send(async, {4, 1, 60'000, {}});
        EXPECT_TRUE(channel.serve());
        connection->close(); // as the executor does
        locks.unlock(&other);
        channel.retry(std::chrono::steady_clock::now());
    }
    EXPECT_FALSE(locks.exclusive());
}

TEST_F(HislipConnection, IsNotIdleWithAnotherMessageReceived)
{
    using Wait = orvan_service::Session::Wait;
    send(sync, {7, 0, 0xFFFF'FF00, ":A 1"});
    send(sync, {7, 0, 0xFFFF'FF02, ":B 1"});
    EXPECT_FALSE(connection->is_idle());
    EXPECT_EQ(connection->advance(true), Wait::kTurn);
    EXPECT_FALSE(connection->is_idle());
    connection->execute();
    EXPECT_FALSE(connection->is_idle());
    EXPECT_EQ(connection->advance(false), Wait::kTurn);
    connection->execute();
    EXPECT_EQ(connection->advance(false), Wait::kInput);
    EXPECT_TRUE(connection->is_idle());
}

TEST_F(HislipLock, ASharedLockAdmitsThoseWithTheSameString)
{
    HislipClient third(server.port());
    EXPECT_EQ(first.ask_async(request("key")), answer(1));
    EXPECT_EQ(second.ask_async(request("other")), answer(0));
    EXPECT_EQ(second.ask_async(request("key")), answer(1));
    third.write(":THIRD?\n");
    EXPECT_EQ(first.ask(":FIRST?\n"), ":FIRST?\n");
    EXPECT_EQ(second.ask(":SECOND?\n"), ":SECOND?\n");
    EXPECT_FALSE(third.sync().has_input(kNothing));
    EXPECT_EQ(first.ask_async(release()), answer(2));
    EXPECT_FALSE(third.sync().has_input(kNothing));
    EXPECT_EQ(second.ask_async(release()), answer(2));
    EXPECT_EQ(third.read(), ":THIRD?\n");
}

TEST_F(HislipLock, AHolderOfTheSharedLockCanExcludeTheOthers)
{
    EXPECT_EQ(first.ask_async(request("key")), answer(1));
    EXPECT_EQ(second.ask_async(request("key")), answer(1));
    EXPECT_EQ(first.ask_async(request()), answer(1));
    second.write(":SECOND?\n");
    EXPECT_FALSE(second.sync().has_input(kNothing));
    EXPECT_EQ(first.ask_async(release()), answer(1)); // the exclusive one first
    EXPECT_EQ(second.read(), ":SECOND?\n");
    EXPECT_EQ(first.ask_async(release()), answer(2));
    EXPECT_EQ(first.ask_async(release()), answer(3));
}

TEST_F(HislipLock, AskingForALockThatItHasIsAnError)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    EXPECT_EQ(first.ask_async(request()), answer(3));
}

TEST_F(HislipLock, IsReleasedAfterTheMessagesSentBefore)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    instrument.shut();
    first.write(":FIRST 1\n");
    ASSERT_TRUE(eventually([this] { return instrument.at_work() == 1; }));
    first.async().send(release());
    second.write(":SECOND?\n");
    EXPECT_FALSE(first.async().has_input(kNothing));
    instrument.open();
    EXPECT_EQ(first.async().receive(), answer(1));
    EXPECT_EQ(second.read(), ":SECOND?\n");
}

TEST_F(HislipLock, InfoReportsTheExclusiveLockAndTheNumberOfHolders)
{
    EXPECT_EQ(second.ask_async({24}), (HislipFrame{25, 0, 0, {}}));
    EXPECT_EQ(first.ask_async(request("key")), answer(1));
    EXPECT_EQ(second.ask_async(request("key")), answer(1));
    EXPECT_EQ(second.ask_async({24}), (HislipFrame{25, 0, 2, {}}));
    EXPECT_EQ(first.ask_async(request()), answer(1));
    EXPECT_EQ(second.ask_async({24}), (HislipFrame{25, 1, 2, {}}));
}

TEST_F(HislipLock, AStatusQueryAndADeviceClearAreServedBehindAnothersLock)
{
    EXPECT_EQ(first.ask_async(request()), answer(1));
    second.write(":SECOND?\n");
    EXPECT_EQ(second.poll(), 0);
    EXPECT_EQ(second.clear(), 0);
    EXPECT_EQ(first.ask_async(release()), answer(1));
    EXPECT_EQ(second.ask(":NEXT?\n"), ":NEXT?\n");
}

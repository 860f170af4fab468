// Locks of VXI-11 links, against each other and against other sessions.
#include <functional>
#include <future>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "vxi11_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

class Vxi11LockTest : public ::testing::Test {
protected:
    Vxi11LockTest()
    {
        EXPECT_EQ(holder.create().error, 0);
        EXPECT_EQ(client.create().error, 0);
    }

    using Call = std::function<int(int flags, unsigned lock_timeout)>;
    /** What has to wait for a lock. */
    std::map<std::string, Call> calls()
    {
        const auto act = [this](uint32_t procedure) {
            return
                [this, procedure](int flags, unsigned limit) { return client.act(procedure, flags, limit); };
        };
        return {
            {"trigger", act(DEVICE_TRIGGER)},
            {"clear", act(DEVICE_CLEAR)},
            {"remote", act(DEVICE_REMOTE)},
            {"local", act(DEVICE_LOCAL)},
            {"write",
             [this](int flags, unsigned limit) { return client.write("A", flags | kEnd, 0, limit).error; }},
            {"status", [this](int flags, unsigned limit) { return client.read_status(flags, limit).first; }},
            {"read",
             [this](int flags, unsigned limit) {
                 const int error = client.read(0, 100, flags, 0, limit).error;
                 return error == 15 ? 0 : error; // admitted, with nothing to read
             }},
            {"lock", [this](int flags, unsigned limit) { return client.lock(flags, limit); }}};
    }

    RunningVxi11 vxi11;
    Vxi11Client holder{vxi11.port()};
    Vxi11Client client{vxi11.port()};
};

} // namespace

TEST_F(Vxi11LockTest, HoldsEveryCallOfOthers)
{
    EXPECT_EQ(holder.lock(), 0);
    for (const auto& [name, call] : calls()) {
        EXPECT_EQ(call(0, 60'000), 11) << name; // the limit counts only with the flag
        EXPECT_EQ(call(kWaitLock, 0), 11) << name;
        const auto begin = Clock::now();
        EXPECT_EQ(call(kWaitLock, 50), 11) << name;
        EXPECT_GE(Clock::now() - begin, milliseconds(50)) << name;
    }
    EXPECT_EQ(holder.ask("A?"), "A?\n");
    EXPECT_EQ(vxi11.instrument.texts(), std::vector<std::string>{"A?"});
    EXPECT_EQ(client.enable_requests(true, "x"), 0);
    EXPECT_EQ(client.destroy(), 0);
}

TEST_F(Vxi11LockTest, EveryCallMayWaitForTheRelease)
{
    for (const auto& [name, call] : calls()) {
        EXPECT_EQ(holder.lock(), 0) << name;
        auto result = std::async(std::launch::async, [&, &call = call] { return call(kWaitLock, 60'000); });
        EXPECT_EQ(result.wait_for(milliseconds(20)), std::future_status::timeout) << name;
        EXPECT_EQ(holder.unlock(), 0) << name;
        EXPECT_EQ(result.get(), 0) << name;
        client.unlock();
    }
}

TEST_F(Vxi11LockTest, IsReleasedByItsHolderOnly)
{
    EXPECT_EQ(client.unlock(), 12);
    EXPECT_EQ(holder.lock(), 0);
    EXPECT_EQ(client.unlock(), 12);
    EXPECT_EQ(holder.lock(), 0); // it has it already
    EXPECT_EQ(holder.unlock(), 0);
    EXPECT_EQ(holder.unlock(), 12);
    EXPECT_EQ(client.lock(), 0);
}

TEST_F(Vxi11LockTest, EndsWithItsLinkOrConnection)
{
    EXPECT_EQ(holder.lock(), 0);
    EXPECT_EQ(holder.destroy(), 0);
    EXPECT_EQ(client.lock(), 0);
    auto result = std::async(std::launch::async, [&] { return holder.create("inst0", true, 60'000).error; });
    client.close();
    EXPECT_EQ(result.get(), 0);
    EXPECT_TRUE(vxi11.locks.exclusive());
}

TEST_F(Vxi11LockTest, ALinkCanBeCreatedLocked)
{
    EXPECT_EQ(holder.create("inst0", true).error, 0);
    EXPECT_EQ(client.act(DEVICE_CLEAR), 11);
    EXPECT_EQ(client.create("inst0").error, 0);
    const size_t links = vxi11.executor.sessions();
    EXPECT_EQ(client.create("inst0", true).error, 11);
    const auto begin = Clock::now();
    EXPECT_EQ(client.create("inst0", true, 50).error, 11);
    EXPECT_GE(Clock::now() - begin, milliseconds(50));
    EXPECT_TRUE(eventually([&] { return vxi11.executor.sessions() == links; })); // not created
    EXPECT_EQ(holder.unlock(), 0);
    EXPECT_EQ(client.create("inst0", true).error, 0);
    EXPECT_EQ(holder.act(DEVICE_CLEAR), 11);
}

TEST_F(Vxi11LockTest, HoldsAgainstSessionsOfAnotherProtocol)
{
    const int other = 0;
    EXPECT_EQ(holder.lock(), 0);
    EXPECT_FALSE(vxi11.locks.lock(&other));
    EXPECT_EQ(holder.unlock(), 0);
    EXPECT_TRUE(vxi11.locks.lock_shared(&other, "name"));
    EXPECT_EQ(client.act(DEVICE_CLEAR), 11);
    auto result = std::async(std::launch::async, [&] { return client.act(DEVICE_CLEAR, kWaitLock, 60'000); });
    EXPECT_EQ(result.wait_for(milliseconds(20)), std::future_status::timeout);
    vxi11.locks.forget(&other);
    EXPECT_EQ(result.get(), 0);
}

TEST_F(Vxi11LockTest, AfterTheLockAReadHasItsWholeTimeLimit)
{
    EXPECT_EQ(holder.lock(), 0);
    auto result = std::async(std::launch::async, [&] {
        const auto error = client.read(200, 100, kWaitLock, 0, 60'000).error;
        return std::pair(error, Clock::now());
    });
    EXPECT_EQ(result.wait_for(milliseconds(50)), std::future_status::timeout);
    const auto begin = Clock::now();
    EXPECT_EQ(holder.unlock(), 0);
    const auto [error, end] = result.get();
    EXPECT_EQ(error, 15);
    EXPECT_GE(end - begin, milliseconds(200));
}

TEST_F(Vxi11LockTest, AbortEndsTheWaitForALock)
{
    EXPECT_EQ(holder.lock(), 0);
    for (const auto& [name, call] : calls()) {
        auto result = std::async(std::launch::async, [&, &call = call] { return call(kWaitLock, 60'000); });
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(abort_link(client.created.abortPort, client.link), 0);
            return result.wait_for(milliseconds(0)) == std::future_status::ready;
        })) << name;
        EXPECT_EQ(result.get(), 23) << name;
    }
}

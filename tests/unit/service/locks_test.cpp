#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service/standard/locks.h"

using namespace orvan_service;
using Released = Locks::Released;

namespace {

class LocksTest : public ::testing::Test {
protected:
    int sessions[3] = {};
    const Locks::Holder a = &sessions[0];
    const Locks::Holder b = &sessions[1];
    const Locks::Holder c = &sessions[2];
    Locks locks;
};

} // namespace

TEST_F(LocksTest, WithoutLocksEverybodyIsAdmitted)
{
    EXPECT_TRUE(locks.admits(a));
    EXPECT_FALSE(locks.exclusive());
    EXPECT_EQ(locks.holders(), 0u);
    EXPECT_EQ(locks.unlock(a), Released::kNone);
}

TEST_F(LocksTest, TheExclusiveLockAdmitsOnlyItsHolder)
{
    EXPECT_TRUE(locks.lock(a));
    EXPECT_TRUE(locks.admits(a));
    EXPECT_FALSE(locks.admits(b));
    EXPECT_FALSE(locks.lock(b));
    EXPECT_FALSE(locks.lock_shared(b, "x"));
    EXPECT_TRUE(locks.exclusive());
    EXPECT_TRUE(locks.has_exclusive(a));
    EXPECT_FALSE(locks.has_exclusive(b));
    EXPECT_EQ(locks.holders(), 1u);
    EXPECT_EQ(locks.unlock(b), Released::kNone);
    EXPECT_FALSE(locks.admits(b));
    EXPECT_EQ(locks.unlock(a), Released::kExclusive);
    EXPECT_TRUE(locks.lock(b));
}

TEST_F(LocksTest, TheExclusiveLockIsReleasedOnceHoweverOftenItWasAskedFor)
{
    EXPECT_TRUE(locks.lock(a));
    EXPECT_TRUE(locks.lock(a));
    EXPECT_EQ(locks.unlock(a), Released::kExclusive);
    EXPECT_EQ(locks.unlock(a), Released::kNone);
    EXPECT_TRUE(locks.admits(b));
}

TEST_F(LocksTest, OneNameIsSharedAndOthersWait)
{
    EXPECT_TRUE(locks.lock_shared(a, "bench"));
    EXPECT_TRUE(locks.lock_shared(b, "bench"));
    EXPECT_FALSE(locks.lock_shared(c, "other"));
    EXPECT_FALSE(locks.lock_shared(c, "benc"));
    EXPECT_TRUE(locks.admits(a));
    EXPECT_TRUE(locks.admits(b));
    EXPECT_FALSE(locks.admits(c));
    EXPECT_EQ(locks.holders(), 2u);
    EXPECT_FALSE(locks.exclusive());
    EXPECT_TRUE(locks.has_shared(b));
    EXPECT_FALSE(locks.has_shared(c));
    EXPECT_EQ(locks.unlock(a), Released::kShared);
    EXPECT_FALSE(locks.admits(a)) << "b still shares it";
    EXPECT_FALSE(locks.lock_shared(c, "other"));
    EXPECT_EQ(locks.unlock(b), Released::kShared);
    EXPECT_TRUE(locks.lock_shared(c, "other"));
}

TEST_F(LocksTest, ASharerCanExcludeTheOthersForATime)
{
    EXPECT_TRUE(locks.lock_shared(a, "bench"));
    EXPECT_TRUE(locks.lock_shared(b, "bench"));
    EXPECT_TRUE(locks.lock(a));
    EXPECT_TRUE(locks.admits(a));
    EXPECT_FALSE(locks.admits(b));
    EXPECT_FALSE(locks.lock(b));
    EXPECT_FALSE(locks.lock_shared(c, "bench"));
    EXPECT_EQ(locks.holders(), 2u);
    EXPECT_EQ(locks.unlock(a), Released::kExclusive);
    EXPECT_TRUE(locks.admits(b));
    EXPECT_TRUE(locks.has_shared(a));
    EXPECT_EQ(locks.unlock(a), Released::kShared);
}

TEST_F(LocksTest, WhoSharesNothingWaitsForAllThatDo)
{
    EXPECT_TRUE(locks.lock_shared(a, "bench"));
    EXPECT_FALSE(locks.lock(c));
    EXPECT_EQ(locks.unlock(a), Released::kShared);
    EXPECT_TRUE(locks.lock(c));
}

TEST_F(LocksTest, TheExclusiveHolderCanShareAsWell)
{
    EXPECT_TRUE(locks.lock(a));
    EXPECT_TRUE(locks.lock_shared(a, "bench"));
    EXPECT_EQ(locks.holders(), 1u);
    EXPECT_EQ(locks.unlock(a), Released::kExclusive);
    EXPECT_TRUE(locks.lock_shared(b, "bench"));
    EXPECT_FALSE(locks.admits(c));
}

TEST_F(LocksTest, ASessionsEndReleasesAllThatItHas)
{
    locks.lock_shared(a, "bench");
    locks.lock(a);
    locks.forget(a);
    EXPECT_EQ(locks.holders(), 0u);
    EXPECT_TRUE(locks.lock(b));
    locks.forget(a);
    EXPECT_TRUE(locks.has_exclusive(b));
}

TEST_F(LocksTest, EachReleaseIsReportedAndNothingElse)
{
    int changes = 0;
    locks.on_change([&] {
        ++changes;
        locks.admits(a); // no lock is held
    });
    locks.lock_shared(a, "bench");
    locks.lock(a);
    locks.lock(b);
    locks.unlock(b);
    EXPECT_EQ(changes, 0);
    locks.unlock(a);
    EXPECT_EQ(changes, 1);
    locks.unlock(a);
    EXPECT_EQ(changes, 2);
    locks.unlock(a);
    EXPECT_EQ(changes, 2);
    locks.lock_shared(b, "bench");
    locks.lock(b);
    locks.forget(b);
    EXPECT_EQ(changes, 4);
}

TEST_F(LocksTest, OnlyOneOfManyThreadsHasTheExclusiveLock)
{
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    std::vector<std::thread> threads;
    for (const Locks::Holder holder : {a, b, c}) {
        threads.emplace_back([&, holder] {
            for (int taken = 0, tries = 0; taken < 500 && tries < 10'000'000; ++tries) {
                if (locks.lock(holder)) {
                    most = std::max(most.load(), ++inside);
                    --inside;
                    EXPECT_EQ(locks.unlock(holder), Released::kExclusive);
                    ++taken;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(most, 1);
}

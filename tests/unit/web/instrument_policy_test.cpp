#include <gtest/gtest.h>

#include "instrument/refresh_policy.h"

using orvan_web::RefreshPolicy;
using namespace std::chrono_literals;

namespace {

using Queries = std::vector<size_t>;

class RefreshPolicyTest : public testing::Test {
protected:
    RefreshPolicyTest() { finish_first_round(); }

    void finish_first_round()
    {
        policy.counted(10, false, now);
        EXPECT_EQ(policy.begin(now), (Queries{0, 1, 2}));
        for (int message = 0; message < 4; ++message) {
            policy.sent();
        }
        policy.finish({}, false);
        policy.counted(13, false, now); // made before the last of them
        policy.counted(14, false, now);
        EXPECT_FALSE(policy.waiting());
    }

    RefreshPolicy::Time now = RefreshPolicy::Time() + 1h;
    RefreshPolicy policy{3, 2};
};

} // namespace

TEST_F(RefreshPolicyTest, AsksAtMostTwiceASecond)
{
    policy.changed(1);
    EXPECT_TRUE(policy.waiting());
    EXPECT_FALSE(policy.due(now));
    EXPECT_FALSE(policy.due(now + 499ms));
    ASSERT_TRUE(policy.due(now + 500ms));
    EXPECT_EQ(policy.begin(now + 500ms), Queries{1});
    EXPECT_FALSE(policy.waiting());
}

TEST_F(RefreshPolicyTest, AsksNothingWithoutAChange)
{
    policy.counted(14, false, now + 10s);
    EXPECT_FALSE(policy.due(now + 10s));
}

TEST_F(RefreshPolicyTest, AsksForEverythingOnceInTwoSecondsWhileOthersUseTheModule)
{
    policy.counted(15, false, now + 3s);
    ASSERT_TRUE(policy.due(now + 3s));
    EXPECT_EQ(policy.begin(now + 3s), (Queries{0, 1, 2}));
    policy.counted(17, false, now + 3s); // ours or theirs: it shows later
    policy.sent();
    policy.finish({}, false);
    policy.counted(17, false, now + 4s);
    EXPECT_FALSE(policy.due(now + 4s));
    policy.counted(17, false, now + 5s);
    EXPECT_TRUE(policy.due(now + 5s));
}

TEST_F(RefreshPolicyTest, ModuleThatFailedIsNotAskedUntilOthersReachedIt)
{
    policy.changed(0);
    policy.counted(15, true, now + 3s);
    EXPECT_FALSE(policy.waiting());
    EXPECT_FALSE(policy.due(now + 1h));
    policy.counted(16, false, now + 2h);
    EXPECT_TRUE(policy.due(now + 2h));
}

TEST_F(RefreshPolicyTest, ModuleThatFailsWhileAskedIsNotAskedAgain)
{
    policy.changed(0);
    policy.changed(2);
    EXPECT_EQ(policy.begin(now + 1s), (Queries{0, 2}));
    policy.finish({2}, true);
    EXPECT_FALSE(policy.due(now + 1h));
    policy.counted(15, true, now + 1h);
    EXPECT_FALSE(policy.due(now + 1h));
    policy.counted(15, false, now + 2h);
    ASSERT_TRUE(policy.due(now + 2h));
    EXPECT_EQ(policy.begin(now + 2h), (Queries{0, 1, 2}));
}

TEST_F(RefreshPolicyTest, UnknownQueryIsNotAskedAgainUntilARestart)
{
    policy.unknown(1);
    policy.changed(1);
    EXPECT_FALSE(policy.waiting());
    policy.restart();
    EXPECT_EQ(policy.begin(now), (Queries{0, 1, 2}));
}

TEST_F(RefreshPolicyTest, LimitsAreAskedOnceAndOnlyIfMissing)
{
    EXPECT_FALSE(policy.waiting());
    policy.missing(4);
    EXPECT_EQ(policy.begin(now + 1s), Queries{4});
    policy.finish({}, false);
    policy.missing(4);
    EXPECT_FALSE(policy.waiting());
}

TEST_F(RefreshPolicyTest, NothingIsDueWhileARoundIsOnItsWay)
{
    policy.changed(0);
    EXPECT_EQ(policy.begin(now + 1s), Queries{0});
    policy.changed(0);
    EXPECT_TRUE(policy.asking());
    EXPECT_FALSE(policy.due(now + 1h));
    policy.finish({}, false);
    EXPECT_TRUE(policy.due(now + 1h));
}

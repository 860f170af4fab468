#include <gtest/gtest.h>

#include "http/places.h"

using namespace orvan_web;
using namespace std::chrono_literals;

namespace {

class PlacesTest : public ::testing::Test {
protected:
    static Limits few()
    {
        Limits limits;
        limits.connections = 5;
        limits.per_address = 3;
        limits.streams = 2;
        return limits;
    }
    Places::Id add(const std::string& address, PlaceState state = PlaceState::kReceiving)
    {
        m_now += 1ms;
        const Places::Id id = m_places.add(address, m_now);
        m_places.set(id, state, m_now);
        return id;
    }
    bool refused(const std::string& address) { return !m_places.admit(address).admitted; }

    Places m_places{few()};
    Places::Clock::time_point m_now{1h};
};

} // namespace

TEST_F(PlacesTest, AnAddressWithTooManyLosesItsOldestThatIsReceiving)
{
    add("a", PlaceState::kWaiting);
    const auto second = add("a");
    add("a");
    add("b");
    const auto decision = m_places.admit("a");
    EXPECT_TRUE(decision.admitted);
    EXPECT_EQ(decision.instead_of, second);
    EXPECT_EQ(m_places.state(second), PlaceState::kClosing);
    EXPECT_EQ(m_places.admit("b").instead_of, std::nullopt);
}

TEST_F(PlacesTest, AnAddressAllOfWhoseRequestsAreServedIsRefusedMore)
{
    add("a", PlaceState::kWaiting);
    add("a", PlaceState::kStream);
    add("a", PlaceState::kSending);
    EXPECT_TRUE(refused("a"));
    EXPECT_FALSE(refused("b"));
}

TEST_F(PlacesTest, WhenAllAreTakenTheAddressWithMostGivesOneUp)
{
    add("b");
    add("b");
    const auto first = add("a");
    const auto second = add("a");
    add("a");
    EXPECT_EQ(m_places.admit("c").instead_of, first);
    m_places.remove(first);
    EXPECT_EQ(m_places.admit("c").instead_of, std::nullopt) << "a place is free again";
    add("c");
    EXPECT_EQ(m_places.admit("d").instead_of, second) << "the first by name of those with most";
}

TEST_F(PlacesTest, WhenAllAreTakenOneWithAsManyIsRefused)
{
    for (const char* address : {"a", "b", "c", "d", "e"}) {
        add(address);
    }
    EXPECT_TRUE(refused("a"));
    EXPECT_FALSE(refused("f"));
}

TEST_F(PlacesTest, ServedRequestsAreNeverGivenUp)
{
    for (const char* address : {"a", "a", "a", "b", "b"}) {
        add(address, PlaceState::kWaiting);
    }
    EXPECT_TRUE(refused("c"));
}

TEST_F(PlacesTest, AStreamOfTheAddressWithMostGivesWayOnlyIfTheNewcomerStaysBehind)
{
    const auto first = add("a", PlaceState::kStream);
    EXPECT_TRUE(m_places.admit_stream(add("b")).admitted);
    add("a", PlaceState::kStream);
    EXPECT_FALSE(m_places.admit_stream(add("a")).admitted);
    const auto decision = m_places.admit_stream(add("b"));
    EXPECT_TRUE(decision.admitted);
    EXPECT_EQ(decision.instead_of, first);
    add("b", PlaceState::kStream);
    EXPECT_FALSE(m_places.admit_stream(add("c")).admitted) << "with one each, nobody gives way";
}

TEST_F(PlacesTest, RequestsAndRepliesThatTakeTooLongAreOverdueOnce)
{
    const auto receiving = m_places.add("a", m_now);
    const auto sending = m_places.add("a", m_now);
    const auto waiting = m_places.add("a", m_now);
    m_places.set(sending, PlaceState::kSending, m_now);
    m_places.set(waiting, PlaceState::kWaiting, m_now);
    EXPECT_TRUE(m_places.overdue(m_now + 9s).empty());
    EXPECT_EQ(m_places.overdue(m_now + 10s), std::vector{receiving});
    EXPECT_EQ(m_places.overdue(m_now + 30s), std::vector{sending});
    EXPECT_TRUE(m_places.overdue(m_now + 24h).empty());
}

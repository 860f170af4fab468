#include <gmock/gmock.h>

#include "api_fixture.h"

using namespace orvan_web;
using namespace std::chrono_literals;
using orvan_test::eventually;
using orvan_test::FakeStream;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using ApiEvents = orvan_test::ApiTest;

} // namespace

TEST_F(ApiEvents, ViewerGetsEverythingAtFirst)
{
    const auto events = view()->events();
    ASSERT_GE(events.size(), 3U);
    EXPECT_EQ(events[0].first, "instrument");
    EXPECT_THAT(events[0].second, HasSubstr("\"model\":\"OVX3652B\""));
    EXPECT_EQ(events[1].first, "channel");
    EXPECT_THAT(events[1].second, HasSubstr("\"channel\":1,\"present\":true"));
    EXPECT_THAT(events[2].second, HasSubstr("\"channel\":2,\"present\":true"));
    EXPECT_THAT(events[2].second, HasSubstr("\"am\":{"));
}

TEST_F(ApiEvents, ThenOnlyWhatChangedAndAllViewersTheSame)
{
    const auto first = view();
    const auto second = view();
    first->forget();
    second->forget();
    service.other_client(2, ":AM:DEPT 55");
    const FakeStream::Event wanted("channel", R"({"channel":2,"am":{"depth_percent":55}})");
    EXPECT_TRUE(first->wait_for(wanted.first, wanted.second));
    EXPECT_TRUE(second->wait_for(wanted.first, wanted.second));
    EXPECT_THAT(first->events(), ElementsAre(wanted));
    EXPECT_THAT(second->events(), ElementsAre(wanted));
}

TEST_F(ApiEvents, LateViewerGetsWhatHasChangedBefore)
{
    const auto first = view();
    service.other_client(1, ":FREQ 3GHz");
    EXPECT_TRUE(first->wait_for("channel", "3000000000"));
    EXPECT_TRUE(view()->wait_for("channel", "3000000000"));
}

TEST_F(ApiEvents, TimesThatPassAreNoChange)
{
    const auto viewer = view();
    std::this_thread::sleep_for(700ms); // the counters are fetched again
    viewer->forget();
    std::this_thread::sleep_for(1200ms);
    EXPECT_TRUE(viewer->events().empty());
}

TEST_F(ApiEvents, LostServiceIsReportedAndItsReturn)
{
    const auto viewer = view();
    viewer->forget();
    service.stop();
    EXPECT_TRUE(viewer->wait_for("service", "{\"reachable\":false}"));
    service.start();
    EXPECT_TRUE(viewer->wait_for("service", "{\"reachable\":true}"));
    service.other_client(1, ":FREQ 4.5GHz");
    EXPECT_TRUE(viewer->wait_for("channel", "\"frequency_hz\":4500000000"));
}

TEST_F(ApiEvents, NothingIsFollowedOnceTheLastViewerHasGone)
{
    const auto first = view();
    const auto second = view();
    const auto viewers = [this] { return thread.call([this] { return api.viewers(); }); };
    EXPECT_EQ(viewers(), 2U);
    first->close();
    EXPECT_TRUE(eventually([&] { return viewers() == 1; }));
    second->close();
    EXPECT_TRUE(eventually([&] { return viewers() == 0; }));
    std::this_thread::sleep_for(200ms); // a look at the counters may be on its way
    service.forget_messages();
    service.other_client(1, ":FREQ 2.5GHz");
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(service.messages().empty());
}

TEST_F(ApiEvents, InstrumentChangesAreSentByMember)
{
    const auto viewer = view();
    viewer->forget();
    service.respond(":SYST:FAN:MODE?", "FIXED");
    get("/api/v1/instrument"); // looks at the fan as well
    EXPECT_TRUE(viewer->wait_for("instrument", R"({"fan":{"mode":"FIXED"}})"));
}

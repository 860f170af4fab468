#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_service.h"
#include "instrument/channel_queries.h"
#include "instrument/instrument.h"
#include "loop_thread.h"
#include "support/eventually.h"

using namespace orvan_web;
using namespace std::chrono_literals;
using orvan_test::eventually;
using orvan_test::FakeService;
using orvan_test::LoopThread;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace {

class ChannelsTest : public testing::Test {
protected:
    ChannelsTest()
    {
        instrument.on_events(
            {[this](const cJSON* changes) { changed.push_back(to_text(changes)); }, {}, {}, {}});
        loop.post([this] { instrument.start(); });
        EXPECT_TRUE(eventually([this] { return thread.call([this] { return instrument.reachable(); }); }));
        settle();
        settle(); // the identity's questions are over
    }

    void watch()
    {
        thread.call([this] { instrument.watch(true); });
        settle();
    }

    void settle()
    {
        auto done = std::make_shared<std::promise<void>>();
        thread.call([&] { instrument.channels().settle([done] { done->set_value(); }, 5s); });
        done->get_future().get();
    }

    SettingValue value(int channel, const char* path)
    {
        return thread.call([&] { return instrument.channels().find(channel)->values[*setting_at(path)]; });
    }

    bool shows(int channel, const char* path, const SettingValue& wanted)
    {
        return eventually([&] { return value(channel, path) == wanted; }, 5s);
    }

    std::vector<std::string> changes()
    {
        return thread.call([this] { return std::exchange(changed, {}); });
    }

    size_t messages_to(int channel)
    {
        size_t count = 0;
        for (const std::string& message : service.messages()) {
            count += message.starts_with(":INST " + std::to_string(channel) + ";") ? 1 : 0;
        }
        return count;
    }

    FakeService service;
    InstrumentLoop loop;
    std::vector<std::string> changed; // of the loop's thread
    Instrument instrument{loop, {service.folder(), service.object(), service.folder()}};
    LoopThread thread{loop};
};

} // namespace

TEST_F(ChannelsTest, ValueWithAUnitIsShownAsTheModuleHasIt)
{
    watch();
    changes();
    service.other_client(2, ":FREQ 2.5GHz");
    EXPECT_TRUE(shows(2, "frequency_hz", 2.5e9));
    EXPECT_TRUE(eventually([this] { return thread.call([this] { return !changed.empty(); }); }));
    EXPECT_THAT(changes(), testing::ElementsAre(R"({"channel":2,"frequency_hz":2500000000})"));
}

TEST_F(ChannelsTest, RecordsWrongValueIsNeverShownIfItIsOutsideTheLimits)
{
    watch();
    for (int i = 0; i < 3; ++i) { // the later ones have to wait for their turn
        service.other_client(1, ":FREQ " + std::to_string(i + 1) + ".5GHz");
        ASSERT_TRUE(shows(1, "frequency_hz", (i + 1.5) * 1e9));
    }
    for (const std::string& change : changes()) {
        const Json json = parse_json(change);
        if (cJSON_HasObjectItem(json.get(), "frequency_hz") != 0) {
            EXPECT_GE(number_member(json.get(), "frequency_hz"), 50e3) << change;
        }
    }
}

TEST_F(ChannelsTest, SwitchIsTakenFromTheRecordAndNotAskedFor)
{
    watch();
    service.other_client(1, ":OUTP ON");
    EXPECT_TRUE(shows(1, "rf_output", true));
    EXPECT_THAT(service.messages(), Each(Not(HasSubstr(":OUTP?"))));
}

TEST_F(ChannelsTest, ChangeThatTheRecordDoesNotShowIsFoundThroughTheCounters)
{
    watch();
    service.other_client(1, ":AM 2"); // on, and off in the record as before
    EXPECT_TRUE(shows(1, "am/enabled", true));
}

TEST_F(ChannelsTest, ChannelIsAskedAtMostTwiceASecond)
{
    watch();
    service.forget_messages();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; std::chrono::steady_clock::now() - begin < 2s; ++i) {
        service.other_client(1, ":FREQ " + std::to_string(1000 + i % 2) + "MHz");
        std::this_thread::sleep_for(5ms); // a client of ordinary speed
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const size_t full_round = value_queries() / Channels::kMostQueries + 1;
    EXPECT_LE(static_cast<double>(messages_to(1)),
              2 * seconds + 2 + static_cast<double>(full_round) * (seconds / 2 + 1));
    EXPECT_EQ(messages_to(2), 0U);
}

TEST_F(ChannelsTest, NothingIsAskedWhenNothingChanges)
{
    watch();
    settle();
    service.forget_messages();
    std::this_thread::sleep_for(1500ms); // many looks at the records
    EXPECT_EQ(messages_to(1) + messages_to(2), 0U);
    EXPECT_EQ(service.module_errors(1), 0U);
}

TEST_F(ChannelsTest, NobodyIsAskedWithoutViewers)
{
    service.forget_messages();
    service.other_client(1, ":FREQ 2.5GHz");
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(service.messages().empty());
    settle(); // as a request does
    EXPECT_EQ(value(1, "frequency_hz"), SettingValue(2.5e9));
}

TEST_F(ChannelsTest, ModuleThatFailedIsNotAskedUntilSomebodyElseReachedIt)
{
    watch();
    service.unplug(1, true);
    service.other_client(1, ":FREQ?"); // fails
    service.change_record(1, ODT_PWR, "3");
    EXPECT_TRUE(
        eventually([&] { return thread.call([&] { return instrument.channels().find(1)->failed; }); }));
    service.forget_messages();
    service.change_record(1, ODT_PWR, "4");
    EXPECT_TRUE(shows(1, "level_dbm", 4.0)); // of the record
    EXPECT_EQ(messages_to(1), 0U);
    service.change_record(1, ODT_FREQ, "2.5"); // of ":FREQ 2.5GHz"
    EXPECT_TRUE(shows(1, "frequency_hz", SettingValue()));
    service.unplug(1, false);
    service.set_value(1, ":POW", "7");
    service.other_client(1, ":FREQ?");
    EXPECT_TRUE(shows(1, "level_dbm", 7.0));
}

TEST_F(ChannelsTest, ModuleThatFailsWhileItIsAskedGetsOneMessage)
{
    watch();
    service.forget_messages();
    service.unplug(1, true);
    service.change_record(1, ODT_PWR, "3");
    service.change_record(1, ODT_FREQ, "2000000000");
    EXPECT_TRUE(
        eventually([&] { return thread.call([&] { return instrument.channels().find(1)->failed; }); }));
    service.change_record(1, ODT_PWR, "4");
    EXPECT_TRUE(shows(1, "level_dbm", 4.0));
    EXPECT_EQ(messages_to(1), 1U);
}

TEST_F(ChannelsTest, QueryThatAModuleDoesNotKnowIsAskedOnceAndOthersAreAnswered)
{
    service.refuse(":PHAS");
    service.stop();
    EXPECT_TRUE(eventually([this] { return !thread.call([this] { return instrument.reachable(); }); }));
    service.start(); // whatever was known about the modules does not hold any more
    EXPECT_TRUE(eventually([this] { return thread.call([this] { return instrument.reachable(); }); }));
    watch();
    service.set_value(1, ":POW", "7");
    service.other_client(1, ":AM?");
    EXPECT_TRUE(shows(1, "level_dbm", 7.0));
    const size_t errors = service.module_errors(1);
    EXPECT_LE(errors, 2U); // of the message with it, and of its own
    service.set_value(1, ":POW", "8");
    service.other_client(1, ":AM?");
    EXPECT_TRUE(shows(1, "level_dbm", 8.0));
    EXPECT_EQ(service.module_errors(1), errors);
}

TEST_F(ChannelsTest, LimitsThatTheRecordDoesNotHaveAreAskedFor)
{
    watch();
    settle();
    const auto limits = thread.call(
        [&] { return instrument.channels().find(1)->limits[*setting_at("reference/frequency_hz")]; });
    EXPECT_EQ(limits, (SettingLimits{1e7, 1e8}));
    EXPECT_THAT(service.messages(), Each(Not(HasSubstr(":FREQ? MIN;:FREQ? MAX;:POW"))));
}

TEST_F(ChannelsTest, LastValueStaysWhileTheServiceIsAway)
{
    watch();
    service.other_client(2, ":FREQ 2.5GHz");
    EXPECT_TRUE(shows(2, "frequency_hz", 2.5e9));
    service.stop();
    EXPECT_TRUE(eventually([this] { return !thread.call([this] { return instrument.reachable(); }); }));
    service.change_record(2, ODT_FREQ, "1"); // as one that starts writes it
    service.change_record(2, ODT_RF_OUT, "1");
    EXPECT_TRUE(shows(2, "rf_output", true)); // the record has been copied
    EXPECT_FALSE(eventually([&] { return value(2, "frequency_hz") != SettingValue(2.5e9); }, 400ms));
}

TEST_F(ChannelsTest, ServiceThatComesBackIsAskedForEverything)
{
    watch();
    service.stop();
    EXPECT_TRUE(eventually([this] { return !thread.call([this] { return instrument.reachable(); }); }));
    service.set_value(1, ":PHAS", "90");
    service.start();
    EXPECT_TRUE(shows(1, "phase_deg", 90.0));
}

TEST_F(ChannelsTest, JsonOfAChannelHasAllSettingsNested)
{
    watch();
    const Json json = thread.call([&] { return channel_json(*instrument.channels().find(2)); });
    EXPECT_EQ(number_member(json.get(), "channel"), 2);
    EXPECT_EQ(number_member(json.get(), "temperature_celsius"), 41.5);
    EXPECT_EQ(number_member(json.get(), "frequency_hz"), 1e9);
    EXPECT_TRUE(bool_member(json.get(), "present"));
    EXPECT_EQ(string_member(cJSON_GetObjectItem(json.get(), "am"), "source"), "INT");
    const cJSON* const limits = cJSON_GetObjectItem(json.get(), "limits");
    EXPECT_EQ(to_text(cJSON_GetObjectItem(limits, "am/depth_percent")), "[0,90]");
    EXPECT_EQ(cJSON_GetObjectItem(limits, "am/enabled"), nullptr);
}

TEST_F(ChannelsTest, HistoryHasAPointForEachChannel)
{
    EXPECT_TRUE(eventually([&] {
        const Json json = thread.call([&] { return instrument.history().json(); });
        const cJSON* const channels = cJSON_GetObjectItem(json.get(), "channels");
        const cJSON* const first = cJSON_GetArrayItem(channels, 0);
        return cJSON_GetArraySize(channels) == 2 &&
               cJSON_GetArrayItem(cJSON_GetObjectItem(first, "level_dbm"), 1) != nullptr &&
               cJSON_GetArrayItem(cJSON_GetObjectItem(first, "level_dbm"), 1)->valuedouble == 5 &&
               cJSON_GetArrayItem(cJSON_GetObjectItem(json.get(), "seconds"), 0)->valuedouble < -1;
    }));
}

#include <gmock/gmock.h>

#include "api_fixture.h"

using namespace orvan_web;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace {

class ApiChannels : public orvan_test::ApiTest {
protected:
    Json patch(const std::string& body, int status = 200)
    {
        const Response response = request("PATCH", "/api/v1/channels/2", body);
        EXPECT_EQ(response.status, status) << response.body;
        return parse_json(response.body);
    }

    std::string errors(const std::string& body)
    {
        return to_text(cJSON_GetObjectItem(patch(body, 422).get(), "errors"));
    }
};

const cJSON* member(const Json& json, const char* first, const char* second)
{
    return cJSON_GetObjectItem(cJSON_GetObjectItem(json.get(), first), second);
}

} // namespace

TEST_F(ApiChannels, ChangeWithUnitsIsAnsweredWithWhatTheModuleHas)
{
    const Json json =
        patch(R"({"frequency_hz":"2.5 GHz","level_dbm":-10.5,"am":{"enabled":true,"depth_percent":"40 %"}})");
    EXPECT_EQ(member(json, "channel", "frequency_hz")->valuedouble, 2.5e9);
    EXPECT_EQ(member(json, "channel", "level_dbm")->valuedouble, -10.5);
    EXPECT_EQ(service.value(2, ":FREQ"), "2500000000");
    EXPECT_EQ(service.value(2, ":POW"), "-10.5");
    EXPECT_EQ(service.value(2, ":AM"), "1");
    EXPECT_EQ(service.value(2, ":AM:DEPT"), "40");
    EXPECT_EQ(service.value(1, ":FREQ"), "1000000000");
    EXPECT_EQ(service.record(2).ANALOGOUTPUT.Frequency, 2.5e9); // asked, so a setup has it as well
}

TEST_F(ApiChannels, SwitchesComeAfterValues)
{
    service.forget_messages();
    patch(R"({"rf_output":true,"frequency_hz":2e9})");
    const std::vector<std::string> messages = service.messages();
    ASSERT_GE(messages.size(), 2U);
    EXPECT_EQ(messages[0], ":INST 2;:FREQ 2e+09");
    EXPECT_EQ(messages[1], ":INST 2;:OUTP ON");
    EXPECT_EQ(to_text(member(patch("{}"), "channel", "rf_output")), "true"); // from the record
}

TEST_F(ApiChannels, ErrorBelongsToItsFieldAndTheOthersAreApplied)
{
    const Json json = patch(R"({"frequency_hz":"50 GHz","level_dbm":"3 V","phase_deg":90})", 422);
    EXPECT_EQ(to_text(cJSON_GetObjectItem(json.get(), "errors")),
              R"([{"field":"frequency_hz","number":-222,"text":"Data out of range"},)"
              R"({"field":"level_dbm","number":-131,"text":"Invalid suffix"}])");
    EXPECT_EQ(string_member(json.get(), "title").empty(), false);
    EXPECT_EQ(number_member(json.get(), "status"), 422);
    EXPECT_EQ(member(json, "channel", "phase_deg")->valuedouble, 90);
    EXPECT_EQ(member(json, "channel", "frequency_hz")->valuedouble, 1e9);
}

TEST_F(ApiChannels, NothingButASettingCanBeSent)
{
    service.forget_messages();
    EXPECT_THAT(errors(R"({"frequency_hz":"1GHz;:OUTP ON"})"), HasSubstr("-121"));
    EXPECT_THAT(errors(R"({"frequency_hz":"1GHz\n:OUTP ON"})"), HasSubstr("-121"));
    EXPECT_THAT(errors(R"({"list":{"definition":"a\";:OUTP ON;\""}})"), HasSubstr("-151"));
    EXPECT_THAT(errors(R"({"am":{"source":"INT;:OUTP ON"}})"), HasSubstr("-224"));
    EXPECT_THAT(errors(R"({"am":{"enabled":"ON;:OUTP ON"}})"), HasSubstr("-224"));
    EXPECT_THAT(errors(R"({"am":{"enabled":{"x":1}}})"), HasSubstr("\"am/enabled\""));
    EXPECT_THAT(errors(R"({"frequency_hz":true})"), HasSubstr("-121"));
    EXPECT_THAT(errors(R"({"frequency_hz":null})"), HasSubstr("-121"));
    EXPECT_THAT(errors(R"({"frequency_hz":[1]})"), HasSubstr("-121"));
    EXPECT_THAT(errors(R"({"am":{"source":1}})"), HasSubstr("-224"));
    EXPECT_THAT(errors(R"({"colour":1,"am":{"colour":1}})"), HasSubstr(R"("am/colour","number":-113)"));
    EXPECT_THAT(errors(R"({"reference":{"source":"EXT"}})"), HasSubstr("-221"));
    EXPECT_THAT(errors(R"({"temperature_celsius":1})"), HasSubstr("-113"));
    EXPECT_THAT(service.messages(), Each(Not(HasSubstr("OUTP ON"))));
}

TEST_F(ApiChannels, TextIsNotCutAtANullCharacter)
{
    const auto status = [this](const std::string& frequency) {
        return request("PATCH", "/api/v1/channels/1", "{\"frequency_hz\":\"" + frequency + "\"}").status;
    };
    EXPECT_EQ(status(R"(2GHz\u0000x)"), 400);
    EXPECT_EQ(status(R"(2GHz\\\u0000x)"), 400);
    EXPECT_EQ(status(R"(2GHz\\u0000x)"), 422); // a backslash, and digits
    EXPECT_EQ(service.value(1, ":FREQ"), "1000000000");
}

TEST_F(ApiChannels, BodyMustBeAnObjectAndTheChannelExist)
{
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", "[1]").status, 400);
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", "{\"frequency_hz\":1").status, 400);
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", "{} x").status, 400);
    for (const char* channel : {"0", "3", "x", "1x", "99999999999"}) {
        EXPECT_EQ(request("GET", std::string("/api/v1/channels/") + channel).status, 404) << channel;
        EXPECT_EQ(request("PATCH", std::string("/api/v1/channels/") + channel, "{}").status, 404) << channel;
    }
}

TEST_F(ApiChannels, ModuleThatCannotBeReachedIs503AndIsNotAskedForTheRest)
{
    service.unplug(2, true);
    service.forget_messages();
    const Response response = request("PATCH", "/api/v1/channels/2", R"({"frequency_hz":1e9,"level_dbm":1})");
    EXPECT_EQ(response.status, 503);
    EXPECT_THAT(response.body, HasSubstr("cannot be reached"));
    EXPECT_EQ(service.messages().size(), 1U);
    EXPECT_THAT(request("PATCH", "/api/v1/channels/2", "{}").body,
                HasSubstr("did not answer its last request"));
    EXPECT_EQ(service.messages().size(), 1U);
}

TEST_F(ApiChannels, ModuleThatOthersHaveReachedIsSentTheChange)
{
    service.fail(2, true);
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", R"({"level_dbm":1})").status, 503);
    service.other_client(2, ":FREQ?");
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", R"({"level_dbm":1})").status, 200);
}

TEST_F(ApiChannels, ServiceThatIsNotThereIs503)
{
    service.stop();
    ASSERT_TRUE(wait_reachable(false));
    EXPECT_EQ(request("PATCH", "/api/v1/channels/2", "{}").status, 503);
    EXPECT_EQ(request("POST", "/api/v1/scpi", R"({"line":"*IDN?"})").status, 503);
    EXPECT_EQ(get("/api/v1/channels/1") == nullptr, false); // as it was last known
    EXPECT_EQ(to_text(cJSON_GetObjectItem(cJSON_GetObjectItem(get("/api/v1/instrument").get(), "service"),
                                          "reachable")),
              "false");
}

TEST_F(ApiChannels, RequestShowsWhatOthersHaveChanged)
{
    service.other_client(2, ":FREQ 2.5GHz;:POW 3");
    const Json json = get("/api/v1/channels/2");
    EXPECT_EQ(number_member(json.get(), "frequency_hz"), 2.5e9);
    EXPECT_EQ(number_member(json.get(), "level_dbm"), 3);
}

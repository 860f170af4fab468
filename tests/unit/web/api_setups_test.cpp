#include <cstring>
#include <filesystem>

#include <gmock/gmock.h>

#include "api_fixture.h"

using namespace orvan_web;
using testing::Contains;
using testing::HasSubstr;

namespace {

class ApiSetups : public orvan_test::ApiTest {
protected:
    // A setup with the records as they are, but for this.
    void store(int setup, const std::function<void(ORVAN_CONFIG&)>& change)
    {
        for (int channel = 1; channel <= 2; ++channel) {
            const auto folder = std::filesystem::path(service.folder()) / "preset" / std::to_string(channel);
            std::filesystem::create_directories(folder);
            ORVAN_CONFIG record = service.record(channel);
            if (channel == 2) {
                change(record);
            }
            const std::string path = folder / ("preset-" + std::to_string(setup) + ".json");
            ASSERT_EQ(OrvanData().save_cmd_config(path.c_str(), &record), 0);
        }
    }
};

} // namespace

TEST_F(ApiSetups, ListSaysWhichAreStoredAndSinceWhen)
{
    store(3, [](ORVAN_CONFIG&) {});
    std::filesystem::create_directories(service.folder() + "/json");
    std::filesystem::copy_file(ORVAN_FACTORY_SETUP, service.folder() + "/json/ch0.json");
    const Json json = get("/api/v1/setups");
    EXPECT_EQ(number_member(json.get(), "power_up"), 0);
    const cJSON* const setups = cJSON_GetObjectItem(json.get(), "setups");
    ASSERT_EQ(cJSON_GetArraySize(setups), 6);
    EXPECT_EQ(to_text(cJSON_GetArrayItem(setups, 0)),
              R"({"setup":0,"factory":true,"stored":true,"stored_at":null})");
    EXPECT_EQ(to_text(cJSON_GetArrayItem(setups, 1)),
              R"({"setup":1,"factory":false,"stored":false,"stored_at":null})");
    EXPECT_THAT(to_text(cJSON_GetArrayItem(setups, 3)),
                testing::MatchesRegex(R"(.*"stored":true,"stored_at":"20..-..-..T..:..:..Z".*)"));
}

TEST_F(ApiSetups, ListDoesNotWaitForACommandThatRuns)
{
    EXPECT_EQ(number_member(get("/api/v1/setups").get(), "power_up"), 0);
    service.silent = true;
    const Json json = get("/api/v1/setups");
    EXPECT_THAT(to_text(json), HasSubstr(R"("power_up":0)")); // as it was last known
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(json.get(), "setups")), 6);
}

TEST_F(ApiSetups, DifferencesAreThoseOfSettingsInReadableForm)
{
    store(1, [](ORVAN_CONFIG& record) {
        record.ANALOGOUTPUT.Frequency = 3e9;
        record.MODULATIONS.AMState = On;
        std::strcpy(record.MODULATIONS.FMSrcMode, "INTernal"); // "INT" in another form
        std::strcpy(record.ANALOGOUTPUT.RefOsc, "EXTernal");   // which nobody can set
        record.SYSTEM.Temperature = 99;
    });
    const Json json = get("/api/v1/setups/1");
    EXPECT_EQ(
        to_text(cJSON_GetObjectItem(json.get(), "differences")),
        R"([{"channel":2,"path":"frequency_hz","label":"Frequency","group":"Output","unit":"Hz","now":1000000000,"setup":3000000000},)"
        R"({"channel":2,"path":"am/enabled","label":"AM","group":"Amplitude modulation","unit":"","now":false,"setup":true}])");
}

TEST_F(ApiSetups, ModulesAreAskedBeforeTheirSettingsAreStored)
{
    service.respond(":SYST:SET:STOR 2", "");
    service.set_value(1, ":AM", "1"); // what the record does not show
    service.forget_messages();
    EXPECT_EQ(request("PUT", "/api/v1/setups/2", "{}").status, 200);
    EXPECT_EQ(service.record(1).MODULATIONS.AMState, On);
    const std::vector<std::string> messages = service.messages();
    const auto stored = std::find(messages.begin(), messages.end(), ":SYST:SET:STOR 2");
    ASSERT_NE(stored, messages.end());
    EXPECT_TRUE(std::any_of(messages.begin(), stored, [](const std::string& message) {
        return message.starts_with(":INST 1;") && message.find(":AM?") != std::string::npos;
    }));
}

TEST_F(ApiSetups, RecallAndDeleteAreExecuted)
{
    store(2, [](ORVAN_CONFIG&) {});
    service.respond(":SYST:SET:REC 2", "");
    service.respond(":SYST:SET:CLE 2", "");
    EXPECT_EQ(request("POST", "/api/v1/setups/2/recall", "{}").status, 200);
    EXPECT_THAT(service.messages(), Contains(":SYST:SET:REC 2"));
    EXPECT_EQ(request("DELETE", "/api/v1/setups/2").status, 200);
    EXPECT_THAT(service.messages(), Contains(":SYST:SET:CLE 2"));
}

TEST_F(ApiSetups, RefusalsAreProblems)
{
    EXPECT_EQ(request("PUT", "/api/v1/setups/0", "{}").status, 409);
    EXPECT_EQ(request("DELETE", "/api/v1/setups/0").status, 409);
    for (const char* setup : {"6", "-1", "x", "1.5"}) {
        EXPECT_EQ(request("PUT", std::string("/api/v1/setups/") + setup, "{}").status, 404) << setup;
        EXPECT_EQ(request("GET", std::string("/api/v1/setups/") + setup).status, 404) << setup;
    }
    EXPECT_EQ(request("GET", "/api/v1/setups/4").status, 404); // not stored
    EXPECT_EQ(request("POST", "/api/v1/setups/4/recall", "{}").status, 404);
    const Response error = request("PUT", "/api/v1/setups/1", "{}"); // which the fake does not know
    EXPECT_EQ(error.status, 422);
    EXPECT_THAT(error.body, HasSubstr(R"("errors":[{"number":-113,"text":"Undefined header"}])"));
}

TEST_F(ApiSetups, DamagedFileIsAProblemWithItsReason)
{
    store(1, [](ORVAN_CONFIG&) {});
    std::filesystem::resize_file(service.folder() + "/preset/2/preset-1.json", 100);
    const Response response = request("GET", "/api/v1/setups/1");
    EXPECT_EQ(response.status, 422);
    EXPECT_THAT(response.body, HasSubstr("channel 2: is not JSON"));
}

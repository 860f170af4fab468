// The OpenAPI document against routes and answers, the metrics, the LXI identification.
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "api_fixture.h"
#include "json_schema.h"

using namespace orvan_web;
using orvan_test::schema_fault;
using testing::HasSubstr;
using testing::Not;

namespace {

class ApiDocuments : public orvan_test::ApiTest {
protected:
    std::string write(const char* name, const std::string& text)
    {
        std::string path = service.folder() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    const cJSON* schema(const Json& document, const char* name)
    {
        return cJSON_GetObjectItem(
            cJSON_GetObjectItem(cJSON_GetObjectItem(document.get(), "components"), "schemas"), name);
    }
};

// Runs a program found in the usual places; its output, both kinds, and its exit code.
std::pair<int, std::string> run(const std::string& command)
{
    std::string output;
    FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::array<char, 4096> bytes{};
    while (const size_t count = std::fread(bytes.data(), 1, bytes.size(), pipe)) {
        output.append(bytes.data(), count);
    }
    return {::pclose(pipe), output};
}

bool has(const std::string& command)
{
    return run(command).first == 0;
}

} // namespace

TEST_F(ApiDocuments, EachRouteIsDescribed)
{
    const Json document = get("/api/v1/openapi.json");
    const cJSON* const paths = cJSON_GetObjectItem(document.get(), "paths");
    for (const Route& route : routes) {
        std::string method = route.method;
        std::transform(method.begin(), method.end(), method.begin(),
                       [](char c) { return static_cast<char>(c | 0x20); });
        const cJSON* const operation =
            cJSON_GetObjectItem(cJSON_GetObjectItemCaseSensitive(paths, route.path), method.c_str());
        ASSERT_NE(operation, nullptr) << route.path;
        EXPECT_EQ(string_member(operation, "summary"), route.summary);
        EXPECT_EQ(cJSON_HasObjectItem(operation, "requestBody") != 0, route.request_schema != nullptr);
        EXPECT_EQ(cJSON_HasObjectItem(operation, "security") != 0, route.changes) << route.path;
        EXPECT_EQ(cJSON_HasObjectItem(operation, "parameters") != 0,
                  std::string_view(route.path).find('{') != std::string_view::npos);
    }
    EXPECT_NE(cJSON_GetObjectItemCaseSensitive(paths, "/api/v1/events"), nullptr);
}

TEST_F(ApiDocuments, AnswersMatchTheirSchemas)
{
    const Json document = get("/api/v1/openapi.json");
    std::filesystem::create_directories(service.folder() + "/json");
    std::filesystem::copy_file(ORVAN_FACTORY_SETUP, service.folder() + "/json/ch0.json");
    const std::tuple<const char*, const char*, const char*, const char*> kRequests[] = {
        {"GET", "/api/v1/instrument", "", "Instrument"},
        {"GET", "/api/v1/settings", "", "Settings"},
        {"GET", "/api/v1/channels", "", "Channels"},
        {"GET", "/api/v1/channels/1", "", "Channel"},
        {"GET", "/api/v1/setups", "", "Setups"},
        {"GET", "/api/v1/setups/0", "", "SetupDifferences"},
        {"GET", "/api/v1/history", "", "History"},
        {"GET", "/api/v1/commands", "", "Commands"},
        {"PATCH", "/api/v1/channels/1", R"({"am":{"enabled":true}})", "PatchedChannel"},
        {"PATCH", "/api/v1/channels/1", R"({"frequency_hz":"90 GHz"})", "Problem"},
        {"PATCH", "/api/v1/channels/9", "{}", "Problem"},
        {"POST", "/api/v1/scpi", R"({"line":"*IDN?"})", "ScpiAnswer"},
    };
    for (const auto& [method, path, body, name] : kRequests) {
        const Json answer = parse_json(request(method, path, body).body);
        ASSERT_NE(schema(document, name), nullptr) << name;
        EXPECT_EQ(schema_fault(document.get(), schema(document, name), answer.get()), "") << method << path;
    }
    const Json wrong = parse_json(R"({"channel":"1","present":true,"failed":false})");
    EXPECT_EQ(schema_fault(document.get(), schema(document, "Channel"), wrong.get()),
              R"(channel: "1" does not match type "integer")");
}

TEST_F(ApiDocuments, ExamplesMatchTheirSchemas)
{
    const Json document = get("/api/v1/openapi.json");
    int examples = 0;
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry,
                       cJSON_GetObjectItem(cJSON_GetObjectItem(document.get(), "components"), "schemas"))
    {
        const cJSON* example = nullptr;
        cJSON_ArrayForEach(example, cJSON_GetObjectItem(entry, "examples"))
        {
            ++examples;
            EXPECT_EQ(schema_fault(document.get(), entry, example), "") << entry->string;
        }
    }
    EXPECT_GE(examples, 8);
}

TEST_F(ApiDocuments, DocumentIsValidOpenApi)
{
    if (!has("python3 -c 'import openapi_spec_validator'")) {
        GTEST_SKIP() << "openapi_spec_validator is not installed, and Debian has no package of it";
    }
    const std::string path = write("openapi.json", request("GET", "/api/v1/openapi.json").body);
    const auto [status, output] =
        run("python3 -c 'import json, sys; from openapi_spec_validator import validate; "
            "validate(json.load(open(sys.argv[1])))' " +
            path);
    EXPECT_EQ(status, 0) << output;
}

TEST_F(ApiDocuments, MetricsHaveCountersHistogramAndConditions)
{
    const Response response = request("GET", "/metrics");
    EXPECT_EQ(response.type, "text/plain; version=0.0.4; charset=utf-8");
    for (const char* line :
         {"# TYPE orvan_messages_total counter\n", "\norvan_messages_total{protocol=\"raw\"} 7\n",
          "\norvan_clients_refused_total{protocol=\"hislip\"} 4\n", "\norvan_up 1\n",
          "\norvan_uptime_seconds 12.5\n", "\norvan_message_duration_seconds_bucket{le=\"0.001\"} 6\n",
          "\norvan_message_duration_seconds_bucket{le=\"+Inf\"} 10\n",
          "\norvan_message_duration_seconds_sum 1.25\n", "\norvan_message_duration_seconds_count 10\n",
          "\norvan_module_timeouts_total{channel=\"2\"} 2\n", "\norvan_module_up{channel=\"1\"} 1\n",
          "\norvan_channel_temperature_celsius{channel=\"1\"} 41.5\n", "\norvan_fan_automatic 1\n",
          "\norvan_web_viewers 0\n", "orvan_build_info{version=\"0.1.0\""}) {
        EXPECT_THAT(response.body, HasSubstr(line));
    }
    EXPECT_THAT(response.body, Not(HasSubstr("battery"))); // a benchtop
    service.stop();
    ASSERT_TRUE(wait_reachable(false));
    EXPECT_THAT(request("GET", "/metrics").body, HasSubstr("\norvan_up 0\n"));
}

TEST_F(ApiDocuments, MetricsPleasePromtool)
{
    if (!has("promtool --version")) {
        GTEST_SKIP() << "promtool is not installed";
    }
    const auto [status, output] =
        run("promtool check metrics < " + write("metrics", request("GET", "/metrics").body));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output, "");
}

TEST_F(ApiDocuments, MetricsAskNoModule)
{
    service.forget_messages();
    service.other_client(1, ":FREQ 2.5GHz");
    request("GET", "/metrics");
    for (const std::string& message : service.messages()) {
        EXPECT_FALSE(message.starts_with(":INST")) << message;
    }
}

TEST_F(ApiDocuments, LxiIdentificationMatchesItsSchema)
{
    service.respond("*IDN?", "Halde <Electronics> & \"Co\",OVX3652B,100001,1.19.145");
    service.stop();
    service.start();
    ASSERT_TRUE(wait_reachable(true));
    std::string xml;
    EXPECT_TRUE(orvan_test::eventually([&] {
        xml = request("GET", "/lxi/identification").body;
        return xml.find("&amp;") != std::string::npos;
    }));
    EXPECT_THAT(xml,
                HasSubstr("<Manufacturer>Halde &lt;Electronics&gt; &amp; &quot;Co&quot;</Manufacturer>"));
    EXPECT_THAT(xml, HasSubstr("<SerialNumber>100001</SerialNumber>"));
    EXPECT_THAT(xml, HasSubstr("<Hostname>bench-4</Hostname>"));
    EXPECT_THAT(xml, HasSubstr("<IdentificationURL>http://10.0.0.2/lxi/identification</IdentificationURL>"));
    if (!has("xmllint --version")) {
        GTEST_SKIP() << "xmllint is not installed";
    }
    const auto [status, output] =
        run("xmllint --noout --nonet --schema " ORVAN_LXI_SCHEMA " " + write("identification.xml", xml));
    EXPECT_EQ(status, 0) << output;
}

TEST_F(ApiDocuments, InstrumentHidesItsOwnClients)
{
    const Json json = get("/api/v1/instrument");
    EXPECT_EQ(to_text(cJSON_GetObjectItem(json.get(), "clients")),
              R"([{"protocol":"raw","address":"10.0.0.1:40000","since_s":3.2}])");
    EXPECT_EQ(to_text(cJSON_GetObjectItem(json.get(), "access")),
              R"({"changes":true,"password_set":false,"reason":""})");
    EXPECT_EQ(to_text(cJSON_GetObjectItem(json.get(), "battery")), "null");
    EXPECT_EQ(to_text(cJSON_GetObjectItem(json.get(), "self_test")), R"({"results":["0 Failures"]})");
    EXPECT_EQ(string_member(json.get(), "hostname"), "bench-4");
}

// What the document says of clients, errors and the running message.
#include <memory>
#include <optional>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "local_fixture.h"
#include "service/counters/counters_document.h"
#include "service_fixture.h"
#include "support/hislip_client.h"
#include "support/loopback.h"
#include "whole_front.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

struct Delete {
    void operator()(cJSON* json) const { ::cJSON_Delete(json); }
};

/** A value of the document by its path, as "protocols/raw/messages" or "clients/0/address". */
class Document {
public:
    explicit Document(const std::string& text) : m_json(::cJSON_Parse(text.c_str()))
    {
        EXPECT_TRUE(m_json) << text;
    }

    cJSON* at(std::string path) const
    {
        cJSON* json = m_json.get();
        for (size_t end = 0; json != nullptr && end != std::string::npos; path.erase(0, end + 1)) {
            end = path.find('/');
            const std::string name = path.substr(0, end);
            json = ::cJSON_IsArray(json) ? ::cJSON_GetArrayItem(json, std::stoi(name))
                                         : ::cJSON_GetObjectItemCaseSensitive(json, name.c_str());
            if (end == std::string::npos) {
                break;
            }
        }
        return json;
    }
    double number(const std::string& path) const
    {
        return ::cJSON_IsNumber(at(path)) ? at(path)->valuedouble : -1e9;
    }
    std::string text(const std::string& path) const
    {
        return ::cJSON_IsString(at(path)) ? at(path)->valuestring : "no text";
    }
    int size(const std::string& path) const { return ::cJSON_GetArraySize(at(path)); }

private:
    std::unique_ptr<cJSON, Delete> m_json;
};

uint32_t no_progress()
{
    return 0;
}

/** Servers of all protocols over an instrument of which all commands that begin with ":FOO" are errors. */
class CountersDocumentTest : public ::testing::Test {
protected:
    Document document() const { return Document(counters_document(front->executor(), watch, 2)); }

    LogCapture log;
    RecordingSink sink{[](int socket, const std::string& message) {
        const std::string reply =
            message.starts_with(":FOO") ? "-ERR -113, \"Undefined header\";+OK\r\n" : "1;+OK\r\n";
        ::send(socket, reply.data(), reply.size(), MSG_NOSIGNAL);
    }};
    HangWatch watch{sink, no_progress, std::chrono::seconds(100), std::chrono::microseconds(0)};
    std::optional<WholeFront> front{std::in_place, watch};
};

} // namespace

TEST_F(CountersDocumentTest, ANewServiceHasCountedNothing)
{
    const Document found = document();
    EXPECT_EQ(found.text("version"), ORVAN_VERSION);
    EXPECT_GE(found.number("uptime_s"), 0);
    EXPECT_LT(found.number("uptime_s"), 100);
    EXPECT_GT(found.number("resident_bytes"), 1e6);
    EXPECT_TRUE(::cJSON_IsTrue(found.at("ready")));
    for (const std::string protocol : {"raw", "hislip", "vxi11", "local"}) {
        for (const std::string count : {"messages", "errors", "clients", "refused"}) {
            EXPECT_EQ(found.number("protocols/" + protocol + "/" + count), 0);
        }
    }
    EXPECT_EQ(found.size("latency/bounds_s"), 11);
    EXPECT_EQ(found.number("latency/bounds_s/0"), 0.0001);
    EXPECT_EQ(found.size("latency/counts"), 12);
    EXPECT_EQ(found.size("modules"), 2);
    EXPECT_EQ(found.number("modules/1/module"), 2);
    EXPECT_GE(found.number("modules/1/requests"), 0);
    EXPECT_TRUE(::cJSON_IsBool(found.at("modules/1/failed")));
    EXPECT_EQ(found.size("clients"), 0);
    EXPECT_EQ(found.size("last_errors"), 0);
    EXPECT_TRUE(::cJSON_IsNull(found.at("running")));
}

TEST_F(CountersDocumentTest, ClientsOfEachProtocolAreCountedAndNamed)
{
    OtherProcess stranger(front->raw_port, 1);
    TestClient raw(front->raw_port);
    raw.ask(":A?\n");
    HislipClient hislip(front->hislip_port);
    EXPECT_EQ(hislip.ask("*ESE?\n"), "0\n");
    ASSERT_TRUE(eventually([&] { return document().size("clients") == 3; }));
    const Document found = document();
    EXPECT_EQ(found.number("protocols/raw/clients"), 2);
    EXPECT_EQ(found.number("protocols/raw/messages"), 1);
    EXPECT_EQ(found.number("protocols/hislip/clients"), 1);
    EXPECT_EQ(found.number("protocols/hislip/messages"), 1);
    const std::string own_address = "127.0.0.1:" + std::to_string(local_port(raw.fd()));
    int own = 0;
    for (int i = 0; i < 3; ++i) {
        const std::string client = "clients/" + std::to_string(i);
        EXPECT_GE(found.number(client + "/since_s"), 0);
        EXPECT_TRUE(found.text(client + "/address").starts_with("127.0.0.1:"));
        if (::cJSON_IsTrue(found.at(client + "/own"))) {
            ++own;
            EXPECT_EQ(found.text(client + "/protocol"), "raw");
            EXPECT_EQ(found.text(client + "/address"), own_address) << "this process is the service's";
        }
    }
    EXPECT_EQ(own, 1);
}

TEST_F(CountersDocumentTest, ErrorsOfASessionAreCountedOnceWithTheirMessage)
{
    HislipClient hislip(front->hislip_port);
    hislip.write(":FOO;*ESE 1\r\n");
    hislip.write("*SRE 300;" + std::string(100, ' ') + "\n");
    EXPECT_EQ(hislip.ask(":SYST:ERR:SESS?\n"), "-113,\"Undefined header\",-222,\"Data out of range\"\n");
    const Document found = document();
    EXPECT_EQ(found.number("protocols/hislip/errors"), 2);
    ASSERT_EQ(found.size("last_errors"), 2);
    EXPECT_EQ(found.text("last_errors/0/protocol"), "hislip");
    EXPECT_TRUE(found.text("last_errors/0/client").starts_with("127.0.0.1:"));
    EXPECT_EQ(found.number("last_errors/0/number"), -113);
    EXPECT_EQ(found.text("last_errors/0/text"), "Undefined header");
    EXPECT_EQ(found.text("last_errors/0/message"), ":FOO;*ESE 1");
    EXPECT_GE(found.number("last_errors/0/age_s"), found.number("last_errors/1/age_s"));
    EXPECT_EQ(found.text("last_errors/1/message"), "*SRE 300;" + std::string(51, ' ') + "...");
}

TEST_F(CountersDocumentTest, TheRunningMessageIsNamedWhileItRuns)
{
    sink.shut();
    TestClient client(front->raw_port);
    client.send(":SLOW 1\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    const Document found = document();
    EXPECT_EQ(found.text("running/client"), "127.0.0.1:" + std::to_string(local_port(client.fd())));
    EXPECT_EQ(found.text("running/message"), ":SLOW 1");
    EXPECT_GE(found.number("running/for_s"), 0);
    EXPECT_EQ(found.number("protocols/raw/messages"), 0);
    EXPECT_TRUE(
        eventually([&] { return document().number("running/for_s") > found.number("running/for_s"); }));
    sink.open();
    client.line();
    EXPECT_TRUE(eventually([&] { return ::cJSON_IsNull(document().at("running")) != 0; }));
    EXPECT_EQ(document().number("protocols/raw/messages"), 1);
}

TEST_F(CountersDocumentTest, RefusedClientsAreCounted)
{
    front.reset();
    ServerLimits limits;
    limits.max_clients = 1;
    limits.own_places = 0;
    front.emplace(watch, limits);
    TestClient first(front->raw_port);
    first.ask(":A?\n");
    TestClient second(front->raw_port);
    EXPECT_EQ(second.line(), "-ERR Too many clients;+OK\r\n");
    EXPECT_EQ(document().number("protocols/raw/refused"), 1);
    EXPECT_EQ(document().number("protocols/hislip/refused"), 0);
}

// The Unix sockets of the controller, for its own programs.
#include <memory>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

// Sends its first argument and prints as many lines as it has; without one, prints all that it gets.
const std::string kClient = R"(
import socket, sys
client = socket.socket(socket.AF_UNIX)
client.settimeout(30)
client.connect("/run/orvan/" + sys.argv[1])
stream = client.makefile("rwb")
if len(sys.argv) < 3:
    print(stream.read().decode())
else:
    stream.write(sys.argv[2].encode())
    stream.flush()
    for line in sys.argv[2].splitlines():
        print(stream.readline().decode(), end="")
)";

std::string ask(const Instrument& instrument, const std::string& lines)
{
    return instrument.exec("controller", {"python3", "-c", kClient, "scpi.sock", lines}).output;
}

struct Delete {
    void operator()(cJSON* json) const { ::cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, Delete>;

Json counters(const Instrument& instrument)
{
    const std::string text =
        instrument.exec("controller", {"python3", "-c", kClient, "counters.sock"}).output;
    Json document(::cJSON_Parse(text.c_str()));
    EXPECT_TRUE(document) << text;
    return document;
}

const cJSON* member(const cJSON* json, const char* name)
{
    return ::cJSON_GetObjectItemCaseSensitive(json, name);
}

double number(const cJSON* json, const char* name)
{
    return member(json, name) == nullptr ? -1 : member(json, name)->valuedouble;
}

} // namespace

TEST(UnixSocket, GivesEachProgramASessionOfItsOwn)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    EXPECT_EQ(instrument.client().ask(":INST 1;:FREQ 1e9"), "+OK\r\n");
    EXPECT_EQ(ask(instrument, ":INST 2;:FREQ 2.5GHz;:FREQ?\n:SYST:ERR:SESS?\n"),
              "2500000000\n0,\"No error\"\n");
    EXPECT_EQ(ask(instrument, ":INST 2;:FREQ 1e30;:FOO;:FREQ?\n:SYST:ERR:SESS?\n:SYST:ERR:SESS?\n"),
              "2500000000\n-222,\"Data out of range\",-113,\"Undefined header\"\n0,\"No error\"\n");
    EXPECT_EQ(instrument.client().ask(":FREQ?"), "1000000000;+OK\r\n") << "another's selection has not moved";
}

TEST(UnixSocket, HandsOutTheCountersOfClientsModulesAndErrors)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const Json before = counters(instrument);
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":INST 3;:FREQ 1e30;:FOO"),
              "-ERR -222, \"Data out of range\";-ERR -113, \"Undefined header\";+OK\r\n");
    const Json after = counters(instrument);
    const cJSON* const raw = member(member(after.get(), "protocols"), "raw");
    EXPECT_EQ(number(raw, "errors"), number(member(member(before.get(), "protocols"), "raw"), "errors") + 2);
    EXPECT_GE(number(raw, "clients"), 1);
    const cJSON* const modules = member(after.get(), "modules");
    ASSERT_EQ(::cJSON_GetArraySize(modules), 4);
    const cJSON* const third = ::cJSON_GetArrayItem(modules, 2);
    EXPECT_EQ(number(third, "module"), 3);
    EXPECT_GT(number(third, "requests"),
              number(::cJSON_GetArrayItem(member(before.get(), "modules"), 2), "requests"));
    EXPECT_TRUE(::cJSON_IsFalse(member(third, "failed")));
    const cJSON* const errors = member(after.get(), "last_errors");
    const int count = ::cJSON_GetArraySize(errors);
    ASSERT_GE(count, 2);
    EXPECT_EQ(number(::cJSON_GetArrayItem(errors, count - 2), "number"), -222);
    const cJSON* const last = ::cJSON_GetArrayItem(errors, count - 1);
    EXPECT_EQ(number(last, "number"), -113);
    EXPECT_STREQ(member(last, "message")->valuestring, ":INST 3;:FREQ 1e30;:FOO");

    ASSERT_EQ(instrument.ctl({"module", "2", "kill"}).status, 0);
    EXPECT_EQ(client.ask(":INST 2;:FREQ?"), "-ERR Unable to connect;+OK\r\n");
    const Json failed = counters(instrument);
    const cJSON* const second = ::cJSON_GetArrayItem(member(failed.get(), "modules"), 1);
    EXPECT_TRUE(::cJSON_IsTrue(member(second, "failed")));
    EXPECT_GE(number(second, "link_errors"), 1);
}

// What the web process shows of an instrument, and what its clients notice of it.
#include <cstdlib>
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "instrument.h"
#include "web_client.h"

using namespace orvan_test;
using testing::HasSubstr;
using testing::Not;

namespace {

// The web process has found the service, which a viewer may do some moments after the instrument is ready.
bool is_reachable(const Instrument& instrument)
{
    return eventually([&] {
        return web_get(instrument.http_port(), "/api/v1/instrument").find("\"reachable\":true") !=
               std::string::npos;
    });
}

// The value of a metric, with its labels.
double metric(const Instrument& instrument, const std::string& name)
{
    const std::string text = web_get(instrument.http_port(), "/metrics");
    const size_t at = text.find("\n" + name + " ");
    return at == std::string::npos ? -1 : std::atof(text.c_str() + at + name.size() + 2);
}

} // namespace

TEST(WebValues, ValueWithAUnitIsShownAsTheModuleHasIt)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    ASSERT_TRUE(is_reachable(instrument));
    WebViewer viewer(instrument.http_port());
    ASSERT_NE(viewer.wait_for("\"channel\":4"), "");
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":FREQ 2.5GHz"), "+OK\r\n");
    EXPECT_THAT(viewer.wait_for("\"frequency_hz\":2500000000"), HasSubstr("{\"channel\":1,"));
    EXPECT_EQ(client.ask(":TRIG:COUN 1e3;:AM 2"), "+OK\r\n"); // 1 and off in the record
    EXPECT_NE(viewer.wait_for("\"count\":1000"), "");
    EXPECT_THAT(viewer.received(), Not(HasSubstr("\"frequency_hz\":2.5")));
    EXPECT_TRUE(eventually([&] {
        return web_get(instrument.http_port(), "/api/v1/channels/1").find("\"am\":{\"enabled\":true") !=
               std::string::npos;
    }));
}

TEST(WebValues, ChangeOfThePageReachesItsModuleAndMovesNoSelection)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    ASSERT_TRUE(is_reachable(instrument));
    WebViewer viewer(instrument.http_port());
    ASSERT_NE(viewer.wait_for("\"channel\":4"), "");
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":INST 3;:INST?"), "3;+OK\r\n");
    const WebReply reply =
        web_request(instrument.http_port(), "PATCH", "/api/v1/channels/2",
                    R"({"frequency_hz":"3.25 GHz","level_dbm":"99 dBm","pulse":{"width_s":"10 us"}})");
    EXPECT_EQ(reply.status, 422) << reply.body;
    EXPECT_THAT(reply.body,
                HasSubstr(R"("errors":[{"field":"level_dbm","number":-222,"text":"Data out of range"}])"));
    EXPECT_THAT(reply.body, HasSubstr("\"frequency_hz\":3250000000"));
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?;:PULS:WIDT?"), "3250000000;1.0E-05;+OK");
    EXPECT_EQ(client.ask(":INST?"), "3;+OK\r\n");
}

TEST(WebValues, ModuleThatFailedIsNotAskedUntilSomebodyReachedIt)
{
    ORVAN_NEEDS_SANDBOX();
    // In real time: the temperature, which would reach it as well, is asked for each 30 s.
    const Instrument instrument({"--http-port", "0", "--clock-rate", "1"});
    ASSERT_TRUE(is_reachable(instrument));
    WebViewer viewer(instrument.http_port());
    ASSERT_NE(viewer.wait_for("\"channel\":4"), "");
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "2", "refuse"}).status, 0);
    EXPECT_THAT(client.ask(":INST 2;:FREQ 1.5GHz"), HasSubstr("-ERR"));
    ASSERT_NE(viewer.wait_for("\"failed\":true"), "");
    const std::string requests = "orvan_module_requests_total{channel=\"2\"}";
    const double before = metric(instrument, requests);
    for (int i = 0; i < 20; ++i) { // each of them would bring the channel up to date
        web_get(instrument.http_port(), "/api/v1/channels");
    }
    client.ask(":INST 1;:FREQ 2.5GHz");
    ASSERT_NE(viewer.wait_for("\"frequency_hz\":2500000000"), "");
    const double later = metric(instrument, requests);
    EXPECT_TRUE(later == before || later == before + 1) << before << ' ' << later; // one temperature poll
    ASSERT_EQ(instrument.ctl({"module", "2", "up"}).status, 0);
    EXPECT_EQ(client.ask(":INST 2;:FREQ 4.5GHz"), "+OK\r\n");
    EXPECT_THAT(viewer.wait_for("\"frequency_hz\":4500000000"), HasSubstr("\"channel\":2"));
}

TEST(WebValues, TrafficOfThePageLeavesTheModulesErrorsAlone)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    ASSERT_TRUE(is_reachable(instrument));
    Client client = instrument.client();
    EXPECT_THAT(client.ask("*CLS;:FREQ 50GHz"), HasSubstr("-222"));
    WebViewer viewer(instrument.http_port());
    for (int i = 0; i < 50; ++i) {
        ASSERT_NE(client.ask(":POW " + std::to_string(i % 10) + "dBm"), "");
        for (const char* path : {"/api/v1/channels", "/api/v1/instrument", "/metrics", "/api/v1/setups"}) {
            ASSERT_EQ(web_request(instrument.http_port(), "GET", path).status, 200) << path;
            if (i % 10 != 0) {
                break; // the channels, which ask the modules, each time
            }
        }
    }
    ASSERT_NE(viewer.wait_for("\"level_dbm\":9"), "");
    EXPECT_EQ(client.ask(":SYST:ERR:COUN?;:SYST:ERR?;:SYST:ERR?"),
              "1;-222,\"Data out of range\";0,\"No error\";+OK\r\n");
}

TEST(WebValues, ServiceThatWasKilledComesBackByItself)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0", "--restart"});
    ASSERT_TRUE(is_reachable(instrument));
    WebViewer viewer(instrument.http_port());
    ASSERT_NE(viewer.wait_for("\"channel\":4"), "");
    ASSERT_EQ(::kill(instrument.service(), SIGKILL), 0);
    EXPECT_NE(viewer.wait_for("{\"reachable\":false}"), "");
    EXPECT_NE(viewer.wait_for("{\"reachable\":true}"), "");
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":INST 2;:FREQ 3.5GHz"), "+OK\r\n");
    EXPECT_THAT(viewer.wait_for("\"frequency_hz\":3500000000"), HasSubstr("\"channel\":2"));
}

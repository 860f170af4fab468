// Debian's Prometheus watches the instrument from its LAN.
#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

constexpr int kMessages = 40;

/** Prints the metrics to `command`, through a pipe. */
Outcome with_metrics(const Instrument& instrument, const std::string& command)
{
    return instrument.exec(
        "lan", {"bash", "-c",
                "exec 3<>/dev/tcp/10.0.0.2/80 && printf 'GET /metrics HTTP/1.1\\r\\nHost: 10.0.0.2\\r\\n"
                "Connection: close\\r\\n\\r\\n' >&3 && sed '1,/^\\r$/d' <&3 | " +
                    command});
}

} // namespace

TEST(Prometheus, ScrapesWhatTheInstrumentDoes)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    Client client = instrument.client();
    for (int count = 0; count < kMessages; ++count) {
        EXPECT_EQ(client.ask(":FREQ?"), "1000000000;+OK\r\n");
    }
    const std::string labels = R"({instance="10.0.0.2:80", job="orvan")";
    const Outcome outcome = instrument.exec(
        "lan", {ORVAN_INSTRUMENT_TESTS_DIR "/scrape", "10.0.0.2:80",
                // Twice at least.
                "changes(orvan_uptime_seconds[20s]) >= 1 and orvan_ready == 1", "up", "orvan_build_info",
                "orvan_messages_total{protocol='raw'} >= bool 40", "count(orvan_module_up == 1)",
                "histogram_quantile(0.99, orvan_message_duration_seconds_bucket) < bool 10"});
    EXPECT_EQ(outcome.status, 0);
    const std::string expected[] = {
        "up" + labels + "} => 1\n",
        "orvan_build_info{firmware=\"1.19.145\", instance=\"10.0.0.2:80\", job=\"orvan\", "
        "model=\"OVX3654B\", "
        "serial=\"100001\", version=\"0.1.0\"} => 1\n",
        labels + ", protocol=\"raw\"} => 1\n",
        "{} => 4\n",
        labels + "} => 1\n",
    };
    std::string all;
    for (const std::string& line : expected) {
        all += line;
    }
    EXPECT_EQ(outcome.output, all);
}

TEST(Prometheus, ItsToolFindsNothingWrongWithTheMetrics)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--http-port", "0"});
    Client client = instrument.client();
    client.ask(":FOO");
    const Outcome metrics = with_metrics(instrument, "cat");
    EXPECT_NE(metrics.output.find("# TYPE orvan_message_duration_seconds histogram\n"), std::string::npos)
        << metrics.output;
    const Outcome outcome = with_metrics(instrument, "promtool check metrics; exit ${PIPESTATUS[1]}");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "");
}

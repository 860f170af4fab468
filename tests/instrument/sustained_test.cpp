// A client that keeps querying a module: each request uses a new connection, and ports must not run out.
#include <chrono>
#include <cstdio>

#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;
using Clock = std::chrono::steady_clock;

namespace {

double seconds_for(Client& client, int queries)
{
    const auto begin = Clock::now();
    for (int i = 0; i < queries; ++i) {
        const std::string reply = client.ask(":FREQ?");
        if (reply != "1000000000;+OK\r\n") {
            ADD_FAILURE() << "query " << i << " got " << reply;
            break;
        }
    }
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

} // namespace

// More than twice as many as the controller has ports, faster than they become free.
TEST(Sustained, SixtyThousandForwardedQueriesAreAllAnswered)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    EXPECT_EQ(instrument.exec("controller", {"cat", "/proc/sys/net/ipv4/tcp_tw_reuse"}).output, "1\n");
    Client client = instrument.client();
    ASSERT_EQ(client.ask(":FREQ 1GHz;:FREQ?"), "1000000000;+OK\r\n");
    const double first = seconds_for(client, 10'000);
    seconds_for(client, 40'000);
    const double last = seconds_for(client, 10'000);
    std::printf("the last 10,000 queries were answered %.2f times as fast as the first\n", first / last);
}

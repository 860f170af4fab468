#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "service/counters/counters.h"

using namespace orvan_service;
using namespace std::chrono_literals;

TEST(Counters, MessagesAreCountedByProtocolAndLatency)
{
    Counters counters;
    counters.count_message(Protocol::kRaw, 0ns);
    counters.count_message(Protocol::kRaw, 100us);
    counters.count_message(Protocol::kLocal, 100'001ns);
    counters.count_message(Protocol::kHislip, 10s);
    counters.count_message(Protocol::kVxi11, 10'000'000'001ns);
    EXPECT_EQ(counters.of(Protocol::kRaw).messages, 2u);
    EXPECT_EQ(counters.of(Protocol::kHislip).messages, 1u);
    EXPECT_EQ(counters.of(Protocol::kVxi11).messages, 1u);
    EXPECT_EQ(counters.of(Protocol::kLocal).messages, 1u);
    const std::array<uint64_t, 12> expected{2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1};
    EXPECT_EQ(counters.latencies(), expected);
    EXPECT_EQ(counters.latency_sum(), 20'000'200'002ns);
}

TEST(Counters, EachClassOfLatencyEndsAtItsBound)
{
    Counters counters;
    for (const double bound : kLatencyBounds) {
        counters.count_message(Protocol::kRaw, std::chrono::nanoseconds(static_cast<int64_t>(bound * 1e9)));
    }
    const std::array<uint64_t, 12> expected{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
    EXPECT_EQ(counters.latencies(), expected);
}

TEST(Counters, TheLastErrorsAreKeptWithTheirClients)
{
    Counters counters;
    const Client client{Protocol::kVxi11, "10.0.0.1:700"};
    for (int i = 1; i <= 23; ++i) {
        counters.count_error(client, {-i, "text\n\xff"}, "message " + std::to_string(i));
    }
    EXPECT_EQ(counters.of(Protocol::kVxi11).errors, 23u);
    const auto errors = counters.last_errors();
    ASSERT_EQ(errors.size(), 20u);
    for (size_t i = 0; i < errors.size(); ++i) {
        EXPECT_EQ(errors[i].number, -4 - static_cast<int>(i));
        EXPECT_EQ(errors[i].text, "text..");
        EXPECT_EQ(errors[i].message, "message " + std::to_string(i + 4));
        EXPECT_EQ(errors[i].protocol, Protocol::kVxi11);
        EXPECT_EQ(errors[i].client, "10.0.0.1:700");
        EXPECT_LE(errors[i].time, Counters::Clock::now());
        EXPECT_GE(errors[i].time, counters.begin());
    }
}

TEST(Counters, AreReadWhileTheyChange)
{
    constexpr uint64_t kMessages = 100'000;
    Counters counters;
    std::thread executor([&] {
        for (uint64_t i = 0; i < kMessages; ++i) {
            counters.count_message(Protocol::kRaw, 5us);
            if (i % 100 == 0) {
                counters.count_error({Protocol::kRaw, "a"}, {-100, "b"}, "c");
            }
        }
    });
    std::thread attendant([&] {
        for (uint64_t i = 0; i < kMessages; ++i) {
            counters.count_refused(Protocol::kRaw);
        }
    });
    uint64_t last = 0;
    while (last < kMessages) {
        const uint64_t now = counters.of(Protocol::kRaw).messages;
        ASSERT_GE(now, last);
        last = now;
        EXPECT_LE(counters.last_errors().size(), Counters::kLastErrors);
    }
    executor.join();
    attendant.join();
    EXPECT_EQ(counters.latencies()[0], kMessages);
    EXPECT_EQ(counters.of(Protocol::kRaw).errors, kMessages / 100);
    EXPECT_EQ(counters.of(Protocol::kRaw).refused, kMessages);
}

// A session by itself, at times set by the test.
#include <optional>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "service/raw/raw_session.h"
#include "service_fixture.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::chrono_literals;
using Wait = Session::Wait;

namespace {

class RawSessionTest : public ::testing::Test {
protected:
    RawSessionTest()
    {
        const auto listeners = open_listeners("127.0.0.1", 0);
        client.emplace(local_port(listeners.front().get()));
        orvan_common::UniqueFd socket(::accept4(listeners.front().get(), nullptr, nullptr, SOCK_CLOEXEC));
        session.emplace(std::move(socket), sink, memory, counters, RawLimits{});
    }

    /** Sends the bytes and lets the session receive them. */
    Wait receive(ServiceTime now, const std::string& bytes)
    {
        client->send(bytes);
        pollfd arrived{session->descriptor(), POLLIN, 0};
        EXPECT_EQ(::poll(&arrived, 1, 10'000), 1);
        return session->advance(now, true);
    }

    LogCapture log;
    RecordingSink sink{[](int, const std::string&) {}};
    MessageMemory memory{100'000, 100'000};
    Counters counters;
    std::optional<TestClient> client;
    std::optional<RawSession> session;
};

} // namespace

TEST_F(RawSessionTest, HasNoDeadlineWhenIdle)
{
    EXPECT_EQ(session->advance(5s, true), Wait::kInput);
    EXPECT_EQ(session->deadline(), kNever);
}

TEST_F(RawSessionTest, AHalfMessageHasAMinuteFromItsBeginningHoweverItTrickles)
{
    EXPECT_EQ(receive(5s, ":FR"), Wait::kInput);
    EXPECT_EQ(session->deadline(), 65s);
    EXPECT_EQ(receive(50s, "EQ"), Wait::kInput);
    EXPECT_EQ(session->deadline(), 65s);
    EXPECT_EQ(receive(60s, " 1\n"), Wait::kTurn);
    EXPECT_EQ(session->deadline(), kNever);
    session->execute();
    EXPECT_EQ(session->advance(60s, false), Wait::kInput);
    EXPECT_EQ(receive(70s, ":"), Wait::kInput);
    EXPECT_EQ(session->deadline(), 130s);
}

TEST_F(RawSessionTest, AMessageThatFollowsALargeOneHasADeadlineWhileItWaitsForMemory)
{
    MessagePiece others = memory.borrow();
    ASSERT_EQ(memory.reserve(&others, others, 20'000, 0, 0), MessageMemory::Answer::kGranted);
    const std::string first = ":DATA #530000" + std::string(30'000, 'x') + "\n";
    const std::string second = ":DATA #570000";
    client->send(first + second);
    ASSERT_TRUE(eventually([&] {
        int arrived = 0;
        ::ioctl(session->descriptor(), FIONREAD, &arrived);
        return static_cast<size_t>(arrived) == first.size() + second.size();
    }));
    ASSERT_EQ(session->advance(5s, true), Wait::kInput); // as much as fits into a short piece
    ASSERT_EQ(session->advance(5s, true), Wait::kTurn);
    session->execute();
    ASSERT_EQ(session->advance(5s, false), Wait::kMemory);
    EXPECT_EQ(session->deadline(), 66s);
}

TEST_F(RawSessionTest, UnreadRepliesAlwaysHaveFiveSeconds)
{
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(receive(0s, "a\n"), Wait::kTurn) << i;
        session->execute();
        ASSERT_EQ(session->advance(0s, false), Wait::kInput) << i;
    }
    const std::string filler(65536, 'r');
    while (::send(session->descriptor(), filler.data(), filler.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
    EXPECT_EQ(receive(1s, "*ID"), Wait::kInput);
    EXPECT_EQ(session->deadline(), 61s);
    EXPECT_EQ(receive(2s, "N?\n"), Wait::kRoom);
    EXPECT_EQ(session->deadline(), 7s);
    EXPECT_EQ(session->advance(3s, false), Wait::kRoom);
    EXPECT_EQ(session->deadline(), 7s);
}

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <gtest/gtest.h>

#include "service/hang_watch.h"
#include "service_fixture.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

std::atomic<uint32_t> g_progress = 0;

uint32_t progress()
{
    return g_progress;
}

/** The service manager: collects the reports. */
class Manager {
public:
    Manager()
    {
        const std::string name = "orvan-hang-watch-" + std::to_string(::getpid());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path + 1, name.size());
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address),
                         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
                  0);
        ::setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    }

    /** Removes the reports up to and including `state`; false if it does not arrive. */
    bool wait_for(const std::string& state)
    {
        return eventually([&] {
            receive();
            const auto found = std::find(m_states.begin(), m_states.end(), state);
            if (found == m_states.end()) {
                return false;
            }
            m_states.erase(m_states.begin(), found + 1);
            return true;
        });
    }
    /** Removes and returns all reports. */
    std::vector<std::string> take()
    {
        receive();
        return std::exchange(m_states, {});
    }

private:
    void receive()
    {
        char text[1000];
        for (ssize_t n; (n = ::recv(m_socket.get(), text, sizeof text, MSG_DONTWAIT)) >= 0;) {
            m_states.emplace_back(text, static_cast<size_t>(n));
        }
    }

    orvan_common::UniqueFd m_socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::vector<std::string> m_states;
};

class HangWatchTest : public ::testing::Test {
protected:
    ~HangWatchTest() override
    {
        sink.open();
        if (executing.joinable()) {
            executing.join();
        }
    }

    void watch_for(std::chrono::milliseconds limit, std::chrono::microseconds watchdog = 30s)
    {
        watch.emplace(sink, progress, limit, watchdog);
        begin = watch->due();
    }
    /** Executes a message until finish(). */
    void hold(const std::string& message)
    {
        sink.shut();
        executing = std::thread([this, message] {
            std::string text = message;
            watch->execute(client.server(), text.data(), text.size());
        });
        ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    }
    void finish()
    {
        sink.open();
        executing.join();
    }
    void check_at(std::chrono::milliseconds time) { watch->check(begin + time); }
    bool is_woken() const
    {
        pollfd over{watch->descriptor(), POLLIN, 0};
        return ::poll(&over, 1, 0) == 1;
    }
    std::string who() const
    {
        return "client " + std::to_string(client.server()) +
               " at 127.0.0.1:" + std::to_string(local_port(client.client()));
    }

    using Texts = std::vector<std::string>;
    LogCapture log;
    Manager manager;
    TcpPair client;
    RecordingSink sink{[](int, const std::string&) {}};
    std::optional<HangWatch> watch;
    HangWatch::Clock::time_point begin;
    std::thread executing;
};

} // namespace

TEST_F(HangWatchTest, ReportsAMessageWithoutProgressOnceAndStopsFeedingTheWatchdog)
{
    watch_for(2min);
    check_at(0s);
    EXPECT_EQ(manager.take(), Texts{"WATCHDOG=1"});
    hold("*IDN?;*IDN?\r\n");
    check_at(10s);
    check_at(130s - 1ms);
    EXPECT_EQ(manager.take(), (Texts{"WATCHDOG=1", "WATCHDOG=1"}));
    EXPECT_TRUE(log.lines().empty());
    check_at(130s);
    const std::string text = who() + " hangs: no progress for 120 s in \"*IDN?;*IDN?\"";
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{LOG_ERR, text}}));
    EXPECT_EQ(manager.take(), Texts{"STATUS=" + text});
    check_at(10min);
    EXPECT_EQ(manager.take(), Texts{});
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(HangWatchTest, ReportsThatItHasRecovered)
{
    watch_for(1500ms);
    hold("*IDN?\n");
    check_at(0s);
    check_at(1500ms);
    const std::string hang = who() + " hangs: no progress for 1.5 s in \"*IDN?\"";
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{LOG_ERR, hang}}));
    log.clear();
    manager.take();
    ++g_progress;
    check_at(12s);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{LOG_NOTICE, who() + " resumed after 12 s"}}));
    EXPECT_EQ(manager.take(), (Texts{"STATUS=", "WATCHDOG=1"}));
    // And hangs again.
    check_at(14s);
    EXPECT_EQ(log.count(LOG_ERR, hang), 1u);
    finish();
    check_at(15s);
    EXPECT_EQ(log.count(LOG_NOTICE, who() + " resumed after 3 s"), 1u);
    EXPECT_EQ(manager.take(), (Texts{"STATUS=" + hang, "STATUS=", "WATCHDOG=1"}));
}

TEST_F(HangWatchTest, WakesTheWatcherWhenAMessageThatHungIsDone)
{
    watch_for(1s);
    hold("*IDN?\n");
    check_at(0s);
    finish();
    EXPECT_FALSE(is_woken()) << "it did not hang";
    hold("*IDN?\n");
    check_at(1s);
    check_at(2s);
    EXPECT_FALSE(is_woken());
    finish();
    EXPECT_TRUE(is_woken());
    check_at(2s);
    EXPECT_FALSE(is_woken());
}

TEST_F(HangWatchTest, ALongMessageThatMakesProgressIsNoHang)
{
    watch_for(1s);
    hold("*RST\n");
    for (auto time = 0ms; time < 1h; time += 999ms) {
        ++g_progress;
        check_at(time);
        ASSERT_EQ(manager.take(), Texts{"WATCHDOG=1"});
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HangWatchTest, ConsecutiveMessagesAreProgress)
{
    watch_for(1s);
    for (auto time = 0ms; time < 10s; time += 900ms) {
        hold("*IDN?\n");
        check_at(time);
        finish();
        manager.take();
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HangWatchTest, IdleIsNoHang)
{
    watch_for(1s);
    std::string text = "*IDN?\n";
    watch->execute(client.server(), text.data(), text.size());
    check_at(0s);
    check_at(1h);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(manager.take(), (Texts{"WATCHDOG=1", "WATCHDOG=1"}));
    hold("*IDN?\n");
    check_at(2h);
    EXPECT_TRUE(log.lines().empty()) << "the hour before it does not count";
}

TEST_F(HangWatchTest, ALongMessageIsCutAndUnprintableBytesAreDots)
{
    watch_for(20ms);
    hold(":DATA #15a\tb\n\x80\n" + std::string(100, 'x') + "\n");
    check_at(0s);
    check_at(1s);
    EXPECT_EQ(log.count(LOG_ERR, who() + " hangs: no progress for 0.02 s in \":DATA #15a.b..." +
                                     std::string(45, 'x') + "...\""),
              1u);
}

TEST_F(HangWatchTest, WithoutAWatchdogNothingIsFed)
{
    watch_for(40ms, 0us);
    hold("*IDN?\n");
    check_at(0s);
    check_at(1s);
    finish();
    check_at(2s);
    const std::string text = who() + " hangs: no progress for 0.04 s in \"*IDN?\"";
    EXPECT_EQ(manager.take(), (Texts{"STATUS=" + text, "STATUS="}));
}

TEST_F(HangWatchTest, IsDueTwiceAWatchdogPeriodAndEightTimesWithinTheLimit)
{
    const struct {
        std::chrono::milliseconds limit;
        std::chrono::microseconds watchdog;
        std::chrono::microseconds pause;
    } cases[] = {{2min, 30s, 15s}, {2min, 20s, 10s}, {2min, 10min, 15s}, {2min, 0s, 15s}, {50ms, 1us, 1ms}};
    for (const auto& [limit, watchdog, pause] : cases) {
        watch_for(limit, watchdog);
        check_at(5s);
        EXPECT_EQ(watch->due(), begin + 5s + pause) << limit.count() << ' ' << watchdog.count();
    }
}

TEST_F(HangWatchTest, ALostClientIsReportedToTheSink)
{
    watch_for(1s);
    watch->client_lost(7);
    EXPECT_EQ(sink.lost(), std::vector<int>{7});
}

TEST_F(HangWatchTest, IsCheckedByTheAttendantWhenItIsDueAndWhenAHangIsOver)
{
    watch_for(2min, 20ms);
    {
        RunningServer server(*watch, {}, &*watch);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
        }
    }
    hold("*IDN?\n");
    begin = HangWatch::Clock::now();
    check_at(0s);
    check_at(24h); // so it is not due for a day
    RunningServer server(*watch, {}, &*watch);
    finish();
    EXPECT_TRUE(eventually([&] {
        const auto lines = log.lines();
        return lines.back().text.starts_with(who() + " resumed after ");
    }));
}

TEST_F(HangWatchTest, IsCheckedWhileTheServerEnds)
{
    watch_for(2min, 20ms);
    RunningServer server(*watch, {}, &*watch);
    sink.shut();
    TestClient at_work(server.port());
    at_work.send("*IDN?\n");
    ASSERT_TRUE(eventually([&] { return sink.at_work() == 1; }));
    server.stop_accepting();
    manager.take();
    EXPECT_FALSE(server.server().end(2s, &*watch));
    EXPECT_GE(manager.take().size(), 2u);
    sink.open();
}

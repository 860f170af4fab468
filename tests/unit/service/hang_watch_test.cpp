#include "service/hang_watch.h"

#include "service_fixture.h"
#include "support/log_capture.h"
#include "support/loopback.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <thread>

using namespace orvan_service;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

std::atomic<uint32_t> g_progress = 0;

uint32_t progress()
{
    return g_progress;
}

/** The service manager's end: collects what is reported. */
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

    /** Takes what has been reported up to and including `state`; false when that does not come. */
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
    /** Takes all that has been reported. */
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

    UniqueFd m_socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
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

    void watch_for(std::chrono::milliseconds limit, std::chrono::microseconds watchdog = 20ms)
    {
        watch.emplace(sink, progress, limit, watchdog);
    }
    /** Until finish(). */
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
    std::string who() const
    {
        return "client " + std::to_string(client.server()) +
               " at 127.0.0.1:" + std::to_string(local_port(client.client()));
    }

    LogCapture log;
    Manager manager;
    TcpPair client;
    RecordingSink sink{[](int, const std::string&) { std::this_thread::sleep_for(20ms); }};
    std::optional<HangWatch> watch;
    std::thread executing;
};

} // namespace

TEST_F(HangWatchTest, ReportsAMessageWithoutProgressOnceAndFeedsTheWatchdogNoMore)
{
    watch_for(40ms);
    EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
    hold("*IDN?;*IDN?\r\n");
    const std::string text = who() + " hangs: no progress for 0.04 s in \"*IDN?;*IDN?\"";
    EXPECT_TRUE(log.wait_for(LOG_ERR, text));
    EXPECT_TRUE(manager.wait_for("STATUS=" + text));
    std::this_thread::sleep_for(100ms); // five periods of the watchdog; more make it no worse
    EXPECT_TRUE(manager.take().empty());
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(HangWatchTest, ReportsThatItGoesOn)
{
    watch_for(40ms);
    hold("*IDN?\n");
    ASSERT_TRUE(log.wait_for(LOG_ERR, who() + " hangs: no progress for 0.04 s in \"*IDN?\""));
    log.clear();
    ++g_progress;
    EXPECT_TRUE(manager.wait_for("STATUS="));
    EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
    const std::string text = log.lines().at(0).text;
    EXPECT_EQ(text.substr(0, text.find(" after ")), who() + " goes on");
    EXPECT_EQ(text.substr(text.size() - 2), " s");
    EXPECT_EQ(log.lines().at(0).priority, LOG_NOTICE);
    // And hangs again.
    EXPECT_TRUE(log.wait_for(LOG_ERR, who() + " hangs: no progress for 0.04 s in \"*IDN?\""));
    finish();
    EXPECT_TRUE(manager.wait_for("STATUS="));
    EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
}

TEST_F(HangWatchTest, ALongMessageThatMakesProgressIsNoHang)
{
    watch_for(1s);
    hold("*RST\n");
    const auto end = std::chrono::steady_clock::now() + 3s;
    while (std::chrono::steady_clock::now() < end) {
        ++g_progress;
        std::this_thread::sleep_for(5ms);
        manager.take();
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
}

TEST_F(HangWatchTest, MessagesOneAfterTheOtherAreProgress)
{
    watch_for(1s, 0us);
    std::string text = "*IDN?\n";
    const auto end = std::chrono::steady_clock::now() + 3s;
    while (std::chrono::steady_clock::now() < end) {
        watch->execute(client.server(), text.data(), text.size());
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HangWatchTest, NothingAtWorkIsNoHang)
{
    watch_for(1s); // longer than a busy machine keeps a thread from the processor
    std::string text = "*IDN?\n";
    watch->execute(client.server(), text.data(), text.size());
    const auto end = std::chrono::steady_clock::now() + 1500ms;
    while (std::chrono::steady_clock::now() < end) {
        manager.take(); // a manager that does not listen would be logged
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(manager.wait_for("WATCHDOG=1"));
}

TEST_F(HangWatchTest, ALongMessageIsCutAndWhatCannotBePrintedIsADot)
{
    watch_for(20ms);
    hold(":DATA #15a\tb\n\x80\n" + std::string(100, 'x') + "\n");
    EXPECT_TRUE(log.wait_for(LOG_ERR, who() + " hangs: no progress for 0.02 s in \":DATA #15a.b..." +
                                          std::string(45, 'x') + "...\""));
}

TEST_F(HangWatchTest, WithoutAWatchdogNothingIsFed)
{
    watch_for(40ms, 0us);
    hold("*IDN?\n");
    const std::string text = who() + " hangs: no progress for 0.04 s in \"*IDN?\"";
    ASSERT_TRUE(log.wait_for(LOG_ERR, text));
    finish();
    EXPECT_TRUE(manager.wait_for("STATUS=" + text));
    EXPECT_TRUE(manager.wait_for("STATUS="));
    EXPECT_TRUE(manager.take().empty());
}

TEST_F(HangWatchTest, AClientThatIsLostIsTheSinksMatter)
{
    watch_for(1s);
    watch->client_lost(7);
    EXPECT_EQ(sink.lost(), std::vector<int>{7});
}

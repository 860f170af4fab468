#include <cerrno>
#include <map>
#include <optional>
#include <set>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <syslog.h>

#include <gtest/gtest.h>

#include "service/front_panel.h"
#include "service/key_map.h"
#include "service/listener.h"
#include "service_fixture.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using orvan_common::UniqueFd;

namespace {

constexpr uint8_t kPreset = key_code(2, 0);

/** Records the panel's messages; while shut, it blocks them. */
class Commands {
public:
    std::string execute(const std::string& message)
    {
        std::unique_lock lock(m_mutex);
        m_messages.push_back(message);
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return !m_shut; });
        return m_reply;
    }
    void reply_with(const std::string& reply)
    {
        const std::lock_guard lock(m_mutex);
        m_reply = reply;
    }
    void shut(bool on)
    {
        const std::lock_guard lock(m_mutex);
        m_shut = on;
        m_changed.notify_all();
    }
    bool wait_for(size_t count)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_messages.size() >= count; });
    }
    std::vector<std::string> messages() const
    {
        const std::lock_guard lock(m_mutex);
        return m_messages;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_shut = false;
    std::string m_reply = "+OK";
    std::vector<std::string> m_messages;
};

class FrontPanelTest : public ::testing::Test {
protected:
    FrontPanelTest() { start(std::chrono::seconds(10)); }

    void start(std::chrono::milliseconds patience, int channels = 4)
    {
        panel.reset();
        auto listener = std::move(open_listeners("127.0.0.1", 0).front());
        port = local_port(listener.get());
        panel.emplace(
            std::move(listener), channels,
            [this](const std::string& message) { return commands.execute(message); }, patience);
    }
    UniqueFd connect() const { return UniqueFd(connect_to_loopback("127.0.0.1", port)); }
    /** A connection with these bytes, closed at once. */
    void deliver(const std::string& bytes) const
    {
        const UniqueFd connection = connect();
        EXPECT_EQ(::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void type(uint8_t code) const { deliver(std::string(1, static_cast<char>(code))); }

    LogCapture log;
    Commands commands;
    int port = 0;
    std::optional<FrontPanel> panel;
};

TEST_F(FrontPanelTest, EachAssignedKeyIsLoggedAndItsMessageExecuted)
{
    for (const KeyAction& key : key_map()) {
        const size_t before = commands.messages().size();
        type(key.code);
        ASSERT_TRUE(commands.wait_for(before + 1));
        EXPECT_EQ(commands.messages().back(), key.message);
        EXPECT_TRUE(log.wait_for(LOG_NOTICE, std::string("front panel: ") + key.name));
    }
    panel.reset();
    EXPECT_EQ(log.lines().size(), key_map().size()) << "a good reply is not logged";
}

TEST_F(FrontPanelTest, KeysArriveInOrder)
{
    std::vector<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        const KeyAction& key = key_map()[static_cast<size_t>(i) % key_map().size()];
        type(key.code);
        expected.emplace_back(key.message);
    }
    ASSERT_TRUE(commands.wait_for(200));
    EXPECT_EQ(commands.messages(), expected);
}

TEST_F(FrontPanelTest, KeysTypedDuringACommandWaitForIt)
{
    commands.shut(true);
    type(kPreset);
    ASSERT_TRUE(commands.wait_for(1));
    for (int i = 0; i < 100; ++i) { // as many as the bridge queues
        type(key_code(1, 0));
    }
    EXPECT_EQ(commands.messages().size(), 1u);
    commands.shut(false);
    EXPECT_TRUE(commands.wait_for(101));
}

TEST_F(FrontPanelTest, AnUnassignedKeyIsOnlyLogged)
{
    type(key_code(5, 9));
    EXPECT_TRUE(log.wait_for(LOG_INFO, "front panel: key 0x95 is not in use"));
    type(0xff);
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, "front panel: remote"));
    EXPECT_TRUE(commands.messages().empty());
}

TEST_F(FrontPanelTest, AKeyOfAMissingChannelIsUnassigned)
{
    start(std::chrono::seconds(10), 2);
    type(key_code(0, 2));
    EXPECT_TRUE(log.wait_for(LOG_INFO, "front panel: key 0x20 is not in use"));
    type(key_code(0, 1));
    ASSERT_TRUE(commands.wait_for(1));
    EXPECT_EQ(commands.messages(), std::vector<std::string>{":INST 2"});
}

TEST_F(FrontPanelTest, AnErrorOrNoReplyIsLogged)
{
    commands.reply_with("-ERR -360, \"Communication error\";+OK");
    type(key_code(1, 0));
    EXPECT_TRUE(
        log.wait_for(LOG_WARNING, "front panel: RF on: :OUTP ON: -ERR -360, \"Communication error\";+OK"));
    commands.reply_with("");
    type(key_code(1, 1));
    EXPECT_TRUE(log.wait_for(LOG_WARNING, "front panel: RF off: :OUTP OFF: no reply"));
}

TEST_F(FrontPanelTest, AConnectionWithNoCodeOrTooManyIsIgnored)
{
    deliver("");
    EXPECT_TRUE(log.wait_for(LOG_WARNING, "front panel: a connection with no code"));
    deliver(std::string(2, static_cast<char>(kPreset)));
    EXPECT_TRUE(log.wait_for(LOG_WARNING, "front panel: a connection with more than a code"));
    log.clear();
    deliver(std::string(4096, static_cast<char>(kPreset)));
    EXPECT_TRUE(log.wait_for(LOG_WARNING, "front panel: a connection with more than a code"));
    type(kPreset);
    ASSERT_TRUE(commands.wait_for(1));
    EXPECT_EQ(commands.messages().size(), 1u);
}

TEST_F(FrontPanelTest, ACodeCountsWhenItsConnectionEndsAndNotBefore)
{
    const UniqueFd connection = connect();
    const char code = static_cast<char>(kPreset);
    ASSERT_EQ(::send(connection.get(), &code, 1, 0), 1);
    ::shutdown(connection.get(), SHUT_WR); // half closed counts as ended
    ASSERT_TRUE(commands.wait_for(1));
    EXPECT_EQ(read_until(connection.get(), "\n"), "") << "nothing is sent back, and it is closed";
}

TEST_F(FrontPanelTest, AnUnfinishedConnectionDelaysOthersOnlyForItsTimeOut)
{
    start(std::chrono::seconds(1));
    const UniqueFd silent = connect();
    type(kPreset);
    EXPECT_TRUE(log.wait_for(LOG_WARNING, "front panel: connection not closed in time"));
    ASSERT_TRUE(commands.wait_for(1));
    EXPECT_TRUE(read_until(silent.get(), "\n").empty());
}

TEST_F(FrontPanelTest, AResetConnectionIsIgnored)
{
    {
        TestClient client(port);
        client.reset();
    }
    type(kPreset);
    ASSERT_TRUE(commands.wait_for(1));
    EXPECT_EQ(commands.messages().size(), 1u);
}

TEST_F(FrontPanelTest, AfterDestructionNoMoreKeysAreAccepted)
{
    const UniqueFd open_at_the_end = connect();
    panel->end();
    panel.reset();
    const UniqueFd late = connect();
    EXPECT_FALSE(late);
    EXPECT_TRUE(commands.messages().empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(FrontPanelTest, DestructionWaitsForTheRunningKey)
{
    commands.shut(true);
    type(kPreset);
    type(kPreset);
    ASSERT_TRUE(commands.wait_for(1));
    panel->end();
    commands.shut(false);
    panel.reset();
    EXPECT_EQ(commands.messages().size(), 1u) << "the second was still in the queue";
}

TEST_F(FrontPanelTest, LeaksNoDescriptors)
{
    panel.reset();
    const size_t before = open_descriptors();
    start(std::chrono::seconds(1));
    for (int i = 0; i < 10; ++i) {
        type(kPreset);
    }
    ASSERT_TRUE(commands.wait_for(10));
    panel.reset();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(FrontPanelTest, LogsThatItIsOutOfDescriptorsAndContinuesLater)
{
    const UniqueFd client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit all_in_use{3, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &all_in_use), 0);
    EXPECT_EQ(::connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_TRUE(log.wait_for(LOG_ERR, "front panel: accept: Too many open files"));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    const char code = static_cast<char>(kPreset);
    EXPECT_EQ(::send(client.get(), &code, 1, 0), 1);
    ::shutdown(client.get(), SHUT_WR);
    EXPECT_TRUE(commands.wait_for(1));
}

} // namespace

TEST(KeyMap, HasEachCodeOnceAndOnlyKeysOfTheMatrix)
{
    std::set<uint8_t> codes;
    for (const KeyAction& key : key_map()) {
        EXPECT_TRUE(codes.insert(key.code).second) << key.name;
        EXPECT_LT(key.code % 16, 6) << key.name;
        EXPECT_LT(key.code / 16, 8) << key.name << ": columns 8 and 9 report releases too";
        EXPECT_EQ(find_key(key.code, 4), &key);
    }
    EXPECT_EQ(find_key(0x95, 4), nullptr);
    EXPECT_EQ(find_key(0xff, 4), nullptr);
}

TEST(KeyMap, SwitchesRfSelectsChannelsAndPresets)
{
    std::map<std::string, std::string> messages;
    for (const KeyAction& key : key_map()) {
        messages[key.name] = key.message;
    }
    EXPECT_EQ(messages, (std::map<std::string, std::string>{{"Channel 1", ":INST 1"},
                                                            {"Channel 2", ":INST 2"},
                                                            {"Channel 3", ":INST 3"},
                                                            {"Channel 4", ":INST 4"},
                                                            {"RF on", ":OUTP ON"},
                                                            {"RF off", ":OUTP OFF"},
                                                            {"Preset", "*RST"}}));
}

TEST(KeyMap, ChannelKeysAreThoseOfTheInstalledChannels)
{
    for (int channels = 0; channels <= 4; ++channels) {
        for (int channel = 1; channel <= 4; ++channel) {
            EXPECT_EQ(find_key(key_code(0, channel - 1), channels) != nullptr, channel <= channels)
                << channel << " of " << channels;
        }
        EXPECT_NE(find_key(key_code(1, 0), channels), nullptr);
        EXPECT_NE(find_key(key_code(2, 0), channels), nullptr);
    }
}

TEST(KeyMap, ACodeIsSixteenTimesTheColumnPlusTheRow)
{
    EXPECT_EQ(key_code(0, 0), 0x00);
    EXPECT_EQ(key_code(3, 2), 0x23);
    EXPECT_EQ(key_code(5, 9), 0x95);
}

// Documents for the clients of the Unix socket.
#include <list>

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "local_fixture.h"
#include "service/counters/counters_server.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

class CountersServerTest : public ::testing::Test {
protected:
    void start()
    {
        m_counters.emplace(folder.path(), [this] { return document; });
        m_attendant = std::thread([this] {
            const std::array<Attended*, 1> others{&*m_counters};
            m_server.run(m_stop.get(), nullptr, others);
        });
    }
    ~CountersServerTest() override
    {
        ::eventfd_write(m_stop.get(), 1);
        if (m_attendant.joinable()) {
            m_attendant.join();
        }
    }

    LogCapture log;
    PrivateFolder folder;
    const std::filesystem::path socket = folder.path() / "counters.sock";
    std::string document = "{}";

private:
    struct NoSink : MessageSink {
        void execute(int, char*, size_t) override {}
        void client_lost(int) override {}
    };

    NoSink m_no_sink;
    Server m_server{{}, m_no_sink, {}};
    std::optional<CountersServer> m_counters;
    orvan_common::UniqueFd m_stop{::eventfd(0, EFD_CLOEXEC)};
    std::thread m_attendant;
};

} // namespace

TEST_F(CountersServerTest, EachClientReadsADocumentUntilTheEnd)
{
    start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(LocalClient(socket).rest(), "{}");
    }
}

TEST_F(CountersServerTest, ALongDocumentIsSentAsItIsRead)
{
    document = std::string(3'000'000, 'x');
    start();
    LocalClient slow(socket);
    EXPECT_EQ(LocalClient(socket).rest().size(), document.size());
    EXPECT_EQ(slow.rest().size(), document.size());
}

TEST_F(CountersServerTest, AClientThatDoesNotReadIsDropped)
{
    document = std::string(3'000'000, 'x');
    start();
    LocalClient slow(socket);
    const auto begin = std::chrono::steady_clock::now();
    pollfd end{slow.fd(), 0, 0};
    EXPECT_TRUE(eventually([&] { return ::poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, CountersServer::kPatience / 2);
    EXPECT_LT(slow.rest().size(), document.size());
}

TEST_F(CountersServerTest, TheOldestOfManyThatDoNotReadMakesRoom)
{
    document = std::string(3'000'000, 'x');
    start();
    std::list<LocalClient> slow;
    for (size_t i = 0; i < CountersServer::kMostReaders; ++i) {
        slow.emplace_back(socket);
    }
    EXPECT_EQ(LocalClient(socket).rest().size(), document.size());
    EXPECT_LT(slow.front().rest().size(), document.size());
}

TEST_F(CountersServerTest, AClientThatIsGoneAtOnceHarmsNobody)
{
    start();
    for (int i = 0; i < 100; ++i) {
        LocalClient(socket).close();
    }
    EXPECT_EQ(LocalClient(socket).rest(), "{}");
}

TEST(CountersServer, WithoutAFolderOrASocketItServesNobody)
{
    const LogCapture log;
    const PrivateFolder folder;
    std::vector<pollfd> waiting;
    CountersServer off("", [] { return std::string(); });
    CountersServer none(folder.path() / "no/such", [] { return std::string(); });
    for (CountersServer* const server : {&off, &none}) {
        server->add_descriptors(waiting);
        EXPECT_TRUE(waiting.empty());
        server->serve(waiting);
        EXPECT_EQ(server->due(), Attended::Clock::time_point::max());
    }
    EXPECT_EQ(log.count(LOG_WARNING, "no counters: cannot listen on " +
                                         (folder.path() / "no/such/counters.sock").string() +
                                         ": No such file or directory"),
              1u);
    CountersServer server(folder.path(), [] { return std::string(); });
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "counters.sock"));
    server.end();
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "counters.sock"));
}

// The server with the real library; the modules are scripted ones on the loopback.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <future>
#include <optional>
#include <thread>

#include <syslog.h>

#include <gtest/gtest.h>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "service/instrument.h"
#include "service_fixture.h"
#include "support/instrument_files.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/scripted_module.h"
#include <dataorvan.h>

using namespace orvan_service;
using namespace orvan_test;

namespace {

const std::string kUndefinedHeader = "-ERR -113, \"Undefined header\";+OK\r\n";

class InstrumentTest : public ::testing::Test {
protected:
    InstrumentTest()
    {
        BITManager::getInstance(0); // without its periodic thread, which process exit would wait for
        library->setNumberofChannels(2);
        library->setSelectedChannel(1);
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            library->m_orvanXIp[channel - 1] = module.address();
            library->m_OrvanXport[channel - 1] = static_cast<uint32_t>(module.port());
        }
    }

    InstrumentFiles files;
    LogCapture log; // keeps the library's lines out of the machine's log
    ScriptedModule module;
    Instrument instrument;
    Scpi_Orvanx* library = Scpi_Orvanx::getInstance();
};

/** Connections that a listener on the loopback has not accepted yet. */
unsigned not_accepted(int port)
{
    std::ifstream table("/proc/net/tcp");
    char listening[40];
    std::snprintf(listening, sizeof listening, " 0100007F:%04X 00000000:0000 0A ",
                  static_cast<unsigned>(port));
    for (std::string line; std::getline(table, line);) {
        if (const size_t found = line.find(listening); found != std::string::npos) {
            const size_t queues = found + std::strlen(listening);
            return static_cast<unsigned>(std::stoul(line.substr(line.find(':', queues) + 1, 8), nullptr, 16));
        }
    }
    return 0;
}

} // namespace

TEST(WithoutADevice, TheModuleTableIsTheLoopbackAndTheFirstChannelIsSelected)
{
    const LogCapture log;
    start_without_device(3, 0);
    Scpi_Orvanx* library = Scpi_Orvanx::getInstance();
    EXPECT_EQ(library->getNumberofChannels(), 3);
    EXPECT_EQ(library->getSelectedChannel(), 1);
    for (int channel = 1; channel <= kMaxChannels; ++channel) {
        EXPECT_EQ(library->m_orvanXIp[channel - 1], "127.0." + std::to_string(6 + channel) + ".1");
        EXPECT_EQ(library->m_OrvanXport[channel - 1], 6000u + static_cast<unsigned>(channel));
        EXPECT_FALSE(library->m_isLive[channel - 1]);
    }
}

TEST_F(InstrumentTest, BothAnsweringAndSilentModulesAreLogged)
{
    const std::string at = module.address() + ":" + std::to_string(module.port());
    library->m_isLive[0] = true;
    log_modules();
    EXPECT_EQ(log.count(LOG_NOTICE, "module 1 at " + at + " answers"), 1u);
    EXPECT_EQ(log.count(LOG_WARNING, "module 2 at " + at + " does not answer"), 1u);
    EXPECT_EQ(log.count(LOG_WARNING, "module 3 at " + at + " does not answer"), 0u);
}

TEST_F(InstrumentTest, RepliesGoToTheRequestingClient)
{
    RunningServer server(instrument);
    TestClient first(server.port());
    TestClient second(server.port());
    EXPECT_EQ(first.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    EXPECT_EQ(second.ask(":NO:SUCH:HEADER;:NO:SUCH:HEADER\r\n"),
              "-ERR -113, \"Undefined header\";" + kUndefinedHeader);
    EXPECT_EQ(first.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
}

TEST_F(InstrumentTest, TheTemperaturePollReachesTheSelectedModuleAsAnotherClient)
{
    module.always(ModuleAnswer::reply("44.5;+OK\r\n"));
    RunningServer server(instrument);
    library->setScpiPort(server.port());
    TestClient client(server.port());
    EXPECT_EQ(client.ask(":FREQ?\n"), "44.5;+OK\r\n");
    log.clear();
    EXPECT_EQ(library->getTempratureForOrvanXResponse(), "44.500000");
    EXPECT_TRUE(library->m_isLive[0]);
    EXPECT_TRUE(library->m_isLive[1]);
    EXPECT_EQ(module.connections(), 3u);
    EXPECT_EQ(client.ask(":FREQ?\n"), "44.5;+OK\r\n");
}

TEST_F(InstrumentTest, ForwardedQueriesOfManyClientsAreAnsweredToTheirSenders)
{
    module.always(ModuleAnswer::reply("1000000000;+OK\r\n"));
    RunningServer server(instrument);
    std::vector<TestClient> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(server.port());
    }
    for (auto& client : clients) {
        client.send(":FREQ?\n:NO:SUCH:HEADER\n:FREQ?\n");
    }
    for (auto& client : clients) {
        EXPECT_EQ(client.line(), "1000000000;+OK\r\n");
        EXPECT_EQ(client.line(), kUndefinedHeader);
        EXPECT_EQ(client.line(), "1000000000;+OK\r\n");
    }
}

TEST_F(InstrumentTest, AClientLostDuringItsCommandLeavesTheParserFree)
{
    OutputCapture errors(STDERR_FILENO); // where the library reports the failed reply
    module.then(ModuleAnswer::slow("1;+OK\r\n", std::chrono::milliseconds(200)));
    module.always(ModuleAnswer::reply("2;+OK\r\n"));
    RunningServer server(instrument);
    {
        TestClient lost(server.port());
        lost.send(":FREQ?\n:FR");
        ASSERT_TRUE(module.wait_requests(1));
        lost.reset();
    }
    TestClient good(server.port());
    EXPECT_EQ(good.ask(":FREQ?\n"), "2;+OK\r\n");
}

// The parser is held for whole messages only, so a half message never holds it for 3 seconds.
TEST_F(InstrumentTest, AHalfMessageDoesNotHoldTheParser)
{
    RunningServer server(instrument);
    TestClient half(server.port());
    half.send(":NO:SUCH");
    TestClient good(server.port());
    EXPECT_EQ(good.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    EXPECT_EQ(half.ask(":HEADER\n"), kUndefinedHeader);
}

TEST_F(InstrumentTest, AMessageAroundTheInputBuffersSizeIsAnsweredOnce)
{
    RunningServer server(instrument);
    TestClient client(server.port());
    for (size_t size = 0x300000 - 2; size <= 0x300000 + 1; ++size) {
        // In a block, as scanning 3 MB of text three times may take longer than line() waits.
        const std::string header = ":NO:SUCH:HEADER #7";
        const size_t count = size - header.size() - 7 - 1;
        const std::string reply =
            client.ask(header + std::to_string(count) + std::string(count, '\0') + "\n");
        EXPECT_TRUE(reply == kUndefinedHeader || reply == "-ERR -363, \"Input buffer overrun\";+OK\r\n")
            << reply;
        EXPECT_EQ(client.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    }
}

TEST_F(InstrumentTest, RecordsFollowTheClientsTraffic)
{
    files.write_factory_setup("{}");
    library->load_database(0);
    RunningServer server(instrument);
    TestClient client(server.port());
    EXPECT_EQ(client.ask(":FREQ 2500000000;:POW -3\n"), "+OK\r\n");
    const auto& record = *reinterpret_cast<const ORVAN_CONFIG*>(library->get_channelDB(1));
    EXPECT_EQ(record.ANALOGOUTPUT.Frequency, 2.5e9);
    EXPECT_EQ(record.ANALOGOUTPUT.Power, -3.0);
}

// Every client writes its own number into one register and reads it back within the line, between lines
// of other kinds; some leave in the middle of a line, a block or a reply.
TEST_F(InstrumentTest, ManyClientsWithMixedMessagesNeverGetAnothersReply)
{
    constexpr int kClients = 16;
    constexpr int kRounds = 25;
    files.write_factory_setup("{}");
    library->load_database(0);
    OutputCapture errors(STDERR_FILENO); // for replies to clients that left
    module.always(ModuleAnswer::reply("42;+OK\r\n"));
    RunningServer server(instrument);
    std::vector<std::string> wrong(kClients);
    std::vector<std::thread> clients;
    for (int number = 1; number <= kClients; ++number) {
        clients.emplace_back([&, number] {
            std::string& complaint = wrong[static_cast<size_t>(number) - 1];
            TestClient client(server.port());
            const auto expect = [&](const std::string& message, const std::string& reply) {
                const std::string got = client.ask(message);
                if (got != reply) {
                    complaint += message + " -> " + got;
                }
            };
            for (int round = 0; round < kRounds; ++round) {
                const std::string own = std::to_string(number * 1000 + round);
                expect(":STAT:OPER:ENAB " + own + ";:STAT:OPER:ENAB?\n", own + ";+OK\r\n");
                expect(round % 2 == 0 ? "\n" : ":STAT:OPER:ENAB " + own + "\r\n", "+OK\r\n");
                expect(":NO:SUCH " + std::string(static_cast<size_t>(number) * 50, 'X') + "\n",
                       "-ERR -113, \"Undefined header\";+OK\r\n");
                if (round % 5 == 0) {
                    expect(":STAT:OPER:ENAB " + own + ";:FREQ?;:STAT:OPER:ENAB?\n", "42;" + own + ";+OK\r\n");
                    TestClient leaving(server.port());
                    leaving.send(round % 10 == 0 ? ":STAT:OPER:ENAB 9;:STA" : ":FREQ?\n:LIST:DATA #3999ab\n");
                    number % 2 == 0 ? leaving.reset() : leaving.close();
                }
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    for (const std::string& complaint : wrong) {
        EXPECT_EQ(complaint, "");
    }
}

// A client's turn ends with its lease released, however the client ends.
TEST_F(InstrumentTest, LostClientsLeakNoLease)
{
    OutputCapture errors(STDERR_FILENO);
    RunningServer server(instrument);
    for (int i = 0; i < 20; ++i) {
        TestClient lost(server.port());
        lost.send(":NO:SUCH\n:NO:SUCH\n:NO");
        i % 2 == 0 ? lost.reset() : lost.close();
    }
    TestClient good(server.port());
    EXPECT_EQ(good.ask(":NO:SUCH\n"), kUndefinedHeader);
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 1; }));
    EXPECT_EQ(errors.text().find("**Reset"), std::string::npos) << "a whole message was cut short";
}

TEST_F(InstrumentTest, AnEndWhileTheTemperaturePollWaitsIsNoErrorOfThePoll)
{
    std::optional<RunningServer> server(std::in_place, instrument);
    std::promise<void> hold;
    module.then(ModuleAnswer::reply_after(
        [held = hold.get_future().share()] { held.wait_for(std::chrono::seconds(20)); }, "1;+OK\r\n"));
    TestClient client(server->port());
    client.send(":FREQ?\n");
    ASSERT_TRUE(module.wait_requests(1));
    library->setScpiPort(server->port());
    std::thread poll([&] {
        try {
            library->getTempOrvanXForAlltheChannel(1);
        } catch (const std::exception&) { // when the server ends the connection
        }
    });
    ASSERT_TRUE(eventually([&] { return server->server().clients() == 2; }));
    server->stop_accepting();
    EXPECT_FALSE(server->server().end(std::chrono::milliseconds(1)));
    hold.set_value();
    EXPECT_TRUE(server->server().end(std::chrono::seconds(20)));
    const std::string error = "invalid input: buff = ok, size = 0";
    EXPECT_FALSE(log.wait_for(LOG_ERR, error, std::chrono::milliseconds(300)));
    for (const LogLine& line : log.lines()) {
        EXPECT_GE(line.priority, LOG_WARNING) << line.text;
    }
    server.reset();
    poll.join();
    EXPECT_EQ(log.count(LOG_ERR, error), 1u) << "what it would have been";
}

TEST_F(InstrumentTest, AnEndBeforeTheTemperaturePollIsAcceptedIsNoErrorOfThePoll)
{
    std::optional<RunningServer> server(std::in_place, instrument);
    server->stop_accepting();
    library->setScpiPort(server->port());
    std::thread poll([&] { library->getTempOrvanXForAlltheChannel(1); });
    // Its connection is in the backlog.
    ASSERT_TRUE(eventually([&] { return not_accepted(server->port()) == 1; }));
    EXPECT_TRUE(server->server().end(std::chrono::seconds(20)));
    const std::string error = "Failed to get temperature: -ERR Error while receiving server's msg\n";
    EXPECT_FALSE(log.wait_for(LOG_WARNING, error, std::chrono::milliseconds(300)));
    server.reset();
    poll.join();
    EXPECT_EQ(log.count(LOG_WARNING, error), 1u) << "what it would have been";
}

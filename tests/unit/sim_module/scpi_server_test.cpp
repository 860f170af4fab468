#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>

#include "module/request_framer.h"
#include "module_fixture.h"
#include "support/loopback.h"

namespace {

using ScpiServer = ModuleTest;

} // namespace

TEST_F(ScpiServer, AnswersOnTheConnectionOfTheRequest)
{
    EXPECT_EQ(ask(":FREQ 2GHz\r\n"), "+OK\r\n");
    EXPECT_EQ(ask(":FREQ?\r\n"), "2000000000;+OK\r\n");
}

TEST_F(ScpiServer, AnswersOneRequestAfterTheOtherOnOneConnection)
{
    const Client client(module());
    EXPECT_EQ(client.ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
    EXPECT_EQ(client.ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(client.ask("\r\n"), "+OK\r\n");
}

TEST_F(ScpiServer, KeepsOneStateForAllConnections)
{
    const Client first(module());
    const Client second(module());
    EXPECT_EQ(first.ask(":FREQ 3GHz\r\n"), "+OK\r\n");
    EXPECT_EQ(second.ask(":FREQ?\r\n"), "3000000000;+OK\r\n");
    EXPECT_EQ(second.ask(":FOO\r\n"), "-ERR -113, \"Undefined header\";+OK\r\n");
    EXPECT_EQ(first.ask(":SYST:ERR?\r\n"), "-113,\"Undefined header\";+OK\r\n");
}

TEST_F(ScpiServer, SendsEachReplyInOneSegment)
{
    const Client client(module());
    std::string catalog = ":FREQ?";
    for (int i = 0; i < 300; ++i) {
        catalog += ";:FREQ?";
    }
    const std::vector<std::string> requests = {":FREQ?\r\n", "*IDN?\r\n", ":FOO;:POW 99;:POW?\r\n", "\n",
                                               catalog + "\r\n"};
    unsigned segments = 0;
    for (const std::string& request : requests) {
        const std::string reply = client.ask(request);
        EXPECT_TRUE(reply.ends_with("+OK\r\n"));
        EXPECT_EQ(client.segments_received(), ++segments) << request;
    }
}

TEST_F(ScpiServer, WaitsForARequestSentByteByByte)
{
    const Client client(module());
    const std::string request = ":FREQ 2GHz;:FREQ?;\r\n";
    for (size_t i = 0; i + 1 < request.size(); ++i) {
        client.send(request.substr(i, 1));
        // The piece has been taken before another client's request is answered.
        EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
        EXPECT_EQ(orvan_test::read_ready(client.fd()), "");
    }
    client.send("\n");
    EXPECT_EQ(client.reply(), "2000000000;+OK\r\n");
}

TEST_F(ScpiServer, AnswersEachOfSeveralRequestsSentAtOnce)
{
    const Client client(module());
    client.send(":FREQ 2GHz\r\n:FREQ?\r\n:POW?\r\n:PHA");
    EXPECT_EQ(client.reply(), "+OK\r\n");
    EXPECT_EQ(client.reply(), "2000000000;+OK\r\n");
    EXPECT_EQ(client.reply(), "5;+OK\r\n");
    EXPECT_EQ(client.ask("S?\r\n"), "0;+OK\r\n");
}

TEST_F(ScpiServer, AnswersAHalfClosedClientAndThenCloses)
{
    const Client client(module());
    client.send(":FREQ?\r\n:POW?\r\n");
    client.end_sending();
    EXPECT_EQ(client.reply(), "1000000000;+OK\r\n");
    EXPECT_EQ(client.reply(), "5;+OK\r\n");
    EXPECT_TRUE(client.ended_by_peer());
}

TEST_F(ScpiServer, DropsAnUnfinishedRequest)
{
    {
        const Client client(module());
        client.send(":FREQ 80000");
        client.end_sending();
        EXPECT_TRUE(client.ended_by_peer());
    }
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
    EXPECT_EQ(ask(":SYST:ERR?\r\n"), "0,\"No error\";+OK\r\n");
}

TEST_F(ScpiServer, ServesOthersWhileClientsHang)
{
    const Client silent(module());
    const Client half(module());
    half.send(":FREQ 3GHz");
    const Client endless(module());
    endless.send(std::string(100'000, 'x'));
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
    half.send("\r\n");
    EXPECT_EQ(half.reply(), "+OK\r\n");
    EXPECT_EQ(ask(":FREQ?\r\n"), "3000000000;+OK\r\n");
}

TEST_F(ScpiServer, RefusesARequestThatIsTooLongAndContinues)
{
    const Client client(module());
    const std::string too_long(sim_module::RequestFramer::kMaxRequest + 65536, 'x');
    client.send(too_long);
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
    client.send("\r\n:FREQ?\r\n");
    EXPECT_EQ(client.reply(), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    EXPECT_EQ(client.reply(), "1000000000;+OK\r\n");
}

TEST_F(ScpiServer, AClientThatDoesNotReadDelaysNoOther)
{
    for (int i = 0; i < 50; ++i) {
        ask(":SYST:FILE:STOR:LIST \"a-name-of-27-characters----" + std::to_string(i) + "\"\r\n");
    }
    // Request and reply of similar size, so that a few of them fill the buffers of both directions.
    const std::string query = ":SYST:FILE:CAT:LIST?";
    const std::string reply = ask(query + "\r\n");
    const std::string request = query + std::string(1500, ' ') + "\n";

    const Client client(module());
    const timeval bound{0, 200'000};
    ASSERT_EQ(setsockopt(client.fd(), SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound), 0);
    constexpr size_t kFarTooMuch = 200'000'000;
    size_t sent = 0;
    // The module stops reading requests when its replies are not read.
    for (bool whole = true; whole && sent < kFarTooMuch;) {
        const ssize_t n = ::send(client.fd(), request.data(), request.size(), MSG_NOSIGNAL);
        sent += n > 0 ? static_cast<size_t>(n) : 0;
        whole = n == static_cast<ssize_t>(request.size());
    }
    ASSERT_LT(sent, kFarTooMuch) << "the module gathers replies without bound";
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");

    // Once the client reads, every whole request is answered.
    client.end_sending();
    for (size_t i = 0; i < sent / request.size(); ++i) {
        ASSERT_EQ(orvan_test::read_exactly(client.fd(), reply.size()), reply) << "reply " << i;
    }
    EXPECT_TRUE(client.ended_by_peer());
}

TEST_F(ScpiServer, AClientThatLeavesBeforeItsReplyDoesNoHarm)
{
    for (int i = 0; i < 50; ++i) {
        const Client client(module());
        client.send(":FREQ?\r\n:FREQ?\r\n");
        const linger at_once{1, 0};
        ::setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    EXPECT_EQ(ask(":FREQ?\r\n"), "1000000000;+OK\r\n");
    EXPECT_TRUE(eventually([&] { return control("status").find("\"connections\":0") != std::string::npos; }));
}

TEST_F(ScpiServer, ServesManyClientsAtOnceEachWithItsOwnReplies)
{
    constexpr int kClients = 16;
    constexpr int kRequests = 50;
    std::vector<std::thread> threads;
    std::vector<int> right(kClients);
    for (int c = 0; c < kClients; ++c) {
        threads.emplace_back([&, c] {
            for (int i = 0; i < kRequests; ++i) {
                const std::string frequency = std::to_string(1'000'000 + 1000 * c + i);
                right[static_cast<size_t>(c)] +=
                    ask(":FREQ " + frequency + ";:FREQ?\r\n") == frequency + ";+OK\r\n";
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, std::vector<int>(kClients, kRequests));
    EXPECT_EQ(control("requests"), "ok " + std::to_string(kClients * kRequests));
}

TEST_F(ScpiServer, HoldsManyConnectionsOpen)
{
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<Client>(module()));
        ASSERT_GE(clients.back()->fd(), 0);
    }
    for (const auto& client : clients) {
        client->send(":POW?\r\n");
    }
    for (const auto& client : clients) {
        EXPECT_EQ(client->reply(), "5;+OK\r\n");
    }
}

TEST_F(ScpiServer, APortThatIsTakenIsAnError)
{
    sim_module::Options options;
    options.address = "127.0.0.1";
    options.port = module().port();
    EXPECT_THROW(sim_module::Module{options}, std::system_error);
    options.address = "not an address";
    EXPECT_THROW(sim_module::Module{options}, std::system_error);
}

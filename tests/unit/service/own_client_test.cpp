#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "service/own_client.h"
#include "service_fixture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::chrono_literals;
using orvan_common::UniqueFd;

namespace {

class OwnClientTest : public ::testing::Test {
protected:
    std::vector<UniqueFd> listeners = open_listeners("127.0.0.1", 0);
    OwnClient client{listeners};

    /** Serves one connection: reads a line, sends the pieces, closes. */
    std::thread serve(const std::vector<std::string>& pieces)
    {
        return std::thread([this, pieces] {
            pollfd waiting{listeners[0].get(), POLLIN, 0}; // it does not block
            ::poll(&waiting, 1, 10000);
            const UniqueFd socket(::accept(listeners[0].get(), nullptr, nullptr));
            sockaddr_in peer{};
            socklen_t size = sizeof peer;
            ::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&peer), &size);
            peer_address = ::inet_ntoa(peer.sin_addr);
            received = read_until(socket.get(), "\n");
            for (const std::string& piece : pieces) {
                ::send(socket.get(), piece.data(), piece.size(), MSG_NOSIGNAL);
            }
        });
    }

    std::string received;
    std::string peer_address;
};

TEST_F(OwnClientTest, SendsALineAndReturnsTheReplyWithoutItsEnd)
{
    std::thread server = serve({"1;", "+O", "K\r", "\n"});
    EXPECT_EQ(client.ask(":OUTP?", 10s), "1;+OK");
    server.join();
    EXPECT_EQ(received, ":OUTP?\n");
    EXPECT_EQ(peer_address, "127.0.0.1") << "what makes it the instrument's own";
}

TEST_F(OwnClientTest, ReturnsWhatWasReceivedIfTheServerClosesEarly)
{
    std::thread server = serve({"-ERR 1"});
    EXPECT_EQ(client.ask("*RST", 10s), "-ERR 1");
    server.join();
}

TEST_F(OwnClientTest, GivesUpOnASilentServerInTime)
{
    EXPECT_EQ(client.ask("*RST", 20ms), ""); // the connection is never accepted
}

TEST_F(OwnClientTest, WithoutAServerThereIsNoReply)
{
    listeners.clear();
    const size_t before = open_descriptors();
    EXPECT_EQ(client.ask("*RST", 10s), "");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(OwnClientTest, SkipsUnreachableListenersAndReachesOneForAllAddresses)
{
    // Bound but not listening, as a listener in another network appears from here.
    std::vector<UniqueFd> several;
    several.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(several[0].get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    listeners = open_listeners("", 0); // IPv6 too, if available
    for (const UniqueFd& listener : listeners) {
        several.emplace_back(::dup(listener.get()));
    }
    const OwnClient other(several);
    std::thread server = serve({"+OK\r\n"});
    EXPECT_EQ(other.ask("*CLS", 10s), "+OK");
    server.join();
    EXPECT_EQ(peer_address, "127.0.0.1");
}

TEST_F(OwnClientTest, IsAnOrdinaryClientOfTheServer)
{
    RecordingSink sink;
    const UniqueFd stop(::eventfd(0, EFD_CLOEXEC));
    Server server(std::move(listeners), sink, {});
    std::thread running([&] { server.run(stop.get()); });
    EXPECT_EQ(client.ask("one", 10s), "one;+OK");
    EXPECT_EQ(client.ask("two", 10s), "two;+OK");
    EXPECT_EQ(sink.messages(), (std::vector<std::string>{"one\n", "two\n"}));
    const uint64_t one = 1;
    EXPECT_EQ(::write(stop.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    running.join();
}

} // namespace

// An HTTP request, which a web page can make a browser send, is not executed.
#include <string>

#include <syslog.h>

#include <gtest/gtest.h>

#include "hostile_clients.h"
#include "support/log_capture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

// As sent by a browser for a web page: ":OUTP ON" is the body.
constexpr const char* kPost = "POST / HTTP/1.1\r\n"
                              "Host: 127.0.0.1:5025\r\n"
                              "User-Agent: page\r\n"
                              "Content-Length: 9\r\n"
                              "\r\n"
                              ":OUTP ON\n";

} // namespace

TEST(HostileClients, AnHttpRequestIsNotExecutedAndItsConnectionIsClosedAndLogged)
{
    const LogCapture log;
    RecordingSink sink;
    RunningServer server(sink);
    TestClient page(server.port());
    const int port = local_port(page.fd());
    page.send(kPost);
    EXPECT_TRUE(page.sees_end());
    ASSERT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    EXPECT_TRUE(sink.messages().empty());
    const std::string connected = log.lines().at(0).text;
    const std::string client = connected.substr(0, connected.find(": connected"));
    EXPECT_EQ(log.count(LOG_WARNING, client + " at 127.0.0.1:" + std::to_string(port) +
                                         ": closed, its first line is an HTTP request line"),
              1u);
    expect_good_service(server.port());
}

TEST(HostileClients, AnHttpRequestIsNotExecutedHoweverItIsSplit)
{
    const LogCapture log;
    RecordingSink sink;
    RunningServer server(sink);
    const std::string request = kPost;
    for (size_t piece = 1; piece < 30; piece += 4) {
        TestClient page(server.port());
        for (size_t at = 0; at < request.size(); at += piece) {
            page.send(request.substr(at, piece));
        }
        EXPECT_TRUE(page.sees_end()) << piece;
    }
    EXPECT_TRUE(sink.messages().empty());
}

TEST(HostileClients, AnHttpRequestWhoseTargetIsLongerThanAMessageIsNotExecutedEither)
{
    RecordingSink sink;
    RunningServer server(sink);
    for (const char* target : {"/", "/?#15", "/?#9000000005", "/?\"", "/?'"}) {
        TestClient page(server.port());
        page.send("POST " + std::string(target) + std::string(4'000'000, 'x') +
                  " HTTP/1.1\r\n\r\n:OUTP ON\n");
        EXPECT_TRUE(page.sees_end()) << target;
    }
    EXPECT_TRUE(sink.messages().empty());
}

TEST(HostileClients, ALineThatResemblesAnHttpRequestIsExecuted)
{
    RecordingSink sink;
    RunningServer server(sink);
    for (const char* line : {"GET /", "FREQ 1 HTTP", "DATA #216/ HTTP/1.1\n\n:OUT", "*IDN?"}) {
        TestClient client(server.port());
        EXPECT_EQ(client.ask(std::string(line) + "\n"), std::string(line) + ";+OK\r\n");
        // Only the first line counts.
        EXPECT_EQ(client.ask("GET / HTTP/1.1\r\n"), "GET / HTTP/1.1;+OK\r\n");
    }
}

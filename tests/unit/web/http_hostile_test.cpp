/** What clients do that mean harm, or do not know better. */
#include <random>
#include <thread>

#include "http_fixture.h"
#include "support/eventually.h"
#include "support/files.h"

using namespace orvan_test;
using namespace orvan_web;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

class HostileWebClient : public HttpServerTest {
protected:
    void expect_served() { EXPECT_EQ(status_of(ask(get("/api/echo/x"))), 200); }

    // Sends a byte now and then until the server closes; the pauses are shorter than its patience.
    bool is_cut_off(const std::string& beginning) const
    {
        const WebClient client(port);
        client.send(beginning);
        return eventually(
            [&] {
                char byte = 0;
                return !client.send("x") || ::recv(client.fd(), &byte, 1, MSG_DONTWAIT) == 0;
            },
            20s);
    }
};

} // namespace

TEST_F(HostileWebClient, ThatDripsItsHeadIsCutOff)
{
    parts.limits.receive = 200ms;
    start();
    EXPECT_TRUE(is_cut_off("GET / HTTP/1.1\r\nHost: "));
    EXPECT_TRUE(is_cut_off(""));
    expect_served();
}

TEST_F(HostileWebClient, ThatDripsItsBodyIsCutOff)
{
    parts.limits.receive = 200ms;
    start();
    EXPECT_TRUE(is_cut_off("POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 60000\r\n\r\n"));
    expect_served();
}

TEST_F(HostileWebClient, ThatIsSilentAfterAReplyIsCutOff)
{
    parts.limits.receive = 200ms;
    start();
    const WebClient client(port);
    client.send(get("/api/echo/x"));
    EXPECT_EQ(status_of(client.reply()), 200);
    EXPECT_TRUE(client.closed());
}

TEST_F(HostileWebClient, ThatDoesNotReadItsReplyIsCutOff)
{
    parts.limits.send = 200ms;
    const ScratchFolder folder;
    std::string random(8 << 20, '\0');
    std::minstd_rand next;
    for (char& c : random) {
        c = static_cast<char>(next());
    }
    write_file(folder.path() / "large.png", random);
    parts.files.add_folder(folder.path());
    start();
    const WebClient client(port);
    std::string many;
    for (int i = 0; i < 20; ++i) {
        many += get("/large.png");
    }
    client.send(many);
    std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(eventually([&] {
        // Its peer has closed: what was not read comes to an end, short of everything.
        return !client.send("x");
    }));
    expect_served();
}

TEST_F(HostileWebClient, ThatAnnouncesAHugeBodyIsRefusedBeforeItSendsAny)
{
    start();
    for (const char* length : {"65537", "1073741824", "4294967296", "18446744073709551615"}) {
        const WebClient client(port);
        client.send("POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " + std::string(length) +
                    "\r\n\r\n");
        EXPECT_EQ(status_of(client.reply()), 413) << length;
        EXPECT_TRUE(client.closed()) << length;
    }
    EXPECT_EQ(status_of(ask("POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                            "Content-Length: 99999999999999999999\r\n\r\n")) /
                  100,
              4);
    expect_served();
}

TEST_F(HostileWebClient, ThatExpectsToContinueWithAHugeBodyIsNotTold)
{
    start();
    const WebClient client(port);
    client.send("POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 1000000\r\n"
                "Expect: 100-continue\r\n\r\n");
    EXPECT_EQ(status_of(client.head()), 413);
}

TEST_F(HostileWebClient, ABodyOfTheLargestSizeIsTakenAndAByteMoreIsNot)
{
    start();
    EXPECT_EQ(status_of(ask(post("/api/echo/x", std::string(65536, 'x')))), 200);
    EXPECT_EQ(status_of(ask(post("/api/echo/x", std::string(65537, 'x')))), 413);
}

TEST_F(HostileWebClient, ThatSendsTooMuchInChunksIsRefusedOrCutOff)
{
    start();
    const std::string head =
        "POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string chunk = "8000\r\n" + std::string(0x8000, 'x') + "\r\n";
    EXPECT_EQ(status_of(ask(head + chunk + chunk + "0\r\n\r\n")), 200);
    EXPECT_EQ(status_of(ask(head + chunk + chunk + chunk + "0\r\n\r\n")), 413);
    const WebClient client(port);
    client.send(head);
    int sent = 0;
    while (sent < 32'768 && client.send(chunk)) { // 1 GB
        ++sent;
    }
    EXPECT_LT(sent, 1000);
    expect_served();
}

TEST_F(HostileWebClient, ThatLeavesTheLengthOfItsBodyOpenIsRefused)
{
    start();
    const std::string head = "POST /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    EXPECT_EQ(status_of(ask(head + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n")), 400);
    EXPECT_EQ(status_of(ask(head + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello")), 400);
    EXPECT_EQ(status_of(ask(head + "Transfer-Encoding: gzip\r\n\r\nhello")), 501);
    EXPECT_EQ(status_of(ask(head + "Content-Length: -5\r\n\r\nhello")), 400);
    EXPECT_EQ(status_of(ask(head + "Content-Length: 0x5\r\n\r\nhello")), 400);
}

TEST_F(HostileWebClient, ThatNamesNoHostOrTwoIsRefused)
{
    start();
    EXPECT_EQ(status_of(ask("GET /api/echo/x HTTP/1.1\r\n\r\n")), 400);
    EXPECT_EQ(status_of(ask("GET /api/echo/x HTTP/1.0\r\n\r\n")), 400);
    EXPECT_EQ(status_of(ask("GET /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\nHost: evil\r\n\r\n")), 400);
}

TEST_F(HostileWebClient, FindsNoFileOutsideThePage)
{
    const ScratchFolder folder;
    write_file(folder.path() / "page/index.html", "the page");
    write_file(folder.path() / "page/js/a.js", "a script");
    write_file(folder.path() / "secret.txt", "a secret");
    parts.files.add_folder(folder.path() / "page");
    start();
    for (const char* path :
         {"/../secret.txt", "/js/../../secret.txt", "/%2e%2e/secret.txt", "/..%2fsecret.txt",
          "/%2e%2e%2fsecret.txt", "/%252e%252e%252fsecret.txt", "/..%5csecret.txt", "//secret.txt",
          "/./../secret.txt", "/..;/secret.txt", "/%c0%ae%c0%ae/secret.txt", "/etc/passwd",
          "/../../../../../../etc/passwd", "/js/../js/a.js", "/js", "/secret.txt%00.html"}) {
        EXPECT_EQ(status_of(ask(get(path))), 404) << path;
    }
    EXPECT_EQ(status_of(ask(get("/js/a.js"))), 200);
    EXPECT_THAT(ask(get("/index.html%00.txt")), ::testing::Not(HasSubstr("secret")));
}

TEST_F(HostileWebClient, ThatFloodsWithHeadersIsRefusedOrCutOff)
{
    start();
    std::string flood = "GET /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    for (int i = 0; i < 100'000; ++i) {
        flood += "X-" + std::to_string(i) + ": y\r\n";
    }
    {
        const WebClient client(port);
        client.send(flood);
        const std::string reply = client.rest();
        EXPECT_TRUE(reply.empty() || status_of(reply) == 431) << reply;
    }
    {
        const WebClient client(port);
        client.send("GET /" + std::string(1 << 20, 'x'));
        const std::string reply = client.rest();
        EXPECT_TRUE(reply.empty() || status_of(reply) == 414) << reply;
    }
    expect_served();
}

TEST_F(HostileWebClient, ThatSendsGarbageIsCutOff)
{
    parts.limits.receive = 300ms;
    start();
    std::minstd_rand next;
    for (int i = 0; i < 200; ++i) {
        std::string garbage(next() % 300, '\0');
        for (char& c : garbage) {
            c = static_cast<char>(next());
        }
        const WebClient client(port);
        client.send(garbage + "\r\n\r\n");
    }
    for (const char* text :
         {"\r\n\r\n\r\n", "GET\r\n\r\n", "GET  HTTP/9.9\r\n\r\n", ":FREQ 1e9\n", "*IDN?\n",
          "GET /\x01 HTTP/1.1\r\n\r\n", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "\x16\x03\x01\x02"}) {
        const WebClient client(port);
        client.send(text);
        ::shutdown(client.fd(), SHUT_WR);
        EXPECT_NE(status_of(client.rest()), 200) << text;
    }
    expect_served();
}

TEST_F(HostileWebClient, ThatClosesItsHalfIsAnsweredOrTakenForGone)
{
    start();
    const WebClient client(port);
    client.send(get("/api/echo/x"));
    ::shutdown(client.fd(), SHUT_WR);
    EXPECT_EQ(status_of(client.reply()), 200);
    // Like other servers, this one takes an end of input during a request for the end of the client.
    const WebClient waiting(port);
    waiting.send(get("/api/later"));
    ::shutdown(waiting.fd(), SHUT_WR);
    std::shared_ptr<Exchange> exchange;
    ASSERT_TRUE(eventually([&] { return (exchange = taken_exchange()) != nullptr; }));
    exchange->reply({200, "text/plain", "late", {}});
    EXPECT_TRUE(waiting.closed());
    expect_served();
}

TEST_F(HostileWebClient, AThousandConnectionsOfOneKeepNobodyElseOut)
{
    start();
    std::vector<std::unique_ptr<WebClient>> crowd;
    for (int i = 0; i < 1000; ++i) {
        crowd.push_back(std::make_unique<WebClient>(port));
        crowd.back()->send("GET / HT");
    }
    const auto served = [&](const std::string& from) {
        const WebClient client(port, from);
        client.send(get("/api/echo/x"));
        return status_of(client.reply()) == 200;
    };
    EXPECT_TRUE(served("127.0.0.2"));
    EXPECT_TRUE(served("127.0.0.3"));
    EXPECT_TRUE(served("127.0.0.1")) << "even its own next request gets the place of an idle one";
}

TEST_F(HostileWebClient, FromManyAddressesKeepsNobodyElseOut)
{
    start();
    std::vector<std::unique_ptr<WebClient>> crowd;
    for (int i = 0; i < 500; ++i) {
        crowd.push_back(std::make_unique<WebClient>(port, "127.0.1." + std::to_string(1 + i % 20)));
        crowd.back()->send("GET / HT");
    }
    const WebClient client(port, "127.0.0.2");
    client.send(get("/api/echo/x"));
    EXPECT_EQ(status_of(client.reply()), 200);
}

TEST_F(HostileWebClient, WhoseRequestsAllWaitIsToldThatThereAreTooMany)
{
    parts.limits.per_address = 3;
    start();
    std::vector<std::unique_ptr<WebClient>> crowd;
    for (size_t i = 0; i < 3; ++i) {
        crowd.push_back(std::make_unique<WebClient>(port));
        crowd.back()->send(get("/api/later"));
        ASSERT_TRUE(eventually([&] {
            const std::lock_guard lock(mutex);
            return kept.size() == i + 1;
        }));
    }
    const WebClient more(port);
    const std::string reply = more.rest();
    EXPECT_EQ(status_of(reply), 503);
    EXPECT_THAT(reply, HasSubstr("Retry-After: 2\r\n"));
    const WebClient other(port, "127.0.0.2");
    other.send(get("/api/echo/x"));
    EXPECT_EQ(status_of(other.reply()), 200);
}

#include <thread>

#include "http_fixture.h"
#include "support/eventually.h"
#include "support/files.h"
#include "support/log_capture.h"

using namespace orvan_test;
using namespace orvan_web;
using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(HttpServerTest, AHandlerGetsTheDecodedRequestAndItsReplyIsSent)
{
    start();
    const std::string reply = ask(post("/api/echo/a%20b?x=1%262&y=", "hello"));
    EXPECT_EQ(status_of(reply), 200);
    EXPECT_THAT(reply, HasSubstr("Content-Type: text/plain\r\n"));
    EXPECT_THAT(reply, HasSubstr("\r\n\r\nPOST /api/echo/a b from 127.0.0.1 <a b> x=1&2 y= body hello"));
    EXPECT_EQ(gate.last_local, "127.0.0.1");
}

TEST_F(HttpServerTest, EachReplyHasTheHeadersOfSecurity)
{
    start();
    for (const char* path : {"/api/echo/x", "/nowhere", "/api/broken"}) {
        const std::string reply = ask(get(path));
        EXPECT_THAT(
            reply,
            HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; "
                      "img-src 'self'; font-src 'self'; connect-src 'self'; manifest-src 'self'; "
                      "base-uri 'none'; form-action 'none'; frame-ancestors 'none'\r\n"));
        EXPECT_THAT(reply, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
        EXPECT_THAT(reply, HasSubstr("X-Frame-Options: DENY\r\n"));
        EXPECT_THAT(reply, HasSubstr("Referrer-Policy: same-origin\r\n"));
        EXPECT_THAT(reply, HasSubstr("Cross-Origin-Resource-Policy: same-origin\r\n"));
        EXPECT_THAT(reply, HasSubstr("Cross-Origin-Opener-Policy: same-origin\r\n"));
        EXPECT_THAT(reply, HasSubstr("Cache-Control: no-store\r\n"));
    }
}

TEST_F(HttpServerTest, UnknownPathsAndMethodsAreProblems)
{
    start();
    EXPECT_THAT(ask(get("/nowhere")), HasSubstr(R"({"type":"about:blank","title":"Not Found","status":404,)"
                                                R"("detail":"there is nothing at this path"})"));
    for (const char* method : {"DELETE", "OPTIONS", "TRACE", "BREW"}) {
        const std::string reply =
            ask(std::string(method) + " /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
        EXPECT_EQ(status_of(reply), 405) << method;
        EXPECT_THAT(reply, HasSubstr("Allow: GET, HEAD, POST\r\n"));
        EXPECT_THAT(reply, HasSubstr("Content-Type: application/problem+json\r\n"));
    }
}

TEST_F(HttpServerTest, OfAReplyToHeadOnlyTheHeadIsSent)
{
    start();
    const WebClient client(port);
    client.send("HEAD /api/echo/x HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" + get("/api/echo/y"));
    EXPECT_THAT(client.head(), HasSubstr("Content-Length: 40\r\n"));
    EXPECT_THAT(client.reply(), HasSubstr("GET /api/echo/y from 127.0.0.1 <y> body "));
}

TEST_F(HttpServerTest, PipelinedRequestsAreAnsweredInOrder)
{
    start();
    const WebClient client(port);
    std::string all;
    for (int i = 0; i < 50; ++i) {
        all += post("/api/echo/" + std::to_string(i), "b" + std::to_string(i));
    }
    client.send(all);
    for (int i = 0; i < 50; ++i) {
        const std::string n = std::to_string(i);
        EXPECT_THAT(client.reply(), HasSubstr('<' + n + "> body b" + n));
    }
}

TEST_F(HttpServerTest, AChangeThatTheGateRefusesReachesNoHandler)
{
    start();
    gate.refuse_changes = true;
    const std::string change = "PATCH /api/change HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 2\r\n\r\n{}";
    const std::string reply = ask(change);
    EXPECT_EQ(status_of(reply), 403);
    EXPECT_THAT(reply, HasSubstr("not now"));
    EXPECT_EQ(status_of(ask(post("/api/echo/x", ""))), 200);
    gate.refuse_changes = false;
    EXPECT_EQ(status_of(ask(change)), 200);
}

TEST_F(HttpServerTest, AHandlerThatThrowsIsAnswered500AndLogged)
{
    const LogCapture log;
    start();
    EXPECT_EQ(status_of(ask(get("/api/broken"))), 500);
    EXPECT_TRUE(log.wait_for(LOG_ERR, "GET /api/broken: a broken handler"));
}

TEST_F(HttpServerTest, AReplyMayComeLaterFromAnotherThreadWhileOthersAreServed)
{
    start();
    const WebClient waiting(port);
    waiting.send(get("/api/later"));
    std::shared_ptr<Exchange> exchange;
    ASSERT_TRUE(eventually([&] { return (exchange = taken_exchange()) != nullptr; }));
    EXPECT_EQ(status_of(ask(get("/api/echo/x"))), 200);
    std::thread([&] {
        exchange->reply({201, "text/plain", "late", {{"Location", "/there"}}});
        exchange->reply({200, "text/plain", "second", {}});
    }).join();
    const std::string reply = waiting.reply();
    EXPECT_EQ(status_of(reply), 201);
    EXPECT_THAT(reply, HasSubstr("Location: /there\r\n"));
    EXPECT_THAT(reply, HasSubstr("\r\n\r\nlate"));
    waiting.send(get("/api/echo/again"));
    EXPECT_THAT(waiting.reply(), HasSubstr("<again>"));
}

TEST_F(HttpServerTest, AnExchangeThatIsGivenUpIsAnswered503)
{
    start();
    const WebClient waiting(port);
    waiting.send(get("/api/later"));
    ASSERT_TRUE(eventually([&] { return taken_exchange() != nullptr; }));
    const std::string reply = waiting.reply();
    EXPECT_EQ(status_of(reply), 503);
    EXPECT_THAT(reply, HasSubstr("the instrument did not answer"));
}

TEST_F(HttpServerTest, AReplyToAClientThatHasGoneHarmsNobody)
{
    start();
    WebClient waiting(port);
    waiting.send(get("/api/later"));
    std::shared_ptr<Exchange> exchange;
    ASSERT_TRUE(eventually([&] { return (exchange = taken_exchange()) != nullptr; }));
    waiting.reset();
    exchange->reply({200, "text/plain", std::string(1 << 20, 'x'), {}});
    EXPECT_EQ(status_of(ask(get("/api/echo/x"))), 200);
}

TEST_F(HttpServerTest, AtItsEndWhatWaitsGets503AndLateRepliesLeadNowhere)
{
    start();
    const WebClient waiting(port);
    waiting.send(get("/api/later"));
    const WebClient viewer(port);
    viewer.send(get("/api/v1/events"));
    ASSERT_TRUE(eventually([&] { return stream() != nullptr; }));
    std::shared_ptr<Exchange> exchange;
    ASSERT_TRUE(eventually([&] { return (exchange = taken_exchange()) != nullptr; }));
    server->end();
    EXPECT_EQ(status_of(waiting.reply()), 503);
    EXPECT_TRUE(viewer.closed());
    exchange->reply({});
    EXPECT_TRUE(stream()->closed());
    EXPECT_FALSE(stream()->send("channel", "{}"));
    EXPECT_LT(connect_to_loopback("127.0.0.1", port), 0) << "the listener is closed";
}

TEST_F(HttpServerTest, RespondsUntilItsEnd)
{
    start();
    EXPECT_TRUE(server->responds(std::chrono::seconds(20)));
    server->end();
    EXPECT_FALSE(server->responds(std::chrono::milliseconds(1)));
}

TEST_F(HttpServerTest, FilesAreCompressedForThoseWhoTakeThatAndNotSentTwice)
{
    const ScratchFolder folder;
    write_file(folder.path() / "index.html", "<!doctype html>" + std::string(1000, ' '));
    parts.files.add_folder(folder.path());
    start();
    const std::string plain = ask(get("/"));
    EXPECT_EQ(status_of(plain), 200);
    EXPECT_THAT(plain, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
    EXPECT_THAT(plain, HasSubstr("Cache-Control: no-cache\r\n"));
    EXPECT_THAT(plain, HasSubstr("Content-Length: 1015\r\n"));
    EXPECT_THAT(plain, Not(HasSubstr("Content-Encoding")));
    const std::string compressed = ask(get("/index.html", "Accept-Encoding: br, gzip\r\n"));
    EXPECT_THAT(compressed, HasSubstr("Content-Encoding: gzip\r\n"));
    EXPECT_THAT(compressed, HasSubstr("Vary: Accept-Encoding\r\n"));
    EXPECT_THAT(compressed, HasSubstr("\r\n\r\n\x1f\x8b"));
    const size_t at = compressed.find("ETag: ") + 6;
    const std::string tag = compressed.substr(at, compressed.find('\r', at) - at);
    const std::string again = ask(get("/", "Accept-Encoding: gzip\r\nIf-None-Match: \"x\", " + tag + "\r\n"));
    EXPECT_EQ(status_of(again), 304);
    EXPECT_THAT(again, Not(HasSubstr("\nContent-Type: ")));
    EXPECT_EQ(status_of(ask(get("/", "If-None-Match: " + tag + "\r\n"))), 200) << "the other representation";
    EXPECT_EQ(status_of(ask("DELETE / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")), 405);
}

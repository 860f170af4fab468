#include "http_fixture.h"
#include "support/eventually.h"
#include "support/log_capture.h"

using namespace orvan_test;
using namespace orvan_web;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

class HttpStreamTest : public HttpServerTest {
protected:
    /** A viewer whose stream is open. */
    std::unique_ptr<WebClient> view(const std::string& from = {})
    {
        const size_t before = count();
        auto client = std::make_unique<WebClient>(port, from);
        client->send(get("/api/v1/events"));
        client->until("retry: 2000\n\n");
        EXPECT_TRUE(eventually([&] { return count() > before; }));
        return client;
    }
    size_t count()
    {
        const std::lock_guard lock(mutex);
        return streams.size();
    }
};

} // namespace

TEST_F(HttpStreamTest, EventsArriveAsTheyAreSent)
{
    start();
    const WebClient client(port);
    client.send(get("/api/v1/events"));
    EXPECT_THAT(client.head(), HasSubstr("Content-Type: text/event-stream\r\n"));
    EXPECT_THAT(client.until("\n\n"), HasSubstr("retry: 2000"));
    ASSERT_TRUE(eventually([&] { return stream() != nullptr; }));
    for (int i = 0; i < 100; ++i) {
        const std::string data = "{\"n\":" + std::to_string(i) + "}";
        EXPECT_TRUE(stream()->send("channel", data));
        EXPECT_THAT(client.until("\n\n"), HasSubstr("event: channel\ndata: " + data));
    }
}

TEST_F(HttpStreamTest, ALargeEventArrivesWhole)
{
    start();
    const auto client = view();
    const std::string data(200'000, 'x');
    EXPECT_TRUE(stream()->send("channel", data));
    std::string text = client->until("x\n\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 200'000);
}

TEST_F(HttpStreamTest, AHeadRequestOpensNoStream)
{
    start();
    const WebClient client(port);
    client.send("HEAD /api/v1/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_THAT(client.head(), HasSubstr("Content-Type: text/event-stream\r\n"));
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(status_of(ask(post("/api/v1/events", "x"))), 405);
}

TEST_F(HttpStreamTest, EndsWhenItsProducerGivesItUp)
{
    start();
    const auto client = view();
    stream()->send("channel", "last");
    {
        const std::lock_guard lock(mutex);
        streams.clear();
    }
    EXPECT_THAT(client->until("0\r\n\r\n"), HasSubstr("data: last"));
    client->send(get("/api/echo/next"));
    EXPECT_THAT(client->reply(), HasSubstr("<next>"));
}

TEST_F(HttpStreamTest, IsClosedAtOnceWhenItsViewerGoes)
{
    start();
    auto client = view();
    EXPECT_FALSE(stream()->closed());
    client->reset();
    EXPECT_TRUE(eventually([&] { return stream()->closed(); }));
    EXPECT_FALSE(stream()->send("channel", "{}"));
}

TEST_F(HttpStreamTest, WithoutEventsIsKeptAliveByComments)
{
    parts.limits.keep_alive = 20ms;
    start();
    const auto client = view();
    EXPECT_THAT(client->until(": keep-alive\n\n"), HasSubstr(": keep-alive\n\n"));
    EXPECT_THAT(client->until(": keep-alive\n\n"), HasSubstr(": keep-alive\n\n"));
}

TEST_F(HttpStreamTest, AViewerThatDoesNotReadIsDroppedAndTheOthersAreServed)
{
    const LogCapture log;
    start();
    const auto wedged = view();
    const auto reading = view("127.0.0.2");
    const std::string data(100'000, 'x');
    bool accepted = true;
    for (int i = 0; i < 500 && accepted; ++i) {
        accepted = stream(0)->send("channel", data);
        EXPECT_TRUE(stream(1)->send("channel", "{}"));
        EXPECT_THAT(reading->until("\n\n"), HasSubstr("data: {}"));
    }
    EXPECT_FALSE(accepted);
    EXPECT_TRUE(stream(0)->closed());
    EXPECT_TRUE(log.wait_for(LOG_INFO, "event stream of 127.0.0.1 ended: its viewer does not read"));
    EXPECT_TRUE(wedged->closed());
    EXPECT_EQ(status_of(ask(get("/api/echo/x"))), 200);
}

TEST_F(HttpStreamTest, AViewerThatDoesNotReadTheLittleThatComesIsDroppedLater)
{
    parts.limits.stall = 100ms;
    send_buffer = 4096;
    start();
    const auto wedged = view();
    // Less than the most that may wait, and more than the connection holds.
    EXPECT_TRUE(stream()->send("channel", std::string(240'000, 'x')));
    EXPECT_TRUE(eventually([&] { return stream()->closed(); }));
    EXPECT_TRUE(wedged->closed());
}

TEST_F(HttpStreamTest, FiftyViewersLeaveRoomForRequests)
{
    start();
    std::vector<std::unique_ptr<WebClient>> viewers;
    for (int i = 0; i < 50; ++i) {
        viewers.push_back(view());
    }
    const WebClient more(port);
    more.send(get("/api/v1/events"));
    const std::string refused = more.reply();
    EXPECT_EQ(status_of(refused), 503);
    EXPECT_THAT(refused, HasSubstr("Retry-After: 10\r\n"));
    EXPECT_EQ(status_of(ask(get("/api/echo/x"))), 200);
    for (size_t i = 0; i < 50; ++i) {
        EXPECT_TRUE(stream(i)->send("channel", std::to_string(i)));
    }
    for (size_t i = 0; i < 50; ++i) {
        EXPECT_THAT(viewers[i]->until("\n\n"), HasSubstr("data: " + std::to_string(i)));
    }
    const auto other = view("127.0.0.2");
    EXPECT_TRUE(stream(0)->closed()) << "the address with most gives one up";
    EXPECT_TRUE(viewers[0]->closed());
}

TEST_F(HttpStreamTest, ViewersThatComeAndGoLeaveNothing)
{
    start();
    view();
    server->responds(20s);
    const size_t before = open_descriptors();
    for (int i = 0; i < 200; ++i) {
        view();
    }
    EXPECT_TRUE(eventually([&] { return open_descriptors() <= before; }));
}

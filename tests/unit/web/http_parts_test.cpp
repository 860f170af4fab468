#include <arpa/inet.h>
#include <netinet/in.h>

#include "http/event_queue.h"
#include "http/mailbox.h"
#include "http/router.h"
#include "http/socket_address.h"
#include "http_fixture.h"
#include "support/files.h"

using namespace orvan_test;
using namespace orvan_web;
using ::testing::ElementsAre;

namespace {

std::vector<Route> routes()
{
    return {{"GET", "/channels", false, "", nullptr, nullptr, {}},
            {"GET", "/channels/{channel}", false, "", nullptr, nullptr, {}},
            {"PATCH", "/channels/{channel}", true, "", nullptr, nullptr, {}},
            {"GET", "/channels/all", false, "", nullptr, nullptr, {}},
            {"POST", "/setups/{setup}/recall/{how}", true, "", nullptr, nullptr, {}}};
}

std::string match(const char* method, const char* path)
{
    static const auto table = routes();
    const Match found = find_route(table, method, path);
    std::string text = found.route == nullptr ? "none" : found.route->path;
    for (const auto& parameter : found.parameters) {
        text += " " + parameter;
    }
    return text + " [" + found.allow + "]";
}

} // namespace

TEST(Router, FindsRoutesByWholeParts)
{
    EXPECT_EQ(match("GET", "/channels"), "/channels [GET, HEAD]");
    EXPECT_EQ(match("GET", "/channels/7"), "/channels/{channel} 7 [GET, HEAD, PATCH]");
    EXPECT_EQ(match("PATCH", "/channels/7"), "/channels/{channel} 7 [GET, HEAD, PATCH]");
    EXPECT_EQ(match("GET", "/channels/all"), "/channels/all [GET, HEAD, PATCH]");
    EXPECT_EQ(match("POST", "/setups/1/recall/x"), "/setups/{setup}/recall/{how} 1 x [POST]");
    EXPECT_EQ(match("DELETE", "/channels/7"), "none [GET, HEAD, PATCH]");
}

TEST(Router, HasNoRouteForAnythingElse)
{
    for (const char* path :
         {"", "/", "channels", "/channel", "/channels/", "//channels", "/channels//", "/channels/7/",
          "/channels/7/8", "/setups//recall/x", "/setups/1/recall", "/CHANNELS", "*"}) {
        EXPECT_EQ(match("GET", path), "none []") << path;
    }
}

TEST(EventText, CarriesEachLineOfTheData)
{
    EXPECT_EQ(event_text("a", "{}"), "event: a\ndata: {}\n\n");
    EXPECT_EQ(event_text("a", ""), "event: a\ndata: \n\n");
    EXPECT_EQ(event_text("a", "1\n2\r\n3\r4"), "event: a\ndata: 1\ndata: 2\ndata: 3\ndata: 4\n\n");
    EXPECT_EQ(event_text("a", "1\n"), "event: a\ndata: 1\ndata: \n\n");
}

TEST(EventQueue, WakesOnceWhenSomethingArrivesAfterNothing)
{
    int wakes = 0;
    EventQueue queue([&] { ++wakes; });
    EXPECT_TRUE(queue.add("ab"));
    EXPECT_EQ(wakes, 0);
    EXPECT_EQ(queue.take(1), "a");
    EXPECT_EQ(queue.take(9), "b");
    EXPECT_EQ(queue.take(9), std::nullopt);
    EXPECT_TRUE(queue.add("c"));
    EXPECT_TRUE(queue.add("d"));
    EXPECT_EQ(wakes, 1);
    EXPECT_EQ(queue.take(9), "cd");
}

TEST(EventQueue, SendsWhatIsThereAtItsEndAndThenNothing)
{
    EventQueue queue([] {});
    queue.add("ab");
    queue.end();
    EXPECT_FALSE(queue.add("c"));
    EXPECT_EQ(queue.take(9), "ab");
    EXPECT_EQ(queue.take(9), "");
    EXPECT_FALSE(queue.dropped());
}

TEST(EventQueue, DropsAClientThatLeavesTooMuchUnread)
{
    int wakes = 0;
    EventQueue queue([&] { ++wakes; });
    EXPECT_TRUE(queue.add(std::string(EventQueue::kMostBytes, 'x')));
    EXPECT_FALSE(queue.dropped());
    EXPECT_FALSE(queue.add("y"));
    EXPECT_TRUE(queue.dropped());
    EXPECT_TRUE(queue.closed());
    EXPECT_EQ(wakes, 1);
    EXPECT_EQ(queue.take(9), "");
}

TEST(EventQueue, KnowsSinceWhenItsBytesWait)
{
    using namespace std::chrono_literals;
    const EventQueue::Clock::time_point start{1h};
    EventQueue queue([] {});
    EXPECT_EQ(queue.waiting_since(), std::nullopt);
    queue.add("ab", start);
    queue.add("c", start + 5s);
    EXPECT_EQ(queue.waiting_since(), start);
    EXPECT_EQ(queue.last_added(), start + 5s);
    queue.take(1, start + 7s);
    EXPECT_EQ(queue.waiting_since(), start + 7s);
    queue.take(9, start + 8s);
    EXPECT_EQ(queue.waiting_since(), std::nullopt);
}

TEST(Mailbox, CallsInOrderWhatWasPostedUntilItIsClosed)
{
    Mailbox mailbox;
    std::string calls;
    mailbox.post([&] {
        calls += 'a';
        mailbox.post([&] { calls += 'c'; });
    });
    mailbox.post([&] { calls += 'b'; });
    mailbox.run();
    EXPECT_EQ(calls, "ab");
    mailbox.close();
    mailbox.post([&] { calls += 'd'; });
    mailbox.run();
    EXPECT_EQ(calls, "ab");
}

TEST(SocketAddress, IsTextWithoutPortAndScope)
{
    const auto v6 = [](const char* text) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_scope_id = 2;
        ::inet_pton(AF_INET6, text, &address.sin6_addr);
        return address_text(reinterpret_cast<sockaddr&>(address));
    };
    EXPECT_EQ(v6("fe80::1"), "fe80::1");
    EXPECT_EQ(v6("::ffff:10.0.0.2"), "10.0.0.2");
    sockaddr unknown{};
    EXPECT_EQ(address_text(unknown), "");
}

TEST(AcceptEncoding, AllowsGzipUnlessItsWeightIsNull)
{
    for (const char* yes : {"gzip", "br, gzip", "deflate,gzip;q=0.5", "gzip ; q=1", "gzip;q=0.001"}) {
        EXPECT_TRUE(accepts_gzip(yes)) << yes;
    }
    for (const char* no : {"", "br", "gzipped", "gzip;q=0", "gzip; q=0.000", "x-gzip", ","}) {
        EXPECT_FALSE(accepts_gzip(no)) << no;
    }
}

TEST(StaticFiles, AreThoseOfTheFolderWithAKnownType)
{
    const ScratchFolder folder;
    write_file(folder.path() / "index.html", "x");
    write_file(folder.path() / "js/a.js", "y");
    write_file(folder.path() / ".git/a.js", "y");
    write_file(folder.path() / ".hidden.js", "y");
    write_file(folder.path() / "notes.md", "y");
    StaticFiles files;
    EXPECT_EQ(files.add_folder(folder.path()), 2u);
    EXPECT_TRUE(files.has("/"));
    EXPECT_TRUE(files.has("/js/a.js"));
    EXPECT_FALSE(files.has("/js"));
    EXPECT_FALSE(files.has("/.hidden.js"));
    EXPECT_FALSE(files.has("/notes.md"));
    EXPECT_FALSE(files.has("/../" + folder.path().filename().string() + "/index.html"));
}

TEST(StaticFiles, AFolderOrFileThatCannotBeReadIsNamed)
{
    StaticFiles files;
    const auto complaint = [](auto action) -> std::string {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    };
    EXPECT_EQ(complaint([&] { files.add_folder("/nowhere/page"); }),
              "cannot read /nowhere/page: No such file or directory");
    EXPECT_EQ(complaint([&] { files.add_file("/c.js", "/nowhere/c.js"); }), "cannot read /nowhere/c.js");
    EXPECT_EQ(complaint([&] { files.add_file("/c", "/nowhere/c"); }),
              "not a type of file that is served: /nowhere/c");
}

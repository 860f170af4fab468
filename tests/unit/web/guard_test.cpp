#include <future>

#include "guard/guard.h"
#include "http_fixture.h"
#include "support/eventually.h"
#include "support/files.h"
#include "support/log_capture.h"

using namespace orvan_test;
using namespace orvan_web;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

/** Requests as the guard sees them. */
class GuardTest : public ::testing::Test {
protected:
    Guard& guard(bool read_only = false, bool changes_without_password = false)
    {
        m_guard = std::make_unique<Guard>(GuardOptions{m_folder.path(), read_only, changes_without_password},
                                          m_names);
        return *m_guard;
    }
    Credentials credentials() const { return Credentials(m_folder.path()); }

    static Request change(std::map<std::string, std::string> headers)
    {
        Request request;
        request.method = "PATCH";
        request.peer = "10.0.0.9";
        request.headers = {
            {"host", "10.0.0.2"}, {"content-type", "application/json"}, {"content-length", "2"}};
        for (auto& [name, value] : headers) {
            request.headers[name] = value;
        }
        return request;
    }
    static Request from_own_page(std::map<std::string, std::string> headers = {})
    {
        headers["origin"] = "http://10.0.0.2";
        return change(std::move(headers));
    }
    static int status(const std::optional<Response>& refusal) { return refusal ? refusal->status : 200; }

    ScratchFolder m_folder;
    HostNames m_names{{}, {[] { return "ovx-1"; }, [] { return std::vector<std::string>{"10.0.0.2"}; }}};
    std::unique_ptr<Guard> m_guard;
};

/** The guard in front of a server. */
class GuardedServerTest : public GuardTest {
protected:
    void start(bool changes_without_password = false)
    {
        ServerParts parts;
        parts.routes = guard(false, changes_without_password).routes();
        parts.routes.push_back(
            {"PATCH", "/api/change", true, "", nullptr, nullptr,
             [](const std::shared_ptr<Exchange>& exchange, const std::vector<std::string>&) {
                 exchange->reply({200, "application/json", "{}", {}});
             }});
        const int fd = listen_on_loopback("127.0.0.1", 1024);
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        m_port = local_port(fd);
        parts.listeners.emplace_back(fd);
        m_server = std::make_unique<HttpServer>(std::move(parts), *m_guard);
    }
    std::string ask(const std::string& request, const std::string& from = {}) const
    {
        const WebClient client(m_port, from);
        client.send(request);
        return client.reply();
    }
    std::string log_in(const std::string& password, const std::string& from = {}) const
    {
        return ask(post("/api/v1/session", R"({"password":")" + password + "\"}",
                        "Content-Type: application/json\r\n"),
                   from);
    }
    std::string token_of(const std::string& reply) const
    {
        const size_t at = reply.find(R"("token":")");
        return at == std::string::npos ? "" : reply.substr(at + 9, 64);
    }
    int change_with(const std::string& token) const
    {
        return status_of(
            ask("PATCH /api/change HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
                "Content-Length: 2\r\nAuthorization: Bearer " +
                token + "\r\n\r\n{}"));
    }

    int m_port = 0;
    std::unique_ptr<HttpServer> m_server;
};

} // namespace

TEST_F(GuardTest, AHostThatIsNotThisInstrumentIsMisdirected)
{
    Request request;
    request.headers = {{"host", "evil.example:80"}};
    const auto refusal = guard().refuse(request, "10.0.0.2");
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->status, 421);
    EXPECT_THAT(refusal->body,
                HasSubstr(R"(this instrument is not called \"evil.example:80\"; orvan-web --name NAME)"));
    for (const char* host : {"10.0.0.2", "10.0.0.2:8080", "ovx-1.local", "localhost:1"}) {
        request.headers["host"] = host;
        EXPECT_FALSE(m_guard->refuse(request, "10.0.0.2")) << host;
    }
    for (const char* host : {"", "user@10.0.0.2", "10.0.0.2, evil", "evil"}) {
        request.headers["host"] = host;
        EXPECT_TRUE(m_guard->refuse(request, "10.0.0.2")) << host;
    }
}

TEST_F(GuardTest, WithoutAPasswordChangesAreOffUnlessTheyAreAllowed)
{
    const auto refusal = guard().refuse_change(from_own_page());
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->status, 403);
    EXPECT_THAT(
        refusal->body,
        HasSubstr("changes are off until a password is set: run orvan-web --set-password on the instrument"));
    EXPECT_FALSE(m_guard->access().changes);
    EXPECT_EQ(m_guard->access().reason,
              "changes are off until a password is set: run orvan-web --set-password on the instrument");
    EXPECT_EQ(status(guard(false, true).refuse_change(from_own_page())), 200);
    EXPECT_TRUE(m_guard->access().changes);
    EXPECT_EQ(m_guard->access().reason, "");
}

TEST_F(GuardTest, PagesOfOtherMachinesChangeNothing)
{
    Guard& open = guard(false, true);
    for (const char* origin :
         {"http://evil.example", "null", "http://10.0.0.2:8080", "https://10.0.0.2.evil", "garbage"}) {
        EXPECT_EQ(status(open.refuse_change(change({{"origin", origin}}))), 403) << origin;
    }
    EXPECT_EQ(status(open.refuse_change(change({}))), 403) << "neither a page nor a token";
}

TEST_F(GuardTest, AFormOfAnyPageChangesNothing)
{
    Guard& open = guard(false, true);
    for (const char* type : {"application/x-www-form-urlencoded", "multipart/form-data; boundary=x",
                             "text/plain", "", "application/jsonp", "text/json"}) {
        EXPECT_EQ(status(open.refuse_change(from_own_page({{"content-type", type}}))), 415) << type;
    }
    for (const char* type : {"application/json", "Application/JSON ; charset=utf-8"}) {
        EXPECT_EQ(status(open.refuse_change(from_own_page({{"content-type", type}}))), 200) << type;
    }
    EXPECT_EQ(status(open.refuse_change(from_own_page({{"content-type", ""}, {"content-length", "0"}}))), 200)
        << "without a body it needs no type";
    EXPECT_EQ(status(open.refuse_change(from_own_page(
                  {{"content-type", ""}, {"content-length", ""}, {"transfer-encoding", "chunked"}}))),
              415);
}

TEST_F(GuardTest, WithAPasswordEvenTheOwnPageNeedsAToken)
{
    Guard& locked = guard(false, true);
    credentials().set_password("correct horse");
    const auto refusal = locked.refuse_change(from_own_page());
    ASSERT_EQ(status(refusal), 401);
    EXPECT_EQ(refusal->headers.front(), std::pair(std::string("WWW-Authenticate"), std::string("Bearer")));
    EXPECT_TRUE(locked.access().changes);
    EXPECT_TRUE(locked.access().password_set);
}

TEST_F(GuardTest, AnApiTokenChangesFromAnywhere)
{
    Guard& closed = guard();
    const std::string token = credentials().add_token("line-3");
    EXPECT_EQ(status(closed.refuse_change(change({{"authorization", "Bearer " + token}}))), 200);
    EXPECT_EQ(status(closed.refuse_change(change({{"authorization", "bearer  " + token}}))), 200);
    for (const std::string& value : {std::string("Bearer "), std::string("Bearer x"), "Bearer " + token + "0",
                                     "Basic " + token, token, std::string("Bearer")}) {
        EXPECT_EQ(status(closed.refuse_change(change({{"authorization", value}}))), 401) << value;
    }
    credentials().remove_token("line-3");
    EXPECT_EQ(status(closed.refuse_change(change({{"authorization", "Bearer " + token}}))), 401);
}

TEST_F(GuardTest, AWrongTokenIsRefusedEvenWhereNoneIsNeeded)
{
    EXPECT_EQ(status(guard(false, true).refuse_change(from_own_page({{"authorization", "Bearer x"}}))), 401);
}

TEST_F(GuardTest, NobodyChangesAnythingInReadOnlyMode)
{
    Guard& guard = this->guard(true, true);
    const std::string token = credentials().add_token("line-3");
    const auto refusal = guard.refuse_change(from_own_page({{"authorization", "Bearer " + token}}));
    EXPECT_EQ(status(refusal), 403);
    EXPECT_THAT(refusal->body, HasSubstr("the web server is read-only"));
    EXPECT_FALSE(guard.access().changes);
    EXPECT_EQ(guard.access().reason, "the web server is read-only");
}

TEST_F(GuardedServerTest, ThePasswordBuysATokenThatItsOwnerGivesBack)
{
    const LogCapture log;
    credentials().set_password("correct horse");
    start();
    const std::string reply = log_in("correct horse");
    EXPECT_EQ(status_of(reply), 200);
    EXPECT_THAT(reply, HasSubstr(R"(,"expires_s":28800})"));
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, "session begun from 127.0.0.1"));
    const std::string token = token_of(reply);
    EXPECT_EQ(change_with(token), 200);
    const std::string leave =
        "DELETE /api/v1/session HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer " + token + "\r\n\r\n";
    EXPECT_EQ(status_of(ask(leave)), 200);
    EXPECT_EQ(status_of(ask(leave)), 401);
    EXPECT_EQ(change_with(token), 401);
}

TEST_F(GuardedServerTest, SessionsEndWhenThePasswordChanges)
{
    credentials().set_password("correct horse");
    start();
    const std::string token = token_of(log_in("correct horse"));
    EXPECT_EQ(change_with(token), 200);
    credentials().set_password("another horse");
    EXPECT_EQ(change_with(token), 401);
    EXPECT_EQ(status_of(log_in("correct horse")), 401);
    EXPECT_EQ(status_of(log_in("another horse")), 200);
}

TEST_F(GuardedServerTest, FiveWrongPasswordsLockTheAddressOutAndNoOther)
{
    const LogCapture log;
    credentials().set_password("correct horse");
    start();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(status_of(log_in("wrong horse")), 401);
    }
    EXPECT_EQ(log.count(LOG_WARNING, "wrong password from 127.0.0.1"), 5u);
    const std::string locked = log_in("correct horse");
    EXPECT_EQ(status_of(locked), 429);
    EXPECT_THAT(locked, ::testing::ContainsRegex("Retry-After: [1-6][0-9]?\r\n"));
    EXPECT_EQ(status_of(log_in("correct horse", "127.0.0.2")), 200);
}

TEST_F(GuardedServerTest, ManyTriesAtTheSameTimeAreNoMore)
{
    credentials().set_password("correct horse");
    start();
    std::vector<std::unique_ptr<WebClient>> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(std::make_unique<WebClient>(m_port));
        clients.back()->send(
            post("/api/v1/session", R"({"password":"wrong horse"})", "Content-Type: application/json\r\n"));
    }
    std::map<int, int> counts;
    for (const auto& client : clients) {
        ++counts[status_of(client->reply())];
    }
    EXPECT_EQ(counts, (std::map<int, int>{{401, 5}, {429, 15}}));
}

TEST_F(GuardedServerTest, OthersAreServedWhileAPasswordIsChecked)
{
    LogCapture log;
    credentials().set_password("correct horse");
    start();
    std::promise<void> checked;
    std::promise<void> served;
    auto done = served.get_future();
    // Holds up the thread that has checked the password.
    log.on_line([&](const LogLine& line) {
        if (line.text == "wrong password from 127.0.0.1") {
            checked.set_value();
            done.wait_for(20s);
        }
    });
    const WebClient checking(m_port);
    checking.send(
        post("/api/v1/session", R"({"password":"wrong horse"})", "Content-Type: application/json\r\n"));
    ASSERT_EQ(checked.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_EQ(status_of(ask(get("/nowhere"))), 404);
    EXPECT_EQ(read_ready(checking.fd()), "");
    served.set_value();
    EXPECT_EQ(status_of(checking.reply()), 401);
}

TEST_F(GuardedServerTest, ALoginIsCheckedBeforeThePasswordIs)
{
    start();
    EXPECT_EQ(status_of(log_in("correct horse")), 409) << "no password is set";
    credentials().set_password("correct horse");
    const std::string body = R"({"password":"correct horse"})";
    EXPECT_EQ(status_of(ask(post("/api/v1/session", body, "Content-Type: text/plain\r\n"))), 415);
    EXPECT_EQ(status_of(ask(post("/api/v1/session", body,
                                 "Content-Type: application/json\r\nOrigin: http://evil.example\r\n"))),
              403);
    EXPECT_EQ(
        status_of(ask(post("/api/v1/session", body, "Content-Type: application/json\r\nOrigin: null\r\n"))),
        403);
    for (const char* bad : {"", "{", "[]", "{}", R"({"password":7})", R"("correct horse")"}) {
        EXPECT_EQ(status_of(ask(post("/api/v1/session", bad, "Content-Type: application/json\r\n"))), 400)
            << bad;
    }
}

TEST_F(GuardedServerTest, ARebindingPageSeesNothing)
{
    start(true);
    for (const char* path : {"/", "/api/v1/session", "/nowhere"}) {
        EXPECT_EQ(status_of(ask(std::string("GET ") + path + " HTTP/1.1\r\nHost: evil.example\r\n\r\n")), 421)
            << path;
    }
    EXPECT_EQ(
        status_of(ask("PATCH /api/change HTTP/1.1\r\nHost: evil.example\r\nOrigin: http://evil.example\r\n"
                      "Content-Type: application/json\r\nContent-Length: 2\r\n\r\n{}")),
        421);
}

TEST_F(GuardedServerTest, ACrossSitePostChangesNothing)
{
    start(true);
    const auto change = [&](const std::string& headers) {
        return status_of(ask("PATCH /api/change HTTP/1.1\r\nHost: localhost\r\nContent-Length: 2\r\n" +
                             headers + "\r\n{}"));
    };
    EXPECT_EQ(change("Content-Type: application/json\r\nOrigin: http://localhost\r\n"), 200);
    EXPECT_EQ(change("Content-Type: application/json\r\nOrigin: http://evil.example\r\n"), 403);
    EXPECT_EQ(change("Content-Type: application/json\r\nOrigin: null\r\n"), 403);
    for (const char* two : {"Origin: http://localhost\r\nOrigin: http://evil\r\n",
                            "Origin: http://evil\r\nOrigin: http://localhost\r\n"}) {
        EXPECT_EQ(change(std::string("Content-Type: application/json\r\n") + two), 403) << two;
    }
    EXPECT_EQ(change("Content-Type: text/plain\r\nOrigin: http://localhost\r\n"), 415);
    const std::string preflight =
        ask("OPTIONS /api/change HTTP/1.1\r\nHost: localhost\r\nOrigin: http://evil.example\r\n"
            "Access-Control-Request-Method: PATCH\r\n\r\n");
    EXPECT_EQ(status_of(preflight), 405);
    EXPECT_THAT(preflight, ::testing::Not(HasSubstr("Access-Control-Allow")));
}

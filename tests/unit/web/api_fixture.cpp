#include "api_fixture.h"

#include <cctype>
#include <future>

namespace orvan_test {
namespace {

using namespace orvan_web;

class FakeExchange : public Exchange {
public:
    FakeExchange(Request request, std::shared_ptr<std::promise<Response>> reply)
        : m_request(std::move(request)), m_reply(std::move(reply))
    {
    }
    ~FakeExchange() override
    {
        if (!m_replied) {
            m_reply->set_value(problem(503, "no reply"));
        }
    }
    const Request& request() const override { return m_request; }
    void reply(Response response) override
    {
        if (!std::exchange(m_replied, true)) {
            m_reply->set_value(std::move(response));
        }
    }

private:
    const Request m_request;
    const std::shared_ptr<std::promise<Response>> m_reply;
    bool m_replied = false;
};

// Whether the path is one of the route's; its parameters.
bool matches(std::string_view pattern, std::string_view path, std::vector<std::string>& parameters)
{
    parameters.clear();
    while (!pattern.empty() && !path.empty()) {
        const std::string_view wanted = pattern.substr(0, pattern.find('/'));
        const std::string_view part = path.substr(0, path.find('/'));
        if (wanted.starts_with('{')) {
            parameters.emplace_back(part);
        } else if (wanted != part) {
            return false;
        }
        pattern.remove_prefix(std::min(wanted.size() + 1, pattern.size()));
        path.remove_prefix(std::min(part.size() + 1, path.size()));
    }
    return pattern.empty() && path.empty();
}

} // namespace

bool FakeStream::send(std::string_view event, std::string_view data)
{
    const std::lock_guard lock(m_mutex);
    m_events.emplace_back(event, data);
    return !m_closed;
}

std::vector<FakeStream::Event> FakeStream::events() const
{
    const std::lock_guard lock(m_mutex);
    return m_events;
}

void FakeStream::forget()
{
    const std::lock_guard lock(m_mutex);
    m_events.clear();
}

bool FakeStream::wait_for(const std::string& event, const std::string& text) const
{
    return eventually(
        [&] {
            for (const auto& [name, data] : events()) {
                if (name == event && data.find(text) != std::string::npos) {
                    return true;
                }
            }
            return false;
        },
        std::chrono::seconds(5));
}

ApiTest::ApiTest()
{
    api.describe(routes);
    loop.post([this] { instrument.start(); });
    EXPECT_TRUE(wait_reachable(true));
    get("/api/v1/channels"); // the modules have been asked once
}

bool ApiTest::wait_reachable(bool wanted)
{
    return eventually([&] { return thread.call([this] { return instrument.reachable(); }) == wanted; });
}

Response ApiTest::request(const std::string& method, const std::string& path, const std::string& body)
{
    std::vector<std::string> parameters;
    for (const Route& route : routes) {
        if (method == route.method && matches(route.path, path, parameters)) {
            Request request;
            request.method = method;
            request.path = path;
            request.body = body;
            request.headers["host"] = "10.0.0.2";
            auto reply = std::make_shared<std::promise<Response>>();
            auto response = reply->get_future();
            route.handler(std::make_shared<FakeExchange>(std::move(request), std::move(reply)), parameters);
            return response.get();
        }
    }
    return problem(404, "no route");
}

Json ApiTest::get(const std::string& path)
{
    const Response response = request("GET", path);
    EXPECT_EQ(response.status, 200) << path << response.body;
    return parse_json(response.body);
}

std::shared_ptr<FakeStream> ApiTest::view()
{
    auto stream = std::make_shared<FakeStream>();
    api.on_stream(stream);
    EXPECT_TRUE(stream->wait_for("channel", "\"channel\":2"));
    return stream;
}

} // namespace orvan_test

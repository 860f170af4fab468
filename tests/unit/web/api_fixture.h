#ifndef ORVAN_TESTS_WEB_API_FIXTURE_H
#define ORVAN_TESTS_WEB_API_FIXTURE_H

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "api/api.h"
#include "fake_service.h"
#include "loop_thread.h"
#include "support/eventually.h"

namespace orvan_test {

/** A viewer of the live stream. */
class FakeStream : public orvan_web::EventStream {
public:
    using Event = std::pair<std::string, std::string>;

    bool send(std::string_view event, std::string_view data) override;
    bool closed() const override { return m_closed; }

    void close() { m_closed = true; }
    std::vector<Event> events() const;
    void forget();
    /** Waits for an event with this text in its data. */
    bool wait_for(const std::string& event, const std::string& text) const;

private:
    mutable std::mutex m_mutex;
    std::vector<Event> m_events;
    std::atomic<bool> m_closed = false;
};

/** The API on a fake service, without HTTP. */
class ApiTest : public testing::Test {
protected:
    ApiTest();

    /** Sends a request to the route that has this path, and waits for its reply. */
    orvan_web::Response request(const std::string& method, const std::string& path,
                                const std::string& body = {});
    orvan_web::Json get(const std::string& path);

    std::shared_ptr<FakeStream> view();
    bool wait_reachable(bool wanted);

    FakeService service;
    orvan_web::InstrumentLoop loop;
    orvan_web::Instrument instrument{loop, {service.folder(), service.object(), service.folder()}};
    orvan_web::Access access{true, false, ""};
    orvan_web::Api api{loop, instrument, {"0.1.0", [this] { return access; }}};
    std::vector<orvan_web::Route> routes = api.routes();
    LoopThread thread{loop};
};

} // namespace orvan_test

#endif

#ifndef ORVAN_WEB_SERVED_EXCHANGE_H
#define ORVAN_WEB_SERVED_EXCHANGE_H

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "http/exchange.h"

namespace orvan_web {

/** The reply of an exchange on its way to the connection. Any thread. */
class PendingReply {
public:
    /** @param wake called, on any thread, when a reply arrives after take() found none */
    explicit PendingReply(std::function<void()> wake) : m_wake(std::move(wake)) {}

    /** Only the first one counts. */
    void set(Response response)
    {
        std::unique_lock lock(m_mutex);
        if (std::exchange(m_set, true)) {
            return;
        }
        m_response = std::move(response);
        const bool wake = m_awaited;
        lock.unlock();
        if (wake) {
            m_wake();
        }
    }

    std::optional<Response> take()
    {
        const std::lock_guard lock(m_mutex);
        m_awaited = !m_response;
        return std::exchange(m_response, std::nullopt);
    }

private:
    const std::function<void()> m_wake;
    std::mutex m_mutex;
    std::optional<Response> m_response;
    bool m_set = false;
    bool m_awaited = false;
};

/** What a handler holds. */
class ServedExchange : public Exchange {
public:
    ServedExchange(Request request, std::shared_ptr<PendingReply> reply)
        : m_request(std::move(request)), m_reply(std::move(reply))
    {
    }
    ~ServedExchange() override { m_reply->set(problem(503, "the instrument did not answer")); }

    const Request& request() const override { return m_request; }
    void reply(Response response) override { m_reply->set(std::move(response)); }

private:
    const Request m_request;
    const std::shared_ptr<PendingReply> m_reply;
};

} // namespace orvan_web

#endif

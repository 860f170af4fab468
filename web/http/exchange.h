/**
 * What a handler of the HTTP server sees: a request, its reply, the event stream of a viewer, and the table
 * of routes.
 */
#ifndef ORVAN_WEB_EXCHANGE_H
#define ORVAN_WEB_EXCHANGE_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvan_web {

/** Largest body of a request in bytes; a larger one is answered with 413 and reaches no handler. */
inline constexpr size_t kMostBody = size_t{64} << 10;

/** A complete request. */
struct Request {
    std::string method; /**< "GET" for HEAD as well, of whose reply only the head is sent */
    std::string path;   /**< decoded, without the query */
    std::map<std::string, std::string> query;   /**< decoded; the last of several values of a name */
    std::map<std::string, std::string> headers; /**< by name in small letters */
    std::string body;                           /**< at most kMostBody bytes */
    std::string peer;                           /**< address without port, "10.0.0.2" or "fe80::1" */

    /** The value of a header; empty if the request has none of that name.
     *  @param name in small letters */
    std::string header(const std::string& name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? std::string() : found->second;
    }
};

/** A reply. The server adds Content-Length, Cache-Control: no-store and the headers of security. */
struct Response {
    int status = 200; /**< of RFC 9110 */
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers; /**< in addition; may replace Cache-Control */
};

/**
 * An error as RFC 9457 has it, with the title that belongs to the status.
 *
 * @param detail what the user can do about it, in one sentence; may be empty.
 */
Response problem(int status, std::string_view detail);

/** A request that waits for its reply. It may be kept for as long as the answer takes; the connection waits.
 */
class Exchange {
public:
    virtual ~Exchange() = default; /**< without a reply until then: 503 */

    virtual const Request& request() const = 0;

    /** Sends the reply. Any thread; does nothing after the first call, or if the client or the server is
     * gone. */
    virtual void reply(Response response) = 0;
};

/** A viewer's stream of server-sent events. It ends when this object is destroyed or the client has gone. */
class EventStream {
public:
    virtual ~EventStream() = default;

    /**
     * Queues an event. Any thread; never blocks.
     *
     * @param event its name, without line breaks.
     * @param data  its data; each line of it becomes one of the event's.
     * @return false if the client is gone, or has left 256 kB unread and is dropped for that.
     */
    virtual bool send(std::string_view event, std::string_view data) = 0;

    /** Whether the client has gone or was dropped. Any thread. */
    virtual bool closed() const = 0;
};

/** A row of the table of routes. */
struct Route {
    const char* method;  /**< "GET" (also serves HEAD), "PUT", "POST", "PATCH" or "DELETE" */
    const char* path;    /**< "/api/v1/channels/{channel}"; a part in braces is a parameter */
    bool changes;        /**< whether it needs the right to change; the server has checked that already */
    const char* summary; /**< one line for the OpenAPI document, as are the schemas */
    const char* request_schema;  /**< JSON text; null: it takes no body */
    const char* response_schema; /**< JSON text; null: it has no JSON reply */

    /** Called on the HTTP thread, where nothing may block.
     *  @param parameters the parts of the path in braces, in order, decoded; never empty strings */
    std::function<void(std::shared_ptr<Exchange>, std::vector<std::string> parameters)> handler;
};

/** Takes the streams of GET /api/v1/events. Called on the HTTP thread, where nothing may block. */
using StreamHandler = std::function<void(std::shared_ptr<EventStream>)>;

} // namespace orvan_web

#endif

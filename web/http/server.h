#ifndef ORVAN_WEB_SERVER_H
#define ORVAN_WEB_SERVER_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "http/exchange.h"
#include "http/places.h"
#include "http/static_files.h"
#include <unique_fd.h>

namespace orvan_web {

/** Decides which requests the server refuses. Called on the HTTP thread, where nothing may block. */
class Gate {
public:
    virtual ~Gate() = default;

    /** About every request, by its head: the body has not been read.
     *  @param local address that the client has connected to, as Request::peer
     *  @return the refusal, if any */
    virtual std::optional<Response> refuse(const Request& request, const std::string& local) = 0;

    /** About requests of routes that change something, by their head. */
    virtual std::optional<Response> refuse_change(const Request& request) = 0;
};

struct ServerParts {
    std::vector<orvan_common::UniqueFd> listeners; /**< non-blocking */
    std::vector<Route> routes;
    StaticFiles files;
    StreamHandler on_stream; /**< of GET /api/v1/events; empty: there is no such path */
    Limits limits;
};

/**
 * The HTTP server: one thread, named "http", which serves all connections with epoll. libmicrohttpd reads and
 * writes them; which connections there are, and for how long, is decided here.
 *
 * A connection that waits for a handler's reply, or a stream without events, is suspended and costs nothing.
 * Without connections the thread sleeps.
 */
class HttpServer {
public:
    /** Begins to serve.
     *  @param gate must outlive the server
     *  @throws std::runtime_error with a text for the user */
    HttpServer(ServerParts parts, Gate& gate);

    /** As end(). */
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /** Closes the listeners and all connections; exchanges and streams that still exist lead nowhere then.
     * What waits for its reply gets 503. Takes at most half a second. */
    void end();

    /** Whether the HTTP thread responds within `patience`. Any other thread. */
    bool responds(std::chrono::milliseconds patience);

private:
    class Loop;
    std::unique_ptr<Loop> m_loop;
};

} // namespace orvan_web

#endif

#include <cstring>

#include <sys/epoll.h>
#include <syslog.h>

#include "http/loop.h"
#include "http/router.h"
#include "http/served_exchange.h"

namespace orvan_web {
namespace {

constexpr const char* kStreamPath = "/api/v1/events";

// Bytes that a stream hands to libmicrohttpd at a time.
constexpr size_t kStreamBlock = size_t{16} << 10;

// A body beyond the limit is read to here, so that its sender also reads the refusal.
constexpr size_t kMostDiscarded = 16 * kMostBody;

Response method_not_allowed(const std::string& allow)
{
    Response response = problem(405, "the methods here are " + allow);
    response.headers.emplace_back("Allow", allow);
    return response;
}

Response too_busy(std::string_view detail, const char* seconds)
{
    Response response = problem(503, detail);
    response.headers.emplace_back("Retry-After", seconds);
    return response;
}

/** What the producer of events holds. */
class ServedStream : public EventStream {
public:
    explicit ServedStream(std::shared_ptr<EventQueue> queue) : m_queue(std::move(queue)) {}
    ~ServedStream() override { m_queue->end(); }
    bool send(std::string_view event, std::string_view data) override
    {
        return m_queue->add(event_text(event, data));
    }
    bool closed() const override { return m_queue->closed(); }

private:
    const std::shared_ptr<EventQueue> m_queue;
};

} // namespace

/** One request of a connection. */
struct Transaction {
    Request request;
    bool is_head = false;
    bool is_stream = false;
    bool is_file = false;
    const Route* route = nullptr;
    std::vector<std::string> parameters;
    std::optional<Response> refusal; /**< decided by the head */
    size_t received = 0;             /**< bytes of the body */
    std::shared_ptr<PendingReply> reply;
};

MHD_Result HttpServer::Loop::on_request(MHD_Connection* handle, const char* url, const char* method,
                                        const char* data, size_t* size, void** transaction)
try {
    auto& connection = *static_cast<Connection*>(
        MHD_get_connection_info(handle, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    auto& current = reinterpret_cast<Transaction*&>(*transaction);
    if (current == nullptr) {
        current = new Transaction; // deleted in on_completed
        current->request = read_head(handle, url, method);
        current->request.peer = connection.peer;
        current->is_head = std::strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
        return begin(connection, *current);
    }
    return *size != 0 ? take_body(*current, data, size) : answer(connection, *current);
} catch (const std::exception& error) {
    ::syslog(LOG_ERR, "request %s %s: %s", method, url, error.what());
    return MHD_NO;
}

MHD_Result HttpServer::Loop::begin(Connection& connection, Transaction& transaction)
{
    transaction.refusal = refuse_framing(connection.handle);
    if (!transaction.refusal) {
        transaction.refusal = refusal(connection, transaction);
    }
    // After a reply that comes before the body, the connection is closed.
    return transaction.refusal && announces_body(transaction.request) ? send(connection, *transaction.refusal)
                                                                      : MHD_YES;
}

std::optional<Response> HttpServer::Loop::refusal(Connection& connection, Transaction& transaction)
{
    const Request& request = transaction.request;
    if (auto refused = m_gate.refuse(request, connection.local)) {
        return refused;
    }
    transaction.is_stream = m_parts.on_stream && request.path == kStreamPath;
    transaction.is_file = m_parts.files.has(request.path);
    if (transaction.is_stream || transaction.is_file) {
        if (request.method != "GET") {
            return method_not_allowed("GET, HEAD");
        }
    } else {
        Match match = find_route(m_parts.routes, request.method, request.path);
        if (match.allow.empty()) {
            return problem(404, "there is nothing at this path");
        }
        if (match.route == nullptr) {
            return method_not_allowed(match.allow);
        }
        transaction.route = match.route;
        transaction.parameters = std::move(match.parameters);
        if (match.route->changes) {
            if (auto refused = m_gate.refuse_change(request)) {
                return refused;
            }
        }
    }
    if (announced_length(request).value_or(0) > kMostBody ||
        (!announced_length(request) && !request.headers.contains("transfer-encoding"))) {
        return problem(413, "at most 64 kB");
    }
    return std::nullopt;
}

MHD_Result HttpServer::Loop::take_body(Transaction& transaction, const char* data, size_t* size)
{
    transaction.received += *size;
    if (transaction.received > kMostDiscarded) {
        return MHD_NO;
    }
    if (transaction.received > kMostBody) {
        transaction.request.body.clear();
        transaction.refusal = problem(413, "at most 64 kB");
    } else {
        transaction.request.body.append(data, *size);
    }
    *size = 0;
    return MHD_YES;
}

MHD_Result HttpServer::Loop::answer(Connection& connection, Transaction& transaction)
{
    if (transaction.refusal) {
        return send(connection, *transaction.refusal);
    }
    if (transaction.is_file) {
        return send(connection, m_parts.files.reply(transaction.request));
    }
    if (transaction.is_stream) {
        return start_stream(connection, transaction);
    }
    if (!transaction.reply) {
        return call_handler(connection, transaction);
    }
    // Without a reply this connection was resumed because the server ends.
    return send(connection, transaction.reply->take().value_or(
                                problem(503, "the web server of the instrument is ending")));
}

MHD_Result HttpServer::Loop::call_handler(Connection& connection, Transaction& transaction)
{
    transaction.reply = std::make_shared<PendingReply>(waker(connection.id));
    m_places.set(connection.id, PlaceState::kWaiting, Clock::now());
    try {
        transaction.route->handler(
            std::make_shared<ServedExchange>(std::move(transaction.request), transaction.reply),
            std::move(transaction.parameters));
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "%s %s: %s", transaction.route->method, transaction.route->path, error.what());
        return send(connection, problem(500, "the web server of the instrument failed; see its log"));
    }
    if (const auto response = transaction.reply->take()) {
        return send(connection, *response);
    }
    suspend(connection);
    return MHD_YES;
}

MHD_Result HttpServer::Loop::start_stream(Connection& connection, Transaction& transaction)
{
    Response head{200, "text/event-stream", {}, {{"X-Accel-Buffering", "no"}}};
    if (transaction.is_head) {
        return send(connection, head);
    }
    const Places::Decision decision = m_places.admit_stream(connection.id);
    if (decision.instead_of) {
        close(*decision.instead_of);
    }
    if (!decision.admitted) {
        return send(connection, too_busy("too many viewers", "10"));
    }
    struct Reader {
        Loop& loop;
        Connection& connection;
        std::shared_ptr<EventQueue> queue;
    };
    auto queue = std::make_shared<EventQueue>(waker(connection.id));
    auto reader = std::make_unique<Reader>(Reader{*this, connection, queue});
    const MhdResponse reply(MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, kStreamBlock,
        [](void* closure, uint64_t, char* buffer, size_t size) {
            auto& self = *static_cast<Reader*>(closure);
            return self.loop.read_stream(self.connection, *self.queue, buffer, size);
        },
        reader.get(), [](void* closure) { delete static_cast<Reader*>(closure); }));
    if (!reply) {
        return MHD_NO;
    }
    static_cast<void>(reader.release());
    add_headers(reply.get(), head);
    connection.stream = queue;
    m_places.set(connection.id, PlaceState::kStream, Clock::now());
    watch(connection.fd, EPOLLRDHUP | EPOLLET, kStreamTag + connection.id);
    queue->add("retry: 2000\n\n");
    const MHD_Result queued = MHD_queue_response(connection.handle, MHD_HTTP_OK, reply.get());
    m_parts.on_stream(std::make_shared<ServedStream>(std::move(queue)));
    return queued;
}

MHD_Result HttpServer::Loop::send(Connection& connection, const Response& response)
{
    m_places.set(connection.id, PlaceState::kSending, Clock::now());
    return queue_reply(connection.handle, response);
}

ssize_t HttpServer::Loop::read_stream(Connection& connection, EventQueue& queue, char* buffer, size_t size)
{
    const auto bytes = queue.take(size);
    if (!bytes) {
        suspend(connection);
        return 0;
    }
    if (bytes->empty()) {
        return queue.dropped() ? MHD_CONTENT_READER_END_WITH_ERROR : MHD_CONTENT_READER_END_OF_STREAM;
    }
    std::memcpy(buffer, bytes->data(), bytes->size());
    return static_cast<ssize_t>(bytes->size());
}

void HttpServer::Loop::on_completed(MHD_Connection* handle, void** transaction)
{
    delete static_cast<Transaction*>(std::exchange(*transaction, nullptr));
    auto& connection = *static_cast<Connection*>(
        MHD_get_connection_info(handle, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    if (connection.stream) {
        connection.stream->drop();
        connection.stream.reset();
        connection.stream_dropped = false;
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, connection.fd, nullptr);
    }
    m_places.set(connection.id, PlaceState::kReceiving, Clock::now());
}

void HttpServer::Loop::on_connection(MHD_Connection* handle, void** context,
                                     MHD_ConnectionNotificationCode code)
{
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        m_entering->handle = handle;
        *context = m_entering.get();
        m_connections.emplace(m_entering->id, std::move(m_entering));
    } else if (auto* const connection = static_cast<Connection*>(*context)) {
        m_places.remove(connection->id);
        m_connections.erase(connection->id);
    }
}

} // namespace orvan_web

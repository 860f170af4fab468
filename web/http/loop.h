#ifndef ORVAN_WEB_LOOP_H
#define ORVAN_WEB_LOOP_H

#include <map>
#include <memory>
#include <thread>

#include "http/event_queue.h"
#include "http/mailbox.h"
#include "http/mhd.h"
#include "http/server.h"

namespace orvan_web {

struct Transaction;

/** The HTTP thread and what it serves. */
class HttpServer::Loop {
public:
    Loop(ServerParts parts, Gate& gate);
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    Mailbox& mailbox() { return *m_mailbox; }

private:
    using Clock = Places::Clock;
    using Id = Places::Id;

    struct Connection {
        Id id;
        int fd;
        std::string peer;
        std::string local;
        MHD_Connection* handle;
        bool suspended = false;
        std::shared_ptr<EventQueue> stream; /**< null while it is none */
        bool stream_dropped = false;
    };

    /** Added to a stream's id it is the tag of its events. */
    static constexpr uint64_t kStreamTag = uint64_t{1} << 62;

    struct StopDaemon {
        void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
    };

    // loop.cpp: the thread, connections and their limits
    void watch(int fd, uint32_t events, uint64_t tag);
    void run();
    void wait();
    void accept_all(int listener);
    void accepted(orvan_common::UniqueFd socket, const sockaddr& address, socklen_t length);
    void pause_accepting();
    void tick(Clock::time_point now);
    void close(Id id);
    void drop_stream(Connection& connection, const char* reason);
    void suspend(Connection& connection);
    void resume(Id id);
    std::function<void()> waker(Id id);
    void finish();

    // requests.cpp: what becomes of a request
    MHD_Result on_request(MHD_Connection* handle, const char* url, const char* method, const char* data,
                          size_t* size, void** transaction);
    MHD_Result begin(Connection& connection, Transaction& transaction);
    std::optional<Response> refusal(Connection& connection, Transaction& transaction);
    MHD_Result take_body(Transaction& transaction, const char* data, size_t* size);
    MHD_Result answer(Connection& connection, Transaction& transaction);
    MHD_Result call_handler(Connection& connection, Transaction& transaction);
    MHD_Result start_stream(Connection& connection, Transaction& transaction);
    MHD_Result send(Connection& connection, const Response& response);
    ssize_t read_stream(Connection& connection, EventQueue& queue, char* buffer, size_t size);
    void on_completed(MHD_Connection* handle, void** transaction);
    void on_connection(MHD_Connection* handle, void** context, MHD_ConnectionNotificationCode code);

    const ServerParts m_parts;
    Gate& m_gate;
    const std::shared_ptr<Mailbox> m_mailbox = std::make_shared<Mailbox>();
    const std::chrono::milliseconds m_tick;
    orvan_common::UniqueFd m_epoll;
    std::map<Id, std::unique_ptr<Connection>> m_connections;
    std::unique_ptr<Connection> m_entering; /**< the one that libmicrohttpd is about to add */
    Places m_places;
    Clock::time_point m_next_tick = Clock::now();
    bool m_accepting = true;
    bool m_ending = false;
    std::unique_ptr<MHD_Daemon, StopDaemon> m_daemon;
    std::thread m_thread;
};

} // namespace orvan_web

#endif

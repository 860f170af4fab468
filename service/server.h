#ifndef ORVAN_SERVICE_SERVER_H
#define ORVAN_SERVICE_SERVER_H

#include "client_session.h"

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace orvan_service {

struct ServerLimits {
    size_t max_clients = 256;
    /** Bytes of the longest message, its LF included: the parser's input buffer. */
    size_t max_message = 0x300000;
    SessionLimits session{};
};

/**
 * Accepts clients and runs a thread for each.
 *
 * A client above the limit is told `-ERR Too many clients;+OK` CR LF and closed.
 */
class Server {
public:
    Server(std::vector<UniqueFd> listeners, MessageSink& sink, const ServerLimits& limits);
    /** Ends without a limit of time; call end() before to have one. */
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /** Accepts until `stop` becomes readable. */
    void run(int stop);

    /**
     * Closes the door, lets every client's message at work finish, drops those not begun. Connections that
     * have to stay open (ClientSession::stays_open) are closed by the destructor.
     *
     * @return false when a client's message was still at work after `patience`; the object must not be
     *         destroyed then, the process has to end without.
     */
    bool end(std::chrono::milliseconds patience);

    /** Clients being served. Any thread. */
    size_t clients() const;
    /** Clients that wait for a turn. Any thread. */
    size_t waiting() const { return m_turns.waiting(); }

private:
    struct Client {
        Client(UniqueFd socket, Server& server);
        ClientSession session;
        std::thread thread;
    };
    using Clients = std::list<Client>;

    void accept_client(int listener);
    void serve(UniqueFd socket);
    void refuse(const UniqueFd& socket, const char* reason);
    void finished(Clients::iterator client);
    void reap();

    MessageSink& m_sink;
    const ServerLimits m_limits;
    std::vector<UniqueFd> m_listeners;
    UniqueFd m_reap; // an event descriptor: a client's thread is done
    LargeBufferPool m_pool;
    TurnQueue m_turns;

    mutable std::mutex m_mutex; // guards the first two lists
    std::condition_variable m_all_finished;
    Clients m_active;
    Clients m_finished;
    Clients m_left_open; // those whose thread is done, but whose connection stays open
    bool m_out_of_descriptors = false;
};

} // namespace orvan_service

#endif

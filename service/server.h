#ifndef ORVAN_SERVICE_SERVER_H
#define ORVAN_SERVICE_SERVER_H

#include <chrono>
#include <span>
#include <vector>

#include "attended.h"
#include "executor.h"
#include "hang_watch.h"
#include "message_memory.h"
#include "raw/raw_session.h"

namespace orvan_service {

struct ServerLimits {
    size_t max_clients = 256;
    /** Additional places for connections whose other end is a socket of this process; 0: they count like
     * others. */
    size_t own_places = 8;
    /** Bytes of the longest message, its LF included: the parser's input buffer. */
    size_t max_message = 0x300000;
    /** Total bytes of memory for long incoming messages of all clients. */
    size_t message_budget = 64u << 20;
    RawLimits raw{};
};

/**
 * Accepts clients of the raw socket on the calling thread, the attendant, and hands them to the executor. So
 * clients are accepted or refused while a command runs, and a hanging command is noticed.
 *
 * A client above the limit receives `-ERR Too many clients;+OK` CR LF and is closed. Connections whose other
 * end is a socket of this process, those of the front panel and of the temperature poll, have separate
 * places.
 */
class Server {
public:
    Server(std::vector<orvan_common::UniqueFd> listeners, MessageSink& sink, const ServerLimits& limits);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /**
     * Accepts until `stop` becomes readable, and checks `watch`, if not null, when it is due.
     *
     * @param others served as well
     */
    void run(int stop, HangWatch* watch = nullptr, std::span<Attended* const> others = {});

    /**
     * Lets the running message finish and drops those not begun; to be called after run(). Connections that
     * have to stay open (RawSession::stays_open) are closed by the destructor, and so are the listeners: the
     * temperature poll may have connected without being accepted yet, or be about to connect.
     *
     * @param watch checked until then
     * @return false if a message was still running after `patience`; then the object must not be destroyed,
     * and the process has to exit without that.
     */
    bool end(std::chrono::milliseconds patience, HangWatch* watch = nullptr);

    /** For sessions of other protocols. */
    Executor& executor() { return m_executor; }
    const Executor& executor() const { return m_executor; }

    /** Clients being served, including those of other protocols. Any thread. */
    size_t clients() const { return m_executor.sessions(); }

private:
    void accept_client(int listener);
    void serve(orvan_common::UniqueFd socket);
    bool has_place_for(int socket) const;
    void refuse(int socket, const char* reason);

    MessageSink& m_sink;
    const ServerLimits m_limits;
    std::vector<orvan_common::UniqueFd> m_listeners;
    bool m_out_of_descriptors = false;
    MessageMemory m_memory;
    Executor m_executor; // last: its thread uses the others
};

} // namespace orvan_service

#endif

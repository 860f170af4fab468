#ifndef ORVAN_SERVICE_VXI11_RPC_CHANNEL_H
#define ORVAN_SERVICE_VXI11_RPC_CHANNEL_H

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <netinet/in.h>
#include <poll.h>

#include "rpc_record_buffer.h"
#include <unique_fd.h>

namespace orvan_service {

/** Where the reply to a call goes, at once or later. */
struct RpcCaller {
    uint64_t connection; /**< never used again for another */
    in_addr_t address;   /**< the peer's, in network byte order */
    uint32_t xid;
};

/** The procedures of an RPC program. Called on the thread that serves the channel. */
class RpcProgram {
public:
    virtual ~RpcProgram() = default;

    enum class Outcome { kTaken, kNoProcedure, kBadArguments };
    /** kTaken: the reply has been sent or will be. */
    virtual Outcome call(const RpcCaller& caller, uint32_t procedure, std::string_view arguments) = 0;
    virtual void connection_ended(uint64_t) {}
    /** Whether the connection must not be closed to make room for another. */
    virtual bool needs(uint64_t) const { return false; }
};

struct RpcChannelLimits {
    size_t longest_record; /**< bytes */
    size_t connections;
};

/**
 * The server's end of an ONC RPC program, version 1 of it, on a TCP port (RFC 5531).
 *
 * This is not the library's transport, as that one waits up to two seconds for a peer that does not read its
 * replies, without end when there are no descriptors left, and keeps only the last call's number, so that a
 * late reply would answer a later call. Here nothing waits: replies are queued, and a connection with unread
 * replies is not read from. One thread.
 */
class RpcChannel {
public:
    using Clock = std::chrono::steady_clock;

    /** @param listener non-blocking; IPv4. @param procedures outlives this object */
    RpcChannel(orvan_common::UniqueFd listener, uint32_t program, const RpcChannelLimits& limits,
               RpcProgram& procedures);

    /** Appends the descriptors to wait for. */
    void add_descriptors(std::vector<pollfd>& waiting);
    /** @param waiting the appended ones, with their results */
    void serve(std::span<const pollfd> waiting);
    /** When to call add_descriptors() again at the latest. */
    Clock::time_point due() const { return m_pause_end; }

    /** Sends a procedure's results; dropped if the connection has ended. */
    void reply(const RpcCaller& caller, std::string_view results);

    uint16_t port() const;

    /** The caller's address and port; "?" if its connection has ended. */
    std::string peer(const RpcCaller& caller) const;

private:
    struct Connection {
        orvan_common::UniqueFd socket;
        in_addr_t address;
        RpcRecordBuffer records;
        std::string received; // and not yet taken
        std::string output;
        Clock::time_point last_call;
        bool over = false;
    };

    void accept_connection();
    void make_room();
    void receive(Connection& connection);
    void take_calls(uint64_t id, Connection& connection);
    void answer(uint64_t id, Connection& connection);
    void send(Connection& connection, std::string_view bytes);
    void flush(Connection& connection);

    const orvan_common::UniqueFd m_listener;
    const uint32_t m_number;
    const RpcChannelLimits m_limits;
    RpcProgram& m_procedures;
    Clock::time_point m_pause_end = Clock::time_point::max(); // of accepting
    std::map<uint64_t, Connection> m_connections;
    uint64_t m_last = 0;
    std::vector<uint64_t> m_waiting; // connections whose descriptors were appended
};

} // namespace orvan_service

#endif

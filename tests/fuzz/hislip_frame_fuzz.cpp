/**
 * A HiSLIP session's two channels.
 *
 * The input is a list of steps: a byte that chooses a channel or what happens, a byte of length, and that
 * many bytes for the channel. Between them the executor's and the attendant's parts have their turns. The
 * session answers or ends; everything that it sends is well formed; only what was sent as data reaches the
 * instrument, a message at a time.
 */
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <sys/socket.h>
#include <syslog.h>

#include "service/hislip/async_channel.h"
#include "service/hislip/connection.h"

using namespace orvan_service;
using namespace orvan_service::hislip;

namespace {

void require(bool held, const char* what)
{
    if (!held) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

/** Answers every message with its length. */
class CountingInstrument : public StandardInstrument {
public:
    std::string execute(int&, std::span<char> message) override
    {
        require(!message.empty() && message.back() == '\n', "a message ends with LF");
        return std::to_string(message.size()) + ";+OK\r\n";
    }
};

/** The client's end of a channel. */
class Peer {
public:
    explicit Peer(int socket) : m_socket(socket) {}

    void send(std::string_view bytes)
    {
        ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    /** Checks what has come, whole messages of the server's types, and returns whether one was of `type`. */
    bool check(Type type)
    {
        char bytes[4096];
        for (ssize_t count; (count = ::recv(m_socket.get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0;) {
            m_received.append(bytes, static_cast<size_t>(count));
        }
        bool seen = false;
        while (m_received.size() >= kHeaderSize) {
            const auto header = decode_header(m_received);
            require(header.has_value(), "the server's bytes are messages");
            require(header->type <= Type::kAsyncLockInfoResponse, "of a type that exists");
            if (m_received.size() < kHeaderSize + header->length) {
                break;
            }
            seen = seen || header->type == type;
            m_received.erase(0, kHeaderSize + static_cast<size_t>(header->length));
        }
        return seen;
    }

private:
    const orvan_common::UniqueFd m_socket;
    std::string m_received;
};

std::array<int, 2> make_pair()
{
    std::array<int, 2> sockets{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) == 0, "socketpair");
    return sockets;
}

/** Lets the executor serve the session as long as there is something to do. @return whether it lives */
bool serve(Connection& connection)
{
    bool readable = true;
    for (int turn = 0; turn < 10'000; ++turn) {
        switch (connection.advance(readable)) {
        case Session::Wait::kTurn:
            connection.execute();
            readable = false;
            break;
        case Session::Wait::kInput: {
            char byte;
            const ssize_t count = ::recv(connection.sync(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
            if (count < 0) {
                return true;
            }
            readable = true;
            break;
        }
        case Session::Wait::kOver:
            return false;
        default:
            return true;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ::setlogmask(LOG_MASK(LOG_EMERG));
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const auto take = [&rest](size_t count) {
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(taken.size());
        return taken;
    };
    const auto sync = make_pair();
    const auto async = make_pair();
    CountingInstrument instrument;
    Locks locks;
    Counters counters;
    const Environment environment{instrument, locks, counters, [] {}};
    Peer sync_peer(sync[1]);
    Peer async_peer(async[1]);
    const auto connection = std::make_shared<Connection>(environment, 1, orvan_common::UniqueFd(sync[0]),
                                                         orvan_common::UniqueFd(async[0]));
    AsyncChannel channel(environment, connection);

    bool alive = true;
    while (alive && !rest.empty()) {
        const auto step = static_cast<uint8_t>(take(1)[0]);
        const size_t length = rest.empty() ? 0 : static_cast<uint8_t>(take(1)[0]);
        // Most inputs would be no messages: here the prologue is right, and the length fits.
        std::string bytes(take(length));
        if ((step & 2) != 0 && bytes.size() > 6) {
            const std::string payload = bytes.substr(6);
            std::string frame;
            append_frame(frame,
                         {static_cast<Type>(bytes[0] & 31), static_cast<uint8_t>(bytes[1] & 3),
                          static_cast<uint32_t>(static_cast<uint8_t>(bytes[2]))},
                         payload);
            bytes = frame;
        }
        ((step & 1) != 0 ? async_peer : sync_peer).send(bytes);
        if ((step & 4) != 0 || rest.empty()) {
            if (!channel.serve()) {
                connection->close();
            }
            channel.retry(AsyncChannel::Clock::now());
            if (connection->clear_events() != 0) {
                connection->continue_clear();
            }
            alive = serve(*connection);
            sync_peer.check(Type::kData);
            async_peer.check(Type::kData);
        }
    }
    if (!alive) {
        connection->close();
    }
    return 0;
}

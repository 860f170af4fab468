#include "hislip_load.h"

#include <cstring>
#include <stdexcept>

#include <endian.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "load.h"

namespace orvan_bench {
namespace {

enum Type : uint8_t {
    kInitialize = 0,
    kData = 6,
    kDataEnd = 7,
    kClearComplete = 8,
    kClearAcknowledge = 9,
    kAsyncInitialize = 17,
    kAsyncClear = 19,
    kAsyncStatusQuery = 21,
    kAsyncStatusResponse = 22,
    kAsyncClearAcknowledge = 23,
};

struct Header {
    char prologue[2] = {'H', 'S'};
    uint8_t type;
    uint8_t control;
    uint32_t parameter;
    uint64_t length;
};
static_assert(sizeof(Header) == 16);

Header header(Type type, uint8_t control, uint32_t parameter, size_t length)
{
    return {{'H', 'S'}, type, control, htobe32(parameter), htobe64(length)};
}

void receive(int socket, void* data, size_t size)
{
    // Receiving nothing would wait for a byte.
    if (size > 0 && ::recv(socket, data, size, MSG_WAITALL) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("the server ended the session");
    }
}

void send_header(int socket, const Header& message)
{
    send_all(socket, reinterpret_cast<const char*>(&message), sizeof message);
}

/** Receives messages up to one of `type`. */
void receive_up_to(int socket, Type type)
{
    char payload[4096];
    Header message;
    do {
        receive(socket, &message, sizeof message);
        const uint64_t length = be64toh(message.length);
        if (length > sizeof payload) {
            throw std::runtime_error("the server sent another message");
        }
        receive(socket, payload, length);
    } while (message.type != type);
}

} // namespace

HislipLoad::HislipLoad(int port)
    : m_sync(connect_to("127.0.0.1", port)), m_async(connect_to("127.0.0.1", port))
{
    send_header(m_sync, header(kInitialize, 0, 0x0100'5858, 0));
    Header initialize;
    receive(m_sync, &initialize, sizeof initialize);
    send_header(m_async, header(kAsyncInitialize, 0, be32toh(initialize.parameter) & 0xFFFF, 0));
    Header async;
    receive(m_async, &async, sizeof async);
}

HislipLoad::~HislipLoad()
{
    ::close(m_sync);
    ::close(m_async);
}

void HislipLoad::write(const std::string& message) const
{
    Header data = header(kDataEnd, m_delivered ? 1 : 0, m_id, message.size());
    m_delivered = false;
    m_id += 2;
    // One packet for a short message, as VISA libraries do.
    iovec parts[2] = {{&data, sizeof data}, {const_cast<char*>(message.data()), message.size()}};
    const ssize_t sent = ::writev(m_sync, parts, 2);
    if (sent < static_cast<ssize_t>(sizeof data)) {
        throw std::runtime_error("the server does not take what is sent");
    }
    const size_t of_message = static_cast<size_t>(sent) - sizeof data;
    send_all(m_sync, message.data() + of_message, message.size() - of_message);
}

void HislipLoad::read() const
{
    char payload[4096];
    Header data;
    do {
        receive(m_sync, &data, sizeof data);
        const uint64_t length = be64toh(data.length);
        if ((data.type != kData && data.type != kDataEnd) || length > sizeof payload) {
            throw std::runtime_error("the server sent another message");
        }
        receive(m_sync, payload, length);
    } while (data.type != kDataEnd);
    m_delivered = true;
}

double HislipLoad::queries_per_second(const std::string& query, std::chrono::milliseconds time) const
{
    using Clock = std::chrono::steady_clock;
    uint64_t count = 0;
    const auto begin = Clock::now();
    while (Clock::now() - begin < time) {
        write(query);
        read();
        ++count;
    }
    return static_cast<double>(count) / std::chrono::duration<double>(Clock::now() - begin).count();
}

double HislipLoad::seconds_for(const std::string& message) const
{
    const auto begin = std::chrono::steady_clock::now();
    write(message);
    read();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double HislipLoad::seconds_for_poll() const
{
    const auto begin = std::chrono::steady_clock::now();
    send_header(m_async, header(kAsyncStatusQuery, m_delivered ? 1 : 0, m_id - 2, 0));
    m_delivered = false;
    receive_up_to(m_async, kAsyncStatusResponse);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double HislipLoad::seconds_for_clear() const
{
    const auto begin = std::chrono::steady_clock::now();
    send_header(m_async, header(kAsyncClear, 0, 0, 0));
    receive_up_to(m_async, kAsyncClearAcknowledge);
    send_header(m_sync, header(kClearComplete, 0, 0, 0));
    receive_up_to(m_sync, kClearAcknowledge);
    m_id = kFirstId;
    m_delivered = false;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace orvan_bench

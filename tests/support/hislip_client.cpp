#include "hislip_client.h"

#include <cerrno>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace orvan_test {
namespace {

constexpr size_t kHeader = 16;

uint64_t number(const std::string& bytes, size_t at, size_t size)
{
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value * 256 + static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

std::string big_endian(uint64_t value, size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = size; i > 0; --i, value /= 256) {
        bytes[i - 1] = static_cast<char>(value % 256);
    }
    return bytes;
}

HislipFrame expected(std::optional<HislipFrame> frame, int type)
{
    if (!frame || frame->type != type) {
        throw std::runtime_error("HiSLIP: expected a message of type " + std::to_string(type) + ", got " +
                                 (frame ? std::to_string(frame->type) + " " + frame->payload : "none"));
    }
    return *frame;
}

} // namespace

std::string HislipFrame::bytes() const
{
    return std::string("HS") + static_cast<char>(type) + static_cast<char>(control) +
           big_endian(parameter, 4) + big_endian(payload.size(), 8) + payload;
}

std::ostream& operator<<(std::ostream& out, const HislipFrame& frame)
{
    return out << "{type " << frame.type << ", control " << frame.control << ", parameter 0x" << std::hex
               << frame.parameter << std::dec << ", \"" << frame.payload.substr(0, 200) << "\"}";
}

HislipChannel::HislipChannel(int port, const std::string& from)
    : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (!from.empty()) {
        ::inet_pton(AF_INET, from.c_str(), &address.sin_addr);
        ::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("HiSLIP: cannot connect");
    }
    const int on = 1;
    ::setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void HislipChannel::send_bytes(const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(m_socket.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return; // the test notices by the answer
        }
        sent += count > 0 ? static_cast<size_t>(count) : 0;
    }
    m_sent += bytes;
}

bool HislipChannel::has_input(std::chrono::milliseconds bound) const
{
    pollfd socket{m_socket.get(), POLLIN, 0};
    return ::poll(&socket, 1, static_cast<int>(bound.count())) > 0;
}

bool HislipChannel::fill(size_t size, std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (m_buffer.size() < size) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !has_input(left)) {
            return false;
        }
        char bytes[4096];
        const ssize_t count = ::recv(m_socket.get(), bytes, sizeof bytes, 0);
        if (count <= 0) {
            return false;
        }
        m_buffer.append(bytes, static_cast<size_t>(count));
        m_received.append(bytes, static_cast<size_t>(count));
    }
    return true;
}

std::optional<HislipFrame> HislipChannel::receive(std::chrono::milliseconds bound)
{
    if (!fill(kHeader, bound) || m_buffer.compare(0, 2, "HS") != 0) {
        return std::nullopt;
    }
    const auto length = static_cast<size_t>(number(m_buffer, 8, 8));
    if (!fill(kHeader + length, bound)) {
        return std::nullopt;
    }
    HislipFrame frame{static_cast<int>(number(m_buffer, 2, 1)), static_cast<int>(number(m_buffer, 3, 1)),
                      static_cast<uint32_t>(number(m_buffer, 4, 4)), m_buffer.substr(kHeader, length)};
    m_buffer.erase(0, kHeader + length);
    return frame;
}

bool HislipChannel::sees_end(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    char bytes[4096];
    while (std::chrono::steady_clock::now() < deadline) {
        if (has_input(std::chrono::milliseconds(100)) &&
            ::recv(m_socket.get(), bytes, sizeof bytes, 0) <= 0) {
            return true;
        }
    }
    return false;
}

HislipClient::HislipClient(int port, const std::string& sub_address, const std::string& from)
    : m_sync(port, from), m_async((
                                      [&] {
                                          m_sync.send({0, 0, 0x0200'5858, sub_address});
                                          const HislipFrame response = expected(m_sync.receive(), 1);
                                          m_session = static_cast<uint16_t>(response.parameter);
                                          m_version = static_cast<uint16_t>(response.parameter >> 16);
                                      }(),
                                      port),
                                  from)
{
    m_async.send({17, 0, m_session});
    expected(m_async.receive(), 18);
}

uint32_t HislipClient::write(const std::string& message)
{
    m_sync.send({7, m_delivered ? 1 : 0, m_id, message});
    m_delivered = false;
    m_id += 2;
    return m_id - 2;
}

std::string HislipClient::read(std::chrono::milliseconds bound)
{
    std::string response;
    while (const auto frame = m_sync.receive(bound)) {
        if (frame->type == 13) { // Interrupted: what came before belongs to an older message
            response.clear();
            continue;
        }
        if ((frame->type != 6 && frame->type != 7) || frame->parameter != last_id()) {
            continue;
        }
        response += frame->payload;
        if (frame->type == 7) {
            m_delivered = true;
            return response;
        }
    }
    return "none";
}

std::string HislipClient::ask(const std::string& message)
{
    write(message);
    return read();
}

HislipFrame HislipClient::ask_async(const HislipFrame& frame)
{
    m_async.send(frame);
    const auto answer = m_async.receive();
    return answer ? *answer : HislipFrame{-1};
}

int HislipClient::poll()
{
    m_async.send({21, m_delivered ? 1 : 0, last_id()});
    m_delivered = false;
    while (const auto answer = m_async.receive()) {
        if (answer->type == 22) {
            return answer->control;
        }
    }
    return -1;
}

int HislipClient::clear(int features)
{
    m_async.send({19});
    while (const auto answer = m_async.receive()) {
        if (answer->type == 23) {
            break;
        }
    }
    m_sync.send({8, features});
    while (const auto answer = m_sync.receive()) {
        if (answer->type == 9) {
            m_id = kFirstId;
            m_delivered = false;
            return answer->control;
        }
    }
    return -1;
}

} // namespace orvan_test

#include "vxi11_load.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <stdexcept>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "load.h"

namespace orvan_bench {
namespace {

constexpr uint32_t kCoreProgram = 0x0607AF;
enum Procedure : uint32_t { kCreateLink = 10, kDeviceWrite = 11, kDeviceRead = 12 };
constexpr uint32_t kEnd = 8;          // flag of device_write
constexpr uint32_t kReadToItsEnd = 4; // reason of device_read
constexpr uint32_t kTimeout = 20'000;
constexpr uint32_t kLastFragment = 0x8000'0000; // of an RPC record (RFC 5531, 11)

std::string xdr(std::initializer_list<uint32_t> words)
{
    std::string bytes;
    for (const uint32_t word : words) {
        const uint32_t big_endian = htonl(word);
        bytes.append(reinterpret_cast<const char*>(&big_endian), sizeof big_endian);
    }
    return bytes;
}

std::string xdr(const std::string& data)
{
    return xdr({static_cast<uint32_t>(data.size())}) + data + std::string((4 - data.size() % 4) % 4, '\0');
}

uint32_t word_at(const char* bytes, size_t word)
{
    uint32_t value;
    std::memcpy(&value, bytes + 4 * word, sizeof value);
    return ntohl(value);
}

} // namespace

Vxi11Load::Vxi11Load(int port) : m_socket(connect_to("127.0.0.1", port))
{
    m_link = call(kCreateLink, xdr({1, 0, 0}) + xdr("inst0"));
}

Vxi11Load::~Vxi11Load()
{
    ::close(m_socket);
}

/** Returns the word of the result that follows its error code. */
uint32_t Vxi11Load::call(uint32_t procedure, const std::string& arguments)
{
    // Call, RPC version, program, its version, procedure; no credentials, no verifier.
    const std::string message = xdr({++m_call, 0, 2, kCoreProgram, 1, procedure, 0, 0, 0, 0}) + arguments;
    const std::string record = xdr({kLastFragment | static_cast<uint32_t>(message.size())}) + message;
    send_all(m_socket, record.data(), record.size());

    char reply[4096];
    size_t used = 0;
    size_t size = 4;
    do {
        const ssize_t received = ::recv(m_socket, reply + used, sizeof reply - used, 0);
        if (received <= 0) {
            throw std::runtime_error("the server ended the connection");
        }
        used += static_cast<size_t>(received);
        if (used >= 4) {
            size = 4 + (word_at(reply, 0) & ~kLastFragment);
        }
    } while (used < size);
    // Record mark, number, reply, accepted, no verifier, success, and the result's error code.
    constexpr size_t kHeader = 8;
    if (used < 4 * (kHeader + 1) || word_at(reply, 1) != m_call ||
        std::any_of(reply + 12, reply + 4 * kHeader, [](char byte) { return byte != 0; })) {
        throw std::runtime_error("the server refused a call");
    }
    return word_at(reply, kHeader);
}

double Vxi11Load::queries_per_second(const std::string& query, std::chrono::milliseconds time)
{
    using Clock = std::chrono::steady_clock;
    const std::string write = xdr({m_link, kTimeout, 0, kEnd}) + xdr(query);
    const std::string read = xdr({m_link, 4096, kTimeout, 0, 0, 0});
    uint64_t count = 0;
    const auto begin = Clock::now();
    while (Clock::now() - begin < time) {
        call(kDeviceWrite, write);
        if ((call(kDeviceRead, read) & kReadToItsEnd) == 0) {
            throw std::runtime_error("a response is incomplete");
        }
        ++count;
    }
    return static_cast<double>(count) / std::chrono::duration<double>(Clock::now() - begin).count();
}

} // namespace orvan_bench

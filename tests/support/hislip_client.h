/**
 * A HiSLIP client that shows every byte of the protocol (IVI-6.1), written independently of the server.
 */
#ifndef ORVAN_TESTS_SUPPORT_HISLIP_CLIENT_H
#define ORVAN_TESTS_SUPPORT_HISLIP_CLIENT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include <unique_fd.h>

namespace orvan_test {

struct HislipFrame {
    int type = 0;
    int control = 0;
    uint32_t parameter = 0;
    std::string payload = {};

    std::string bytes() const;
    bool operator==(const HislipFrame&) const = default;
};

std::ostream& operator<<(std::ostream& out, const HislipFrame& frame);

/** One connection of frames. Receives with a bound, so that a missing answer fails and does not hang. */
class HislipChannel {
public:
    explicit HislipChannel(int port, const std::string& from = {});

    int fd() const { return m_socket.get(); }
    void send(const HislipFrame& frame) { send_bytes(frame.bytes()); }
    void send_bytes(const std::string& bytes);
    /** Empty when the peer has closed, or after `bound`. */
    std::optional<HislipFrame> receive(std::chrono::milliseconds bound = std::chrono::seconds(20));
    /** Something has arrived. */
    bool has_input(std::chrono::milliseconds bound) const;
    /** The server closes within `bound`, with or without a reset; what it sends before is dropped. */
    bool sees_end(std::chrono::milliseconds bound = std::chrono::seconds(20));
    void close() { m_socket.reset(); }
    /** Everything received so far, for a recording. */
    const std::string& received() const { return m_received; }
    const std::string& sent() const { return m_sent; }

private:
    bool fill(size_t size, std::chrono::milliseconds bound);

    orvan_common::UniqueFd m_socket;
    std::string m_buffer;
    std::string m_received;
    std::string m_sent;
};

/** A session as a VISA library has it: both channels, message ids, RMT-delivered. */
class HislipClient {
public:
    static constexpr uint32_t kFirstId = 0xFFFF'FF00;

    explicit HislipClient(int port, const std::string& sub_address = "hislip0", const std::string& from = {});

    HislipChannel& sync() { return m_sync; }
    HislipChannel& async() { return m_async; }
    uint16_t session() const { return m_session; }
    uint16_t version() const { return m_version; }

    /** Sends a whole message. @return its id */
    uint32_t write(const std::string& message);
    /** The response to the last message, without those to older ones; "none" if none arrives in time. */
    std::string read(std::chrono::milliseconds bound = std::chrono::seconds(20));
    std::string ask(const std::string& message);

    /** Sends on the asynchronous channel and returns the answer. */
    HislipFrame ask_async(const HislipFrame& frame);
    /** The status byte, by AsyncStatusQuery. */
    int poll();
    /** A whole device clear. @return the control code of DeviceClearAcknowledge */
    int clear(int features = 0);
    uint32_t last_id() const { return m_id - 2; }
    bool delivered() const { return m_delivered; }

private:
    HislipChannel m_sync;
    uint16_t m_session = 0;
    uint16_t m_version = 0;
    HislipChannel m_async;
    uint32_t m_id = kFirstId;
    bool m_delivered = false; // to be reported with the next message
};

} // namespace orvan_test

#endif

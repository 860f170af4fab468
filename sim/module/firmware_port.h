/**
 * The module's firmware port (UDP): receives a stream of frames, acknowledges each, and after the last one
 * sends progress frames of the programming and a final frame, all to the sender.
 *
 * | Answer          | block             | size | stateMode | info       | data                         |
 * |-----------------|-------------------|------|-----------|------------|------------------------------|
 * | acknowledgement | expected next     | 0    | as it was | as it was  | none                         |
 * | progress        | percent, 10 a time| 0    | 0         | 0          | none                         |
 * | final           | 0                 | EOD  | 0xFFFF    | 0 or error | what became of it, with a NUL|
 *
 * `opcode` and `mac` are those of the frame answered. The errors: IF_ERROR_INV_LENGTH for an image
 * that is empty or has gaps, IF_ERROR_INV_BIN_HEADER_FORMAT for one that is refused.
 */
#ifndef ORVAN_SIM_MODULE_FIRMWARE_PORT_H
#define ORVAN_SIM_MODULE_FIRMWARE_PORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <netinet/in.h>

#include "control/event_loop.h"
#include "firmware.h"
#include "firmware_stream.h"
#include "maintenance_frame.h"
#include "unique_fd.h"

namespace sim_module {

class FirmwarePort : private sim_control::EventSink {
public:
    /** Between two progress frames. */
    static constexpr std::chrono::milliseconds kBurnStep{20};

    /**
     * @param address dotted IPv4
     * @param port    0 for a free one
     * @throws std::system_error when the address cannot be bound
     */
    FirmwarePort(sim_control::EventLoop& loop, const std::string& address, uint16_t port, Firmware& firmware);
    ~FirmwarePort() override;

    FirmwarePort(const FirmwarePort&) = delete;
    FirmwarePort& operator=(const FirmwarePort&) = delete;

    uint16_t port() const { return m_port; }

    /** While away no frame is answered; a stream in progress is dropped. */
    void set_away(bool away);

private:
    using Frame = HaldeElec::Orvan::HALDE_PACKET;

    void on_ready(short revents) override;
    void answer(const Frame& frame, size_t length);
    void acknowledge();
    void burn(uint16_t percent);
    void finish(uint32_t error, std::string_view text);
    Frame frame_back() const;

    sim_control::EventLoop& m_loop;
    Firmware& m_firmware;
    orvan_common::UniqueFd m_socket;
    uint16_t m_port;
    FirmwareStream m_stream;
    Frame m_frame{};      // the current one; after a stream, its last
    sockaddr_in m_peer{}; // where it came from
    sim_control::EventLoop::TimerId m_burning = 0;
    bool m_away = false;
};

} // namespace sim_module

#endif

#include "firmware_port.h"

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <endian.h>
#include <sys/socket.h>

#include "socket_name.h"

using orvan_common::UniqueFd;

namespace sim_module {

using namespace HaldeElec::Orvan;

namespace {

constexpr uint16_t kFinal = 0xFFFF; // stateMode

UniqueFd udp_socket()
{
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        throw_errno("socket");
    }
    return fd;
}

} // namespace

FirmwarePort::FirmwarePort(sim_control::EventLoop& loop, const std::string& address, uint16_t port,
                           Firmware& firmware)
    : m_loop(loop), m_firmware(firmware), m_socket(udp_socket()),
      m_port(bind_socket(m_socket.get(), address, port))
{
    m_loop.watch(m_socket.get(), POLLIN, *this);
}

FirmwarePort::~FirmwarePort()
{
    m_loop.cancel(m_burning);
    m_loop.unwatch(m_socket.get());
}

void FirmwarePort::set_away(bool away)
{
    m_away = away;
    m_loop.cancel(m_burning);
    m_stream.reset();
}

void FirmwarePort::on_ready(short)
{
    Frame frame{};
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const ssize_t count =
        ::recvfrom(m_socket.get(), &frame, sizeof frame, 0, reinterpret_cast<sockaddr*>(&peer), &size);
    if (count < 0 || m_away || !m_firmware.takes_block(ntohs(frame.block))) {
        return;
    }
    const auto length = static_cast<size_t>(count);
    const FirmwareStream::Step step = m_stream.take(frame, length);
    if (step == FirmwareStream::Step::kIgnored) {
        return;
    }
    if (!m_stream.has_ended()) {
        m_loop.cancel(m_burning);
    }
    m_frame = frame;
    m_peer = peer;
    acknowledge();
    if (step == FirmwareStream::Step::kIncomplete) {
        finish(IF_ERROR_INV_LENGTH, "image incomplete");
    } else if (step == FirmwareStream::Step::kComplete && m_firmware.refuses()) {
        finish(IF_ERROR_INV_BIN_HEADER_FORMAT, "image refused");
    } else if (step == FirmwareStream::Step::kComplete && m_firmware.burns()) {
        burn(10);
    }
}

void FirmwarePort::answer(const Frame& frame, size_t length)
{
    const auto send = [this, frame, length, peer = m_peer] {
        // A datagram that cannot be sent is lost, as on any network.
        if (!m_away) {
            ::sendto(m_socket.get(), &frame, length, 0, reinterpret_cast<const sockaddr*>(&peer),
                     sizeof peer);
        }
    };
    if (m_firmware.lateness().count() > 0) {
        m_loop.after(m_firmware.lateness(), send);
    } else {
        send();
    }
}

FirmwarePort::Frame FirmwarePort::frame_back() const
{
    Frame frame{};
    std::memcpy(frame.opcode, m_frame.opcode, sizeof frame.opcode);
    std::memcpy(frame.mac, m_frame.mac, sizeof frame.mac);
    return frame;
}

void FirmwarePort::acknowledge()
{
    Frame frame = m_frame;
    frame.block = htons(m_stream.expected_block());
    frame.size = 0;
    answer(frame, ACK_ONLY_LEN);
}

void FirmwarePort::burn(uint16_t percent)
{
    m_burning = m_loop.after(kBurnStep, [this, percent] {
        Frame frame = frame_back();
        frame.block = htons(percent);
        answer(frame, FRMHEADERLEN);
        if (percent < 100) {
            burn(static_cast<uint16_t>(percent + 10));
            return;
        }
        m_firmware.store(ImageKind::kProgram, m_stream.image());
        finish(0, "image stored");
    });
}

void FirmwarePort::finish(uint32_t error, std::string_view text)
{
    Frame frame = frame_back();
    frame.size = htons(EOD);
    frame.stateMode = kFinal;
    frame.info = htole32(error);
    std::copy(text.begin(), text.end(), frame.data);
    answer(frame, FRMHEADERLEN + text.size() + 1);
}

} // namespace sim_module

#include "firmware_stream.h"

#include <arpa/inet.h>

namespace sim_module {

using namespace HaldeElec::Orvan;

void FirmwareStream::reset()
{
    m_image.clear();
    m_next = 1;
    m_ended = false;
}

FirmwareStream::Step FirmwareStream::end(uint16_t block)
{
    if (m_ended) {
        return Step::kTaken; // repeated
    }
    m_ended = true;
    if (block != m_next || m_image.empty()) {
        return Step::kIncomplete;
    }
    ++m_next;
    return Step::kComplete;
}

FirmwareStream::Step FirmwareStream::take(const HALDE_PACKET& frame, size_t length)
{
    if (length < FRMHEADERLEN || std::string_view(frame.opcode, kOpcodeLength) != kOpcodeModule) {
        return Step::kIgnored;
    }
    const uint16_t block = ntohs(frame.block);
    const uint16_t size = ntohs(frame.size);
    if (size == EOD) {
        return end(block);
    }
    if (block <= 1) {
        reset();
    }
    if (block == m_next && !m_ended && size <= length - FRMHEADERLEN) {
        m_image.append(reinterpret_cast<const char*>(frame.data), size);
        ++m_next;
    }
    return Step::kTaken;
}

} // namespace sim_module

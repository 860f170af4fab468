#include "module_stream.h"

#include <cstdio>
#include <utility>

#include "failure.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

constexpr uint16_t kFinalState = 0xFFFF;

// However many frames they send.
constexpr auto kLongestBurning = std::chrono::minutes(30);

// clang-format off
constexpr struct {
    uint32_t code;
    const char* text;
} kErrors[] = {
    {LXI_ERROR_TIMEOUT,              "a module did not answer in time"},
    {IF_ERROR_INV_LENGTH,            "wrong length, or blocks are missing"},
    {IF_ERROR_INV_PARAMETER,         "wrong parameter"},
    {IF_ERROR_INV_BIN_HEADER_FORMAT, "not an image for this module"},
    {IF_ERROR_CMD_QUEUE_OVERFLOW,    "too many commands at once"},
};
// clang-format on

bool is_error(const HALDE_PACKET& frame)
{
    return size_of(frame) == EOD && state_of(frame) == kFinalState && info_of(frame) != 0;
}

} // namespace

ModuleStream::ModuleStream(Link& link, const hwaddr_t& mac, std::string_view image, size_t channels,
                           const StreamTiming& timing, std::function<void(size_t)> progress,
                           std::function<void(size_t, std::optional<uint32_t>)> burning)
    : m_link(link), m_mac(mac), m_blocks(image), m_channels(channels), m_timing(timing),
      m_round_trip(timing.block), m_progress(std::move(progress)), m_burning(std::move(burning))
{
}

StreamResult ModuleStream::run()
{
    Received last;
    bool burning = false;
    for (size_t block = 1; block <= m_blocks.end(); ++block) {
        m_progress(m_blocks.bytes_before(block));
        burning = deliver(block, last);
    }
    return follow_burning(burning ? std::optional(last) : std::nullopt);
}

// True when, in the place of the end's acknowledgement, the first final frame of a module has come.
bool ModuleStream::deliver(size_t block, Received& received)
{
    const bool is_end = block == m_blocks.end();
    HALDE_PACKET frame = make_frame(kOpcodeModule, m_mac);
    m_blocks.put(block, frame);
    const Clock::time_point give_up =
        Clock::now() + (is_end ? 2 * m_timing.end_wait : m_timing.block.give_up);
    for (int sent = 1;; ++sent, ++m_resent) {
        const Clock::time_point sent_at = Clock::now();
        m_end_sent = m_end_sent || is_end;
        // Complete, as the instrument passes its whole buffer to the modules.
        m_link.send(wire_bytes(frame, FRMDATALEN));
        const auto wait = is_end ? std::chrono::microseconds(m_timing.end_wait) : m_round_trip.wait();
        while (m_link.receive(received, sent_at + wait)) {
            if (is_error(received.frame) && (!is_end || info_of(received.frame) == LXI_ERROR_TIMEOUT)) {
                throw Failure(kExitRefused, "the instrument abandoned the stream at block " +
                                                std::to_string(block) + ": " +
                                                error_text(info_of(received.frame)));
            }
            if (is_end && size_of(received.frame) == EOD && state_of(received.frame) == kFinalState) {
                return true;
            }
            if (acknowledges(received.frame, block)) {
                if (sent == 1) {
                    m_round_trip.measured(
                        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - sent_at));
                }
                return false;
            }
        }
        m_round_trip.missed();
        if (Clock::now() >= give_up) {
            throw Failure(is_end ? kExitUnconfirmed : kExitNoAnswer,
                          (is_end
                               ? "the whole image was sent, but its end was not acknowledged"
                               : "the instrument has stopped answering at block " + std::to_string(block)) +
                              m_link.problem());
        }
    }
}

bool ModuleStream::acknowledges(const HALDE_PACKET& frame, size_t block)
{
    const auto above = static_cast<uint16_t>(block_of(frame) - block);
    if (!m_above) {
        m_above = above;
    }
    // The next block or the same; modules that number differently are trusted.
    return above == *m_above || *m_above > 1;
}

StreamResult ModuleStream::follow_burning(std::optional<Received> first)
{
    StreamResult result;
    bool silent_module = false;
    const Clock::time_point end = Clock::now() + kLongestBurning;
    for (;;) {
        Received received;
        if (first) {
            received = *std::exchange(first, std::nullopt);
        } else if (Clock::now() > end || !m_link.receive(received, Clock::now() + m_timing.burn_silence)) {
            return result;
        }
        const HALDE_PACKET& frame = received.frame;
        const bool is_final = size_of(frame) == EOD;
        if (result.modules.size() == m_channels) {
            if (is_final && info_of(frame) != 0) {
                // One final frame was duplicated, so this is still a module's.
                result.modules.back() = info_of(frame);
                m_burning(m_channels, info_of(frame));
                if (info_of(frame) == LXI_ERROR_TIMEOUT) {
                    return result;
                }
            } else if (is_final && state_of(frame) == kFinalState) {
                result.confirmed = true;
                return result;
            }
            continue;
        }
        const size_t channel = result.modules.size() + 1;
        if (!is_final) {
            m_burning(channel, std::nullopt);
            continue;
        }
        result.modules.push_back(info_of(frame));
        silent_module = silent_module || info_of(frame) == LXI_ERROR_TIMEOUT;
        m_burning(channel, info_of(frame));
        // Then there is no final frame of the whole download.
        if (silent_module && channel == m_channels) {
            return result;
        }
    }
}

std::string error_text(uint32_t code)
{
    char number[16];
    std::snprintf(number, sizeof number, " (0x%08X)", code);
    for (const auto& error : kErrors) {
        if (error.code == code) {
            return error.text + std::string(number);
        }
    }
    return "unknown error" + std::string(number);
}

} // namespace orvan_maint

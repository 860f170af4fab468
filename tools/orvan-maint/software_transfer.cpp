#include "software_transfer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "exchange.h"
#include "failure.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

constexpr std::string_view kOpcodeBlock = kOpcodeIdentify;

// Consecutive acknowledgements that may be lost; after more, the transfer restarts.
constexpr size_t kMostAhead = 8;

constexpr int kMostRestarts = 20;

// Instead of a package's first block it results in a file that cannot be unpacked.
constexpr uint8_t kSpoilt = 0xA5;

} // namespace

SoftwareTransfer::SoftwareTransfer(Link& link, const hwaddr_t& mac, std::string_view package,
                                   const Timing& timing, std::function<void(size_t)> progress)
    : m_link(link), m_mac(mac), m_blocks(package), m_timing(timing), m_round_trip(timing),
      m_progress(std::move(progress))
{
}

void SoftwareTransfer::run()
{
    m_last_advance = Clock::now();
    size_t block = open();
    while (block <= m_blocks.end()) {
        m_last_advance = Clock::now();
        m_progress(m_blocks.bytes_before(block));
        block = deliver(block);
    }
}

// The block to begin with. A header that is resent to an instrument which has it is not acknowledged and
// takes it to block 1; so block 1 shows whether the header or its acknowledgement was lost.
size_t SoftwareTransfer::open()
{
    for (;; ++m_resent) {
        Received received;
        send_header();
        for (const auto deadline = Clock::now() + m_round_trip.wait(); m_link.receive(received, deadline);) {
            if (acknowledges(received.frame) && block_of(received.frame) == 1) {
                return 1;
            }
        }
        send_block(1);
        for (const auto deadline = Clock::now() + m_round_trip.wait(); m_link.receive(received, deadline);) {
            if (acknowledges(received.frame) && block_of(received.frame) == 2) {
                return 2;
            }
        }
        m_round_trip.missed();
        check_patience();
    }
}

// The block to continue with.
size_t SoftwareTransfer::deliver(size_t block)
{
    size_t highest = block;
    bool first_sent = false;
    for (size_t resends = 0;; ++resends, ++m_resent) {
        const Clock::time_point sent_at = Clock::now();
        if (resends != 0 && block == 1) {
            send_rewind();
        }
        send_block(block);
        if (resends != 0 && block != 1) {
            const size_t companion = companion_of(block, resends);
            send_block(companion);
            highest = std::max(highest, companion);
            first_sent = first_sent || companion == 1;
        }
        Received received;
        for (const auto deadline = sent_at + m_round_trip.wait(); m_link.receive(received, deadline);) {
            const uint16_t number = block_of(received.frame);
            if (!acknowledges(received.frame)) {
                if (size_of(received.frame) != 0 && number == block) {
                    return left_at(block, info_of(received.frame));
                }
                continue;
            }
            const size_t taken = static_cast<uint16_t>(number - block); // 0 for none of these
            if (taken >= 1 && taken <= highest - block + 1) {
                if (resends == 0) {
                    m_round_trip.measured(
                        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - sent_at));
                }
                return block + taken;
            }
            if (first_sent && number == 2) {
                count_restart();
                return 2;
            }
        }
        m_round_trip.missed();
        check_patience();
        if (block != 1 && Clock::now() - m_last_advance >= m_timing.give_up / 2) {
            count_restart();
            send_rewind();
            return 1;
        }
    }
}

// Whether it acknowledges a frame sent from here; replies have the `info` of the request.
bool SoftwareTransfer::acknowledges(const HALDE_PACKET& frame)
{
    if (size_of(frame) != 0) {
        return false;
    }
    const uint32_t info = info_of(frame);
    const bool header = info == 0 && has_opcode(frame, kOpcodeSoftware) && block_of(frame) == 1;
    const bool block =
        info != 0 && info <= m_sent.size() && block_of(frame) == static_cast<uint16_t>(m_sent[info - 1] + 1);
    m_damaged = m_damaged || !(header || block);
    return header || block;
}

// The block to send along with a resent one. Either the block was lost, or its acknowledgement; then the
// instrument only answers the next block, and if that acknowledgement was lost too, the one after. Or the
// instrument is back at block 1. Few at a time, as it has room for two or three.
size_t SoftwareTransfer::companion_of(size_t block, size_t resends) const
{
    // 1 ahead, first | 2, 1 ahead, first | 3, 2, 1 ahead, first | ...
    size_t round = 1;
    while (resends > round + 1) {
        resends -= round + 1;
        round = std::min(round + 1, kMostAhead);
    }
    const size_t ahead = round + 1 - resends;
    return ahead != 0 && block + ahead <= m_blocks.end() ? block + ahead : 1;
}

// It identifies itself instead of acknowledging: it is not in a transfer. That is expected if it answers a
// frame sent after the end.
size_t SoftwareTransfer::left_at(size_t block, uint32_t answered)
{
    if (end_sent() && answered >= m_end_sequence) {
        return m_blocks.end() + 1;
    }
    if (block == 1) {
        count_restart();
        return open();
    }
    throw Failure(kExitRefused, "the instrument has left the transfer at block " + std::to_string(block) +
                                    "; it may have been restarted; start again");
}

void SoftwareTransfer::send_header()
{
    m_link.send(wire_bytes(make_frame(kOpcodeSoftware, m_mac), 0));
}

void SoftwareTransfer::send_rewind()
{
    m_link.send(wire_bytes(make_frame(kOpcodeBlock, m_mac), 0));
}

void SoftwareTransfer::send_block(size_t block)
{
    HALDE_PACKET frame = make_frame(kOpcodeBlock, m_mac);
    const size_t length = m_blocks.put(block, frame);
    m_sent.push_back(block);
    put_info(frame, static_cast<uint32_t>(m_sent.size()));
    if (block == m_blocks.end() && !end_sent()) {
        m_end_sequence = info_of(frame);
    }
    m_link.send(wire_bytes(frame, length));
}

void SoftwareTransfer::count_restart()
{
    if (++m_restarts > kMostRestarts) {
        throw Failure(kExitNoAnswer, "the transfer is taken back to its start repeatedly; let no other "
                                     "PC search for instruments meanwhile, and start again");
    }
}

void SoftwareTransfer::check_patience()
{
    if (Clock::now() - m_last_advance < m_timing.give_up) {
        return;
    }
    if (end_sent()) {
        throw Failure(kExitUnconfirmed,
                      "the whole package was sent, but its end was not acknowledged" + m_link.problem());
    }
    throw Failure(kExitNoAnswer, "the instrument has stopped answering" + m_link.problem() +
                                     "; start again; the package is sent from the beginning");
}

bool end_broken_transfer(Link& link, const hwaddr_t& mac, std::chrono::milliseconds time)
{
    HALDE_PACKET frame = make_frame(kOpcodeBlock, mac);
    const auto deadline = Clock::now() + time;
    do {
        link.send(wire_bytes(frame, 0));
        HALDE_PACKET spoilt = frame;
        put_block(spoilt, 1);
        put_size(spoilt, FRMDATALEN);
        std::memset(spoilt.data, kSpoilt, sizeof spoilt.data);
        link.send(wire_bytes(spoilt, FRMDATALEN));
        HALDE_PACKET end = frame;
        put_block(end, 2);
        put_size(end, EOD);
        link.send(wire_bytes(end, 0));
        // An identification, too, takes it to block 1, and is answered when it is not in a transfer.
        if (ask(link, frame, 0, time / 4)) {
            return true;
        }
    } while (Clock::now() < deadline);
    return false;
}

} // namespace orvan_maint

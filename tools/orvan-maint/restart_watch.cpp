#include "restart_watch.h"

#include <algorithm>
#include <cstddef>
#include <random>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

// Up to the address, without which an instrument ignores it.
constexpr size_t kShortLength = offsetof(HALDE_PACKET, stateMode);

// As one of them may be lost.
constexpr int kMarks = 3;

// Neither a request's tag, which count from 1, nor the zero of a fresh buffer.
uint32_t random_mark()
{
    return std::random_device()() | 0x80000000;
}

} // namespace

RestartWatch::RestartWatch(Link& link, const hwaddr_t& mac, const Rows& before, const WatchTiming& timing)
    : m_link(link), m_mac(mac), m_rows(before), m_timing(timing), m_mark(random_mark())
{
}

void RestartWatch::prepare()
{
    // Another PC's request may come in between.
    for (int tries = 0; tries < 3 && !m_mark_stays; ++tries) {
        send_mark();
        send_short();
        int answers = 0; // to the mark itself, and to the short one
        Received received;
        const auto deadline = Clock::now() + m_timing.between;
        while (answers < 2 && m_link.receive(received, deadline)) {
            answers += is_answer(received) ? 1 : 0;
        }
        m_mark_stays = answers == 2 && info_of(received.frame) == m_mark;
    }
}

void RestartWatch::mark()
{
    for (int i = 0; i < kMarks; ++i) {
        send_mark();
    }
}

Aftermath RestartWatch::follow(Clock::time_point deadline, const std::function<void()>& answers)
{
    const std::string version = text_of(m_rows, FLASH_CSCIVER);
    bool certain = m_mark_stays;
    bool missed = false; // a request since the last answer
    bool zeroed = false; // another PC's request left a zero, like that of a fresh buffer
    bool answered = false;
    auto settled = Clock::time_point::max();
    while (Clock::now() < deadline && (!answered || Clock::now() < settled)) {
        send_short();
        answered = false;
        Received received;
        for (const auto next = std::min(deadline, Clock::now() + m_timing.between);
             m_link.receive(received, next);) {
            if (!is_answer(received)) {
                continue;
            }
            answered = true;
            m_rows = read_rows(received.frame, received.length);
            const uint32_t info = info_of(received.frame);
            if (text_of(m_rows, FLASH_CSCIVER) != version ||
                (m_mark_stays && info == 0 && missed && !zeroed)) {
                return Aftermath::kRestarted;
            }
            missed = false;
            zeroed = info == 0;
            certain = certain && info == m_mark;
            if (settled == Clock::time_point::max()) {
                settled = Clock::now() + m_timing.settled;
                answers();
            }
        }
        missed = missed || !answered;
    }
    const bool never = settled == Clock::time_point::max();
    if (!answered) {
        return never ? Aftermath::kSilent : Aftermath::kWentAway;
    }
    return certain && Clock::now() >= settled ? Aftermath::kStayed : Aftermath::kUnknown;
}

void RestartWatch::send_mark()
{
    HALDE_PACKET frame = make_frame(kOpcodeIdentify, m_mac);
    put_info(frame, m_mark);
    m_link.send(wire_bytes(frame, 0));
}

void RestartWatch::send_short()
{
    m_link.send(wire_bytes(make_frame(kOpcodeIdentify, m_mac), 0).first(kShortLength));
}

bool RestartWatch::is_answer(const Received& received) const
{
    return has_opcode(received.frame, kOpcodeIdentify) && size_of(received.frame) == kSentRowsSize;
}

} // namespace orvan_maint

#include "turn_queue.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>

namespace orvan_service {
namespace {

constexpr uint32_t kSleeps = 1;

uint32_t turn_of(uint32_t ticket)
{
    return ticket << 1;
}

void sleep_while(const std::atomic<uint32_t>& word, uint32_t value)
{
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void wake_sleeper(const std::atomic<uint32_t>& word)
{
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace

TurnQueue::TurnQueue(size_t threads, uint32_t first)
    : m_mask(std::bit_ceil(static_cast<uint32_t>(threads)) - 1), m_places(m_mask + size_t{1}), m_next(first),
      m_turn(first)
{
    place(first) = turn_of(first);
    // As if every other place had had its turn in the round before.
    for (uint32_t ticket = first + 1; ticket != first + 1 + m_mask; ++ticket) {
        place(ticket) = turn_of(ticket - (m_mask + 1));
    }
}

void TurnQueue::take()
{
    const uint32_t ticket = m_next.fetch_add(1, std::memory_order_relaxed);
    Word& own = place(ticket);
    uint32_t seen = own.load(std::memory_order_acquire);
    if (seen == turn_of(ticket)) {
        return;
    }
    // On one processor the threads ahead are often awake and only wait for it. Letting them run first,
    // once, spares a sleep for each message while everybody is busy, where the queue never gets empty.
    ::sched_yield();
    while ((seen = own.load(std::memory_order_acquire)) != turn_of(ticket)) {
        if ((seen & kSleeps) != 0 ||
            own.compare_exchange_strong(seen, seen | kSleeps, std::memory_order_relaxed)) {
            sleep_while(own, seen | kSleeps);
        }
    }
}

void TurnQueue::give()
{
    const uint32_t next = m_turn.load(std::memory_order_relaxed) + 1;
    m_turn.store(next, std::memory_order_relaxed);
    Word& its = place(next);
    if ((its.exchange(turn_of(next), std::memory_order_acq_rel) & kSleeps) != 0) {
        wake_sleeper(its);
    }
}

size_t TurnQueue::waiting() const
{
    // In this order: the turn never passes the tickets drawn.
    const uint32_t turn = m_turn.load();
    const uint32_t drawn = m_next.load() - turn;
    return drawn > 0 ? drawn - 1 : 0;
}

} // namespace orvan_service

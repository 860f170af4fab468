#ifndef ORVAN_SERVICE_TURN_QUEUE_H
#define ORVAN_SERVICE_TURN_QUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvan_service {

/**
 * Hands one turn at a time to threads, first come first served.
 *
 * A plain mutex lets a thread that has just given it up take it again ahead of those who wait; here the
 * turn is handed to the thread that waited longest, so nobody waits longer than one turn of each other
 * thread.
 *
 * Each comer draws a ticket and waits at the place of its ticket, so that the giver wakes that one thread,
 * which wakes with the turn. Without waiters a turn is two atomic operations.
 */
class TurnQueue {
public:
    /**
     * @param threads how many threads use the queue at most, the one that has the turn included
     * @param first number of the first ticket; they may wrap around
     */
    explicit TurnQueue(size_t threads, uint32_t first = 0);
    TurnQueue(const TurnQueue&) = delete;
    TurnQueue& operator=(const TurnQueue&) = delete;

    /** Blocks until it is this thread's turn. A thread that has the turn must not ask again. */
    void take();
    /** Gives the turn to the next waiter, if there is one. By the thread that has it. */
    void give();

    /** Threads that wait now. */
    size_t waiting() const;

private:
    using Word = std::atomic<uint32_t>;

    Word& place(uint32_t ticket) { return m_places[ticket & m_mask]; }

    const uint32_t m_mask;
    std::vector<Word>
        m_places;    // twice the ticket that last had its turn there, plus one when a thread sleeps
    Word m_next = 0; // the ticket to be drawn next
    Word m_turn = 0; // the ticket whose turn it is; not yet drawn when nobody is at work
};

/** The turn for the life of a scope. */
class Turn {
public:
    explicit Turn(TurnQueue& queue) : m_queue(queue) { m_queue.take(); }
    ~Turn() { m_queue.give(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    TurnQueue& m_queue;
};

} // namespace orvan_service

#endif

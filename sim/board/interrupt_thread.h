#ifndef ORVAN_SIM_BOARD_INTERRUPT_THREAD_H
#define ORVAN_SIM_BOARD_INTERRUPT_THREAD_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace sim_board {

/** The thread that calls the interrupt handler of one pin, once for each edge, one after the other.
 */
class InterruptThread {
public:
    explicit InterruptThread(void (*handler)());
    ~InterruptThread();
    InterruptThread(const InterruptThread&) = delete;
    InterruptThread& operator=(const InterruptThread&) = delete;

    void set_handler(void (*handler)());
    /** Queues one call. */
    void notify();
    /** Waits until all calls so far have returned. False at `deadline`. */
    bool wait_idle(std::chrono::steady_clock::time_point deadline);

private:
    void serve();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    void (*m_handler)();
    size_t m_pending = 0;
    bool m_calling = false;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace sim_board

#endif

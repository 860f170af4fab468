#include "board/interrupt_thread.h"

namespace sim_board {

InterruptThread::InterruptThread(void (*handler)()) : m_handler(handler), m_thread([this] { serve(); }) {}

InterruptThread::~InterruptThread()
{
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void InterruptThread::set_handler(void (*handler)())
{
    std::lock_guard lock(m_mutex);
    m_handler = handler;
}

void InterruptThread::notify()
{
    {
        std::lock_guard lock(m_mutex);
        ++m_pending;
    }
    m_changed.notify_all();
}

bool InterruptThread::wait_idle(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_until(lock, deadline, [this] { return m_pending == 0 && !m_calling; });
}

void InterruptThread::serve()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stop || m_pending > 0; });
        if (m_stop) {
            return;
        }
        --m_pending;
        m_calling = true;
        const auto handler = m_handler;
        lock.unlock();
        handler();
        lock.lock();
        m_calling = false;
        m_changed.notify_all();
    }
}

} // namespace sim_board

/**
 * A meeting point that shows that threads run at the same time.
 */
#ifndef ORVAN_TESTS_SUPPORT_RENDEZVOUS_H
#define ORVAN_TESTS_SUPPORT_RENDEZVOUS_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace orvan_test {

/** A number of parties wait for each other. All calls are safe on any thread. */
class Rendezvous {
public:
    explicit Rendezvous(int parties) : m_missing(parties) {}

    /** Waits for the others; false when they do not all arrive within the bound. */
    bool meet(std::chrono::milliseconds bound = std::chrono::seconds(5))
    {
        std::unique_lock lock(m_mutex);
        if (--m_missing == 0) {
            m_changed.notify_all();
        }
        const bool met = m_changed.wait_for(lock, bound, [this] { return m_missing <= 0; });
        m_failed = m_failed || !met;
        return met;
    }

    /** Whether every party has arrived and none gave up. */
    bool everybody_met()
    {
        std::lock_guard lock(m_mutex);
        return m_missing == 0 && !m_failed;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_missing;
    bool m_failed = false;
};

} // namespace orvan_test

#endif

#ifndef ORVAN_WEB_PASSWORD_WORKER_H
#define ORVAN_WEB_PASSWORD_WORKER_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace orvan_web {

/** A thread for passwords, whose check takes 0.1 s, one after the other. */
class PasswordWorker {
public:
    /** Checks that may wait. */
    static constexpr size_t kMostWaiting = 8;

    PasswordWorker();
    /** Drops what waits. */
    ~PasswordWorker();
    PasswordWorker(const PasswordWorker&) = delete;
    PasswordWorker& operator=(const PasswordWorker&) = delete;

    /** Has the thread call `check`. Any thread.
     *  @return false if too many wait */
    bool add(std::function<void()> check);

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_waiting;
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace orvan_web

#endif

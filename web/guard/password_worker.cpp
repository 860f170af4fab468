#include "guard/password_worker.h"

#include <utility>

#include <pthread.h>

namespace orvan_web {

PasswordWorker::PasswordWorker() : m_thread([this] { run(); })
{
    ::pthread_setname_np(m_thread.native_handle(), "password");
}

PasswordWorker::~PasswordWorker()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

bool PasswordWorker::add(std::function<void()> check)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_waiting.size() >= kMostWaiting) {
            return false;
        }
        m_waiting.push_back(std::move(check));
    }
    m_changed.notify_one();
    return true;
}

void PasswordWorker::run()
{
    for (std::unique_lock lock(m_mutex);;) {
        m_changed.wait(lock, [this] { return m_ending || !m_waiting.empty(); });
        if (m_ending) {
            return;
        }
        const auto check = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        check();
        lock.lock();
    }
}

} // namespace orvan_web

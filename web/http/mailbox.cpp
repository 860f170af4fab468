#include "http/mailbox.h"

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace orvan_web {

Mailbox::Mailbox() : m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void Mailbox::post(std::function<void()> task)
{
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        return;
    }
    m_tasks.push_back(std::move(task));
    if (m_tasks.size() == 1) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_event.get(), &one, sizeof one);
    }
}

void Mailbox::run()
{
    std::vector<std::function<void()>> tasks;
    {
        const std::lock_guard lock(m_mutex);
        tasks.swap(m_tasks);
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = ::read(m_event.get(), &count, sizeof count);
    }
    for (const auto& task : tasks) {
        task();
    }
}

void Mailbox::close()
{
    std::vector<std::function<void()>> dropped; // destroyed without the lock: they may post
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    dropped.swap(m_tasks);
}

} // namespace orvan_web

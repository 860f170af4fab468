#include "announce/announcer.h"

#include <cerrno>
#include <csignal>
#include <memory>
#include <system_error>
#include <utility>

#include <avahi-common/simple-watch.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include "announce/publisher.h"

namespace orvan_web {

namespace {

using Poll = std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)>;

void clear(AvahiWatch*, int fd, AvahiWatchEvent, void*)
{
    eventfd_t count = 0;
    ::eventfd_read(fd, &count);
}

} // namespace

Announcer::Announcer(std::function<void(const std::string& host)> announced)
    : m_announced(std::move(announced)), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_wake) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_thread = std::thread([this] { run(); });
}

Announcer::~Announcer()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    wake();
    m_thread.join();
}

void Announcer::announce(Announcement announcement)
{
    {
        const std::lock_guard lock(m_mutex);
        m_next = std::move(announcement);
    }
    wake();
}

void Announcer::wake() const
{
    ::eventfd_write(m_wake.get(), 1);
}

void Announcer::run()
{
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
    ::pthread_setname_np(::pthread_self(), "mdns");
    const Poll poll(avahi_simple_poll_new(), avahi_simple_poll_free);
    const AvahiPoll* const api = avahi_simple_poll_get(poll.get());
    AvahiWatch* const watch = api->watch_new(api, m_wake.get(), AVAHI_WATCH_IN, clear, nullptr);
    Publisher publisher(api, m_announced);
    bool ending = false;
    while (!ending && avahi_simple_poll_iterate(poll.get(), -1) == 0) {
        std::optional<Announcement> next;
        {
            const std::lock_guard lock(m_mutex);
            next = std::exchange(m_next, std::nullopt);
            ending = m_ending;
        }
        if (next) {
            publisher.publish(*next);
        }
    }
    api->watch_free(watch);
}

} // namespace orvan_web

#include "executor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>

#include <pthread.h>
#include <sys/eventfd.h>

using orvan_common::UniqueFd;

namespace orvan_service {
namespace {

// Up to this many sessions can become ready at once and all be seen in the same round.
constexpr size_t kMostEvents = 1024;

UniqueFd checked(int fd, const char* what)
{
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return UniqueFd(fd);
}

uint32_t events_of(Session::Wait wait)
{
    switch (wait) { // hang-ups are always reported
    case Session::Wait::kTurn:
    case Session::Wait::kInput:
        return EPOLLIN;
    case Session::Wait::kRoom:
        return EPOLLOUT;
    case Session::Wait::kRetry:
    case Session::Wait::kMemory:
    case Session::Wait::kOver:
        break;
    }
    return 0;
}

} // namespace

// The end of the input is reported once, so that it causes no further wake-ups.
uint32_t Executor::events_of(const Session& session)
{
    const uint32_t end = session.m_end_seen ? 0 : uint32_t{EPOLLRDHUP};
    return orvan_service::events_of(session.m_wait) | end;
}

Executor::Executor()
    : m_epoll(checked(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      m_wake(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")), m_events(kMostEvents)
{
    epoll_event event{};
    event.events = EPOLLIN;
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, m_wake.get(), &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    m_thread = std::thread([this] { run(); });
    ::pthread_setname_np(m_thread.native_handle(), "executor");
}

Executor::~Executor()
{
    end(std::chrono::milliseconds(0));
    m_thread.join();
}

void Executor::add(std::unique_ptr<Session> session)
{
    epoll_event event{};
    event.events = session->m_events = events_of(*session);
    event.data.ptr = session.get();
    const std::lock_guard lock(m_mutex);
    const auto place = m_sessions.emplace(session.get(), std::move(session)).first;
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, place->second->descriptor(), &event) != 0) {
        const int error = errno;
        m_sessions.erase(place);
        throw std::system_error(error, std::generic_category(), "epoll_ctl");
    }
}

bool Executor::end(std::chrono::milliseconds patience)
{
    m_ending = true;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof one);
    std::unique_lock lock(m_mutex);
    return m_ended.wait_for(lock, patience, [this] { return m_done; });
}

void Executor::retry()
{
    m_retry = true;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof one);
}

size_t Executor::sessions() const
{
    const std::lock_guard lock(m_mutex);
    return m_sessions.size();
}

size_t Executor::count(const std::function<bool(const Session&)>& counts) const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<size_t>(std::count_if(m_sessions.begin(), m_sessions.end(),
                                             [&](const auto& session) { return counts(*session.second); }));
}

void Executor::run()
{
    while (!m_ending) {
        collect(m_turns.empty() && m_again.empty() && !m_retry ? timeout() : 0);
        queue_again();
        if (m_retry.exchange(false)) {
            advance_retrying();
        }
        execute_round();
        if (now() >= m_next_deadline) {
            expire();
        }
        do {
            bury(); // frees the memory that others wait for
            lend_memory();
        } while (!m_over.empty());
    }
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_sessions, [](const auto& session) { return !session.second->stays_open(); });
    m_done = true;
    m_ended.notify_all();
}

void Executor::collect(int timeout_ms)
{
    const int ready =
        ::epoll_wait(m_epoll.get(), m_events.data(), static_cast<int>(m_events.size()), timeout_ms);
    for (int i = 0; i < ready; ++i) {
        const epoll_event& event = m_events[static_cast<size_t>(i)];
        if (event.data.ptr == nullptr) {
            uint64_t count;
            [[maybe_unused]] const ssize_t read = ::read(m_wake.get(), &count, sizeof count);
            continue; // the loop checks what happened
        }
        Session& session = *static_cast<Session*>(event.data.ptr);
        const bool hung_up = (event.events & (EPOLLHUP | EPOLLERR)) != 0;
        if (session.m_wait == Session::Wait::kOver) {
            continue;
        }
        if (!hung_up && (event.events & EPOLLRDHUP) != 0) {
            session.m_end_seen = true;
            session.input_ends();
            watch(session);
        }
        if (hung_up &&
            (session.hung_up() == Session::HangUp::kReset || session.m_wait == Session::Wait::kMemory)) {
            become(session, Session::Wait::kOver);
        } else if (session.m_wait == Session::Wait::kInput || session.m_wait == Session::Wait::kRoom) {
            step(session, session.m_wait == Session::Wait::kInput);
        }
    }
}

void Executor::step(Session& session, bool readable)
{
    const Session::Wait wait = session.advance(now(), readable);
    m_next_deadline = std::min(m_next_deadline, session.deadline());
    become(session, wait);
}

void Executor::become(Session& session, Session::Wait wait)
{
    if (wait == Session::Wait::kMemory && session.m_wait != wait) {
        m_memory_line.push_back(&session);
    }
    session.m_wait = wait;
    if (wait == Session::Wait::kOver) {
        m_over.push_back(&session);
        return;
    }
    if (wait == Session::Wait::kTurn && !session.m_queued) {
        session.m_queued = true;
        m_turns.push_back(&session);
    }
    watch(session);
}

void Executor::watch(Session& session)
{
    epoll_event event{};
    event.events = events_of(session);
    event.data.ptr = &session;
    if (event.events != session.m_events) {
        session.m_events = event.events;
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_MOD, session.descriptor(), &event);
    }
}

void Executor::execute_round()
{
    // Sessions that become ready meanwhile belong to the next round, as do those with another message.
    for (size_t left = m_turns.size(); left > 0 && !m_ending; --left) {
        Session& session = *m_turns.front();
        m_turns.pop_front();
        session.m_queued = false;
        if (session.m_wait != Session::Wait::kTurn) {
            continue;
        }
        const ServiceTime begin = coarse_now();
        execute(session);
        const ServiceTime taken = coarse_now() - begin;
        m_worked += taken;

        const Session::Wait wait = session.advance(now(), false);
        m_next_deadline = std::min(m_next_deadline, session.deadline());
        if (taken.count() > 0) {
            queue_again(); // their messages were there before those that have arrived meanwhile
        }
        if (wait == Session::Wait::kTurn) {
            session.m_queued = true;
            m_again.push_back(&session);
        } else {
            become(session, wait);
        }
        // Sessions that closed meanwhile, and those that became ready before the ones that had their turn.
        if (taken.count() > 0) {
            collect(0);
        }
    }
}

void Executor::execute(Session& session)
{
    const auto begin = Counters::Clock::now();
    m_running_since.store(begin.time_since_epoch().count(), std::memory_order_relaxed);
    m_running.store(&session, std::memory_order_release);
    session.execute();
    m_running.store(nullptr, std::memory_order_relaxed);
    m_counters.count_message(session.client().protocol, Counters::Clock::now() - begin);
}

std::optional<Executor::Running> Executor::running() const
{
    const std::lock_guard lock(m_mutex); // the session is not destroyed meanwhile
    const auto place = m_sessions.find(m_running.load(std::memory_order_acquire));
    if (place == m_sessions.end()) {
        return std::nullopt;
    }
    const Counters::Clock::duration since(m_running_since.load(std::memory_order_relaxed));
    return Running{place->second->client().address, Counters::Clock::now().time_since_epoch() - since};
}

void Executor::queue_again()
{
    m_turns.insert(m_turns.end(), m_again.begin(), m_again.end());
    m_again.clear();
}

// In order of arrival, as MessageMemory lends it.
void Executor::lend_memory()
{
    for (; !m_memory_line.empty(); m_memory_line.pop_front()) {
        Session& session = *m_memory_line.front();
        if (session.m_wait != Session::Wait::kMemory) {
            continue;
        }
        step(session, false);
        if (session.m_wait == Session::Wait::kMemory) {
            return;
        }
    }
}

void Executor::advance_retrying()
{
    std::vector<Session*> retrying; // only this thread removes sessions
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [key, session] : m_sessions) {
            if (session->m_wait == Session::Wait::kRetry) {
                retrying.push_back(session.get());
            }
        }
    }
    for (Session* const session : retrying) {
        step(*session, false);
    }
}

void Executor::expire()
{
    const ServiceTime passed = now();
    m_next_deadline = kNever;
    // Only this thread removes sessions, and those added meanwhile have no deadline yet.
    std::vector<Session*> expired;
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [key, session] : m_sessions) {
            if (session->m_wait == Session::Wait::kOver) {
                continue;
            }
            if (session->deadline() <= passed) {
                expired.push_back(session.get());
            } else {
                m_next_deadline = std::min(m_next_deadline, session->deadline());
            }
        }
    }
    for (Session* const session : expired) {
        session->expired();
        become(*session, Session::Wait::kOver);
    }
}

void Executor::bury()
{
    for (Session* const session : m_over) {
        std::erase(m_turns, session);
        std::erase(m_again, session);
        std::erase(m_memory_line, session);
        std::unique_ptr<Session> over; // destroyed after the lock
        const std::lock_guard lock(m_mutex);
        const auto place = m_sessions.find(session);
        // Explicitly, as a program started by another thread may hold a copy of the descriptor for a while.
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, session->descriptor(), nullptr);
        over = std::move(place->second);
        m_sessions.erase(place);
    }
    m_over.clear();
}

int Executor::timeout() const
{
    if (m_next_deadline == kNever) {
        return -1;
    }
    // Better to wake one clock step late than before the deadline.
    const auto left = (m_next_deadline - now() + kCoarseStep).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

ServiceTime Executor::now() const
{
    return coarse_now() - m_worked;
}

} // namespace orvan_service

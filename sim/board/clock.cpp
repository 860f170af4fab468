#include "board/clock.h"

#include <algorithm>

namespace sim_board {

using std::chrono::steady_clock;

namespace {
constexpr uint64_t kLongestUs = 1'000'000'000'000'000; // 31 years; the time point must not overflow
} // namespace

uint64_t Clock::now_us() const
{
    std::lock_guard lock(m_mutex);
    return now_locked();
}

uint64_t Clock::now_locked() const
{
    if (m_mode == Mode::kManual) {
        return m_now_us;
    }
    const auto running = (steady_clock::now() - m_start) * m_rate;
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(running).count());
}

uint64_t Clock::sleep_us(uint64_t us)
{
    std::unique_lock lock(m_mutex);
    if (m_mode == Mode::kRealTime) {
        if (m_starting_up && us >= kPeriodUs) {
            us = sleep_start_up(lock, us);
        }
        const unsigned rate = us < kShortUs ? 1 : m_rate; // scaling short waits would only burn CPU time
        sleep_real(lock, std::chrono::nanoseconds(std::min(us, kLongestUs) * 1000 / rate));
    } else if (m_released) {
        m_now_us += us;
    } else if (m_self_advancing == std::this_thread::get_id()) {
        lock.unlock();
        advance(us);
        lock.lock();
    } else if (us > 0) {
        sleep_manual(lock, us);
    }
    return now_locked();
}

uint64_t Clock::poll_us(uint64_t us)
{
    if (m_mode == Mode::kManual) {
        return sleep_us(us);
    }
    std::unique_lock lock(m_mutex);
    sleep_real(lock, std::chrono::microseconds(std::clamp(us, kPollUs, kLongestUs)));
    return now_locked();
}

// Returns the time left.
uint64_t Clock::sleep_start_up(std::unique_lock<std::mutex>& lock, uint64_t us)
{
    const auto begin = steady_clock::now();
    sleep_real(lock, std::chrono::microseconds(std::min(us, kLongestUs)), true);
    const auto slept = std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin);
    return us - std::min(us, static_cast<uint64_t>(slept.count()));
}

void Clock::start_up_begins()
{
    std::lock_guard lock(m_mutex);
    m_starting_up = true;
}

void Clock::start_up_ends()
{
    std::lock_guard lock(m_mutex);
    m_starting_up = false;
    for (Sleeper* sleeper : m_sleepers) {
        sleeper->wake.notify_one();
    }
}

void Clock::sleep_real(std::unique_lock<std::mutex>& lock, std::chrono::nanoseconds span,
                       bool until_start_up_ends)
{
    Sleeper self{.end_us = 0}; // the thread wakes by itself
    const auto place = m_sleepers.insert(m_sleepers.end(), &self);
    m_changed.notify_all();
    self.wake.wait_until(lock, steady_clock::now() + span,
                         [&] { return m_released || (until_start_up_ends && !m_starting_up); });
    m_sleepers.erase(place);
}

void Clock::sleep_manual(std::unique_lock<std::mutex>& lock, uint64_t us)
{
    Sleeper self{.end_us = m_now_us + us};
    const auto later = std::find_if(m_sleepers.begin(), m_sleepers.end(),
                                    [&](const Sleeper* other) { return other->end_us > self.end_us; });
    m_sleepers.insert(later, &self);
    m_changed.notify_all();
    self.wake.wait(lock, [&] { return self.woken; });
    --m_leaving;
    m_changed.notify_all();
}

void Clock::advance(uint64_t us)
{
    std::lock_guard one_at_a_time(m_advancing);
    std::unique_lock lock(m_mutex);
    const uint64_t target = m_now_us + us;
    while (!m_sleepers.empty() && m_sleepers.front()->end_us <= target) {
        Sleeper* next = m_sleepers.front();
        m_sleepers.pop_front();
        m_now_us = next->end_us;
        next->woken = true;
        ++m_leaving;
        next->wake.notify_one();
        m_changed.wait(lock, [&] { return m_leaving == 0; });
    }
    m_now_us = std::max(m_now_us, target);
}

bool Clock::run(uint64_t us, size_t threads, std::chrono::milliseconds bound)
{
    std::unique_lock lock(m_mutex);
    const uint64_t target = m_now_us + us;
    while (asleep_within(lock, threads, bound)) {
        if (m_now_us >= target) {
            return true;
        }
        const uint64_t next = m_sleepers.empty() ? target : m_sleepers.front()->end_us;
        const uint64_t step = std::min(next, target) - m_now_us;
        lock.unlock();
        advance(step);
        lock.lock();
    }
    return false;
}

size_t Clock::sleepers() const
{
    std::lock_guard lock(m_mutex);
    return m_sleepers.size();
}

bool Clock::wait_for_sleepers(size_t count, std::chrono::milliseconds bound)
{
    std::unique_lock lock(m_mutex);
    return asleep_within(lock, count, bound);
}

bool Clock::asleep_within(std::unique_lock<std::mutex>& lock, size_t count, std::chrono::milliseconds bound)
{
    return m_changed.wait_until(lock, steady_clock::now() + bound,
                                [&] { return m_sleepers.size() >= count; });
}

void Clock::release()
{
    std::lock_guard lock(m_mutex);
    m_released = true;
    for (Sleeper* sleeper : m_sleepers) {
        sleeper->woken = true;
        sleeper->wake.notify_one();
    }
    if (m_mode == Mode::kManual) {
        m_leaving += m_sleepers.size();
        m_sleepers.clear();
    }
}

SelfAdvancing::SelfAdvancing(Clock& clock) : m_clock(clock)
{
    std::lock_guard lock(m_clock.m_mutex);
    m_clock.m_self_advancing = std::this_thread::get_id();
}

SelfAdvancing::~SelfAdvancing()
{
    std::lock_guard lock(m_clock.m_mutex);
    m_clock.m_self_advancing = {};
}

} // namespace sim_board

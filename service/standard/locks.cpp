#include "locks.h"

#include <utility>

namespace orvan_service {

void Locks::on_change(std::function<void()> changed)
{
    const std::lock_guard lock(m_mutex);
    m_changed = std::move(changed);
}

bool Locks::lock(Holder holder)
{
    const std::lock_guard lock(m_mutex);
    const bool others_share = m_sharers.size() > (m_sharers.contains(holder) ? 1U : 0U);
    if (m_exclusive == holder) {
        return true;
    }
    // A sharer may exclude the others that share; somebody without the shared lock has to wait for all of
    // them.
    if (m_exclusive != nullptr || (others_share && !m_sharers.contains(holder))) {
        return false;
    }
    m_exclusive = holder;
    return true;
}

bool Locks::lock_shared(Holder holder, const std::string& name)
{
    const std::lock_guard lock(m_mutex);
    if ((m_exclusive != nullptr && m_exclusive != holder) || (!m_sharers.empty() && m_name != name)) {
        return false;
    }
    m_name = name;
    m_sharers.insert(holder);
    return true;
}

Locks::Released Locks::unlock(Holder holder)
{
    std::function<void()> changed;
    Released released = Released::kNone;
    {
        const std::lock_guard lock(m_mutex);
        if (m_exclusive == holder) {
            m_exclusive = nullptr;
            released = Released::kExclusive;
        } else if (m_sharers.erase(holder) != 0) {
            released = Released::kShared;
        }
        changed = m_changed;
    }
    if (released != Released::kNone && changed) {
        changed();
    }
    return released;
}

void Locks::forget(Holder holder)
{
    while (unlock(holder) != Released::kNone) {
    }
}

bool Locks::admits(Holder holder) const
{
    const std::lock_guard lock(m_mutex);
    return m_exclusive == holder ||
           (m_exclusive == nullptr && (m_sharers.empty() || m_sharers.contains(holder)));
}

bool Locks::exclusive() const
{
    const std::lock_guard lock(m_mutex);
    return m_exclusive != nullptr;
}

size_t Locks::holders() const
{
    const std::lock_guard lock(m_mutex);
    return m_sharers.size() + (m_exclusive != nullptr && !m_sharers.contains(m_exclusive) ? 1 : 0);
}

bool Locks::has_exclusive(Holder holder) const
{
    const std::lock_guard lock(m_mutex);
    return m_exclusive == holder;
}

bool Locks::has_shared(Holder holder) const
{
    const std::lock_guard lock(m_mutex);
    return m_sharers.contains(holder);
}

} // namespace orvan_service

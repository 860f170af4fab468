#ifndef ORVAN_SERVICE_LOCKS_H
#define ORVAN_SERVICE_LOCKS_H

#include <cstddef>
#include <functional>
#include <mutex>
#include <set>
#include <string>

namespace orvan_service {

/**
 * The instrument's locks (IVI-6.1 section on locking, VXI-11 B.4): standard sessions of all protocols hold
 * them against each other. Never blocks: whoever has to wait tries again when `changed` is called. Any
 * thread.
 *
 * At most one session has the exclusive lock; any number share one by giving the same string. A session that
 * shares a lock can get the exclusive one as well, and then the others that share it wait, too.
 */
class Locks {
public:
    /** A session; its address is all that counts. */
    using Holder = const void*;

    /** @param changed called after each release, without a lock held, on the thread that released */
    void on_change(std::function<void()> changed);

    /** Tries to get the exclusive lock. True if `holder` has it now or had it. */
    bool lock(Holder holder);
    /** Tries to get the shared lock named `name`, of 1 to 256 characters. True if `holder` has it now. */
    bool lock_shared(Holder holder, const std::string& name);

    enum class Released { kNone, kExclusive, kShared };
    /** Releases the exclusive lock if `holder` has it, otherwise its shared one. */
    Released unlock(Holder holder);
    /** Releases everything that `holder` has; at the end of its session. */
    void forget(Holder holder);

    /** Whether messages of `holder` may be executed: nobody else's lock excludes it. */
    bool admits(Holder holder) const;

    bool exclusive() const; /**< somebody has the exclusive lock */
    size_t holders() const; /**< sessions that have a lock */
    bool has_exclusive(Holder holder) const;
    bool has_shared(Holder holder) const;

private:
    mutable std::mutex m_mutex; // guards what follows
    Holder m_exclusive = nullptr;
    std::string m_name; // of the shared lock
    std::set<Holder> m_sharers;
    std::function<void()> m_changed;
};

} // namespace orvan_service

#endif

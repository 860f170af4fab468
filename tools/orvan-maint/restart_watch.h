/**
 * What becomes of an instrument that has a package.
 *
 * It reports nothing, and whether it installs the package shows by a restart alone. The instrument has one
 * frame buffer, which it never clears: an identification shorter than a header is answered with the `info` of
 * the last frame that had one. So a mark in that place says that the instrument has not been restarted
 * since; a fresh buffer is zero. Another PC's request puts its own `info` there, and then nothing is known.
 */
#ifndef ORVAN_MAINT_RESTART_WATCH_H
#define ORVAN_MAINT_RESTART_WATCH_H

#include <functional>

#include "link.h"
#include "rows.h"

namespace orvan_maint {

/** Each answered request costs an instrument descriptors, and one that has none left restarts as if it had
 * installed a package; so there are few of them. */
struct WatchTiming {
    std::chrono::milliseconds between; /**< requests; less than a start takes */
    std::chrono::milliseconds settled; /**< for which one that answers may still restart */
};

/** The instrument answers until its service ends, for which the service manager gives it 30 s. */
inline constexpr WatchTiming kWatchTiming{std::chrono::seconds(3), std::chrono::seconds(35)};

enum class Aftermath {
    kRestarted, /**< it went away and came back */
    kStayed,    /**< it answers, and has not been restarted */
    kSilent,    /**< it did not answer at all */
    kWentAway,  /**< it answered and went away, and has not come back */
    kUnknown,   /**< it answers, and whether it was restarted cannot be told, or not yet */
};

class RestartWatch {
public:
    /** @param before what the instrument told of itself before the package */
    RestartWatch(Link& link, const hwaddr_t& mac, const Rows& before, const WatchTiming& timing);

    /** Finds out whether a mark stays; without it, only another version of the software shows a restart. To
     *  be called while the instrument is idle. */
    void prepare();

    /** Leaves the mark; right after the end of the package, before the instrument can have been restarted. */
    void mark();

    /**
     * Watches until it is known what became of it, or the deadline has passed.
     *
     * @param answers is called when the instrument answers for the first time without a restart
     */
    Aftermath follow(Clock::time_point deadline, const std::function<void()>& answers);

    /** What the instrument told of itself last. */
    const Rows& rows() const { return m_rows; }

private:
    void send_mark();
    void send_short();
    bool is_answer(const Received& received) const;

    Link& m_link;
    hwaddr_t m_mac;
    Rows m_rows;
    WatchTiming m_timing;
    uint32_t m_mark;
    bool m_mark_stays = false;
};

} // namespace orvan_maint

#endif

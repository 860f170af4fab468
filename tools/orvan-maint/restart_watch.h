/**
 * Watches what an instrument does with a package.
 *
 * It reports nothing, and only a restart shows that it installs the package. The instrument has one frame
 * buffer, which it never clears: an identification shorter than a header is answered with the `info` of the
 * last frame that had one. So if a mark in that place is still there, the instrument has not been restarted;
 * a fresh buffer is zero. Another PC's request overwrites it, and then nothing is known.
 */
#ifndef ORVAN_MAINT_RESTART_WATCH_H
#define ORVAN_MAINT_RESTART_WATCH_H

#include <functional>

#include "link.h"
#include "rows.h"

namespace orvan_maint {

/** Each answered request leaks descriptors in the instrument, which restarts when it has none left, as if it
 * had installed a package; so few are sent. */
struct WatchTiming {
    std::chrono::milliseconds between; /**< requests; less than a start takes */
    std::chrono::milliseconds settled; /**< how long an instrument that answers may still restart */
};

/** The instrument answers until its service ends, for which the service manager allows 30 s. */
inline constexpr WatchTiming kWatchTiming{std::chrono::seconds(3), std::chrono::seconds(35)};

enum class Aftermath {
    kRestarted, /**< it went away and came back */
    kStayed,    /**< it answers, and has not been restarted */
    kSilent,    /**< it did not answer at all */
    kWentAway,  /**< it answered and went away, and has not come back */
    kUnknown,   /**< it answers, and it is not known, or not yet, whether it was restarted */
};

class RestartWatch {
public:
    /** @param before what the instrument reported before the package */
    RestartWatch(Link& link, const hwaddr_t& mac, const Rows& before, const WatchTiming& timing);

    /** Tests whether a mark is kept; if not, only a different software version shows a restart. Call it while
     * the instrument is idle. */
    void prepare();

    /** Sets the mark; call it right after the end of the package, before the instrument can restart. */
    void mark();

    /**
     * Watches until the outcome is known, or the deadline has passed.
     *
     * @param answers is called when the instrument answers for the first time without a restart
     */
    Aftermath follow(Clock::time_point deadline, const std::function<void()>& answers);

    /** What the instrument last reported. */
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

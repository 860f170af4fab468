#ifndef ORVAN_WEB_HISTORY_H
#define ORVAN_WEB_HISTORY_H

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

#include "channels.h"
#include "json.h"
#include "loop.h"

namespace orvan_web {

/**
 * Temperatures and levels of the last ten minutes, a point each two seconds. Loop's thread.
 *
 * It is kept without viewers as well, so that the first one sees it. For that the records are copied, which
 * the instrument does not notice; nobody is asked.
 */
class History {
public:
    static constexpr std::chrono::seconds kPause{2};
    static constexpr size_t kPoints = 300;

    History(InstrumentLoop& loop, Channels& channels) : m_loop(loop), m_channels(channels) {}
    ~History() { m_loop.cancel(m_timer); }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    void start() { take_point(); }

    /** "seconds": before now, so the last is about 0 and the others are negative; and for each channel its
     *  values, null where unknown. */
    Json json() const;

private:
    struct Point {
        InstrumentLoop::Clock::time_point time;
        std::vector<std::optional<double>> temperatures; // by channel
        std::vector<std::optional<double>> levels;
    };

    void take_point();

    InstrumentLoop& m_loop;
    Channels& m_channels;
    std::deque<Point> m_points;
    InstrumentLoop::TimerId m_timer = 0;
};

} // namespace orvan_web

#endif

/**
 * The progress of a download.
 */
#ifndef ORVAN_MAINT_PROGRESS_H
#define ORVAN_MAINT_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace orvan_maint {

/** "[#####---------------]  25 %  2.50 of 10.00 MB  1.2 MB/s  0:06 left" */
std::string progress_line(size_t done, size_t total, std::chrono::duration<double> taken);

/** Shows it on standard error: a progress bar on a terminal, otherwise a line every ten per cent. */
class Progress {
public:
    explicit Progress(size_t total);

    /** @param done bytes; may decrease */
    void show(size_t done);

    /** Ends the bar's line, so that other output begins on a new line. */
    void leave();

private:
    using Clock = std::chrono::steady_clock;

    size_t m_total;
    bool m_terminal;
    bool m_in_line = false;
    size_t m_next_tenth = 1;
    Clock::time_point m_start;
    Clock::time_point m_shown{};
};

} // namespace orvan_maint

#endif

#include "progress.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace orvan_maint {
namespace {

constexpr size_t kBarLength = 20;
constexpr double kMegabyte = 1e6;
constexpr auto kBetweenShows = std::chrono::milliseconds(100);

} // namespace

std::string progress_line(size_t done, size_t total, std::chrono::duration<double> taken)
{
    done = std::min(done, total);
    const double part = total != 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
    const auto filled = static_cast<size_t>(part * kBarLength);
    const double rate = taken.count() > 0 ? static_cast<double>(done) / taken.count() : 0;
    char numbers[96];
    std::snprintf(numbers, sizeof numbers, "]  %3d %%  %.2f of %.2f MB  %.1f MB/s",
                  static_cast<int>(part * 100), static_cast<double>(done) / kMegabyte,
                  static_cast<double>(total) / kMegabyte, rate / kMegabyte);
    std::string line = "[" + std::string(filled, '#') + std::string(kBarLength - filled, '-') + numbers;
    if (rate > 0) {
        const double left = static_cast<double>(total - done) / rate;
        const auto seconds = static_cast<long>(std::min(left + 0.5, 359'999.0));
        std::snprintf(numbers, sizeof numbers, "  %ld:%02ld left", seconds / 60, seconds % 60);
        line += numbers;
    }
    return line;
}

Progress::Progress(size_t total)
    : m_total(total), m_terminal(::isatty(STDERR_FILENO) != 0), m_start(Clock::now())
{
}

void Progress::show(size_t done)
{
    const Clock::time_point now = Clock::now();
    if (m_terminal) {
        if (done < m_total && now - m_shown < kBetweenShows) {
            return;
        }
        // Clear the rest of an earlier, longer line.
        std::fprintf(stderr, "\r%s\x1b[K", progress_line(done, m_total, now - m_start).c_str());
        m_in_line = true;
        m_shown = now;
        return;
    }
    if (done * 10 < m_next_tenth * m_total) {
        return;
    }
    std::fprintf(stderr, "%s\n", progress_line(done, m_total, now - m_start).c_str());
    m_next_tenth = m_total != 0 ? done * 10 / m_total + 1 : 11;
}

void Progress::leave()
{
    if (m_in_line) {
        std::fputc('\n', stderr);
    }
    m_in_line = false;
}

} // namespace orvan_maint

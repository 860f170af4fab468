#ifndef ORVAN_SIM_BOARD_TRACE_H
#define ORVAN_SIM_BOARD_TRACE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace sim_board {

/**
 * Every access to the board and every wait, in order, one line of text each:
 *
 *     pins setup
 *     pin 26 output
 *     pin 26 = 1                        written
 *     pin 22 -> 0                       read
 *     pin 2 isr rising
 *     spi open /dev/spidev0.1
 *     spi mode = 0                      also bits, speed; "-> 0" when read back
 *     spi eeprom: 05 00 -> ff 02        sent and received; "none" when no chip is selected; a trailing "+"
 *                                       when the chip stays selected for the message's next transfer
 *     spi close
 *     i2c 0x20 open
 *     i2c 0x20 [0x12] = 0x04            four digits for a word; "-> 0x04" when read
 *     lock 0                            once it is held; unlock 0
 *     delay 50000                       microseconds, when the wait begins; on a clock that runs, a thread
 *                                       that polls what is not on the board has its first wait only
 *
 * A failed access ends in "-> " and the name of its errno. Transfers above 16 bytes show the first 16 and
 * the count. Thread-safe.
 */
class Trace {
public:
    /** Beyond `limit` lines the oldest are dropped, so that memory stays bounded over weeks. */
    explicit Trace(size_t limit = 65536) : m_limit(limit) {}

    /**
     * Makes the text of a line. Called each time the line is read, on any thread, so it holds what it needs
     * by value. Few of the lines kept are ever read.
     */
    using Line = std::function<std::string()>;
    void add(Line line);
    void add(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /** How many lines, of any trace, the calling thread has added since it began. */
    static uint64_t added_by_this_thread();

    std::vector<std::string> lines() const;
    /** The lines that begin with one of the prefixes, in order. */
    std::vector<std::string> lines_with(std::initializer_list<std::string_view> prefixes) const;
    /** Removes and returns the lines so far. */
    std::vector<std::string> take();
    void clear();
    /** Lines dropped since the last clear or take. */
    size_t dropped() const;

private:
    const size_t m_limit;
    mutable std::mutex m_mutex;
    std::deque<Line> m_lines;
    size_t m_dropped = 0;
};

/** What printf would print, truncated to 255 characters. */
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

/** "00 7f ff", the first 16 bytes and "... 1027 bytes" when there are more, which are not read. */
constexpr size_t kShownBytes = 16;
std::string hex_bytes(const unsigned char* bytes, size_t count);

} // namespace sim_board

#endif

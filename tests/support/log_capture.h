/**
 * The lines that the program under test hands to syslog, with their priority and exact text.
 *
 * Linking this library replaces syslog() and vsyslog() of the whole process: nothing a test logs
 * reaches the machine's journal. A program that never names LogCapture keeps libc's.
 */
#ifndef ORVAN_TESTS_SUPPORT_LOG_CAPTURE_H
#define ORVAN_TESTS_SUPPORT_LOG_CAPTURE_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <syslog.h>

namespace orvan_test {

struct LogLine {
    int priority;     /**< as the caller gave it, a facility included */
    std::string text; /**< formatted; a trailing new line of the format is kept */

    bool operator==(const LogLine&) const = default;
};

/** For GoogleTest's messages. */
void PrintTo(const LogLine& line, std::ostream* out);

/** Collects every line logged on any thread while it lives. One at a time in a process. */
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** All lines so far, oldest first. */
    std::vector<LogLine> lines() const;

    /** How many lines have exactly this priority and text. */
    size_t count(int priority, const std::string& text) const;

    /** Waits for such a line; false when `bound` passes first. */
    bool wait_for(int priority, const std::string& text,
                  std::chrono::milliseconds bound = std::chrono::seconds(5)) const;

    /** Calls `watcher` with each line from now on, on the thread that logs it. It must not log. */
    void on_line(std::function<void(const LogLine&)> watcher);

    /** Forgets what was collected. */
    void clear();
};

} // namespace orvan_test

#endif

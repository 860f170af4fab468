#include "support/log_capture.h"

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <ostream>

namespace {

// Threads of the program under test may log until the process ends, so the store is never destroyed.
struct Store {
    std::mutex mutex;
    std::condition_variable grown;
    bool active = false;
    std::vector<orvan_test::LogLine> lines;
    std::function<void(const orvan_test::LogLine&)> watcher;
};

Store& store()
{
    static Store* instance = new Store;
    return *instance;
}

void keep(int priority, const char* format, va_list args)
{
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string text(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.pop_back();

    Store& s = store();
    std::lock_guard lock(s.mutex);
    if (s.active) {
        s.lines.push_back({priority, std::move(text)});
        if (s.watcher) {
            s.watcher(s.lines.back());
        }
        s.grown.notify_all();
    }
}

} // namespace

extern "C" {

// The __*_chk forms are what a fortified build calls.
void __vsyslog_chk(int priority, int flag, const char* format, va_list args);
void __syslog_chk(int priority, int flag, const char* format, ...);

void vsyslog(int priority, const char* format, va_list args)
{
    keep(priority, format, args);
}

void syslog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    keep(priority, format, args);
    va_end(args);
}

void __vsyslog_chk(int priority, int, const char* format, va_list args)
{
    keep(priority, format, args);
}

void __syslog_chk(int priority, int, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    keep(priority, format, args);
    va_end(args);
}
}

namespace orvan_test {

void PrintTo(const LogLine& line, std::ostream* out)
{
    *out << "{" << line.priority << ", \"" << line.text << "\"}";
}

LogCapture::LogCapture()
{
    std::lock_guard lock(store().mutex);
    store().lines.clear();
    store().active = true;
}

LogCapture::~LogCapture()
{
    std::lock_guard lock(store().mutex);
    store().active = false;
    store().lines.clear();
    store().watcher = nullptr;
}

std::vector<LogLine> LogCapture::lines() const
{
    std::lock_guard lock(store().mutex);
    return store().lines;
}

size_t LogCapture::count(int priority, const std::string& text) const
{
    std::lock_guard lock(store().mutex);
    return static_cast<size_t>(
        std::count(store().lines.begin(), store().lines.end(), LogLine{priority, text}));
}

bool LogCapture::wait_for(int priority, const std::string& text, std::chrono::milliseconds bound) const
{
    const LogLine wanted{priority, text};
    Store& s = store();
    std::unique_lock lock(s.mutex);
    return s.grown.wait_for(
        lock, bound, [&] { return std::find(s.lines.begin(), s.lines.end(), wanted) != s.lines.end(); });
}

void LogCapture::on_line(std::function<void(const LogLine&)> watcher)
{
    std::lock_guard lock(store().mutex);
    store().watcher = std::move(watcher);
}

void LogCapture::clear()
{
    std::lock_guard lock(store().mutex);
    store().lines.clear();
}

} // namespace orvan_test

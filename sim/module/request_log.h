/** The last requests that reached the module, byte for byte, so that a test can compare them. */
#ifndef ORVAN_SIM_MODULE_REQUEST_LOG_H
#define ORVAN_SIM_MODULE_REQUEST_LOG_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace sim_module {

/** Printable text unchanged; CR, LF, TAB and "\" as "\r", "\n", "\t", "\\"; any other byte as "\xNN". */
std::string escape_bytes(std::string_view bytes);

class RequestLog {
public:
    /** Requests kept. */
    static constexpr size_t kCapacity = 1000;

    /** Bytes kept of one request; of an image of many megabytes only the head. */
    static constexpr size_t kBytesKept = 4096;

    void add(std::string_view request);

    /** Removes all requests and resets the count. */
    void clear();

    /** Requests since the start or the last `clear`, including those no longer in the ring. */
    uint64_t count() const { return m_count; }

    /** Requests in the ring. */
    size_t size() const { return m_entries.size(); }

    /** Entry `index`, 0 the oldest, as one line: escaped, with "...(+n bytes)" after a truncated one. */
    std::string line(size_t index) const;

    /** The newest entry as one line, empty when there is none. */
    std::string last_line() const { return m_entries.empty() ? std::string() : line(m_entries.size() - 1); }

private:
    struct Entry {
        std::string head;
        size_t size;
    };

    std::deque<Entry> m_entries;
    uint64_t m_count = 0;
};

} // namespace sim_module

#endif

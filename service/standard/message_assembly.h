#ifndef ORVAN_SERVICE_MESSAGE_ASSEMBLY_H
#define ORVAN_SERVICE_MESSAGE_ASSEMBLY_H

#include <memory>
#include <span>
#include <string_view>

#include "scpi/extensions.h"

namespace orvan_service {

/**
 * Program messages from pieces of data: one ends with a LF outside of a block (IEEE 488.2 7.5), or with END.
 *
 * A message longer than kLongest bytes, its LF not counted, is dropped.
 */
class MessageAssembly {
public:
    static constexpr size_t kLongest = 0x300000 - 1;

    MessageAssembly() = default;
    ~MessageAssembly();
    MessageAssembly(MessageAssembly&& other) noexcept;
    MessageAssembly& operator=(MessageAssembly&& other) noexcept;

    enum class Found {
        kNothing,
        kMessage, /**< message() is complete */
        kTooLong  /**< a message has been dropped */
    };

    /** Where the next bytes may be received: at least one and at most `most`; then call next(). Drops the
     * message found. */
    std::span<char> space(size_t most);
    void received(size_t count) { m_end += count; }

    /** Looks for the end of a message in what has been received. Drops the message found before. */
    Found next();
    /** END has come: what is left after next() is a message, unless it is empty. */
    Found end();

    /** The message found, ended by LF; may be modified, and is valid until it is dropped. */
    std::span<char> message() { return {m_bytes.get(), m_found}; }

    /** Bytes after message() that do more than separate have been received. */
    bool has_more() const;
    /** Bytes received after message(). */
    size_t pending() const { return m_end - m_found; }
    /** Part of a message has been received. */
    bool unfinished() const { return m_end > m_found || m_dropping; }

    void clear();

private:
    Found found(size_t length);
    void drop_found();
    void resize(size_t capacity, std::unique_ptr<char[]> bytes);

    std::unique_ptr<char[]> m_bytes; // not a vector, which would fill what is about to be received
    size_t m_capacity = 0;
    size_t m_end = 0;
    size_t m_scanned = 0;
    size_t m_found = 0; // length of the message found
    bool m_dropping = false;
    scpi_framer_t m_framer{};
};

} // namespace orvan_service

#endif

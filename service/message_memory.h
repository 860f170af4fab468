#ifndef ORVAN_SERVICE_MESSAGE_MEMORY_H
#define ORVAN_SERVICE_MESSAGE_MEMORY_H

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

namespace orvan_service {

class MessageMemory;

/** Memory for received bytes, borrowed from a MessageMemory and returned on destruction. */
class MessagePiece {
public:
    MessagePiece() = default;
    MessagePiece(MessagePiece&& other) noexcept;
    MessagePiece& operator=(MessagePiece&& other) noexcept;
    ~MessagePiece();

    char* data() const { return m_data; }
    /** Usable bytes. */
    size_t size() const { return m_size; }
    bool is_long() const { return m_data != nullptr && m_long; }
    explicit operator bool() const { return m_data != nullptr; }

private:
    friend class MessageMemory;
    MessagePiece(MessageMemory* memory, char* data, size_t size, bool is_long)
        : m_memory(memory), m_data(data), m_size(size), m_long(is_long)
    {
    }

    MessageMemory* m_memory = nullptr;
    char* m_data = nullptr;
    size_t m_size = 0;
    bool m_long = false;
};

/**
 * Lends memory to the clients' receive buffers: short pieces freely, long ones from a common budget.
 *
 * A client holds a short piece only while it has unfinished input, so idle clients hold none. A long piece is
 * reserved for a message that does not fit into a short one, first come, first served; those that do not fit
 * into the budget wait in line. All functions are called on one thread, and all pieces are returned on it.
 */
class MessageMemory {
public:
    static constexpr size_t kShort = 16 * 1024;

    enum class Answer {
        kGranted,
        kWait, /**< `owner` is in line; ask again after memory has been returned */
        kNone  /**< out of memory */
    };

    /**
     * @param longest bytes of the longest message, more than kShort
     * @param budget total bytes of all long pieces; at least `longest`
     */
    MessageMemory(size_t longest, size_t budget);
    ~MessageMemory();
    MessageMemory(const MessageMemory&) = delete;
    MessageMemory& operator=(const MessageMemory&) = delete;

    size_t longest() const { return m_longest; }

    /** A short piece; throws std::bad_alloc. */
    MessagePiece borrow();

    /**
     * Makes room for `bytes` in `piece`, at most longest(). A long piece keeps its contents and its place; a
     * short one is replaced, and `first` to `last` of its contents are moved to the front of the new one.
     */
    Answer reserve(const void* owner, MessagePiece& piece, size_t bytes, size_t first, size_t last);

    /** `owner` no longer waits. */
    void leave_line(const void* owner);

    /** Total bytes of all long pieces. */
    size_t reserved() const { return m_reserved; }

private:
    friend class MessagePiece;
    char* map();
    void give_back(MessagePiece& piece);

    const size_t m_longest;
    const size_t m_budget;
    size_t m_reserved = 0;
    std::vector<std::unique_ptr<char[]>> m_short_spares;
    char* m_long_spare = nullptr;
    std::deque<const void*> m_line;
};

} // namespace orvan_service

#endif

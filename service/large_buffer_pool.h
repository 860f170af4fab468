#ifndef ORVAN_SERVICE_LARGE_BUFFER_POOL_H
#define ORVAN_SERVICE_LARGE_BUFFER_POOL_H

#include <cstddef>
#include <mutex>

namespace orvan_service {

class LargeBufferPool;

/** One buffer borrowed from the pool; goes back when this goes. Empty when there was no memory. */
class LargeBuffer {
public:
    LargeBuffer() = default;
    LargeBuffer(LargeBufferPool* pool, char* data) : m_pool(pool), m_data(data) {}
    LargeBuffer(LargeBuffer&& other) noexcept;
    LargeBuffer& operator=(LargeBuffer&& other) noexcept;
    ~LargeBuffer();

    char* data() const { return m_data; }
    explicit operator bool() const { return m_data != nullptr; }

private:
    LargeBufferPool* m_pool = nullptr;
    char* m_data = nullptr;
};

/**
 * Lends buffers that hold a message of the largest size.
 *
 * A buffer is address space: pages become memory as they are written, so a message costs what it is long.
 * The last buffer that came back is kept with its pages, because touching 3 MB of fresh pages takes a
 * good part of the time it takes to read them from a socket; the others are given back to the system.
 * Any thread.
 */
class LargeBufferPool {
public:
    explicit LargeBufferPool(size_t size) : m_size(size) {}
    ~LargeBufferPool();
    LargeBufferPool(const LargeBufferPool&) = delete;
    LargeBufferPool& operator=(const LargeBufferPool&) = delete;

    size_t size() const { return m_size; }
    LargeBuffer borrow();

private:
    friend class LargeBuffer;
    void give_back(char* data);

    const size_t m_size;
    std::mutex m_mutex;
    char* m_spare = nullptr;
};

} // namespace orvan_service

#endif

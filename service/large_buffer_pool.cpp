#include "large_buffer_pool.h"

#include <sys/mman.h>

#include <utility>

namespace orvan_service {

LargeBuffer::LargeBuffer(LargeBuffer&& other) noexcept
    : m_pool(other.m_pool), m_data(std::exchange(other.m_data, nullptr))
{
}

LargeBuffer& LargeBuffer::operator=(LargeBuffer&& other) noexcept
{
    std::swap(m_pool, other.m_pool);
    std::swap(m_data, other.m_data);
    return *this;
}

LargeBuffer::~LargeBuffer()
{
    if (m_data) {
        m_pool->give_back(m_data);
    }
}

LargeBufferPool::~LargeBufferPool()
{
    if (m_spare) {
        ::munmap(m_spare, m_size);
    }
}

LargeBuffer LargeBufferPool::borrow()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_spare) {
            return {this, std::exchange(m_spare, nullptr)};
        }
    }
    void* data =
        ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return {this, data == MAP_FAILED ? nullptr : static_cast<char*>(data)};
}

void LargeBufferPool::give_back(char* data)
{
    {
        const std::lock_guard lock(m_mutex);
        std::swap(m_spare, data);
    }
    if (data) {
        ::munmap(data, m_size);
    }
}

} // namespace orvan_service

#include "nothrow_new.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace {

std::atomic<bool> g_refuse = false;

} // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    if (g_refuse) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace board_test {

void refuse_nothrow_new(bool refuse)
{
    g_refuse = refuse;
}

} // namespace board_test

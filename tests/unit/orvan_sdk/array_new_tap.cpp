#include "array_new_tap.h"

#include <atomic>
#include <new>

namespace {

std::atomic<size_t> g_refused = 0;

} // namespace

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    if (size != 0 && size == g_refused) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace orvan_test {

void refuse_array_of(size_t bytes)
{
    g_refused = bytes;
}

} // namespace orvan_test

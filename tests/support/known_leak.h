#ifndef ORVAN_TESTS_SUPPORT_KNOWN_LEAK_H
#define ORVAN_TESTS_SUPPORT_KNOWN_LEAK_H

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace orvan_test {

/** Allocations that this thread makes while it lives are not reported as leaks. */
struct [[maybe_unused]] KnownLeak {
#ifdef __SANITIZE_ADDRESS__
    KnownLeak() { __lsan_disable(); }
    ~KnownLeak() { __lsan_enable(); }
#else
    KnownLeak() = default;
    ~KnownLeak() = default;
#endif
    KnownLeak(const KnownLeak&) = delete;
    KnownLeak& operator=(const KnownLeak&) = delete;
};

} // namespace orvan_test

#endif

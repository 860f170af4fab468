/**
 * The way into the private part of the test table.
 */
#ifndef ORVAN_TESTS_BIT_BENCH_H
#define ORVAN_TESTS_BIT_BENCH_H

#include <atomic>

#include "orvan_sdk/bit/bit_manager.h"

namespace orvan_test {

// A step of the round and the end of the periodic thread are the manager's own affair; only through them can
// a test take a step on its own thread and leave no thread behind.
template <void (BITManager::*kStep)(), void (BITManager::*kStop)(), std::atomic<bool> BITManager::*kStopping>
struct BitManagerInside {
    friend void take_cbit_step(BITManager& manager) { (manager.*kStep)(); }
    friend void stop_periodic_thread(BITManager& manager) { (manager.*kStop)(); }
    friend bool is_stopping(BITManager& manager) { return manager.*kStopping; }
};
void take_cbit_step(BITManager& manager);
void stop_periodic_thread(BITManager& manager);
bool is_stopping(BITManager& manager);
template struct BitManagerInside<&BITManager::runCBITs, &BITManager::stop, &BITManager::m_stopThread>;

} // namespace orvan_test

#endif

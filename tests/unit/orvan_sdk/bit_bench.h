/**
 * Access to private members of the test table.
 */
#ifndef ORVAN_TESTS_BIT_BENCH_H
#define ORVAN_TESTS_BIT_BENCH_H

#include <atomic>

#include "orvan_sdk/bit/bit_manager.h"

namespace orvan_test {

// A step of the round, the periodic thread's loop and the registered rows are private to the
// manager; only through them can a test take a step on its own thread and leave no thread running.
template <void (BITManager::*kStep)(), void (BITManager::*kStop)(), void (BITManager::*kRun)(),
          std::atomic<bool> BITManager::*kStopping, bool BITManager::*kStarted,
          BITType_t (BITManager::*kKinds)[BIT_TYPE_COUNT]>
struct BitManagerInside {
    friend void take_cbit_step(BITManager& manager) { (manager.*kStep)(); }
    friend void stop_periodic_thread(BITManager& manager) { (manager.*kStop)(); }
    friend void run_periodic_thread(BITManager& manager) { (manager.*kRun)(); }
    friend bool is_stopping(BITManager& manager) { return manager.*kStopping; }
    friend void set_stopping(BITManager& manager) { manager.*kStopping = true; }
    friend bool has_thread(BITManager& manager) { return manager.*kStarted; }
    friend const BITType_t& kind_of(BITManager& manager, eBitType type) { return (manager.*kKinds)[type]; }
};
void take_cbit_step(BITManager& manager);
void stop_periodic_thread(BITManager& manager);
void run_periodic_thread(BITManager& manager);
bool is_stopping(BITManager& manager);
void set_stopping(BITManager& manager);
bool has_thread(BITManager& manager);
const BITType_t& kind_of(BITManager& manager, eBitType type);
template struct BitManagerInside<&BITManager::runCBITs, &BITManager::stop, &BITManager::runPeriodicThread,
                                 &BITManager::m_stopThread, &BITManager::m_threadStarted,
                                 &BITManager::m_bitTypes>;

} // namespace orvan_test

#endif

// What the library keeps for its process is put back after each case, so that the cases can share one.

#include <gtest/gtest.h>

#include "orvan_sdk/bit/bit_manager.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"

namespace {

template <BITType_t (BITManager::*kKinds)[BIT_TYPE_COUNT], int BITManager::*kNext>
struct TestTableInside {
    friend BITType_t* kinds_of(BITManager& manager) { return manager.*kKinds; }
    friend int& next_of(BITManager& manager) { return manager.*kNext; }
};
BITType_t* kinds_of(BITManager& manager);
int& next_of(BITManager& manager);
template struct TestTableInside<&BITManager::m_bitTypes, &BITManager::m_cbitCurrentTest>;

// The manager has no way to forget a test, whose name and objects are often a case's own.
void empty(BITManager& manager)
{
    for (int type = 0; type < BIT_TYPE_COUNT; ++type) {
        BITType_t& kind = kinds_of(manager)[type];
        const char* const name = kind.typeName;
        kind = BITType_t{};
        kind.typeName = name;
    }
    next_of(manager) = 0;
}

class SharedProcess : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest& all) override
    {
        // An ordinary user can get a private home only while the process has a single thread.
        if (all.test_to_run_count() > 1) {
            const orvan_test::PrivateHome home;
        }
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        empty(*BITManager::getInstance(0));
        HaldeElec::Orvan::PersistentDataTestPeer::forget_instance();
    }
};

[[maybe_unused]] const bool listens = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new SharedProcess);
    return true;
}();

} // namespace

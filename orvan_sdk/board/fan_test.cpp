#include "fan_test.h"

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int ERR_COUNT = 10;

} // namespace

void FanTest::count(bool failed)
{
    if (failed && m_errors < ERR_COUNT) {
        ++m_errors;
    } else if (!failed && m_errors > 0) {
        --m_errors;
    }
}

void FanTest::report(BITManager& manager) const
{
    manager.setTestResult(CBIT, kFanTest, m_errors >= ERR_COUNT ? BIT_FAIL : BIT_PASS, ERR_NONE);
}

} // namespace HaldeElec::Orvan

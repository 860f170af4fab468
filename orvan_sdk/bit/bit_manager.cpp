#include "orvan_sdk/bit/bit_manager.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include <syslog.h>

#include "hw/hw.h"

namespace {

constexpr char kUnknown[] = "Unknown";
constexpr uint64_t kMicrosecondsPerSecond = 1000000;

bool is_bit_type(int type)
{
    return type >= PBIT && type < BIT_TYPE_COUNT;
}

bool can_be_run(const Test_t& test)
{
    return test.autoMode && test.testFunction != nullptr;
}

} // namespace

BITManager* BITManager::getInstance(int period)
{
    static BITManager instance(period);
    return &instance;
}

BITManager::BITManager(int period) : m_cbitPeriod(period)
{
    m_bitTypes[PBIT].typeName = "PBIT";
    m_bitTypes[CBIT].typeName = "CBIT";
    m_bitTypes[IBIT].typeName = "IBIT";
    if (period < 1) {
        ::syslog(LOG_INFO, "CBIT thread not spawned");
        return;
    }
    const auto entry = [](void* manager) -> void* {
        static_cast<BITManager*>(manager)->runPeriodicThread();
        return nullptr;
    };
    if (::pthread_create(&m_cbitThreadId, nullptr, entry, this) == 0) {
        m_threadStarted = true;
    } else {
        ::syslog(LOG_ERR, "Failed to create thread");
    }
}

BITManager::~BITManager()
{
    stop();
}

void BITManager::stop()
{
    if (!m_threadStarted) {
        return;
    }
    m_stopThread = true;
    ::pthread_join(m_cbitThreadId, nullptr);
    m_threadStarted = false;
}

void BITManager::runPeriodicThread()
{
    while (!m_stopThread) {
        runCBITs();
        hw_delay_us(static_cast<uint64_t>(m_cbitPeriod) * kMicrosecondsPerSecond);
    }
}

void BITManager::runCBITs()
{
    Test_t test;
    TestRecord_t* record = nullptr;
    {
        std::lock_guard lock(m_bitMutex);
        BITType_t& cbit = m_bitTypes[CBIT];
        for (int tries = 0; tries < cbit.testCount && record == nullptr; ++tries) {
            const int index = m_cbitCurrentTest;
            m_cbitCurrentTest = (index + 1) % cbit.testCount;
            if (can_be_run(cbit.testTable[index])) {
                test = cbit.testTable[index];
                record = &cbit.testRecords[index];
            }
        }
    }
    if (record != nullptr) {
        test.testFunction(record);
    }
}

void BITManager::runPBITs()
{
    run_all(PBIT);
}

void BITManager::runIBITs()
{
    run_all(IBIT);
}

void BITManager::run_all(eBitType type)
{
    const int count = getTestsNumber(type);
    for (int index = 0; index < count; ++index) {
        Test_t test;
        TestRecord_t* record = nullptr;
        {
            std::lock_guard lock(m_bitMutex);
            test = m_bitTypes[type].testTable[index];
            record = &m_bitTypes[type].testRecords[index];
        }
        if (can_be_run(test)) {
            test.testFunction(record);
        }
    }
}

int BITManager::registerTest(eBitType type, Test_t test)
{
    if (!is_bit_type(type)) {
        ::syslog(LOG_ERR, "Error: Invalid BIT type!");
        return -1;
    }
    std::lock_guard lock(m_bitMutex);
    BITType_t& kind = m_bitTypes[type];
    if (kind.testCount >= kMaxTestsOfType) {
        ::syslog(LOG_ERR, "Error: Maximum number of tests reached for %s!", kind.typeName);
        return -1;
    }
    const int index = kind.testCount++;
    kind.testRecords[index] = {type, index, BIT_NOT_PERFORMED, ERR_NONE, test.object};
    kind.testTable[index] = std::move(test);
    return index;
}

int BITManager::find_test(eBitType type, const char* name) const
{
    if (name == nullptr) {
        return -1;
    }
    const BITType_t& kind = m_bitTypes[type];
    for (int index = 0; index < kind.testCount; ++index) {
        const char* const key = kind.testTable[index].testName;
        if (key != nullptr && std::strcmp(name, key) == 0) {
            return index;
        }
    }
    return -1;
}

bool BITManager::setTestResult(eBitType type, const char* name, int status, int errorCode)
{
    if (!is_bit_type(type)) {
        return false;
    }
    std::lock_guard lock(m_bitMutex);
    const int index = find_test(type, name);
    if (index < 0) {
        return false;
    }
    m_bitTypes[type].testRecords[index].status = status;
    m_bitTypes[type].testRecords[index].errorCode = errorCode;
    return true;
}

void BITManager::setRunningMode(eBitType type, const char* name, bool autoMode)
{
    if (!is_bit_type(type)) {
        return;
    }
    std::lock_guard lock(m_bitMutex);
    const int index = find_test(type, name);
    if (index >= 0) {
        m_bitTypes[type].testTable[index].autoMode = autoMode;
    }
}

int BITManager::getTestsNumber(eBitType type)
{
    if (!is_bit_type(type)) {
        return 0;
    }
    std::lock_guard lock(m_bitMutex);
    return m_bitTypes[type].testCount;
}

bool BITManager::getTestResult(eBitType type, int index, bitReport_t& report)
{
    if (!is_bit_type(type)) {
        return false;
    }
    std::lock_guard lock(m_bitMutex);
    const BITType_t& kind = m_bitTypes[type];
    if (index < 0 || index >= kind.testCount) {
        return false;
    }
    const TestRecord_t& record = kind.testRecords[index];
    report = {kind.testTable[index].testName, record.status, record.errorCode};
    return true;
}

const char* BITManager::getTestName(const TestRecord_t* record)
{
    if (record == nullptr || !is_bit_type(record->testType)) {
        return kUnknown;
    }
    std::lock_guard lock(m_bitMutex);
    const BITType_t& kind = m_bitTypes[record->testType];
    if (record->testIndex < 0 || record->testIndex >= kind.testCount) {
        return kUnknown;
    }
    return kind.testTable[record->testIndex].testName;
}

const char* BITManager::getBitTypeName(eBitType type)
{
    return is_bit_type(type) ? m_bitTypes[type].typeName : kUnknown;
}

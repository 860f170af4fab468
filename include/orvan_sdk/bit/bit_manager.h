/**
 * The table of built-in tests: the single place from which results are read.
 *
 * A test is a row of one of three kinds, and its name is its key in that kind. A row may carry a function for
 * the manager to run; the owner of a row without one reports its outcome with setTestResult.
 */
#ifndef ORVAN_SDK_BIT_MANAGER_H
#define ORVAN_SDK_BIT_MANAGER_H

#include <atomic>
#include <functional>
#include <mutex>

#include <pthread.h>

#include "orvan_sdk/orvan_api.h"

enum eBitType : int {
    PBIT = 0, /**< at power-up */
    CBIT = 1, /**< continuous */
    IBIT = 2, /**< initiated on request */
    BIT_TYPE_COUNT = 3,
};

enum eTestStatus : int {
    BIT_PASS = 0,
    BIT_FAIL = 1,
    BIT_IN_PROGRESS = 2,
    BIT_NOT_PERFORMED = 3,
};

enum eErrorCode : int {
    ERR_NONE = 0,
    ERR_GENERAL = 1,
    ERR_READ_FAIL = 2,
    ERR_WRITE_FAIL = 3,
    ERR_BAD_ID = 4,
    ERR_OVERHEATING = 5,
    ERR_DATA = 6,
    ERR_CRC32 = 7,
    ERR_CFG_MISMATCH = 8,
    ERR_LAST = 9,
};

/** Maximum number of rows of a kind. */
inline constexpr int kMaxTestsOfType = 10;

/** Seconds between two continuous tests, as every caller of BITManager::getInstance passes it. */
inline constexpr int kCbitPeriod = 30;

/** A test as it is registered. */
struct Test_t {
    const char* testName = nullptr;              /**< key; not copied, must outlive the manager */
    std::function<int(void*)> testFunction = {}; /**< gets its TestRecord_t, result unused; may be empty */
    void* object = nullptr;                      /**< for the owner's use */
    bool autoMode = false;                       /**< whether the manager runs the function */
};

/** Latest result of a test. */
struct TestRecord_t {
    int testType = PBIT; /**< eBitType */
    int testIndex = 0;   /**< row in the kind's table */
    int status = BIT_NOT_PERFORMED;
    int errorCode = ERR_NONE; /**< eErrorCode, or a test-specific word */
    void* object = nullptr;   /**< of the Test_t */
};

/** One kind of test. */
struct BITType_t {
    const char* typeName = nullptr; /**< "PBIT", "CBIT" or "IBIT" */
    Test_t testTable[kMaxTestsOfType] = {};
    TestRecord_t testRecords[kMaxTestsOfType] = {}; /**< by row */
    int testCount = 0;
};

struct bitReport_t {
    const char* testName;
    int result; /**< eTestStatus */
    int errorCode;
};

/**
 * One object for the process. All calls are safe on any thread; a test function runs on the thread that
 * called for it, or on the periodic one, and never under the lock, so it may call back. It must not throw.
 *
 * A result remains until its owner overwrites it: there is no reset.
 */
class ORVAN_API BITManager {
public:
    /**
     * The object, made by the first call and destroyed at the end of the process.
     *
     * @param period seconds between two steps of the periodic thread, which runs the continuous tests in
     *               turn, one per step; below 1 there is no such thread. Only the first call's value counts.
     * @return never null
     */
    static BITManager* getInstance(int period);

    /** Ends the periodic thread, which can take up to one period. */
    ~BITManager();
    BITManager(const BITManager&) = delete;
    BITManager& operator=(const BITManager&) = delete;

    /** Adds a row, as not performed. @return its index; -1, and logged, for a bad kind or a full table */
    int registerTest(eBitType type, Test_t test);

    /** Runs the functions of the power-up tests in auto mode, in order of registration, on this thread. */
    void runPBITs();
    /** As runPBITs, for the tests on request. */
    void runIBITs();

    /** Sets the result of the first row of that name, unchecked. @return whether there is such a row */
    bool setTestResult(eBitType type, const char* name, int status, int errorCode);

    /** Sets whether the manager runs the function of the first row of that name; a missing row is ignored. */
    void setRunningMode(eBitType type, const char* name, bool autoMode);

    /** Rows in use; 0 for a bad kind. */
    int getTestsNumber(eBitType type);

    /** @return false, with `report` unchanged, for a bad kind or an index outside the table */
    bool getTestResult(eBitType type, int index, bitReport_t& report);

    /** Name of the test that a record belongs to; "Unknown" for null or a record that is not in the table. */
    const char* getTestName(const TestRecord_t* record);

    /** "PBIT", "CBIT" or "IBIT"; "Unknown" for a bad kind. */
    const char* getBitTypeName(eBitType type);

private:
    explicit BITManager(int period);

    // One step: the next continuous test that can be run.
    void runCBITs();
    void stop();
    void runPeriodicThread();

    void run_all(eBitType type);
    // Index of the first row of that name, or -1. Under the lock.
    int find_test(eBitType type, const char* name) const;

    std::mutex m_bitMutex; // guards both tables and the place in the round
    BITType_t m_bitTypes[BIT_TYPE_COUNT];
    int m_cbitCurrentTest = 0;
    std::atomic<bool> m_stopThread = false;
    bool m_threadStarted = false;
    int m_cbitPeriod;
    pthread_t m_cbitThreadId = {};
};

#endif

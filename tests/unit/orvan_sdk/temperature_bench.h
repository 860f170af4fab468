/**
 * The temperature monitor over a scripted module for each channel, on a manual clock.
 */
#ifndef ORVAN_TESTS_TEMPERATURE_BENCH_H
#define ORVAN_TESTS_TEMPERATURE_BENCH_H

#include <array>
#include <atomic>
#include <memory>
#include <string>

#include "board/current_board.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "records_bench.h"

namespace orvan_test {

inline constexpr uint64_t kPause = 30'000'000; // microseconds between two polls

// A thread ends only when the flag is cleared before its sleep ends; the destructor's way to it would keep a
// test from looking at what the end has left.
template <std::atomic<bool> Scpi_Orvanx::*kRun>
struct MonitorInside {
    friend std::atomic<bool>& run_flag(Scpi_Orvanx& service) { return service.*kRun; }
};
std::atomic<bool>& run_flag(Scpi_Orvanx& service);
template struct MonitorInside<&Scpi_Orvanx::m_runTemperatureThread>;

struct Verdict {
    int result;
    int errorCode;
    bool operator==(const Verdict&) const = default;
};
inline void PrintTo(const Verdict& verdict, std::ostream* out)
{
    *out << "result " << verdict.result << ", error word 0x" << std::hex << verdict.errorCode << std::dec;
}
inline constexpr Verdict kUntouched = {BIT_NOT_PERFORMED, -77};
inline constexpr Verdict kPassed = {BIT_PASS, 0};

/** A module for each channel; the selected one's is reached through the instrument's own SCPI port. */
class TemperatureMonitor : public RecordsBench {
protected:
    TemperatureMonitor()
    {
        manager = BITManager::getInstance(0);
        register_bit_tests(manager, nullptr);
        manager->setTestResult(CBIT, kTempTest, kUntouched.result, kUntouched.errorCode);
        manager->setTestResult(CBIT, kModulesTest, kUntouched.result, kUntouched.errorCode);
        for (int ch = 1; ch <= kMaxChannels; ++ch) {
            modules[index(ch)] = std::make_unique<ScriptedModule>("127.0." + std::to_string(6 + ch) + ".1");
            connect_module(ch, module_of(ch));
        }
        orvanx->setSelectedChannel(0);
        orvanx->setScpiPort(own_server.port());
        all_answer("30.0");
    }

    ~TemperatureMonitor() override
    {
        run_flag(*orvanx) = false;
        board->stop();
    }

    static size_t index(int ch) { return static_cast<size_t>(ch - 1); }
    ScriptedModule& module_of(int ch) { return *modules[index(ch)]; }

    void answers(int ch, const std::string& celsius)
    {
        module_of(ch).always(ModuleAnswer::reply(celsius + ";+OK\r\n"));
    }
    void all_answer(const std::string& celsius)
    {
        for (int ch = 1; ch <= kMaxChannels; ++ch) {
            answers(ch, celsius);
        }
    }
    void refuses(int ch) { module_of(ch).always(ModuleAnswer::reply("-ERR -200, \"Execution error\"\r\n")); }

    void poll(int channels = kMaxChannels) { EXPECT_TRUE(orvanx->getTempOrvanXForAlltheChannel(channels)); }

    Verdict verdict(const std::string& name)
    {
        bitReport_t report = {};
        for (int row = 0; manager->getTestResult(CBIT, row, report); ++row) {
            if (report.testName == name) {
                return {report.result, report.errorCode};
            }
        }
        return {-1, -1};
    }
    std::array<bool, kMaxChannels> live() const
    {
        return {orvanx->m_isLive[0], orvanx->m_isLive[1], orvanx->m_isLive[2], orvanx->m_isLive[3]};
    }
    double greatest() { return orvanx->getTempMaxOrvanx(); }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    BITManager* manager = nullptr;
    std::array<std::unique_ptr<ScriptedModule>, kMaxChannels> modules;
    ScriptedModule own_server;
};

} // namespace orvan_test

#endif

/**
 * An instrument that runs its complete start: board, both stores of its settings, files, and a scripted
 * module for each channel. One trace records its accesses to the board, its log lines and its queries.
 */
#ifndef ORVAN_TESTS_START_BENCH_H
#define ORVAN_TESTS_START_BENCH_H

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "board/faulty_spi_device.h"
#include "dataorvan.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "support/instrument_files.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"
#include "support/private_network.h"
#include "support/scripted_module.h"

namespace board_test {

using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using orvan_test::ModuleAnswer;
using orvan_test::ScriptedModule;

constexpr int kLogToCallback = 2;

struct TestResult {
    int result;
    int errorCode;
    bool operator==(const TestResult&) const = default;
};
inline void PrintTo(const TestResult& result, std::ostream* out)
{
    *out << "result " << result.result << ", error word 0x" << std::hex << result.errorCode << std::dec;
}

class StartBench : public testing::Test {
protected:
    static constexpr uint64_t kSettlingUs = 10; // of the multiplexer

    explicit StartBench(const sim_board::BoardWiring& wiring);
    virtual std::unique_ptr<HaldeElec::Orvan::IOrvanDeviceManager> make_device() = 0;
    void SetUp() override;
    /** Ends the device. Restores standard output first, where GoogleTest reports failures. */
    void TearDown() override;

    /** Settings that are empty except for what the modules of this bench report. */
    static EEPROM_DEVICE_SETTINGS settings_of_modules();
    HaldeElec::Orvan::Blob signed_image(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation);
    void store_in_eeprom(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation = 57);
    void store_in_file(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation = 57);
    void store(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation = 57);
    HaldeElec::Orvan::Blob eeprom_image();
    HaldeElec::Orvan::Blob file_image();

    /** Runs the constructor; its waits advance the clock automatically. */
    void start();
    /** The same, and lets the threads it started do their first work and fall asleep. */
    void start_and_settle();
    /** Advances the clock and lets threads whose sleep ends continue. */
    void pass(uint64_t us) { ASSERT_TRUE(board->clock().run(us, threads)); }
    /** Runs the destructor while time passes and frames arrive, and ends the module service and the owner of
     * the settings. */
    void end() { end({}); }
    /** The same, but no frame arrives until the SPI port is closed. */
    void end_without_frames_before_the_bus_ends();
    /** A server that has not been scheduled since its start would end without a frame. */
    static void wait_for_maintenance_server();
    /** Call before every start: the table holds real addresses. */
    void connect_modules();

    static EEPROM_DEVICE_SETTINGS& settings();
    static TestResult test_result(eBitType type, const std::string& name);
    const ORVAN_CONFIG& record(int channel);
    ScriptedModule& module(int channel) { return *modules[static_cast<size_t>(channel - 1)]; }
    uint32_t selected();
    size_t count(const std::string& line) const;
    /** Why a case can't run here; empty when it can. */
    const std::string& refusal() const { return home.refusal().empty() ? network.refusal() : home.refusal(); }
    auto i2c_fault(uint8_t address) { return sim_board::insert_fault(board->i2c(), address); }
    /** Arguments of "sudo" so far, one call per line. */
    std::string sudo_calls() const;

    /** The steps of the start: runs of equal lines count as one, and of the hardware accesses only those
     *  that identify a step are included. */
    std::vector<std::string> steps() const;

    orvan_test::PrivateHome home;
    orvan_test::PrivateNetwork network;
    std::optional<orvan_test::OutputCapture> out{STDOUT_FILENO};
    std::optional<orvan_test::OutputCapture> err{STDERR_FILENO};
    orvan_test::InstrumentFiles files;
    sim_board::InstalledBoard board;
    orvan_test::LogCapture logs;
    std::array<std::unique_ptr<ScriptedModule>, kMaxChannels> modules;
    size_t threads = 2; // of the device's start: temperature and fan
    std::unique_ptr<HaldeElec::Orvan::IOrvanDeviceManager> device;

private:
    void end(const std::function<bool()>& frames_are_due);
};

} // namespace board_test

#endif

/**
 * A portable's board, and a device whose start-up ended at the SPI port: its operations work, and
 * no thread runs.
 */
#ifndef ORVAN_TESTS_BOARD_PORTABLE_BENCH_H
#define ORVAN_TESTS_BOARD_PORTABLE_BENCH_H

#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "end_module_service.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "support/log_capture.h"
#include "word_chip.h"

namespace HaldeElec::Orvan {

/** Access to the device's private members. */
struct PortableDeviceTestPeer {
    OrvanPortableDevice& device;

    [[noreturn]] void charge_monitor()
    {
        device.ChargeMonitor();
        std::abort();
    }
    void charge_cycle(int& retry, bool& orvanx_on) { device.charge_cycle(retry, orvanx_on); }
    void run_fan_thread(bool run) { device.m_runFanThread = run; }
    void fan_control() { device.fan_control(device.devConnHandler); }
    void set_bit_manager(BITManager* manager) { device.m_bitManager = manager; }
    BITManager* bit_manager() const { return device.m_bitManager; }
    bool battery_is_alive() const { return device.m_batteryIsAlive; }
    void set_settings(CPersistentData* data) { device.pPersistentData = data; }
};

} // namespace HaldeElec::Orvan

namespace board_test {

using namespace HaldeElec::Orvan;
using orvan_test::LogCapture;
using orvan_test::LogLine;
using sim_board::expect_trace;
using sim_board::insert_fault;
using sim_board::Mcp23017;

constexpr uint8_t kCharger = 0x09;
constexpr uint8_t kBattery = 0x0B;
constexpr uint8_t kExpander = 0x20;
constexpr const char* kSettingsNode = "/dev/spidev0.1";
constexpr int kDebugOff = 4;

struct PortableBoard {
    /** What the expander drives on port A. */
    uint8_t port_a() { return board->expander(kExpander).reg(Mcp23017::kOlat, Mcp23017::kA); }

    sim_board::InstalledBoard board{sim_board::kPortableWiring};
};

/** A device that found no SPI port. */
inline std::unique_ptr<OrvanPortableDevice> device_without_threads(sim_board::Board& board)
{
    board.spi().set_node_present(kSettingsNode, false);
    auto device = std::make_unique<OrvanPortableDevice>("/dev/null", kDebugOff);
    board.spi().set_node_present(kSettingsNode, true);
    return device;
}

class PortableTest : public testing::Test, protected PortableBoard {
protected:
    PortableTest()
    {
        board->i2c().attach(kCharger, charger);
        board->i2c().attach(kBattery, battery);
        battery->set(0x0D, 80);
        battery->set(0x0A, 0xff38); // -200 mA
        battery->set(0x09, 12345);
        logs.clear();
        trace();
    }
    std::vector<std::string> trace() { return board->trace().take(); }

    std::shared_ptr<WordChip> charger = std::make_shared<WordChip>();
    std::shared_ptr<WordChip> battery = std::make_shared<WordChip>();
    LogCapture logs;
    std::unique_ptr<OrvanPortableDevice> device = device_without_threads(*board);
    PortableDeviceTestPeer peer{*device};
};

} // namespace board_test

#endif

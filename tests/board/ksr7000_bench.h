/**
 * A third platform's board, and a device whose start-up ended at the SPI port: its operations work,
 * and no thread runs.
 */
#ifndef ORVAN_TESTS_BOARD_KSR7000_BENCH_H
#define ORVAN_TESTS_BOARD_KSR7000_BENCH_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "ksr7000_device_peer.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "support/log_capture.h"
#include "word_chip.h"

namespace board_test {

class Ksr7000Test : public testing::Test {
protected:
    static constexpr uint8_t kPorts = 0x20;
    static constexpr uint8_t kSupply = 0x24;
    static constexpr uint8_t kCharger = 0x09;
    static constexpr uint8_t kBattery = 0x0B;

    Ksr7000Test()
    {
        board->i2c().attach(kCharger, charger);
        board->i2c().attach(kBattery, battery);
        charger->set(0x12, 0xe041);
        battery->set(0x0D, 80);
        battery->set(0x0A, 0xff38); // -200 mA
        board->spi().set_node_present("/dev/spidev0.1", false);
        device.emplace("/dev/null", 4);
        logs.clear();
        trace();
    }
    std::vector<std::string> trace() { return board->trace().take(); }
    HaldeElec::Orvan::Ksr7000DeviceTestPeer inside() { return {*device}; }
    auto fault(uint8_t address) { return sim_board::insert_fault(board->i2c(), address); }

    sim_board::InstalledBoard board{sim_board::kKsr7000Wiring};
    sim_board::SelfAdvancing self{board->clock()};
    std::shared_ptr<WordChip> charger = std::make_shared<WordChip>();
    std::shared_ptr<WordChip> battery = std::make_shared<WordChip>();
    orvan_test::LogCapture logs;
    std::optional<HaldeElec::Orvan::OrvanKsr7000Device> device;
};

} // namespace board_test

#endif

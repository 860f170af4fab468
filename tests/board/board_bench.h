/**
 * A simulated board on a manual clock, and a connection handler that drives its multiplexer.
 */
#ifndef ORVAN_TESTS_BOARD_BENCH_H
#define ORVAN_TESTS_BOARD_BENCH_H

#include <numeric>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>
#include <wiringPi.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "board/faulty_spi_device.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include <hw/hw.h>

namespace board_test {

using Bytes = std::vector<uint8_t>;

inline Bytes counting(size_t count, uint8_t from = 1)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), from);
    return bytes;
}

constexpr uint32_t kEepromChannel = 5;

/** Selects the chip whose multiplexer number is the current channel. */
class MuxHandler : public HaldeElec::Orvan::IDeviceConnectionHandler {
public:
    ~MuxHandler() override
    {
        if (Connected()) {
            SpiClosePort();
        }
    }

    void configureMuxPins() override
    {
        if (throw_in_configure) {
            throw std::runtime_error("no pins");
        }
        for (const int pin : {kEnable, 7, 21, 6}) {
            pinMode(pin, OUTPUT);
        }
        digitalWrite(kEnable, HIGH);
    }
    void enableMUX() override
    {
        digitalWrite(7, static_cast<int>(channelNo & 1));
        digitalWrite(21, static_cast<int>(channelNo >> 1 & 1));
        digitalWrite(6, static_cast<int>(channelNo >> 2 & 1));
        digitalWrite(kEnable, LOW);
        hw_delay_us(10);
    }
    void disableMUX() override { digitalWrite(kEnable, HIGH); }

    int slot() const { return spi_cs_fd == &spi_cs0_fd ? 0 : spi_cs_fd == &spi_cs1_fd ? 1 : -1; }
    int slot_value() const { return *spi_cs_fd; }
    int devices() const { return installedChannels; }
    unsigned mode() const { return spi_mode; }
    unsigned bits() const { return spi_bitsPerWord; }
    unsigned speed() const { return spi_speed; }
    void set_bits(unsigned char bits) { spi_bitsPerWord = bits; }
    const int (&impedances() const)[16] { return trgImp; }

    bool throw_in_configure = false;

private:
    static constexpr int kEnable = 11;
};

class BoardTest : public testing::Test {
protected:
    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::SelfAdvancing self{board->clock()};
    MuxHandler handler;

    /** With the port set up on the EEPROM's channel and the trace cleared. */
    void connect()
    {
        ASSERT_EQ(handler.ConfigChannelSPI(0, 1), 0);
        uint32_t channel = kEepromChannel;
        handler.SetCommChannel(channel);
        board->trace().clear();
    }
    /** The trace since the last call. */
    std::vector<std::string> trace() { return board->trace().take(); }
    /** Only the messages to chips and the waits between them, without the multiplexer's own. */
    std::vector<std::string> messages()
    {
        auto lines = board->trace().lines_with({"spi ", "delay 1000"});
        board->trace().clear();
        return lines;
    }
};

} // namespace board_test

#endif

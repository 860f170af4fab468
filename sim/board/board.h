#pragma once

#include "board/clock.h"
#include "board/eeprom_cat25.h"
#include "board/expander_mcp23017.h"
#include "board/gpio.h"
#include "board/i2c_bus.h"
#include "board/spi_bus.h"
#include "board/trace.h"
#include "board/wiring.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace sim_board {

/// A controller board of one platform at power-on: its pins, its buses as its wiring tells, its settings
/// EEPROM (CAT25640) and its port expanders. It does nothing by itself. Thread-safe.
///
/// Further chips are put on with i2c().attach and spi().attach; faults stand before a chip, see insert_fault.
class Board {
public:
    /// wiring: stays in use, so it must outlive the board. eeprom_image: path of the EEPROM's image file,
    /// empty for an erased chip that is kept nowhere. Throws std::system_error if it can't be used.
    /// clock_rate: see Clock.
    explicit Board(const BoardWiring& wiring, Clock::Mode mode = Clock::Mode::kRealTime,
                   const std::string& eeprom_image = {}, unsigned clock_rate = 1);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    const BoardWiring& wiring() const { return m_wiring; }
    Trace& trace() { return m_trace; }
    Clock& clock() { return *m_clock; }
    /// For a chip that is added and needs the time.
    std::shared_ptr<const Clock> shared_clock() const { return m_clock; }
    Gpio& gpio() { return m_gpio; }
    SpiBus& spi() { return m_spi; }
    I2cBus& i2c() { return m_i2c; }

    Cat25Eeprom& eeprom() { return *m_eeprom; }
    /// The expander at that address; throws std::out_of_range if the wiring has none.
    Mcp23017& expander(std::uint8_t address) { return *m_expanders.at(address); }

    /// Ends all waits and the interrupt threads. Not from an interrupt handler.
    void stop();

private:
    void wire_reset();
    void wire_interrupts();

    const BoardWiring& m_wiring;
    Trace m_trace;
    const std::shared_ptr<Clock> m_clock;
    Gpio m_gpio;
    SpiBus m_spi;
    I2cBus m_i2c;
    std::shared_ptr<Cat25Eeprom> m_eeprom;
    std::map<std::uint8_t, std::shared_ptr<Mcp23017>> m_expanders;
};

} // namespace sim_board

#ifndef ORVAN_SIM_BOARD_BOARD_H
#define ORVAN_SIM_BOARD_BOARD_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "board/charge_controller.h"
#include "board/clock.h"
#include "board/eeprom_cat25.h"
#include "board/expander_mcp23017.h"
#include "board/fan_drive.h"
#include "board/gpio.h"
#include "board/i2c_bus.h"
#include "board/keypad_tca8418.h"
#include "board/modulation_relays.h"
#include "board/smart_battery.h"
#include "board/spi_bus.h"
#include "board/trace.h"
#include "board/wiring.h"

namespace sim_board {

/**
 * A controller board of one platform at power-on: pins, buses as its wiring defines them, settings EEPROM
 * (CAT25640), port expanders and what is connected to them, fan drive, keypad, battery and power button. It
 * is passive. Thread-safe.
 *
 * Further chips are added with i2c().attach and spi().attach; faults are put in front of a chip, see
 * insert_fault.
 */
class Board {
public:
    /**
     * wiring: must outlive the board. eeprom_image: path of the EEPROM's image file; empty for an erased chip
     * that is not saved. Throws std::system_error if the file can't be used. clock_rate: see Clock.
     */
    explicit Board(const BoardWiring& wiring, Clock::Mode mode = Clock::Mode::kRealTime,
                   const std::string& eeprom_image = {}, unsigned clock_rate = 1);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    const BoardWiring& wiring() const { return m_wiring; }
    Trace& trace() { return m_trace; }
    Clock& clock() { return *m_clock; }
    /** For an added chip that needs the time. */
    std::shared_ptr<const Clock> shared_clock() const { return m_clock; }
    Gpio& gpio() { return m_gpio; }
    SpiBus& spi() { return m_spi; }
    I2cBus& i2c() { return m_i2c; }

    Cat25Eeprom& eeprom() { return *m_eeprom; }
    /** The expander at that address; throws std::out_of_range if the wiring has none. */
    Mcp23017& expander(uint8_t address) { return *m_expanders.at(address); }

    /** The keypad controller, the battery and its charge controller; null on a board without them. */
    const std::shared_ptr<Tca8418>& keypad() { return m_keypad; }
    const std::shared_ptr<SmartBattery>& battery() { return m_battery; }
    const std::shared_ptr<ChargeController>& charge_controller() { return m_charge_controller; }

    /** The fan drive and the modulation relays; null on a board without them. */
    const std::shared_ptr<FanDrive>& fan() { return m_fan; }
    const std::shared_ptr<ModulationRelays>& relays() { return m_relays; }

    /** Presses or releases the power button. */
    void power_button(bool pressed);
    bool power_button_pressed() const { return m_button_pressed; }

    /** Whether the channel modules have power; always true on a board that can't switch it. */
    bool module_power() const { return m_module_power; }
    /**
     * Calls `watcher` when the power is switched, on the switching thread and with the expander locked, so it
     * must not call the board. Call it once, before use.
     */
    void watch_module_power(std::function<void(bool on)> watcher);

    /** Ends all waits and the interrupt threads. Not from an interrupt handler. */
    void stop();

private:
    void wire_reset();
    void wire_interrupts();
    void wire_keypad();
    void wire_battery();
    void wire_module_power();
    void wire_fan();
    void wire_relays();

    const BoardWiring& m_wiring;
    Trace m_trace;
    const std::shared_ptr<Clock> m_clock;
    Gpio m_gpio;
    SpiBus m_spi;
    I2cBus m_i2c;
    std::shared_ptr<Cat25Eeprom> m_eeprom;
    std::map<uint8_t, std::shared_ptr<Mcp23017>> m_expanders;
    std::shared_ptr<Tca8418> m_keypad;
    std::shared_ptr<SmartBattery> m_battery;
    std::shared_ptr<ChargeController> m_charge_controller;
    std::shared_ptr<FanDrive> m_fan;
    std::shared_ptr<ModulationRelays> m_relays;
    std::atomic<bool> m_button_pressed{false};
    std::atomic<bool> m_module_power{true};
    std::mutex m_watcher_mutex;
    std::function<void(bool)> m_module_power_watcher;
};

} // namespace sim_board

#endif

#ifndef ORVAN_SIM_BOARD_EXPANDER_MCP23017_H
#define ORVAN_SIM_BOARD_EXPANDER_MCP23017_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "board/register_device.h"

namespace sim_board {

/**
 * The 16-bit port expander MCP23017: all eleven registers of ports A and B in both bank modes, sequential
 * and byte mode, pull-ups, interrupt on change with its INTA and INTB outputs, reset input. Not modelled:
 * DISSLW and HAEN of IOCON, which only keep their value.
 *
 * An undriven input reads 1 with its GPPU bit set, else 0. Thread-safe.
 */
class Mcp23017 : public RegisterDevice {
public:
    enum Port : uint8_t { kA = 0, kB = 1 };

    /** The register's address in the default bank mode (IOCON.BANK = 0) is twice this, plus 1 for port B. */
    enum Register : uint8_t {
        kIodir,   // 1: input
        kIpol,    // 1: GPIO shows the inverted pin
        kGpinten, // 1: the pin can interrupt
        kDefval,  // compared with where INTCON is 1
        kIntcon,  // 0: any change, 1: the pin differs from DEFVAL
        kIocon,   // one register, seen at both addresses
        kGppu,    // 1: pull-up on an input
        kIntf,    // the pins that caused the interrupt; read only
        kIntcap,  // GPIO at the interrupt; read only, reading ends the interrupt
        kGpio,    // the pins; reading ends the interrupt, writing writes OLAT
        kOlat,    // what the outputs drive
        kRegisters,
    };
    enum Iocon : uint8_t {
        kIntpol = 0x02, // INT outputs are active high
        kOdr = 0x04,    // INT outputs are open drain, active low; overrides INTPOL
        kSeqop = 0x20,  // 1: the address pointer does not increment
        kMirror = 0x40, // both INT outputs show both ports
        kBank = 0x80,   // registers of a port are contiguous, port B from 0x10
    };

    Mcp23017();

    /**
     * @name For tests
     * @{
     */
    uint8_t reg(Register which, Port port) const;
    /** The levels on the pins of a port: outputs as OLAT, inputs as driven or pulled. */
    uint8_t pins(Port port) const;
    /**
     * Drives the pins of `mask` from outside with the bits of `levels`; the expander wins on its outputs.
     */
    void drive(Port port, uint8_t mask, uint8_t levels);
    /** Stops driving the pins of `mask`. */
    void release(Port port, uint8_t mask);
    /**
     * Calls `listener` with the output latch of a port whenever it is written, or cleared by a reset, under
     * the rules of on_interrupt.
     */
    void on_latch(std::function<void(Port port, uint8_t latch)> listener);
    /** Whether INTA or INTB is at 1; an open drain output has a pull-up on the board. */
    int interrupt_level(Port output) const;
    /**
     * Calls `listener` with each new level of INTA and INTB, on the thread of the access that changed it and
     * with the chip locked, so it must not call the chip. An empty one removes the listener.
     */
    void on_interrupt(std::function<void(Port output, int level)> listener);
    /**
     * Calls `listener` with the levels of a port whenever a pin changes, under the rules of on_interrupt.
     */
    void on_pins(std::function<void(Port port, uint8_t levels)> listener);
    /** @} */

private:
    struct Location {
        Register which;
        Port port;
        bool exists;
    };

    uint8_t read_register(uint8_t address) override;
    void write_register(uint8_t address, uint8_t value) override;
    uint8_t following(uint8_t address) const override;
    void reset_registers() override;
    void report_outputs() override;

    Location locate(uint8_t address) const;
    void power_on_values();
    uint8_t pin_levels(Port port) const;
    uint8_t gpio(Port port) const;
    void end_interrupt(Port port);
    void check_interrupt(Port port);
    int output_level(Port output) const;
    void report_pins();
    void report_latch(Port port);

    uint8_t& at(Register which, Port port) { return m_registers[which][port]; }
    uint8_t at(Register which, Port port) const { return m_registers[which][port]; }

    std::array<std::array<uint8_t, 2>, kRegisters> m_registers{};
    std::array<uint8_t, 2> m_driven{};   // mask of the pins driven from outside
    std::array<uint8_t, 2> m_levels{};   // their levels
    std::array<uint8_t, 2> m_compared{}; // reference for detecting a change
    std::array<int, 2> m_reported{1, 1};
    std::function<void(Port, int)> m_listener;
    std::array<uint8_t, 2> m_reported_pins{};
    std::function<void(Port, uint8_t)> m_pin_listener;
    std::function<void(Port, uint8_t)> m_latch_listener;
};

} // namespace sim_board

#endif

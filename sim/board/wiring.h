#ifndef ORVAN_SIM_BOARD_WIRING_H
#define ORVAN_SIM_BOARD_WIRING_H

#include <cstdint>
#include <span>
#include <string_view>

#include "board/expander_mcp23017.h"

namespace sim_board {

struct PinLevel {
    int pin;
    int level;
};

/** A chip select: the chip named so is selected while its node's own select is low and all pins are as given.
 */
struct SpiTargetWiring {
    std::string_view name;
    unsigned multiplexer_number; // the channel number by which the multiplexer knows it
    std::string_view node;
    std::span<const PinLevel> selected_by;
};

/** A port expander and what the board drives into the pins of its ports when nothing happens. */
struct ExpanderWiring {
    uint8_t address;
    uint8_t idle_high_a;
    uint8_t idle_high_b;
};

/** An interrupt output of an expander that reaches a pin, through an inverter or not. */
struct InterruptWiring {
    uint8_t address;
    Mcp23017::Port output;
    int pin;
    bool inverted;
};

/** The power button: a pin that it pulls to 0, or lines of port B of an expander. */
struct PowerButtonWiring {
    int pin; // -1 where it reaches an expander
    uint8_t address;
    uint8_t high_while_pressed;
    uint8_t low_while_pressed;
};

/** What of the controller board differs between the platforms. Pins have wiringPi's numbers. */
struct BoardWiring {
    std::string_view name;
    std::span<const std::string_view> spi_nodes;
    std::span<const SpiTargetWiring> spi_targets;
    std::span<const ExpanderWiring> expanders;
    std::span<const InterruptWiring> interrupts;
    std::span<const int> idle_high; // inputs that are pulled up
    PowerButtonWiring power_button;
    int keypad_interrupt;   // of the keypad controller, active low; -1 where there is no keypad
    bool battery;           // a smart battery and its charge controller are fitted
    bool modulation_relays; // on the expander 0x20
    uint8_t module_power;   // line of port A of the expander 0x20 that powers the module; 0 for none
    int expander_reset;     // reset input of the expanders, active low; -1 where it is not wired
};

extern const BoardWiring kBenchtopWiring;
extern const BoardWiring kPortableWiring;
extern const BoardWiring kKsr7000Wiring;

/** By its name; null for any other. */
const BoardWiring* find_wiring(std::string_view platform);

} // namespace sim_board

#endif

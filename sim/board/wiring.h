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

/** A chip select: selects the chip of this name while its node's own select is low and all pins match.
 */
struct SpiTargetWiring {
    std::string_view name;
    unsigned multiplexer_number; // its channel number on the multiplexer
    std::string_view node;
    std::span<const PinLevel> selected_by;
};

/** A port expander and the idle levels that the board drives into the pins of its ports. */
struct ExpanderWiring {
    uint8_t address;
    uint8_t idle_high_a;
    uint8_t idle_high_b;
};

/** An interrupt output of an expander that is connected to a pin, possibly through an inverter. */
struct InterruptWiring {
    uint8_t address;
    Mcp23017::Port output;
    int pin;
    bool inverted;
};

/** The power button: a pin that it pulls low, or lines of port B of an expander. */
struct PowerButtonWiring {
    int pin; // -1 where it reaches an expander
    uint8_t address;
    uint8_t high_while_pressed;
    uint8_t low_while_pressed;
};

/** How the controller boards of the platforms differ. Pins have wiringPi's numbers. */
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

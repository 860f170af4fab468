#include "board/wiring.h"

namespace sim_board {
namespace {

constexpr std::string_view kNode = "/dev/spidev0.1";
constexpr std::string_view kNodes[] = {"/dev/spidev0.0", "/dev/spidev0.1"};

constexpr int kExpanderReset = 26;

// Pin 11 enables the multiplexer, pins 7, 21 and 6 are its address lines.
constexpr PinLevel kMultiplexer4[] = {{11, 0}, {7, 0}, {21, 0}, {6, 1}};
constexpr PinLevel kMultiplexer5[] = {{11, 0}, {7, 1}, {21, 0}, {6, 1}};
constexpr SpiTargetWiring kMultiplexed[] = {
    {"fan", 4, kNode, kMultiplexer4},
    {"eeprom", 5, kNode, kMultiplexer5},
};

// Without a multiplexer pin 16 is the chip's own select, and pin 27 enables the bus.
constexpr PinLevel kPortableEeprom[] = {{27, 1}, {16, 0}};
constexpr SpiTargetWiring kPortableTargets[] = {
    {"eeprom", 5, kNode, kPortableEeprom},
};

// The benchtop's interrupt is armed on port B 0x20 against a compare value of 1, so that line idles high.
constexpr ExpanderWiring kBenchtopExpanders[] = {
    {0x20, 0x00, 0x20},
    {0x24, 0x00, 0x00},
};
constexpr ExpanderWiring kKsr7000Expanders[] = {
    {0x20, 0x00, 0x00},
    {0x24, 0x00, 0x00},
};
// The module has power unless it is switched off.
constexpr uint8_t kModulePower = 0x80;
constexpr ExpanderWiring kPortableExpanders[] = {
    {0x20, kModulePower, 0x00},
};

// INTB is active low, and the power button is expected as a rising edge of pin 2.
constexpr InterruptWiring kPowerButtonInterrupt[] = {
    {0x20, Mcp23017::kB, 2, true},
};

// The benchtop's interrupt uses one line of the button, the wait for its release another.
constexpr PowerButtonWiring kBenchtopPowerButton{-1, 0x20, 0x40, 0x20};
constexpr PowerButtonWiring kKsr7000PowerButton{-1, 0x20, 0x40, 0x00};
constexpr PowerButtonWiring kPortablePowerButton{22, 0, 0, 0};

constexpr int kKeypadInterrupt = 15;
constexpr int kNoKeypad = -1;

constexpr int kIdleHigh[] = {kKeypadInterrupt, kExpanderReset};
constexpr int kPortableIdleHigh[] = {22, kExpanderReset};

} // namespace

constinit const BoardWiring kBenchtopWiring{
    .name = "benchtop",
    .spi_nodes = kNodes,
    .spi_targets = kMultiplexed,
    .expanders = kBenchtopExpanders,
    .interrupts = kPowerButtonInterrupt,
    .idle_high = kIdleHigh,
    .power_button = kBenchtopPowerButton,
    .keypad_interrupt = kKeypadInterrupt,
    .battery = false,
    .modulation_relays = true,
    .module_power = 0,
    .expander_reset = kExpanderReset,
};

constinit const BoardWiring kPortableWiring{
    .name = "portable",
    .spi_nodes = kNodes,
    .spi_targets = kPortableTargets,
    .expanders = kPortableExpanders,
    .interrupts = {},
    .idle_high = kPortableIdleHigh,
    .power_button = kPortablePowerButton,
    .keypad_interrupt = kNoKeypad,
    .battery = true,
    .modulation_relays = false,
    .module_power = kModulePower,
    .expander_reset = kExpanderReset,
};

constinit const BoardWiring kKsr7000Wiring{
    .name = "ksr7000",
    .spi_nodes = kNodes,
    .spi_targets = kMultiplexed,
    .expanders = kKsr7000Expanders,
    .interrupts = kPowerButtonInterrupt,
    .idle_high = kIdleHigh,
    .power_button = kKsr7000PowerButton,
    .keypad_interrupt = kKeypadInterrupt,
    .battery = true,
    .modulation_relays = false,
    .module_power = 0,
    .expander_reset = kExpanderReset,
};

const BoardWiring* find_wiring(std::string_view platform)
{
    for (const BoardWiring* wiring : {&kBenchtopWiring, &kPortableWiring, &kKsr7000Wiring}) {
        if (wiring->name == platform) {
            return wiring;
        }
    }
    return nullptr;
}

} // namespace sim_board
